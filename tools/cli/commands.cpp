#include "commands.h"

#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/onvifNetworkAccessManager.h>

#include <QBuffer>
#include <QDateTime>
#include <QFile>
#include <QImageReader>
#include <QJsonArray>
#include <QMetaEnum>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSet>
#include <QTextStream>

#include <algorithm>
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

std::unique_ptr<Onvif::Camera> Context::camera() const
{
    Onvif::CameraOptions settings;
    settings.controlTimeoutMs = options.timeoutMs;
    settings.trace = options.verbose;
    settings.mediaService = media;
    auto session = std::make_unique<Onvif::Camera>(url, options.user, options.password, settings);
    configure(options, session->networkManager());
    return session;
}

int Context::sessionFailure(const QString& what, const Onvif::CameraResult& result) const
{
    using Onvif::CameraError;
    switch (result.error) {
    case CameraError::DeviceFault:
        printError(QStringLiteral("%1: device fault %2").arg(what, result.fault.toString()));
        return DeviceFault;
    case CameraError::CredentialsRefused:
    case CameraError::ClockFarOff:
    case CameraError::LockoutRisk:
        printError(QStringLiteral("%1: %2 refused the user name or password: %3")
                       .arg(what, url.toString(), result.message));
        return AuthFailed;
    case CameraError::Unreachable:
        printError(QStringLiteral("%1: %2").arg(what, result.message));
        return Unreachable;
    case CameraError::OutOfRange:
        printError(QStringLiteral("%1: %2").arg(what, result.message));
        return BadArguments;
    case CameraError::None:
        printError(QStringLiteral("%1: no answer from %2 within %3 s")
                       .arg(what, url.toString())
                       .arg(options.timeoutMs / 1000.0));
        return Unreachable;
    case CameraError::NotOnvif:
    case CameraError::Unreadable:
    case CameraError::NotSupported:
        break;
    }
    printError(QStringLiteral("%1: %2").arg(what, result.message));
    return DeviceFault;
}

bool Context::loadProfiles(
    Onvif::Camera& camera, QVector<Onvif::CameraProfile>* profiles, int* exitCode) const
{
    const QFuture<Onvif::CameraConnection> opened = camera.open();
    if (!wait(camera, opened, QStringLiteral("the device"), exitCode))
        return false;
    if (!opened.result().ok()) {
        *exitCode = sessionFailure(QStringLiteral("profiles"), opened.result());
        return false;
    }
    const QFuture<QVector<Onvif::CameraProfile>> list = camera.profiles();
    if (!wait(camera, list, QStringLiteral("the profiles"), exitCode)) {
        *exitCode = sessionFailure(QStringLiteral("profiles"), camera.lastResult());
        return false;
    }
    *profiles = list.result();
    return true;
}

QJsonObject toJson(const Onvif::DeviceInfo& info)
{
    return QJsonObject { { "manufacturer", info.manufacturer }, { "model", info.model },
        { "firmwareVersion", info.firmwareVersion }, { "serialNumber", info.serialNumber },
        { "hardwareId", info.hardwareId }, { "type", info.type } };
}

