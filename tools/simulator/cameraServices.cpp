// The ONVIF operations of one simulated camera: device, media, PTZ and events.

#include "cameraImpl.h"
#include "soapXml.h"

#include <QBuffer>
#include <QImage>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace CameraSim {

using Soap::esc;

namespace {

const QLatin1String kSender("Sender");
const QLatin1String kReceiver("Receiver");
const qint64 kDefaultSubscriptionMs = 60000;
const qint64 kMaxPullWaitMs = 30000;

const char kPtPosition[] = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace";
const char kZPosition[] = "http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace";
const char kPtTranslation[] = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationGenericSpace";
const char kZTranslation[] = "http://www.onvif.org/ver10/tptz/ZoomSpaces/TranslationGenericSpace";
const char kPtVelocity[] = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/VelocityGenericSpace";
const char kZVelocity[] = "http://www.onvif.org/ver10/tptz/ZoomSpaces/VelocityGenericSpace";
const char kPtSpeed[] = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/GenericSpeedSpace";
const char kZSpeed[] = "http://www.onvif.org/ver10/tptz/ZoomSpaces/ZoomGenericSpeedSpace";

QString num(double v)
{
    return QString::number(v, 'g', 6);
}

QString el(const char* name, const QString& text)
{
    const QLatin1String n(name);
    return QLatin1Char('<') + n + QLatin1Char('>') + text + QLatin1String("</") + n + QLatin1Char('>');
}

QString range(const char* name, double lo, double hi)
{
    return el(name, el("tt:Min", num(lo)) + el("tt:Max", num(hi)));
}

QString space2D(const char* name, const char* uri, double lo, double hi)
{
    return el(
        name, el("tt:URI", QLatin1String(uri)) + range("tt:XRange", lo, hi) + range("tt:YRange", lo, hi));
}

QString space1D(const char* name, const char* uri, double lo, double hi)
{
    return el(name, el("tt:URI", QLatin1String(uri)) + range("tt:XRange", lo, hi));
}

QString multicast()
{
    return QStringLiteral(
        "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>0.0.0.0</tt:IPv4Address>"
        "</tt:Address><tt:Port>0</tt:Port><tt:TTL>0</tt:TTL><tt:AutoStart>false</tt:AutoStart>"
        "</tt:Multicast><tt:SessionTimeout>PT60S</tt:SessionTimeout>");
}

QString positionXml(const char* name, const PtzPosition& p)
{
    return QStringLiteral(
        "<%1><tt:PanTilt x=\"%2\" y=\"%3\" space=\"%4\"/><tt:Zoom x=\"%5\" space=\"%6\"/></%1>")
        .arg(QLatin1String(name), num(p.pan), num(p.tilt), QLatin1String(kPtPosition), num(p.zoom),
            QLatin1String(kZPosition));
}

double attr(const QDomElement& e, const char* name, double fallback)
{
    bool ok = false;
    const double v = e.attribute(QLatin1String(name)).toDouble(&ok);
    return ok && std::isfinite(v) ? v : fallback;
}

} // namespace

SoapReply Camera::Impl::fault(
    int status, const QString& code, const QString& subcode, const QString& reason) const
{
    SoapReply reply;
    reply.status = status;
    reply.body = faultReply(code, subcode, reason);
    return reply;
}

SoapReply Camera::Impl::dispatch(const SoapRequest& request, bool emptyUri)
{
    const QString& op = request.operation;
    const QString& ns = request.operationNs;
    auto unsupported = [&] {
        return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("Optional Action Not Implemented: %1").arg(op));
    };

    if (ns == QLatin1String("http://www.onvif.org/ver10/device/wsdl")) {
        if (op == QLatin1String("GetDeviceInformation"))
            return getDeviceInformation();
        if (op == QLatin1String("GetCapabilities"))
            return getCapabilities(request);
        if (op == QLatin1String("GetServices") && !config.hasQuirk("no-getservices"))
            return getServices(request);
        if (op == QLatin1String("GetSystemDateAndTime"))
            return getSystemDateAndTime();
        return deviceSettings(op);
    }
    // media2-only: Media1 is refused and Media2 alone serves the profiles.
    if (ns == QLatin1String("http://www.onvif.org/ver10/media/wsdl") && media1Served()) {
        if (op == QLatin1String("GetProfiles"))
            return getProfiles(request, false);
        if (op == QLatin1String("GetProfile"))
            return getProfiles(request, true);
        const QString mediaList = mediaConfigurations(op);
        if (!mediaList.isNull()) {
            SoapReply reply;
            reply.body = QStringLiteral("<trt:%1Response>%2</trt:%1Response>").arg(op, mediaList);
            return reply;
        }
        if (op == QLatin1String("GetVideoSources")) {
            SoapReply reply;
            reply.body = QStringLiteral("<trt:GetVideoSourcesResponse>");
            if (!config.videoEncoders.isEmpty())
                reply.body += QStringLiteral(
                    "<trt:VideoSources token=\"vsrc_0\"><tt:Framerate>25</tt:Framerate><tt:Resolution>"
                    "<tt:Width>1920</tt:Width><tt:Height>1080</tt:Height></tt:Resolution></"
                    "trt:VideoSources>");
            reply.body += QStringLiteral("</trt:GetVideoSourcesResponse>");
            return reply;
        }
        if (op == QLatin1String("GetVideoEncoderConfiguration")) {
            const QString item = configurationsXml(QStringLiteral("VideoEncoderConfiguration"),
                QStringLiteral("trt:Configuration"), Soap::childText(request.body, "ConfigurationToken"));
            if (item.isEmpty())
                return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoConfig"),
                    QStringLiteral("No such configuration"));
            SoapReply reply;
            reply.body = QStringLiteral("<trt:%1Response>%2</trt:%1Response>").arg(op, item);
            return reply;
        }
        if (op == QLatin1String("GetVideoEncoderConfigurationOptions")) {
            SoapReply reply;
            reply.body = QStringLiteral(
                "<trt:GetVideoEncoderConfigurationOptionsResponse><trt:Options><tt:QualityRange><tt:Min>0"
                "</tt:Min><tt:Max>10</tt:Max></tt:QualityRange><tt:JPEG><tt:ResolutionsAvailable><tt:Width>"
                "1920</tt:Width><tt:Height>1080</tt:Height></"
                "tt:ResolutionsAvailable><tt:ResolutionsAvailable>"
                "<tt:Width>640</tt:Width><tt:Height>360</tt:Height></tt:ResolutionsAvailable>"
                "<tt:FrameRateRange><tt:Min>1</tt:Min><tt:Max>25</tt:Max></tt:FrameRateRange>"
                "<tt:EncodingIntervalRange><tt:Min>1</tt:Min><tt:Max>1</tt:Max></tt:EncodingIntervalRange>"
                "</tt:JPEG><tt:H264><tt:ResolutionsAvailable><tt:Width>1920</tt:Width><tt:Height>1080"
                "</tt:Height></tt:ResolutionsAvailable><tt:ResolutionsAvailable><tt:Width>640</tt:Width>"
                "<tt:Height>360</tt:Height></tt:ResolutionsAvailable><tt:GovLengthRange><tt:Min>1</tt:Min>"
                "<tt:Max>250</tt:Max></tt:GovLengthRange><tt:FrameRateRange><tt:Min>1</tt:Min><tt:Max>25"
                "</tt:Max></tt:FrameRateRange><tt:EncodingIntervalRange><tt:Min>1</tt:Min><tt:Max>1</tt:Max>"
                "</tt:EncodingIntervalRange><tt:H264ProfilesSupported>Main</tt:H264ProfilesSupported>"
                "</tt:H264></trt:Options></trt:GetVideoEncoderConfigurationOptionsResponse>");
            return reply;
        }
        if (op == QLatin1String("GetStreamUri"))
            return getMediaUri(request, false, emptyUri);
        if (op == QLatin1String("GetSnapshotUri"))
            return getMediaUri(request, true, emptyUri);
        return unsupported();
    }
    if (ns == QLatin1String("http://www.onvif.org/ver20/media/wsdl") && config.media2Capability)
        return media2Operation(request, emptyUri);
    if (ns == QLatin1String("http://www.onvif.org/ver20/ptz/wsdl") && config.ptzCapability)
        return ptzOperation(request);
    if ((ns == QLatin1String("http://www.onvif.org/ver10/events/wsdl")
            || ns == QLatin1String("http://docs.oasis-open.org/wsn/b-2"))
        && config.eventsCapability)
        return eventOperation(request);
    if (ns == QLatin1String("http://www.onvif.org/ver20/imaging/wsdl") && config.imagingCapability)
        return imagingOperation(request);
    return unsupported();
}

