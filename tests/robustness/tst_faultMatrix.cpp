// Every public asynchronous operation under every simulator fault: it ends exactly
// once (or never, where that is its documented behaviour), leaves no reply or running
// timer behind, and survives its owner being destroyed while the answer is on its way.
#include "futureWait.h"

#include <camera.h>

#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/onvifPreview.h>
#include <onvifTypes/onvifProbe.h>
#include <onvifTypes/onvifRTSP.h>
#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/ptz/onvifPtzReq.h>
#include <zyrChecker/zyrChecker.h>

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QtTest>

#include <functional>
#include <memory>

using CameraSim::Camera;
using CameraSim::FaultMode;

namespace {

enum class Ends { Once, AtMostOnce, Never };

const int kDelayMs = 300;

// One started operation: counts how often it ended and owns what it ran on.
struct Run
{
    std::shared_ptr<int> endings = std::make_shared<int>(0);
    std::shared_ptr<bool> cancelled; // set for operations that return a future
    std::shared_ptr<unsigned int> errorCode; // set for objects with an error(code, text) signal
    std::unique_ptr<QObject> owner; // destroyed to abandon the operation
    std::function<void()> destroy; // for owners that are no QObject
    int ownTimeoutMs = 0; // a timeout the test gave the operation: a second ending could follow it
};

// Events still on their way once everything has settled; a second ending would show here.
const int kGraceMs = 50;

// The camera logs a request once it has answered it (or dropped the connection), so
// every request it counted is done when the log has caught up with the count.
struct CameraQuiet
{
    explicit CameraQuiet(Camera& camera)
        : camera(camera)
        , before(camera.requestCount())
    {
        camera.clearRequestLog();
    }
    bool operator()() const { return camera.requestLog().size() == camera.requestCount() - before; }
    Camera& camera;
    const int before;
};

// Spins until the condition holds (bounded, so that a hang fails instead of blocking),
// then lets a short grace pass so that anything already posted is delivered.
bool settle(const std::function<bool()>& condition)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition() && clock.elapsed() < 10000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    const bool reached = condition();
    QTest::qWait(kGraceMs);
    return reached;
}

template <typename T> void countFuture(Run& run, const QFuture<T>& future)
{
    auto* watcher = new QFutureWatcher<T>(run.owner.get());
    auto endings = run.endings;
    run.cancelled = std::make_shared<bool>(false);
    QObject::connect(watcher, &QFutureWatcher<T>::finished, [endings, cancelled = run.cancelled, watcher] {
        ++*endings;
        *cancelled = watcher->isCanceled();
    });
    watcher->setFuture(future);
}

// Counts the result signal and error(code, text) of an object, keeping the error code.
template <typename T, typename Result>
void countSignals(Run& run, T* object, Result result, void (T::*error)(unsigned int, QString))
{
    auto endings = run.endings;
    run.errorCode = std::make_shared<unsigned int>(0);
    QObject::connect(object, result, [endings] { ++*endings; });
    QObject::connect(object, error, [endings, code = run.errorCode](unsigned int c) {
        ++*endings;
        *code = c;
    });
}

using Start = std::function<Run(Camera&, QNetworkAccessManager&)>;

struct Operation
{
    const char* name;
    const char* simOperation; // what the simulator spoils
    Start start;
    bool endsOnFailure; // false: failures end silently by design
};

template <typename T> Start requestsCall(std::function<QFuture<T>(Onvif::Requests&)> call)
{
    return [call](Camera& camera, QNetworkAccessManager&) {
        Run run;
        run.owner = std::make_unique<QObject>();
        auto requests = std::make_shared<std::unique_ptr<Onvif::Requests>>(std::make_unique<Onvif::Requests>(
            QStringLiteral("admin"), QStringLiteral("admin"), camera.deviceUrl(), false));
        countFuture(run, call(**requests));
        run.destroy = [requests] { requests->reset(); };
        return run;
    };
}

// Calls other than the capability check need the PTZ address that the check learns;
// the simulator spoils only the operation under test, so the check itself succeeds.
template <typename T>
Start ptzCall(std::function<QFuture<T>(PtzSys::OnvifPtzReq&)> call, bool checkFirst = true)
{
    return [call, checkFirst](Camera& camera, QNetworkAccessManager& manager) {
        Run run;
        auto* ptz
            = new PtzSys::OnvifPtzReq(OnvifSecurity(QStringLiteral("admin"), QStringLiteral("admin"), 0LL),
                camera.deviceUrl(), &manager, 1);
        run.owner.reset(ptz);
        if (checkFirst)
            waitForFuture(ptz->checkCapability());
        countFuture(run, call(*ptz));
        return run;
    };
}

