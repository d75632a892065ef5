// The PTZ request layer against the simulated camera and, for reply shapes the
// simulator never sends, against hand-written answers.

#include "futureWait.h"
#include "logCapture.h"
#include "ptzTestSupport.h"

#include <onvifTypes/ptz/onvifPtzReq.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QtTest>

#include <cmath>
#include <limits>

using CameraSim::Camera;
using CameraSim::CameraConfig;
using CameraSim::FaultMode;
using CameraSim::FaultSpec;
using PtzTest::bare;
using PtzTest::lastBody;
using PtzTest::messages;
using PtzTest::severityOf;
using PtzTest::startCamera;

Q_DECLARE_METATYPE(CameraSim::FaultMode)

namespace {

const OnvifSecurity kAdmin(QStringLiteral("admin"), QStringLiteral("admin"), 0LL);
const QString kReq3 = QStringLiteral("PTZREQ:3");
const QString kProfile = QStringLiteral("prof_main");

// A request object whose capability check has succeeded.
std::unique_ptr<PtzSys::OnvifPtzReq> checkedReq(const QString& deviceUrl, QNetworkAccessManager* manager)
{
    auto req = std::make_unique<PtzSys::OnvifPtzReq>(kAdmin, deviceUrl, manager, 3);
    const QFuture<bool> check = req->checkCapability();
    if (!waitForFuture(check) || check.isCanceled() || !check.result())
        qWarning("capability check failed");
    return req;
}

// Runs the event loop until the log holds message for clsName (the handler that
// logs it finishes in the same call), or the time is up.
bool waitForMessage(
    const LogCapture& log, const QString& clsName, const QString& message, int timeoutMs = 5000)
{
    QElapsedTimer timer;
    timer.start();
    while (!messages(log, clsName).contains(message)) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

QString capabilities(const QString& ptzUrl)
{
    return QStringLiteral("<tds:GetCapabilitiesResponse><tds:Capabilities><tt:PTZ><tt:XAddr>%1</tt:XAddr>"
                          "</tt:PTZ></tds:Capabilities></tds:GetCapabilitiesResponse>")
        .arg(ptzUrl);
}

QString nodeAnswer(const QString& nodeXml)
{
    return QStringLiteral("<tptz:GetNodeResponse>%1</tptz:GetNodeResponse>").arg(nodeXml);
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
    // One camera for the table-driven cases.
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
    void capabilityOnAndOff();
    void capabilityAnswerWithoutPtz();
    void capabilityFailures();
    void tokensCachedAfterBackgroundFetch();
    void onlyProfilesWithPtzBecomeTokens();
    void nodeFromSimulator();
    void nodeDefaults();
    void presetsEditedOnTheCamera();
    void presetDefaults();
    void toHomeSpeedVariants_data();
    void toHomeSpeedVariants();
    void setPresetNullAndEmpty_data();
    void setPresetNullAndEmpty();
    void movesAndStopWireTexts();
    void presetToursNeverCompletes();
    void presetToursWritesTourNames();
    void failuresCancel_data();
    void failuresCancel();
    void beforeCapabilityCheckEverythingFails();
    void destroyedWithRepliesInFlight();

private:
    std::unique_ptr<Camera> m_camera;
    std::unique_ptr<QNetworkAccessManager> m_manager;
    std::unique_ptr<PtzSys::OnvifPtzReq> m_req;
};

void TestPtzReq::capabilityOnAndOff()
{
    const auto camera = startCamera();
    CameraConfig noPtz = CameraConfig::defaultCamera();
    noPtz.ptzCapability = false;
    const auto plain = startCamera(noPtz);
    // Declared after the cameras, so that it closes its connections before they stop.
    QNetworkAccessManager manager;
    LogCapture log;
    PtzSys::OnvifPtzReq req(kAdmin, camera->deviceUrl(), &manager, 3);
    QVERIFY(!req.support());
    QVERIFY(req.ptzUrl().isEmpty());

    QFuture<bool> check = req.checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(!check.isCanceled());
    QVERIFY(check.result());
    QVERIFY(req.support());
    QCOMPARE(req.ptzUrl(), camera->serviceUrl(CameraSim::Service::Ptz));

    const auto caps = camera->requestsFor(QStringLiteral("GetCapabilities"));
    QCOMPARE(caps.size(), 1);
    QCOMPARE(caps[0].path, QStringLiteral("/onvif/device_service"));
    QCOMPARE(caps[0].authResult, QStringLiteral("ok"));
    QCOMPARE(caps[0].header("Content-Type"), QByteArray("application/soap+xml"));
    QCOMPARE(caps[0].header("Connection").toLower(), QByteArray("close"));
    QVERIFY(caps[0].header("SOAPAction").isEmpty());
    QVERIFY2(PtzTest::soapBody(caps[0].body).contains(QLatin1String("<tds:Category>PTZ</tds:Category>")),
        caps[0].body.constData());

    const QStringList expected
        = { QStringLiteral("Check ptz support."), QStringLiteral("GetCapabilities finished"),
              QStringLiteral("Ptz is supported."), QStringLiteral("Ptz url \"%1\"").arg(req.ptzUrl()) };
    QCOMPARE(messages(log, kReq3), expected);
    QCOMPARE(severityOf(log, kReq3, expected[0]), 0);
    QCOMPARE(severityOf(log, kReq3, expected[1]), 0);
    QCOMPARE(severityOf(log, kReq3, expected[2]), 2);
    QCOMPARE(severityOf(log, kReq3, expected[3]), 2);
    for (const LogCapture::Record& r : log.records())
        QVERIFY2(r.message.contains(QLatin1String("onvifTypes/ptz/onvifPtzReq.cpp:")), qPrintable(r.message));

    // Every later request goes to the learnt PTZ address.
    QVERIFY(waitForFuture(req.presets(kProfile)));
    QVERIFY(waitForFuture(req.stop(kProfile, true, true)));
    QVERIFY(waitForFuture(req.reqTokens()));
    for (const CameraSim::RequestRecord& r : camera->requestLog()) {
        if (r.operation != QLatin1String("GetCapabilities"))
            QCOMPARE(r.path, QStringLiteral("/onvif/ptz_service"));
    }
    QCOMPARE(camera->requestCount(), 4);

    // A camera without a PTZ service refuses the PTZ category with a fault (HTTP 400).
    PtzSys::OnvifPtzReq other(kAdmin, plain->deviceUrl(), &manager, 4);
    check = other.checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(check.isCanceled());
    QVERIFY(!other.support());
    QVERIFY(other.ptzUrl().isEmpty());
}

void TestPtzReq::capabilityAnswerWithoutPtz()
{
    PtzTest::CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    QNetworkAccessManager manager;
    const auto req = checkedReq(server.deviceUrl(), &manager);
    QVERIFY(req->support());
    QCOMPARE(req->ptzUrl(), server.ptzUrl());

    server.setAnswer(QStringLiteral("GetCapabilities"),
        QStringLiteral("<tds:GetCapabilitiesResponse><tds:Capabilities><tt:Media><tt:XAddr>x</tt:XAddr>"
                       "</tt:Media></tds:Capabilities></tds:GetCapabilitiesResponse>"));
    LogCapture log;
    const QFuture<bool> check = req->checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(!check.isCanceled());
    QVERIFY(!check.result());
    QVERIFY(!req->support());
    QCOMPARE(req->ptzUrl(), server.ptzUrl()); // kept
    QCOMPARE(messages(log, kReq3),
        QStringList({ "Check ptz support.", "GetCapabilities finished", "Ptz is not supported." }));
    QCOMPARE(severityOf(log, kReq3, QStringLiteral("Ptz is not supported.")), 2);
}

void TestPtzReq::capabilityFailures()
{
    // A failed check clears an earlier success but keeps the address learnt then.
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    QVERIFY(req->support());
    FaultSpec fault;
    fault.mode = FaultMode::Http500;
    camera->setFault(QStringLiteral("GetCapabilities"), fault);
    LogCapture log;
    const QFuture<bool> check = req->checkCapability();
    QVERIFY(waitForFuture(check));
    QVERIFY(check.isCanceled());
    QVERIFY(!req->support());
    QCOMPARE(req->ptzUrl(), camera->serviceUrl(CameraSim::Service::Ptz));
    const QString error = QStringLiteral("GetCapabilities: network error. Code %1")
                              .arg(int(QNetworkReply::InternalServerError));
    QCOMPARE(severityOf(log, kReq3, error), 4);
}

void TestPtzReq::tokensCachedAfterBackgroundFetch()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    LogCapture log;

    QVERIFY(req->tokens().isEmpty());
    QVERIFY(waitForMessage(log, kReq3, QStringLiteral("GetProfiles finished")));
    QCOMPARE(camera->requestsFor(QStringLiteral("GetProfiles")).size(), 1);

    const QVector<PtzSys::Token> tokens = req->tokens();
    QCOMPARE(tokens.size(), 2);
    QCOMPARE(tokens[0].MediaProfileToken, QStringLiteral("prof_main"));
    QCOMPARE(tokens[0].MediaProfileName, QStringLiteral("MainStream"));
    QCOMPARE(tokens[0].PtzNodeToken, QStringLiteral("ptz_node_0"));
    QVERIFY(!tokens[0].PtzNodeName.isEmpty());
    QCOMPARE(tokens[1].MediaProfileToken, QStringLiteral("prof_sub"));
    QCOMPARE(tokens[1].MediaProfileName, QStringLiteral("SubStream"));
    QCOMPARE(tokens[1].PtzNodeToken, QStringLiteral("ptz_node_0"));
    // Served from the cache: no second request.
    QCOMPARE(req->tokens().size(), 2);
    QTest::qWait(100);
    QCOMPARE(camera->requestsFor(QStringLiteral("GetProfiles")).size(), 1);

    const QString first
        = QStringLiteral("New ptz token. MediaProfileToken:prof_main MediaProfileName:MainStream "
                         "PtzNodeToken:ptz_node_0 PtzNodeName:")
        + tokens[0].PtzNodeName;
    QCOMPARE(messages(log, kReq3),
        QStringList({ QStringLiteral("getTokens"), QStringLiteral("GetProfiles finished"), first,
            QString(first).replace(QLatin1String("prof_main MediaProfileName:MainStream"),
                QLatin1String("prof_sub MediaProfileName:SubStream")) }));
    QCOMPARE(log.records()[2].severity, 2u);

    // Overlapping fetches: the last answer stands for the list, nothing doubles.
    const QFuture<QVector<PtzSys::Token>> a = req->reqTokens();
    QVERIFY(req->tokens().isEmpty()); // cleared when sent
    const QFuture<QVector<PtzSys::Token>> b = req->reqTokens();
    QVERIFY(waitForFuture(a) && waitForFuture(b));
    QCOMPARE(b.result().size(), 2);
    QCOMPARE(req->tokens().size(), 2);
}

void TestPtzReq::onlyProfilesWithPtzBecomeTokens()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.profiles.resize(3);
    config.profiles[0].ptzNode.clear();
    config.profiles[1].ptzNode = QStringLiteral("ptz_node_0");
    config.profiles[2].ptzNode.clear();
    const auto camera = startCamera(config);
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    const QFuture<QVector<PtzSys::Token>> tokens = req->reqTokens();
    QVERIFY(waitForFuture(tokens));
    QCOMPARE(tokens.result().size(), 1);
    QCOMPARE(tokens.result()[0].MediaProfileToken, config.profiles[1].token);

