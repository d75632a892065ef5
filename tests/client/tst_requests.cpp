#include "futureWait.h"
#include "logCapture.h"
#include "simCamera.h"

#include <camera.h>

#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/schema/tds/GetDeviceInformation.h>
#include <onvifTypes/schema/tds/GetDeviceInformationResponse.h>
#include <zyrChecker/zyrChecker.h>

#include <QDir>
#include <QNetworkAccessManager>
#include <QtTest>

using CameraSim::Camera;
using CameraSim::CameraConfig;

namespace {

int openDescriptors()
{
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size();
}

} // namespace

class TestRequests : public QObject
{
    Q_OBJECT

private slots:
    void init() { ZYRChecker::setKnownTexts({}); }
    void deviceInfo();
    void addressesAndPaths();
    void profilesOnePerEncoderLargestFirst();
    void wrongPassword();
    void malformedReplyGivesDefaults();
    void thousandRequestsLeaveNothingBehind();
};

void TestRequests::deviceInfo()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.manufacturer = QStringLiteral("GeoVision");
    config.model = QStringLiteral("GV-1");
    const auto camera = startCamera(config);

    LogCapture log;
    Onvif::Requests requests("admin", "admin", camera->deviceUrl(), true);
    const QFuture<Onvif::DeviceInfo> future = requests.deviceInfo();
    QVERIFY(waitForFuture(future));
    QVERIFY(!future.isCanceled());
    const Onvif::DeviceInfo info = future.result();
    QCOMPARE(QStringList({ info.manufacturer, info.model, info.firmwareVersion, info.serialNumber,
                 info.hardwareId, info.type }),
        QStringList({ "GeoVision", "GV-1", config.firmwareVersion, config.serialNumber, config.hardwareId,
            "GeoVision" }));
    QVERIFY(info.ip.isEmpty() && info.port.isEmpty() && info.path.isEmpty());
    QVERIFY(!requests.isAuthFault());

    const auto sent = camera->requestsFor(QStringLiteral("GetDeviceInformation"));
    QCOMPARE(sent.size(), 1);
    QCOMPARE(sent[0].header("Content-Type"), QByteArray("application/soap+xml"));
    QCOMPARE(sent[0].header("Connection").toLower(), QByteArray("close"));
    QVERIFY(sent[0].header("SOAPAction").isEmpty());
    QCOMPARE(sent[0].authResult, QStringLiteral("ok"));
    QVERIFY(sent[0].body.contains("<tds:GetDeviceInformation ></tds:GetDeviceInformation>"));

    // Verbose: the request and the answer are traced (quiet, nothing is: see wrongPassword).
    const auto traces = log.withSeverity(2);
    QCOMPARE(traces.size(), 2);
    QVERIFY(traces[0].message.startsWith(
        QLatin1String(" RequestHelper: <?xml version=\"1.0\" encoding=\"UTF-8\" ?>")));
    QVERIFY(traces[1].message.startsWith(QLatin1String(" operator(): ")));
    QVERIFY(traces[1].message.contains(config.serialNumber));
}

void TestRequests::addressesAndPaths()
{
    const auto camera = startCamera();
    Onvif::Requests requests("admin", "admin", camera->deviceUrl(), false);
    QFuture<QString> future = requests.mediaAddr();
    QVERIFY(waitForFuture(future));
    QCOMPARE(future.result(), camera->serviceUrl(CameraSim::Service::Media));
    QVERIFY(camera->requestsFor("GetCapabilities")[0].body.contains("<tds:Category>All</tds:Category>"));
    // Profiles go to the path given, the device's own when none is.
    QVERIFY(waitForFuture(requests.profiles(QStringLiteral("/onvif/media_service"))));
    QVERIFY(waitForFuture(requests.profiles(QString())));
    const auto sent = camera->requestsFor(QStringLiteral("GetProfiles"));
    QCOMPARE(sent.size(), 2);
    QCOMPARE(sent[0].path, QStringLiteral("/onvif/media_service"));
    QCOMPARE(sent[1].path, QUrl(camera->deviceUrl()).path());
    const auto uri = requests.rtspUrl(QStringLiteral("prof_sub"), QStringLiteral("/onvif/media_service"));
    QVERIFY(waitForFuture(uri));
    QCOMPARE(uri.result(), QStringLiteral("rtsp://127.0.0.1:554/prof_sub"));
    QVERIFY(camera->requestsFor(QStringLiteral("GetStreamUri"))[0].body.contains(
        "<trt:StreamSetup ><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport ><tt:Protocol>RTSP"
        "</tt:Protocol></tt:Transport></trt:StreamSetup><trt:ProfileToken>prof_sub</trt:ProfileToken>"));

    CameraConfig noMedia = CameraConfig::defaultCamera();
    noMedia.mediaCapability = false;
    const auto other = startCamera(noMedia);
    Onvif::Requests withoutMedia("admin", "admin", other->deviceUrl(), false);
    future = withoutMedia.mediaAddr();
    QVERIFY(waitForFuture(future));
    QVERIFY(!future.isCanceled());
    QCOMPARE(future.result(), QString());
}

