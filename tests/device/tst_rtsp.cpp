// OnvifRTSP against the simulated camera: the list, each error, one signal per request.

#include "logCapture.h"
#include "signalWait.h"
#include "simCamera.h"

#include <camera.h>

#include <onvifTypes/onvifRTSP.h>

#include <QNetworkAccessManager>
#include <QTcpServer>
#include <QtTest>

using CameraSim::Camera;
using CameraSim::CameraConfig;
using CameraSim::FaultMode;
using CameraSim::FaultSpec;
using CameraSim::ProfileConfig;
using CameraSim::VideoEncoder;

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
        encoder.token = QStringLiteral("enc%1").arg(i);
        encoder.name = encoder.token;
        encoder.width = sizes[i][0];
        encoder.height = sizes[i][1];
        config.videoEncoders.append(encoder);
        ProfileConfig profile;
        profile.token = QStringLiteral("p%1").arg(i);
        profile.name = profile.token;
        profile.videoEncoder = encoder.token;
        config.profiles.append(profile);
    }
    return config;
}

struct Spies
{
    explicit Spies(OnvifRTSP& object)
        : list(&object, &OnvifRTSP::receiveRTSPList)
        , error(&object, &OnvifRTSP::error)
    { }
    qint64 wait(int timeoutMs = 3000, int settleMs = 300)
    {
        return waitForAny({ &list, &error }, timeoutMs, settleMs);
    }
    unsigned int code() const { return error.value(0).value(0).toUInt(); }
    QString detail() const { return error.value(0).value(1).toString(); }
    QSignalSpy list;
    QSignalSpy error;
};

} // namespace

class TestRtsp : public QObject
{
    Q_OBJECT

private slots:
    void errorTexts();
    void listOnePerEncoderLargestFirst();
    void emptyProfilesAndEmptyList();
    void unreachableCameraOneError();
    void faultsAndBrokenAnswers_data();
    void faultsAndBrokenAnswers();
    void faultInThirdOfFourStreamUris();
    void stopAndRestart();
    void withoutNetworkManager();
};

void TestRtsp::errorTexts()
{
    QCOMPARE(OnvifRTSP::RTSPErrorToString[0], QStringLiteral("Нет ошибки"));
    QCOMPARE(OnvifRTSP::RTSPErrorToString[1], QStringLiteral("Неизвестная ошибка"));
    QCOMPARE(OnvifRTSP::RTSPErrorToString[2], QStringLiteral("Неизвестное устройство"));
    QCOMPARE(OnvifRTSP::RTSPErrorToString[3], QStringLiteral("Ошибка сети"));
}

void TestRtsp::listOnePerEncoderLargestFirst()
{
    const auto camera = startCamera();
    LogCapture log;
    QNetworkAccessManager manager;
    OnvifRTSP rtsp(-1, nullptr);
    rtsp.setNetworkManager(manager);
    Spies spies(rtsp);
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.list.size(), 1);

    // The default camera: main and its copy share an encoder, the audio profile has none.
    const auto list = spies.list.first().first().value<QVector<Onvif::OnvifProfileInfo>>();
    QCOMPARE(list.size(), 3);
    const QStringList tokens { list[0].token, list[1].token, list[2].token };
    QCOMPARE(tokens, (QStringList { "prof_main", "prof_jpeg", "prof_sub" }));
    for (const auto& profile : list)
        QCOMPARE(profile.uri, QStringLiteral("rtsp://127.0.0.1:554/") + profile.token);
    QCOMPARE(list[1].frameRate, 25); // the JPEG encoder has no rate control
    QVERIFY(list[0].hasAudio && list[0].hasH264);

    const auto profiles = camera->requestsFor(QStringLiteral("GetProfiles"));
    const auto uris = camera->requestsFor(QStringLiteral("GetStreamUri"));
    QCOMPARE(profiles.size(), 1);
    QCOMPARE(uris.size(), 3);
    for (const auto& request : profiles + uris) {
        QCOMPARE(request.path, QStringLiteral("/onvif/device_service"));
        QCOMPARE(request.authResult, QStringLiteral("ok"));
        QCOMPARE(request.header("Content-Type"), QByteArray("application/soap+xml"));
    }
    for (const auto& request : uris)
        QVERIFY(request.body.contains("<tt:Stream>RTP-Unicast</tt:Stream><tt:Transport ><tt:Protocol>UDP"
                                      "</tt:Protocol></tt:Transport>"));

    QSet<QString> clsNames;
    QStringList traces;
    for (const auto& record : log.records()) {
        clsNames << record.clsName;
        if (record.severity == 0)
            traces << record.message.section(QLatin1Char(':'), 0, 0).trimmed();
    }
    QCOMPARE(clsNames, QSet<QString> { QStringLiteral("OnvifRTSP: CH-1") });
    QCOMPARE(traces,
        (QStringList { "setNetworkManager", "getRTSPList", "getProfiles", "getRTSPStrings", "stop" }));
}

