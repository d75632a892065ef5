// The per-profile PTZ controller and the PTZ entry object against the simulated camera.

#include "futureWait.h"
#include "logCapture.h"
#include "ptzTestSupport.h"

#include <onvifTypes/ptz/onvifPtz.h>
#include <onvifTypes/ptz/onvifPtzController.h>
#include <onvifTypes/ptz/onvifPtzReq.h>

#include <QNetworkAccessManager>
#include <QtTest>

using CameraSim::Camera;
using CameraSim::FaultMode;
using PtzTest::lastBody;
using PtzTest::messages;

namespace {

const OnvifSecurity kAdmin(QStringLiteral("admin"), QStringLiteral("admin"), 0LL);
const QString kCls = QStringLiteral("OnvifPtzController. prof_main(ptz_node_0)");
const QString kGetNode = QStringLiteral("GetNode");

PtzSys::Token mainToken()
{
    PtzSys::Token token;
    token.MediaProfileToken = QStringLiteral("prof_main");
    token.MediaProfileName = QStringLiteral("MainStream");
    token.PtzNodeToken = QStringLiteral("ptz_node_0");
    token.PtzNodeName = QStringLiteral("PTZ");
    return token;
}

} // namespace

class TestPtzController : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_camera = PtzTest::startCamera();
        m_manager = std::make_unique<QNetworkAccessManager>();
        m_req = std::make_unique<PtzSys::OnvifPtzReq>(kAdmin, m_camera->deviceUrl(), m_manager.get(), 1);
        QVERIFY(waitForFuture(m_req->checkCapability()));
        QVERIFY(m_req->support());
        m_camera->clearRequestLog();
    }
    void cleanup()
    {
        m_req.reset();
        m_manager.reset();
        m_camera.reset();
    }

    void firstCommandGoesOutThenNodeIsCached();
    void failedNodeRequestRefusesOnce();
    void getNodeInfoWhileFetchingSendsItsOwnRequest();
    void absolutePositioningIsInert();
    void commandsCarryTheProfile();
    void destroyedBeforeTheNodeAnswer();
    void entryObject();

private:
    int sent(const QString& op) const { return m_camera->requestsFor(op).size(); }

    std::unique_ptr<Camera> m_camera;
    std::unique_ptr<QNetworkAccessManager> m_manager;
    std::unique_ptr<PtzSys::OnvifPtzReq> m_req;
};

void TestPtzController::firstCommandGoesOutThenNodeIsCached()
{
    LogCapture log;
    PtzSys::OnvifPtzController controller(mainToken(), m_req.get());
    // The node request is in flight (state 1): the command is not held back.
    const QFuture<void> moved = controller.continuousPos(0.5f, 0.0f);
    QVERIFY(waitForFuture(moved) && !moved.isCanceled());
    QCOMPARE(sent(QStringLiteral("ContinuousMove")), 1);
    QTRY_VERIFY(lastBody(*m_camera, kGetNode).contains(QLatin1String(">ptz_node_0</tptz:NodeToken>")));

    QTRY_VERIFY(messages(log, kCls).contains(QStringLiteral("Node info request completed.")));
    QCoreApplication::processEvents();
    const int before = m_camera->requestCount();
    const QFuture<PtzSys::NodeInfo> info = controller.getNodeInfo();
    QVERIFY(info.isFinished() && !info.isCanceled());
    QCOMPARE(info.result().token, QStringLiteral("ptz_node_0"));
    QCOMPARE(info.result().maxPresets, m_camera->config().ptzNodes[0].maxPresets);
    // A command answered after it shows that nothing else went out meanwhile.
    QVERIFY(waitForFuture(controller.stop(true, true)));
    QCOMPARE(m_camera->requestCount(), before + 1);
}

