#include "commands.h"

#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifPreview.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/schema/trt/GetProfiles.h>
#include <onvifTypes/schema/trt/GetProfilesResponse.h>

#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QMetaEnum>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QTextStream>

#include <memory>

namespace Cli {

int Context::failure(const QString& what, bool timedOut, bool authFault, const Onvif::SoapFault& fault) const
{
    if (timedOut) {
        printError(QStringLiteral("%1: no answer from %2 within %3 s")
                       .arg(what, url.toString())
                       .arg(options.timeoutMs / 1000.0));
        return Unreachable;
    }
    if (authFault || fault.isAuthFault() || (fault.isNull() && fault.httpStatus == 401)) {
        printError(QStringLiteral("%1: %2 refused the user name or password").arg(what, url.toString()));
        return AuthFailed;
    }
    if (!fault.isNull()) {
        printError(QStringLiteral("%1: device fault %2").arg(what, fault.toString()));
        return DeviceFault;
    }
    // The library's own error records say why: network errors carry the error number,
    // faults their text.
    const QString record = log ? log->lastError() : QString();
    const QRegularExpressionMatch network
        = QRegularExpression(QStringLiteral("[Nn]etwork error\\. Code:? ?(\\d+)")).match(record);
    if (network.hasMatch()) {
        const int code = network.captured(1).toInt();
        const QString name
            = QLatin1String(QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(code));
        // Qt numbers connection failures below 100; from 200 on the device did answer, with an HTTP error.
        if (code == QNetworkReply::AuthenticationRequiredError
            || code == QNetworkReply::ContentAccessDenied) {
            printError(QStringLiteral("%1: %2 refused the user name or password (%3)")
                           .arg(what, url.toString(), name));
            return AuthFailed;
        }
        if (code >= 200) {
            printError(QStringLiteral("%1: the device refused the request (%2)").arg(what, name));
            return DeviceFault;
        }
        printError(QStringLiteral("%1: cannot reach %2 (%3)").arg(what, url.toString(), name));
        return Unreachable;
    }
    const int faultAt = record.indexOf(QLatin1String("Fault detail:"));
    if (faultAt >= 0) {
        QString text = record.mid(faultAt);
        text.truncate(text.lastIndexOf(QLatin1String(" (")));
        text.remove(QRegularExpression(QStringLiteral(" Request name: \\w+$")));
        if (text.contains(QLatin1String("NotAuthorized"), Qt::CaseInsensitive)) {
            printError(QStringLiteral("%1: %2 refused the user name or password").arg(what, url.toString()));
            return AuthFailed;
        }
        printError(QStringLiteral("%1: the device answered with a fault: %2").arg(what, text));
        return DeviceFault;
    }
    printError(QStringLiteral("%1: the request to %2 failed").arg(what, url.toString()));
    return Unreachable;
}

bool Context::unreadable(const QString& what, const Onvif::Requests& requests) const
{
    if (!requests.isUnreadableAnswer())
        return false;
    printError(
        QStringLiteral("%1: the camera sent an unreadable answer (%2)").arg(what, requests.readError()));
    return true;
}

QJsonObject toJson(const Onvif::DeviceInfo& info)
{
    return QJsonObject { { "manufacturer", info.manufacturer }, { "model", info.model },
        { "firmwareVersion", info.firmwareVersion }, { "serialNumber", info.serialNumber },
        { "hardwareId", info.hardwareId }, { "type", info.type } };
}

QJsonObject toJson(const Onvif::OnvifProfileInfo& p)
{
    QJsonObject o { { "token", p.token }, { "width", p.width }, { "height", p.height },
        { "encoderToken", p.encoderToken }, { "encoding", p.encoding }, { "quality", double(p.quality) },
        { "frameRate", p.frameRate }, { "uri", p.uri } };
    if (p.hasH264)
        o.insert("h264", QJsonObject { { "profile", p.h264Profile }, { "govLength", p.govLength } });
    if (p.hasAudio)
        o.insert("audio",
            QJsonObject { { "token", p.audioToken }, { "encoding", p.audioEncoding },
                { "bitrateKbps", p.audioBitrate }, { "sampleRateKHz", p.audioSampleRate } });
    return o;
}

void printDeviceInfo(const Onvif::DeviceInfo& info)
{
    const QList<QPair<QString, QString>> rows { { "Manufacturer", info.manufacturer },
        { "Model", info.model }, { "Firmware version", info.firmwareVersion },
        { "Serial number", info.serialNumber }, { "Hardware id", info.hardwareId },
        { "Device type", info.type } };
    for (const auto& row : rows)
        printLine(QStringLiteral("%1 %2").arg(row.first + QLatin1Char(':'), -18).arg(row.second));
}

void printProfiles(const QVector<Onvif::OnvifProfileInfo>& profiles)
{
    for (const auto& p : profiles) {
        QString video = QStringLiteral("%1x%2 %3, %4 fps, quality %5")
                            .arg(p.width)
                            .arg(p.height)
                            .arg(p.encoding)
                            .arg(p.frameRate)
                            .arg(double(p.quality), 0, 'g', 6);
        if (p.hasH264)
            video += QStringLiteral(", H.264 %1 GOP %2").arg(p.h264Profile).arg(p.govLength);
        printLine(QStringLiteral("%1  (encoder %2)").arg(p.token, p.encoderToken));
        printLine(QStringLiteral("    video: %1").arg(video));
        if (p.hasAudio)
            printLine(QStringLiteral("    audio: %1 %2 kbps, %3 kHz")
                          .arg(p.audioEncoding)
                          .arg(p.audioBitrate)
                          .arg(p.audioSampleRate));
        printLine(QStringLiteral("    rtsp:  %1").arg(p.uri.isEmpty() ? QStringLiteral("(none)") : p.uri));
    }
}

int info(const Context& context)
{
    Onvif::Requests requests(
        context.options.user, context.options.password, context.url.toString(), context.options.verbose);
    configure(context.options, requests.networkManager());
    const QFuture<Onvif::DeviceInfo> future = requests.deviceInfo();
    const bool answered = await(future, context.options.timeoutMs, context.url.toString());
    if (answered && context.unreadable(QStringLiteral("info"), requests))
        return DeviceFault;
    if (!answered || future.isCanceled())
        return context.failure(
            QStringLiteral("info"), !answered, requests.isAuthFault(), requests.lastFault());
    const Onvif::DeviceInfo device = future.result();
    if (context.options.json)
        printJson(toJson(device));
    else
        printDeviceInfo(device);
    return Ok;
}

bool loadProfiles(const Context& context, Onvif::Requests& requests, QVector<Onvif::OnvifProfileInfo>* result,
    QString* mediaUrl, int* exitCode)
{
    const int timeout = context.options.timeoutMs;
    const QFuture<QString> media = requests.mediaAddr();
    bool answered = await(media, timeout, QStringLiteral("the media service address"));
    if (answered && context.unreadable(QStringLiteral("profiles"), requests)) {
        *exitCode = DeviceFault;
        return false;
    }
    if (!answered || media.isCanceled()) {
        *exitCode = context.failure(
            QStringLiteral("profiles"), !answered, requests.isAuthFault(), requests.lastFault());
        return false;
    }
    // Devices without a media section are asked on the device-service address.
    *mediaUrl = media.result().isEmpty() ? context.url.toString() : media.result();
    const QString mediaPath = QUrl(*mediaUrl).path();

    const auto list = requests.profiles(mediaPath);
    answered = await(list, timeout, QStringLiteral("the profiles"));
    if (answered && context.unreadable(QStringLiteral("profiles"), requests)) {
        *exitCode = DeviceFault;
        return false;
    }
    if (!answered || list.isCanceled()) {
        *exitCode = context.failure(
            QStringLiteral("profiles"), !answered, requests.isAuthFault(), requests.lastFault());
        return false;
    }
    QVector<Onvif::OnvifProfileInfo> profiles = list.result();
    QVector<QFuture<QString>> uris;
    for (const auto& profile : profiles)
        uris.append(requests.rtspUrl(profile.token, mediaPath));
    for (int i = 0; i < uris.size(); ++i) {
        answered = await(uris[i], timeout, QStringLiteral("the stream URI of %1").arg(profiles[i].token));
        if (answered
            && context.unreadable(QStringLiteral("stream URI of %1").arg(profiles[i].token), requests)) {
            *exitCode = DeviceFault;
            return false;
        }
        if (!answered || uris[i].isCanceled()) {
            *exitCode = context.failure(QStringLiteral("stream URI of %1").arg(profiles[i].token), !answered,
                requests.isAuthFault(), requests.lastFault());
            return false;
        }
        profiles[i].uri = uris[i].result();
    }
    *result = profiles;
    return true;
}

namespace {

// Narrows the list to the profile named by --profile; false (and a message) when the
// device has no such video profile.
bool pickProfile(const Context& context, const QString& what, QVector<Onvif::OnvifProfileInfo>* list)
{
    if (context.profile.isEmpty())
        return true;
    QVector<Onvif::OnvifProfileInfo> picked;
    for (const Onvif::OnvifProfileInfo& p : qAsConst(*list)) {
        if (p.token == context.profile)
            picked.append(p);
    }
    if (picked.isEmpty()) {
        printError(QStringLiteral("%1: the device has no video profile %2").arg(what, context.profile));
        return false;
    }
    *list = picked;
    return true;
}

} // namespace

namespace {

const int kMaxStreamQuestions = 100;

// Every profile as the device lists it, audio-only and metadata ones included, with names.
int allProfiles(const Context& context)
{
    Onvif::Requests requests(
        context.options.user, context.options.password, context.url.toString(), context.options.verbose);
    configure(context.options, requests.networkManager());
    const QFuture<QString> media = requests.mediaAddr();
    bool answered = await(media, context.options.timeoutMs, QStringLiteral("the media service address"));
    if (!answered || media.isCanceled())
        return context.failure(
            QStringLiteral("profiles"), !answered, requests.isAuthFault(), requests.lastFault());
    const QString mediaUrl = media.result().isEmpty() ? context.url.toString() : media.result();

    OnvifSecurity security(context.options.user, context.options.password, 0LL);
    auto fault = QSharedPointer<Onvif::SoapFault>::create();
    trt::GetProfiles ask;
    const QFuture<QVector<tt::Profile>> list
        = Onvif::RequestHelper<trt::GetProfiles, trt::GetProfilesResponse, QVector<tt::Profile>>(
            ask, QStringLiteral("GetProfiles"), mediaUrl, security, requests.networkManager(),
            [](trt::GetProfilesResponse& r, bool, AsyncFuture::Deferred<QVector<tt::Profile>>& result) {
                result.complete(r.Profiles ? *r.Profiles : QVector<tt::Profile>());
            },
            context.options.verbose, [fault](const Onvif::Internal::ReplyOutcome& o) { *fault = o.fault; });
    answered = await(list, context.options.timeoutMs, QStringLiteral("the profiles"));
    if (!answered || list.isCanceled())
        return context.failure(QStringLiteral("profiles"), !answered, fault->isAuthFault(), *fault);

    const auto text
        = [](const QSharedPointer<universalSimpleType<QString>>& v) { return v ? v->value() : QString(); };
    QJsonArray array;
    for (const tt::Profile& profile : list.result()) {
        const QString token = text(profile.token);
        QJsonObject o { { "token", token }, { "name", text(profile.Name) } };
        if (const auto& v = profile.VideoEncoderConfiguration) {
            QJsonObject video { { "encoding", v->Encoding ? v->Encoding->value() : QString() } };
            if (v->Resolution && v->Resolution->Width && v->Resolution->Height) {
                video.insert("width", v->Resolution->Width->value());
                video.insert("height", v->Resolution->Height->value());
            }
            if (v->RateControl && v->RateControl->FrameRateLimit)
                video.insert("frameRate", v->RateControl->FrameRateLimit->value());
            if (v->RateControl && v->RateControl->BitrateLimit)
                video.insert("bitrateKbps", v->RateControl->BitrateLimit->value());
            o.insert("video", video);
        }
        if (const auto& a = profile.AudioEncoderConfiguration) {
            QJsonObject audio { { "encoding", a->Encoding ? a->Encoding->value() : QString() } };
            if (a->Bitrate)
                audio.insert("bitrateKbps", a->Bitrate->value());
            if (a->SampleRate)
                audio.insert("sampleRateKHz", a->SampleRate->value());
            o.insert("audio", audio);
        }
        o.insert("ptz", bool(profile.PTZConfiguration));
        // A profile without a stream (a metadata-only one, say) is listed all the same. A
        // camera listing thousands gets no thousands of questions.
        if (array.size() >= kMaxStreamQuestions) {
            o.insert("uriError", QStringLiteral("not asked: more than %1 profiles").arg(kMaxStreamQuestions));
            array.append(o);
            continue;
        }
        const QFuture<QString> uri = requests.rtspUrl(token, QUrl(mediaUrl).path());
        if (await(uri, context.options.timeoutMs, QStringLiteral("the stream URI of %1").arg(token))
            && !uri.isCanceled())
            o.insert("uri", uri.result());
        else
            o.insert("uriError",
                requests.lastFault().isNull() ? QStringLiteral("no stream URI")
                                              : requests.lastFault().toString());
        array.append(o);
    }
    if (context.options.json) {
        printJson(QJsonObject { { "mediaService", mediaUrl }, { "profiles", array } });
        return Ok;
    }
    for (const QJsonValue& value : qAsConst(array)) {
        const QJsonObject o = value.toObject();
        printLine(QStringLiteral("%1  \"%2\"%3")
                      .arg(o.value("token").toString(), o.value("name").toString(),
                          o.value("ptz").toBool() ? QStringLiteral("  (PTZ)") : QString()));
        const QJsonObject video = o.value("video").toObject();
        if (!video.isEmpty())
            printLine(QStringLiteral("    video: %1 %2x%3, %4 fps, %5 kbps")
                          .arg(video.value("encoding").toString())
                          .arg(video.value("width").toInt())
                          .arg(video.value("height").toInt())
                          .arg(video.value("frameRate").toInt())
                          .arg(video.value("bitrateKbps").toInt()));
        const QJsonObject audio = o.value("audio").toObject();
        if (!audio.isEmpty())
            printLine(QStringLiteral("    audio: %1 %2 kbps, %3 kHz")
                          .arg(audio.value("encoding").toString())
                          .arg(audio.value("bitrateKbps").toInt())
                          .arg(audio.value("sampleRateKHz").toInt()));
        printLine(
            QStringLiteral("    rtsp:  %1")
                .arg(o.contains("uri") ? o.value("uri").toString()
                                       : QStringLiteral("(none: %1)").arg(o.value("uriError").toString())));
    }
    if (array.isEmpty())
        printLine(QStringLiteral("The device lists no profile."));
    return Ok;
}

} // namespace

int profiles(const Context& context)
{
    if (context.allProfiles)
        return allProfiles(context);
    Onvif::Requests requests(
        context.options.user, context.options.password, context.url.toString(), context.options.verbose);
    configure(context.options, requests.networkManager());
    QVector<Onvif::OnvifProfileInfo> list;
    QString mediaUrl;
    int exitCode = Ok;
    if (!loadProfiles(context, requests, &list, &mediaUrl, &exitCode))
        return exitCode;
    if (!pickProfile(context, QStringLiteral("profiles"), &list))
        return BadArguments;
    if (context.options.json) {
        QJsonArray array;
        for (const auto& p : list)
            array.append(toJson(p));
        printJson(QJsonObject { { "mediaService", mediaUrl }, { "profiles", array } });
    } else if (list.isEmpty()) {
        printLine(QStringLiteral("No profile with a video encoder."));
    } else {
        printProfiles(list);
    }
    return Ok;
}

namespace {

// The camera's picture, byte for byte: the file name does not choose a format and nothing is
// re-encoded. Bounded as every answer; the declared dimensions are read without decoding.
int savePicture(const Context& context, const QString& token, const QString& uri, const QString& file)
{
    const QUrl url(uri);
    const QString scheme = url.scheme().toLower();
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https")) {
        printError(
            QStringLiteral("snapshot: refused %1: only http and https snapshot URIs are fetched").arg(uri));
        return DeviceFault;
    }
    const Onvif::Limits limits = Onvif::Limits::defaults();
    Onvif::NetworkAccessManager manager;
    configure(context.options, &manager);
    QNetworkRequest request(url);
    request.setAttribute(Onvif::Limits::BodyLimitAttribute, limits.maxImageBytes);
    QNetworkReply* reply = manager.get(request);
    const std::unique_ptr<QNetworkReply> owned(reply);
    if (!awaitCondition([reply] { return reply->isFinished(); }, context.options.timeoutMs,
            QStringLiteral("the picture"))) {
        printError(QStringLiteral("snapshot: no picture from %1 within %2 s")
                       .arg(uri)
                       .arg(context.options.timeoutMs / 1000.0));
        return Unreachable;
    }
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() != QNetworkReply::NoError) {
        printError(QStringLiteral("snapshot: could not download %1 (%2)").arg(uri, reply->errorString()));
        if (status == 401 || status == 403)
            return AuthFailed;
        return status > 0 || reply->error() == QNetworkReply::ProtocolFailure ? DeviceFault : Unreachable;
    }
    const QByteArray bytes = reply->readAll();
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!size.isValid()) {
        printError(QStringLiteral("snapshot: %1 is not an image").arg(uri));
        return DeviceFault;
    }
    if (qint64(size.width()) * size.height() > limits.maxImagePixels) {
        printError(
            QStringLiteral("snapshot: refused %1: the picture declares %2 x %3 pixels (maxImagePixels)")
                .arg(uri)
                .arg(size.width())
                .arg(size.height()));
        return DeviceFault;
    }
    const bool toStdout = file == QLatin1String("-");
    QFile out(file);
    const bool written = toStdout ? out.open(stdout, QIODevice::WriteOnly) && out.write(bytes) == bytes.size()
                                  : out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size();
    out.close();
    if (!written) {
        printError(QStringLiteral("snapshot: cannot write %1").arg(file));
        return BadArguments;
    }
    const QString type = reply->header(QNetworkRequest::ContentTypeHeader).toString();
    const QString text = QStringLiteral("Saved %1x%2 snapshot of %3 to %4 (%5 bytes, %6)")
                             .arg(size.width())
                             .arg(size.height())
                             .arg(token, toStdout ? QStringLiteral("standard output") : file)
                             .arg(bytes.size())
                             .arg(type.isEmpty() ? QString::fromLatin1(reader.format()) : type);
    if (toStdout)
        QTextStream(stderr) << text << '\n';
    else if (context.options.json)
        printJson(
            QJsonObject { { "profile", token }, { "uri", uri }, { "file", file }, { "width", size.width() },
                { "height", size.height() }, { "bytes", bytes.size() }, { "contentType", type } });
    else
        printLine(text);
    return Ok;
}

} // namespace

