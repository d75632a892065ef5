#include "schemaTestUtil.h"

#include <onvifTypes/schema/tds/GetCapabilitiesResponse.h>
#include <onvifTypes/schema/tds/GetDeviceInformationResponse.h>
#include <onvifTypes/schema/tptz/GetNodesResponse.h>
#include <onvifTypes/schema/tptz/GetPresetsResponse.h>
#include <onvifTypes/schema/tr2/GetStreamUriResponse.h>
#include <onvifTypes/schema/trt/GetProfilesResponse.h>

#include <QtTest>

// deserialize() takes the node by reference, as applications' overrides do; tests hand it a copy.
template <typename T> void readNode(T& object, QDomNode node)
{
    object.deserialize(node);
}

// Replies captured from real cameras, read in place from the shared fixtures.
class SchemaRepliesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void profiles();
    void capabilities();
    void deviceInformation_data();
    void deviceInformation();
    void presets();
    void nodes();
    void media2StreamUri();

private:
    // The element of the given local name inside a fixture file, parsed as replies are.
    QDomElement reply(const QString& file, const QString& localName);

    QString m_root;
    QDomDocument m_document;
};

void SchemaRepliesTest::initTestCase()
{
    m_root = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real/");
    if (!QDir(m_root).exists())
        QSKIP("no captured replies: ../shared/fixtures/real is absent next to the repository");
}

QDomElement SchemaRepliesTest::reply(const QString& file, const QString& localName)
{
    QFile input(m_root + file);
    if (!input.open(QIODevice::ReadOnly)) {
        qWarning("cannot read %s", qPrintable(input.fileName()));
        return QDomElement();
    }
    m_document = QDomDocument();
    if (!m_document.setContent(&input, true)) {
        qWarning("cannot parse %s", qPrintable(input.fileName()));
        return QDomElement();
    }
    return SchemaTest::findByLocalName(m_document.documentElement(), localName);
}

void SchemaRepliesTest::profiles()
{
    const QDomElement element = reply(QStringLiteral("onvif-nvt/axis/media/GetProfiles.Response.xml"),
        QStringLiteral("GetProfilesResponse"));
    QVERIFY(!element.isNull());
    trt::GetProfilesResponse response;
    readNode(response, element);
    QCOMPARE(response.Profiles->size(), 2);
    const tt::Profile& h264 = response.Profiles->at(0);
    QCOMPARE(h264.token->value() + '|' + h264.Name->value(), QStringLiteral("profile_1_h264|profile_1 h264"));
    QCOMPARE(h264.fixed->value(), false);
    QCOMPARE(h264.VideoSourceConfiguration->Bounds->height->value(), 1080);
    const tt::VideoEncoderConfiguration& encoder = *h264.VideoEncoderConfiguration;
    QCOMPARE(encoder.Encoding->value(), QStringLiteral("H264"));
    QCOMPARE(encoder.Resolution->Width->value(), 1280);
    QCOMPARE(encoder.Quality->value(), 80.0f);
    QCOMPARE(encoder.RateControl->FrameRateLimit->value(), 30);
    QCOMPARE(encoder.H264->H264Profile->value(), QStringLiteral("Main"));
    QVERIFY(encoder.MPEG4.isNull());
    QCOMPARE(encoder.Multicast->Address->IPv4Address->value(), QStringLiteral("0.0.0.0"));
    QCOMPARE(encoder.SessionTimeout->value(), QStringLiteral("PT60S"));
    QCOMPARE(encoder.unmatchedElements, QString());
    QCOMPARE(h264.PTZConfiguration->NodeToken->value(), QStringLiteral("1"));
    const tt::Profile& jpeg = response.Profiles->at(1);
    QCOMPARE(jpeg.token->value(), QStringLiteral("profile_1_jpeg"));
    QCOMPARE(jpeg.VideoEncoderConfiguration->Encoding->index(), 0u);
    QVERIFY(jpeg.VideoEncoderConfiguration->H264.isNull());
}

void SchemaRepliesTest::capabilities()
{
    const QDomElement element = reply(QStringLiteral("onvif-nvt/axis/core/GetCapabilities.Response.xml"),
        QStringLiteral("GetCapabilitiesResponse"));
    QVERIFY(!element.isNull());
    tds::GetCapabilitiesResponse response;
    readNode(response, element);
    const tt::Capabilities& capabilities = *response.Capabilities;
    QCOMPARE(capabilities.Device->XAddr->value(), QStringLiteral("http://192.168.0.19/onvif/device_service"));
    QVERIFY(capabilities.Media->StreamingCapabilities->RTP_TCP->value());
    QCOMPARE(capabilities.PTZ->XAddr->value(), QStringLiteral("http://192.168.0.19/onvif/services"));
    QVERIFY(capabilities.Events);
    QCOMPARE(response.unmatchedElements, QString());
}