    // A failed fetch leaves the cache empty.
    FaultSpec fault;
    fault.mode = FaultMode::SoapFault;
    camera->setFault(QStringLiteral("GetProfiles"), fault);
    const QFuture<QVector<PtzSys::Token>> failed = req->reqTokens();
    QVERIFY(waitForFuture(failed));
    QVERIFY(failed.isCanceled());
    QVERIFY(req->tokens().isEmpty());
}

void TestPtzReq::nodeFromSimulator()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.ptzNodes[0].maxPresets = 7;
    config.ptzNodes[0].homeSupported = true;
    config.ptzNodes[0].fixedHomePosition = false;
    const auto camera = startCamera(config);
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    LogCapture log;
    const QFuture<PtzSys::NodeInfo> future = req->reqNodeInfo(QStringLiteral("ptz_node_0"));
    QVERIFY(waitForFuture(future));
    QVERIFY(!future.isCanceled());
    const PtzSys::NodeInfo n = future.result();
    QCOMPARE(n.token, QStringLiteral("ptz_node_0"));
    QCOMPARE(n.name, QStringLiteral("PTZ"));
    // The simulator's generic spaces: pan/tilt -1..1, absolute zoom and speeds 0..1.
    QCOMPARE(n.absPanMin, -1.0f);
    QCOMPARE(n.absPanMax, 1.0f);
    QCOMPARE(n.absTiltMin, -1.0f);
    QCOMPARE(n.absTiltMax, 1.0f);
    QCOMPARE(n.absZoomMin, 0.0f);
    QCOMPARE(n.absZoomMax, 1.0f);
    QCOMPARE(n.relPanMin, -1.0f);
    QCOMPARE(n.relTiltMax, 1.0f);
    QCOMPARE(n.relZoomMin, -1.0f);
    QCOMPARE(n.velPanMin, -1.0f);
    QCOMPARE(n.velTiltMax, 1.0f);
    QCOMPARE(n.velZoomMin, -1.0f);
    QCOMPARE(n.velZoomMax, 1.0f);
    QCOMPARE(n.speedPanTiltMax, 1.0f);
    QCOMPARE(n.speedZoomMax, 1.0f);
    QCOMPARE(n.maxPresets, 7);
    QVERIFY(n.homeSupported);
    QVERIFY(!n.fixedHomePosition);
    QCOMPARE(lastBody(*camera, QStringLiteral("GetNode")),
        QStringLiteral("<tptz:GetNode ><tptz:NodeToken>ptz_node_0</tptz:NodeToken></tptz:GetNode>"));
    QCOMPARE(messages(log, kReq3), QStringList({ "getNodeInfo", "GetNode finished" }));
}

