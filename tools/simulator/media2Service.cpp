// The Media2 (ver20) service: the same profiles, encoders and URIs as Media1, in Media2's shapes,
// plus what Media1 cannot express (H.265, profiles marked media2Only).

#include "cameraImpl.h"
#include "soapXml.h"

#include <QUrl>

#include <algorithm>

namespace CameraSim {

using Soap::esc;

namespace {

const QLatin1String kSender("Sender");
const QLatin1String kReceiver("Receiver");
// Declared on each response element rather than in the envelope, which stays as Media1 clients know it.
const char kTr2Ns[] = "http://www.onvif.org/ver20/media/wsdl";

QString el(const char* name, const QString& text)
{
    const QLatin1String n(name);
    return QLatin1Char('<') + n + QLatin1Char('>') + text + QLatin1String("</") + n + QLatin1Char('>');
}

QString number(double v)
{
    return QString::number(v, 'g', 6);
}

QString multicast2()
{
    return QStringLiteral(
        "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>0.0.0.0</tt:IPv4Address>"
        "</tt:Address><tt:Port>0</tt:Port><tt:TTL>0</tt:TTL><tt:AutoStart>false</tt:AutoStart>"
        "</tt:Multicast>");
}

// Media2 names audio encodings by their MIME subtype.
QString audioMimeName(const QString& encoding)
{
    if (encoding == QLatin1String("G711"))
        return QStringLiteral("PCMU");
    if (encoding == QLatin1String("AAC"))
        return QStringLiteral("MP4A-LATM");
    return encoding;
}

QString profileAttribute(const VideoEncoder& v)
{
    if (!v.profile.isEmpty())
        return v.profile;
    return v.encoding == QLatin1String("H264") ? v.h264Profile : QStringLiteral("Main");
}

} // namespace

QString Camera::Impl::media2CapabilitiesXml() const
{
    return QStringLiteral("<tr2:Capabilities xmlns:tr2=\"%1\" SnapshotUri=\"true\" Rotation=\"false\" "
                          "VideoSourceMode=\"false\" OSD=\"false\"><tr2:ProfileCapabilities "
                          "MaximumNumberOfProfiles=\"%2\"/><tr2:StreamingCapabilities RTSPStreaming=\"true\" "
                          "RTPMulticast=\"false\" RTP_RTSP_TCP=\"true\" NonAggregateControl=\"false\"/>"
                          "</tr2:Capabilities>")
        .arg(QLatin1String(kTr2Ns))
        .arg(std::max(10, static_cast<int>(config.profiles.size())));
}

SoapReply Camera::Impl::media2Operation(const SoapRequest& request, bool emptyUri)
{
    const QString& op = request.operation;
    const QDomElement& body = request.body;
    SoapReply reply;
    auto respond = [&](const QString& inner) {
        reply.body = QStringLiteral("<tr2:%1Response xmlns:tr2=\"%2\">%3</tr2:%1Response>")
                         .arg(op, QLatin1String(kTr2Ns), inner);
        return reply;
    };
    auto findProfile = [this](const QString& token) {
        return std::find_if(config.profiles.begin(), config.profiles.end(),
            [&token](const ProfileConfig& p) { return p.token == token; });
    };
    auto noProfile = [this] {
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoProfile"),
            QStringLiteral("The requested profile token does not exist"));
    };
    auto videoEncoderXml = [this](const QString& element, const VideoEncoder& v) {
        QString attributes;
        if (v.encoding == QLatin1String("H264") || v.encoding == QLatin1String("H265"))
            attributes = QStringLiteral(" GovLength=\"%1\" Profile=\"%2\"")
                             .arg(v.govLength)
                             .arg(esc(profileAttribute(v)));
        QString x = QStringLiteral("<%1 token=\"%2\"%3>").arg(element, esc(v.token), attributes)
            + el("tt:Name", esc(v.name))
            + el("tt:UseCount", QString::number(useCount(&ProfileConfig::videoEncoder, v.token, true)))
            + el("tt:Encoding", esc(v.encoding))
            + el("tt:Resolution",
                el("tt:Width", QString::number(v.width)) + el("tt:Height", QString::number(v.height)));
        if (v.rateControl)
            x += QStringLiteral("<tt:RateControl ConstantBitRate=\"false\">")
                + el("tt:FrameRateLimit", QString::number(v.frameRate))
                + el("tt:BitrateLimit", QString::number(v.bitrate)) + QStringLiteral("</tt:RateControl>");
        return x + multicast2() + el("tt:Quality", number(v.quality)) + QStringLiteral("</%1>").arg(element);
    };
    auto audioEncoderXml = [this](const QString& element, const AudioEncoder& a) {
        return QStringLiteral("<%1 token=\"%2\">").arg(element, esc(a.token)) + el("tt:Name", esc(a.name))
            + el("tt:UseCount", QString::number(useCount(&ProfileConfig::audioEncoder, a.token, true)))
            + el("tt:Encoding", esc(audioMimeName(a.encoding))) + multicast2()
            + el("tt:Bitrate", QString::number(a.bitrate))
            + el("tt:SampleRate", QString::number(a.sampleRate)) + QStringLiteral("</%1>").arg(element);
    };

