#include "commands.h"

#include <onvifTypes/schema/tptz/AbsoluteMove.h>
#include <onvifTypes/schema/tptz/AbsoluteMoveResponse.h>
#include <onvifTypes/schema/tptz/RelativeMove.h>
#include <onvifTypes/schema/tptz/RelativeMoveResponse.h>
#include <onvifTypes/schema/tptz/RemovePreset.h>
#include <onvifTypes/schema/tptz/RemovePresetResponse.h>
#include <onvifTypes/schema/tptz/SetHomePosition.h>
#include <onvifTypes/schema/tptz/SetHomePositionResponse.h>
#include <onvifTypes/schema/tptz/SetPreset.h>
#include <onvifTypes/schema/tptz/SetPresetResponse.h>

#include <QJsonArray>

#include <cmath>
#include <memory>

namespace Cli {

namespace {

bool toFloat(const QString& text, float* value)
{
    bool ok = false;
    *value = text.toFloat(&ok);
    return ok && std::isfinite(*value) && *value >= -1.0f && *value <= 1.0f;
}

// The token of a preset named by its token or by its name. A text that is neither goes to
// the camera as it is, which then answers for it. newest: the last preset of that name.
bool presetToken(const Context& context, Onvif::Camera& camera, const QString& profile, const QString& text,
    QString* token, int* exitCode, bool newest = false)
{
    const QFuture<QVector<PtzSys::Preset>> list = camera.ptzPresets(profile);
    if (!context.wait(camera, list, QStringLiteral("ptz presets"), exitCode))
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

// As the camera wrote it, not the float's binary expansion.
double shown(double value)
{
    return QString::number(value, 'g', 6).toDouble();
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
    const bool positional = action == QLatin1String("absolute") || action == QLatin1String("relative");
    if (action == QLatin1String("move") || positional) {
        bool ok = toFloat(rest[0], &pan) && toFloat(rest[1], &tilt)
            && (rest.size() < 3 || toFloat(rest[2], &zoom));
        if (rest.size() > 3)
            seconds = rest[3].toDouble(&ok) > 0 && ok ? rest[3].toDouble() : -1;
        if (!ok || seconds <= 0) {
            printError(positional
                    ? QStringLiteral("ptz %1: positions and steps are numbers from -1 to 1").arg(action)
                    : QStringLiteral("ptz move: speeds are numbers from -1 to 1, the time a positive "
                                     "number of seconds"));
            return BadArguments;
        }
    }

    const auto camera = context.camera();
    QVector<Onvif::CameraProfile> profiles;
    int exitCode = Ok;
    if (!context.loadProfiles(*camera, &profiles, &exitCode))
        return exitCode;
    if (camera->connection().services.ptz.isEmpty()) {
        printError(QStringLiteral("ptz: %1 has no PTZ service").arg(context.url.toString()));
        return DeviceFault;
    }
    QString p;
    for (const Onvif::CameraProfile& candidate : qAsConst(profiles)) {
        if (candidate.ptz && (profile.isEmpty() || candidate.token == profile)) {
            p = candidate.token;
            break;
        }
    }
    if (p.isEmpty()) {
        printError(profile.isEmpty()
                ? QStringLiteral("ptz: no profile of the device has a PTZ configuration")
                : QStringLiteral("ptz: profile %1 has no PTZ configuration").arg(profile));
        return profile.isEmpty() ? DeviceFault : BadArguments;
    }
    const QString what = QStringLiteral("ptz %1").arg(action);
    const auto done
        = [&](const QFuture<void>& future) { return context.wait(*camera, future, what, &exitCode); };

    if (action == QLatin1String("status")) {
        const QFuture<Onvif::PtzState> status = camera->ptzStatus(p);
        if (!context.wait(*camera, status, what, &exitCode))
            return exitCode;
        const Onvif::PtzState s = status.result();
        const QJsonObject o { { "profile", p }, { "pan", shown(s.pan) }, { "tilt", shown(s.tilt) },
            { "zoom", shown(s.zoom) }, { "panTiltMove", s.panTiltMove }, { "zoomMove", s.zoomMove },
            { "error", s.error } };
        if (context.options.json)
            printJson(o);
        else
            printLine(QStringLiteral("%1: pan %2 tilt %3 zoom %4, pan-tilt %5, zoom %6%7")
                          .arg(p)
                          .arg(shown(s.pan))
                          .arg(shown(s.tilt))
                          .arg(shown(s.zoom))
                          .arg(s.panTiltMove.isEmpty() ? QStringLiteral("-") : s.panTiltMove,
                              s.zoomMove.isEmpty() ? QStringLiteral("-") : s.zoomMove,
                              s.error.isEmpty() ? QString() : QStringLiteral(", error: ") + s.error));
        return Ok;
    }
    if (action == QLatin1String("presets")) {
        const QFuture<QVector<PtzSys::Preset>> list = camera->ptzPresets(p);
        if (!context.wait(*camera, list, what, &exitCode))
            return exitCode;
        QJsonArray array;
        for (const PtzSys::Preset& preset : list.result()) {
            if (context.options.json)
                array.append(QJsonObject { { "token", preset.token }, { "name", preset.name },
                    { "pan", shown(preset.pan) }, { "tilt", shown(preset.tilt) },
                    { "zoom", shown(preset.zoom) } });
            else
                printLine(QStringLiteral("%1  %2  pan %3 tilt %4 zoom %5")
                              .arg(preset.token, -12)
                              .arg(preset.name, -16)
                              .arg(shown(preset.pan))
                              .arg(shown(preset.tilt))
                              .arg(shown(preset.zoom)));
        }
        if (context.options.json)
            printJson(QJsonObject { { "profile", p }, { "presets", array } });
        else if (list.result().isEmpty())
            printLine(QStringLiteral("No presets on %1.").arg(p));
        return Ok;
    }

    QString message;
    QJsonObject result { { "profile", p }, { "action", action }, { "done", true } };
    if (action == QLatin1String("move")) {
        if (!done(camera->ptzMove(p, pan, tilt, zoom)))
            return exitCode;
        // Interrupted, the camera must not go on moving: Ctrl-C ends the wait, not the stop.
        const Interruption interruption;
        awaitCondition([&] { return interruption.happened(); }, int(seconds * 1000), QString());
        const bool stopped = done(camera->ptzStop(p));
        if (interruption.happened()) {
            if (stopped)
                printError(QStringLiteral("interrupted; %1 stopped").arg(p));
            return stopped ? 130 : exitCode;
        }
        if (!stopped)
            return exitCode;
        message = QStringLiteral("Moved %1 for %2 s and stopped.").arg(p).arg(seconds);
    } else if (action == QLatin1String("stop")) {
        if (!done(camera->ptzStop(p)))
            return exitCode;
        message = QStringLiteral("Stopped %1.").arg(p);
    } else if (positional) {
        const bool withZoom = rest.size() > 2;
        QFuture<void> moved;
        if (action == QLatin1String("absolute")) {
            tptz::AbsoluteMove move;
            move.ProfileToken.reset(new universalSimpleType<QString>(p));
            move.Position = vector(pan, tilt, zoom, withZoom);
            moved = QFuture<void>(camera->call<tptz::AbsoluteMove, tptz::AbsoluteMoveResponse>(
                Onvif::Camera::Service::Ptz, move, QStringLiteral("AbsoluteMove")));
        } else {
            tptz::RelativeMove move;
            move.ProfileToken.reset(new universalSimpleType<QString>(p));
            move.Translation = vector(pan, tilt, zoom, withZoom);
            moved = QFuture<void>(camera->call<tptz::RelativeMove, tptz::RelativeMoveResponse>(
                Onvif::Camera::Service::Ptz, move, QStringLiteral("RelativeMove")));
        }
        if (!done(moved))
            return exitCode;
        message
            = QStringLiteral("%1 moves %2 pan %3 tilt %4%5.")
                  .arg(p, action == QLatin1String("absolute") ? QStringLiteral("to") : QStringLiteral("by"))
                  .arg(pan)
                  .arg(tilt)
                  .arg(withZoom ? QStringLiteral(" zoom %1").arg(zoom) : QString());
    } else if (action == QLatin1String("home")) {
        if (!done(camera->ptzHome(p)))
            return exitCode;
        message = QStringLiteral("%1 goes home.").arg(p);
    } else if (action == QLatin1String("save-home")) {
        tptz::SetHomePosition home;
        home.ProfileToken.reset(new universalSimpleType<QString>(p));
        if (!done(QFuture<void>(camera->call<tptz::SetHomePosition, tptz::SetHomePositionResponse>(
                Onvif::Camera::Service::Ptz, home, QStringLiteral("SetHomePosition")))))
            return exitCode;
        message = QStringLiteral("The position of %1 is its home now.").arg(p);
    } else if (action == QLatin1String("goto")) {
        QString preset;
        if (!presetToken(context, *camera, p, rest[0], &preset, &exitCode)
            || !done(camera->ptzGotoPreset(p, preset)))
            return exitCode;
        message = QStringLiteral("%1 goes to preset %2.").arg(p, rest[0]);
    } else if (action == QLatin1String("set-preset")) {
        tptz::SetPreset set;
        set.ProfileToken.reset(new universalSimpleType<QString>(p));
        set.PresetName.reset(new universalSimpleType<QString>(rest[0]));
        if (rest.size() > 1)
            set.PresetToken.reset(new universalSimpleType<QString>(rest[1]));
        const QFuture<tptz::SetPresetResponse> saved = camera->call<tptz::SetPreset, tptz::SetPresetResponse>(
            Onvif::Camera::Service::Ptz, set, QStringLiteral("SetPreset"));
        if (!context.wait(*camera, saved, what, &exitCode))
            return exitCode;
        // The camera chose the token; it is what goto and remove-preset are given later.
        const auto token = saved.result().PresetToken;
        const QString chosen = token ? token->value() : rest.value(1);
        result.insert("token", chosen);
        message = QStringLiteral("Preset %1 saved on %2 as %3.").arg(rest[0], p, chosen);
    } else {
        QString preset;
        if (!presetToken(context, *camera, p, rest[0], &preset, &exitCode))
            return exitCode;
        tptz::RemovePreset remove;
        remove.ProfileToken.reset(new universalSimpleType<QString>(p));
        remove.PresetToken.reset(new universalSimpleType<QString>(preset));
        if (!done(QFuture<void>(camera->call<tptz::RemovePreset, tptz::RemovePresetResponse>(
                Onvif::Camera::Service::Ptz, remove, QStringLiteral("RemovePreset")))))
            return exitCode;
        message = QStringLiteral("Preset %1 removed from %2.").arg(rest[0], p);
    }
    if (context.options.json)
        printJson(result);
    else
        printLine(message);
    return Ok;
}

} // namespace Cli