void TestPtzReq::nodeDefaults()
{
    PtzTest::CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    QNetworkAccessManager manager;
    const auto req = checkedReq(server.deviceUrl(), &manager);
    QCOMPARE(req->ptzUrl(), server.ptzUrl());

    // No Name, no FixedHomePosition, an empty and an absent zoom space, only the
    // first of two velocity spaces counts.
    server.setAnswer(QStringLiteral("GetNode"),
        nodeAnswer(
            QStringLiteral("<tptz:PTZNode token=\"n9\"><tt:SupportedPTZSpaces>"
                           "<tt:ContinuousPanTiltVelocitySpace><tt:URI>u</tt:URI>%1%2"
                           "</tt:ContinuousPanTiltVelocitySpace>"
                           "<tt:ContinuousPanTiltVelocitySpace><tt:URI>u2</tt:URI>%3%4"
                           "</tt:ContinuousPanTiltVelocitySpace>"
                           "<tt:ContinuousZoomVelocitySpace><tt:URI>z</tt:URI>%5"
                           "</tt:ContinuousZoomVelocitySpace>"
                           "</tt:SupportedPTZSpaces>"
                           "<tt:MaximumNumberOfPresets>4</tt:MaximumNumberOfPresets>"
                           "<tt:HomeSupported>false</tt:HomeSupported></tptz:PTZNode>")
                .arg(range("XRange", "-0.5", "0.5"), range("YRange", "-0.25", "0.75"),
                    range("XRange", "-9", "9"), range("YRange", "-9", "9"), range("XRange", "-2", "3"))));
    QFuture<PtzSys::NodeInfo> future = req->reqNodeInfo(QStringLiteral("n9"));
    QVERIFY(waitForFuture(future));
    PtzSys::NodeInfo n = future.result();
    QCOMPARE(n.token, QStringLiteral("n9"));
    QCOMPARE(n.name, QStringLiteral("n9"));
    QVERIFY(n.fixedHomePosition);
    QVERIFY(!n.homeSupported);
    QCOMPARE(n.maxPresets, 4);
    QCOMPARE(n.velPanMin, -0.5f);
    QCOMPARE(n.velPanMax, 0.5f);
    QCOMPARE(n.velTiltMin, -0.25f);
    QCOMPARE(n.velTiltMax, 0.75f);
    QCOMPARE(n.velZoomMin, -2.0f);
    QCOMPARE(n.velZoomMax, 3.0f);
    for (float v : { n.absPanMin, n.absPanMax, n.absTiltMin, n.absTiltMax, n.absZoomMin, n.absZoomMax,
             n.relPanMin, n.relPanMax, n.relTiltMin, n.relTiltMax, n.relZoomMin, n.relZoomMax,
             n.speedPanTiltMin, n.speedPanTiltMax, n.speedZoomMin, n.speedZoomMax })
        QCOMPARE(v, 0.0f);

    // An explicit FixedHomePosition="false" is kept; an empty space element gives 0.
    server.setAnswer(QStringLiteral("GetNode"),
        nodeAnswer(
            QStringLiteral("<tptz:PTZNode token=\"n1\" FixedHomePosition=\"false\"><tt:Name>Dome</tt:Name>"
                           "<tt:SupportedPTZSpaces><tt:AbsoluteZoomPositionSpace/></tt:SupportedPTZSpaces>"
                           "<tt:MaximumNumberOfPresets>0</tt:MaximumNumberOfPresets>"
                           "<tt:HomeSupported>true</tt:HomeSupported></tptz:PTZNode>")));
    future = req->reqNodeInfo(QStringLiteral("n1"));
    QVERIFY(waitForFuture(future));
    n = future.result();
    QCOMPARE(n.name, QStringLiteral("Dome"));
    QVERIFY(!n.fixedHomePosition);
    QVERIFY(n.homeSupported);
    QCOMPARE(n.absZoomMin, 0.0f);
    QCOMPARE(n.absZoomMax, 0.0f);
}