SoapReply Camera::Impl::deviceSettings(const QString& op)
{
    SoapReply reply;
    const QString host = advertisedHost();
    QString inner;
    if (op == QLatin1String("GetScopes")) {
        const QStringList scopes = { QStringLiteral("onvif://www.onvif.org/Profile/Streaming"),
            QStringLiteral("onvif://www.onvif.org/name/") + esc(config.manufacturer),
            QStringLiteral("onvif://www.onvif.org/hardware/") + esc(config.hardwareScope) };
        for (const QString& scope : scopes)
            inner += QStringLiteral(
                "<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef><tt:ScopeItem>%1</tt:ScopeItem>"
                "</tds:Scopes>")
                         .arg(scope);
    } else if (op == QLatin1String("GetHostname")) {
        inner
            = QStringLiteral("<tds:HostnameInformation><tt:FromDHCP>false</tt:FromDHCP><tt:Name>%1</tt:Name>"
                             "</tds:HostnameInformation>")
                  .arg(esc(config.model));
    } else if (op == QLatin1String("GetNetworkInterfaces")) {
        inner = QStringLiteral(
            "<tds:NetworkInterfaces "
            "token=\"eth0\"><tt:Enabled>true</tt:Enabled><tt:Info><tt:Name>eth0</tt:Name>"
            "<tt:HwAddress>02:00:00:00:00:01</tt:HwAddress><tt:MTU>1500</tt:MTU></tt:Info><tt:IPv4>"
            "<tt:Enabled>true</tt:Enabled><tt:Config><tt:Manual><tt:Address>%1</tt:Address>"
            "<tt:PrefixLength>8</tt:PrefixLength></tt:Manual><tt:DHCP>false</tt:DHCP></tt:Config></tt:IPv4>"
            "</tds:NetworkInterfaces>")
                    .arg(esc(host));
    } else if (op == QLatin1String("GetNTP")) {
        inner = QStringLiteral("<tds:NTPInformation><tt:FromDHCP>false</tt:FromDHCP></tds:NTPInformation>");
    } else if (op == QLatin1String("GetDNS")) {
        inner = QStringLiteral("<tds:DNSInformation><tt:FromDHCP>false</tt:FromDHCP></tds:DNSInformation>");
    } else if (op == QLatin1String("GetUsers")) {
        inner = QStringLiteral("<tds:User><tt:Username>%1</tt:Username><tt:UserLevel>Administrator"
                               "</tt:UserLevel></tds:User>")
                    .arg(esc(config.user));
    } else if (op == QLatin1String("GetServiceCapabilities")) {
        inner = QStringLiteral(
            "<tds:Capabilities><tds:Network NTP=\"0\" HostnameFromDHCP=\"false\"/><tds:Security "
            "UsernameToken=\"true\" HttpDigest=\"%1\"/><tds:System DiscoveryResolve=\"false\" "
            "DiscoveryBye=\"false\" RemoteDiscovery=\"false\" SystemBackup=\"false\" SystemLogging=\"false\" "
            "FirmwareUpgrade=\"false\"/></tds:Capabilities>")
                    .arg(config.hasQuirk("digest-only") ? QStringLiteral("true") : QStringLiteral("false"));
    } else {
        return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("Optional Action Not Implemented: %1").arg(op));
    }
    reply.body = QStringLiteral("<tds:%1Response>%2</tds:%1Response>").arg(op, inner);
    return reply;
}

QString Camera::Impl::configurationsXml(
    const QString& tag, const QString& element, const QString& wantedToken, bool allProfiles) const
{
    // Cut from the profiles, so that lists and profiles never disagree; each configuration once.
    QString x;
    QStringList seen;
    const QString open = QStringLiteral("<tt:%1 token=\"").arg(tag);
    const QString close = QStringLiteral("</tt:%1>").arg(tag);
    for (const ProfileConfig& p : config.profiles) {
        if (p.media2Only && !allProfiles)
            continue;
        const QString xml = profileXml(p, allProfiles);
        const int start = xml.indexOf(open);
        if (start < 0)
            continue;
        const QString token = xml.mid(start + open.size()).section(QLatin1Char('"'), 0, 0);
        if (seen.contains(token) || (!wantedToken.isNull() && token != wantedToken))
            continue;
        seen << token;
        const int end = xml.indexOf(close, start) + close.size();
        x += xml.mid(start, end - start)
                 .replace(QStringLiteral("<tt:%1 ").arg(tag), QStringLiteral("<%1 ").arg(element))
                 .replace(close, QStringLiteral("</%1>").arg(element));
    }
    return x;
}

QString Camera::Impl::mediaConfigurations(const QString& op) const
{
    static const QStringList lists
        = { QStringLiteral("VideoSourceConfiguration"), QStringLiteral("VideoEncoderConfiguration"),
              QStringLiteral("AudioSourceConfiguration"), QStringLiteral("AudioEncoderConfiguration") };
    for (const QString& tag : lists) {
        if (op == QStringLiteral("Get%1s").arg(tag))
            return configurationsXml(tag, QStringLiteral("trt:Configurations"));
    }
    if (op == QLatin1String("GetOSDs") || op == QLatin1String("SetSynchronizationPoint"))
        return QStringLiteral(""); // no OSD elements; nothing to resend
    return QString();
}

SoapReply Camera::Impl::getDeviceInformation()
{
    SoapReply reply;
    reply.body = QStringLiteral("<tds:GetDeviceInformationResponse>")
        + el("tds:Manufacturer", esc(config.manufacturer)) + el("tds:Model", esc(config.model))
        + el("tds:FirmwareVersion", esc(config.firmwareVersion))
        + el("tds:SerialNumber", esc(config.serialNumber)) + el("tds:HardwareId", esc(config.hardwareId))
        + QStringLiteral("</tds:GetDeviceInformationResponse>");
    return reply;
}