int snapshot(const Context& context, const QString& file)
{
    Onvif::Requests requests(
        context.options.user, context.options.password, context.url.toString(), context.options.verbose);
    configure(context.options, requests.networkManager());
    QVector<Onvif::OnvifProfileInfo> list;
    QString mediaUrl;
    int exitCode = Ok;
    if (!loadProfiles(context, requests, &list, &mediaUrl, &exitCode))
        return exitCode;
    if (list.isEmpty()) {
        printError(QStringLiteral("snapshot: the device has no video profile"));
        return DeviceFault;
    }
    if (!pickProfile(context, QStringLiteral("snapshot"), &list))
        return BadArguments;
    const QString token = list.first().token;

    Onvif::NetworkAccessManager previewManager;
    configure(context.options, &previewManager);
    Onvif::OnvifPreview preview(context.options.user, context.options.password, mediaUrl, &previewManager);
    QString uri;
    bool gotUri = false;
    QObject::connect(&preview, &Onvif::OnvifPreview::snapshotUri, [&](const QString& value) {
        uri = value;
        gotUri = true;
    });
    // The preview reports failures only in the log, so a logged error ends the wait too.
    const auto failed = [&] { return !context.log->lastError().isEmpty(); };
    context.log->clear();
    preview.getSnapshotUri(token);
    if (!awaitCondition(
            [&] { return gotUri || failed(); }, context.options.timeoutMs, QStringLiteral("the snapshot URI"))
        || !gotUri) {
        printError(
            QStringLiteral("snapshot: no snapshot URI for %1%2")
                .arg(token,
                    failed() ? QStringLiteral(" (") + context.log->lastError().trimmed() + ')' : QString()));
        return failed() ? DeviceFault : Unreachable;
    }
    const QString record = context.log->lastError();
    const int unreadable = record.indexOf(QLatin1String("unreadable: "));
    if (unreadable >= 0) {
        printError(
            QStringLiteral("snapshot: the camera sent an unreadable answer (%1)")
                .arg(record.mid(unreadable + 12, record.lastIndexOf(QLatin1String(" (")) - unreadable - 12)));
        return DeviceFault;
    }
    return savePicture(context, token, uri, file);
}

} // namespace Cli
