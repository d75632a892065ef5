// onvif-cli discover, run only inside a network namespace of this test's own:
// the probe is a broadcast and must never reach the machine's real networks.
#include "privateNetwork.h"

#include <fleet.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

namespace {
QString g_namespaceProblem;
}

class TestCliDiscover : public QObject
{
    Q_OBJECT

private slots:
    void listsTheCamerasThatAnswer()
    {
        if (!g_namespaceProblem.isEmpty())
            QSKIP(qPrintable(QStringLiteral("discovery is only tested in a private network namespace: ")
                + g_namespaceProblem));
        CameraSim::Fleet fleet;
        QVERIFY(fleet.start(3));
        QString error;
        QVERIFY2(fleet.startDiscovery(QStringLiteral("0.0.0.0"), 3702, QString(), &error), qPrintable(error));

        // The child process inherits this namespace.
        QProcess cli;
        cli.start(QStringLiteral(ONVIF_CLI),
            { "-u", "admin", "-p", "admin", "--json", "--timeout", "1.5", "discover" });
        QVERIFY(cli.waitForFinished(20000));
        QCOMPARE(cli.exitCode(), 0);
        const QString err = QString::fromUtf8(cli.readAllStandardError());
        QVERIFY2(err.contains(QLatin1String("Broadcasting a WS-Discovery probe from every local address")),
            qPrintable(err));
        const QJsonArray devices
            = QJsonDocument::fromJson(cli.readAllStandardOutput()).object().value("devices").toArray();
        QCOMPARE(devices.size(), 3);
        QSet<int> ports;
        for (const QJsonValue& d : devices) {
            const QJsonObject o = d.toObject();
            QCOMPARE(o.value("ip").toString(), QStringLiteral("127.0.0.1"));
            QCOMPARE(o.value("path").toString(), QStringLiteral("/onvif/device_service"));
            QCOMPARE(o.value("manufacturer").toString(), QStringLiteral("SimCam")); // the device's own answer
            QVERIFY(!o.value("serialNumber").toString().isEmpty());
            QCOMPARE(o.value("status").toString(), QStringLiteral("answered"));
            ports.insert(o.value("port").toInt());
        }
        QSet<int> expected;
        for (const quint16 port : fleet.ports())
            expected.insert(port);
        QCOMPARE(ports, expected);

        // A camera that refuses the credentials is told apart from one that answered; CSV has a
        // header and a row per camera.
        cli.start(QStringLiteral(ONVIF_CLI),
            { "-u", "admin", "-p", "wrong", "--csv", "--timeout", "1.5", "discover" });
        QVERIFY(cli.waitForFinished(20000));
        QCOMPARE(cli.exitCode(), 0);
        const QStringList rows
            = QString::fromUtf8(cli.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(rows.size(), 4);
        QCOMPARE(rows[0], QStringLiteral("URL,STATUS,MANUFACTURER,MODEL,SERIAL,FIRMWARE,TYPE"));
        for (const QString& row : rows.mid(1))
            QVERIFY2(row.split(',').value(1) == QLatin1String("credentials refused"), qPrintable(row));

        // Nobody answering is "unreachable or silent", not success.
        fleet.stop();
        cli.start(QStringLiteral(ONVIF_CLI), { "--json", "--timeout", "0.5", "discover" });
        QVERIFY(cli.waitForFinished(20000));
        QCOMPARE(cli.exitCode(), 3);
        QCOMPARE(
            QJsonDocument::fromJson(cli.readAllStandardOutput()).object().value("devices").toArray().size(),
            0);
    }
};

int main(int argc, char** argv)
{
    g_namespaceProblem = enterOwnNetworkNamespace();
    QCoreApplication app(argc, argv);
    TestCliDiscover test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_cli_discover.moc"
