// OnvifRTSP against the simulated camera: the list, its own errors, stop.

#include "logCapture.h"
#include "signalWait.h"
#include "simCamera.h"

#include <onvifTypes/onvifRTSP.h>

#include <QNetworkAccessManager>
#include <QtTest>

using namespace CameraSim;

namespace {

// Four profiles, each with an encoder of its own, so that four stream URIs are asked for.
CameraConfig fourEncoders()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.videoEncoders.clear();
    config.profiles.clear();
    const int sizes[4][2] = { { 640, 480 }, { 1920, 1080 }, { 1280, 720 }, { 320, 240 } };
    for (int i = 0; i < 4; ++i) {
        VideoEncoder encoder;
        encoder.token = encoder.name = QStringLiteral("enc%1").arg(i);
        encoder.width = sizes[i][0];
        encoder.height = sizes[i][1];
        config.videoEncoders.append(encoder);
        ProfileConfig profile;
        profile.token = profile.name = QStringLiteral("p%1").arg(i);
        profile.videoEncoder = encoder.token;
        config.profiles.append(profile);
    }
    return config;
}

// One OnvifRTSP on its own manager, with spies on both outcomes.
struct Rtsp
{
    explicit Rtsp(int channel = 1)
        : rtsp(channel, nullptr)
        , list(&rtsp, &OnvifRTSP::receiveRTSPList)
        , error(&rtsp, &OnvifRTSP::error)
    {
        rtsp.setNetworkManager(manager);
    }
    // Asks and waits; a second, wrong signal would be caught during the settling time.
    bool ask(const QString& url, int settleMs = 300, const QString& password = QStringLiteral("admin"))
    {
        rtsp.getRTSPList(QStringLiteral("admin"), password, url);
        return waitForAny({ &list, &error }, 3000, settleMs);
    }
    QStringList tokens() const
    {
        QStringList result;
        for (const auto& profile : list.last().first().value<QVector<Onvif::OnvifProfileInfo>>())
            result << profile.token;
        return result;
    }
    unsigned int code() const { return error.value(0).value(0).toUInt(); }
    QString detail() const { return error.value(0).value(1).toString(); }

    QNetworkAccessManager manager;
    OnvifRTSP rtsp;
    QSignalSpy list;
    QSignalSpy error;
};

} // namespace

class TestRtsp : public QObject
{
    Q_OBJECT

private slots:
    void listLargestFirstWithUris();
    void nothingToStream_data();
    void nothingToStream();
    void faultInThirdOfFourStreamUris();
    void stopAndReplace();
};

// One stream URI asked for each profile the request layer selects (tested there), the list
// sent once all have answered.
void TestRtsp::listLargestFirstWithUris()
{
    const auto camera = startCamera(fourEncoders());
    Rtsp r(-1);
    QVERIFY(r.ask(camera->deviceUrl()));
    QCOMPARE(r.error.size(), 0);
    QCOMPARE(r.list.size(), 1);
    QCOMPARE(r.tokens(), (QStringList { "p1", "p2", "p0", "p3" }));
    for (const auto& profile : r.list.first().first().value<QVector<Onvif::OnvifProfileInfo>>())
        QCOMPARE(profile.uri, QStringLiteral("rtsp://127.0.0.1:554/") + profile.token);

    const auto profiles = camera->requestsFor(QStringLiteral("GetProfiles"));
    const auto uris = camera->requestsFor(QStringLiteral("GetStreamUri"));
    QCOMPARE(profiles.size(), 1);
    QCOMPARE(uris.size(), 4);
    for (const auto& request : profiles + uris)
        QCOMPARE(request.path + ' ' + request.authResult, QStringLiteral("/onvif/device_service ok"));
    for (const auto& request : uris)
        QVERIFY(request.body.contains("<tt:Stream>RTP-Unicast</tt:Stream><tt:Transport ><tt:Protocol>UDP"
                                      "</tt:Protocol></tt:Transport>"));
}

