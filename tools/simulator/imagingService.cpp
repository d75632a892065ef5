#include "cameraImpl.h"
#include "soapXml.h"

#include <algorithm>

namespace CameraSim {

namespace {

const char* const kLevels[] = { "Brightness", "ColorSaturation", "Contrast", "Sharpness" };

} // namespace

SoapReply Camera::Impl::imagingOperation(const SoapRequest& request)
{
    const QString& op = request.operation;
    SoapReply reply;
    auto respond = [&](const QString& inner) {
        reply.body = QStringLiteral("<timg:%1Response>%2</timg:%1Response>").arg(op, inner);
        return reply;
    };
    static const QStringList served = { QStringLiteral("GetImagingSettings"),
        QStringLiteral("SetImagingSettings"), QStringLiteral("GetOptions"), QStringLiteral("GetMoveOptions"),
        QStringLiteral("Move"), QStringLiteral("Stop"), QStringLiteral("GetStatus"),
        QStringLiteral("GetServiceCapabilities") };
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
    if (op == QLatin1String("SetImagingSettings")) {
        const QDomElement settings = Soap::child(request.body, "ImagingSettings");
        for (const char* name : kLevels) {
            bool ok = false;
            const double value = Soap::childText(settings, name).toDouble(&ok);
            if (ok && (value < 0 || value > 100))
                return fault(400, QStringLiteral("Sender"),
                    QStringLiteral("ter:InvalidArgVal/ter:SettingsInvalid"),
                    QStringLiteral("%1 out of range").arg(QLatin1String(name)));
            if (ok)
                imaging.insert(QLatin1String(name), value);
        }
        return respond(QString());
    }
    if (op == QLatin1String("GetImagingSettings")) {
        QString x;
        for (const char* name : kLevels)
            x += QStringLiteral("<tt:%1>%2</tt:%1>")
                     .arg(QLatin1String(name))
                     .arg(imaging.value(QLatin1String(name), 50));
        return respond(
            QStringLiteral("<timg:ImagingSettings>%1<tt:Focus><tt:AutoFocusMode>MANUAL</tt:AutoFocusMode>"
                           "</tt:Focus></timg:ImagingSettings>")
                .arg(x));
    }
    if (op == QLatin1String("GetOptions")) {
        QString x;
        for (const char* name : kLevels)
            x += QStringLiteral("<tt:%1><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:%1>")
                     .arg(QLatin1String(name));
        return respond(
            QStringLiteral("<timg:ImagingOptions>%1<tt:Focus><tt:AutoFocusModes>MANUAL</tt:AutoFocusModes>"
                           "</tt:Focus></timg:ImagingOptions>")
                .arg(x));
    }
    if (op == QLatin1String("GetMoveOptions")) {
        return respond(QStringLiteral(
            "<timg:MoveOptions><tt:Absolute><tt:Position><tt:Min>0</tt:Min><tt:Max>1</tt:Max></tt:Position>"
            "</tt:Absolute><tt:Relative><tt:Distance><tt:Min>-1</tt:Min><tt:Max>1</tt:Max></tt:Distance>"
            "</tt:Relative></timg:MoveOptions>"));
    }
    if (op == QLatin1String("Move")) {
        const QDomElement focus = Soap::child(request.body, "Focus");
        const QDomElement absolute = Soap::child(focus, "Absolute");
        const QDomElement relative = Soap::child(focus, "Relative");
        if (absolute.isNull() && relative.isNull())
            return fault(400, QStringLiteral("Sender"),
                QStringLiteral("ter:InvalidArgVal/ter:NoImagingForSource"),
                QStringLiteral("Only absolute and relative focus moves are supported"));
        const double focusAt = imaging.value(QStringLiteral("Focus"), 0);
        const double target = absolute.isNull() ? focusAt + Soap::childText(relative, "Distance").toDouble()
                                                : Soap::childText(absolute, "Position").toDouble();
        imaging.insert(QStringLiteral("Focus"), std::clamp(target, 0.0, 1.0));
        return respond(QString());
    }
    if (op == QLatin1String("Stop"))
        return respond(QString()); // focus moves complete at once
    return respond(
        QStringLiteral("<timg:Status><tt:FocusStatus20><tt:Position>%1</tt:Position><tt:MoveStatus>IDLE"
                       "</tt:MoveStatus></tt:FocusStatus20></timg:Status>")
            .arg(imaging.value(QStringLiteral("Focus"), 0)));
}

} // namespace CameraSim
