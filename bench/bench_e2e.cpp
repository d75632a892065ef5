// bench_e2e: the client side of whole ONVIF exchanges against a fleet of simulated
// cameras running in another process (onvif-camera-sim on 127.0.0.1), so that
// getrusage(RUSAGE_SELF) counts the client only.
//
// Fleet: every camera at once, GetDeviceInformation + GetProfiles + GetStreamUri per
// video profile, through each library path and through a bare QNetworkAccessManager +
// QDom client (the baseline), interleaved round by round. Sequential: wall time per
// operation against one camera for every request path, keep-alive and "Connection: Close".

#include "bareSoap.h"

#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifPreview.h>
#include <onvifTypes/onvifRTSP.h>
#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/ptz/onvifPtzReq.h>

#include <asyncfuture.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDomDocument>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryFile>
#include <QTimer>
#include <QUrl>

#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>

#include <sched.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

namespace {

const QString kUser = QStringLiteral("admin");
const QString kPassword = QStringLiteral("admin");
const QString kMediaNs = QStringLiteral("http://www.onvif.org/ver10/media/wsdl");
const QString kSchemaNs = QStringLiteral("http://www.onvif.org/ver10/schema");
const QString kDeviceNs = QStringLiteral("http://www.onvif.org/ver10/device/wsdl");

// User and system CPU seconds of this process so far.
std::pair<double, double> cpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return { double(usage.ru_utime.tv_sec) + double(usage.ru_utime.tv_usec) / 1e6,
        double(usage.ru_stime.tv_sec) + double(usage.ru_stime.tv_usec) / 1e6 };
}

long peakRssKb()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

long residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    return statm.readAll().split(' ').value(1).toLong() * sysconf(_SC_PAGESIZE);
}

// The simulated cameras in a child process that stops by itself at the latest after
// the given time, and at once when this object goes.
class SimulatorProcess
{
public:
    bool start(const QString& program, int cameras, int seconds)
    {
        // A camera serves each kept-alive connection with a thread of its own until it
        // times out; the paths measured one after the other leave several open. With
        // few threads a path would wait for the connections of the path before it.
        if (!m_config.open())
            return false;
        m_config.write(R"({"maxThreads": 16})");
        m_config.close();
        m_process.setProgram(program);
        m_process.setArguments(
            { QStringLiteral("--cameras"), QString::number(cameras), QStringLiteral("--duration"),
                QString::number(seconds), QStringLiteral("--config"), m_config.fileName() });
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        // The cameras inherit the CPUs this thread has when it starts them.
        cpu_set_t client;
        const bool pinned = sched_getaffinity(0, sizeof client, &client) == 0 && CPU_COUNT(&client) == 1;
        if (pinned) {
            cpu_set_t cameras;
            CPU_ZERO(&cameras);
            for (int cpu = 0, n = get_nprocs(); cpu < n; ++cpu) {
                if (!CPU_ISSET(cpu, &client))
                    CPU_SET(cpu, &cameras);
            }
            sched_setaffinity(0, sizeof cameras, &cameras);
        }
        m_process.start();
        if (pinned)
            sched_setaffinity(0, sizeof client, &client);
        if (!m_process.waitForStarted(10000))
            return false;
        while (m_process.waitForReadyRead(30000) || m_process.canReadLine()) {
            while (m_process.canReadLine()) {
                const QList<QByteArray> words = m_process.readLine().trimmed().split(' ');
                if (words.value(0) == "camera")
                    m_urls.append(QString::fromLatin1(words.value(3)));
                else if (words.value(0) == "ready")
                    return m_urls.size() == cameras;
            }
        }
        return false;
    }
    ~SimulatorProcess()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(20000))
            m_process.kill();
        m_process.waitForFinished(5000);
    }
    const QStringList& urls() const { return m_urls; }

private:
    QTemporaryFile m_config;
    QProcess m_process;
    QStringList m_urls;
};

