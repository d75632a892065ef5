// The PTZ request layer against the simulated camera and, for reply shapes the
// simulator never sends, against hand-written answers.

#include "futureWait.h"
#include "logCapture.h"
#include "ptzTestSupport.h"

#include <onvifTypes/ptz/onvifPtzReq.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QtTest>

#include <functional>
#include <limits>

using CameraSim::Camera;
using CameraSim::CameraConfig;
using CameraSim::FaultMode;
using CameraSim::FaultSpec;
using PtzSys::OnvifPtzReq;
using namespace PtzTest;

using VoidCall = std::function<QFuture<void>(OnvifPtzReq&)>;
Q_DECLARE_METATYPE(CameraSim::FaultMode)
Q_DECLARE_METATYPE(VoidCall)

namespace {

const OnvifSecurity kAdmin(QStringLiteral("admin"), QStringLiteral("admin"), 0LL);
const QString kReq3 = QStringLiteral("PTZREQ:3");
const QString kProfile = QStringLiteral("prof_main");
const QString kNode = QStringLiteral("ptz_node_0");

// A request object whose capability check has succeeded.
std::unique_ptr<OnvifPtzReq> checkedReq(const QString& deviceUrl, QNetworkAccessManager* manager)
{
    auto req = std::make_unique<OnvifPtzReq>(kAdmin, deviceUrl, manager, 3);
    const QFuture<bool> check = req->checkCapability();
    if (!waitForFuture(check) || check.isCanceled() || !check.result())
        qWarning("capability check failed");
    return req;
}

QString capabilities(const QString& ptzUrl)
{
    return QStringLiteral("<tds:GetCapabilitiesResponse><tds:Capabilities><tt:PTZ><tt:XAddr>%1</tt:XAddr>"
                          "</tt:PTZ></tds:Capabilities></tds:GetCapabilitiesResponse>")
        .arg(ptzUrl);
}

QString range(const char* name, const char* min, const char* max)
{
    return QStringLiteral("<tt:%1><tt:Min>%2</tt:Min><tt:Max>%3</tt:Max></tt:%1>")
        .arg(QLatin1String(name), QLatin1String(min), QLatin1String(max));
}

} // namespace

class TestPtzReq : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_camera = startCamera();
        m_manager = std::make_unique<QNetworkAccessManager>();
        m_req = checkedReq(m_camera->deviceUrl(), m_manager.get());
    }
    void cleanupTestCase()
    {
        m_req.reset();
        m_manager.reset();
        m_camera.reset();
    }
    void capability();
    void tokens();
    void nodeInfo();
    void presetDefaults();
    void wireTexts_data();
    void wireTexts();
    void failuresCancel_data();
    void failuresCancel();
    void presetTours();
    void withoutCapabilityOrManager();
    void destroyedWithRepliesInFlight();

private:
    std::unique_ptr<Camera> m_camera;
    std::unique_ptr<QNetworkAccessManager> m_manager;
    std::unique_ptr<OnvifPtzReq> m_req;
};