SoapReply Camera::Impl::getCapabilities(const SoapRequest& request)
{
    QStringList wanted;
    for (QDomElement e = request.body.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        if (e.localName() == QLatin1String("Category"))
            wanted.append(e.text().trimmed());
    }
    const bool all = wanted.isEmpty() || wanted.contains(QLatin1String("All"));
    const struct
    {
        const char* category;
        bool enabled;
    } sections[] = { { "Analytics", false }, { "Device", config.deviceCapability },
        { "Events", config.eventsCapability }, { "Imaging", config.imagingCapability },
        { "Media", media1Served() }, { "PTZ", config.ptzCapability } };
    if (!all) {
        for (const QString& w : wanted) {
            const auto* s = std::find_if(std::begin(sections), std::end(sections),
                [&w](const auto& x) { return w == QLatin1String(x.category); });
            if (s == std::end(sections) || !s->enabled)
                return fault(400, kReceiver, QStringLiteral("ter:ActionNotSupported/ter:NoSuchService"),
                    QStringLiteral("The requested WSDL service category is not supported: %1").arg(w));
        }
    }
    auto include = [&](const char* category, bool enabled) {
        return enabled && (all || wanted.contains(QLatin1String(category)));
    };
    const QString b = base();
    QString caps;
    if (include("Device", config.deviceCapability)) {
        caps += QStringLiteral(
            "<tt:Device><tt:XAddr>%1/onvif/device_service</tt:XAddr>"
            "<tt:Network><tt:IPFilter>false</tt:IPFilter><tt:ZeroConfiguration>false"
            "</tt:ZeroConfiguration><tt:IPVersion6>false</tt:IPVersion6><tt:DynDNS>false"
            "</tt:DynDNS></tt:Network><tt:System><tt:DiscoveryResolve>false</tt:DiscoveryResolve>"
            "<tt:DiscoveryBye>false</tt:DiscoveryBye><tt:RemoteDiscovery>false</tt:RemoteDiscovery>"
            "<tt:SystemBackup>false</tt:SystemBackup><tt:SystemLogging>false</tt:SystemLogging>"
            "<tt:FirmwareUpgrade>false</tt:FirmwareUpgrade><tt:SupportedVersions><tt:Major>2"
            "</tt:Major><tt:Minor>60</tt:Minor></tt:SupportedVersions></tt:System>"
            "<tt:Security><tt:TLS1.1>false</tt:TLS1.1><tt:TLS1.2>false</tt:TLS1.2>"
            "<tt:OnboardKeyGeneration>false</tt:OnboardKeyGeneration><tt:AccessPolicyConfig>false"
            "</tt:AccessPolicyConfig><tt:X.509Token>false</tt:X.509Token><tt:SAMLToken>false"
            "</tt:SAMLToken><tt:KerberosToken>false</tt:KerberosToken><tt:RELToken>false"
            "</tt:RELToken></tt:Security></tt:Device>")
                    .arg(b);
    }
    if (include("Events", config.eventsCapability)) {
        caps += QStringLiteral("<tt:Events><tt:XAddr>%1/onvif/event_service</tt:XAddr>"
                               "<tt:WSSubscriptionPolicySupport>false</tt:WSSubscriptionPolicySupport>"
                               "<tt:WSPullPointSupport>true</tt:WSPullPointSupport>"
                               "<tt:WSPausableSubscriptionManagerInterfaceSupport>false"
                               "</tt:WSPausableSubscriptionManagerInterfaceSupport></tt:Events>")
                    .arg(b);
    }
    if (include("Imaging", config.imagingCapability))
        caps += QStringLiteral("<tt:Imaging><tt:XAddr>%1/onvif/imaging_service</tt:XAddr></tt:Imaging>")
                    .arg(b);
    if (include("Media", media1Served())) {
        caps += QStringLiteral(
            "<tt:Media><tt:XAddr>%1/onvif/media_service</tt:XAddr><tt:StreamingCapabilities>"
            "<tt:RTPMulticast>false</tt:RTPMulticast><tt:RTP_TCP>true</tt:RTP_TCP>"
            "<tt:RTP_RTSP_TCP>true</tt:RTP_RTSP_TCP></tt:StreamingCapabilities></tt:Media>")
                    .arg(b);
    }
    if (include("PTZ", config.ptzCapability))
        caps += QStringLiteral("<tt:PTZ><tt:XAddr>%1/onvif/ptz_service</tt:XAddr></tt:PTZ>").arg(b);
    SoapReply reply;
    reply.body = QStringLiteral("<tds:GetCapabilitiesResponse><tds:Capabilities>") + caps
        + QStringLiteral("</tds:Capabilities></tds:GetCapabilitiesResponse>");
    return reply;
}

SoapReply Camera::Impl::getServices(const SoapRequest& request)
{
    const bool withCaps = Soap::childText(request.body, "IncludeCapability") == QLatin1String("true");
    const QString b = base();
    const struct
    {
        bool enabled;
        const char* ns;
        const char* path;
        int major, minor;
        const char* caps;
    } services[] = {
        { true, "http://www.onvif.org/ver10/device/wsdl", "/onvif/device_service", 2, 60,
            "<tds:Capabilities><tds:Network IPFilter=\"false\" ZeroConfiguration=\"false\" "
            "IPVersion6=\"false\" "
            "DynDNS=\"false\"/><tds:Security UsernameToken=\"true\" HttpDigest=\"false\"/><tds:System "
            "DiscoveryResolve=\"false\" DiscoveryBye=\"false\" RemoteDiscovery=\"false\" "
            "SystemBackup=\"false\" "
            "SystemLogging=\"false\" FirmwareUpgrade=\"false\"/></tds:Capabilities>" },
        { media1Served(), "http://www.onvif.org/ver10/media/wsdl", "/onvif/media_service", 2, 60,
            "<trt:Capabilities SnapshotUri=\"true\" Rotation=\"false\"><trt:ProfileCapabilities "
            "MaximumNumberOfProfiles=\"10\"/><trt:StreamingCapabilities RTPMulticast=\"false\" "
            "RTP_TCP=\"true\" "
            "RTP_RTSP_TCP=\"true\"/></trt:Capabilities>" },
        { config.media2Capability, "http://www.onvif.org/ver20/media/wsdl", "/onvif/media2_service", 2, 60,
            nullptr },
        { config.ptzCapability, "http://www.onvif.org/ver20/ptz/wsdl", "/onvif/ptz_service", 2, 60,
            "<tptz:Capabilities EFlip=\"false\" Reverse=\"false\" GetCompatibleConfigurations=\"false\"/>" },
        { config.eventsCapability, "http://www.onvif.org/ver10/events/wsdl", "/onvif/event_service", 2, 60,
            "<tev:Capabilities WSSubscriptionPolicySupport=\"false\" WSPullPointSupport=\"true\" "
            "WSPausableSubscriptionManagerInterfaceSupport=\"false\" MaxNotificationProducers=\"10\" "
            "MaxPullPoints=\"10\"/>" },
        { config.imagingCapability, "http://www.onvif.org/ver20/imaging/wsdl", "/onvif/imaging_service", 2,
            60, "<timg:Capabilities ImageStabilization=\"false\"/>" },
    };
    QString body = QStringLiteral("<tds:GetServicesResponse>");
    for (const auto& s : services) {
        if (!s.enabled)
            continue;
        body += QStringLiteral("<tds:Service>") + el("tds:Namespace", QLatin1String(s.ns))
            + el("tds:XAddr", b + QLatin1String(s.path));
        if (withCaps)
            body += el("tds:Capabilities", s.caps ? QString(QLatin1String(s.caps)) : media2CapabilitiesXml());
        body += el("tds:Version",
                    el("tt:Major", QString::number(s.major)) + el("tt:Minor", QString::number(s.minor)))
            + QStringLiteral("</tds:Service>");
    }
    SoapReply reply;
    reply.body = body + QStringLiteral("</tds:GetServicesResponse>");
    return reply;
}

SoapReply Camera::Impl::getSystemDateAndTime()
{
    const QDateTime now = cameraNow();
    auto dateTime = [](const char* name, const QDateTime& t) {
        return el(name,
            el("tt:Time",
                el("tt:Hour", QString::number(t.time().hour()))
                    + el("tt:Minute", QString::number(t.time().minute()))
                    + el("tt:Second", QString::number(t.time().second())))
                + el("tt:Date",
                    el("tt:Year", QString::number(t.date().year()))
                        + el("tt:Month", QString::number(t.date().month()))
                        + el("tt:Day", QString::number(t.date().day()))));
    };
    SoapReply reply;
    reply.body = QStringLiteral("<tds:GetSystemDateAndTimeResponse><tds:SystemDateAndTime>"
                                "<tt:DateTimeType>Manual</tt:DateTimeType><tt:DaylightSavings>false"
                                "</tt:DaylightSavings><tt:TimeZone><tt:TZ>UTC0</tt:TZ></tt:TimeZone>")
        + dateTime("tt:UTCDateTime", now) + dateTime("tt:LocalDateTime", now)
        + QStringLiteral("</tds:SystemDateAndTime></tds:GetSystemDateAndTimeResponse>");
    return reply;
}