    if (op == QLatin1String("GetServiceCapabilities"))
        return respond(media2CapabilitiesXml().replace(
            QStringLiteral(" xmlns:tr2=\"%1\"").arg(QLatin1String(kTr2Ns)), QString()));

    if (op == QLatin1String("GetProfiles")) {
        const QString token = Soap::childText(body, "Token");
        QStringList types;
        for (QDomElement e = body.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
            if (e.localName() == QLatin1String("Type"))
                types << e.text().trimmed();
        }
        // Configurations come back only when asked for by type.
        auto wants = [&types](const char* type) {
            return types.contains(QLatin1String("All")) || types.contains(QLatin1String(type));
        };
        if (!token.isEmpty() && findProfile(token) == config.profiles.end())
            return noProfile();
        QString x;
        for (const ProfileConfig& p : config.profiles) {
            if (!token.isEmpty() && p.token != token)
                continue;
            const auto video = std::find_if(config.videoEncoders.begin(), config.videoEncoders.end(),
                [&p](const VideoEncoder& v) { return v.token == p.videoEncoder; });
            const auto audio = std::find_if(config.audioEncoders.begin(), config.audioEncoders.end(),
                [&p](const AudioEncoder& a) { return a.token == p.audioEncoder; });
            const auto node = std::find_if(config.ptzNodes.begin(), config.ptzNodes.end(),
                [&p](const PtzNodeConfig& n) { return n.token == p.ptzNode; });
            const bool hasVideo = video != config.videoEncoders.end();
            const bool hasAudio = audio != config.audioEncoders.end();
            QString set; // ConfigurationSet's order: VideoSource, AudioSource, VideoEncoder, AudioEncoder,
                         // .., PTZ
            if (hasVideo && wants("VideoSource"))
                set += videoSourceConfigurationXml(QStringLiteral("tr2:VideoSource"), true);
            if (hasAudio && wants("AudioSource"))
                set += audioSourceConfigurationXml(QStringLiteral("tr2:AudioSource"), audio->token, true);
            if (hasVideo && wants("VideoEncoder"))
                set += videoEncoderXml(QStringLiteral("tr2:VideoEncoder"), *video);
            if (hasAudio && wants("AudioEncoder"))
                set += audioEncoderXml(QStringLiteral("tr2:AudioEncoder"), *audio);
            if (node != config.ptzNodes.end() && wants("PTZ"))
                set += ptzConfigurationXml(QStringLiteral("tr2:PTZ"), *node, true);
            x += QStringLiteral("<tr2:Profiles token=\"%1\" fixed=\"true\">").arg(esc(p.token))
                + el("tr2:Name", esc(p.name));
            if (!set.isEmpty())
                x += el("tr2:Configurations", set);
            x += QStringLiteral("</tr2:Profiles>");
        }
        return respond(x);
    }

    static const QStringList configurationLists
        = { QStringLiteral("GetVideoSourceConfigurations"), QStringLiteral("GetVideoEncoderConfigurations"),
              QStringLiteral("GetAudioSourceConfigurations"), QStringLiteral("GetAudioEncoderConfigurations"),
              QStringLiteral("GetVideoEncoderConfigurationOptions") };
    if (configurationLists.contains(op)) {
        // Every configuration here suits every profile (one source of each kind), so a
        // ProfileToken only has to exist.
        const QString profileToken = Soap::childText(body, "ProfileToken");
        if (!profileToken.isEmpty() && findProfile(profileToken) == config.profiles.end())
            return noProfile();
        const QString wanted = Soap::childText(body, "ConfigurationToken");
        const QString element = QStringLiteral("tr2:Configurations");
        QString x;
        bool found = wanted.isEmpty();
        if (op == QLatin1String("GetVideoSourceConfigurations")) {
            if (!config.videoEncoders.isEmpty() && (wanted.isEmpty() || wanted == QLatin1String("vsc_0"))) {
                x = videoSourceConfigurationXml(element, true);
                found = true;
            }
        } else if (op == QLatin1String("GetAudioSourceConfigurations")) {
            if (!config.audioEncoders.isEmpty() && (wanted.isEmpty() || wanted == QLatin1String("asc_0"))) {
                x = audioSourceConfigurationXml(element, config.audioEncoders.first().token, true);
                found = true;
            }
        } else if (op == QLatin1String("GetAudioEncoderConfigurations")) {
            for (const AudioEncoder& a : config.audioEncoders) {
                if (wanted.isEmpty() || a.token == wanted) {
                    x += audioEncoderXml(element, a);
                    found = true;
                }
            }
        } else {
            for (const VideoEncoder& v : config.videoEncoders) {
                if (wanted.isEmpty() || v.token == wanted) {
                    x += videoEncoderXml(element, v);
                    found = true;
                }
            }
        }
        if (!found)
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoConfig"),
                QStringLiteral("No such configuration"));
        if (op != QLatin1String("GetVideoEncoderConfigurationOptions"))
            return respond(x);

