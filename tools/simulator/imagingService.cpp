#include "cameraImpl.h"
#include "soapXml.h"

#include <algorithm>
#include <cmath>

namespace CameraSim {

namespace {

// One setting of tt:ImagingSettings20 with what tt:ImagingOptions20 offers for it, in the order
// both schemas give (options mirror settings, under other names for a few).
struct Setting
{
    const char* group; // enclosing element, or empty
    const char* name; // element in the settings
    const char* option; // element in the options
    const char* modes; // allowed values separated by spaces; null for a number
    double min, max; // for a number
    const char* initial;
};

// Sharpness deliberately does not span 0..100, so that clients clamping to a guessed range are caught.
const Setting kSettings[] = {
    { "BacklightCompensation", "Mode", "Mode", "OFF ON", 0, 0, "OFF" },
    { "BacklightCompensation", "Level", "Level", nullptr, 0, 100, "0" },
    { "", "Brightness", "Brightness", nullptr, 0, 100, "50" },
    { "", "ColorSaturation", "ColorSaturation", nullptr, 0, 100, "50" },
    { "", "Contrast", "Contrast", nullptr, 0, 100, "50" },
    { "Exposure", "Mode", "Mode", "AUTO MANUAL", 0, 0, "AUTO" },
    { "Exposure", "MinExposureTime", "MinExposureTime", nullptr, 10, 40000, "10" },
    { "Exposure", "MaxExposureTime", "MaxExposureTime", nullptr, 10, 40000, "40000" },
    { "Exposure", "MinGain", "MinGain", nullptr, 0, 100, "0" },
    { "Exposure", "MaxGain", "MaxGain", nullptr, 0, 100, "100" },
    { "Exposure", "ExposureTime", "ExposureTime", nullptr, 10, 40000, "10000" },
    { "Exposure", "Gain", "Gain", nullptr, 0, 100, "50" },
    { "Focus", "AutoFocusMode", "AutoFocusModes", "AUTO MANUAL", 0, 0, "MANUAL" },
    { "Focus", "DefaultSpeed", "DefaultSpeed", nullptr, 0, 1, "0.5" },
    { "Focus", "NearLimit", "NearLimit", nullptr, 0, 3, "0.5" },
    { "Focus", "FarLimit", "FarLimit", nullptr, 0, 100, "0" },
    { "", "IrCutFilter", "IrCutFilterModes", "ON OFF AUTO", 0, 0, "AUTO" },
    { "", "Sharpness", "Sharpness", nullptr, 0, 15, "8" },
    { "WideDynamicRange", "Mode", "Mode", "OFF ON", 0, 0, "OFF" },
    { "WideDynamicRange", "Level", "Level", nullptr, 0, 100, "50" },
    { "WhiteBalance", "Mode", "Mode", "AUTO MANUAL", 0, 0, "AUTO" },
    { "WhiteBalance", "CrGain", "YrGain", nullptr, 0, 255, "128" },
    { "WhiteBalance", "CbGain", "YbGain", nullptr, 0, 255, "128" },
};

QString key(const Setting& s)
{
    return *s.group ? QStringLiteral("%1/%2").arg(QLatin1String(s.group), QLatin1String(s.name))
                    : QLatin1String(s.name);
}

QString initialOf(const QString& k)
{
    for (const Setting& s : kSettings) {
        if (key(s) == k)
            return QString::fromLatin1(s.initial);
    }
    return QString();
}

QString number(double v)
{
    return QString::number(v, 'g', 6);
}

QString tag(const char* name, const QString& text)
{
    return QStringLiteral("<tt:%1>%2</tt:%1>").arg(QLatin1String(name), text);
}

// Elements per setting, each group's run wrapped once in its element.
template <typename Item> QString grouped(Item item)
{
    QString x, run;
    const char* open = "";
    auto flush = [&] {
        x += *open ? tag(open, run) : run;
        run.clear();
    };
    for (const Setting& s : kSettings) {
        if (qstrcmp(s.group, open) != 0 || !*s.group) {
            flush();
            open = s.group;
        }
        run += item(s);
    }
    flush();
    return x;
}

const double kFocusMin = 0, kFocusMax = 1;

} // namespace

SoapReply Camera::Impl::imagingOperation(const SoapRequest& request)
{
    const QString& op = request.operation;
    SoapReply reply;
    auto respond = [&](const QString& inner) {
        reply.body = QStringLiteral("<timg:%1Response>%2</timg:%1Response>").arg(op, inner);
        return reply;
    };
    auto invalid = [this](const QString& reason) {
        return fault(
            400, QStringLiteral("Sender"), QStringLiteral("ter:InvalidArgVal/ter:SettingsInvalid"), reason);
    };
    static const QStringList served
        = { QStringLiteral("GetImagingSettings"), QStringLiteral("SetImagingSettings"),
              QStringLiteral("GetOptions"), QStringLiteral("GetMoveOptions"), QStringLiteral("Move"),
              QStringLiteral("Stop"), QStringLiteral("GetStatus"), QStringLiteral("GetServiceCapabilities") };
    if (!served.contains(op))
        return fault(500, QStringLiteral("Receiver"), QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("Optional Action Not Implemented: %1").arg(op));
    if (op == QLatin1String("GetServiceCapabilities")) // the same as GetServices tells
        return respond(QStringLiteral("<timg:Capabilities ImageStabilization=\"false\"/>"));
    // One video source, as GetVideoSources reports.
    if (Soap::childText(request.body, "VideoSourceToken") != QLatin1String("vsrc_0")
        || config.videoEncoders.isEmpty())
        return fault(400, QStringLiteral("Sender"), QStringLiteral("ter:InvalidArgVal/ter:NoSource"),
            QStringLiteral("No such video source"));

    std::lock_guard<std::mutex> lock(mutex);
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    // A continuous focus move runs until stopped, stopping at the ends of the range.
    if (focusSpeed != 0) {
        focusPosition
            = std::clamp(focusPosition + focusSpeed * (nowMs - focusSinceMs) / 1000.0, kFocusMin, kFocusMax);
        focusSinceMs = nowMs;
    }
    auto current = [this](const Setting& s) { return imaging.value(key(s), QString::fromLatin1(s.initial)); };

    if (op == QLatin1String("SetImagingSettings")) {
        // All or nothing: a refused value leaves every setting as it was.
        const QDomElement settings = Soap::child(request.body, "ImagingSettings");
        QHash<QString, QString> next = imaging;
        for (const Setting& s : kSettings) {
            const QDomElement parent = *s.group ? Soap::child(settings, s.group) : settings;
            const QDomElement e = Soap::child(parent, s.name);
            if (e.isNull())
                continue;
            const QString value = e.text().trimmed();
            if (s.modes) {
                if (!QString::fromLatin1(s.modes).split(QLatin1Char(' ')).contains(value))
                    return invalid(QStringLiteral("%1 %2 is not among the options").arg(key(s), value));
                next.insert(key(s), value);
                continue;
            }
            bool ok = false;
            const double v = value.toDouble(&ok);
            if (!ok || !std::isfinite(v) || v < s.min || v > s.max)
                return invalid(
                    QStringLiteral("%1 %2 outside %3..%4").arg(key(s), value, number(s.min), number(s.max)));
            next.insert(key(s), number(v));
        }
        auto at = [&next](const char* k) {
            return next.value(QLatin1String(k), initialOf(QLatin1String(k))).toDouble();
        };
        if (at("Exposure/MinExposureTime") > at("Exposure/MaxExposureTime"))
            return invalid(QStringLiteral("Exposure/MinExposureTime above Exposure/MaxExposureTime"));
        if (at("Exposure/MinGain") > at("Exposure/MaxGain"))
            return invalid(QStringLiteral("Exposure/MinGain above Exposure/MaxGain"));
        imaging = next;
        return respond(QString());
    }
    if (op == QLatin1String("GetImagingSettings")) {
        return respond(QStringLiteral("<timg:ImagingSettings>%1</timg:ImagingSettings>")
                           .arg(grouped([&](const Setting& s) { return tag(s.name, current(s)); })));
    }
    if (op == QLatin1String("GetOptions")) {
        const QString options = grouped([](const Setting& s) {
            if (!s.modes)
                return tag(s.option, tag("Min", number(s.min)) + tag("Max", number(s.max)));
            QString x;
            for (const QString& mode : QString::fromLatin1(s.modes).split(QLatin1Char(' ')))
                x += tag(s.option, mode);
            return x;
        });
        return respond(QStringLiteral("<timg:ImagingOptions>%1</timg:ImagingOptions>").arg(options));
    }
    if (op == QLatin1String("GetMoveOptions")) {
        return respond(QStringLiteral(
            "<timg:MoveOptions><tt:Absolute><tt:Position><tt:Min>0</tt:Min><tt:Max>1</tt:Max></tt:Position>"
            "<tt:Speed><tt:Min>0</tt:Min><tt:Max>1</tt:Max></tt:Speed></tt:Absolute><tt:Relative>"
            "<tt:Distance><tt:Min>-1</tt:Min><tt:Max>1</tt:Max></tt:Distance><tt:Speed><tt:Min>0</tt:Min>"
            "<tt:Max>1</tt:Max></tt:Speed></tt:Relative><tt:Continuous><tt:Speed><tt:Min>-1</tt:Min>"
            "<tt:Max>1</tt:Max></tt:Speed></tt:Continuous></timg:MoveOptions>"));
    }
    if (op == QLatin1String("Move")) {
        const QDomElement focus = Soap::child(request.body, "Focus");
        auto value = [](const QDomElement& parent, const char* name, double lo, double hi, double* v) {
            const QDomElement e = Soap::child(parent, name);
            if (e.isNull())
                return true;
            bool ok = false;
            *v = e.text().trimmed().toDouble(&ok);
            return ok && std::isfinite(*v) && *v >= lo && *v <= hi;
        };
        const struct
        {
            const char* move;
            const char* field;
            double lo, hi;
        } moves[] = { { "Absolute", "Position", 0, 1 }, { "Relative", "Distance", -1, 1 },
            { "Continuous", "Speed", -1, 1 } };
        for (const auto& m : moves) {
            const QDomElement e = Soap::child(focus, m.move);
            if (e.isNull())
                continue;
            double v = qQNaN(), speed = 1;
            if (!value(e, m.field, m.lo, m.hi, &v) || std::isnan(v))
                return invalid(
                    QStringLiteral("Focus %1 %2 missing or outside %3..%4")
                        .arg(QLatin1String(m.move), QLatin1String(m.field), number(m.lo), number(m.hi)));
            if (qstrcmp(m.move, "Continuous") != 0 && !value(e, "Speed", 0, 1, &speed))
                return invalid(QStringLiteral("Focus %1 Speed outside 0..1").arg(QLatin1String(m.move)));
            if (qstrcmp(m.move, "Continuous") == 0) {
                focusSpeed = v;
                focusSinceMs = nowMs;
            } else {
                focusSpeed = 0;
                focusPosition = qstrcmp(m.move, "Absolute") == 0
                    ? v
                    : std::clamp(focusPosition + v, kFocusMin, kFocusMax);
            }
            return respond(QString());
        }
        return invalid(QStringLiteral("Focus move without Absolute, Relative or Continuous"));
    }
    if (op == QLatin1String("Stop")) {
        focusSpeed = 0;
        return respond(QString());
    }
    return respond(
        QStringLiteral("<timg:Status><tt:FocusStatus20><tt:Position>%1</tt:Position><tt:MoveStatus>"
                       "%2</tt:MoveStatus><tt:Error></tt:Error></tt:FocusStatus20></timg:Status>")
            .arg(number(focusPosition), focusSpeed != 0 ? QStringLiteral("MOVING") : QStringLiteral("IDLE")));
}

} // namespace CameraSim