// Counts down the operations of one round and ends its event loop.
struct Round
{
    QEventLoop loop;
    int pendingCameras = 0;
    int operations = 0;
    int failures = 0;
    void cameraDone()
    {
        if (--pendingCameras == 0)
            loop.quit();
    }
    void run(int cameras, const std::function<void()>& start)
    {
        pendingCameras = cameras;
        QTimer::singleShot(0, &loop, start);
        QTimer::singleShot(300000, &loop, &QEventLoop::quit);
        loop.exec();
        failures += pendingCameras;
    }
};

// ---- the bare client -------------------------------------------------------------

QNetworkReply* barePost(QNetworkAccessManager& manager, const QString& url, const QString& body, bool close)
{
    QNetworkRequest request { QUrl(url) };
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    if (close)
        request.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("Close"));
    return manager.post(request, Bench::bareEnvelope(kUser, kPassword, body).toUtf8());
}

// Parses the reply and hands its document to next; null when it failed.
void bareReply(QNetworkReply* reply, const std::function<void(QDomDocument*)>& next)
{
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, next]() {
        reply->deleteLater();
        QDomDocument document;
        const bool ok
            = document.setContent(reply->readAll(), true) && reply->error() == QNetworkReply::NoError;
        next(ok ? &document : nullptr);
    });
}

QString firstText(QDomDocument& document, const QString& ns, const QString& localName)
{
    return document.elementsByTagNameNS(ns, localName).item(0).toElement().text();
}

// The video profiles, one per encoder, as the library lists them.
QStringList bareProfileTokens(QDomDocument& document)
{
    QStringList tokens;
    QSet<QString> encoders;
    const QDomNodeList profiles = document.elementsByTagNameNS(kMediaNs, QStringLiteral("Profiles"));
    for (int i = 0; i < profiles.size(); ++i) {
        const QDomElement profile = profiles.item(i).toElement();
        const QDomElement encoder
            = profile.elementsByTagNameNS(kSchemaNs, QStringLiteral("VideoEncoderConfiguration"))
                  .item(0)
                  .toElement();
        const QString token = encoder.attribute(QStringLiteral("token"));
        if (encoder.isNull() || encoders.contains(token))
            continue;
        encoders.insert(token);
        tokens.append(profile.attribute(QStringLiteral("token")));
    }
    return tokens;
}

void bareCamera(QNetworkAccessManager& manager, const QString& url, bool close, Round& round)
{
    bareReply(barePost(manager, url, Bench::getDeviceInformationBody(), close),
        [&, url, close](QDomDocument* info) {
            if (!info || firstText(*info, kDeviceNs, QStringLiteral("Manufacturer")).isEmpty()) {
                ++round.failures;
                round.cameraDone();
                return;
            }
            ++round.operations;
            bareReply(
                barePost(manager, url, Bench::getProfilesBody(), close), [&, url, close](QDomDocument* list) {
                    const QStringList tokens = list ? bareProfileTokens(*list) : QStringList();
                    if (tokens.isEmpty()) {
                        ++round.failures;
                        round.cameraDone();
                        return;
                    }
                    ++round.operations;
                    auto remaining = std::make_shared<int>(tokens.size());
                    for (const QString& token : tokens) {
                        bareReply(barePost(manager, url, Bench::getStreamUriBody(token), close),
                            [&round, remaining](QDomDocument* uri) {
                                if (uri && !firstText(*uri, kSchemaNs, QStringLiteral("Uri")).isEmpty())
                                    ++round.operations;
                                else
                                    ++round.failures;
                                if (--*remaining == 0)
                                    round.cameraDone();
                            });
                    }
                });
        });
}