void TestRtsp::emptyProfilesAndEmptyList()
{
    QNetworkAccessManager manager;
    OnvifRTSP rtsp(3, nullptr);
    rtsp.setNetworkManager(manager);
    Spies spies(rtsp);

    CameraConfig none = CameraConfig::defaultCamera();
    none.profiles.clear();
    const auto noProfiles = startCamera(none);
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), noProfiles->deviceUrl());
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), 2u);
    QCOMPARE(spies.detail(), QStringLiteral("Profiles are empty."));

    // Profiles, but none with a video encoder: nothing to ask a stream for.
    CameraConfig audioOnly = CameraConfig::defaultCamera();
    audioOnly.profiles.resize(1);
    audioOnly.profiles[0].videoEncoder.clear();
    const auto noVideo = startCamera(audioOnly);
    spies.error.clear();
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), noVideo->deviceUrl());
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), 2u);
    QCOMPARE(spies.detail(), QStringLiteral("Profile list is empty."));

    // Every stream URI empty.
    const auto emptyUris = startCamera();
    FaultSpec empty;
    empty.mode = FaultMode::EmptyUri;
    emptyUris->setFault(QStringLiteral("GetStreamUri"), empty);
    spies.error.clear();
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), emptyUris->deviceUrl());
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), 2u);
    QCOMPARE(spies.detail(), QStringLiteral("Profile list is empty."));
    QCOMPARE(emptyUris->requestsFor(QStringLiteral("GetStreamUri")).size(), 3);
    QCOMPARE(spies.list.size(), 0);
}

void TestRtsp::unreachableCameraOneError()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    const quint16 port = server.serverPort();
    server.close();

    LogCapture log;
    QNetworkAccessManager manager;
    OnvifRTSP rtsp(0, nullptr);
    rtsp.setNetworkManager(manager);
    Spies spies(rtsp);
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"),
        QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(port));
    QVERIFY(spies.wait(3000, 500) >= 0);
    QCOMPARE(spies.list.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), 3u);
    QCOMPARE(spies.detail(), QString::number(QNetworkReply::ConnectionRefusedError));
    const auto errors = log.withSeverity(4);
    QCOMPARE(errors.size(), 1);
    QVERIFY(errors.first().message.startsWith(
        QStringLiteral(" getProfilesResponse: Error while sending ProfilesRequest:1 (")));
}

void TestRtsp::faultsAndBrokenAnswers_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("httpStatus");
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("detail");
    QTest::addColumn<QString>("logged");

    // The end of the fault line; how the code itself is written is the response reader's affair.
    const QString fault = QStringLiteral("; Subcode: ter:Action; Reason: Simulated fault");
    QTest::newRow("GetProfiles fault") << "GetProfiles" << int(FaultMode::SoapFault) << 200 << 1u << fault
                                       << " getProfilesResponse: Profile response has error. (";
    QTest::newRow("GetProfiles fault over HTTP 500")
        << "GetProfiles" << int(FaultMode::SoapFault) << 500 << 3u
        << QString::number(QNetworkReply::InternalServerError)
        << " getProfilesResponse: Error while sending ProfilesRequest:401 (";
    QTest::newRow("GetStreamUri fault") << "GetStreamUri" << int(FaultMode::SoapFault) << 200 << 1u << fault
                                        << " getRTSPStringsResponse: GetStreamUri response has error. (";
    QTest::newRow("GetStreamUri dropped")
        << "GetStreamUri" << int(FaultMode::Drop) << 0 << 3u
        << QString::number(QNetworkReply::RemoteHostClosedError)
        << " getRTSPStringsResponse: Error while sending GetStreamUriRequest:2 (";
}