QVector<Operation> operations()
{
    using PtzSys::OnvifPtzReq;
    const QString profile = QStringLiteral("prof_main");
    return {
        { "Requests::deviceInfo", "GetDeviceInformation",
            requestsCall<Onvif::DeviceInfo>([](Onvif::Requests& r) { return r.deviceInfo(); }), true },
        { "Requests::mediaAddr", "GetCapabilities",
            requestsCall<QString>([](Onvif::Requests& r) { return r.mediaAddr(); }), true },
        { "Requests::profiles", "GetProfiles",
            requestsCall<QVector<Onvif::OnvifProfileInfo>>(
                [](Onvif::Requests& r) { return r.profiles(QStringLiteral("/onvif/media_service")); }),
            true },
        { "Requests::rtspUrl", "GetStreamUri", requestsCall<QString>([profile](Onvif::Requests& r) {
             return r.rtspUrl(profile, QStringLiteral("/onvif/media_service"));
         }),
            true },
        { "OnvifProbe", "GetDeviceInformation",
            [](Camera& camera, QNetworkAccessManager& manager) {
                Run run;
                auto* probe = new Onvif::OnvifProbe(camera.host(), camera.port(),
                    QStringLiteral("onvif/device_service"), QStringLiteral("admin"), QStringLiteral("admin"),
                    &manager, std::chrono::milliseconds(kDelayMs / 2));
                run.owner.reset(probe);
                run.ownTimeoutMs = kDelayMs / 2;
                auto endings = run.endings;
                QObject::connect(probe, &Onvif::OnvifProbe::connected, [endings] { ++*endings; });
                QObject::connect(probe, &Onvif::OnvifProbe::finished, [endings] { ++*endings; });
                probe->start();
                return run;
            },
            true },
        // A snapshot URI request that fails is only logged.
        { "OnvifPreview", "GetSnapshotUri",
            [profile](Camera& camera, QNetworkAccessManager& manager) {
                Run run;
                auto* preview = new Onvif::OnvifPreview(&manager);
                run.owner.reset(preview);
                auto endings = run.endings;
                QObject::connect(preview, &Onvif::OnvifPreview::snapshotUri, [endings] { ++*endings; });
                preview->getSnapshotUri(QStringLiteral("admin"), QStringLiteral("admin"),
                    camera.serviceUrl(CameraSim::Service::Media), profile);
                return run;
            },
            false },
        { "OnvifDeviceInfo", "GetDeviceInformation",
            [](Camera& camera, QNetworkAccessManager& manager) {
                Run run;
                auto* info = new OnvifDeviceInfo(manager, nullptr);
                run.owner.reset(info);
                countSignals(run, info, &OnvifDeviceInfo::receiveDevInfo, &OnvifDeviceInfo::error);
                info->getDeviceInfo(
                    QUrl(camera.deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
                return run;
            },
            true },
        { "OnvifRTSP", "*",
            [](Camera& camera, QNetworkAccessManager& manager) {
                Run run;
                auto* rtsp = new OnvifRTSP(1, nullptr);
                run.owner.reset(rtsp);
                rtsp->setNetworkManager(manager);
                countSignals(run, rtsp, &OnvifRTSP::receiveRTSPList, &OnvifRTSP::error);
                rtsp->getRTSPList(QStringLiteral("admin"), QStringLiteral("admin"), camera.deviceUrl());
                return run;
            },
            true },
        { "OnvifPtzReq::checkCapability", "GetCapabilities",
            ptzCall<bool>([](OnvifPtzReq& p) { return p.checkCapability(); }, false), true },
        // The remaining PTZ calls go to the PTZ service, known after the capability check.
        { "OnvifPtzReq::reqTokens", "GetProfiles",
            ptzCall<QVector<PtzSys::Token>>([](OnvifPtzReq& p) { return p.reqTokens(); }), true },
        { "OnvifPtzReq::presets", "GetPresets",
            ptzCall<QVector<PtzSys::Preset>>([profile](OnvifPtzReq& p) { return p.presets(profile); }),
            true },
        { "OnvifPtzReq::gotoPreset", "GotoPreset",
            ptzCall<void>([profile](OnvifPtzReq& p) { return p.gotoPreset(profile, QStringLiteral("1")); }),
            true },
        { "OnvifPtzReq::continuousPos", "ContinuousMove",
            ptzCall<void>([profile](OnvifPtzReq& p) { return p.continuousPos(profile, 0.5f, 0.5f); }), true },
        { "OnvifPtzReq::stop", "Stop",
            ptzCall<void>([profile](OnvifPtzReq& p) { return p.stop(profile, true, true); }), true },
    };
}

struct Fault
{
    const char* name;
    FaultMode mode;
    int delayMs;
};

const Fault kFaults[] = {
    { "fault", FaultMode::SoapFault, 0 },
    { "http500", FaultMode::Http500, 0 },
    { "delay", FaultMode::None, kDelayMs },
    { "drop", FaultMode::Drop, 0 },
    { "truncate", FaultMode::Truncate, 0 },
    { "malformed", FaultMode::Malformed, 0 },
    { "emptyUri", FaultMode::EmptyUri, 0 },
    { "huge", FaultMode::Huge, 0 },
};

} // namespace

class TestFaultMatrix : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { m_camera.reset(); }
    void matrix_data();
    void matrix();
    void destroyedInFlight_data();
    void destroyedInFlight();

private:
    std::unique_ptr<Camera> m_camera;
};