void TestPtzController::failedNodeRequestRefusesOnce()
{
    m_camera->setFault(kGetNode, faultOf(FaultMode::SoapFault, 1));
    LogCapture log;
    PtzSys::OnvifPtzController controller(mainToken(), m_req.get());
    QTRY_VERIFY(messages(log, kCls).contains(QStringLiteral("Could not request node info.")));

    // State 0: refused on the spot, and a new node request starts.
    const QFuture<void> refused = controller.stop(true, true);
    QVERIFY(refused.isFinished() && refused.isCanceled());

    // State 1 (the new node request is in flight): the next one goes out.
    const QFuture<void> stopped = controller.stop(true, true);
    QVERIFY(waitForFuture(stopped) && !stopped.isCanceled());
    QCOMPARE(sent(QStringLiteral("Stop")), 1);
    QTRY_COMPARE(sent(kGetNode), 2);
    QTRY_VERIFY(messages(log, kCls).contains(QStringLiteral("Node info request completed.")));

    // presets() is gated the same way and otherwise follows the request layer.
    m_camera->setFault(kGetNode, faultOf(FaultMode::SoapFault, 1));
    PtzSys::OnvifPtzController other(mainToken(), m_req.get());
    log.clear();
    QTRY_VERIFY(messages(log, kCls).contains(QStringLiteral("Could not request node info.")));
    const QFuture<QVector<PtzSys::Preset>> none = other.presets();
    QVERIFY(none.isFinished() && none.isCanceled());
    QCOMPARE(sent(QStringLiteral("GetPresets")), 0);
    const QFuture<QVector<PtzSys::Preset>> list = other.presets();
    QVERIFY(waitForFuture(list) && !list.isCanceled() && list.result().isEmpty());
    QCOMPARE(sent(QStringLiteral("GetPresets")), 1);

    // A failing command ends cancelled through the controller as well.
    m_camera->setFault(QStringLiteral("GotoHomePosition"), faultOf(FaultMode::Http500));
    const QFuture<void> home = other.toHome(0, 0);
    QVERIFY(waitForFuture(home) && home.isCanceled());
}

void TestPtzController::getNodeInfoWhileFetchingSendsItsOwnRequest()
{
    LogCapture log;
    PtzSys::OnvifPtzController controller(mainToken(), m_req.get());
    const QFuture<PtzSys::NodeInfo> side = controller.getNodeInfo();
    QVERIFY(!side.isFinished() && waitForFuture(side));
    QCOMPARE(side.result().name, QStringLiteral("PTZ"));
    QTRY_COMPARE(sent(kGetNode), 2);
    QVERIFY(messages(log, kCls).contains(QStringLiteral("Node info not found. Request.")));

    // The controller's own request fills the cache; later calls cost nothing.
    QTRY_VERIFY(messages(log, kCls).contains(QStringLiteral("Node info request completed.")));
    QCoreApplication::processEvents();
    QVERIFY(controller.getNodeInfo().isFinished());
    QCOMPARE(sent(kGetNode), 2);
}

void TestPtzController::absolutePositioningIsInert()
{
    LogCapture log;
    PtzSys::OnvifPtzController controller(mainToken(), m_req.get());
    QTRY_VERIFY(messages(log, kCls).contains(QStringLiteral("Node info request completed.")));
    QCoreApplication::processEvents();
    const int before = m_camera->requestCount();

    const QFuture<void> pos = controller.setPos(0.5, -0.5);
    const QFuture<void> zoom = controller.setZoom(0.5);
    QVERIFY(pos.isFinished() && !pos.isCanceled());
    QVERIFY(zoom.isFinished() && !zoom.isCanceled());
    const QFuture<QPointF> where = controller.getPos();
    const QFuture<double> howFar = controller.getZoom();
    QVERIFY(where.isFinished() && where.isCanceled() && where.resultCount() == 0);
    QVERIFY(howFar.isFinished() && howFar.isCanceled());
    QVERIFY(waitForFuture(controller.stop(true, true)));
    QCOMPARE(m_camera->requestCount(), before + 1);
}