int Camera::Impl::useCount(QString ProfileConfig::*member, const QString& token, bool allProfiles) const
{
    return static_cast<int>(std::count_if(config.profiles.begin(), config.profiles.end(),
        [&](const ProfileConfig& q) { return (allProfiles || !q.media2Only) && q.*member == token; }));
}

QString Camera::Impl::videoSourceConfigurationXml(const QString& element, bool allProfiles) const
{
    const int uses = static_cast<int>(std::count_if(config.profiles.begin(), config.profiles.end(),
        [&](const ProfileConfig& q) { return (allProfiles || !q.media2Only) && !q.videoEncoder.isEmpty(); }));
    return QStringLiteral("<%1 token=\"vsc_0\"><tt:Name>VideoSourceConfig</tt:Name>"
                          "<tt:UseCount>%2</tt:UseCount><tt:SourceToken>vsrc_0</tt:SourceToken>"
                          "<tt:Bounds x=\"0\" y=\"0\" width=\"1920\" height=\"1080\"/></%1>")
        .arg(element)
        .arg(uses);
}

QString Camera::Impl::audioSourceConfigurationXml(
    const QString& element, const QString& audioEncoder, bool allProfiles) const
{
    return QStringLiteral("<%1 token=\"asc_0\"><tt:Name>AudioSourceConfig</tt:Name>"
                          "<tt:UseCount>%2</tt:UseCount><tt:SourceToken>asrc_0</tt:SourceToken></%1>")
        .arg(element)
        .arg(useCount(&ProfileConfig::audioEncoder, audioEncoder, allProfiles));
}

QString Camera::Impl::ptzConfigurationXml(
    const QString& element, const PtzNodeConfig& node, bool allProfiles) const
{
    return QStringLiteral("<%1 token=\"ptzcfg_%2\">").arg(element, esc(node.token))
        + el("tt:Name", esc(node.name))
        + el("tt:UseCount", QString::number(useCount(&ProfileConfig::ptzNode, node.token, allProfiles)))
        + el("tt:NodeToken", esc(node.token))
        + el("tt:DefaultAbsolutePantTiltPositionSpace", QLatin1String(kPtPosition))
        + el("tt:DefaultAbsoluteZoomPositionSpace", QLatin1String(kZPosition))
        + el("tt:DefaultRelativePanTiltTranslationSpace", QLatin1String(kPtTranslation))
        + el("tt:DefaultRelativeZoomTranslationSpace", QLatin1String(kZTranslation))
        + el("tt:DefaultContinuousPanTiltVelocitySpace", QLatin1String(kPtVelocity))
        + el("tt:DefaultContinuousZoomVelocitySpace", QLatin1String(kZVelocity))
        + QStringLiteral("<tt:DefaultPTZSpeed><tt:PanTilt x=\"1\" y=\"1\" space=\"%1\"/><tt:Zoom x=\"1\" "
                         "space=\"%2\"/></tt:DefaultPTZSpeed>")
              .arg(QLatin1String(kPtSpeed), QLatin1String(kZSpeed))
        + el("tt:DefaultPTZTimeout", QStringLiteral("PT%1S").arg(config.ptzTimeoutMs / 1000.0))
        + el("tt:PanTiltLimits", space2D("tt:Range", kPtPosition, -1, 1))
        + el("tt:ZoomLimits", space1D("tt:Range", kZPosition, 0, 1)) + QStringLiteral("</%1>").arg(element);
}

QString Camera::Impl::profileXml(const ProfileConfig& p, bool allProfiles) const
{
    // Media1 counts only the profiles it lists, and cannot express H.265 at all.
    QString x = QStringLiteral("<trt:Profiles token=\"%1\" fixed=\"true\">").arg(esc(p.token))
        + el("tt:Name", esc(p.name));
    const auto video = std::find_if(config.videoEncoders.begin(), config.videoEncoders.end(),
        [&](const VideoEncoder& v) { return v.token == p.videoEncoder; });
    const auto audio = std::find_if(config.audioEncoders.begin(), config.audioEncoders.end(),
        [&p](const AudioEncoder& a) { return a.token == p.audioEncoder; });
    const auto node = std::find_if(config.ptzNodes.begin(), config.ptzNodes.end(),
        [&p](const PtzNodeConfig& n) { return n.token == p.ptzNode; });
    if (video != config.videoEncoders.end())
        x += videoSourceConfigurationXml(QStringLiteral("tt:VideoSourceConfiguration"), allProfiles);
    if (audio != config.audioEncoders.end())
        x += audioSourceConfigurationXml(
            QStringLiteral("tt:AudioSourceConfiguration"), audio->token, allProfiles);
    if (video != config.videoEncoders.end() && video->encoding != QLatin1String("H265")) {
        const VideoEncoder& v = *video;
        x += QStringLiteral("<tt:VideoEncoderConfiguration token=\"%1\">").arg(esc(v.token))
            + el("tt:Name", esc(v.name))
            + el("tt:UseCount", QString::number(useCount(&ProfileConfig::videoEncoder, v.token, allProfiles)))
            + el("tt:Encoding", esc(v.encoding))
            + el("tt:Resolution",
                el("tt:Width", QString::number(v.width)) + el("tt:Height", QString::number(v.height)))
            + el("tt:Quality", num(v.quality));
        if (v.rateControl) {
            x += el("tt:RateControl",
                el("tt:FrameRateLimit", QString::number(v.frameRate))
                    + el("tt:EncodingInterval", QStringLiteral("1"))
                    + el("tt:BitrateLimit", QString::number(v.bitrate)));
        }
        if (v.encoding == QLatin1String("H264")) {
            x += el("tt:H264",
                el("tt:GovLength", QString::number(v.govLength)) + el("tt:H264Profile", esc(v.h264Profile)));
        }
        x += multicast() + QStringLiteral("</tt:VideoEncoderConfiguration>");
    }
    if (audio != config.audioEncoders.end()) {
        const AudioEncoder& a = *audio;
        x += QStringLiteral("<tt:AudioEncoderConfiguration token=\"%1\">").arg(esc(a.token))
            + el("tt:Name", esc(a.name))
            + el("tt:UseCount", QString::number(useCount(&ProfileConfig::audioEncoder, a.token, allProfiles)))
            + el("tt:Encoding", esc(a.encoding)) + el("tt:Bitrate", QString::number(a.bitrate))
            + el("tt:SampleRate", QString::number(a.sampleRate)) + multicast()
            + QStringLiteral("</tt:AudioEncoderConfiguration>");
    }
    if (node != config.ptzNodes.end())
        x += ptzConfigurationXml(QStringLiteral("tt:PTZConfiguration"), *node, allProfiles);
    return x + QStringLiteral("</trt:Profiles>");
}

SoapReply Camera::Impl::getProfiles(const SoapRequest& request, bool single)
{
    SoapReply reply;
    if (single) {
        const QString token = Soap::childText(request.body, "ProfileToken");
        for (const ProfileConfig& p : config.profiles) {
            if (p.token == token && !p.media2Only) {
                reply.body = QStringLiteral("<trt:GetProfileResponse>")
                    + profileXml(p).replace(QLatin1String("trt:Profiles"), QLatin1String("trt:Profile"))
                    + QStringLiteral("</trt:GetProfileResponse>");
                return reply;
            }
        }
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoProfile"),
            QStringLiteral("The requested profile token does not exist"));
    }
    reply.body = QStringLiteral("<trt:GetProfilesResponse>");
    for (const ProfileConfig& p : config.profiles) {
        if (!p.media2Only)
            reply.body += profileXml(p);
    }
    reply.body += QStringLiteral("</trt:GetProfilesResponse>");
    return reply;
}

QString Camera::Impl::streamUri(const ProfileConfig& p) const
{
    return p.streamUri.isEmpty() ? QStringLiteral("rtsp://%1:554/%2").arg(advertisedHost(), p.token)
                                 : p.streamUri;
}