void TestRequests::profilesOnePerEncoderLargestFirst()
{
    const auto camera = startCamera();
    Onvif::Requests requests("admin", "admin", camera->deviceUrl(), false);
    const auto future = requests.profiles(QString());
    QVERIFY(waitForFuture(future));
    const QVector<Onvif::OnvifProfileInfo> profiles = future.result();

    // Five profiles: one shares the main encoder (the first wins), one has no video.
    QStringList seen;
    for (const Onvif::OnvifProfileInfo& p : profiles)
        seen << QStringLiteral("%1 %2 %3x%4 %5 q%6 %7fps h264:%8 %9 gov%10")
                    .arg(p.token, p.encoderToken)
                    .arg(p.width)
                    .arg(p.height)
                    .arg(p.encoding)
                    .arg(p.quality)
                    .arg(p.frameRate)
                    .arg(p.hasH264)
                    .arg(p.h264Profile)
                    .arg(p.govLength)
                + QStringLiteral(" audio:%1 %2 %3 %4/%5 uri:%6")
                      .arg(p.hasAudio)
                      .arg(p.audioToken, p.audioEncoding)
                      .arg(p.audioBitrate)
                      .arg(p.audioSampleRate)
                      .arg(p.uri);
    // The JPEG encoder reports no rate control: 25 frames stand in.
    QCOMPARE(seen,
        QStringList(
            { "prof_main venc_main 1920x1080 H264 q5 25fps h264:1 High gov50 audio:1 aenc_0 G711 64/8 uri:",
                "prof_jpeg venc_jpeg 1280x720 JPEG q5 25fps h264:0  gov0 audio:1 aenc_0 G711 64/8 uri:",
                "prof_sub venc_sub 640x360 H264 q5 15fps h264:1 Baseline gov30 audio:0   0/0 uri:" }));

    // A camera without profiles answers an empty list, not a failure.
    CameraConfig bare = CameraConfig::defaultCamera();
    bare.profiles.clear();
    const auto empty = startCamera(bare);
    Onvif::Requests none("admin", "admin", empty->deviceUrl(), false);
    const auto nothing = none.profiles(QString());
    QVERIFY(waitForFuture(nothing));
    QVERIFY(!nothing.isCanceled());
    QVERIFY(nothing.result().isEmpty());
}

void TestRequests::wrongPassword()
{
    const auto camera = startCamera();
    LogCapture log;
    Onvif::Requests requests("admin", "wrong", camera->deviceUrl(), false);
    auto future = requests.deviceInfo();
    QVERIFY(waitForFuture(future));
    QVERIFY(future.isCanceled());
    QVERIFY(requests.isAuthFault());

    const auto errors = log.withSeverity(4);
    QCOMPARE(errors.size(), 1);
    QCOMPARE(errors[0].clsName, QStringLiteral("Onvif"));
    // Like real devices the simulator sends the code with its prefix, outside the code table.
    QVERIFY2(
        errors[0].message.startsWith(QLatin1String(" operator(): Parse error. Msg: Fault detail:  Code: ; "
                                                   "Subcode: ter:NotAuthorized")),
        qPrintable(errors[0].message));
    QVERIFY(errors[0].message.contains(QLatin1String(" Request name: GetDeviceInformation (")));
    QVERIFY(log.withSeverity(2).isEmpty()); // not verbose: no traces

    // The flag lasts until the next call starts.
    auto again = requests.mediaAddr();
    QVERIFY(!requests.isAuthFault());
    QVERIFY(waitForFuture(again));
    QVERIFY(requests.isAuthFault());
}

// A well-delivered but unreadable reply is no failure: the completion sees defaults. Faults and
// network failures are the fault matrix's.
void TestRequests::malformedReplyGivesDefaults()
{
    const auto camera = startCamera();
    camera->setFault(QStringLiteral("GetDeviceInformation"), faultOf(CameraSim::FaultMode::Malformed));
    Onvif::Requests requests("admin", "admin", camera->deviceUrl(), false);
    const auto future = requests.deviceInfo();
    QVERIFY(waitForFuture(future, 10000));
    QVERIFY(!future.isCanceled());
    QCOMPARE(future.resultCount(), 1);
    QVERIFY(future.result().serialNumber.isEmpty());
    QVERIFY(!requests.isAuthFault());
}

void TestRequests::thousandRequestsLeaveNothingBehind()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    OnvifSecurity security("admin", "admin", 0LL);
    auto wave = [&](int count) {
        QVector<QFuture<Onvif::DeviceInfo>> futures;
        for (int i = 0; i < count; ++i) {
            tds::GetDeviceInformation request;
            futures.append(Onvif::RequestHelper<tds::GetDeviceInformation, tds::GetDeviceInformationResponse,
                Onvif::DeviceInfo>(
                request, "GetDeviceInformation", camera->deviceUrl(), security, &manager,
                [](tds::GetDeviceInformationResponse& r, bool, AsyncFuture::Deferred<Onvif::DeviceInfo>& d) {
                    Onvif::DeviceInfo info;
                    info.serialNumber = r.SerialNumber->value();
                    d.complete(info);
                },
                false));
        }
        int completed = 0;
        for (const auto& f : futures) {
            if (waitForFuture(f, 20000) && !f.isCanceled()
                && f.result().serialNumber == camera->config().serialNumber)
                ++completed;
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return completed;
    };

    QCOMPARE(wave(20), 20); // warm up the manager's own machinery
    QTest::qWait(100);
    const int descriptors = openDescriptors();
    const int children = manager.children().size();
    for (int round = 0; round < 20; ++round)
        QCOMPARE(wave(50), 50);
    QTest::qWait(100);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(manager.findChildren<QNetworkReply*>().isEmpty());
    QCOMPARE(manager.children().size(), children);
    // The in-process camera closes its ends on its own threads; give a loaded machine time.
    QTRY_VERIFY2_WITH_TIMEOUT(openDescriptors() <= descriptors + 2,
        qPrintable(QStringLiteral("%1 descriptors before, %2 after").arg(descriptors).arg(openDescriptors())),
        10000);
}

QTEST_GUILESS_MAIN(TestRequests)
#include "tst_requests.moc"