        // Options for every encoding the camera has, whichever configuration was named: an encoder
        // may be switched to another encoding. Resolutions include every configured one.
        QVector<QPair<int, int>> sizes = { { 2560, 1440 }, { 1920, 1080 }, { 1280, 720 }, { 640, 360 } };
        for (const VideoEncoder& v : config.videoEncoders) {
            if (!sizes.contains(qMakePair(v.width, v.height)))
                sizes.append(qMakePair(v.width, v.height));
        }
        std::sort(sizes.begin(), sizes.end(), [](const auto& a, const auto& b) { return a > b; });
        QString resolutions;
        for (const auto& size : sizes)
            resolutions += el("tt:ResolutionsAvailable",
                el("tt:Width", QString::number(size.first)) + el("tt:Height", QString::number(size.second)));
        const struct
        {
            const char* encoding;
            const char* profiles; // empty: no GovLength or Profile
        } encodings[] = { { "H264", "Baseline Main High" }, { "H265", "Main Main10" }, { "JPEG", "" } };
        QString options;
        for (const auto& e : encodings) {
            const bool gop = *e.profiles != '\0';
            options += QStringLiteral("<tr2:Options");
            if (gop)
                options += QStringLiteral(" GovLengthRange=\"1 250\"");
            options += QStringLiteral(" FrameRatesSupported=\"25 20 15 10 5 1\"");
            if (gop)
                options += QStringLiteral(" ProfilesSupported=\"%1\" ConstantBitRateSupported=\"true\"")
                               .arg(QLatin1String(e.profiles));
            options += QLatin1Char('>') + el("tt:Encoding", QLatin1String(e.encoding))
                + el(
                    "tt:QualityRange", el("tt:Min", QStringLiteral("0")) + el("tt:Max", QStringLiteral("10")))
                + resolutions
                + el("tt:BitrateRange",
                    el("tt:Min", QStringLiteral("64")) + el("tt:Max", QStringLiteral("16384")))
                + QStringLiteral("</tr2:Options>");
        }
        return respond(options);
    }

    if (op == QLatin1String("GetStreamUri") || op == QLatin1String("GetSnapshotUri")) {
        const auto p = findProfile(Soap::childText(body, "ProfileToken"));
        if (p == config.profiles.end())
            return noProfile();
        QString uri;
        if (op == QLatin1String("GetSnapshotUri")) {
            if (p->videoEncoder.isEmpty())
                return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
                    QStringLiteral("The profile has no video, so no snapshot"));
            uri = snapshotUri(*p);
        } else {
            const QString protocol = Soap::childText(body, "Protocol");
            if (protocol == QLatin1String("RtspUnicast") || protocol == QLatin1String("RTSP")) {
                uri = streamUri(*p); // the very URI Media1 gives, so clients can compare the two
            } else if (protocol == QLatin1String("RtspOverHttp")) {
                // Tunnelled through the camera's web server, on its port, whatever RTSP's is.
                QString path = QStringLiteral("/rtsp-over-http/")
                    + QString::fromLatin1(QUrl::toPercentEncoding(p->token));
                if (!p->streamUri.isEmpty()) {
                    const QUrl configured(p->streamUri);
                    path = configured.path(QUrl::FullyEncoded);
                    if (configured.hasQuery())
                        path += QLatin1Char('?') + configured.query(QUrl::FullyEncoded);
                }
                uri = base() + path;
            } else {
                return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:InvalidStreamSetup"),
                    QStringLiteral("Streaming protocol not supported: %1").arg(protocol));
            }
        }
        if (emptyUri)
            uri.clear();
        return respond(el("tr2:Uri", esc(uri)));
    }

    return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
        QStringLiteral("Optional Action Not Implemented: %1").arg(op));
}

} // namespace CameraSim