QString Camera::Impl::snapshotUri(const ProfileConfig& p) const
{
    return base() + QStringLiteral("/snapshot/") + QString::fromLatin1(QUrl::toPercentEncoding(p.token))
        + QStringLiteral(".jpg");
}

SoapReply Camera::Impl::getMediaUri(const SoapRequest& request, bool snapshot, bool emptyUri)
{
    const QString token = Soap::childText(request.body, "ProfileToken");
    const auto p = std::find_if(config.profiles.begin(), config.profiles.end(),
        [&token](const ProfileConfig& q) { return q.token == token && !q.media2Only; });
    if (p == config.profiles.end())
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoProfile"),
            QStringLiteral("The requested profile token does not exist"));
    if (snapshot && p->videoEncoder.isEmpty())
        return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("The profile has no video, so no snapshot"));
    QString uri = snapshot ? snapshotUri(*p) : streamUri(*p);
    if (emptyUri)
        uri.clear();
    const QString op = snapshot ? QStringLiteral("GetSnapshotUri") : QStringLiteral("GetStreamUri");
    SoapReply reply;
    reply.body
        = QStringLiteral("<trt:%1Response><trt:MediaUri><tt:Uri>%2</tt:Uri><tt:InvalidAfterConnect>false"
                         "</tt:InvalidAfterConnect><tt:InvalidAfterReboot>false</tt:InvalidAfterReboot>"
                         "<tt:Timeout>PT0S</tt:Timeout></trt:MediaUri></trt:%1Response>")
              .arg(op, esc(uri));
    return reply;
}

QString Camera::Impl::nodeXml(const PtzNodeConfig& n) const
{
    return QStringLiteral("<tt:PTZNode token=\"%1\" FixedHomePosition=\"%2\">")
               .arg(esc(n.token), n.fixedHomePosition ? QStringLiteral("true") : QStringLiteral("false"))
        + el("tt:Name", esc(n.name))
        + el("tt:SupportedPTZSpaces",
            space2D("tt:AbsolutePanTiltPositionSpace", kPtPosition, -1, 1)
                + space1D("tt:AbsoluteZoomPositionSpace", kZPosition, 0, 1)
                + space2D("tt:RelativePanTiltTranslationSpace", kPtTranslation, -1, 1)
                + space1D("tt:RelativeZoomTranslationSpace", kZTranslation, -1, 1)
                + space2D("tt:ContinuousPanTiltVelocitySpace", kPtVelocity, -1, 1)
                + space1D("tt:ContinuousZoomVelocitySpace", kZVelocity, -1, 1)
                + space1D("tt:PanTiltSpeedSpace", kPtSpeed, 0, 1)
                + space1D("tt:ZoomSpeedSpace", kZSpeed, 0, 1))
        + el("tt:MaximumNumberOfPresets", QString::number(n.maxPresets))
        + el("tt:HomeSupported", n.homeSupported ? QStringLiteral("true") : QStringLiteral("false"))
        + QStringLiteral("</tt:PTZNode>");
}

void Camera::Impl::settle(PtzNodeState& s, qint64 nowMs) const
{
    auto advance = [&](double& pos, double& vel, qint64 until, double lo, double hi) {
        const qint64 end = std::min(nowMs, until);
        if (vel != 0 && end > s.updatedMs)
            pos = std::clamp(pos + vel * static_cast<double>(end - s.updatedMs) / 1000.0, lo, hi);
        if (nowMs >= until)
            vel = 0;
    };
    advance(s.position.pan, s.velPan, s.panTiltUntilMs, -1, 1);
    advance(s.position.tilt, s.velTilt, s.panTiltUntilMs, -1, 1);
    advance(s.position.zoom, s.velZoom, s.zoomUntilMs, 0, 1);
    s.updatedMs = nowMs;
    s.position.moving = s.velPan != 0 || s.velTilt != 0 || s.velZoom != 0;
}