void TestPtzReq::presetsEditedOnTheCamera()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);

    // Move away from the origin, store the spot, go home, then back to the spot.
    QVERIFY(waitForFuture(req->continuousPos(kProfile, 1.0f, -1.0f)));
    QTest::qWait(150);
    QVERIFY(waitForFuture(req->stop(kProfile, true, true)));
    const CameraSim::PtzPosition spot = camera->ptzPosition(QStringLiteral("ptz_node_0"));
    QVERIFY(spot.pan > 0.05 && spot.tilt < -0.05);
    QFuture<void> done = req->setPreset(kProfile, QString(), QStringLiteral("Door"));
    QVERIFY(waitForFuture(done));
    QVERIFY(!done.isCanceled());
    const auto stored = camera->presets(kProfile);
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored[0].name, QStringLiteral("Door"));

    QFuture<QVector<PtzSys::Preset>> list = req->presets(kProfile);
    QVERIFY(waitForFuture(list));
    QCOMPARE(list.result().size(), 1);
    const PtzSys::Preset door = list.result()[0];
    QCOMPARE(door.profileToken, kProfile);
    QCOMPARE(door.token, stored[0].token);
    QCOMPARE(door.name, QStringLiteral("Door"));
    QCOMPARE(door.pan, double(float(spot.pan)));
    QCOMPARE(door.tilt, double(float(spot.tilt)));
    QCOMPARE(door.zoom, 0.0);

    QVERIFY(waitForFuture(req->toHome(kProfile, 0, 0)));
    QCOMPARE(camera->ptzPosition(QStringLiteral("ptz_node_0")).pan, 0.0);
    done = req->gotoPreset(kProfile, door.token);
    QVERIFY(waitForFuture(done));
    QVERIFY(!done.isCanceled());
    QCOMPARE(camera->ptzPosition(QStringLiteral("ptz_node_0")).pan, spot.pan);
    QCOMPARE(lastBody(*camera, QStringLiteral("GotoPreset")),
        QStringLiteral("<tptz:GotoPreset ><tptz:ProfileToken>prof_main</tptz:ProfileToken>"
                       "<tptz:PresetToken>%1</tptz:PresetToken></tptz:GotoPreset>")
            .arg(door.token));

    done = req->delPreset(kProfile, door.token);
    QVERIFY(waitForFuture(done));
    QVERIFY(!done.isCanceled());
    QVERIFY(camera->presets(kProfile).isEmpty());
    list = req->presets(kProfile);
    QVERIFY(waitForFuture(list));
    QVERIFY(!list.isCanceled());
    QVERIFY(list.result().isEmpty());

    // Home stored at the current position.
    QVERIFY(waitForFuture(req->gotoPreset(kProfile, door.token))); // gone: a fault, no move
    QVERIFY(waitForFuture(req->saveAsHome(kProfile)));
    QCOMPARE(lastBody(*camera, QStringLiteral("SetHomePosition")),
        QStringLiteral("<tptz:SetHomePosition ><tptz:ProfileToken>prof_main</tptz:ProfileToken>"
                       "</tptz:SetHomePosition>"));
}

