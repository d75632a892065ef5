#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/onvifRequests.h>
#include <zyrChecker/zyrChecker.h>

#include <QtTest>

namespace {

Onvif::DeviceInfo device(const QString& manufacturer, const QString& model,
    const QString& firmware = QString(), const QString& hardwareId = QString())
{
    Onvif::DeviceInfo info;
    info.manufacturer = manufacturer;
    info.model = model;
    info.firmwareVersion = firmware;
    info.hardwareId = hardwareId;
    return info;
}

} // namespace

class TestClassification : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { ZYRChecker::setKnownTexts({}); }
    void byManufacturer_data();
    void byManufacturer();
    void whatThePredicateIsAsked_data();
    void whatThePredicateIsAsked();
    void metaTypeName();
};

void TestClassification::byManufacturer_data()
{
    QTest::addColumn<QString>("manufacturer");
    QTest::addColumn<QString>("type");
    const char* rows[][2]
        = { { "GeoVision", "GeoVision" }, { "GEOVISION", "GeoVision" }, { "H264", "Hunter" },
              { "h264", "Hunter" }, { "AXIS", "Unknown" }, { " GeoVision", "Unknown" }, { "", "Unknown" } };
    for (const auto& row : rows)
        QTest::addRow("'%s'", row[0]) << QString::fromLatin1(row[0]) << QString::fromLatin1(row[1]);
}

void TestClassification::byManufacturer()
{
    QFETCH(QString, manufacturer);
    QFETCH(QString, type);
    QCOMPARE(OnvifDeviceInfo::devTypeFromManufacturer(manufacturer), type);
    QCOMPARE(OnvifDeviceInfo::getDeviceType(device(manufacturer, "M1")), type);
}

void TestClassification::whatThePredicateIsAsked_data()
{
    QTest::addColumn<Onvif::DeviceInfo>("info");
    QTest::addColumn<QString>("asked"); // the one text that makes the answer true; null: never true

    QTest::newRow("white label, first model piece") << device("ONVIF_IPNC", "Z100-4MP") << "Z100";
    QTest::newRow("white label keeps empty pieces") << device("ONVIF_CAMERA", "-X1") << "";
    QTest::newRow("white label, whole model") << device("Network Digital Video", "NDV") << "NDV";
    QTest::newRow("white label, case matters") << device("onvif_camera", "Z100-4MP") << QString();
    QTest::newRow("ZYR-PI drops empty pieces") << device("ZYR-PI", "-X1") << "X1";
    QTest::newRow("ZYR-PI, no piece") << device("ZYR-PI", "---") << QString();
    QTest::newRow("IP CAMERA, build prefix")
        << device("IP CAMERA", "IP Camera", "V5.5.3_build_20200115") << "V5.5.3";
    QTest::newRow("IP CAMERA, dashed date") << device("IP CAMERA", "ip camera", "R1-rel_2021-03-04") << "R1";
    QTest::newRow("IP CAMERA, greedy prefix") << device("IP CAMERA", "IP CAMERA", "A_B_x_20200115") << "A_B";
    QTest::newRow("IP CAMERA, no date") << device("IP CAMERA", "IP Camera", "V5.5.3") << QString();
    QTest::newRow("IP CAMERA, other model")
        << device("IP CAMERA", "Dome", "V5.5.3_build_20200115") << QString();
    QTest::newRow("ip camera lower case")
        << device("ip camera", "IP Camera", "V5.5.3_build_20200115") << QString();
    QTest::newRow("anonymous, hardware id") << device("", "", "", "HW-77") << "HW-77";
    QTest::newRow("no data at all") << device("", "", "", "") << QString();
    QTest::newRow("model given") << device("", "M", "", "HW-77") << QString();
}

void TestClassification::whatThePredicateIsAsked()
{
    QFETCH(Onvif::DeviceInfo, info);
    QFETCH(QString, asked);

    ZYRChecker::setKnownTexts({ QStringLiteral("unrelated") });
    QVERIFY(!OnvifDeviceInfo::checkZYR(info));
    if (asked.isNull()) {
        // Whatever the set holds, this record is never of the family: try every text it carries.
        ZYRChecker::setKnownTexts({ info.manufacturer, info.model, info.firmwareVersion, info.hardwareId,
            QString(), QStringLiteral("V5.5.3"), QStringLiteral("X1"), QStringLiteral("Z100") });
        QVERIFY(!OnvifDeviceInfo::checkZYR(info));
        return;
    }
    ZYRChecker::setKnownTexts({ asked });
    QVERIFY(OnvifDeviceInfo::checkZYR(info));
    QCOMPARE(OnvifDeviceInfo::getDeviceType(info), QStringLiteral("ZYR"));
}

void TestClassification::metaTypeName()
{
    const int id = QMetaType::type("Onvif::DeviceInfo");
    QVERIFY(id != QMetaType::UnknownType);
    QCOMPARE(id, qMetaTypeId<Onvif::DeviceInfo>());
}

QTEST_GUILESS_MAIN(TestClassification)
#include "tst_classification.moc"