SoapReply Camera::Impl::ptzOperation(const SoapRequest& request)
{
    const QString& op = request.operation;
    const QDomElement& body = request.body;
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    SoapReply reply;
    auto empty = [&reply, &op] {
        reply.body = QStringLiteral("<tptz:%1Response/>").arg(op);
        return reply;
    };

    if (op == QLatin1String("GetNodes")) {
        reply.body = QStringLiteral("<tptz:GetNodesResponse>");
        for (const PtzNodeConfig& n : config.ptzNodes)
            reply.body += nodeXml(n).replace(QLatin1String("tt:PTZNode"), QLatin1String("tptz:PTZNode"));
        reply.body += QStringLiteral("</tptz:GetNodesResponse>");
        return reply;
    }
    if (op == QLatin1String("GetNode")) {
        const QString token = Soap::childText(body, "NodeToken");
        for (const PtzNodeConfig& n : config.ptzNodes) {
            if (n.token == token) {
                reply.body = QStringLiteral("<tptz:GetNodeResponse>")
                    + nodeXml(n).replace(QLatin1String("tt:PTZNode"), QLatin1String("tptz:PTZNode"))
                    + QStringLiteral("</tptz:GetNodeResponse>");
                return reply;
            }
        }
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoEntity"),
            QStringLiteral("No such PTZ node"));
    }

    if (op == QLatin1String("GetConfigurations") || op == QLatin1String("GetConfiguration")) {
        const bool one = op == QLatin1String("GetConfiguration");
        const QString item
            = configurationsXml(QStringLiteral("PTZConfiguration"), QStringLiteral("tptz:PTZConfiguration"),
                one ? Soap::childText(body, "PTZConfigurationToken") : QString(), true);
        if (one && item.isEmpty())
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoEntity"),
                QStringLiteral("No such PTZ configuration"));
        reply.body = QStringLiteral("<tptz:%1Response>%2</tptz:%1Response>").arg(op, item);
        return reply;
    }
    if (op == QLatin1String("GetConfigurationOptions")) {
        if (configurationsXml(QStringLiteral("PTZConfiguration"), QString(),
                Soap::childText(body, "ConfigurationToken"), true)
                .isEmpty())
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoEntity"),
                QStringLiteral("No such PTZ configuration"));
        QString spaces = nodeXml(config.ptzNodes.value(0));
        spaces = spaces.mid(spaces.indexOf(QLatin1String("<tt:SupportedPTZSpaces>")));
        spaces = spaces.left(spaces.indexOf(QLatin1String("</tt:SupportedPTZSpaces>")))
                     .replace(QLatin1String("<tt:SupportedPTZSpaces>"), QLatin1String("<tt:Spaces>"));
        reply.body = QStringLiteral("<tptz:GetConfigurationOptionsResponse><tptz:PTZConfigurationOptions>%1"
                                    "</tt:Spaces><tt:PTZTimeout><tt:Min>PT1S</tt:Min><tt:Max>PT60S</tt:Max>"
                                    "</tt:PTZTimeout></tptz:PTZConfigurationOptions>"
                                    "</tptz:GetConfigurationOptionsResponse>")
                         .arg(spaces);
        return reply;
    }
    static const QStringList profileOperations = { QStringLiteral("AbsoluteMove"),
        QStringLiteral("RelativeMove"), QStringLiteral("GetStatus"), QStringLiteral("ContinuousMove"),
        QStringLiteral("Stop"), QStringLiteral("GotoHomePosition"), QStringLiteral("SetHomePosition"),
        QStringLiteral("GetPresets"), QStringLiteral("SetPreset"), QStringLiteral("RemovePreset"),
        QStringLiteral("GotoPreset"), QStringLiteral("GetPresetTours") };
    if (!profileOperations.contains(op))
        return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("Optional Action Not Implemented: %1").arg(op));
    // Every other PTZ operation names a media profile that must carry a PTZ configuration.
    const QString profileToken = Soap::childText(body, "ProfileToken");
    const auto profile = std::find_if(config.profiles.begin(), config.profiles.end(),
        [&](const ProfileConfig& p) { return p.token == profileToken; });
    if (profile == config.profiles.end())
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoProfile"),
            QStringLiteral("The requested profile token does not exist"));
    if (profile->ptzNode.isEmpty())
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoPTZProfile"),
            QStringLiteral("The requested profile has no PTZ configuration"));
    const PtzNodeConfig& node = *std::find_if(config.ptzNodes.begin(), config.ptzNodes.end(),
        [&](const PtzNodeConfig& n) { return n.token == profile->ptzNode; });

    std::lock_guard<std::mutex> lock(mutex);
    PtzNodeState& state = ptz[node.token];
    settle(state, nowMs);
    QVector<PresetState>& presets = presetsByProfile[profileToken];
    auto findPreset = [&presets](const QString& token) {
        return std::find_if(
            presets.begin(), presets.end(), [&token](const PresetState& p) { return p.token == token; });
    };
    auto stopAll = [&state] {
        state.velPan = state.velTilt = state.velZoom = 0;
        state.position.moving = false;
    };

    if (op == QLatin1String("GetStatus")) {
        const char* moving = state.velPan != 0 || state.velTilt != 0 ? "MOVING" : "IDLE";
        const char* zooming = state.velZoom != 0 ? "MOVING" : "IDLE";
        reply.body = QStringLiteral("<tptz:GetStatusResponse><tptz:PTZStatus>")
            + positionXml("tt:Position", state.position)
            + QStringLiteral(
                "<tt:MoveStatus><tt:PanTilt>%1</tt:PanTilt><tt:Zoom>%2</tt:Zoom></tt:MoveStatus>")
                  .arg(QLatin1String(moving), QLatin1String(zooming))
            + el("tt:UtcTime", Soap::xmlTime(cameraNow()))
            + QStringLiteral("</tptz:PTZStatus></tptz:GetStatusResponse>");
        return reply;
    }
    if (op == QLatin1String("ContinuousMove")) {
        const QDomElement velocity = Soap::child(body, "Velocity");
        if (velocity.isNull())
            return fault(
                400, kSender, QStringLiteral("ter:InvalidArgVal"), QStringLiteral("Velocity missing"));
        const QString timeoutText = Soap::childText(body, "Timeout");
        qint64 timeout
            = timeoutText.isEmpty() ? qint64(config.ptzTimeoutMs) : Soap::parseDuration(timeoutText);
        if (timeout < 0)
            return fault(
                400, kSender, QStringLiteral("ter:InvalidArgVal"), QStringLiteral("Unreadable Timeout"));
        const QDomElement panTilt = Soap::child(velocity, "PanTilt");
        const QDomElement zoom = Soap::child(velocity, "Zoom");
        if (!panTilt.isNull()) {
            state.velPan = std::clamp(attr(panTilt, "x", 0), -1.0, 1.0);
            state.velTilt = std::clamp(attr(panTilt, "y", 0), -1.0, 1.0);
            state.panTiltUntilMs = nowMs + timeout;
        }
        if (!zoom.isNull()) {
            state.velZoom = std::clamp(attr(zoom, "x", 0), -1.0, 1.0);
            state.zoomUntilMs = nowMs + timeout;
        }
        settle(state, nowMs);
        return empty();
    }
    if (op == QLatin1String("AbsoluteMove") || op == QLatin1String("RelativeMove")) {
        const bool relative = op == QLatin1String("RelativeMove");
        const QDomElement target = Soap::child(body, relative ? "Translation" : "Position");
        if (target.isNull())
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal"),
                QStringLiteral("%1 missing")
                    .arg(relative ? QStringLiteral("Translation") : QStringLiteral("Position")));
        const QDomElement panTilt = Soap::child(target, "PanTilt");
        const QDomElement zoom = Soap::child(target, "Zoom");
        stopAll();
        PtzPosition& at = state.position;
        if (!panTilt.isNull()) {
            at.pan = std::clamp(attr(panTilt, "x", 0) + (relative ? at.pan : 0), -1.0, 1.0);
            at.tilt = std::clamp(attr(panTilt, "y", 0) + (relative ? at.tilt : 0), -1.0, 1.0);
        }
        if (!zoom.isNull())
            at.zoom = std::clamp(attr(zoom, "x", 0) + (relative ? at.zoom : 0), 0.0, 1.0);
        return empty();
    }
    if (op == QLatin1String("Stop") && config.hasQuirk("ptz-stop-ignored"))
        return empty(); // acknowledged, and the camera keeps moving
    if (op == QLatin1String("Stop")) {
        const bool panTilt = Soap::childText(body, "PanTilt") != QLatin1String("false");
        const bool zoom = Soap::childText(body, "Zoom") != QLatin1String("false");
        if (panTilt)
            state.velPan = state.velTilt = 0;
        if (zoom)
            state.velZoom = 0;
        settle(state, nowMs);
        return empty();
    }
    if (op == QLatin1String("GotoHomePosition")) {
        if (!node.homeSupported)
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoHomePosition"),
                QStringLiteral("No home position"));
        stopAll();
        state.position = state.home;
        return empty();
    }
    if (op == QLatin1String("SetHomePosition")) {
        if (!node.homeSupported || node.fixedHomePosition)
            return fault(400, kReceiver, QStringLiteral("ter:Action/ter:CannotOverwriteHome"),
                QStringLiteral("The home position is fixed"));
        state.home = state.position;
        state.home.moving = false;
        return empty();
    }
    if (op == QLatin1String("GetPresets")) {
        reply.body = QStringLiteral("<tptz:GetPresetsResponse>");
        for (const PresetState& p : presets) {
            reply.body += QStringLiteral("<tptz:Preset token=\"%1\">").arg(esc(p.token))
                + el("tt:Name", esc(p.name)) + positionXml("tt:PTZPosition", p.position)
                + QStringLiteral("</tptz:Preset>");
        }
        reply.body += QStringLiteral("</tptz:GetPresetsResponse>");
        return reply;
    }
    if (op == QLatin1String("SetPreset")) {
        const QDomElement tokenElement = Soap::child(body, "PresetToken");
        const QDomElement nameElement = Soap::child(body, "PresetName");
        const QString name = nameElement.text().trimmed();
        PtzPosition position = state.position;
        position.moving = false;
        if (!tokenElement.isNull() && !tokenElement.text().trimmed().isEmpty()) {
            const auto it = findPreset(tokenElement.text().trimmed());
            if (it == presets.end())
                return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoToken"),
                    QStringLiteral("No such preset"));
            it->position = position;
            if (!nameElement.isNull())
                it->name = name;
            reply.body = QStringLiteral("<tptz:SetPresetResponse><tptz:PresetToken>%1</tptz:PresetToken>"
                                        "</tptz:SetPresetResponse>")
                             .arg(esc(it->token));
            return reply;
        }
        if (presets.size() >= node.maxPresets)
            return fault(400, kReceiver, QStringLiteral("ter:Action/ter:TooManyPresets"),
                QStringLiteral("Maximum number of presets reached"));
        if (!name.isEmpty() && std::any_of(presets.begin(), presets.end(), [&name](const PresetState& p) {
                return p.name == name;
            }))
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:PresetExist"),
                QStringLiteral("A preset of that name exists"));
        PresetState preset;
        const int id = nextPresetId++;
        preset.token = QStringLiteral("preset_%1").arg(id);
        preset.name = name.isEmpty() ? QStringLiteral("Preset %1").arg(id) : name;
        preset.position = position;
        presets.append(preset);
        reply.body = QStringLiteral("<tptz:SetPresetResponse><tptz:PresetToken>%1</tptz:PresetToken>"
                                    "</tptz:SetPresetResponse>")
                         .arg(esc(preset.token));
        return reply;
    }
    if (op == QLatin1String("RemovePreset") || op == QLatin1String("GotoPreset")) {
        const auto it = findPreset(Soap::childText(body, "PresetToken"));
        if (it == presets.end())
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:NoToken"),
                QStringLiteral("No such preset"));
        if (op == QLatin1String("RemovePreset")) {
            presets.erase(it);
        } else {
            stopAll();
            state.position = it->position;
        }
        return empty();
    }
    if (op == QLatin1String("GetPresetTours"))
        return empty();
    return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
        QStringLiteral("Optional Action Not Implemented: %1").arg(op));
}

