#include "cameraConfig.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace CameraSim {

namespace {

const struct
{
    FaultMode mode;
    const char* name;
} kFaultNames[] = {
    { FaultMode::None, "none" },
    { FaultMode::SoapFault, "soapFault" },
    { FaultMode::Http500, "http500" },
    { FaultMode::Drop, "drop" },
    { FaultMode::Truncate, "truncate" },
    { FaultMode::Malformed, "malformed" },
    { FaultMode::EmptyUri, "emptyUri" },
    { FaultMode::Huge, "huge" },
};

void readString(const QJsonObject& json, const char* key, QString& target)
{
    if (json.contains(QLatin1String(key)))
        target = json.value(QLatin1String(key)).toString(target);
}

template <typename T> void readInt(const QJsonObject& json, const char* key, T& target)
{
    if (json.contains(QLatin1String(key)))
        target = static_cast<T>(json.value(QLatin1String(key)).toDouble(static_cast<double>(target)));
}

void readBool(const QJsonObject& json, const char* key, bool& target)
{
    if (json.contains(QLatin1String(key)))
        target = json.value(QLatin1String(key)).toBool(target);
}

QVector<QJsonObject> objects(const QJsonValue& value)
{
    QVector<QJsonObject> result;
    const QJsonArray array = value.toArray();
    for (const QJsonValue& item : array)
        result.append(item.toObject());
    return result;
}

} // namespace

QString faultModeName(FaultMode mode)
{
    for (const auto& entry : kFaultNames) {
        if (entry.mode == mode)
            return QLatin1String(entry.name);
    }
    return QString();
}

FaultMode faultModeFromName(const QString& name, bool* ok)
{
    for (const auto& entry : kFaultNames) {
        if (name.compare(QLatin1String(entry.name), Qt::CaseInsensitive) == 0) {
            if (ok)
                *ok = true;
            return entry.mode;
        }
    }
    if (ok)
        *ok = false;
    return FaultMode::None;
}

FaultSpec FaultSpec::fromJson(const QJsonObject& json, QString* error)
{
    FaultSpec spec;
    bool ok = true;
    spec.mode = faultModeFromName(json.value(QLatin1String("mode")).toString(QStringLiteral("none")), &ok);
    if (!ok && error)
        *error
            = QStringLiteral("unknown fault mode \"%1\"").arg(json.value(QLatin1String("mode")).toString());
    readInt(json, "delayMs", spec.delayMs);
    readInt(json, "hugeBytes", spec.hugeBytes);
    readInt(json, "httpStatus", spec.httpStatus);
    readInt(json, "count", spec.count);
    readInt(json, "skip", spec.skip);
    readString(json, "code", spec.code);
    readString(json, "subcode", spec.subcode);
    readString(json, "reason", spec.reason);
    return spec;
}

QJsonObject FaultSpec::toJson() const
{
    return QJsonObject { { QStringLiteral("mode"), faultModeName(mode) },
        { QStringLiteral("delayMs"), delayMs },
        { QStringLiteral("hugeBytes"), static_cast<double>(hugeBytes) },
        { QStringLiteral("httpStatus"), httpStatus }, { QStringLiteral("code"), code },
        { QStringLiteral("subcode"), subcode }, { QStringLiteral("reason"), reason },
        { QStringLiteral("count"), count }, { QStringLiteral("skip"), skip } };
}

