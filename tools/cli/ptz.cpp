#include "commands.h"

#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/ptz/onvifPtzReq.h>
#include <onvifTypes/schema/tptz/AbsoluteMove.h>
#include <onvifTypes/schema/tptz/AbsoluteMoveResponse.h>
#include <onvifTypes/schema/tptz/GetStatus.h>
#include <onvifTypes/schema/tptz/GetStatusResponse.h>
#include <onvifTypes/schema/tptz/RelativeMove.h>
#include <onvifTypes/schema/tptz/RelativeMoveResponse.h>

#include <QJsonArray>
#include <QNetworkAccessManager>
#include <QRegularExpression>
#include <QSocketNotifier>
#include <QThread>

#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace Cli {

namespace {

bool toFloat(const QString& text, float* value)
{
    bool ok = false;
    *value = text.toFloat(&ok);
    return ok && std::isfinite(*value) && *value >= -1.0f && *value <= 1.0f;
}

// The PTZ requests do not read the body of an HTTP error, where a refused password is told;
// after such an error the device is asked once more, in a way that tells it.
bool refusedCredentials(const Context& context)
{
    const QRegularExpressionMatch http = QRegularExpression(QStringLiteral("network error\\. Code (\\d+)"))
                                             .match(context.log ? context.log->lastError() : QString());
    if (!http.hasMatch() || http.captured(1).toInt() < 200)
        return false;
    Onvif::Requests requests(
        context.options.user, context.options.password, context.url.toString(), context.options.verbose);
    configure(context.options, requests.networkManager());
    const QFuture<Onvif::DeviceInfo> info = requests.deviceInfo();
    return await(info, context.options.timeoutMs, QString()) && requests.isAuthFault();
}

// SIGINT and SIGTERM, while one lives, are noted (through a pipe, the only thing a signal
// handler may safely do) instead of ending the process.
class Interruption
{
public:
    Interruption()
    {
        if (pipe2(s_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
            return;
        m_notifier = std::make_unique<QSocketNotifier>(s_pipe[0], QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] {
            char byte;
            while (read(s_pipe[0], &byte, 1) > 0) { }
            m_happened = true;
        });
        struct sigaction action
        {
        };
        action.sa_handler = [](int) {
            const char byte = 1;
            (void)!write(s_pipe[1], &byte, 1);
        };
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &m_oldInt);
        sigaction(SIGTERM, &action, &m_oldTerm);
    }
    ~Interruption()
    {
        if (!m_notifier)
            return;
        sigaction(SIGINT, &m_oldInt, nullptr);
        sigaction(SIGTERM, &m_oldTerm, nullptr);
        m_notifier.reset();
        close(s_pipe[0]);
        close(s_pipe[1]);
    }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool happened() const { return m_happened; }

private:
    static inline int s_pipe[2] = { -1, -1 };
    std::unique_ptr<QSocketNotifier> m_notifier;
    struct sigaction m_oldInt
    {
    };
    struct sigaction m_oldTerm
    {
    };
    bool m_happened = false;
};

// Waits for one PTZ call; false (and *exitCode) when it failed or went unanswered. The
// device's fault, when it sent one, says why.
template <typename T>
bool finish(const Context& context, const PtzSys::OnvifPtzReq& req, const QFuture<T>& future,
    const QString& what, int* exitCode)
{
    const bool answered = await(future, context.options.timeoutMs, what);
    if (answered && !future.isCanceled())
        return true;
    const Onvif::SoapFault fault = answered ? req.lastFault() : Onvif::SoapFault();
    if (answered && fault.isNull() && fault.httpStatus != 401 && refusedCredentials(context)) {
        printError(
            QStringLiteral("%1: %2 refused the user name or password").arg(what, context.url.toString()));
        *exitCode = AuthFailed;
        return false;
    }
    *exitCode = context.failure(what, !answered, false, fault);
    return false;
}

// The calls that the PTZ requests do not offer, through the generic request path.
class PtzCall
{
public:
    PtzCall(const Context& context, QNetworkAccessManager* manager, const QString& url)
        : m_context(context)
        , m_manager(manager)
        , m_url(url)
        , m_security(context.options.user, context.options.password, 0LL)
    { }