void TestPtzReq::capability()
{
    const auto camera = startCamera();
    CameraConfig noPtz = CameraConfig::defaultCamera();
    noPtz.ptzCapability = false;
    const auto plain = startCamera(noPtz);
    CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    // Declared after the servers, so that it closes its connections before they stop.
    QNetworkAccessManager manager;
    OnvifPtzReq req(kAdmin, camera->deviceUrl(), &manager, 3);
    QVERIFY(!req.support());
    QFuture<bool> check = req.checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(!check.isCanceled() && check.result() && req.support());
    QCOMPARE(req.ptzUrl(), camera->serviceUrl(CameraSim::Service::Ptz));

    const auto caps = camera->requestsFor(QStringLiteral("GetCapabilities"));
    QCOMPARE(caps.size(), 1);
    QCOMPARE(caps[0].path, QStringLiteral("/onvif/device_service"));
    QCOMPARE(caps[0].authResult, QStringLiteral("ok"));
    QVERIFY(soapBody(caps[0].body).contains(QLatin1String("<tds:Category>PTZ</tds:Category>")));

    // Every later request goes to the learnt PTZ address.
    QVERIFY(waitForFuture(req.presets(kProfile)));
    QVERIFY(waitForFuture(req.stop(kProfile, true, true)));
    for (const CameraSim::RequestRecord& r : camera->requestLog()) {
        if (r.operation != QLatin1String("GetCapabilities"))
            QCOMPARE(r.path, QStringLiteral("/onvif/ptz_service"));
    }

    // A failed check clears the earlier success but keeps the address learnt then.
    camera->setFault(QStringLiteral("GetCapabilities"), faultOf(FaultMode::Http500));
    check = req.checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(check.isCanceled() && !req.support());
    QCOMPARE(req.ptzUrl(), camera->serviceUrl(CameraSim::Service::Ptz));

    // A camera without a PTZ service refuses the category with a fault (HTTP 400).
    OnvifPtzReq other(kAdmin, plain->deviceUrl(), &manager, 4);
    check = other.checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(check.isCanceled() && !other.support() && other.ptzUrl().isEmpty());

    // An answer without a PTZ entry: supported no more, the address stays.
    const auto canned = checkedReq(server.deviceUrl(), &manager);
    QCOMPARE(canned->ptzUrl(), server.ptzUrl());
    server.setAnswer(QStringLiteral("GetCapabilities"),
        QStringLiteral("<tds:GetCapabilitiesResponse><tds:Capabilities><tt:Media><tt:XAddr>x</tt:XAddr>"
                       "</tt:Media></tds:Capabilities></tds:GetCapabilitiesResponse>"));
    check = canned->checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(!check.isCanceled() && !check.result() && !canned->support());
    QCOMPARE(canned->ptzUrl(), server.ptzUrl());
}

void TestPtzReq::tokens()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    LogCapture log;
    // The successful check fetched the list in the background.
    QVERIFY(req->tokens().isEmpty());
    QTRY_VERIFY(messages(log, kReq3).contains(QStringLiteral("GetProfiles finished")));
    const QVector<PtzSys::Token> tokens = req->tokens();
    QCOMPARE(tokens.size(), 2);
    QCOMPARE(tokens[0].MediaProfileToken + ' ' + tokens[0].MediaProfileName + ' ' + tokens[0].PtzNodeToken,
        QStringLiteral("prof_main MainStream ptz_node_0"));
    QCOMPARE(tokens[1].MediaProfileToken + ' ' + tokens[1].MediaProfileName + ' ' + tokens[1].PtzNodeToken,
        QStringLiteral("prof_sub SubStream ptz_node_0"));
    QVERIFY(!tokens[0].PtzNodeName.isEmpty());
    QCOMPARE(req->tokens().size(), 2); // from the cache
    QCOMPARE(camera->requestsFor(QStringLiteral("GetProfiles")).size(), 1);

    // Overlapping fetches: the last answer stands for the list, nothing doubles.
    const QFuture<QVector<PtzSys::Token>> a = req->reqTokens();
    QVERIFY(req->tokens().isEmpty()); // cleared when sent
    const QFuture<QVector<PtzSys::Token>> b = req->reqTokens();
    QVERIFY(waitForFuture(a) && waitForFuture(b));
    QCOMPARE(b.result().size(), 2);
    QCOMPARE(req->tokens().size(), 2);

    // Only profiles with a PTZ configuration become tokens.
    CameraConfig config = CameraConfig::defaultCamera();
    config.profiles.resize(3);
    config.profiles[0].ptzNode.clear();
    config.profiles[1].ptzNode = kNode;
    config.profiles[2].ptzNode.clear();
    const auto mixed = startCamera(config);
    const auto other = checkedReq(mixed->deviceUrl(), &manager);
    const QFuture<QVector<PtzSys::Token>> fetched = other->reqTokens();
    QVERIFY(waitForFuture(fetched));
    QCOMPARE(fetched.result().size(), 1);
    QCOMPARE(fetched.result()[0].MediaProfileToken, config.profiles[1].token);
}

