// Many cameras in one process, and the onvif-camera-sim program as a whole.

#include "simClient.h"

#include <fleet.h>
#include <loadGenerator.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryFile>
#include <QtTest>

using namespace CameraSim;

namespace {

int processThreads()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("Threads:"))
            return line.mid(8).trimmed().toInt();
    }
    return -1;
}

QStringList readLines(QProcess& process, int count, int timeoutMs)
{
    QStringList lines;
    QElapsedTimer timer;
    timer.start();
    while (lines.size() < count && timer.elapsed() < timeoutMs) {
        if (!process.canReadLine() && !process.waitForReadyRead(200))
            continue;
        while (process.canReadLine())
            lines << QString::fromUtf8(process.readLine()).trimmed();
    }
    return lines;
}

} // namespace

class TestSimFleet : public QObject
{
    Q_OBJECT

private slots:
    void twoHundredCamerasUnderLoad();
    void executable();
};

void TestSimFleet::twoHundredCamerasUnderLoad()
{
    const int before = processThreads();
    Fleet fleet;
    QString error;
    QVERIFY2(fleet.start(200, CameraConfig::defaultCamera(), &error), qPrintable(error));
    QCOMPARE(fleet.size(), 200);
    const QVector<quint16> ports = fleet.ports();
    QCOMPARE(QSet<quint16>(ports.begin(), ports.end()).size(), 200);
    // Idle cameras cost their listening thread only.
    QVERIFY2(processThreads() - before <= 200, qPrintable(QString::number(processThreads() - before)));
    QCOMPARE(fleet.camera(199).config().serialNumber, QStringLiteral("SIM0000001-0200"));

    LoadOptions options;
    options.ports = ports;
    options.threads = 8;
    options.seconds = 2;
    // Throughput is measured by onvif-sim-bench; here every camera must answer every request.
    const LoadResult result = runLoad(options);
    QVERIFY2(result.failed == 0,
        qPrintable(QStringLiteral("%1 failed, first: %2").arg(result.failed).arg(result.firstFailure)));
    for (int i = 0; i < 200; ++i) {
        QVERIFY(result.perPort[i] > 0);
        QCOMPARE(fleet.camera(i).requestCount(), int(result.perPort[i]));
    }
    // Threads grow with the connections actually held, not with a fixed pool per camera.
    QVERIFY(processThreads() - before <= 200 + 200 + 16);

    fleet.stop();
    QVERIFY(!post(ports.first(), plainEnvelope(QStringLiteral("<tds:GetDeviceInformation/>")), "/",
        "application/soap+xml", 1000)
                 .answered);
}

// examples_against_simulator starts it from the command line and reads its camera lines.
void TestSimFleet::executable()
{
    QTemporaryFile config;
    QVERIFY(config.open());
    config.write(R"({"cameras": [{"manufacturer": "Other", "requireAuth": false, "repeat": 2}]})");
    config.close();
    // Stopped by SIGTERM, or ends by itself when the duration is over.
    for (const char* duration : { "60", "1.5" }) {
        const bool signalled = qstrcmp(duration, "60") == 0;
        QProcess sim;
        QElapsedTimer timer;
        timer.start();
        sim.start(QStringLiteral(SIM_EXECUTABLE),
            { QStringLiteral("--config"), config.fileName(), QStringLiteral("--duration"), duration });
        const QStringList lines = readLines(sim, 3, 10000);
        QCOMPARE(lines.value(2), QStringLiteral("ready 2"));
        QSet<QString> serials;
        for (const QString& line : lines.mid(0, 2)) {
            const HttpReply reply = post(line.split(QLatin1Char(' ')).value(2).toUShort(),
                plainEnvelope(QStringLiteral("<tds:GetDeviceInformation/>")));
            QCOMPARE(
                findElement(reply.xml(), QStringLiteral("Manufacturer")).text(), QStringLiteral("Other"));
            serials << findElement(reply.xml(), QStringLiteral("SerialNumber")).text();
        }
        QCOMPARE(serials.size(), 2);
        if (signalled)
            sim.terminate();
        QVERIFY(sim.waitForFinished(5000));
        QCOMPARE(sim.exitStatus(), QProcess::NormalExit);
        QCOMPARE(sim.exitCode(), 0);
        QVERIFY(signalled || timer.elapsed() >= 1400);
        QVERIFY(sim.readAll().contains("stopped"));
    }

    QProcess bad;
    bad.start(
        QStringLiteral(SIM_EXECUTABLE), { QStringLiteral("--config"), QStringLiteral("/nonexistent.json") });
    QVERIFY(bad.waitForFinished(5000));
    QCOMPARE(bad.exitCode(), 2);
    QVERIFY(bad.readAllStandardError().contains("cannot read"));

    QProcess discovery; // WS-Discovery outside a private network namespace is refused
    discovery.start(QStringLiteral(SIM_EXECUTABLE),
        { QStringLiteral("--discovery"), QStringLiteral("127.0.0.1"), QStringLiteral("--discovery-port"),
            QStringLiteral("0") });
    QVERIFY(discovery.waitForFinished(5000));
    if (!DiscoveryResponder::inPrivateNetworkNamespace()) {
        QCOMPARE(discovery.exitCode(), 2);
        QVERIFY(discovery.readAllStandardError().contains("namespace"));
    }
}

QTEST_GUILESS_MAIN(TestSimFleet)
#include "tst_simfleet.moc"
