#include <camera.h>

#include <onvifTypes/onvifProbe.h>

#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QtTest>

using namespace std::chrono_literals;
using CameraSim::Camera;

class TestProbe : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void urlKeepsTheDoubleSlash();
    void successEmitsConnectedOnlyAndQueued();
    void abandonedAttemptsEmitFinishedOnly_data();
    void abandonedAttemptsEmitFinishedOnly();
    void stopBeforeStartDoesNothing();

private:
    std::unique_ptr<Camera> m_camera;
    QNetworkAccessManager m_manager;
};

void TestProbe::initTestCase()
{
    m_camera = std::make_unique<Camera>();
    QVERIFY(m_camera->start());
}

void TestProbe::urlKeepsTheDoubleSlash()
{
    QCOMPARE(Onvif::OnvifProbe("10.0.0.5", 8080, "onvif/device_service", "", "", &m_manager, 1s).url(),
        QStringLiteral("http://10.0.0.5:8080/onvif/device_service"));
    QCOMPARE(Onvif::OnvifProbe("10.0.0.5", 8080, "/onvif/device_service", "", "", &m_manager, 1s).url(),
        QStringLiteral("http://10.0.0.5:8080//onvif/device_service"));

    // Cameras take the double slash as the same path; the probe connects.
    Onvif::OnvifProbe probe(
        "127.0.0.1", m_camera->port(), "/onvif/device_service", "admin", "admin", &m_manager, 5s);
    QSignalSpy connected(&probe, &Onvif::OnvifProbe::connected);
    probe.start();
    QVERIFY(connected.wait(5000));
}

void TestProbe::successEmitsConnectedOnlyAndQueued()
{
    Onvif::OnvifProbe probe(
        "127.0.0.1", m_camera->port(), "onvif/device_service", "admin", "admin", &m_manager, 3s);
    QSignalSpy connected(&probe, &Onvif::OnvifProbe::connected);
    QSignalSpy finished(&probe, &Onvif::OnvifProbe::finished);
    bool insideHandler = false;
    connect(&probe, &Onvif::OnvifProbe::connected, this, [&] {
        // Delivered from the event loop, never from inside the reply's handler.
        insideHandler = QThread::currentThread() != thread();
    });
    probe.start();
    QVERIFY(connected.wait(5000));
    const auto info = connected.at(0).at(0).value<Onvif::DeviceInfo>();
    QCOMPARE(info.serialNumber, m_camera->config().serialNumber);
    QCOMPARE(info.type, QStringLiteral("Unknown"));
    QVERIFY(info.ip.isEmpty());
    QVERIFY(!insideHandler);
    probe.stop(); // after the result: nothing more
    QTest::qWait(200);
    QCOMPARE(connected.size(), 1);
    QCOMPARE(finished.size(), 0);
}

void TestProbe::abandonedAttemptsEmitFinishedOnly_data()
{
    QTest::addColumn<QString>("how");
    // A timeout with the request at the camera, faults and network failures are the fault matrix's.
    QTest::newRow("timeout 0 ms") << "timeout0";
    QTest::newRow("stop") << "stop";
    QTest::newRow("wrong password") << "password";
}

void TestProbe::abandonedAttemptsEmitFinishedOnly()
{
    QFETCH(QString, how);
    m_camera->clearFaults();
    std::chrono::milliseconds timeout = 3s;
    if (how == QLatin1String("timeout0"))
        timeout = 0ms;
    const QString password = how == QLatin1String("password") ? "nope" : "admin";
    Onvif::OnvifProbe probe(
        "127.0.0.1", m_camera->port(), "onvif/device_service", "admin", password, &m_manager, timeout);
    QSignalSpy connected(&probe, &Onvif::OnvifProbe::connected);
    QSignalSpy finished(&probe, &Onvif::OnvifProbe::finished);
    probe.start();
    if (how == QLatin1String("stop"))
        probe.stop();
    QCOMPARE(finished.size(), 0); // queued, even for a stop
    QVERIFY(finished.wait(5000));
    QTest::qWait(100); // a second signal would show
    QCOMPARE(finished.size(), 1);
    QCOMPARE(connected.size(), 0);
}

void TestProbe::stopBeforeStartDoesNothing()
{
    Onvif::OnvifProbe probe(
        "127.0.0.1", m_camera->port(), "onvif/device_service", "admin", "admin", &m_manager, 1s);
    QSignalSpy finished(&probe, &Onvif::OnvifProbe::finished);
    m_camera->clearRequestLog();
    probe.stop();
    QTest::qWait(100);
    QCOMPARE(finished.size(), 0);
    QCOMPARE(m_camera->requestLog().size(), 0);
}

QTEST_GUILESS_MAIN(TestProbe)
#include "tst_probe.moc"