void TestPtzReq::nodeInfo()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.ptzNodes[0].maxPresets = 7;
    config.ptzNodes[0].homeSupported = true;
    config.ptzNodes[0].fixedHomePosition = false;
    const auto camera = startCamera(config);
    CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    QFuture<PtzSys::NodeInfo> future = req->reqNodeInfo(kNode);
    QVERIFY(waitForFuture(future));
    PtzSys::NodeInfo n = future.result();
    QCOMPARE(n.token + '/' + n.name, QStringLiteral("ptz_node_0/PTZ"));
    // The simulator's generic spaces: pan/tilt -1..1, absolute zoom and speeds 0..1.
    const float got[] = { n.absPanMin, n.absPanMax, n.absTiltMin, n.absTiltMax, n.absZoomMin, n.absZoomMax,
        n.relPanMin, n.relTiltMax, n.relZoomMin, n.velPanMin, n.velTiltMax, n.velZoomMin, n.velZoomMax,
        n.speedPanTiltMax, n.speedZoomMax };
    const float want[] = { -1, 1, -1, 1, 0, 1, -1, 1, -1, -1, 1, -1, 1, 1, 1 };
    for (size_t i = 0; i < sizeof(want) / sizeof(want[0]); ++i)
        QCOMPARE(got[i], want[i]);
    QCOMPARE(n.maxPresets, 7);
    QVERIFY(n.homeSupported && !n.fixedHomePosition);
    QCOMPARE(lastBody(*camera, QStringLiteral("GetNode")),
        QStringLiteral("<tptz:GetNode ><tptz:NodeToken>ptz_node_0</tptz:NodeToken></tptz:GetNode>"));

    // No Name, no FixedHomePosition, an empty and an absent zoom space, only the
    // first of two velocity spaces counts.
    const auto canned = checkedReq(server.deviceUrl(), &manager);
    server.setAnswer(QStringLiteral("GetNode"),
        QStringLiteral("<tptz:GetNodeResponse><tptz:PTZNode token=\"n9\"><tt:SupportedPTZSpaces>"
                       "<tt:ContinuousPanTiltVelocitySpace><tt:URI>u</tt:URI>%1%2"
                       "</tt:ContinuousPanTiltVelocitySpace>"
                       "<tt:ContinuousPanTiltVelocitySpace><tt:URI>u2</tt:URI>%3%4"
                       "</tt:ContinuousPanTiltVelocitySpace>"
                       "<tt:ContinuousZoomVelocitySpace><tt:URI>z</tt:URI>%5</tt:ContinuousZoomVelocitySpace>"
                       "<tt:AbsoluteZoomPositionSpace/></tt:SupportedPTZSpaces>"
                       "<tt:MaximumNumberOfPresets>4</tt:MaximumNumberOfPresets>"
                       "<tt:HomeSupported>false</tt:HomeSupported></tptz:PTZNode></tptz:GetNodeResponse>")
            .arg(range("XRange", "-0.5", "0.5"), range("YRange", "-0.25", "0.75"), range("XRange", "-9", "9"),
                range("YRange", "-9", "9"), range("XRange", "-2", "3")));
    future = canned->reqNodeInfo(QStringLiteral("n9"));
    QVERIFY(waitForFuture(future));
    n = future.result();
    QCOMPARE(n.token + '/' + n.name, QStringLiteral("n9/n9"));
    QVERIFY(n.fixedHomePosition && !n.homeSupported);
    QCOMPARE(n.maxPresets, 4);
    const float vel[] = { n.velPanMin, n.velPanMax, n.velTiltMin, n.velTiltMax, n.velZoomMin, n.velZoomMax };
    const float velWant[] = { -0.5f, 0.5f, -0.25f, 0.75f, -2, 3 };
    for (int i = 0; i < 6; ++i)
        QCOMPARE(vel[i], velWant[i]);
    for (float v : { n.absPanMin, n.absPanMax, n.absTiltMin, n.absTiltMax, n.absZoomMin, n.absZoomMax,
             n.relPanMin, n.relPanMax, n.relTiltMin, n.relTiltMax, n.relZoomMin, n.relZoomMax,
             n.speedPanTiltMin, n.speedPanTiltMax, n.speedZoomMin, n.speedZoomMax })
        QCOMPARE(v, 0.0f);
    // An explicit FixedHomePosition="false" is kept.
    server.setAnswer(QStringLiteral("GetNode"),
        QStringLiteral("<tptz:GetNodeResponse><tptz:PTZNode token=\"n1\" FixedHomePosition=\"false\">"
                       "<tt:Name>Dome</tt:Name><tt:HomeSupported>true</tt:HomeSupported></tptz:PTZNode>"
                       "</tptz:GetNodeResponse>"));
    future = canned->reqNodeInfo(QStringLiteral("n1"));
    QVERIFY(waitForFuture(future));
    QCOMPARE(future.result().name, QStringLiteral("Dome"));
    QVERIFY(!future.result().fixedHomePosition && future.result().homeSupported);
}

