// The session's imaging operations (Imaging service, ver20).
#include "onvifTypes/schema/timg/GetImagingSettings.h"
#include "onvifTypes/schema/timg/GetImagingSettingsResponse.h"
#include "onvifTypes/schema/timg/GetOptions.h"
#include "onvifTypes/schema/timg/GetOptionsResponse.h"
#include "onvifTypes/schema/timg/GetStatus.h"
#include "onvifTypes/schema/timg/GetStatusResponse.h"
#include "onvifTypes/schema/timg/Move.h"
#include "onvifTypes/schema/timg/MoveResponse.h"
#include "onvifTypes/schema/timg/SetImagingSettings.h"
#include "onvifTypes/schema/timg/SetImagingSettingsResponse.h"
#include "onvifTypes/schema/timg/Stop.h"
#include "onvifTypes/schema/timg/StopResponse.h"
#include "onvifTypes/session/camera_p.h"

#include <QPointer>

namespace Onvif {

namespace {

using Number = QSharedPointer<universalSimpleType<float>>;

double number(const Number& value)
{
    return value ? double(value->value()) : qQNaN();
}

void setNumber(Number& target, double value)
{
    if (!qIsNaN(value))
        target.reset(new universalSimpleType<float>(float(value)));
}

template <typename Enum> QString mode(const QSharedPointer<Enum>& value)
{
    return value ? value->value() : QString();
}

template <typename Enum> void setMode(QSharedPointer<Enum>& target, const QString& value)
{
    if (value.isEmpty())
        return;
    if (!target)
        target.reset(new Enum);
    target->setValue(value);
}

ImagingRange range(const QSharedPointer<tt::FloatRange>& r)
{
    ImagingRange out;
    if (r) {
        out.min = number(r->Min);
        out.max = number(r->Max);
    }
    return out;
}

template <typename Enum> QStringList modes(const QVector<Enum>& list)
{
    QStringList out;
    for (const Enum& item : list)
        out.append(item.value());
    return out;
}

ImagingSettings fromSchema(const tt::ImagingSettings20& s)
{
    ImagingSettings out;
    out.brightness = number(s.Brightness);
    out.contrast = number(s.Contrast);
    out.colorSaturation = number(s.ColorSaturation);
    out.sharpness = number(s.Sharpness);
    out.irCutFilter = mode(s.IrCutFilter);
    if (const auto& e = s.Exposure) {
        out.exposureMode = mode(e->Mode);
        out.exposureTime = number(e->ExposureTime);
        out.gain = number(e->Gain);
    }
    if (const auto& w = s.WhiteBalance) {
        out.whiteBalanceMode = mode(w->Mode);
        out.crGain = number(w->CrGain);
        out.cbGain = number(w->CbGain);
    }
    if (s.Focus)
        out.focusMode = mode(s.Focus->AutoFocusMode);
    return out;
}

ImagingOptions fromSchema(const tt::ImagingOptions20& o)
{
    ImagingOptions out;
    out.brightness = range(o.Brightness);
    out.contrast = range(o.Contrast);
    out.colorSaturation = range(o.ColorSaturation);
    out.sharpness = range(o.Sharpness);
    if (o.IrCutFilterModes)
        out.irCutFilterModes = modes(*o.IrCutFilterModes);
    if (const auto& e = o.Exposure) {
        out.exposureModes = modes(e->Mode);
        out.exposureTime = range(e->ExposureTime);
        out.gain = range(e->Gain);
    }
    if (const auto& w = o.WhiteBalance) {
        out.whiteBalanceModes = modes(w->Mode);
        out.crGain = range(w->YrGain);
        out.cbGain = range(w->YbGain);
    }
    if (o.Focus && o.Focus->AutoFocusModes)
        out.focusModes = modes(*o.Focus->AutoFocusModes);
    return out;
}

// Brings change within options; the first value that cannot be is named in *problem.
ImagingSettings checked(
    ImagingSettings change, const ImagingOptions& options, Camera::OutOfRangePolicy policy, QString* problem)
{
    const auto within = [&](double& value, const ImagingRange& r, const char* name) {
        if (qIsNaN(value) || !r.isValid() || (value >= r.min && value <= r.max) || !problem->isEmpty())
            return;
        if (policy == Camera::OutOfRangePolicy::Clamp)
            value = qBound(r.min, value, r.max);
        else
            *problem = QStringLiteral("%1 %2 is outside the device's range %3 to %4")
                           .arg(QLatin1String(name))
                           .arg(value)
                           .arg(r.min)
                           .arg(r.max);
    };
    const auto listed = [&](const QString& value, const QStringList& allowed, const char* name) {
        if (value.isEmpty() || allowed.isEmpty() || allowed.contains(value) || !problem->isEmpty())
            return;
        *problem = QStringLiteral("%1 %2 is not among the device's modes (%3)")
                       .arg(QLatin1String(name), value, allowed.join(QLatin1String(", ")));
    };
    within(change.brightness, options.brightness, "brightness");
    within(change.contrast, options.contrast, "contrast");
    within(change.colorSaturation, options.colorSaturation, "color saturation");
    within(change.sharpness, options.sharpness, "sharpness");
    within(change.exposureTime, options.exposureTime, "exposure time");
    within(change.gain, options.gain, "gain");
    within(change.crGain, options.crGain, "Cr gain");
    within(change.cbGain, options.cbGain, "Cb gain");
    listed(change.irCutFilter, options.irCutFilterModes, "IR cut filter mode");
    listed(change.exposureMode, options.exposureModes, "exposure mode");
    listed(change.whiteBalanceMode, options.whiteBalanceModes, "white balance mode");
    listed(change.focusMode, options.focusModes, "focus mode");
    return change;
}

// The device's current settings with the change applied: what it does not set stays as it was.
void apply(const ImagingSettings& c, tt::ImagingSettings20& s)
{
    setNumber(s.Brightness, c.brightness);
    setNumber(s.Contrast, c.contrast);
    setNumber(s.ColorSaturation, c.colorSaturation);
    setNumber(s.Sharpness, c.sharpness);
    setMode(s.IrCutFilter, c.irCutFilter);
    if (!c.exposureMode.isEmpty() || !qIsNaN(c.exposureTime) || !qIsNaN(c.gain)) {
        if (!s.Exposure)
            s.Exposure.reset(new tt::Exposure20);
        setMode(s.Exposure->Mode, c.exposureMode);
        setNumber(s.Exposure->ExposureTime, c.exposureTime);
        setNumber(s.Exposure->Gain, c.gain);
    }
    if (!c.whiteBalanceMode.isEmpty() || !qIsNaN(c.crGain) || !qIsNaN(c.cbGain)) {
        if (!s.WhiteBalance)
            s.WhiteBalance.reset(new tt::WhiteBalance20);
        setMode(s.WhiteBalance->Mode, c.whiteBalanceMode);
        setNumber(s.WhiteBalance->CrGain, c.crGain);
        setNumber(s.WhiteBalance->CbGain, c.cbGain);
    }
    if (!c.focusMode.isEmpty()) {
        if (!s.Focus)
            s.Focus.reset(new tt::FocusConfiguration20);
        setMode(s.Focus->AutoFocusMode, c.focusMode);
    }
}

} // namespace

QFuture<ImagingSettings> Camera::imagingSettings(const QString& videoSourceToken)
{
    timg::GetImagingSettings ask;
    ask.VideoSourceToken->setValue(videoSourceToken);
    return AsyncFuture::observe(call<timg::GetImagingSettings, timg::GetImagingSettingsResponse>(
                                    Service::Imaging, ask, QStringLiteral("GetImagingSettings")))
        .subscribe([](const timg::GetImagingSettingsResponse& r) {
            return r.ImagingSettings ? fromSchema(*r.ImagingSettings) : ImagingSettings();
        })
        .future();
}

QFuture<ImagingOptions> Camera::imagingOptions(const QString& videoSourceToken)
{
    timg::GetOptions ask;
    ask.VideoSourceToken->setValue(videoSourceToken);
    return AsyncFuture::observe(
        call<timg::GetOptions, timg::GetOptionsResponse>(Service::Imaging, ask, QStringLiteral("GetOptions")))
        .subscribe([](const timg::GetOptionsResponse& r) {
            return r.ImagingOptions ? fromSchema(*r.ImagingOptions) : ImagingOptions();
        })
        .future();
}

QFuture<ImagingSettings> Camera::setImagingSettings(
    const QString& videoSourceToken, const ImagingSettings& change, OutOfRangePolicy policy)
{
    AsyncFuture::Deferred<ImagingSettings> result;
    timg::GetImagingSettings current;
    current.VideoSourceToken->setValue(videoSourceToken);
    const QFuture<timg::GetImagingSettingsResponse> settings
        = call<timg::GetImagingSettings, timg::GetImagingSettingsResponse>(
            Service::Imaging, current, QStringLiteral("GetImagingSettings"));
    const QFuture<ImagingOptions> options = imagingOptions(videoSourceToken);
    AsyncFuture::observe(settings).subscribe(
        [self = QPointer<Camera>(this), result, options, videoSourceToken, change, policy](
            const timg::GetImagingSettingsResponse& now) {
            AsyncFuture::observe(options).subscribe(
                [self, result, now, videoSourceToken, change, policy](const ImagingOptions& allowed) {
                    if (!self)
                        return cancel(result);
                    QString problem;
                    const ImagingSettings sent = checked(change, allowed, policy, &problem);
                    if (!problem.isEmpty()) {
                        self->d->last = CameraResult { CameraError::OutOfRange,
                            QStringLiteral("SetImagingSettings not sent: %1").arg(problem), SoapFault() };
                        return cancel(result);
                    }
                    timg::SetImagingSettings set;
                    set.VideoSourceToken->setValue(videoSourceToken);
                    if (now.ImagingSettings)
                        *set.ImagingSettings = *now.ImagingSettings;
                    apply(sent, *set.ImagingSettings);
                    set.ForcePersistence.reset(new universalSimpleType<bool>(true));
                    AsyncFuture::observe(
                        self->call<timg::SetImagingSettings, timg::SetImagingSettingsResponse>(
                            Service::Imaging, set, QStringLiteral("SetImagingSettings")))
                        .subscribe(
                            [result, sent](
                                const timg::SetImagingSettingsResponse&) mutable { result.complete(sent); },
                            [result] { cancel(result); });
                },
                [result] { cancel(result); });
        },
        [result] { cancel(result); });
    return result.future();
}

namespace {

timg::Move focusMove(const QString& videoSourceToken)
{
    timg::Move move;
    move.VideoSourceToken->setValue(videoSourceToken);
    return move;
}

} // namespace

QFuture<void> Camera::focusContinuous(const QString& videoSourceToken, double speed)
{
    timg::Move move = focusMove(videoSourceToken);
    move.Focus->Continuous.reset(new tt::ContinuousFocus);
    move.Focus->Continuous->Speed->setValue(float(speed));
    return asVoid(call<timg::Move, timg::MoveResponse>(Service::Imaging, move, QStringLiteral("Move")));
}

QFuture<void> Camera::focusAbsolute(const QString& videoSourceToken, double position)
{
    timg::Move move = focusMove(videoSourceToken);
    move.Focus->Absolute.reset(new tt::AbsoluteFocus);
    move.Focus->Absolute->Position->setValue(float(position));
    return asVoid(call<timg::Move, timg::MoveResponse>(Service::Imaging, move, QStringLiteral("Move")));
}

QFuture<void> Camera::focusRelative(const QString& videoSourceToken, double distance)
{
    timg::Move move = focusMove(videoSourceToken);
    move.Focus->Relative.reset(new tt::RelativeFocus);
    move.Focus->Relative->Distance->setValue(float(distance));
    return asVoid(call<timg::Move, timg::MoveResponse>(Service::Imaging, move, QStringLiteral("Move")));
}

QFuture<void> Camera::focusStop(const QString& videoSourceToken)
{
    timg::Stop stop;
    stop.VideoSourceToken->setValue(videoSourceToken);
    return asVoid(call<timg::Stop, timg::StopResponse>(Service::Imaging, stop, QStringLiteral("Stop")));
}

QFuture<FocusState> Camera::focusStatus(const QString& videoSourceToken)
{
    timg::GetStatus ask;
    ask.VideoSourceToken->setValue(videoSourceToken);
    return AsyncFuture::observe(
        call<timg::GetStatus, timg::GetStatusResponse>(Service::Imaging, ask, QStringLiteral("GetStatus")))
        .subscribe([](const timg::GetStatusResponse& r) {
            FocusState state;
            if (r.Status && r.Status->FocusStatus20) {
                const tt::FocusStatus20& f = *r.Status->FocusStatus20;
                state.position = number(f.Position);
                state.moveStatus = mode(f.MoveStatus);
                state.error = text(f.Error);
            }
            return state;
        })
        .future();
}

} // namespace Onvif