Subscription* Camera::Impl::findSubscription(const SoapRequest& request)
{
    static const QRegularExpression re(QStringLiteral("/subscription/(\\d+)"));
    auto match = re.match(request.path);
    if (!match.hasMatch())
        match = re.match(Soap::childText(request.header, "To"));
    if (!match.hasMatch())
        return nullptr;
    auto it = subscriptions.find(match.captured(1).toInt());
    return it == subscriptions.end() ? nullptr : &it.value();
}

QString Camera::Impl::eventMessagesXml(Subscription& sub, int limit, qint64 nowMs, int* count) const
{
    const qint64 interval = std::max(10, config.eventIntervalMs);
    const qint64 latest = (nowMs - startMs) / interval;
    QString x;
    int n = 0;
    for (; sub.nextEvent <= latest && n < limit; ++sub.nextEvent, ++n) {
        const qint64 k = sub.nextEvent;
        const QDateTime when
            = QDateTime::fromMSecsSinceEpoch(startMs + k * interval, Qt::UTC).addMSecs(config.clockOffsetMs);
        // Motion, tamper and a digital input in turn, each with the items its topic defines.
        static const char* const kinds[][4] = {
            { "tns1:Device/Trigger/DigitalInput", "InputToken", "DI_0", "LogicalState" },
            { "tns1:VideoSource/MotionAlarm", "Source", "vsrc_0", "State" },
            { "tns1:VideoSource/GlobalSceneChange/ImagingService", "Source", "vsrc_0", "State" },
        };
        const char* const* kind = kinds[k % 3];
        x += QStringLiteral(
            "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://www.onvif.org/ver10/tev/"
            "topicExpression/ConcreteSet\">%4</wsnt:Topic><wsnt:Message>"
            "<tt:Message UtcTime=\"%1\" PropertyOperation=\"Changed\"><tt:Source><tt:SimpleItem "
            "Name=\"%5\" Value=\"%6\"/></tt:Source><tt:Key><tt:SimpleItem Name=\"Sequence\" "
            "Value=\"%2\"/></tt:Key><tt:Data><tt:SimpleItem Name=\"%7\" Value=\"%3\"/></tt:Data>"
            "</tt:Message></wsnt:Message></wsnt:NotificationMessage>")
                 .arg(when.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ")))
                 .arg(k)
                 .arg(k % 2 ? QStringLiteral("true") : QStringLiteral("false"), QLatin1String(kind[0]),
                     QLatin1String(kind[1]), QLatin1String(kind[2]), QLatin1String(kind[3]));
    }
    *count = n;
    return x;
}

void Camera::Impl::sweepSubscriptionsLocked(const QDateTime& now)
{
    if (config.hasQuirk("reboot") && config.rebootAfterMs > 0
        && QDateTime::currentMSecsSinceEpoch() - lastRebootMs >= config.rebootAfterMs)
        rebootLocked();
    for (auto it = subscriptions.begin(); it != subscriptions.end();) {
        if (it->terminationUtc < now || (it->dropUtc.isValid() && it->dropUtc < now))
            it = subscriptions.erase(it);
        else
            ++it;
    }
}

SoapReply Camera::Impl::eventOperation(const SoapRequest& request)
{
    const QString& op = request.operation;
    const QDomElement& body = request.body;
    const QDateTime now = cameraNow();
    SoapReply reply;
    auto action = [](const char* uri) {
        return QStringLiteral("<wsa5:Action>%1</wsa5:Action>").arg(QLatin1String(uri));
    };

    std::unique_lock<std::mutex> lock(mutex);
    sweepSubscriptionsLocked(now);

    if (op == QLatin1String("CreatePullPointSubscription") || op == QLatin1String("Subscribe")) {
        const bool pull = op == QLatin1String("CreatePullPointSubscription");
        const QString initial = Soap::childText(body, "InitialTerminationTime");
        QDateTime termination = initial.isEmpty() ? now.addMSecs(kDefaultSubscriptionMs)
                                                  : Soap::parseTerminationTime(initial, now);
        if (!termination.isValid() || termination <= now)
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal"),
                QStringLiteral("Invalid InitialTerminationTime"));
        Subscription sub;
        sub.id = nextSubscriptionId++;
        sub.pullPoint = pull;
        sub.consumer = Soap::childText(Soap::child(body, "ConsumerReference"), "Address");
        sub.terminationUtc = termination;
        if (config.hasQuirk("subscription-early-expiry"))
            sub.dropUtc = now.addMSecs(config.subscriptionLifetimeMs);
        sub.nextEvent
            = (QDateTime::currentMSecsSinceEpoch() - startMs) / std::max(10, config.eventIntervalMs) + 1;
        subscriptions.insert(sub.id, sub);
        // Started on demand: a fleet of cameras nobody subscribes to costs no thread for it.
        if (!pull && !notifier.joinable())
            notifier = std::thread([this] { notifyLoop(); });
        const QString prefix = pull ? QStringLiteral("tev") : QStringLiteral("wsnt");
        reply.header = pull
            ? action("http://www.onvif.org/ver10/events/wsdl/EventPortType/"
                     "CreatePullPointSubscriptionResponse")
            : action("http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/SubscribeResponse");
        reply.body = QStringLiteral(
            "<%1:%2Response><%1:SubscriptionReference><wsa5:Address>%3/onvif/subscription/%4"
            "</wsa5:Address></%1:SubscriptionReference><wsnt:CurrentTime>%5</wsnt:CurrentTime>"
            "<wsnt:TerminationTime>%6</wsnt:TerminationTime></%1:%2Response>")
                         .arg(prefix, op, base())
                         .arg(sub.id)
                         .arg(Soap::xmlTime(now), Soap::xmlTime(termination));
        return reply;
    }

    if (op == QLatin1String("GetServiceCapabilities")) {
        reply.body = QStringLiteral(
            "<tev:GetServiceCapabilitiesResponse><tev:Capabilities WSSubscriptionPolicySupport=\"false\" "
            "WSPausableSubscriptionManagerInterfaceSupport=\"false\" MaxNotificationProducers=\"10\" "
            "MaxPullPoints=\"10\" PersistentNotificationStorage=\"false\"/>"
            "</tev:GetServiceCapabilitiesResponse>");
        return reply;
    }
    if (op == QLatin1String("GetEventProperties")) {
        // Only the topics the camera really sends.
        reply.header
            = action("http://www.onvif.org/ver10/events/wsdl/EventPortType/GetEventPropertiesResponse");
        reply.body = QStringLiteral(
            "<tev:GetEventPropertiesResponse><tev:TopicNamespaceLocation>"
            "http://www.onvif.org/onvif/ver10/topics/topicns.xml</tev:TopicNamespaceLocation>"
            "<wsnt:FixedTopicSet>true</wsnt:FixedTopicSet><wstop:TopicSet><tns1:VideoSource>"
            "<MotionAlarm wstop:topic=\"true\"><tt:MessageDescription IsProperty=\"true\"><tt:Source>"
            "<tt:SimpleItemDescription Name=\"Source\" Type=\"tt:ReferenceToken\"/></tt:Source><tt:Data>"
            "<tt:SimpleItemDescription Name=\"State\" Type=\"xsd:boolean\"/></tt:Data>"
            "</tt:MessageDescription></MotionAlarm><GlobalSceneChange><ImagingService wstop:topic=\"true\">"
            "<tt:MessageDescription IsProperty=\"true\"><tt:Source><tt:SimpleItemDescription Name=\"Source\" "
            "Type=\"tt:ReferenceToken\"/></tt:Source><tt:Data><tt:SimpleItemDescription Name=\"State\" "
            "Type=\"xsd:boolean\"/></tt:Data></tt:MessageDescription></ImagingService></GlobalSceneChange>"
            "</tns1:VideoSource><tns1:Device><Trigger><DigitalInput "
            "wstop:topic=\"true\"><tt:MessageDescription "
            "IsProperty=\"true\"><tt:Source><tt:SimpleItemDescription Name=\"InputToken\" "
            "Type=\"tt:ReferenceToken\"/></tt:Source><tt:Data><tt:SimpleItemDescription "
            "Name=\"LogicalState\" "
            "Type=\"xsd:boolean\"/></tt:Data></tt:MessageDescription></DigitalInput></Trigger></tns1:Device>"
            "</wstop:TopicSet>"
            "<wsnt:TopicExpressionDialect>http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet"
            "</wsnt:TopicExpressionDialect><wsnt:TopicExpressionDialect>"
            "http://docs.oasis-open.org/wsn/t-1/TopicExpression/Concrete</wsnt:TopicExpressionDialect>"
            "<tev:MessageContentFilterDialect>http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter"
            "</tev:MessageContentFilterDialect><tev:MessageContentSchemaLocation>"
            "http://www.onvif.org/onvif/ver10/schema/onvif.xsd</tev:MessageContentSchemaLocation>"
            "</tev:GetEventPropertiesResponse>");
        return reply;
    }
    static const QStringList subscriptionOperations
        = { QStringLiteral("Renew"), QStringLiteral("Unsubscribe"), QStringLiteral("PullMessages"),
              QStringLiteral("SetSynchronizationPoint") };
    if (!subscriptionOperations.contains(op))
        return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("Optional Action Not Implemented: %1").arg(op));

    Subscription* sub = findSubscription(request);
    if (!sub)
        return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:ResourceUnknown"),
            QStringLiteral("No such subscription"));
    const int id = sub->id;

    if (op == QLatin1String("Renew") && config.hasQuirk("renew-refused"))
        return fault(500, kReceiver, QStringLiteral("ter:ActionNotSupported"),
            QStringLiteral("Renew is not supported; subscribe again"));
    if (op == QLatin1String("Renew")) {
        const QString text = Soap::childText(body, "TerminationTime");
        const QDateTime termination
            = text.isEmpty() ? now.addMSecs(kDefaultSubscriptionMs) : Soap::parseTerminationTime(text, now);
        if (!termination.isValid() || termination <= now)
            return fault(
                400, kSender, QStringLiteral("ter:InvalidArgVal"), QStringLiteral("Invalid TerminationTime"));
        sub->terminationUtc = termination;
        if (sub->dropUtc.isValid())
            sub->dropUtc = now.addMSecs(config.subscriptionLifetimeMs);
        reply.header = action("http://docs.oasis-open.org/wsn/bw-2/SubscriptionManager/RenewResponse");
        reply.body = QStringLiteral("<wsnt:RenewResponse><wsnt:TerminationTime>%1</wsnt:TerminationTime>"
                                    "<wsnt:CurrentTime>%2</wsnt:CurrentTime></wsnt:RenewResponse>")
                         .arg(Soap::xmlTime(termination), Soap::xmlTime(now));
        return reply;
    }
    if (op == QLatin1String("SetSynchronizationPoint")) {
        sub->nextEvent = std::max<qint64>(1, sub->nextEvent - 1); // the current state again
        reply.body = QStringLiteral("<tev:SetSynchronizationPointResponse/>");
        return reply;
    }
    if (op == QLatin1String("Unsubscribe")) {
        subscriptions.remove(id);
        reply.header = action("http://docs.oasis-open.org/wsn/bw-2/SubscriptionManager/UnsubscribeResponse");
        reply.body = QStringLiteral("<wsnt:UnsubscribeResponse/>");
        return reply;
    }
    if (op == QLatin1String("PullMessages")) {
        const qint64 timeout = std::min(
            kMaxPullWaitMs, std::max<qint64>(0, Soap::parseDuration(Soap::childText(body, "Timeout"))));
        bool limitOk = false;
        int limit = Soap::childText(body, "MessageLimit").toInt(&limitOk);
        if (!limitOk || limit <= 0)
            limit = 1;
        const qint64 deadline = QDateTime::currentMSecsSinceEpoch() + timeout;
        int count = 0;
        QString messages = eventMessagesXml(*sub, limit, QDateTime::currentMSecsSinceEpoch(), &count);
        // Long poll: wait for the next event, the timeout or the camera's stop, whichever comes first.
        while (count == 0) {
            const qint64 interval = std::max(10, config.eventIntervalMs);
            const qint64 nextAt = startMs + sub->nextEvent * interval;
            const qint64 wait = std::min(deadline, nextAt) - QDateTime::currentMSecsSinceEpoch();
            if (QDateTime::currentMSecsSinceEpoch() >= deadline)
                break;
            lock.unlock();
            const bool alive = sleepInterruptibly(static_cast<int>(std::max<qint64>(1, wait)));
            lock.lock();
            if (!alive || !subscriptions.contains(id))
                break;
            sub = &subscriptions[id]; // the map may have rehashed meanwhile
            messages = eventMessagesXml(*sub, limit, QDateTime::currentMSecsSinceEpoch(), &count);
        }
        if (!subscriptions.contains(id)) {
            return fault(400, kSender, QStringLiteral("ter:InvalidArgVal/ter:ResourceUnknown"),
                QStringLiteral("Subscription ended while pulling"));
        }
        reply.header
            = action("http://www.onvif.org/ver10/events/wsdl/PullPointSubscription/PullMessagesResponse");
        reply.body = QStringLiteral("<tev:PullMessagesResponse><tev:CurrentTime>%1</tev:CurrentTime>"
                                    "<tev:TerminationTime>%2</tev:TerminationTime>")
                         .arg(Soap::xmlTime(cameraNow()), Soap::xmlTime(subscriptions[id].terminationUtc))
            + messages + QStringLiteral("</tev:PullMessagesResponse>");
        return reply;
    }
    return fault(400, kReceiver, QStringLiteral("ter:ActionNotSupported"),
        QStringLiteral("Optional Action Not Implemented: %1").arg(op));
}