    template <typename Req, typename Resp>
    bool run(Req& request, const QString& operation, Resp* response, int* exitCode)
    {
        // Shared with the handlers: a call given up on may still finish later.
        struct Seen
        {
            Onvif::SoapFault fault;
            bool authFault = false;
        };
        const auto seen = QSharedPointer<Seen>::create();
        const QFuture<Resp> future = Onvif::RequestHelper<Req, Resp, Resp>(
            request, operation, m_url, m_security, m_manager,
            [seen](Resp& r, bool auth, AsyncFuture::Deferred<Resp>& result) {
                seen->authFault = auth;
                result.complete(r);
            },
            m_context.options.verbose,
            [seen](const Onvif::Internal::ReplyOutcome& o) { seen->fault = o.fault; });
        const bool answered = await(future, m_context.options.timeoutMs, QStringLiteral("ptz"));
        if (answered && !future.isCanceled()) {
            *response = future.result();
            return true;
        }
        *exitCode = m_context.failure(QStringLiteral("ptz %1").arg(operation), !answered, seen->authFault,
            answered ? seen->fault : Onvif::SoapFault());
        return false;
    }

private:
    const Context& m_context;
    QNetworkAccessManager* m_manager;
    QString m_url;
    OnvifSecurity m_security;
};

QSharedPointer<tt::PTZVector> vector(float pan, float tilt, float zoom, bool withZoom)
{
    auto v = QSharedPointer<tt::PTZVector>::create();
    v->PanTilt = QSharedPointer<tt::Vector2D>::create();
    v->PanTilt->x.reset(new universalSimpleType<float>(pan));
    v->PanTilt->y.reset(new universalSimpleType<float>(tilt));
    if (withZoom) {
        v->Zoom = QSharedPointer<tt::Vector1D>::create();
        v->Zoom->x.reset(new universalSimpleType<float>(zoom));
    }
    return v;
}

// The token of a preset named by its token or by its name. A text that is neither goes to
// the camera as it is, which then answers for it. newest: the last preset of that name.
bool presetToken(const Context& context, PtzSys::OnvifPtzReq& req, const QString& profile,
    const QString& text, QString* token, int* exitCode, bool newest = false)
{
    const QFuture<QVector<PtzSys::Preset>> list = req.presets(profile);
    if (!finish(context, req, list, QStringLiteral("ptz presets"), exitCode))
        return false;
    QStringList named;
    for (const PtzSys::Preset& preset : list.result()) {
        if (preset.token == text && !newest) {
            *token = text;
            return true;
        }
        if (preset.name == text)
            named.append(preset.token);
    }
    if (named.size() > 1 && !newest) {
        printError(QStringLiteral("ptz: several presets are named %1 (tokens %2); give a token")
                       .arg(text, named.join(QLatin1String(", "))));
        *exitCode = BadArguments;
        return false;
    }
    *token = named.isEmpty() ? text : named.last();
    return true;
}

} // namespace

