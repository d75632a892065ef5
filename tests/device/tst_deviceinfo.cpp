// OnvifDeviceInfo against the simulated camera: results, a fault's text, timeout, stop.

#include "logCapture.h"
#include "signalWait.h"
#include "simCamera.h"

#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/serializable.h>
#include <zyrChecker/zyrChecker.h>

#include <QNetworkAccessManager>
#include <QTimer>
#include <QtTest>

using namespace CameraSim;

namespace {

// A header block of the caller's own, to see that it is sent as given.
class MarkerHeader : public Serializable
{
public:
    QString serialize(QString) override { return QStringLiteral("<Marker>hdr-7</Marker>"); }
    void deserialize(QDomNode&) override { }
};

struct Spies
{
    explicit Spies(OnvifDeviceInfo& object)
        : info(&object, &OnvifDeviceInfo::receiveDevInfo)
        , error(&object, &OnvifDeviceInfo::error)
    { }
    bool wait(int timeoutMs = 3000, int settleMs = 300)
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
    void classifiedRecordAndRequestForms();
    void faultOverHttp200();
    void timeout();
    void stopAndNewRequestSilenceTheOldOne();
};

void TestDeviceInfo::classifiedRecordAndRequestForms()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.manufacturer = QStringLiteral("ONVIF_CAMERA");
    config.model = QStringLiteral("ZX-200");
    config.serialNumber = QStringLiteral("SN-42");
    config.hardwareId = QStringLiteral("HW-9");
    config.firmwareVersion = QStringLiteral("2.4.1");
    auto camera = startCamera(config);
    ZYRChecker::setKnownTexts({ QStringLiteral("ZX") });
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait());
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.info.size(), 1);
    const auto info = spies.info.first().first().value<Onvif::DeviceInfo>();
    QCOMPARE(QStringList(
                 { info.manufacturer, info.model, info.serialNumber, info.hardwareId, info.firmwareVersion }),
        QStringList({ "ONVIF_CAMERA", "ZX-200", "SN-42", "HW-9", "2.4.1" }));
    QCOMPARE(info.type, OnvifDeviceInfo::zyrName);
    QVERIFY(info.ip.isEmpty() && info.port.isEmpty() && info.path.isEmpty());

    // Without security, with the caller's header, with a password digest.
    config.requireAuth = false;
    config.manufacturer = QStringLiteral("H264");
    camera = startCamera(config);
    const QUrl url(camera->deviceUrl());
    object.getDeviceInfo(url);
    QVERIFY(spies.wait());
    MarkerHeader marker;
    object.getDeviceInfo(url, marker);
    QVERIFY(spies.wait());
    object.getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("secret"));
    QVERIFY(spies.wait());
    QCOMPARE(spies.info.size(), 4);
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.info.last().first().value<Onvif::DeviceInfo>().type, OnvifDeviceInfo::hunterName);
    const auto requests = camera->requestsFor(QStringLiteral("GetDeviceInformation"));
    QCOMPARE(requests.size(), 3);
    for (const auto& request : requests) {
        QCOMPARE(request.header("Content-Type"), QByteArray("application/soap+xml"));
        QCOMPARE(request.path, url.path());
    }
    QVERIFY(requests[0].body.contains("<s:Header></s:Header>"));
    QVERIFY(requests[1].body.contains("<s:Header><Marker>hdr-7</Marker></s:Header>"));
    QVERIFY(requests[2].body.contains("<Username>admin</Username>"));
    QVERIFY(requests[2].body.contains("#PasswordDigest\">"));
}

// A fault delivered with HTTP 200 is read: error 1 with the fault text. Fault over HTTP 500 and
// network failures are the fault matrix's.
void TestDeviceInfo::faultOverHttp200()
{
    const auto camera = startCamera();
    FaultSpec fault = faultOf(FaultMode::SoapFault);
    fault.httpStatus = 200;
    fault.code = QStringLiteral("Sender");
    fault.subcode = QStringLiteral("ter:InvalidArgVal");
    fault.reason = QStringLiteral("No such thing");
    camera->setFault(QStringLiteral("GetDeviceInformation"), fault);
    LogCapture log;
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait());
    QCOMPARE(spies.info.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.error.first().at(0).toUInt(), 1u);
    const QString text = spies.error.first().at(1).toString();
    QVERIFY2(text.startsWith(QStringLiteral("Fault detail:  Code: "))
            && text.endsWith(QStringLiteral("; Subcode: ter:InvalidArgVal; Reason: No such thing")),
        qPrintable(text));
    QCOMPARE(log.withSeverity(4).size(), 1);
    QVERIFY2(log.withSeverity(4).first().message.startsWith(
                 QStringLiteral(" getDeviceInfoResponse: DeviceInfo response has error. (")),
        qPrintable(log.withSeverity(4).first().message));
}

void TestDeviceInfo::timeout()
{
    const auto camera = startCamera();
    FaultSpec slow;
    slow.delayMs = 6000;
    camera->setFault(QStringLiteral("GetDeviceInformation"), slow);
    QNetworkAccessManager manager;
    OnvifDeviceInfo object(manager, nullptr);
    Spies spies(object);
    object.getDeviceInfo(QUrl(camera->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    // The host is promised 5000 ms, not a coarse timer's "about".
    const QTimer* timer = object.findChild<QTimer*>();
    QVERIFY(timer && timer->isActive());
    QCOMPARE(timer->interval(), 5000);
    QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    // Settle past the moment the camera finally answers: that answer must be dropped.
    QVERIFY(spies.wait(7000, 1500));
    QCOMPARE(spies.info.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.error.first().at(0).toUInt(), 3u);
    QCOMPARE(spies.error.first().at(1).toString(), QStringLiteral("timeout"));
}

void TestDeviceInfo::stopAndNewRequestSilenceTheOldOne()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.manufacturer = QStringLiteral("GeoVision");
    const auto camera = startCamera(config);
    FaultSpec slow = faultOf(FaultMode::None, 1);
    slow.delayMs = 300;
    camera->setFault(QStringLiteral("GetDeviceInformation"), slow);
    QNetworkAccessManager manager;
    auto* object = new OnvifDeviceInfo(manager, &manager);
    Spies spies(*object);
    const QUrl url(camera->deviceUrl());

    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    QTRY_COMPARE(camera->requestCount(), 1); // the camera holds it now
    object->stop();
    QVERIFY(!spies.wait(1000, 0)); // neither the answer nor the timer speaks

    // The first of two overlapping requests is dropped; only the second one answers.
    camera->setFault(QStringLiteral("GetDeviceInformation"), slow);
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("wrong"));
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(spies.wait(3000, 600));
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.info.size(), 1);
    QCOMPARE(spies.info.first().first().value<Onvif::DeviceInfo>().type, OnvifDeviceInfo::geovisionName);

    // A result already queued when stop() comes is not delivered: the manager's finished()
    // is emitted before the object's slot runs, so this queued stop() lands in between.
    spies.info.clear();
    connect(
        &manager, &QNetworkAccessManager::finished, object, [object]() { object->stop(); },
        Qt::QueuedConnection);
    object->getDeviceInfo(url, QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(!spies.wait(1000, 0));
    delete object;
}

QTEST_GUILESS_MAIN(TestDeviceInfo)
#include "tst_deviceinfo.moc"