// The PTZ layer's calls, bare: the PTZ address from GetCapabilities, the first profile
// with a PTZ configuration, its presets; every request with "Connection: Close", as the layer sends them.
void barePtzCamera(QNetworkAccessManager& manager, const QString& url, Round& round)
{
    const auto fail = [&round] {
        ++round.failures;
        round.cameraDone();
    };
    bareReply(barePost(manager, url, Bench::getPtzCapabilitiesBody(), true), [&, fail](QDomDocument* caps) {
        const QDomElement ptz = caps
            ? caps->elementsByTagNameNS(kSchemaNs, QStringLiteral("PTZ")).item(0).toElement()
            : QDomElement();
        const QString ptzUrl = ptz.firstChildElement().text();
        if (ptzUrl.isEmpty())
            return fail();
        ++round.operations;
        bareReply(
            barePost(manager, ptzUrl, Bench::getProfilesBody(), true), [&, fail, ptzUrl](QDomDocument* list) {
                QString token;
                const QDomNodeList profiles
                    = list ? list->elementsByTagNameNS(kMediaNs, QStringLiteral("Profiles")) : QDomNodeList();
                for (int i = 0; i < profiles.size() && token.isEmpty(); ++i) {
                    const QDomElement profile = profiles.item(i).toElement();
                    if (!profile.elementsByTagNameNS(kSchemaNs, QStringLiteral("PTZConfiguration")).isEmpty())
                        token = profile.attribute(QStringLiteral("token"));
                }
                if (token.isEmpty())
                    return fail();
                ++round.operations;
                bareReply(barePost(manager, ptzUrl, Bench::getPresetsBody(token), true),
                    [&, fail](QDomDocument* presets) {
                        if (!presets)
                            return fail();
                        ++round.operations;
                        round.cameraDone();
                    });
            });
    });
}

// ---- the library paths -----------------------------------------------------------

void requestsCamera(Onvif::Requests& requests, Round& round)
{
    auto fail = [&round]() {
        ++round.failures;
        round.cameraDone();
    };
    AsyncFuture::observe(requests.deviceInfo())
        .subscribe(
            [&, fail](Onvif::DeviceInfo) {
                ++round.operations;
                AsyncFuture::observe(requests.profiles(QString()))
                    .subscribe(
                        [&, fail](QVector<Onvif::OnvifProfileInfo> profiles) {
                            if (profiles.isEmpty())
                                return fail();
                            ++round.operations;
                            auto remaining = std::make_shared<int>(profiles.size());
                            for (const Onvif::OnvifProfileInfo& profile : profiles) {
                                AsyncFuture::observe(requests.rtspUrl(profile.token, QString()))
                                    .subscribe(
                                        [&round, remaining](QString uri) {
                                            if (uri.isEmpty())
                                                ++round.failures;
                                            else
                                                ++round.operations;
                                            if (--*remaining == 0)
                                                round.cameraDone();
                                        },
                                        [&round, remaining]() {
                                            ++round.failures;
                                            if (--*remaining == 0)
                                                round.cameraDone();
                                        });
                            }
                        },
                        fail);
            },
            fail);
}

// OnvifDeviceInfo, then OnvifRTSP's list (GetProfiles and every GetStreamUri).
struct ServicesCamera
{
    ServicesCamera(QNetworkAccessManager& manager, const QString& url, int channel)
        : info(manager, nullptr)
        , rtsp(channel, nullptr)
        , url(url)
    {
        rtsp.setNetworkManager(manager);
    }
    void start(Round& round)
    {
        auto fail = [&round](unsigned int, const QString&) {
            ++round.failures;
            round.cameraDone();
        };
        QObject::connect(&info, &OnvifDeviceInfo::error, &round.loop, fail);
        QObject::connect(&rtsp, &OnvifRTSP::error, &round.loop, fail);
        QObject::connect(
            &info, &OnvifDeviceInfo::receiveDevInfo, &round.loop, [this, &round](Onvif::DeviceInfo) {
                ++round.operations;
                rtsp.getRTSPList(kUser, kPassword, url);
            });
        QObject::connect(&rtsp, &OnvifRTSP::receiveRTSPList, &round.loop,
            [&round](const QVector<Onvif::OnvifProfileInfo>& list) {
                round.operations += 1 + list.size();
                round.cameraDone();
            });
        info.getDeviceInfo(QUrl(url), kUser, kPassword);
    }
    OnvifDeviceInfo info;
    OnvifRTSP rtsp;
    QString url;
};

