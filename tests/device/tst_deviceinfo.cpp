// OnvifDeviceInfo against the simulated camera: results, error codes, timeout, stop.

#include "logCapture.h"
#include "signalWait.h"
#include "simCamera.h"

#include <camera.h>

#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/serializable.h>
#include <zyrChecker/zyrChecker.h>

#include <QNetworkAccessManager>
#include <QtTest>

using CameraSim::Camera;
using CameraSim::CameraConfig;
using CameraSim::FaultMode;
using CameraSim::FaultSpec;

namespace {

// A header block of the caller's own, to see that it is sent as given.
class MarkerHeader : public Serializable
{
public:
    QString serialize(const QString&) const override { return QStringLiteral("<Marker>hdr-7</Marker>"); }
    void deserialize(const QDomNode&) override { }
};

struct Spies
{
    explicit Spies(OnvifDeviceInfo& object)
        : info(&object, &OnvifDeviceInfo::receiveDevInfo)
        , error(&object, &OnvifDeviceInfo::error)
    { }
    qint64 wait(int timeoutMs = 3000, int settleMs = 300)
    {
        return waitForAny({ &info, &error }, timeoutMs, settleMs);
    }
    QSignalSpy info;
    QSignalSpy error;
};

} // namespace

class TestDeviceInfo : public QObject
{
    Q_OBJECT

private slots:
    void init() { ZYRChecker::setKnownTexts({}); }
    void classifiedRecord();
    void threeRequestForms();
    void faultIsErrorOne();
    void networkErrors();
    void timeoutAfterFiveSeconds();
    void stopAndNewRequestSilenceTheOldOne();
};

void TestDeviceInfo::classifiedRecord()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.manufacturer = QStringLiteral("ONVIF_CAMERA");
    config.model = QStringLiteral("ZX-200");
    config.serialNumber = QStringLiteral("SN-42");
    config.hardwareId = QStringLiteral("HW-9");
    config.firmwareVersion = QStringLiteral("2.4.1");
    const auto camera = startCamera(config);
    ZYRChecker::setKnownTexts({ QStringLiteral("ZX") });

    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.info.size(), 1);
    const auto info = spies.info.first().first().value<Onvif::DeviceInfo>();
    QCOMPARE(info.manufacturer, QStringLiteral("ONVIF_CAMERA"));
    QCOMPARE(info.model, QStringLiteral("ZX-200"));
    QCOMPARE(info.serialNumber, QStringLiteral("SN-42"));
    QCOMPARE(info.hardwareId, QStringLiteral("HW-9"));
    QCOMPARE(info.firmwareVersion, QStringLiteral("2.4.1"));
    QCOMPARE(info.type, OnvifDeviceInfo::zyrName);
    QVERIFY(info.ip.isEmpty() && info.port.isEmpty() && info.path.isEmpty());
}

void TestDeviceInfo::threeRequestForms()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.requireAuth = false;
    config.manufacturer = QStringLiteral("H264");
    const auto camera = startCamera(config);
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    const QUrl url(camera->deviceUrl());

    object.getDeviceInfo(url);
    QVERIFY(spies.wait() >= 0);
    MarkerHeader marker;
    object.getDeviceInfo(url, marker);
    QVERIFY(spies.wait() >= 0);
    object.getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("secret"));
    QVERIFY(spies.wait() >= 0);

    QCOMPARE(spies.info.size(), 3);
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.info.last().first().value<Onvif::DeviceInfo>().type, OnvifDeviceInfo::hunterName);
    const auto requests = camera->requestsFor(QStringLiteral("GetDeviceInformation"));
    QCOMPARE(requests.size(), 3);
    for (const auto& request : requests) {
        QCOMPARE(request.header("Content-Type"), QByteArray("application/soap+xml"));
        QCOMPARE(request.path, QUrl(camera->deviceUrl()).path());
    }
    QVERIFY(requests[0].body.contains("<s:Header></s:Header>"));
    QVERIFY(requests[1].body.contains("<s:Header><Marker>hdr-7</Marker></s:Header>"));
    QVERIFY(requests[2].body.contains("<Username>admin</Username>"));
    QVERIFY(requests[2].body.contains("#PasswordDigest\">"));
}