CameraConfig CameraConfig::defaultCamera()
{
    CameraConfig c;

    VideoEncoder main;
    main.token = QStringLiteral("venc_main");
    main.name = QStringLiteral("MainEncoder");
    main.width = 1920;
    main.height = 1080;
    main.h264Profile = QStringLiteral("High");

    VideoEncoder sub;
    sub.token = QStringLiteral("venc_sub");
    sub.name = QStringLiteral("SubEncoder");
    sub.width = 640;
    sub.height = 360;
    sub.frameRate = 15;
    sub.bitrate = 512;
    sub.govLength = 30;
    sub.h264Profile = QStringLiteral("Baseline");

    VideoEncoder jpeg;
    jpeg.token = QStringLiteral("venc_jpeg");
    jpeg.name = QStringLiteral("JpegEncoder");
    jpeg.encoding = QStringLiteral("JPEG");
    jpeg.width = 1280;
    jpeg.height = 720;
    jpeg.frameRate = 25;
    jpeg.bitrate = 2048;
    VideoEncoder h265;
    h265.token = QStringLiteral("venc_h265");
    h265.name = QStringLiteral("H265Encoder");
    h265.encoding = QStringLiteral("H265");
    h265.width = 2560;
    h265.height = 1440;
    h265.bitrate = 6144;
    h265.profile = QStringLiteral("Main");
    c.videoEncoders = { main, sub, jpeg, h265 };

    AudioEncoder audio;
    audio.token = QStringLiteral("aenc_0");
    audio.name = QStringLiteral("AudioEncoder");
    c.audioEncoders = { audio };

    PtzNodeConfig node;
    node.token = QStringLiteral("ptz_node_0");
    node.name = QStringLiteral("PTZ");
    c.ptzNodes = { node };

    auto profile = [](const char* token, const char* name, const char* video, const char* audioToken,
                       const char* ptz) {
        ProfileConfig p;
        p.token = QLatin1String(token);
        p.name = QLatin1String(name);
        p.videoEncoder = QLatin1String(video);
        p.audioEncoder = QLatin1String(audioToken);
        p.ptzNode = QLatin1String(ptz);
        return p;
    };
    c.profiles = {
        profile("prof_main", "MainStream", "venc_main", "aenc_0", "ptz_node_0"),
        profile("prof_sub", "SubStream", "venc_sub", "", "ptz_node_0"),
        // Shares the main encoder: clients that de-duplicate by encoder keep only the first.
        profile("prof_main_copy", "MainStreamCopy", "venc_main", "", ""),
        profile("prof_jpeg", "JpegStream", "venc_jpeg", "aenc_0", ""),
        // Only in Media2; the Media1 profiles keep their places around it.
        profile("profile_h265", "H265", "venc_h265", "", ""),
        profile("prof_audio", "AudioOnly", "", "aenc_0", ""),
    };
    c.profiles[4].media2Only = true;
    return c;
}

QStringList CameraConfig::knownQuirks()
{
    return { QStringLiteral("clock-skew"), QStringLiteral("digest-only"), QStringLiteral("snapshot-digest"),
        QStringLiteral("nonce-replay"), QStringLiteral("lockout"), QStringLiteral("no-getservices"),
        QStringLiteral("nat"), QStringLiteral("prefixed-faults"), QStringLiteral("undeclared-prefix"),
        QStringLiteral("ptz-stop-ignored"), QStringLiteral("subscription-early-expiry"),
        QStringLiteral("renew-refused"), QStringLiteral("reboot"), QStringLiteral("crlf-odd-prefixes"),
        QStringLiteral("jpeg-no-ratecontrol"), QStringLiteral("media2-only") };
}

bool CameraConfig::applyQuirk(const QString& name, QString* error)
{
    if (!knownQuirks().contains(name)) {
        if (error)
            *error = QStringLiteral("unknown quirk \"%1\" (known: %2)").arg(name, knownQuirks().join(", "));
        return false;
    }
    if (!quirks.contains(name))
        quirks.append(name);
    if (name == QLatin1String("clock-skew") && clockOffsetMs == 0)
        clockOffsetMs = quirkClockOffsetMs;
    else if (name == QLatin1String("nonce-replay"))
        rejectReplayedNonce = true;
    else if (name == QLatin1String("crlf-odd-prefixes"))
        soapPrefix = QStringLiteral("SOAP-ENV");
    else if (name == QLatin1String("jpeg-no-ratecontrol")) {
        for (VideoEncoder& v : videoEncoders) {
            if (v.encoding == QLatin1String("JPEG"))
                v.rateControl = false;
        }
    }
    return true;
}