void TestPtzReq::presetDefaults()
{
    CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    server.setAnswer(QStringLiteral("GetPresets"),
        QStringLiteral(
            "<tptz:GetPresetsResponse><tptz:Preset/>"
            "<tptz:Preset token=\"t7\"><tt:Name>Gate</tt:Name><tt:PTZPosition>"
            "<tt:PanTilt x=\"0.25\" y=\"-0.5\"/><tt:Zoom x=\"0.75\"/></tt:PTZPosition></tptz:Preset>"
            "<tptz:Preset token=\"t8\"><tt:PTZPosition><tt:Zoom x=\"0.1\"/></tt:PTZPosition>"
            "</tptz:Preset><tptz:Preset><tt:Name>Yard</tt:Name></tptz:Preset>"
            "</tptz:GetPresetsResponse>"));
    QNetworkAccessManager manager;
    const auto req = checkedReq(server.deviceUrl(), &manager);
    QFuture<QVector<PtzSys::Preset>> future = req->presets(QStringLiteral("p1"));
    QVERIFY(waitForFuture(future));
    const QVector<PtzSys::Preset> p = future.result();
    QStringList seen;
    for (const PtzSys::Preset& preset : p)
        seen << QStringLiteral("%1 %2 %3 %4 %5 %6")
                    .arg(preset.profileToken, preset.token, preset.name)
                    .arg(preset.pan)
                    .arg(preset.tilt)
                    .arg(preset.zoom);
    QCOMPARE(seen,
        QStringList({ "p1 PresetToken0 Preset0 0 0 0", "p1 t7 Gate 0.25 -0.5 0.75", "p1 t8 Preset2 0 0 0.1",
            "p1 PresetToken3 Yard 0 0 0" }));
    QCOMPARE(p[2].zoom, double(0.1f)); // widened from single precision

    server.setAnswer(QStringLiteral("GetPresets"), QStringLiteral("<tptz:GetPresetsResponse/>"));
    future = req->presets(QStringLiteral("p1"));
    QVERIFY(waitForFuture(future));
    QVERIFY(!future.isCanceled() && future.result().isEmpty());
}

