#include "commands.h"

#include <QJsonArray>

#include <cmath>

namespace Cli {

namespace {

QString number(double value)
{
    return std::isnan(value) ? QStringLiteral("-") : QString::number(value, 'g', 6);
}

QString range(const Onvif::ImagingRange& r)
{
    return r.isValid() ? QStringLiteral("%1 to %2").arg(number(r.min), number(r.max)) : QStringLiteral("-");
}

QJsonValue jsonNumber(double value)
{
    return std::isnan(value) ? QJsonValue() : QJsonValue(value);
}

QJsonObject toJson(const Onvif::ImagingSettings& s)
{
    return QJsonObject { { "brightness", jsonNumber(s.brightness) }, { "contrast", jsonNumber(s.contrast) },
        { "saturation", jsonNumber(s.colorSaturation) }, { "sharpness", jsonNumber(s.sharpness) },
        { "ircut", s.irCutFilter }, { "exposure", s.exposureMode },
        { "exposureTime", jsonNumber(s.exposureTime) }, { "gain", jsonNumber(s.gain) },
        { "whiteBalance", s.whiteBalanceMode }, { "crGain", jsonNumber(s.crGain) },
        { "cbGain", jsonNumber(s.cbGain) }, { "focusMode", s.focusMode } };
}

QJsonValue toJson(const Onvif::ImagingRange& r)
{
    return r.isValid() ? QJsonValue(QJsonObject { { "min", r.min }, { "max", r.max } }) : QJsonValue();
}

QJsonObject toJson(const Onvif::ImagingOptions& o)
{
    return QJsonObject { { "brightness", toJson(o.brightness) }, { "contrast", toJson(o.contrast) },
        { "saturation", toJson(o.colorSaturation) }, { "sharpness", toJson(o.sharpness) },
        { "ircut", QJsonArray::fromStringList(o.irCutFilterModes) },
        { "exposure", QJsonArray::fromStringList(o.exposureModes) },
        { "exposureTime", toJson(o.exposureTime) }, { "gain", toJson(o.gain) },
        { "whiteBalance", QJsonArray::fromStringList(o.whiteBalanceModes) }, { "crGain", toJson(o.crGain) },
        { "cbGain", toJson(o.cbGain) }, { "focusMode", QJsonArray::fromStringList(o.focusModes) } };
}

void printSettings(const Onvif::ImagingSettings& s)
{
    const QList<QPair<QString, QString>> rows { { "brightness", number(s.brightness) },
        { "contrast", number(s.contrast) }, { "saturation", number(s.colorSaturation) },
        { "sharpness", number(s.sharpness) }, { "ircut", s.irCutFilter }, { "exposure", s.exposureMode },
        { "exposure-time", number(s.exposureTime) }, { "gain", number(s.gain) },
        { "white-balance", s.whiteBalanceMode }, { "cr-gain", number(s.crGain) },
        { "cb-gain", number(s.cbGain) }, { "focus-mode", s.focusMode } };
    for (const auto& row : rows)
        printLine(QStringLiteral("%1 %2")
                      .arg(row.first + QLatin1Char(':'), -15)
                      .arg(row.second.isEmpty() ? QStringLiteral("-") : row.second));
}

void printOptions(const Onvif::ImagingOptions& o)
{
    const auto modes = [](const QStringList& list) {
        return list.isEmpty() ? QStringLiteral("-") : list.join(QLatin1Char(' '));
    };
    const QList<QPair<QString, QString>> rows { { "brightness", range(o.brightness) },
        { "contrast", range(o.contrast) }, { "saturation", range(o.colorSaturation) },
        { "sharpness", range(o.sharpness) }, { "ircut", modes(o.irCutFilterModes) },
        { "exposure", modes(o.exposureModes) }, { "exposure-time", range(o.exposureTime) },
        { "gain", range(o.gain) }, { "white-balance", modes(o.whiteBalanceModes) },
        { "cr-gain", range(o.crGain) }, { "cb-gain", range(o.cbGain) },
        { "focus-mode", modes(o.focusModes) } };
    for (const auto& row : rows)
        printLine(QStringLiteral("%1 %2").arg(row.first + QLatin1Char(':'), -15).arg(row.second));
}

// NAME=VALUE into the change; false (and a message) for a name or value it cannot take.
bool parseSetting(const QString& argument, Onvif::ImagingSettings* change)
{
    const int equals = argument.indexOf(QLatin1Char('='));
    const QString name = argument.left(equals).toLower();
    const QString value = argument.mid(equals + 1);
    const QMap<QString, double*> numbers { { "brightness", &change->brightness },
        { "contrast", &change->contrast }, { "saturation", &change->colorSaturation },
        { "sharpness", &change->sharpness }, { "exposure-time", &change->exposureTime },
        { "gain", &change->gain }, { "cr-gain", &change->crGain }, { "cb-gain", &change->cbGain } };
    const QMap<QString, QString*> modes { { "ircut", &change->irCutFilter },
        { "exposure", &change->exposureMode }, { "white-balance", &change->whiteBalanceMode },
        { "focus-mode", &change->focusMode } };
    if (equals <= 0 || value.isEmpty()) {
        printError(QStringLiteral("imaging set takes NAME=VALUE, not %1").arg(argument));
        return false;
    }
    if (numbers.contains(name)) {
        bool ok = false;
        const double number = value.toDouble(&ok);
        if (!ok || !std::isfinite(number)) {
            printError(QStringLiteral("imaging set: %1 takes a number, not %2").arg(name, value));
            return false;
        }
        *numbers.value(name) = number;
        return true;
    }
    if (modes.contains(name)) {
        *modes.value(name) = value.toUpper();
        return true;
    }
    printError(QStringLiteral("imaging set: unknown setting %1; see imaging --help").arg(name));
    return false;
}

int focus(const Context& context, Onvif::Camera& camera, const QString& source, const QStringList& args)
{
    const QString action = args.value(0);
    int exitCode = Ok;
    if (action == QLatin1String("status")) {
        const QFuture<Onvif::FocusState> state = camera.focusStatus(source);
        if (!context.wait(camera, state, QStringLiteral("imaging focus status"), &exitCode))
            return exitCode;
        const Onvif::FocusState s = state.result();
        if (context.options.json)
            printJson(QJsonObject { { "position", jsonNumber(s.position) }, { "moveStatus", s.moveStatus },
                { "error", s.error } });
        else
            printLine(
                QStringLiteral("focus at %1, %2%3")
                    .arg(number(s.position), s.moveStatus.isEmpty() ? QStringLiteral("-") : s.moveStatus,
                        s.error.isEmpty() ? QString() : QStringLiteral(" (") + s.error + QLatin1Char(')')));
        return Ok;
    }
    static const QStringList moves { QStringLiteral("move"), QStringLiteral("absolute"),
        QStringLiteral("relative") };
    QFuture<void> done;
    if (action == QLatin1String("stop") && args.size() == 1) {
        done = camera.focusStop(source);
    } else if (moves.contains(action) && args.size() == 2) {
        bool ok = false;
        const double value = args.at(1).toDouble(&ok);
        if (!ok || !std::isfinite(value)) {
            printError(QStringLiteral("imaging focus %1 takes a number").arg(action));
            return BadArguments;
        }
        if (action == QLatin1String("move"))
            done = camera.focusContinuous(source, value);
        else if (action == QLatin1String("absolute"))
            done = camera.focusAbsolute(source, value);
        else
            done = camera.focusRelative(source, value);
    } else {
        printError(
            QStringLiteral("imaging focus takes move SPEED, absolute POS, relative DIST, stop or status"));
        return BadArguments;
    }
    if (!context.wait(camera, done, QStringLiteral("imaging focus ") + action, &exitCode))
        return exitCode;
    if (!context.options.json)
        printLine(QStringLiteral("focus %1: done").arg(action));
    return Ok;
}

} // namespace

int imaging(const Context& context, const QStringList& args)
{
    const QString action = args.value(0, QStringLiteral("show"));
    if (action != QLatin1String("show") && action != QLatin1String("options")
        && action != QLatin1String("set") && action != QLatin1String("focus")) {
        printError(
            QStringLiteral("imaging takes show, options, set NAME=VALUE... or focus ACTION; see --help"));
        return BadArguments;
    }
    Onvif::ImagingSettings change;
    if (action == QLatin1String("set")) {
        if (args.size() < 2) {
            printError(QStringLiteral("imaging set takes at least one NAME=VALUE"));
            return BadArguments;
        }
        for (const QString& argument : args.mid(1)) {
            if (!parseSetting(argument, &change))
                return BadArguments;
        }
    } else if (action != QLatin1String("focus") && args.size() > 1) {
        printError(QStringLiteral("imaging %1 takes no more arguments").arg(action));
        return BadArguments;
    }

    const auto camera = context.camera();
    QVector<Onvif::CameraProfile> all;
    int exitCode = Ok;
    if (!context.loadProfiles(*camera, &all, &exitCode))
        return exitCode;
    QVector<Onvif::CameraProfile> list = videoProfiles(all);
    if (!pickProfile(context, QStringLiteral("imaging"), &list))
        return BadArguments;
    const QString source = list.isEmpty() ? QString() : list.first().videoSourceToken;
    if (source.isEmpty()) {
        printError(QStringLiteral("imaging: the device names no video source in its profiles"));
        return DeviceFault;
    }
    if (action == QLatin1String("focus"))
        return focus(context, *camera, source, args.mid(1));
    if (action == QLatin1String("options")) {
        const QFuture<Onvif::ImagingOptions> options = camera->imagingOptions(source);
        if (!context.wait(*camera, options, QStringLiteral("imaging options"), &exitCode))
            return exitCode;
        if (context.options.json)
            printJson(QJsonObject { { "videoSource", source }, { "options", toJson(options.result()) } });
        else
            printOptions(options.result());
        return Ok;
    }
    QFuture<Onvif::ImagingSettings> settings;
    if (action == QLatin1String("set"))
        settings = camera->setImagingSettings(source, change,
            context.strict ? Onvif::Camera::OutOfRangePolicy::Refuse
                           : Onvif::Camera::OutOfRangePolicy::Clamp);
    else
        settings = camera->imagingSettings(source);
    if (!context.wait(*camera, settings, QStringLiteral("imaging ") + action, &exitCode))
        return exitCode;
    if (action == QLatin1String("set")) {
        // What the device has now, clamped values included.
        settings = camera->imagingSettings(source);
        if (!context.wait(*camera, settings, QStringLiteral("imaging settings"), &exitCode))
            return exitCode;
    }
    if (context.options.json)
        printJson(QJsonObject { { "videoSource", source }, { "settings", toJson(settings.result()) } });
    else
        printSettings(settings.result());
    return Ok;
}

} // namespace Cli