QJsonObject toJson(const Onvif::CameraProfile& p)
{
    QJsonObject o { { "token", p.token }, { "name", p.name }, { "ptz", p.ptz } };
    if (!p.videoEncoding.isEmpty())
        o.insert("video",
            QJsonObject { { "encoderToken", p.videoEncoderToken }, { "encoding", p.videoEncoding },
                { "width", p.width }, { "height", p.height }, { "frameRate", p.frameRate },
                { "bitrateKbps", p.bitrateKbps }, { "profile", p.videoProfile }, { "govLength", p.govLength },
                { "sourceToken", p.videoSourceToken } });
    if (!p.audioEncoding.isEmpty())
        o.insert("audio",
            QJsonObject { { "encoding", p.audioEncoding }, { "bitrateKbps", p.audioBitrateKbps },
                { "sampleRateKHz", p.audioSampleRateKHz } });
    o.insert("uri", p.streamUri);
    o.insert("snapshotUri", p.snapshotUri);
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

void printProfiles(const QVector<Onvif::CameraProfile>& profiles)
{
    for (const Onvif::CameraProfile& p : profiles) {
        printLine(QStringLiteral("%1  \"%2\"%3")
                      .arg(p.token, p.name, p.ptz ? QStringLiteral("  (PTZ)") : QString()));
        if (!p.videoEncoding.isEmpty())
            printLine(QStringLiteral("    video: %1 %2x%3, %4 fps, %5 kbps%6 (encoder %7)")
                          .arg(p.videoEncoding)
                          .arg(p.width)
                          .arg(p.height)
                          .arg(p.frameRate)
                          .arg(p.bitrateKbps)
                          .arg((p.videoProfile.isEmpty() ? QString() : QStringLiteral(", ") + p.videoProfile)
                              + (p.govLength > 0 ? QStringLiteral(", GOP %1").arg(p.govLength) : QString()))
                          .arg(p.videoEncoderToken));
        if (!p.audioEncoding.isEmpty())
            printLine(QStringLiteral("    audio: %1 %2 kbps, %3 kHz")
                          .arg(p.audioEncoding)
                          .arg(p.audioBitrateKbps)
                          .arg(p.audioSampleRateKHz));
        printLine(QStringLiteral("    rtsp:  %1")
                      .arg(p.streamUri.isEmpty() ? QStringLiteral("(none)") : p.streamUri));
    }
}

int info(const Context& context)
{
    const auto camera = context.camera();
    const QFuture<Onvif::CameraConnection> opened = camera->open();
    int exitCode = Ok;
    if (!context.wait(*camera, opened, context.url.toString(), &exitCode))
        return exitCode;
    const Onvif::CameraConnection connection = opened.result();
    if (!connection.ok())
        return context.sessionFailure(QStringLiteral("info"), connection);
    Onvif::DeviceInfo device = connection.device;
    device.type = OnvifDeviceInfo::getDeviceType(device);
    if (!connection.message.isEmpty())
        QTextStream(stderr) << "onvif-cli: note: " << connection.message << '\n';
    if (context.options.json)
        printJson(toJson(device));
    else
        printDeviceInfo(device);
    return Ok;
}

int time(const Context& context)
{
    const auto camera = context.camera();
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    const QFuture<QDateTime> clock = camera->deviceTime();
    int exitCode = Ok;
    if (!context.wait(*camera, clock, QStringLiteral("the device's time"), &exitCode))
        return exitCode;
    const qint64 offset = camera->clockOffsetMs();
    const QDateTime ours = QDateTime::fromMSecsSinceEpoch(before, Qt::UTC);
    if (context.options.json) {
        printJson(QJsonObject { { "deviceTimeUtc", clock.result().toString(Qt::ISODate) },
            { "localTimeUtc", ours.toString(Qt::ISODateWithMs) }, { "offsetMs", double(offset) } });
        return Ok;
    }
    printLine(QStringLiteral("Device time: %1").arg(clock.result().toString(Qt::ISODate)));
    printLine(QStringLiteral("Our time:    %1").arg(ours.toString(Qt::ISODateWithMs)));
    printLine(offset == 0 ? QStringLiteral("Offset:      none (within a second)")
                          : QStringLiteral("Offset:      %1%2 s (the device is %3)")
                                .arg(offset > 0 ? QStringLiteral("+") : QString())
                                .arg(offset / 1000.0, 0, 'f', 1)
                                .arg(offset > 0 ? QStringLiteral("ahead") : QStringLiteral("behind")));
    return Ok;
}

// One profile per video encoder, largest picture first (the first of equal ones kept).
QVector<Onvif::CameraProfile> videoProfiles(const QVector<Onvif::CameraProfile>& all)
{
    QVector<Onvif::CameraProfile> result;
    QSet<QString> encoders;
    for (const Onvif::CameraProfile& p : all) {
        if (p.videoEncoding.isEmpty() || encoders.contains(p.videoEncoderToken))
            continue;
        encoders.insert(p.videoEncoderToken);
        result.append(p);
    }
    std::stable_sort(result.begin(), result.end(),
        [](const auto& a, const auto& b) { return qint64(a.width) * a.height > qint64(b.width) * b.height; });
    return result;
}

// Narrows the list to the profile named by --profile; false (and a message) when the
// device has no such profile.
bool pickProfile(const Context& context, const QString& what, QVector<Onvif::CameraProfile>* list)
{
    if (context.profile.isEmpty())
        return true;
    QVector<Onvif::CameraProfile> picked;
    for (const Onvif::CameraProfile& p : qAsConst(*list)) {
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

int profiles(const Context& context)
{
    const auto camera = context.camera();
    QVector<Onvif::CameraProfile> all;
    int exitCode = Ok;
    if (!context.loadProfiles(*camera, &all, &exitCode))
        return exitCode;
    QVector<Onvif::CameraProfile> list = context.allProfiles ? all : videoProfiles(all);
    if (!pickProfile(context, QStringLiteral("profiles"), &list))
        return BadArguments;
    if (context.options.json) {
        QJsonArray array;
        for (const auto& p : list)
            array.append(toJson(p));
        // The service the profiles came from; Media devices often name none and serve it here.
        const bool media2 = !all.isEmpty() && all.first().fromMedia2;
        const Onvif::CameraServices& services = camera->connection().services;
        const QUrl service = media2    ? services.media2
            : services.media.isEmpty() ? context.url
                                       : services.media;
        printJson(QJsonObject { { "mediaService", service.toString() },
            { "media", media2 ? QStringLiteral("Media2") : QStringLiteral("Media") },
            { "profiles", array } });
    } else if (list.isEmpty()) {
        printLine(context.allProfiles ? QStringLiteral("The device lists no profile.")
                                      : QStringLiteral("No profile with a video encoder."));
    } else {
        printProfiles(list);
    }
    return Ok;
}

int snapshot(const Context& context, const QString& file)
{
    const auto camera = context.camera();
    QVector<Onvif::CameraProfile> all;
    int exitCode = Ok;
    if (!context.loadProfiles(*camera, &all, &exitCode))
        return exitCode;
    QVector<Onvif::CameraProfile> list = videoProfiles(all);
    if (list.isEmpty()) {
        printError(QStringLiteral("snapshot: the device has no video profile"));
        return DeviceFault;
    }
    if (!pickProfile(context, QStringLiteral("snapshot"), &list))
        return BadArguments;
    const QString token = list.first().token;

    // The camera's picture, byte for byte: the file name does not choose a format and nothing
    // is re-encoded. The session bounds its size; the declared dimensions are read without decoding.
    const QFuture<Onvif::Snapshot> picture = camera->snapshot(token);
    if (!context.wait(*camera, picture, QStringLiteral("the picture"), &exitCode))
        return exitCode;
    const QByteArray bytes = picture.result().bytes;
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!size.isValid()) {
        printError(QStringLiteral("snapshot: the picture of %1 is not an image").arg(token));
        return DeviceFault;
    }
    const Onvif::Limits limits = camera->networkManager()->limits();
    if (qint64(size.width()) * size.height() > limits.maxImagePixels) {
        printError(QStringLiteral("snapshot: refused: the picture declares %1 x %2 pixels (maxImagePixels)")
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
    const QString type = picture.result().contentType;
    const QString text = QStringLiteral("Saved %1x%2 snapshot of %3 to %4 (%5 bytes, %6)")
                             .arg(size.width())
                             .arg(size.height())
                             .arg(token, toStdout ? QStringLiteral("standard output") : file)
                             .arg(bytes.size())
                             .arg(type.isEmpty() ? QString::fromLatin1(reader.format()) : type);
    if (toStdout)
        QTextStream(stderr) << text << '\n';
    else if (context.options.json)
        printJson(QJsonObject { { "profile", token }, { "uri", list.first().snapshotUri }, { "file", file },
            { "width", size.width() }, { "height", size.height() }, { "bytes", bytes.size() },
            { "contentType", type } });
    else
        printLine(text);
    return Ok;
}

} // namespace Cli