// GetCapabilities, GetProfiles and GetPresets of the first PTZ profile.
void ptzCamera(PtzSys::OnvifPtzReq& ptz, Round& round)
{
    auto fail = [&round]() {
        ++round.failures;
        round.cameraDone();
    };
    AsyncFuture::observe(ptz.checkCapability())
        .subscribe(
            [&, fail](bool) {
                ++round.operations;
                AsyncFuture::observe(ptz.reqTokens())
                    .subscribe(
                        [&, fail](QVector<PtzSys::Token> tokens) {
                            if (tokens.isEmpty())
                                return fail();
                            ++round.operations;
                            AsyncFuture::observe(ptz.presets(tokens.first().MediaProfileToken))
                                .subscribe(
                                    [&round](QVector<PtzSys::Preset>) {
                                        ++round.operations;
                                        round.cameraDone();
                                    },
                                    fail);
                        },
                        fail);
            },
            fail);
}

// ---- measuring -------------------------------------------------------------------

struct Figure
{
    double cpu = 0;
    double sys = 0; // the kernel's part of cpu
    double wall = 0;
    int operations = 0;
    int failures = 0;
    double cpuPerOp() const { return operations ? cpu / operations : 0; }
};

// One client path over the whole fleet: start(round) starts every camera.
struct FleetPath
{
    FleetPath(const QString& name, const std::function<void(Round&)>& start)
        : name(name)
        , start(start)
    { }
    QString name;
    std::function<void(Round&)> start;
    Figure figure;
};

void measureRound(FleetPath& path, int cameras)
{
    Round round;
    QElapsedTimer wall;
    const auto cpu0 = cpuSeconds();
    wall.start();
    round.run(cameras, [&]() { path.start(round); });
    // Replies released with deleteLater() belong to this round, not to the next path's.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    path.figure.wall += double(wall.nsecsElapsed()) / 1e9;
    const auto cpu1 = cpuSeconds();
    path.figure.cpu += cpu1.first - cpu0.first + cpu1.second - cpu0.second;
    path.figure.sys += cpu1.second - cpu0.second;
    path.figure.operations += round.operations;
    path.figure.failures += round.failures;
}

void printFleet(const std::vector<FleetPath>& paths, int cameras, int rounds, const Figure& baseline)
{
    std::printf("\nfleet of %d cameras, %d rounds, all cameras in flight at once\n", cameras, rounds);
    std::printf("  %-40s %6s %10s %9s %10s %8s %8s %5s\n", "path", "ops", "ms CPU/op", "of it sys",
        "ops/CPU-s", "wall s", "ratio", "fail");
    // The PTZ layer's calls are compared with the bare client making the same calls.
    const Figure* ptzBaseline = &baseline;
    for (const FleetPath& p : paths) {
        if (p.name.contains(QLatin1String("PTZ baseline")))
            ptzBaseline = &p.figure;
    }
    for (const FleetPath& p : paths) {
        const Figure& f = p.figure;
        const Figure& base = p.name.contains(QLatin1String("PTZ ops")) ? *ptzBaseline : baseline;
        std::printf("  %-40s %6d %10.3f %9.3f %10.0f %8.2f %8.2f %5d\n", qPrintable(p.name), f.operations,
            f.cpuPerOp() * 1e3, f.operations ? f.sys / f.operations * 1e3 : 0.0,
            f.cpu > 0 ? f.operations / f.cpu : 0.0, f.wall,
            base.cpuPerOp() > 0 ? f.cpuPerOp() / base.cpuPerOp() : 0.0, f.failures);
        std::printf("E2E fleet=%d path=%s ms_cpu_per_op=%.4f ops=%d failures=%d wall_s=%.3f\n", cameras,
            qPrintable(p.name), f.cpuPerOp() * 1e3, f.operations, f.failures, f.wall);
    }
    std::printf("  peak RSS so far: %ld KiB\n", peakRssKb());
}