void TestPtzReq::presetDefaults()
{
    PtzTest::CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    server.setAnswer(QStringLiteral("GetPresets"),
        QStringLiteral(
            "<tptz:GetPresetsResponse>"
            "<tptz:Preset/>"
            "<tptz:Preset token=\"t7\"><tt:Name>Gate</tt:Name><tt:PTZPosition>"
            "<tt:PanTilt x=\"0.25\" y=\"-0.5\"/><tt:Zoom x=\"0.75\"/></tt:PTZPosition></tptz:Preset>"
            "<tptz:Preset token=\"t8\"><tt:PTZPosition><tt:Zoom x=\"0.1\"/></tt:PTZPosition>"
            "</tptz:Preset>"
            "<tptz:Preset><tt:Name>Yard</tt:Name></tptz:Preset>"
            "</tptz:GetPresetsResponse>"));
    QNetworkAccessManager manager;
    const auto req = checkedReq(server.deviceUrl(), &manager);
    const QFuture<QVector<PtzSys::Preset>> future = req->presets(QStringLiteral("p1"));
    QVERIFY(waitForFuture(future));
    const QVector<PtzSys::Preset> p = future.result();
    QCOMPARE(p.size(), 4);
    QCOMPARE(p[0].token, QStringLiteral("PresetToken0"));
    QCOMPARE(p[0].name, QStringLiteral("Preset0"));
    QCOMPARE(p[0].pan, 0.0);
    QCOMPARE(p[0].tilt, 0.0);
    QCOMPARE(p[0].zoom, 0.0);
    QCOMPARE(p[1].token, QStringLiteral("t7"));
    QCOMPARE(p[1].name, QStringLiteral("Gate"));
    QCOMPARE(p[1].pan, 0.25);
    QCOMPARE(p[1].tilt, -0.5);
    QCOMPARE(p[1].zoom, 0.75);
    QCOMPARE(p[2].name, QStringLiteral("Preset2"));
    QCOMPARE(p[2].pan, 0.0);
    QCOMPARE(p[2].zoom, double(0.1f)); // widened from single precision
    QCOMPARE(p[3].token, QStringLiteral("PresetToken3"));
    QCOMPARE(p[3].name, QStringLiteral("Yard"));
    for (const PtzSys::Preset& preset : p)
        QCOMPARE(preset.profileToken, QStringLiteral("p1"));

    server.setAnswer(QStringLiteral("GetPresets"), QStringLiteral("<tptz:GetPresetsResponse/>"));
    const QFuture<QVector<PtzSys::Preset>> none = req->presets(QStringLiteral("p1"));
    QVERIFY(waitForFuture(none));
    QVERIFY(!none.isCanceled());
    QVERIFY(none.result().isEmpty());
}