void TestFaultMatrix::initTestCase()
{
    ZYRChecker::setKnownTexts({});
    m_camera = std::make_unique<Camera>();
    QString error;
    QVERIFY2(m_camera->start(&error), qPrintable(error));
}

void TestFaultMatrix::matrix_data()
{
    QTest::addColumn<int>("operation");
    QTest::addColumn<int>("fault");
    const QVector<Operation> all = operations();
    for (int o = 0; o < all.size(); ++o) {
        for (int f = 0; f < int(std::size(kFaults)); ++f)
            QTest::addRow("%s %s", all[o].name, kFaults[f].name) << o << f;
    }
}

void TestFaultMatrix::matrix()
{
    QFETCH(int, operation);
    QFETCH(int, fault);
    const Operation op = operations().at(operation);
    const Fault& faultRow = kFaults[fault];
    m_camera->clearFaults();

    CameraSim::FaultSpec spec;
    spec.mode = faultRow.mode;
    spec.delayMs = faultRow.delayMs;
    spec.hugeBytes = 2 * 1024 * 1024;
    m_camera->setFault(QString::fromLatin1(op.simOperation), spec);

    QNetworkAccessManager manager;
    const CameraQuiet cameraQuiet(*m_camera);
    QElapsedTimer sinceStart;
    sinceStart.start();
    Run run = op.start(*m_camera, manager);
    const bool silent = !op.endsOnFailure && faultRow.mode != FaultMode::None
        && faultRow.mode != FaultMode::Huge && faultRow.mode != FaultMode::EmptyUri;
    if (!silent)
        QTRY_VERIFY_WITH_TIMEOUT(*run.endings >= 1, 10000);
    // Late arrivals come from answers the camera has still to give, replies still open
    // and the operation's own timeout; once all of those are over nothing may end again.
    QVERIFY(settle([&] {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return cameraQuiet() && manager.findChildren<QNetworkReply*>().isEmpty()
            && sinceStart.elapsed() > run.ownTimeoutMs;
    }));
    QVERIFY2(*run.endings <= 1, qPrintable(QString::number(*run.endings)));
    if (!silent)
        QCOMPARE(*run.endings, 1);
    // A future fails when the exchange did: a fault (sent with HTTP 500), an HTTP error, a cut
    // connection; an error signal says it is a network error, the reply's status read first.
    const bool failed = faultRow.mode == FaultMode::SoapFault || faultRow.mode == FaultMode::Http500
        || faultRow.mode == FaultMode::Drop || faultRow.mode == FaultMode::Truncate;
    if (run.cancelled && failed)
        QVERIFY(*run.cancelled);
    if (run.errorCode && failed)
        QCOMPARE(*run.errorCode, 3u);

    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(manager.findChildren<QNetworkReply*>().size(), 0);
    if (run.owner) {
        for (const QTimer* timer : run.owner->findChildren<QTimer*>())
            QVERIFY2(!timer->isActive(), "a timer still runs after the operation ended");
    }
    run.owner.reset();
    if (run.destroy)
        run.destroy();
}

void TestFaultMatrix::destroyedInFlight_data()
{
    QTest::addColumn<int>("operation");
    const QVector<Operation> all = operations();
    for (int o = 0; o < all.size(); ++o)
        QTest::addRow("%s", all[o].name) << o;
}

void TestFaultMatrix::destroyedInFlight()
{
    QFETCH(int, operation);
    const Operation op = operations().at(operation);
    m_camera->clearFaults();
    CameraSim::FaultSpec spec;
    spec.delayMs = kDelayMs;
    m_camera->setFault(QStringLiteral("*"), spec);

    QNetworkAccessManager manager;
    const CameraQuiet cameraQuiet(*m_camera);
    Run run = op.start(*m_camera, manager);
    // Destroyed while the camera holds a request, i.e. with an answer surely pending.
    QTRY_VERIFY_WITH_TIMEOUT(!cameraQuiet(), 5000);
    auto endings = run.endings;
    run.owner.reset();
    if (run.destroy)
        run.destroy();
    QVERIFY(settle(cameraQuiet));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // Nothing ends after its owner is gone, and no reply outlives the wait.
    QCOMPARE(*endings, 0);
    QCOMPARE(manager.findChildren<QNetworkReply*>().size(), 0);
}

QTEST_GUILESS_MAIN(TestFaultMatrix)
#include "tst_faultMatrix.moc"