int ptz(const Context& context, const QString& profile, const QStringList& args)
{
    static const QMap<QString, QPair<int, int>> arity { { "move", { 2, 4 } }, { "stop", { 0, 0 } },
        { "status", { 0, 0 } }, { "absolute", { 2, 3 } }, { "relative", { 2, 3 } }, { "home", { 0, 0 } },
        { "save-home", { 0, 0 } }, { "presets", { 0, 0 } }, { "goto", { 1, 1 } }, { "set-preset", { 1, 2 } },
        { "remove-preset", { 1, 1 } } };
    const QString action = args.value(0);
    const QStringList rest = args.mid(1);
    if (!arity.contains(action) || rest.size() < arity[action].first || rest.size() > arity[action].second) {
        printError(QStringLiteral("ptz needs one of: move PAN TILT [ZOOM] [SECONDS], stop, status, "
                                  "absolute PAN TILT [ZOOM], relative PAN TILT [ZOOM], home, save-home, "
                                  "presets, goto PRESET, set-preset NAME [TOKEN], remove-preset PRESET"));
        return BadArguments;
    }
    float pan = 0, tilt = 0, zoom = 0;
    double seconds = 1.0;
    if (action == QLatin1String("move")) {
        bool ok = toFloat(rest[0], &pan) && toFloat(rest[1], &tilt)
            && (rest.size() < 3 || toFloat(rest[2], &zoom));
        if (rest.size() > 3)
            seconds = rest[3].toDouble(&ok) > 0 && ok ? rest[3].toDouble() : -1;
        if (!ok || seconds <= 0) {
            printError(QStringLiteral(
                "ptz move: speeds are numbers from -1 to 1, the time a positive number of seconds"));
            return BadArguments;
        }
    }
    const bool positional = action == QLatin1String("absolute") || action == QLatin1String("relative");
    if (positional
        && !(toFloat(rest[0], &pan) && toFloat(rest[1], &tilt)
            && (rest.size() < 3 || toFloat(rest[2], &zoom)))) {
        printError(QStringLiteral("ptz %1: positions and steps are numbers from -1 to 1").arg(action));
        return BadArguments;
    }

    Onvif::NetworkAccessManager manager;

    configure(context.options, &manager);
    PtzSys::OnvifPtzReq req(OnvifSecurity(context.options.user, context.options.password, 0LL),
        context.url.toString(), &manager, 0, nullptr);
    int exitCode = Ok;
    const QFuture<bool> capable = req.checkCapability();
    if (!finish(context, req, capable, QStringLiteral("ptz"), &exitCode))
        return exitCode;
    if (!capable.result()) {
        printError(QStringLiteral("ptz: %1 has no PTZ service").arg(context.url.toString()));
        return DeviceFault;
    }
    const QFuture<QVector<PtzSys::Token>> tokens = req.reqTokens();
    if (!finish(context, req, tokens, QStringLiteral("ptz profiles"), &exitCode))
        return exitCode;
    PtzSys::Token token;
    for (const PtzSys::Token& t : tokens.result()) {
        if (profile.isEmpty() || t.MediaProfileToken == profile) {
            token = t;
            break;
        }
    }
    if (token.MediaProfileToken.isEmpty()) {
        printError(profile.isEmpty()
                ? QStringLiteral("ptz: no profile of the device has a PTZ configuration")
                : QStringLiteral("ptz: profile %1 has no PTZ configuration").arg(profile));
        return profile.isEmpty() ? DeviceFault : BadArguments;
    }
    const QString p = token.MediaProfileToken;

    if (action == QLatin1String("status")) {
        PtzCall call(context, &manager, req.ptzUrl());
        tptz::GetStatus ask;
        ask.ProfileToken.reset(new universalSimpleType<QString>(p));
        tptz::GetStatusResponse answer;
        if (!call.run(ask, QStringLiteral("GetStatus"), &answer, &exitCode))
            return exitCode;
        const QSharedPointer<tt::PTZStatus> st = answer.PTZStatus;
        const QSharedPointer<tt::PTZVector> at = st ? st->Position : nullptr;
        const auto number = [](const QSharedPointer<universalSimpleType<float>>& v) {
            // As the camera wrote it, not the float's binary expansion.
            return v ? QJsonValue(QString::number(v->value(), 'g', 6).toDouble()) : QJsonValue();
        };
        const QSharedPointer<tt::PTZMoveStatus> moving = st ? st->MoveStatus : nullptr;
        const QJsonObject status { { "profile", p },
            { "pan", number(at && at->PanTilt ? at->PanTilt->x : nullptr) },
            { "tilt", number(at && at->PanTilt ? at->PanTilt->y : nullptr) },
            { "zoom", number(at && at->Zoom ? at->Zoom->x : nullptr) },
            { "panTiltMove", moving && moving->PanTilt ? moving->PanTilt->value() : QString() },
            { "zoomMove", moving && moving->Zoom ? moving->Zoom->value() : QString() },
            { "error", st && st->Error ? st->Error->value() : QString() },
            { "utcTime", st && st->UtcTime ? st->UtcTime->value() : QString() } };
        if (context.options.json) {
            printJson(status);
        } else {
            const auto text = [&](const char* key) {
                const QJsonValue v = status.value(QLatin1String(key));
                return v.isDouble() ? QString::number(v.toDouble()) : v.toString(QStringLiteral("-"));
            };
            printLine(
                QStringLiteral("%1: pan %2 tilt %3 zoom %4, pan-tilt %5, zoom %6%7")
                    .arg(p, text("pan"), text("tilt"), text("zoom"), text("panTiltMove"), text("zoomMove"),
                        status.value("error").toString().isEmpty()
                            ? QString()
                            : QStringLiteral(", error: ") + status.value("error").toString()));
        }
        return Ok;
    }
    if (positional) {
        PtzCall call(context, &manager, req.ptzUrl());
        const bool withZoom = rest.size() > 2;
        bool done = false;
        if (action == QLatin1String("absolute")) {
            tptz::AbsoluteMove move;
            move.ProfileToken.reset(new universalSimpleType<QString>(p));
            move.Position = vector(pan, tilt, zoom, withZoom);
            tptz::AbsoluteMoveResponse answer;
            done = call.run(move, QStringLiteral("AbsoluteMove"), &answer, &exitCode);
        } else {
            tptz::RelativeMove move;
            move.ProfileToken.reset(new universalSimpleType<QString>(p));
            move.Translation = vector(pan, tilt, zoom, withZoom);
            tptz::RelativeMoveResponse answer;
            done = call.run(move, QStringLiteral("RelativeMove"), &answer, &exitCode);
        }
        if (!done)
            return exitCode;
        if (context.options.json)
            printJson(QJsonObject { { "profile", p }, { "action", action }, { "done", true } });
        else
            printLine(
                QStringLiteral("%1 moves %2 pan %3 tilt %4%5.")
                    .arg(p, action == QLatin1String("absolute") ? QStringLiteral("to") : QStringLiteral("by"))
                    .arg(pan)
                    .arg(tilt)
                    .arg(withZoom ? QStringLiteral(" zoom %1").arg(zoom) : QString()));
        return Ok;
    }

    if (action == QLatin1String("presets")) {
        const QFuture<QVector<PtzSys::Preset>> list = req.presets(p);
        if (!finish(context, req, list, QStringLiteral("ptz presets"), &exitCode))
            return exitCode;
        QJsonArray array;
        for (const PtzSys::Preset& preset : list.result()) {
            if (context.options.json)
                array.append(QJsonObject { { "token", preset.token }, { "name", preset.name },
                    { "pan", preset.pan }, { "tilt", preset.tilt }, { "zoom", preset.zoom } });
            else
                printLine(QStringLiteral("%1  %2  pan %3 tilt %4 zoom %5")
                              .arg(preset.token, -12)
                              .arg(preset.name, -16)
                              .arg(preset.pan)
                              .arg(preset.tilt)
                              .arg(preset.zoom));
        }
        if (context.options.json)
            printJson(QJsonObject { { "profile", p }, { "presets", array } });
        else if (list.result().isEmpty())
            printLine(QStringLiteral("No presets on %1.").arg(p));
        return Ok;
    }

    QFuture<void> done;
    QString message;
    if (action == QLatin1String("move")) {
        if (!finish(context, req, req.continuousPos(p, pan, tilt), QStringLiteral("ptz move"), &exitCode))
            return exitCode;
        if (zoom != 0
            && !finish(context, req, req.continuousZoom(p, zoom), QStringLiteral("ptz zoom"), &exitCode))
            return exitCode;
        // Interrupted, the camera must not go on moving: Ctrl-C ends the wait, not the stop.
        const Interruption interruption;
        awaitCondition([&] { return interruption.happened(); }, int(seconds * 1000), QString());
        done = req.stop(p, true, true);
        if (interruption.happened()) {
            if (finish(context, req, done, QStringLiteral("ptz stop"), &exitCode))
                printError(QStringLiteral("interrupted; %1 stopped").arg(p));
            return exitCode == Ok ? 130 : exitCode;
        }
        message = QStringLiteral("Moved %1 for %2 s and stopped.").arg(p).arg(seconds);
    } else if (action == QLatin1String("stop")) {
        done = req.stop(p, true, true);
        message = QStringLiteral("Stopped %1.").arg(p);
    } else if (action == QLatin1String("home")) {
        done = req.toHome(p, 0, 0);
        message = QStringLiteral("%1 goes home.").arg(p);
    } else if (action == QLatin1String("save-home")) {
        done = req.saveAsHome(p);
        message = QStringLiteral("The position of %1 is its home now.").arg(p);
    } else if (action == QLatin1String("goto")) {
        QString preset;
        if (!presetToken(context, req, p, rest[0], &preset, &exitCode))
            return exitCode;
        done = req.gotoPreset(p, preset);
        message = QStringLiteral("%1 goes to preset %2.").arg(p, rest[0]);
    } else if (action == QLatin1String("set-preset")) {
        done = req.setPreset(p, rest.size() > 1 ? rest[1] : QString(), rest[0]);
        message = QStringLiteral("Preset %1 saved on %2.").arg(rest[0], p);
    } else {
        QString preset;
        if (!presetToken(context, req, p, rest[0], &preset, &exitCode))
            return exitCode;
        done = req.delPreset(p, preset);
        message = QStringLiteral("Preset %1 removed from %2.").arg(rest[0], p);
    }
    if (!finish(context, req, done, QStringLiteral("ptz %1").arg(action), &exitCode))
        return exitCode;
    QJsonObject result { { "profile", p }, { "action", action }, { "done", true } };
    if (action == QLatin1String("set-preset")) {
        // The camera chose the token; it is what goto and remove-preset are given later.
        QString token = rest.size() > 1 ? rest[1] : QString();
        if (token.isEmpty() && !presetToken(context, req, p, rest[0], &token, &exitCode, true))
            return exitCode;
        result.insert("token", token);
        message = QStringLiteral("Preset %1 saved on %2 as %3.").arg(rest[0], p, token);
    }
    if (context.options.json)
        printJson(result);
    else
        printLine(message);
    return Ok;
}

} // namespace Cli