void TestPtzReq::wireTexts_data()
{
    QTest::addColumn<VoidCall>("call");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("inner");
    auto row = [](const char* tag, VoidCall call, const char* op, const QString& inner) {
        QTest::newRow(tag) << call << QString::fromLatin1(op) << inner;
    };
    const QString p = kProfile;
    auto home = [p](float pt, float z) { return [=](OnvifPtzReq& r) { return r.toHome(p, pt, z); }; };
    row("home, no speed", home(0, 0), "GotoHomePosition", QString());
    row("home, pan-tilt", home(0.5f, 0), "GotoHomePosition",
        "<tptz:Speed ><tt:PanTilt x=\"0.5\" y=\"0.5\" ></tt:PanTilt></tptz:Speed>");
    row("home, zoom", home(0, 0.5f), "GotoHomePosition",
        "<tptz:Speed ><tt:Zoom x=\"0.5\" ></tt:Zoom></tptz:Speed>");
    // A NaN speed is not 0: it goes out.
    row("home, NaN pan-tilt", home(std::numeric_limits<float>::quiet_NaN(), 0), "GotoHomePosition",
        "<tptz:Speed ><tt:PanTilt x=\"nan\" y=\"nan\" ></tt:PanTilt></tptz:Speed>");
    row("home, both", home(-1, 0.25f), "GotoHomePosition",
        "<tptz:Speed ><tt:PanTilt x=\"-1\" y=\"-1\" ></tt:PanTilt><tt:Zoom x=\"0.25\" "
        "></tt:Zoom></tptz:Speed>");
    auto set = [p](const QString& token, const QString& name) {
        return [=](OnvifPtzReq& r) { return r.setPreset(p, token, name); };
    };
    const QString empty = QLatin1String("");
    row("set, null token", set(QString(), "Door"), "SetPreset", "<tptz:PresetName>Door</tptz:PresetName>");
    row("set, null name", set("t1", QString()), "SetPreset", "<tptz:PresetToken>t1</tptz:PresetToken>");
    row("set, both null", set(QString(), QString()), "SetPreset", QString());
    row("set, empty token", set(empty, "Door"), "SetPreset",
        "<tptz:PresetName>Door</tptz:PresetName><tptz:PresetToken></tptz:PresetToken>");
    row("set, both empty", set(empty, empty), "SetPreset",
        "<tptz:PresetName></tptz:PresetName><tptz:PresetToken></tptz:PresetToken>");
    row(
        "pan", [p](OnvifPtzReq& r) { return r.continuousPos(p, 0.5f, 0); }, "ContinuousMove",
        "<tptz:Velocity ><tt:PanTilt x=\"0.5\" y=\"0\" ></tt:PanTilt></tptz:Velocity>");
    row(
        "zoom", [p](OnvifPtzReq& r) { return r.continuousZoom(p, -0.75f); }, "ContinuousMove",
        "<tptz:Velocity ><tt:Zoom x=\"-0.75\" ></tt:Zoom></tptz:Velocity>");
    for (int flags = 0; flags < 4; ++flags) {
        const bool panTilt = flags & 1, zoom = flags & 2;
        QTest::addRow("stop %d", flags)
            << VoidCall([=](OnvifPtzReq& r) { return r.stop(p, panTilt, zoom); }) << QStringLiteral("Stop")
            << QStringLiteral("<tptz:PanTilt>%1</tptz:PanTilt><tptz:Zoom>%2</tptz:Zoom>")
                   .arg(QLatin1String(panTilt ? "true" : "false"), QLatin1String(zoom ? "true" : "false"));
    }
    row(
        "remove", [p](OnvifPtzReq& r) { return r.delPreset(p, "nope"); }, "RemovePreset",
        "<tptz:PresetToken>nope</tptz:PresetToken>");
    row(
        "goto", [p](OnvifPtzReq& r) { return r.gotoPreset(p, "t9"); }, "GotoPreset",
        "<tptz:PresetToken>t9</tptz:PresetToken>");
    row(
        "home here", [p](OnvifPtzReq& r) { return r.saveAsHome(p); }, "SetHomePosition", QString());
}

void TestPtzReq::wireTexts()
{
    QFETCH(VoidCall, call);
    QFETCH(QString, operation);
    QFETCH(QString, inner);
    QVERIFY(waitForFuture(call(*m_req)));
    QCOMPARE(lastBody(*m_camera, operation),
        QStringLiteral("<tptz:%1 ><tptz:ProfileToken>prof_main</tptz:ProfileToken>%2</tptz:%1>")
            .arg(operation, inner));
}

void TestPtzReq::failuresCancel_data()
{
    QTest::addColumn<FaultMode>("mode");
    QTest::addColumn<int>("httpStatus");
    QTest::addColumn<QStringList>("errors");
    QTest::newRow("fault with HTTP 200")
        << FaultMode::SoapFault << 200 << QStringList({ "Onvif fault.", "Fault detail:  Code: " });
    // An HTTP error status takes the network path, even with a fault body.
    QTest::newRow("fault with HTTP 400")
        << FaultMode::SoapFault << 400
        << QStringList(QStringLiteral("GetPresets: network error. Code %1")
                           .arg(int(QNetworkReply::ProtocolInvalidOperationError)));
}

void TestPtzReq::failuresCancel()
{
    QFETCH(FaultMode, mode);
    QFETCH(int, httpStatus);
    QFETCH(QStringList, errors);
    FaultSpec fault;
    fault.mode = mode;
    fault.httpStatus = httpStatus;
    m_camera->setFault(QStringLiteral("GetPresets"), fault);
    LogCapture log;
    const QFuture<QVector<PtzSys::Preset>> presets = m_req->presets(kProfile);
    QVERIFY(waitForFuture(presets));
    QVERIFY(presets.isCanceled());
    QCOMPARE(presets.resultCount(), 0);
    // The fault is read whatever the status it came with (an HTTP error's body included).
    QVERIFY(m_req->lastFault().subcodes.contains(QStringLiteral("ter:Action")));
    QCOMPARE(m_req->lastFault().httpStatus, httpStatus == 200 ? 0 : httpStatus);
    const QStringList logged = messages(log, kReq3);
    QCOMPARE(logged.size(), errors.size() + 1);
    QCOMPARE(logged[0], QStringLiteral("GetPresets finished"));
    // The fault text is the reply's own line (its code part is the reply reader's affair).
    for (int i = 0; i < errors.size(); ++i)
        QVERIFY2(logged[i + 1].startsWith(errors[i]), qPrintable(logged[i + 1]));
    if (httpStatus == 200)
        QVERIFY(logged[2].endsWith(QLatin1String("; Subcode: ter:Action; Reason: Simulated fault")));
    for (const LogCapture::Record& r : log.records())
        QCOMPARE(r.severity, bare(r).endsWith(QLatin1String(" finished")) ? 0u : 4u);
    m_camera->clearFaults();
}