void TestPtzReq::toHomeSpeedVariants_data()
{
    QTest::addColumn<float>("panTilt");
    QTest::addColumn<float>("zoom");
    QTest::addColumn<QString>("speed");
    QTest::newRow("none") << 0.0f << 0.0f << QString();
    QTest::newRow("pan-tilt only") << 0.5f << 0.0f
                                   << QStringLiteral(
                                          "<tptz:Speed ><tt:PanTilt x=\"0.5\" y=\"0.5\" ></tt:PanTilt>"
                                          "</tptz:Speed>");
    QTest::newRow("zoom only") << 0.0f << 0.5f
                               << QStringLiteral("<tptz:Speed ><tt:Zoom x=\"0.5\" ></tt:Zoom></tptz:Speed>");
    QTest::newRow("both") << -1.0f << 0.25f
                          << QStringLiteral("<tptz:Speed ><tt:PanTilt x=\"-1\" y=\"-1\" ></tt:PanTilt>"
                                            "<tt:Zoom x=\"0.25\" ></tt:Zoom></tptz:Speed>");
}

void TestPtzReq::toHomeSpeedVariants()
{
    QFETCH(float, panTilt);
    QFETCH(float, zoom);
    QFETCH(QString, speed);
    Camera* camera = m_camera.get();
    PtzSys::OnvifPtzReq* req = m_req.get();
    const QFuture<void> done = req->toHome(kProfile, panTilt, zoom);
    QVERIFY(waitForFuture(done));
    QVERIFY(!done.isCanceled());
    QCOMPARE(lastBody(*camera, QStringLiteral("GotoHomePosition")),
        QStringLiteral("<tptz:GotoHomePosition ><tptz:ProfileToken>prof_main</tptz:ProfileToken>%1"
                       "</tptz:GotoHomePosition>")
            .arg(speed));
    if (QTest::currentDataTag() == QLatin1String("both")) {
        // A NaN speed is not 0: the pan-tilt speed goes out.
        QVERIFY(waitForFuture(req->toHome(kProfile, std::numeric_limits<float>::quiet_NaN(), 0)));
        const QString body = lastBody(*camera, QStringLiteral("GotoHomePosition"));
        QVERIFY2(body.contains(QLatin1String("<tt:PanTilt ")) && !body.contains(QLatin1String("<tt:Zoom")),
            qPrintable(body));
    }
}

void TestPtzReq::setPresetNullAndEmpty_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("fields");
    const QString empty = QLatin1String("");
    QTest::newRow("null token, name")
        << QString() << QStringLiteral("Door") << QStringLiteral("<tptz:PresetName>Door</tptz:PresetName>");
    QTest::newRow("token, null name")
        << QStringLiteral("t1") << QString() << QStringLiteral("<tptz:PresetToken>t1</tptz:PresetToken>");
    QTest::newRow("both null") << QString() << QString() << QString();
    QTest::newRow("empty token, name") << empty << QStringLiteral("Door")
                                       << QStringLiteral("<tptz:PresetName>Door</tptz:PresetName>"
                                                         "<tptz:PresetToken></tptz:PresetToken>");
    QTest::newRow("both empty") << empty << empty
                                << QStringLiteral("<tptz:PresetName></tptz:PresetName>"
                                                  "<tptz:PresetToken></tptz:PresetToken>");
}

void TestPtzReq::setPresetNullAndEmpty()
{
    QFETCH(QString, token);
    QFETCH(QString, name);
    QFETCH(QString, fields);
    Camera* camera = m_camera.get();
    PtzSys::OnvifPtzReq* req = m_req.get();
    QVERIFY(waitForFuture(req->setPreset(kProfile, token, name)));
    QCOMPARE(lastBody(*camera, QStringLiteral("SetPreset")),
        QStringLiteral("<tptz:SetPreset ><tptz:ProfileToken>prof_main</tptz:ProfileToken>%1</tptz:SetPreset>")
            .arg(fields));
}