// The managers the lent-manager paths are measured with.
struct Managers
{
    std::vector<std::pair<QString, std::function<std::unique_ptr<QNetworkAccessManager>()>>> kinds {
        { QStringLiteral("QNAM"), [] { return std::make_unique<QNetworkAccessManager>(); } },
        { QStringLiteral("OnvifNAM"), [] { return std::make_unique<Onvif::NetworkAccessManager>(); } },
    };
};

void runFleet(const QString& simulator, int cameras, int rounds, const QRegularExpression& only)
{
    SimulatorProcess sim;
    if (!sim.start(simulator, cameras, 1800)) {
        std::fprintf(stderr, "the simulator did not start %d cameras\n", cameras);
        return;
    }
    const QStringList& urls = sim.urls();
    std::vector<std::unique_ptr<Onvif::Requests>> requests;
    for (const QString& url : urls)
        requests.push_back(std::make_unique<Onvif::Requests>(kUser, kPassword, url, false));

    std::vector<std::unique_ptr<QNetworkAccessManager>> managers;
    std::vector<std::unique_ptr<ServicesCamera>> services;
    std::vector<std::unique_ptr<PtzSys::OnvifPtzReq>> ptz;
    std::vector<FleetPath> paths;
    QNetworkAccessManager bareManager;
    paths.push_back({ QStringLiteral("bare QNAM+QDom, Close (baseline)"), [&](Round& r) {
                         for (const QString& url : urls)
                             bareCamera(bareManager, url, true, r);
                     } });
    paths.push_back({ QStringLiteral("bare QNAM+QDom, keep-alive"), [&](Round& r) {
                         for (const QString& url : urls)
                             bareCamera(bareManager, url, false, r);
                     } });
    paths.push_back({ QStringLiteral("Onvif::Requests"), [&](Round& r) {
                         for (auto& camera : requests)
                             requestsCamera(*camera, r);
                     } });
    const Managers kinds;
    for (const auto& kind : kinds.kinds) {
        managers.push_back(kind.second());
        QNetworkAccessManager& manager = *managers.back();
        const size_t first = services.size();
        for (int i = 0; i < urls.size(); ++i)
            services.push_back(std::make_unique<ServicesCamera>(manager, urls.at(i), i));
        const size_t count = size_t(urls.size());
        paths.push_back({ QStringLiteral("OnvifDeviceInfo+OnvifRTSP, ") + kind.first,
            [&services, first, count](Round& r) {
                for (size_t i = first; i < first + count; ++i)
                    services.at(i)->start(r);
            } });
    }
    const OnvifSecurity security(kUser, kPassword, 0);
    paths.push_back({ QStringLiteral("bare QNAM+QDom PTZ ops (PTZ baseline)"), [&](Round& r) {
                         for (const QString& url : urls)
                             barePtzCamera(bareManager, url, r);
                     } });
    for (size_t k = 0; k < kinds.kinds.size(); ++k) {
        QNetworkAccessManager* manager = managers.at(k).get();
        const size_t first = ptz.size();
        for (int i = 0; i < urls.size(); ++i)
            ptz.push_back(std::make_unique<PtzSys::OnvifPtzReq>(security, urls.at(i), manager, i));
        const size_t count = size_t(urls.size());
        paths.push_back({ QStringLiteral("PtzSys::OnvifPtzReq (PTZ ops), ") + kinds.kinds.at(k).first,
            [&ptz, first, count](Round& r) {
                for (size_t i = first; i < first + count; ++i)
                    ptzCamera(*ptz.at(i), r);
            } });
    }

    // The baseline always runs: every ratio needs it.
    paths.erase(std::remove_if(paths.begin() + 1, paths.end(),
                    [&](const FleetPath& p) {
                        return !only.match(p.name).hasMatch()
                            && !p.name.contains(QLatin1String("PTZ baseline"));
                    }),
        paths.end());

    // Every round starts without idle connections, whatever ran before it and however long
    // a round of the whole fleet takes: kept-alive connections left by one path would hold
    // the cameras' threads in the next, and survive between rounds only in small fleets.
    const auto closeIdle = [&] {
        bareManager.clearConnectionCache();
        for (const auto& manager : managers) {
            if (auto* own = qobject_cast<Onvif::NetworkAccessManager*>(manager.get()))
                own->clearConnectionCache();
            else
                manager->clearConnectionCache();
        }
        QEventLoop settle;
        QTimer::singleShot(50, &settle, &QEventLoop::quit);
        settle.exec();
    };
    // One untimed round per path: plugins, caches.
    for (FleetPath& p : paths) {
        FleetPath warm(p.name, p.start);
        closeIdle();
        measureRound(warm, urls.size());
    }
    for (int r = 0; r < rounds; ++r) {
        for (FleetPath& p : paths) {
            closeIdle();
            measureRound(p, urls.size());
        }
    }
    printFleet(paths, cameras, rounds, paths.front().figure);
}