void TestRtsp::faultsAndBrokenAnswers()
{
    QFETCH(QString, operation);
    QFETCH(int, mode);
    QFETCH(int, httpStatus);
    QFETCH(uint, code);
    QFETCH(QString, detail);
    QFETCH(QString, logged);

    const auto camera = startCamera();
    FaultSpec spec;
    spec.mode = FaultMode(mode);
    spec.httpStatus = httpStatus;
    camera->setFault(operation, spec);
    LogCapture log;
    QNetworkAccessManager manager;
    OnvifRTSP rtsp(1, nullptr);
    rtsp.setNetworkManager(manager);
    Spies spies(rtsp);
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QVERIFY(spies.wait(3000, 500) >= 0);
    QCOMPARE(spies.list.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), code);
    if (code == 1u)
        QVERIFY2(spies.detail().startsWith(QStringLiteral("Fault detail:  Code: "))
                && spies.detail().endsWith(detail),
            qPrintable(spies.detail()));
    else
        QCOMPARE(spies.detail(), detail);
    const auto errors = log.withSeverity(4);
    QCOMPARE(errors.size(), 1); // the first failing answer ends the request; the rest are dropped
    QVERIFY2(errors.first().message.startsWith(logged), qPrintable(errors.first().message));
}

void TestRtsp::faultInThirdOfFourStreamUris()
{
    const auto camera = startCamera(fourEncoders());
    FaultSpec third;
    third.mode = FaultMode::SoapFault;
    third.httpStatus = 200;
    third.skip = 2;
    third.count = 1;
    camera->setFault(QStringLiteral("GetStreamUri"), third);

    QNetworkAccessManager manager;
    OnvifRTSP rtsp(2, nullptr);
    rtsp.setNetworkManager(manager);
    Spies spies(rtsp);
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QVERIFY(spies.wait(3000, 600) >= 0);
    QCOMPARE(camera->requestsFor(QStringLiteral("GetStreamUri")).size(), 4);
    QCOMPARE(spies.list.size(), 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), 1u);
    QVERIFY2(
        spies.detail().endsWith(QStringLiteral("; Reason: Simulated fault")), qPrintable(spies.detail()));

    // Without the fault the same camera gives all four, largest first.
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QVERIFY(spies.wait() >= 0);
    QCOMPARE(spies.list.size(), 1);
    QCOMPARE(spies.error.size(), 1);
    const auto list = spies.list.first().first().value<QVector<Onvif::OnvifProfileInfo>>();
    QStringList tokens;
    for (const auto& profile : list)
        tokens << profile.token;
    QCOMPARE(tokens, (QStringList { "p1", "p2", "p0", "p3" }));
}

void TestRtsp::stopAndRestart()
{
    const auto camera = startCamera();
    FaultSpec slow;
    slow.delayMs = 300;
    slow.count = 1;
    camera->setFault(QStringLiteral("GetProfiles"), slow);
    QNetworkAccessManager manager;
    auto* rtsp = new OnvifRTSP(4, &manager);
    rtsp->setNetworkManager(manager);
    Spies spies(*rtsp);

    rtsp->getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QTest::qWait(100);
    rtsp->stop();
    QCOMPARE(spies.wait(1000, 0), qint64(-1));

    // A second request while the first is in flight replaces it: one answer in all.
    camera->setFault(QStringLiteral("GetProfiles"), slow);
    rtsp->getRTSPList(QStringLiteral("admin"), QStringLiteral("wrong"), camera->deviceUrl());
    rtsp->getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QVERIFY(spies.wait(3000, 600) >= 0);
    QCOMPARE(spies.error.size(), 0);
    QCOMPARE(spies.list.size(), 1);

    // Destroyed with stream requests in flight: nothing arrives, nothing crashes.
    slow.count = -1;
    camera->setFault(QStringLiteral("GetStreamUri"), slow);
    rtsp->getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera->deviceUrl());
    QTRY_VERIFY(!camera->requestsFor(QStringLiteral("GetProfiles")).isEmpty());
    QTest::qWait(150);
    delete rtsp;
    QTest::qWait(500);
    QCOMPARE(spies.list.size(), 1);
    QCOMPARE(spies.error.size(), 0);
}

void TestRtsp::withoutNetworkManager()
{
    OnvifRTSP rtsp(5, nullptr);
    Spies spies(rtsp);
    rtsp.getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), QStringLiteral("http://127.0.0.1:1/"));
    QVERIFY(spies.wait(1000, 100) >= 0);
    QCOMPARE(spies.error.size(), 1);
    QCOMPARE(spies.code(), 3u);
}

QTEST_GUILESS_MAIN(TestRtsp)

#include "tst_rtsp.moc"
