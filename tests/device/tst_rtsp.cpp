// OnvifRTSP against the simulated camera: the list, each error with its texts.

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
    void listOnePerEncoderLargestFirst();
    void failures_data();
    void failures();
    void faultInThirdOfFourStreamUris();
    void stopAndReplace();
};

void TestRtsp::listOnePerEncoderLargestFirst()
{
    const auto camera = startCamera();
    LogCapture log;
    Rtsp r(-1);
    QVERIFY(r.ask(camera->deviceUrl()));
    QCOMPARE(r.error.size(), 0);
    QCOMPARE(r.list.size(), 1);

    // The profile selection is the request layer's (tested there); the URIs are added here.
    QCOMPARE(r.tokens(), (QStringList { "prof_main", "prof_jpeg", "prof_sub" }));
    for (const auto& profile : r.list.first().first().value<QVector<Onvif::OnvifProfileInfo>>())
        QCOMPARE(profile.uri, QStringLiteral("rtsp://127.0.0.1:554/") + profile.token);

    const auto profiles = camera->requestsFor(QStringLiteral("GetProfiles"));
    const auto uris = camera->requestsFor(QStringLiteral("GetStreamUri"));
    QCOMPARE(profiles.size(), 1);
    QCOMPARE(uris.size(), 3);
    for (const auto& request : profiles + uris)
        QCOMPARE(request.path + ' ' + request.authResult, QStringLiteral("/onvif/device_service ok"));
    for (const auto& request : uris)
        QVERIFY(request.body.contains("<tt:Stream>RTP-Unicast</tt:Stream><tt:Transport ><tt:Protocol>UDP"
                                      "</tt:Protocol></tt:Transport>"));
    QStringList traces;
    for (const auto& record : log.records()) {
        QCOMPARE(record.clsName, QStringLiteral("OnvifRTSP: CH-1"));
        if (record.severity == 0)
            traces << record.message.section(QLatin1Char(':'), 0, 0).trimmed();
    }
    QCOMPARE(traces,
        (QStringList { "setNetworkManager", "getRTSPList", "getProfiles", "getRTSPStrings", "stop" }));
}

void TestRtsp::failures_data()
{
    QTest::addColumn<QString>("setup"); // how the camera is spoilt
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("detail"); // for faults: the end of the fault line
    QTest::addColumn<QString>("logged"); // start of the one error record, if any

    const QString fault = QStringLiteral("; Subcode: ter:Action; Reason: Simulated fault");
    QTest::newRow("no profiles") << "no profiles" << 2u << "Profiles are empty." << QString();
    // Profiles, but none with a video encoder: nothing to ask a stream for.
    QTest::newRow("no video") << "no video" << 2u << "Profile list is empty." << QString();
    QTest::newRow("empty stream URIs") << "empty URIs" << 2u << "Profile list is empty." << QString();
    QTest::newRow("unreachable") << "unreachable" << 3u
                                 << QString::number(QNetworkReply::ConnectionRefusedError)
                                 << " getProfilesResponse: Error while sending ProfilesRequest:1 (";
    QTest::newRow("GetProfiles fault")
        << "GetProfiles fault 200" << 1u << fault << " getProfilesResponse: Profile response has error. (";
    QTest::newRow("GetProfiles fault over HTTP 500")
        << "GetProfiles fault 500" << 3u << QString::number(QNetworkReply::InternalServerError)
        << " getProfilesResponse: Error while sending ProfilesRequest:401 (";
    QTest::newRow("GetStreamUri fault") << "GetStreamUri fault 200" << 1u << fault
                                        << " getRTSPStringsResponse: GetStreamUri response has error. (";
    QTest::newRow("GetStreamUri dropped")
        << "GetStreamUri drop 0" << 3u << QString::number(QNetworkReply::RemoteHostClosedError)
        << " getRTSPStringsResponse: Error while sending GetStreamUriRequest:2 (";
}

void TestRtsp::failures()
{
    QFETCH(QString, setup);
    QFETCH(uint, code);
    QFETCH(QString, detail);
    QFETCH(QString, logged);
    CameraConfig config = CameraConfig::defaultCamera();
    if (setup == QLatin1String("no profiles"))
        config.profiles.clear();
    if (setup == QLatin1String("no video")) {
        config.profiles.resize(1);
        config.profiles[0].videoEncoder.clear();
    }
    const auto camera = startCamera(config);
    const QStringList words = setup.split(QLatin1Char(' '));
    if (words.size() == 3) {
        FaultSpec spec = faultOf(words[1] == QLatin1String("drop") ? FaultMode::Drop : FaultMode::SoapFault);
        spec.httpStatus = words[2].toInt();
        camera->setFault(words[0], spec);
    }
    if (setup == QLatin1String("empty URIs"))
        camera->setFault(QStringLiteral("GetStreamUri"), faultOf(FaultMode::EmptyUri));
    const QString url = setup == QLatin1String("unreachable")
        ? QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(closedPort())
        : camera->deviceUrl();
    LogCapture log;
    Rtsp r;
    QVERIFY(r.ask(url, 500));
    QCOMPARE(r.list.size(), 0);
    QCOMPARE(r.error.size(), 1);
    QCOMPARE(r.code(), code);
    if (code == 1u)
        QVERIFY2(
            r.detail().startsWith(QStringLiteral("Fault detail:  Code: ")) && r.detail().endsWith(detail),
            qPrintable(r.detail()));
    else
        QCOMPARE(r.detail(), detail);
    if (setup == QLatin1String("empty URIs"))
        QCOMPARE(camera->requestsFor(QStringLiteral("GetStreamUri")).size(), 3);
    const auto errors = log.withSeverity(4);
    if (!logged.isEmpty()) {
        QCOMPARE(errors.size(), 1); // the first failing answer ends the request; the rest are dropped
        QVERIFY2(errors.first().message.startsWith(logged), qPrintable(errors.first().message));
    }
}

void TestRtsp::faultInThirdOfFourStreamUris()
{
    const auto camera = startCamera(fourEncoders());
    FaultSpec third = faultOf(FaultMode::SoapFault, 1);
    third.httpStatus = 200;
    third.skip = 2;
    camera->setFault(QStringLiteral("GetStreamUri"), third);
    Rtsp r(2);
    QVERIFY(r.ask(camera->deviceUrl(), 600));
    QCOMPARE(camera->requestsFor(QStringLiteral("GetStreamUri")).size(), 4);
    QCOMPARE(r.list.size(), 0);
    QCOMPARE(r.error.size(), 1);
    QCOMPARE(r.code(), 1u);

    // Without the fault the same camera gives all four, largest first. Cleared first, so
    // that the wait is for this answer and not satisfied by the error above.
    r.list.clear();
    r.error.clear();
    QVERIFY(r.ask(camera->deviceUrl()));
    QCOMPARE(r.list.size(), 1);
    QCOMPARE(r.error.size(), 0);
    QCOMPARE(r.tokens(), (QStringList { "p1", "p2", "p0", "p3" }));

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
    QTest::qWait(100);
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