void TestDeviceInfo::faultIsErrorOne()
{
    const auto camera = startCamera();
    FaultSpec fault;
    fault.mode = FaultMode::SoapFault;
    fault.httpStatus = 200;
    fault.code = QStringLiteral("Sender");
    fault.subcode = QStringLiteral("ter:InvalidArgVal");
    fault.reason = QStringLiteral("No such thing");
    fault.count = 1;
    camera->setFault(QStringLiteral("GetDeviceInformation"), fault);

    LogCapture log;
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.info.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.error.first().at(0).toUInt(), 1u);
    // The fault line as the response reader composes it from this fault.
    QVERIFY(spies.error.first().at(1).toString().startsWith(QStringLiteral("Fault detail:  Code: ")));
    QVERIFY(spies.error.first().at(1).toString().endsWith(
        QStringLiteral("; Subcode: ter:InvalidArgVal; Reason: No such thing")));
    const auto errors = log.withSeverity(4);
    QCOMPARE(errors.size(), 1);
    QVERIFY2(errors.first().message.startsWith(
                 QStringLiteral(" getDeviceInfoResponse: DeviceInfo response has error. (")),
        qPrintable(errors.first().message));

    // A fault sent with an HTTP error status counts as a network error (code 3):
    // the reply's error is looked at before its body.
    fault.httpStatus = 500;
    camera->setFault(QStringLiteral("GetDeviceInformation"), fault);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 2);
    QCOMPARE(spies.error.last().at(0).toUInt(), 3u);
    QCOMPARE(spies.error.last().at(1).toString(), QString::number(QNetworkReply::InternalServerError));
}

void TestDeviceInfo::networkErrors()
{
    LogCapture log;
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(closedPort())));
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.info.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.error.first().at(0).toUInt(), 3u);
    QCOMPARE(spies.error.first().at(1).toString(), QString::number(QNetworkReply::ConnectionRefusedError));
    QCOMPARE(log.withSeverity(4).size(), 1);
    QVERIFY(log.withSeverity(4).first().message.startsWith(
        QStringLiteral(" getDeviceInfoResponse: Error while receiving DeviceInfoResponse:1 (")));

    // A camera that drops the connection without a word.
    const auto camera = startCamera();
    FaultSpec drop;
    drop.mode = FaultMode::Drop;
    camera->setFault(QStringLiteral("GetDeviceInformation"), drop);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 2);
    QCOMPARE(spies.error.last().at(0).toUInt(), 3u);
    QCOMPARE(spies.error.last().at(1).toString(), QString::number(QNetworkReply::RemoteHostClosedError));
    QCOMPARE(spies.info.size(), 0);
}

void TestDeviceInfo::timeoutAfterFiveSeconds()
{
    const auto camera = startCamera();
    FaultSpec slow;
    slow.delayMs = 8000;
    camera->setFault(QStringLiteral("GetDeviceInformation"), slow);
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    // Settle past the moment the camera finally answers: that answer must be dropped.
    const qint64 elapsed = spies.wait(7000, 3500);
    QVERIFY2(elapsed >= 4950 && elapsed < 6000, qPrintable(QString::number(elapsed)));
    QCOMPARE(spies.info.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.error.first().at(0).toUInt(), 3u);
    QCOMPARE(spies.error.first().at(1).toString(), QStringLiteral("timeout"));
    camera->clearFaults();
}

void TestDeviceInfo::stopAndNewRequestSilenceTheOldOne()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.manufacturer = QStringLiteral("GeoVision");
    const auto camera = startCamera(config);
    FaultSpec slow;
    slow.delayMs = 300;
    slow.count = 1;
    camera->setFault(QStringLiteral("GetDeviceInformation"), slow);
    QNetworkAccessManager manager;
    auto* object = new OnvifDeviceInfo(manager, &manager);
    Spies spies(*object);
    const QUrl url(camera->deviceUrl());

    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    QTest::qWait(100); // the camera holds it now
    object->stop();
    QCOMPARE(spies.wait(1000, 0), qint64(-1)); // neither the answer nor the timer speaks
    QTRY_COMPARE(camera->requestsFor(QStringLiteral("GetDeviceInformation")).size(), 1);

    // The first of two overlapping requests is dropped; only the second one answers.
    slow.count = 1;
    camera->setFault(QStringLiteral("GetDeviceInformation"), slow);
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("wrong"));
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait(3000, 600) >= 0);
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.info.size(), 1);
    QCOMPARE(spies.info.first().first().value<Onvif::DeviceInfo>().type, OnvifDeviceInfo::geovisionName);

    // A result already queued when stop() comes is not delivered: the manager's finished()
    // is emitted before the object's slot runs, so this queued stop() lands in between.
    spies.info.clear();
    const auto connection = connect(
        &manager, &QNetworkAccessManager::finished, object, [object]() { object->stop(); },
        Qt::QueuedConnection);
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    QCOMPARE(spies.wait(1000, 0), qint64(-1));
    disconnect(connection);

    // A pending request dies with the object.
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    delete object;
    QTest::qWait(300);
    QCOMPARE(spies.info.size(), 0);
    QCOMPARE(spies.error.size(), 0);
}

QTEST_GUILESS_MAIN(TestDeviceInfo)

#include "tst_deviceinfo.moc"