QByteArray Camera::Impl::snapshotJpeg(const QString& profileToken)
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        auto it = snapshots.find(profileToken);
        if (it != snapshots.end())
            return it.value();
    }
    const auto p = std::find_if(config.profiles.begin(), config.profiles.end(),
        [&](const ProfileConfig& q) { return q.token == profileToken; });
    if (p == config.profiles.end())
        return QByteArray();
    const auto v = std::find_if(config.videoEncoders.begin(), config.videoEncoders.end(),
        [&](const VideoEncoder& e) { return e.token == p->videoEncoder; });
    if (v == config.videoEncoders.end())
        return QByteArray();
    // The picture keeps the profile's aspect ratio; its width is bounded to keep encoding cheap.
    const int width = std::min(640, std::max(16, v->width));
    const int height = std::max(16, v->height * width / std::max(1, v->width));
    QImage image(width, height, QImage::Format_RGB32);
    const uint seed = qHash(profileToken);
    for (int y = 0; y < height; ++y) {
        QRgb* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const bool grid = (x / 32 + y / 32) % 2 == 0;
            line[x] = qRgb((x * 255 / width + static_cast<int>(seed)) & 0xff, (y * 255 / height) & 0xff,
                grid ? 200 : static_cast<int>((seed >> 8) & 0x7f));
        }
    }
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "JPEG", 80);
    std::lock_guard<std::mutex> lock(mutex);
    snapshots.insert(profileToken, jpeg);
    return jpeg;
}

} // namespace CameraSim
