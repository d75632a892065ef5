// The session's media operations: profiles, stream and snapshot URIs and snapshots, from
// Media2 where the device offers it, else from Media (ver10).
#include "onvifTypes/schema/tr2/GetProfiles.h"
#include "onvifTypes/schema/tr2/GetProfilesResponse.h"
#include "onvifTypes/schema/tr2/GetSnapshotUri.h"
#include "onvifTypes/schema/tr2/GetSnapshotUriResponse.h"
#include "onvifTypes/schema/tr2/GetStreamUri.h"
#include "onvifTypes/schema/tr2/GetStreamUriResponse.h"
#include "onvifTypes/schema/trt/GetProfiles.h"
#include "onvifTypes/schema/trt/GetProfilesResponse.h"
#include "onvifTypes/schema/trt/GetSnapshotUri.h"
#include "onvifTypes/schema/trt/GetSnapshotUriResponse.h"
#include "onvifTypes/schema/trt/GetStreamUri.h"
#include "onvifTypes/schema/trt/GetStreamUriResponse.h"
#include "onvifTypes/session/camera_p.h"

#include <QPointer>

namespace Onvif {

namespace {

const int kMaxProfilesAsked = 100; // stream and snapshot URIs are asked for this many at most

// Media2 names encodings by their MIME subtype; the session reports them as Media does.
QString videoEncodingName(const QString& mime)
{
    const QString upper = mime.trimmed().toUpper();
    if (upper == QLatin1String("MPV4-ES") || upper == QLatin1String("MP4V-ES"))
        return QStringLiteral("MPEG4");
    return upper;
}

QString audioEncodingName(const QString& mime)
{
    const QString upper = mime.trimmed().toUpper();
    if (upper == QLatin1String("PCMU") || upper == QLatin1String("PCMA"))
        return QStringLiteral("G711");
    if (upper == QLatin1String("MP4A-LATM") || upper == QLatin1String("MPEG4-GENERIC"))
        return QStringLiteral("AAC");
    return upper;
}

template <typename T> int rounded(const QSharedPointer<universalSimpleType<T>>& value)
{
    return value ? int(qRound(double(value->value()))) : 0;
}

CameraProfile fromMedia1(const tt::Profile& p)
{
    CameraProfile profile;
    profile.token = text(p.token);
    profile.name = text(p.Name);
    if (const auto& source = p.VideoSourceConfiguration)
        profile.videoSourceToken = text(source->SourceToken);
    if (const auto& v = p.VideoEncoderConfiguration) {
        profile.videoEncoderToken = text(v->token);
        profile.videoEncoding = v->Encoding ? v->Encoding->value() : QString();
        if (v->Resolution && v->Resolution->Width && v->Resolution->Height) {
            profile.width = v->Resolution->Width->value();
            profile.height = v->Resolution->Height->value();
        }
        if (v->RateControl) {
            profile.frameRate = rounded(v->RateControl->FrameRateLimit);
            profile.bitrateKbps = rounded(v->RateControl->BitrateLimit);
        }
        if (v->H264) {
            profile.govLength = rounded(v->H264->GovLength);
            profile.videoProfile = v->H264->H264Profile ? v->H264->H264Profile->value() : QString();
        } else if (v->MPEG4) {
            profile.govLength = rounded(v->MPEG4->GovLength);
            profile.videoProfile = v->MPEG4->Mpeg4Profile ? v->MPEG4->Mpeg4Profile->value() : QString();
        }
    }
    if (const auto& a = p.AudioEncoderConfiguration) {
        profile.audioEncoding = a->Encoding ? a->Encoding->value() : QString();
        profile.audioBitrateKbps = rounded(a->Bitrate);
        profile.audioSampleRateKHz = rounded(a->SampleRate);
    }
    profile.ptz = bool(p.PTZConfiguration);
    return profile;
}

CameraProfile fromMedia2(const tr2::MediaProfile& p)
{
    CameraProfile profile;
    profile.fromMedia2 = true;
    profile.token = text(p.token);
    profile.name = text(p.Name);
    const auto& set = p.Configurations;
    if (!set)
        return profile;
    if (set->VideoSource)
        profile.videoSourceToken = text(set->VideoSource->SourceToken);
    if (const auto& v = set->VideoEncoder) {
        profile.videoEncoderToken = text(v->token);
        profile.videoEncoding = videoEncodingName(text(v->Encoding));
        if (v->Resolution) {
            profile.width = rounded(v->Resolution->Width);
            profile.height = rounded(v->Resolution->Height);
        }
        if (v->RateControl) {
            profile.frameRate = rounded(v->RateControl->FrameRateLimit);
            profile.bitrateKbps = rounded(v->RateControl->BitrateLimit);
        }
        profile.govLength = rounded(v->GovLength);
        profile.videoProfile = text(v->Profile);
    }
    if (const auto& a = set->AudioEncoder) {
        profile.audioEncoding = audioEncodingName(text(a->Encoding));
        profile.audioBitrateKbps = rounded(a->Bitrate);
        profile.audioSampleRateKHz = rounded(a->SampleRate);
    }
    profile.ptz = bool(set->PTZ);
    return profile;
}

} // namespace

bool Camera::Private::media2For(CameraOptions::MediaService media) const
{
    switch (media) {
    case CameraOptions::MediaService::Media1:
        return false;
    case CameraOptions::MediaService::Media2:
        return true;
    case CameraOptions::MediaService::Automatic:
        break;
    }
    return !connection.services.media2.isEmpty();
}

QString Camera::Private::placedUri(const QString& stated, const QString& operation)
{
    const QString trimmed = stated.trimmed();
    if (trimmed.isEmpty()) {
        last = CameraResult { CameraError::Unreadable,
            QStringLiteral("%1: the camera named no URI").arg(operation), SoapFault() };
        return QString();
    }
    return place(QUrl(trimmed)).toString();
}

QFuture<QString> Camera::Private::streamUri(
    const QString& profileToken, StreamTransport transport, bool media2)
{
    const QString operation = QStringLiteral("GetStreamUri");
    const auto placed = [self = QPointer<Camera>(q), operation](const QString& uri) {
        if (!self)
            return QString();
        return self->d->placedUri(uri, operation);
    };
    if (media2) {
        tr2::GetStreamUri ask;
        ask.ProfileToken->setValue(profileToken);
        ask.Protocol->setValue(transport == StreamTransport::RtspOverHttp ? QStringLiteral("RtspOverHttp")
                                                                          : QStringLiteral("RtspUnicast"));
        return AsyncFuture::observe(
            q->call<tr2::GetStreamUri, tr2::GetStreamUriResponse>(Service::Media2, ask, operation))
            .subscribe([placed](const tr2::GetStreamUriResponse& r) { return placed(text(r.Uri)); })
            .future();
    }
    trt::GetStreamUri ask;
    ask.ProfileToken->setValue(profileToken);
    ask.StreamSetup->Stream->setIndex(tt::StreamType::RTP_Unicast);
    ask.StreamSetup->Transport->Protocol->setIndex(transport == StreamTransport::RtspOverHttp
            ? tt::TransportProtocol::HTTP
            : tt::TransportProtocol::RTSP);
    return AsyncFuture::observe(
        q->call<trt::GetStreamUri, trt::GetStreamUriResponse>(Service::Media, ask, operation))
        .subscribe([placed](const trt::GetStreamUriResponse& r) {
            return placed(r.MediaUri ? text(r.MediaUri->Uri) : QString());
        })
        .future();
}

QFuture<QString> Camera::Private::snapshotUri(const QString& profileToken, bool media2)
{
    const QString operation = QStringLiteral("GetSnapshotUri");
    const auto placed = [self = QPointer<Camera>(q), operation](const QString& uri) {
        if (!self)
            return QString();
        return self->d->placedUri(uri, operation);
    };
    if (media2) {
        tr2::GetSnapshotUri ask;
        ask.ProfileToken->setValue(profileToken);
        return AsyncFuture::observe(
            q->call<tr2::GetSnapshotUri, tr2::GetSnapshotUriResponse>(Service::Media2, ask, operation))
            .subscribe([placed](const tr2::GetSnapshotUriResponse& r) { return placed(text(r.Uri)); })
            .future();
    }
    trt::GetSnapshotUri ask;
    ask.ProfileToken->setValue(profileToken);
    return AsyncFuture::observe(
        q->call<trt::GetSnapshotUri, trt::GetSnapshotUriResponse>(Service::Media, ask, operation))
        .subscribe([placed](const trt::GetSnapshotUriResponse& r) {
            return placed(r.MediaUri ? text(r.MediaUri->Uri) : QString());
        })
        .future();
}

void Camera::Private::addUris(const QSharedPointer<QVector<CameraProfile>>& profiles, bool media2,
    AsyncFuture::Deferred<QVector<CameraProfile>> result)
{
    const int asked = qMin(profiles->size(), kMaxProfilesAsked);
    if (asked == 0) {
        result.complete(*profiles);
        return;
    }
    auto pending = QSharedPointer<int>::create(2 * asked);
    const std::function<void()> oneDone = [self = QPointer<Camera>(q), result, profiles, pending]() mutable {
        // A camera deleted meanwhile gives no half-filled list.
        if (!self)
            result.cancel();
        else if (--*pending == 0)
            result.complete(*profiles);
    };
    for (int i = 0; i < asked; ++i) {
        const QString token = profiles->at(i).token;
        AsyncFuture::observe(streamUri(token, StreamTransport::Rtsp, media2))
            .subscribe(
                [profiles, i, oneDone](const QString& uri) {
                    (*profiles)[i].streamUri = uri;
                    oneDone();
                },
                oneDone);
        AsyncFuture::observe(snapshotUri(token, media2))
            .subscribe(
                [profiles, i, oneDone](const QString& uri) {
                    (*profiles)[i].snapshotUri = uri;
                    oneDone();
                },
                oneDone);
    }
}

QFuture<QVector<CameraProfile>> Camera::Private::media1Profiles()
{
    AsyncFuture::Deferred<QVector<CameraProfile>> result;
    AsyncFuture::observe(q->call<trt::GetProfiles, trt::GetProfilesResponse>(
                             Service::Media, trt::GetProfiles(), QStringLiteral("GetProfiles")))
        .subscribe(
            [self = QPointer<Camera>(q), result](const trt::GetProfilesResponse& response) {
                if (!self)
                    return cancel(result);
                auto profiles = QSharedPointer<QVector<CameraProfile>>::create();
                for (const tt::Profile& p : response.Profiles ? *response.Profiles : QVector<tt::Profile>())
                    profiles->append(fromMedia1(p));
                self->d->addUris(profiles, false, result);
            },
            [result] { cancel(result); });
    return result.future();
}

QFuture<QVector<CameraProfile>> Camera::Private::media2Profiles()
{
    AsyncFuture::Deferred<QVector<CameraProfile>> result;
    tr2::GetProfiles ask;
    // Without a Type the device names the profiles only, without their configurations.
    ask.Type.reset(
        new QVector<universalSimpleType<QString>> { universalSimpleType<QString>(QStringLiteral("All")) });
    AsyncFuture::observe(q->call<tr2::GetProfiles, tr2::GetProfilesResponse>(
                             Service::Media2, ask, QStringLiteral("GetProfiles")))
        .subscribe(
            [self = QPointer<Camera>(q), result](const tr2::GetProfilesResponse& response) {
                if (!self)
                    return cancel(result);
                auto profiles = QSharedPointer<QVector<CameraProfile>>::create();
                for (const tr2::MediaProfile& p :
                    response.Profiles ? *response.Profiles : QVector<tr2::MediaProfile>())
                    profiles->append(fromMedia2(p));
                self->d->addUris(profiles, true, result);
            },
            [result] { cancel(result); });
    return result.future();
}

QFuture<QVector<CameraProfile>> Camera::profiles()
{
    return profiles(d->options.mediaService);
}

QFuture<QVector<CameraProfile>> Camera::profiles(CameraOptions::MediaService media)
{
    if (!d->media2For(media))
        return d->media1Profiles();
    if (media != CameraOptions::MediaService::Automatic)
        return d->media2Profiles();
    // A device may list Media2 and still fail at it: its answer through Media then counts, but
    // refused credentials or a lost connection would fail there just the same.
    AsyncFuture::Deferred<QVector<CameraProfile>> result;
    AsyncFuture::observe(d->media2Profiles())
        .subscribe([result](const QVector<CameraProfile>& list) mutable { result.complete(list); },
            [self = QPointer<Camera>(this), result]() {
                const CameraError error = self ? self->d->last.error : CameraError::None;
                if (error != CameraError::DeviceFault && error != CameraError::Unreadable)
                    return cancel(result);
                auto fallback = result;
                fallback.complete(self->d->media1Profiles());
            });
    return result.future();
}

QFuture<QString> Camera::streamUri(const QString& profileToken, StreamTransport transport)
{
    return d->streamUri(profileToken, transport, d->media2For(d->options.mediaService));
}

QFuture<QString> Camera::snapshotUri(const QString& profileToken)
{
    return d->snapshotUri(profileToken, d->media2For(d->options.mediaService));
}

QFuture<Snapshot> Camera::snapshot(const QString& profileToken)
{
    AsyncFuture::Deferred<Snapshot> result;
    AsyncFuture::observe(snapshotUri(profileToken))
        .subscribe(
            [self = QPointer<Camera>(this), result](const QString& text) {
                if (!self)
                    return cancel(result);
                const QUrl uri(text);
                // Only the web: a camera must not make us read a local file or anything else.
                if (uri.scheme() != QLatin1String("http") && uri.scheme() != QLatin1String("https")) {
                    self->d->last = CameraResult { CameraError::Unreadable,
                        QStringLiteral("snapshot: refused URI %1: only http and https are fetched").arg(text),
                        SoapFault() };
                    return cancel(result);
                }
                self->d->get(uri, result, 0);
            },
            [result] { cancel(result); });
    return result.future();
}

} // namespace Onvif