// Answers without a usable stream: error 2. Faults and network failures are the fault matrix's.
void TestRtsp::nothingToStream_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("detail");
    QTest::newRow("no profiles") << "no profiles"
                                 << "Profiles are empty.";
    // Profiles, but none with a video encoder: nothing to ask a stream for.
    QTest::newRow("no video") << "no video"
                              << "Profile list is empty.";
    QTest::newRow("empty stream URIs") << "empty URIs"
                                       << "Profile list is empty.";
}

void TestRtsp::nothingToStream()
{
    QFETCH(QString, setup);
    QFETCH(QString, detail);
    CameraConfig config = CameraConfig::defaultCamera();
    if (setup == QLatin1String("no profiles"))
        config.profiles.clear();
    if (setup == QLatin1String("no video")) {
        config.profiles.resize(1);
        config.profiles[0].videoEncoder.clear();
    }
    const auto camera = startCamera(config);
    if (setup == QLatin1String("empty URIs"))
        camera->setFault(QStringLiteral("GetStreamUri"), faultOf(FaultMode::EmptyUri));
    Rtsp r;
    QVERIFY(r.ask(camera->deviceUrl(), 500));
    QCOMPARE(r.list.size(), 0);
    QCOMPARE(r.error.size(), 1);
    QCOMPARE(r.code(), 2u);
    QCOMPARE(r.detail(), detail);
    if (setup == QLatin1String("empty URIs"))
        QCOMPARE(camera->requestsFor(QStringLiteral("GetStreamUri")).size(), 3);
}

// A fault delivered with HTTP 200 is read: error 1 with the fault text, and the first
// failing answer ends the request (one error logged, the fourth answer dropped).
void TestRtsp::faultInThirdOfFourStreamUris()
{
    const auto camera = startCamera(fourEncoders());
    FaultSpec third = faultOf(FaultMode::SoapFault, 1);
    third.httpStatus = 200;
    third.skip = 2;
    camera->setFault(QStringLiteral("GetStreamUri"), third);
    LogCapture log;
    Rtsp r(2);
    QVERIFY(r.ask(camera->deviceUrl(), 600));
    QCOMPARE(camera->requestsFor(QStringLiteral("GetStreamUri")).size(), 4);
    QCOMPARE(r.list.size(), 0);
    QCOMPARE(r.error.size(), 1);
    QCOMPARE(r.code(), 1u);
    QVERIFY2(r.detail().startsWith(QStringLiteral("Fault detail:  Code: "))
            && r.detail().endsWith(QStringLiteral("; Subcode: ter:Action; Reason: Simulated fault")),
        qPrintable(r.detail()));
    QCOMPARE(log.withSeverity(4).size(), 1);

    // No manager: a network error, not a crash.
    OnvifRTSP bare(5, nullptr);
    QSignalSpy error(&bare, &OnvifRTSP::error);
    bare.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QTRY_COMPARE(error.size(), 1);
    QCOMPARE(error.first().first().toUInt(), 3u);
}

void TestRtsp::stopAndReplace()
{
    const auto camera = startCamera();
    FaultSpec slow = faultOf(FaultMode::None, 1);
    slow.delayMs = 300;
    camera->setFault(QStringLiteral("GetProfiles"), slow);
    Rtsp r(4);
    r.rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QTRY_COMPARE(camera->requestCount(), 1); // the camera holds it now
    r.rtsp.stop();
    QVERIFY(!waitForAny({ &r.list, &r.error }, 1000, 0));

    // A second request while the first is in flight replaces it: one answer in all.
    camera->setFault(QStringLiteral("GetProfiles"), slow);
    r.rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("wrong"), camera->deviceUrl());
    QVERIFY(r.ask(camera->deviceUrl(), 600));
    QCOMPARE(r.error.size(), 0);
    QCOMPARE(r.list.size(), 1);
}

QTEST_GUILESS_MAIN(TestRtsp)
#include "tst_rtsp.moc"