// ---- sequential wall time --------------------------------------------------------

// Runs op n times one after the other; op calls done() when its answer is in.
// Returns the median wall time of one call in ms.
double sequential(int n, const std::function<void(const std::function<void()>&, QObject*)>& op)
{
    std::vector<double> times;
    for (int i = 0; i <= n; ++i) {
        QEventLoop loop;
        QElapsedTimer timer;
        timer.start();
        op([&loop]() { loop.quit(); }, &loop);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        loop.exec();
        if (i > 0) // the first one opens the connection
            times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times.empty() ? 0 : times[times.size() / 2];
}

void printSequential(const QString& name, double ms)
{
    std::printf("  %-52s %8.2f ms\n", qPrintable(name), ms);
    std::printf("E2E sequential path=%s ms_wall_per_op=%.3f\n",
        qPrintable(QString(name).replace(QLatin1Char(' '), QLatin1Char('_'))), ms);
}

void runSequential(const QString& simulator, int n)
{
    SimulatorProcess sim;
    if (!sim.start(simulator, 1, 600)) {
        std::fprintf(stderr, "the simulator did not start\n");
        return;
    }
    const QString url = sim.urls().first();
    std::printf("\nsequential requests to one camera, median wall time per operation (%d each)\n", n);

    for (const bool close : { false, true }) {
        QNetworkAccessManager manager;
        printSequential(QStringLiteral("bare GetDeviceInformation, ") + (close ? "Close" : "keep-alive"),
            sequential(n, [&](const std::function<void()>& done, QObject*) {
                bareReply(barePost(manager, url, Bench::getDeviceInformationBody(), close),
                    [done](QDomDocument*) { done(); });
            }));
    }
    {
        Onvif::Requests requests(kUser, kPassword, url, false);
        printSequential(QStringLiteral("Requests deviceInfo (Close)"),
            sequential(n, [&](const std::function<void()>& done, QObject*) {
                AsyncFuture::observe(requests.deviceInfo())
                    .subscribe([done](Onvif::DeviceInfo) { done(); }, done);
            }));
        printSequential(QStringLiteral("Requests rtspUrl (Close)"),
            sequential(n, [&](const std::function<void()>& done, QObject*) {
                AsyncFuture::observe(requests.rtspUrl(QStringLiteral("prof_main"), QString()))
                    .subscribe([done](QString) { done(); }, done);
            }));
    }
    const Managers kinds;
    for (const auto& kind : kinds.kinds) {
        const std::unique_ptr<QNetworkAccessManager> manager = kind.second();
        const QString with = QStringLiteral(", lent ") + kind.first;
        {
            OnvifDeviceInfo info(*manager, nullptr);
            printSequential(QStringLiteral("OnvifDeviceInfo") + with,
                sequential(n, [&](const std::function<void()>& done, QObject* context) {
                    QObject::connect(&info, &OnvifDeviceInfo::receiveDevInfo, context, done);
                    QObject::connect(&info, &OnvifDeviceInfo::error, context, done);
                    info.getDeviceInfo(QUrl(url), kUser, kPassword);
                }));
        }
        {
            OnvifRTSP rtsp(0, nullptr);
            rtsp.setNetworkManager(*manager);
            int ops = 1;
            const double list = sequential(n, [&](const std::function<void()>& done, QObject* context) {
                QObject::connect(&rtsp, &OnvifRTSP::receiveRTSPList, context,
                    [&ops, done](const QVector<Onvif::OnvifProfileInfo>& l) {
                        ops = 1 + l.size();
                        done();
                    });
                QObject::connect(&rtsp, &OnvifRTSP::error, context, done);
                rtsp.getRTSPList(kUser, kPassword, url);
            });
            printSequential(
                QStringLiteral("OnvifRTSP list (GetProfiles + %1 GetStreamUri)").arg(ops - 1) + with, list);
        }
        {
            Onvif::OnvifPreview preview(kUser, kPassword, url, manager.get());
            QString snapshot;
            printSequential(QStringLiteral("OnvifPreview getSnapshotUri") + with,
                sequential(n, [&](const std::function<void()>& done, QObject* context) {
                    QObject::connect(&preview, &Onvif::OnvifPreview::snapshotUri, context,
                        [&snapshot, done](const QString& uri) {
                            snapshot = uri;
                            done();
                        });
                    preview.getSnapshotUri(QStringLiteral("prof_main"));
                }));
            printSequential(QStringLiteral("OnvifPreview downloadImage (GET)") + with,
                sequential(n, [&](const std::function<void()>& done, QObject* context) {
                    QObject::connect(&preview, &Onvif::OnvifPreview::image, context, done);
                    preview.downloadImage(snapshot);
                }));
        }
        {
            const OnvifSecurity security(kUser, kPassword, 0);
            PtzSys::OnvifPtzReq ptz(security, url, manager.get(), 0);
            sequential(0, [&](const std::function<void()>& done, QObject*) {
                AsyncFuture::observe(ptz.checkCapability()).subscribe([done](bool) { done(); }, done);
            });
            printSequential(QStringLiteral("OnvifPtzReq presets (Close)") + with,
                sequential(n, [&](const std::function<void()>& done, QObject*) {
                    AsyncFuture::observe(ptz.presets(QStringLiteral("prof_main")))
                        .subscribe([done](QVector<PtzSys::Preset>) { done(); }, done);
                }));
        }
    }
}

// Resident memory of idle Onvif::Requests objects.
void runIdleMemory(int count)
{
    auto warm = std::make_unique<Onvif::Requests>(
        kUser, kPassword, QStringLiteral("http://127.0.0.1:1/onvif/device_service"), false);
    const long before = residentBytes();
    std::vector<std::unique_ptr<Onvif::Requests>> objects;
    for (int i = 0; i < count; ++i)
        objects.push_back(std::make_unique<Onvif::Requests>(kUser, kPassword,
            QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(10000 + i), false));
    const long after = residentBytes();
    std::printf("\nidle Onvif::Requests: %d objects, %.0f bytes resident each\n", count,
        double(after - before) / count);
    std::printf("E2E idle_requests_bytes=%.0f\n", double(after - before) / count);
}

// Only the Requests path, for a profiler; --toggle-collect=*profiledRequestsRounds*.
__attribute__((noinline)) void profiledRequestsRounds(std::vector<FleetPath>& paths, int cameras, int rounds)
{
    for (int r = 0; r < rounds; ++r)
        measureRound(paths.front(), cameras);
}

__attribute__((noinline)) void profiledBareRounds(std::vector<FleetPath>& paths, int cameras, int rounds)
{
    for (int r = 0; r < rounds; ++r)
        measureRound(paths.back(), cameras);
}

void runProfile(const QString& simulator, int cameras, int rounds)
{
    SimulatorProcess sim;
    if (!sim.start(simulator, cameras, 3600))
        return;
    const QStringList& urls = sim.urls();
    std::vector<std::unique_ptr<Onvif::Requests>> requests;
    for (const QString& url : urls)
        requests.push_back(std::make_unique<Onvif::Requests>(kUser, kPassword, url, false));
    QNetworkAccessManager bareManager;
    std::vector<FleetPath> paths;
    paths.push_back({ QStringLiteral("Onvif::Requests"), [&](Round& r) {
                         for (auto& camera : requests)
                             requestsCamera(*camera, r);
                     } });
    paths.push_back({ QStringLiteral("bare"), [&](Round& r) {
                         for (const QString& url : urls)
                             bareCamera(bareManager, url, true, r);
                     } });
    measureRound(paths.front(), cameras);
    measureRound(paths.back(), cameras);
    paths.front().figure = paths.back().figure = Figure();
    profiledRequestsRounds(paths, cameras, rounds);
    profiledBareRounds(paths, cameras, rounds);
    printFleet(paths, cameras, rounds, paths.back().figure);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Client CPU, wall time and memory of whole ONVIF exchanges."));
    parser.addHelpOption();
    const QCommandLineOption simOption(
        QStringLiteral("simulator"), QStringLiteral("onvif-camera-sim program."), QStringLiteral("path"));
    const QCommandLineOption fleetsOption(QStringLiteral("fleets"),
        QStringLiteral("Camera counts, comma separated."), QStringLiteral("list"), QStringLiteral("20,200"));
    const QCommandLineOption roundsOption(QStringLiteral("rounds"),
        QStringLiteral("Timed rounds per path for 20 cameras (fewer for larger fleets)."),
        QStringLiteral("n"), QStringLiteral("10"));
    const QCommandLineOption sequentialOption(QStringLiteral("sequential"),
        QStringLiteral("Sequential calls per path (0: skip)."), QStringLiteral("n"), QStringLiteral("20"));
    const QCommandLineOption profileOption(QStringLiteral("profile"),
        QStringLiteral("Only n rounds of the Requests and bare paths (for callgrind)."), QStringLiteral("n"));
    const QCommandLineOption pathsOption(QStringLiteral("paths"),
        QStringLiteral("Only the fleet paths whose names match this pattern, besides the baselines."),
        QStringLiteral("regex"), QStringLiteral("."));
    const QCommandLineOption sharedCpuOption(QStringLiteral("shared-cpus"),
        QStringLiteral("Let the client and the simulated cameras share every CPU."));
    parser.addOptions({ simOption, fleetsOption, roundsOption, sequentialOption, profileOption, pathsOption,
        sharedCpuOption });
    parser.process(app);

    // The client gets a CPU of its own and the simulated cameras the others: cameras on the
    // client's CPU would bill it for their cache misses and context switches, which grow with
    // the fleet (200 cameras are 3,200 threads).
    if (get_nprocs() >= 2 && !parser.isSet(sharedCpuOption)) {
        cpu_set_t client;
        CPU_ZERO(&client);
        CPU_SET(0, &client);
        if (sched_setaffinity(0, sizeof client, &client) == 0)
            std::printf("client on CPU 0, simulated cameras on CPUs 1-%d\n", get_nprocs() - 1);
    }

    // A host that keeps errors only, as a fleet client would in production.
    boost::log::core::get()->set_filter(
        boost::log::expressions::attr<unsigned int>("Severity") >= unsigned(OnvifLog::Error));

    const QString simulator = parser.value(simOption);
    if (simulator.isEmpty()) {
        std::fprintf(stderr, "--simulator <path of onvif-camera-sim> is needed\n");
        return 2;
    }
    const QList<QString> fleets = parser.value(fleetsOption).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (parser.isSet(profileOption)) {
        runProfile(simulator, fleets.value(0).toInt(), parser.value(profileOption).toInt());
        return 0;
    }
    runIdleMemory(1000);
    const int rounds = parser.value(roundsOption).toInt();
    for (const QString& count : fleets) {
        const int cameras = count.toInt();
        runFleet(simulator, cameras, std::max(3, rounds * 20 / std::max(20, cameras)),
            QRegularExpression(parser.value(pathsOption)));
    }
    if (parser.value(sequentialOption).toInt() > 0)
        runSequential(simulator, parser.value(sequentialOption).toInt());
    std::printf("\npeak RSS: %ld KiB\n", peakRssKb());
    return 0;
}