void SchemaRepliesTest::deviceInformation_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("axis") << QStringLiteral("onvif-nvt/axis/core/GetDeviceInformation.Response.xml")
                          << QStringList { "AXIS", "AXIS Q6045-E", "5.55.1.2", "00408CFAB754", "1C9.2" };
    QTest::newRow("pelco") << QStringLiteral("onvif-nvt/pelco/core/GetDeviceInformation.Response.xml")
                           << QStringList { "Pelco", "D6230L", "2.9.0.4.9340-A0.0", "J250117",
                                  "00:04:7d:0e:b8:5c" };
    QTest::newRow("hikvision") << QStringLiteral("onvif-nvt/hikvision/core/GetDeviceInformation.Response.xml")
                               << QStringList { "HIKVISION", "DS-2DF7276-AEL", "V5.1.6 build 140401",
                                      "DS-2DF7276-AEL20140613CCWR468714298B", "88" };
    QTest::newRow("gSOAP, one line") << QStringLiteral(
        "2bad-onvif/dvc/dcn-bm2220lpr/device.GetDeviceInformation.xml")
                                     << QStringList { "DVC", "DCN-BM2220LPR", "5.1", "REDACTED1",
                                            "REDACTED2" };
}

void SchemaRepliesTest::deviceInformation()
{
    QFETCH(QString, file);
    QFETCH(QStringList, expected);
    const QDomElement element = reply(file, QStringLiteral("GetDeviceInformationResponse"));
    QVERIFY(!element.isNull());
    tds::GetDeviceInformationResponse response;
    readNode(response, element);
    QCOMPARE(QStringList(
                 { response.Manufacturer->value(), response.Model->value(), response.FirmwareVersion->value(),
                     response.SerialNumber->value(), response.HardwareId->value() }),
        expected);
}

void SchemaRepliesTest::presets()
{
    QDomElement element = reply(
        QStringLiteral("onvif-nvt/axis/ptz/GetPresets.Response.xml"), QStringLiteral("GetPresetsResponse"));
    QVERIFY(!element.isNull());
    tptz::GetPresetsResponse axis;
    readNode(axis, element);
    QCOMPARE(axis.Preset->size(), 21);
    const tt::PTZPreset& first = axis.Preset->at(0);
    QCOMPARE(first.token->value() + '|' + first.Name->value(), QStringLiteral("22|Living Room"));
    QCOMPARE(first.PTZPosition->PanTilt->x->value(), -4.66240772e-06f);
    QCOMPARE(first.PTZPosition->PanTilt->space->value(),
        QStringLiteral("http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace"));
    QCOMPARE(first.PTZPosition->Zoom->x->value(), 1.52603152e-09f);

    element = reply(QStringLiteral("onvif-nvt/hikvision/ptz/GetPresets.Response.xml"),
        QStringLiteral("GetPresetsResponse"));
    tptz::GetPresetsResponse hikvision;
    readNode(hikvision, element);
    QCOMPARE(hikvision.Preset->size(), 255);
    QCOMPARE(hikvision.Preset->at(3).Name->value(), QStringLiteral("Parking"));
    QVERIFY(hikvision.Preset->at(3).PTZPosition.isNull());
}

void SchemaRepliesTest::nodes()
{
    const QDomElement element = reply(
        QStringLiteral("onvif-nvt/pelco/ptz/GetNodes.Response.xml"), QStringLiteral("GetNodesResponse"));
    QVERIFY(!element.isNull());
    tptz::GetNodesResponse response;
    readNode(response, element);
    QCOMPARE(response.PTZNode->size(), 1);
    const tt::PTZNode& node = response.PTZNode->at(0);
    QCOMPARE(node.token->value() + '|' + node.Name->value(), QStringLiteral("PTZID-0|PtzHardwareDriver"));
    QCOMPARE(node.FixedHomePosition->value(), false);
    const tt::PTZSpaces& spaces = *node.SupportedPTZSpaces;
    QCOMPARE(spaces.AbsolutePanTiltPositionSpace->size(), 2);
    QCOMPARE(spaces.AbsolutePanTiltPositionSpace->at(1).URI->value(),
        QStringLiteral("http://www.onvif.org/ver10/tptz/PanTiltSpaces/SphericalPositionSpaceDegrees"));
    QCOMPARE(spaces.AbsolutePanTiltPositionSpace->at(0).XRange->Min->value(), -1.0f);
    QCOMPARE(spaces.RelativePanTiltTranslationSpace->size(), 3);
    QVERIFY(spaces.ZoomSpeedSpace.isNull());
}

// The one Media2 answer among the captured replies (gSOAP-style, every prefix declared).
void SchemaRepliesTest::media2StreamUri()
{
    const QDomElement element = reply(QStringLiteral("easy_onvif/SUNBA/media2/GetStreamUriResponse.xml"),
        QStringLiteral("GetStreamUriResponse"));
    QVERIFY(!element.isNull());
    QCOMPARE(element.namespaceURI(), QStringLiteral("http://www.onvif.org/ver20/media/wsdl"));
    tr2::GetStreamUriResponse response;
    readNode(response, element);
    QCOMPARE(response.Uri->value(), QStringLiteral("rtsp://162.191.54.181/media/video1"));
    QCOMPARE(response.unmatchedElements, QString());
}

QTEST_GUILESS_MAIN(SchemaRepliesTest)
#include "tst_schemaReplies.moc"