bool CameraConfig::applyJson(const QJsonObject& json, QString* error)
{
    readString(json, "host", host);
    readInt(json, "port", port);
    readString(json, "manufacturer", manufacturer);
    readString(json, "model", model);
    readString(json, "firmwareVersion", firmwareVersion);
    readString(json, "serialNumber", serialNumber);
    readString(json, "hardwareId", hardwareId);
    readString(json, "hardwareScope", hardwareScope);
    readString(json, "endpointUuid", endpointUuid);
    readString(json, "user", user);
    readString(json, "password", password);
    readBool(json, "requireAuth", requireAuth);
    readBool(json, "allowPasswordText", allowPasswordText);
    readInt(json, "allowedSkewMs", allowedSkewMs);
    readBool(json, "rejectReplayedNonce", rejectReplayedNonce);
    readInt(json, "authFailureStatus", authFailureStatus);
    readInt(json, "clockOffsetMs", clockOffsetMs);
    readInt(json, "eventIntervalMs", eventIntervalMs);
    readInt(json, "maxThreads", maxThreads);
    readInt(json, "keepAliveTimeoutSec", keepAliveTimeoutSec);
    readInt(json, "logLimit", logLimit);
    readString(json, "soapPrefix", soapPrefix);
    readInt(json, "quirkClockOffsetMs", quirkClockOffsetMs);
    readInt(json, "lockoutAttempts", lockoutAttempts);
    readInt(json, "lockoutMs", lockoutMs);
    readInt(json, "digestNonceLifetimeMs", digestNonceLifetimeMs);
    readString(json, "natHost", natHost);
    readInt(json, "natPort", natPort);
    readInt(json, "subscriptionLifetimeMs", subscriptionLifetimeMs);
    readInt(json, "rebootAfterMs", rebootAfterMs);
    if (json.contains(QLatin1String("anonymousOperations"))) {
        anonymousOperations.clear();
        for (const QJsonValue& v : json.value(QLatin1String("anonymousOperations")).toArray())
            anonymousOperations.append(v.toString());
    }

    const QJsonObject caps = json.value(QLatin1String("capabilities")).toObject();
    readBool(caps, "device", deviceCapability);
    readBool(caps, "media", mediaCapability);
    readBool(caps, "media2", media2Capability);
    readBool(caps, "ptz", ptzCapability);
    readBool(caps, "events", eventsCapability);
    readBool(caps, "imaging", imagingCapability);

    if (json.contains(QLatin1String("videoEncoders"))) {
        videoEncoders.clear();
        for (const QJsonObject& o : objects(json.value(QLatin1String("videoEncoders")))) {
            VideoEncoder v;
            readString(o, "token", v.token);
            v.name = v.token;
            readString(o, "name", v.name);
            readString(o, "encoding", v.encoding);
            readInt(o, "width", v.width);
            readInt(o, "height", v.height);
            readInt(o, "quality", v.quality);
            readInt(o, "frameRate", v.frameRate);
            readInt(o, "bitrate", v.bitrate);
            readInt(o, "govLength", v.govLength);
            readString(o, "h264Profile", v.h264Profile);
            readString(o, "profile", v.profile);
            readBool(o, "rateControl", v.rateControl);
            videoEncoders.append(v);
        }
    }
    if (json.contains(QLatin1String("audioEncoders"))) {
        audioEncoders.clear();
        for (const QJsonObject& o : objects(json.value(QLatin1String("audioEncoders")))) {
            AudioEncoder a;
            readString(o, "token", a.token);
            a.name = a.token;
            readString(o, "name", a.name);
            readString(o, "encoding", a.encoding);
            readInt(o, "bitrate", a.bitrate);
            readInt(o, "sampleRate", a.sampleRate);
            audioEncoders.append(a);
        }
    }
    if (json.contains(QLatin1String("ptzNodes"))) {
        ptzNodes.clear();
        for (const QJsonObject& o : objects(json.value(QLatin1String("ptzNodes")))) {
            PtzNodeConfig n;
            readString(o, "token", n.token);
            n.name = n.token;
            readString(o, "name", n.name);
            readInt(o, "maxPresets", n.maxPresets);
            readBool(o, "homeSupported", n.homeSupported);
            readBool(o, "fixedHomePosition", n.fixedHomePosition);
            ptzNodes.append(n);
        }
    }
    if (json.contains(QLatin1String("profiles"))) {
        profiles.clear();
        for (const QJsonObject& o : objects(json.value(QLatin1String("profiles")))) {
            ProfileConfig p;
            readString(o, "token", p.token);
            p.name = p.token;
            readString(o, "name", p.name);
            readString(o, "videoEncoder", p.videoEncoder);
            readString(o, "audioEncoder", p.audioEncoder);
            readString(o, "ptzNode", p.ptzNode);
            readString(o, "streamUri", p.streamUri);
            readBool(o, "media2Only", p.media2Only);
            profiles.append(p);
        }
    }
    const QJsonObject faultsJson = json.value(QLatin1String("faults")).toObject();
    for (auto it = faultsJson.begin(); it != faultsJson.end(); ++it) {
        QString faultError;
        const FaultSpec spec = FaultSpec::fromJson(it.value().toObject(), &faultError);
        if (!faultError.isEmpty()) {
            if (error)
                *error = QStringLiteral("fault for %1: %2").arg(it.key(), faultError);
            return false;
        }
        faults.insert(it.key(), spec);
    }

    // Dangling references would make answers that no real camera gives.
    auto hasVideo = [this](const QString& t) {
        return std::any_of(
            videoEncoders.begin(), videoEncoders.end(), [&t](const VideoEncoder& v) { return v.token == t; });
    };
    auto hasAudio = [this](const QString& t) {
        return std::any_of(
            audioEncoders.begin(), audioEncoders.end(), [&t](const AudioEncoder& a) { return a.token == t; });
    };
    auto hasNode = [this](const QString& t) {
        return std::any_of(
            ptzNodes.begin(), ptzNodes.end(), [&t](const PtzNodeConfig& n) { return n.token == t; });
    };
    for (const ProfileConfig& p : profiles) {
        QString bad;
        if (p.token.isEmpty())
            bad = QStringLiteral("a profile without token");
        else if (!p.videoEncoder.isEmpty() && !hasVideo(p.videoEncoder))
            bad = QStringLiteral("unknown video encoder %1").arg(p.videoEncoder);
        else if (!p.audioEncoder.isEmpty() && !hasAudio(p.audioEncoder))
            bad = QStringLiteral("unknown audio encoder %1").arg(p.audioEncoder);
        else if (!p.ptzNode.isEmpty() && !hasNode(p.ptzNode))
            bad = QStringLiteral("unknown PTZ node %1").arg(p.ptzNode);
        if (!bad.isEmpty()) {
            if (error)
                *error = QStringLiteral("profile %1: %2").arg(p.token, bad);
            return false;
        }
    }
    if (authFailureStatus != 400 && authFailureStatus != 401) {
        if (error)
            *error = QStringLiteral("authFailureStatus must be 400 or 401");
        return false;
    }
    // Last, so that a quirk adjusts the encoders and settings read above.
    for (const QJsonValue& v : json.value(QLatin1String("quirks")).toArray()) {
        if (!applyQuirk(v.toString(), error))
            return false;
    }
    return true;
}