void TestPtzReq::movesAndStopWireTexts()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    const QString head = QStringLiteral("<tptz:%1 ><tptz:ProfileToken>prof_main</tptz:ProfileToken>");

    QFuture<void> done = req->continuousPos(kProfile, 0.5f, 0.0f);
    QVERIFY(waitForFuture(done));
    QVERIFY(!done.isCanceled());
    QCOMPARE(lastBody(*camera, QStringLiteral("ContinuousMove")),
        head.arg(QLatin1String("ContinuousMove"))
            + QStringLiteral("<tptz:Velocity ><tt:PanTilt x=\"0.5\" y=\"0\" ></tt:PanTilt></tptz:Velocity>"
                             "</tptz:ContinuousMove>"));
    QVERIFY(camera->ptzPosition(QStringLiteral("ptz_node_0")).moving);

    QVERIFY(waitForFuture(req->continuousZoom(kProfile, -0.75f)));
    QCOMPARE(lastBody(*camera, QStringLiteral("ContinuousMove")),
        head.arg(QLatin1String("ContinuousMove"))
            + QStringLiteral("<tptz:Velocity ><tt:Zoom x=\"-0.75\" ></tt:Zoom></tptz:Velocity>"
                             "</tptz:ContinuousMove>"));

    for (const auto& flags : { qMakePair(false, false), qMakePair(true, false), qMakePair(false, true) }) {
        done = req->stop(kProfile, flags.first, flags.second);
        QVERIFY(waitForFuture(done));
        QVERIFY(!done.isCanceled());
        QCOMPARE(lastBody(*camera, QStringLiteral("Stop")),
            head.arg(QLatin1String("Stop"))
                + QStringLiteral("<tptz:PanTilt>%1</tptz:PanTilt><tptz:Zoom>%2</tptz:Zoom></tptz:Stop>")
                      .arg(QLatin1String(flags.first ? "true" : "false"),
                          QLatin1String(flags.second ? "true" : "false")));
    }
    // Stop(pan-tilt only) then Stop(zoom only) halted everything.
    QVERIFY(!camera->ptzPosition(QStringLiteral("ptz_node_0")).moving);

    QVERIFY(waitForFuture(req->delPreset(kProfile, QStringLiteral("nope"))));
    QCOMPARE(lastBody(*camera, QStringLiteral("RemovePreset")),
        head.arg(QLatin1String("RemovePreset"))
            + QStringLiteral("<tptz:PresetToken>nope</tptz:PresetToken></tptz:RemovePreset>"));
    for (const CameraSim::RequestRecord& r : camera->requestsFor(QStringLiteral("ContinuousMove"))) {
        QVERIFY(!r.body.contains("Timeout"));
        QVERIFY(!r.body.contains("space="));
    }
}

void TestPtzReq::presetToursNeverCompletes()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    const auto req = checkedReq(camera->deviceUrl(), &manager);
    LogCapture log;
    QTest::ignoreMessage(QtDebugMsg, "----- No preset tours");
    const QFuture<void> tours = req->presetTours(kProfile);
    const QList<QNetworkReply*> replies = manager.findChildren<QNetworkReply*>();
    QCOMPARE(replies.size(), 1);
    // Connected after the request layer's handler, so this runs right after it.
    bool finishedAfterHandler = true;
    connect(replies[0], &QNetworkReply::finished, this, [&] { finishedAfterHandler = tours.isFinished(); });
    QVERIFY(waitForMessage(log, kReq3, QStringLiteral("GetPresetTours finished")));
    // The handler has run on a good answer, yet nothing completed the future.
    QVERIFY(!finishedAfterHandler);
    QCOMPARE(log.withSeverity(4).size(), 0);
    // Once the reply is released, its handler and the last copy of the promise go,
    // and AsyncFuture cancels an orphaned promise: the future ends cancelled, never
    // completed. A caller waiting for a result is thus never fooled, nor hung.
    QTRY_VERIFY(tours.isFinished());
    QVERIFY(tours.isCanceled());
    QVERIFY(lastBody(*camera, QStringLiteral("GetPresetTours"))
                .contains(QLatin1String("<tptz:ProfileToken>prof_main</tptz:ProfileToken>")));
}

void TestPtzReq::presetToursWritesTourNames()
{
    PtzTest::CannedServer server;
    server.setAnswer(QStringLiteral("GetCapabilities"), capabilities(server.ptzUrl()));
    const QString tour
        = QStringLiteral("<tptz:PresetTour token=\"%1\">%2<tt:Status><tt:State>Idle</tt:State></tt:Status>"
                         "<tt:AutoStart>false</tt:AutoStart><tt:StartingCondition/></tptz:PresetTour>");
    server.setAnswer(QStringLiteral("GetPresetTours"),
        QStringLiteral("<tptz:GetPresetToursResponse>%1%2</tptz:GetPresetToursResponse>")
            .arg(tour.arg(QLatin1String("a"), QLatin1String("<tt:Name>Night round</tt:Name>")),
                tour.arg(QLatin1String("b"), QString())));
    QNetworkAccessManager manager;
    const auto req = checkedReq(server.deviceUrl(), &manager);
    LogCapture log;
    // Order matters: ignoreMessage expects them in sequence.
    QTest::ignoreMessage(QtDebugMsg, "----- \"Night round\"");
    QTest::ignoreMessage(QtDebugMsg, "----- No name");
    const QFuture<void> tours = req->presetTours(QStringLiteral("p"));
    QVERIFY(waitForMessage(log, kReq3, QStringLiteral("GetPresetTours finished")));
    QVERIFY(!tours.isFinished() || tours.isCanceled());
}