void TestPtzReq::presetTours()
{
    QNetworkAccessManager manager;
    const auto req = checkedReq(m_camera->deviceUrl(), &manager);
    LogCapture log;
    const QFuture<void> tours = req->presetTours(kProfile);
    const QList<QNetworkReply*> replies = manager.findChildren<QNetworkReply*>();
    QCOMPARE(replies.size(), 1);
    // Connected after the request layer's handler, so this runs right after it.
    bool finishedAfterHandler = true;
    connect(replies[0], &QNetworkReply::finished, this, [&] { finishedAfterHandler = tours.isFinished(); });
    QTRY_VERIFY(messages(log, kReq3).contains(QStringLiteral("GetPresetTours finished")));
    // The handler has run on a good answer, yet nothing completed the future.
    QVERIFY(!finishedAfterHandler);
    QCOMPARE(log.withSeverity(4).size(), 0);
    // Once the reply is released, its handler and the last copy of the promise go, and
    // AsyncFuture cancels an orphaned promise: a waiting caller is neither fooled nor hung.
    QTRY_VERIFY(tours.isFinished());
    QVERIFY(tours.isCanceled());
    QVERIFY(lastBody(*m_camera, QStringLiteral("GetPresetTours"))
                .contains(QLatin1String("<tptz:ProfileToken>prof_main</tptz:ProfileToken>")));
}

void TestPtzReq::withoutCapabilityOrManager()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    LogCapture log;
    OnvifPtzReq req(kAdmin, camera->deviceUrl(), &manager, 3);
    const QFuture<void> stopped = req.stop(kProfile, true, true);
    const QFuture<PtzSys::NodeInfo> node = req.reqNodeInfo(kNode);
    QVERIFY(waitForFuture(stopped) && waitForFuture(node));
    QVERIFY(stopped.isCanceled() && node.isCanceled());
    QCOMPARE(camera->requestCount(), 0);
    QCOMPARE(log.withSeverity(4).size(), 2);
    QVERIFY(bare(log.withSeverity(4)[0]).startsWith(QLatin1String("Stop: network error. Code ")));

    OnvifPtzReq orphan(kAdmin, camera->deviceUrl(), nullptr, 5);
    const QFuture<bool> check = orphan.checkCapability();
    QVERIFY(check.isFinished() && check.isCanceled() && !orphan.support());
}

void TestPtzReq::destroyedWithRepliesInFlight()
{
    CannedServer server; // holds every PTZ request open
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    QNetworkAccessManager manager;
    auto req = checkedReq(server.deviceUrl(), &manager);
    LogCapture log;
    const QFuture<void> stopped = req->stop(kProfile, true, true);
    const QFuture<PtzSys::NodeInfo> node = req->reqNodeInfo(QStringLiteral("n"));
    const QFuture<QVector<PtzSys::Preset>> presets = req->presets(kProfile);
    QTRY_COMPARE(server.received().size(), 4);
    QCOMPARE(manager.findChildren<QNetworkReply*>().size(), 3);
    log.clear();
    req.reset();
    // The destructor releases the replies, their handlers and the last promise copies,
    // which AsyncFuture cancels: no handler runs later and nothing completes with a value.
    QTRY_VERIFY(manager.findChildren<QNetworkReply*>().isEmpty());
    QVERIFY(stopped.isCanceled() && node.isCanceled() && presets.isCanceled());
    QCOMPARE(presets.resultCount(), 0);
    QTRY_COMPARE(server.openConnections(), 0);
    QVERIFY(log.records().isEmpty());
}

QTEST_GUILESS_MAIN(TestPtzReq)
#include "tst_ptzreq.moc"