bool parseConfig(const QByteArray& jsonText, QVector<CameraConfig>& cameras, QString* error)
{
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(jsonText, &parseError);
    if (!doc.isObject()) {
        if (error)
            *error = parseError.error != QJsonParseError::NoError
                ? parseError.errorString()
                : QStringLiteral("top level is not an object");
        return false;
    }
    const QJsonObject root = doc.object();
    CameraConfig base = CameraConfig::defaultCamera();
    QVector<QJsonObject> list;
    if (root.contains(QLatin1String("cameras"))) {
        if (!base.applyJson(root.value(QLatin1String("defaults")).toObject(), error))
            return false;
        list = objects(root.value(QLatin1String("cameras")));
    } else {
        list = { root };
    }
    cameras.clear();
    for (const QJsonObject& o : list) {
        CameraConfig c = base;
        if (!c.applyJson(o, error))
            return false;
        const int repeat = o.value(QLatin1String("repeat")).toInt(1);
        for (int i = 0; i < repeat; ++i) {
            CameraConfig copy = c;
            if (repeat > 1) {
                copy.serialNumber
                    = QStringLiteral("%1-%2").arg(c.serialNumber).arg(i + 1, 4, 10, QLatin1Char('0'));
                if (c.port != 0)
                    copy.port = static_cast<quint16>(c.port + i);
            }
            cameras.append(copy);
        }
    }
    return true;
}

} // namespace CameraSim