void TestPtzReq::failuresCancel_data()
{
    QTest::addColumn<FaultMode>("mode");
    QTest::addColumn<int>("httpStatus");
    QTest::addColumn<QStringList>("errors");
    QTest::newRow("fault with HTTP 200")
        << FaultMode::SoapFault << 200
        << QStringList({ QStringLiteral("Onvif fault."), QStringLiteral("Fault detail:  Code: ") });
    // An HTTP error status takes the network path, even with a fault body.
    QTest::newRow("fault with HTTP 400")
        << FaultMode::SoapFault << 400
        << QStringList({ QStringLiteral("GetPresets: network error. Code %1")
                             .arg(int(QNetworkReply::ProtocolInvalidOperationError)) });
    QTest::newRow("HTTP 500") << FaultMode::Http500 << 500
                              << QStringList({ QStringLiteral("GetPresets: network error. Code %1")
                                                   .arg(int(QNetworkReply::InternalServerError)) });
    QTest::newRow("dropped") << FaultMode::Drop << 500
                             << QStringList({ QStringLiteral("GetPresets: network error. Code %1")
                                                  .arg(int(QNetworkReply::RemoteHostClosedError)) });
}

void TestPtzReq::failuresCancel()
{
    QFETCH(FaultMode, mode);
    QFETCH(int, httpStatus);
    QFETCH(QStringList, errors);
    Camera* camera = m_camera.get();
    PtzSys::OnvifPtzReq* req = m_req.get();
    FaultSpec fault;
    fault.mode = mode;
    fault.httpStatus = httpStatus;
    camera->setFault(QStringLiteral("GetPresets"), fault);
    camera->setFault(QStringLiteral("GetPresetTours"), fault);
    camera->setFault(QStringLiteral("Stop"), fault);
    LogCapture log;

    const QFuture<QVector<PtzSys::Preset>> presets = req->presets(kProfile);
    QVERIFY(waitForFuture(presets));
    QVERIFY(presets.isCanceled());
    QCOMPARE(presets.resultCount(), 0);
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

    const QFuture<void> tours = req->presetTours(kProfile);
    QVERIFY(waitForFuture(tours));
    QVERIFY(tours.isCanceled());
    const QFuture<void> stopped = req->stop(kProfile, true, true);
    QVERIFY(waitForFuture(stopped));
    QVERIFY(stopped.isCanceled());
    camera->clearFaults();
}

void TestPtzReq::beforeCapabilityCheckEverythingFails()
{
    const auto camera = startCamera();
    QNetworkAccessManager manager;
    LogCapture log;
    PtzSys::OnvifPtzReq req(kAdmin, camera->deviceUrl(), &manager, 3);
    const QFuture<void> stopped = req.stop(kProfile, true, true);
    const QFuture<PtzSys::NodeInfo> node = req.reqNodeInfo(QStringLiteral("ptz_node_0"));
    QVERIFY(waitForFuture(stopped) && waitForFuture(node));
    QVERIFY(stopped.isCanceled());
    QVERIFY(node.isCanceled());
    QCOMPARE(camera->requestCount(), 0);
    QCOMPARE(log.withSeverity(4).size(), 2);
    QVERIFY(bare(log.withSeverity(4)[0]).startsWith(QLatin1String("Stop: network error. Code ")));

    // No manager at all: a clear failure, not a crash.
    PtzSys::OnvifPtzReq orphan(kAdmin, camera->deviceUrl(), nullptr, 5);
    const QFuture<bool> check = orphan.checkCapability();
    QVERIFY(check.isFinished() && check.isCanceled());
    QVERIFY(!orphan.support());
}

void TestPtzReq::destroyedWithRepliesInFlight()
{
    PtzTest::CannedServer server; // holds every PTZ request open
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
    // What really happens: the destructor releases the replies; with them go their
    // handlers and the last copies of the promises, which AsyncFuture then cancels.
    // No handler runs after the object is gone and nothing completes with a value.
    QTRY_VERIFY(manager.findChildren<QNetworkReply*>().isEmpty());
    QVERIFY(stopped.isCanceled());
    QVERIFY(node.isCanceled());
    QVERIFY(presets.isCanceled());
    QCOMPARE(presets.resultCount(), 0);
    QTRY_COMPARE(server.openConnections(), 0);
    QTest::qWait(50);
    QVERIFY(log.records().isEmpty());
}

QTEST_GUILESS_MAIN(TestPtzReq)
#include "tst_ptzreq.moc"