void TestPtzController::commandsCarryTheProfile()
{
    PtzSys::Token sub = mainToken();
    sub.MediaProfileToken = QStringLiteral("prof_sub");
    PtzSys::OnvifPtzController controller(sub, m_req.get());
    QVERIFY(waitForFuture(controller.continuousZoom(0.25f)));
    QVERIFY(waitForFuture(controller.stop(false, true)));
    QVERIFY(waitForFuture(controller.toHome(0.5f, 0)));
    QVERIFY(waitForFuture(controller.saveAsHome()));
    // The arguments pass through unchanged.
    QVERIFY(lastBody(*m_camera, QStringLiteral("Stop"))
                .endsWith(QLatin1String("<tptz:Zoom>true</tptz:Zoom></tptz:Stop>")));

    // An empty token passes through; the camera then makes a new preset for this profile only.
    QFuture<void> done = controller.setPreset(QLatin1String(""), QStringLiteral("Door"));
    QVERIFY(waitForFuture(done) && !done.isCanceled());
    const QFuture<QVector<PtzSys::Preset>> list = controller.presets();
    QVERIFY(waitForFuture(list));
    QCOMPARE(list.result().size(), 1);
    const PtzSys::Preset door = list.result()[0];
    QCOMPARE(door.profileToken + '/' + door.name, QStringLiteral("prof_sub/Door"));
    QVERIFY(m_camera->presets(QStringLiteral("prof_main")).isEmpty());
    done = controller.gotoPreset(door.token);
    QVERIFY(waitForFuture(done) && !done.isCanceled());
    done = controller.delPreset(door.token);
    QVERIFY(waitForFuture(done) && !done.isCanceled());
    QVERIFY(m_camera->presets(QStringLiteral("prof_sub")).isEmpty());

    const QString head = QStringLiteral("<tptz:%1 ><tptz:ProfileToken>prof_sub</tptz:ProfileToken>");
    for (const CameraSim::RequestRecord& r : m_camera->requestLog()) {
        if (r.operation != kGetNode)
            QVERIFY2(PtzTest::soapBody(r.body).startsWith(head.arg(r.operation)), r.body.constData());
    }
}

void TestPtzController::destroyedBeforeTheNodeAnswer()
{
    LogCapture log;
    auto controller = std::make_unique<PtzSys::OnvifPtzController>(mainToken(), m_req.get());
    controller.reset();
    QTRY_VERIFY(messages(log, QStringLiteral("PTZREQ:1")).contains(QStringLiteral("GetNode finished")));
    // A later round trip lets any late handler run first.
    QVERIFY(waitForFuture(m_req->stop(QStringLiteral("prof_main"), true, true)));
    QVERIFY(messages(log, kCls).isEmpty());
}

void TestPtzController::entryObject()
{
    // A fresh request object: support() reflects its own last check only.
    PtzSys::OnvifPtzReq req(kAdmin, m_camera->deviceUrl(), m_manager.get(), 2);
    PtzSys::OnvifPtz ptz(kAdmin, m_manager.get(), &req, 7, nullptr);
    PtzSys::IPtz& iface = ptz;
    QVERIFY(!iface.support());
    QVERIFY(waitForFuture(req.checkCapability()));
    QVERIFY(iface.support());
    QCOMPARE(m_camera->requestLog().size(), 1); // the check; constructing sent nothing

    LogCapture log;
    QVERIFY(iface.tokens().isEmpty());
    QTRY_VERIFY(messages(log, QStringLiteral("PTZREQ:2")).contains(QStringLiteral("GetProfiles finished")));
    const QVector<PtzSys::Token> tokens = iface.tokens();
    QCOMPARE(tokens.size(), 2);
    QCOMPARE(sent(QStringLiteral("GetProfiles")), 1);

    // Two controllers for one token: independent, each with its own node request.
    std::unique_ptr<PtzSys::IController> a(iface.createController(tokens[0]));
    std::unique_ptr<PtzSys::IController> b(iface.createController(tokens[0]));
    QVERIFY(a && b && a.get() != b.get());
    QVERIFY(!dynamic_cast<QObject*>(a.get())->parent());
    QTRY_COMPARE(sent(kGetNode), 2);
    const QFuture<QVector<PtzSys::Preset>> presets = a->presets();
    QVERIFY(waitForFuture(presets) && !presets.isCanceled());
    b.reset();
    QVERIFY(waitForFuture(a->stop(true, true)));
    QCOMPARE(sent(QStringLiteral("Stop")), 1);
    a.reset();
    // The entry object never owned the request object.
    QCOMPARE(ptz.findChildren<QObject*>().size(), 0);
}

QTEST_GUILESS_MAIN(TestPtzController)
#include "tst_ptzcontroller.moc"
