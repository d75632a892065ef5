#include "corpus.h"

#include <camera.h>
#include <soapXml.h>

#include <onvifTypes/schema/schemaRegistry.h>

#include <QDir>
#include <QDirIterator>
#include <QDomDocument>
#include <QFile>
#include <QHash>

#include <httplib.h>

namespace Bench {
namespace {

const char kRequestHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                            "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\""
                            " xmlns:tt=\"http://www.onvif.org/ver10/schema\""
                            " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
                            " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
                            " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\"><s:Body>";

// A synchronous POST to the simulated camera; the reply exactly as it was sent.
QByteArray post(const CameraSim::Camera& camera, CameraSim::Service service, const QString& body)
{
    httplib::Client client(camera.host().toStdString(), camera.port());
    const std::string path = QUrl(camera.serviceUrl(service)).path().toStdString();
    const std::string text = kRequestHead + body.toStdString() + "</s:Body></s:Envelope>";
    const auto result = client.Post(path, text, "application/soap+xml");
    if (!result || result->status != 200)
        return QByteArray();
    return QByteArray::fromStdString(result->body);
}

// One profile as larger cameras report it: every configuration slot filled, with
// analytics and metadata configurations and the audio back channel.
QString fullProfile(int i)
{
    const QString n = QString::number(i);
    const int width[] = { 3840, 1920, 1280, 640 };
    const int height[] = { 2160, 1080, 720, 360 };
    return QStringLiteral(
        "<trt:Profiles token=\"Profile_%1\" fixed=\"true\"><tt:Name>mainStream%1</tt:Name>"
        "<tt:VideoSourceConfiguration token=\"VideoSourceToken\" ViewMode=\"tt:Original\">"
        "<tt:Name>VideoSourceConfig</tt:Name><tt:UseCount>4</tt:UseCount><tt:SourceToken>VideoSource_1"
        "</tt:SourceToken><tt:Bounds x=\"0\" y=\"0\" width=\"3840\" height=\"2160\"></tt:Bounds>"
        "<tt:Extension><tt:Rotate><tt:Mode>OFF</tt:Mode></tt:Rotate></tt:Extension>"
        "</tt:VideoSourceConfiguration>"
        "<tt:AudioSourceConfiguration token=\"AudioSourceConfigToken\"><tt:Name>AudioSourceConfig</tt:Name>"
        "<tt:UseCount>4</tt:UseCount><tt:SourceToken>AudioSourceChannel</tt:SourceToken>"
        "</tt:AudioSourceConfiguration>"
        "<tt:VideoEncoderConfiguration token=\"VideoEncoderToken_%1\" encoding=\"H264\">"
        "<tt:Name>VideoEncoder_%1</tt:Name><tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding>"
        "<tt:Resolution><tt:Width>%2</tt:Width><tt:Height>%3</tt:Height></tt:Resolution>"
        "<tt:Quality>3.000000</tt:Quality><tt:RateControl><tt:FrameRateLimit>25</tt:FrameRateLimit>"
        "<tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>6144</tt:BitrateLimit></tt:RateControl>"
        "<tt:H264><tt:GovLength>50</tt:GovLength><tt:H264Profile>Main</tt:H264Profile></tt:H264>"
        "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>0.0.0.0</tt:IPv4Address>"
        "</tt:Address><tt:Port>8860</tt:Port><tt:TTL>128</tt:TTL><tt:AutoStart>false</tt:AutoStart>"
        "</tt:Multicast><tt:SessionTimeout>PT5S</tt:SessionTimeout></tt:VideoEncoderConfiguration>"
        "<tt:AudioEncoderConfiguration token=\"MicrophoneAudioEncoder1\"><tt:Name>AudioEncoder</tt:Name>"
        "<tt:UseCount>4</tt:UseCount><tt:Encoding>G711</tt:Encoding><tt:Bitrate>64</tt:Bitrate>"
        "<tt:SampleRate>8</tt:SampleRate><tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type>"
        "<tt:IPv4Address>0.0.0.0</tt:IPv4Address></tt:Address><tt:Port>8862</tt:Port><tt:TTL>128</tt:TTL>"
        "<tt:AutoStart>false</tt:AutoStart></tt:Multicast><tt:SessionTimeout>PT5S</tt:SessionTimeout>"
        "</tt:AudioEncoderConfiguration>"
        "<tt:VideoAnalyticsConfiguration token=\"VideoAnalyticsToken\"><tt:Name>VideoAnalyticsName</tt:Name>"
        "<tt:UseCount>4</tt:UseCount><tt:AnalyticsEngineConfiguration>"
        "<tt:AnalyticsModule Name=\"MyCellMotionModule\" Type=\"tt:CellMotionEngine\"><tt:Parameters>"
        "<tt:SimpleItem Name=\"Sensitivity\" Value=\"60\"/><tt:ElementItem Name=\"Layout\">"
        "<tt:CellLayout Columns=\"22\" Rows=\"18\"><tt:Transformation><tt:Translate x=\"-1.000000\" "
        "y=\"-1.000000\"/><tt:Scale x=\"0.090909\" y=\"0.111111\"/></tt:Transformation></tt:CellLayout>"
        "</tt:ElementItem></tt:Parameters></tt:AnalyticsModule>"
        "<tt:AnalyticsModule Name=\"MyLineDetectorModule\" Type=\"tt:LineDetectorEngine\"><tt:Parameters>"
        "<tt:SimpleItem Name=\"Sensitivity\" Value=\"50\"/><tt:ElementItem Name=\"Transformation\">"
        "<tt:Transformation><tt:Translate x=\"-1.000000\" y=\"-1.000000\"/><tt:Scale x=\"0.002000\" "
        "y=\"0.002000\"/></tt:Transformation></tt:ElementItem></tt:Parameters></tt:AnalyticsModule>"
        "<tt:AnalyticsModule Name=\"MyFieldDetectorModule\" Type=\"tt:FieldDetectorEngine\"><tt:Parameters>"
        "<tt:SimpleItem Name=\"Sensitivity\" Value=\"50\"/><tt:ElementItem Name=\"Transformation\">"
        "<tt:Transformation><tt:Translate x=\"-1.000000\" y=\"-1.000000\"/><tt:Scale x=\"0.002000\" "
        "y=\"0.002000\"/></tt:Transformation></tt:ElementItem></tt:Parameters></tt:AnalyticsModule>"
        "</tt:AnalyticsEngineConfiguration><tt:RuleEngineConfiguration>"
        "<tt:Rule Name=\"MyMotionDetectorRule\" Type=\"tt:CellMotionDetector\"><tt:Parameters>"
        "<tt:SimpleItem Name=\"MinCount\" Value=\"5\"/><tt:SimpleItem Name=\"AlarmOnDelay\" Value=\"1000\"/>"
        "<tt:SimpleItem Name=\"AlarmOffDelay\" Value=\"1000\"/><tt:SimpleItem Name=\"ActiveCells\" "
        "Value=\"0P8A8A==\"/></tt:Parameters></tt:Rule>"
        "<tt:Rule Name=\"MyTamperDetectorRule\" Type=\"hikxsd:TamperDetector\"><tt:Parameters>"
        "<tt:ElementItem Name=\"Field\"><tt:PolygonConfiguration><tt:Polygon><tt:Point x=\"0\" y=\"0\"/>"
        "<tt:Point x=\"0\" y=\"576\"/><tt:Point x=\"704\" y=\"576\"/><tt:Point x=\"704\" y=\"0\"/>"
        "</tt:Polygon></tt:PolygonConfiguration></tt:ElementItem></tt:Parameters></tt:Rule>"
        "</tt:RuleEngineConfiguration></tt:VideoAnalyticsConfiguration>"
        "<tt:PTZConfiguration token=\"PTZToken\"><tt:Name>PTZ</tt:Name><tt:UseCount>4</tt:UseCount>"
        "<tt:NodeToken>PTZNODETOKEN</tt:NodeToken>"
        "<tt:DefaultAbsolutePantTiltPositionSpace>http://www.onvif.org/ver10/tptz/PanTiltSpaces/"
        "PositionGenericSpace</tt:DefaultAbsolutePantTiltPositionSpace>"
        "<tt:DefaultAbsoluteZoomPositionSpace>http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace"
        "</tt:DefaultAbsoluteZoomPositionSpace>"
        "<tt:DefaultRelativePanTiltTranslationSpace>http://www.onvif.org/ver10/tptz/PanTiltSpaces/"
        "TranslationGenericSpace</tt:DefaultRelativePanTiltTranslationSpace>"
        "<tt:DefaultRelativeZoomTranslationSpace>http://www.onvif.org/ver10/tptz/ZoomSpaces/"
        "TranslationGenericSpace</tt:DefaultRelativeZoomTranslationSpace>"
        "<tt:DefaultContinuousPanTiltVelocitySpace>http://www.onvif.org/ver10/tptz/PanTiltSpaces/"
        "VelocityGenericSpace</tt:DefaultContinuousPanTiltVelocitySpace>"
        "<tt:DefaultContinuousZoomVelocitySpace>http://www.onvif.org/ver10/tptz/ZoomSpaces/"
        "VelocityGenericSpace</tt:DefaultContinuousZoomVelocitySpace>"
        "<tt:DefaultPTZSpeed><tt:PanTilt x=\"0.100000\" y=\"0.100000\" space=\"http://www.onvif.org/ver10/"
        "tptz/PanTiltSpaces/GenericSpeedSpace\"/><tt:Zoom x=\"1.000000\" space=\"http://www.onvif.org/"
        "ver10/tptz/ZoomSpaces/ZoomGenericSpeedSpace\"/></tt:DefaultPTZSpeed>"
        "<tt:DefaultPTZTimeout>PT300S</tt:DefaultPTZTimeout><tt:PanTiltLimits><tt:Range>"
        "<tt:URI>http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace</tt:URI>"
        "<tt:XRange><tt:Min>-1.000000</tt:Min><tt:Max>1.000000</tt:Max></tt:XRange>"
        "<tt:YRange><tt:Min>-1.000000</tt:Min><tt:Max>1.000000</tt:Max></tt:YRange></tt:Range>"
        "</tt:PanTiltLimits><tt:ZoomLimits><tt:Range>"
        "<tt:URI>http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace</tt:URI>"
        "<tt:XRange><tt:Min>0.000000</tt:Min><tt:Max>1.000000</tt:Max></tt:XRange></tt:Range>"
        "</tt:ZoomLimits></tt:PTZConfiguration>"
        "<tt:MetadataConfiguration token=\"MetaDataToken\"><tt:Name>metaData</tt:Name>"
        "<tt:UseCount>4</tt:UseCount><tt:PTZStatus><tt:Status>false</tt:Status><tt:Position>false"
        "</tt:Position></tt:PTZStatus><tt:Events><tt:Filter><wsnt:TopicExpression Dialect=\"http://"
        "www.onvif.org/ver10/tev/topicExpression/ConcreteSet\">tns1:RuleEngine//.</wsnt:TopicExpression>"
        "</tt:Filter></tt:Events><tt:Analytics>true</tt:Analytics><tt:Multicast><tt:Address>"
        "<tt:Type>IPv4</tt:Type><tt:IPv4Address>0.0.0.0</tt:IPv4Address></tt:Address><tt:Port>8864"
        "</tt:Port><tt:TTL>128</tt:TTL><tt:AutoStart>false</tt:AutoStart></tt:Multicast>"
        "<tt:SessionTimeout>PT5S</tt:SessionTimeout></tt:MetadataConfiguration>"
        "<tt:Extension><tt:AudioOutputConfiguration token=\"AudioOutputConfigToken\">"
        "<tt:Name>AudioOutputConfig</tt:Name><tt:UseCount>4</tt:UseCount><tt:OutputToken>AudioOutputToken"
        "</tt:OutputToken><tt:SendPrimacy>www.onvif.org/ver20/HalfDuplex/Auto</tt:SendPrimacy>"
        "<tt:OutputLevel>50</tt:OutputLevel></tt:AudioOutputConfiguration>"
        "<tt:AudioDecoderConfiguration token=\"AudioDecoderConfigToken\"><tt:Name>AudioDecoderConfig"
        "</tt:Name><tt:UseCount>4</tt:UseCount></tt:AudioDecoderConfiguration></tt:Extension>"
        "</trt:Profiles>")
        .arg(n)
        .arg(width[i % 4])
        .arg(height[i % 4]);
}

// Namespace of the response element -> prefix of its generated classes.
QString prefixFor(const QString& namespaceUri)
{
    static const QHash<QString, QString> prefixes {
        { QStringLiteral("http://www.onvif.org/ver10/device/wsdl"), QStringLiteral("tds") },
        { QStringLiteral("http://www.onvif.org/ver10/media/wsdl"), QStringLiteral("trt") },
        { QStringLiteral("http://www.onvif.org/ver20/ptz/wsdl"), QStringLiteral("tptz") },
        { QStringLiteral("http://www.onvif.org/ver10/events/wsdl"), QStringLiteral("tev") },
    };
    return prefixes.value(namespaceUri);
}

} // namespace

QVector<Reply> simulatedReplies(QString* error)
{
    using CameraSim::Service;
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    config.requireAuth = false;
    config.ptzNodes.first().maxPresets = 32;
    CameraSim::Camera camera(config);
    if (!camera.start(error))
        return {};
    for (int i = 1; i <= 32; ++i) {
        post(camera, Service::Ptz,
            QStringLiteral("<tptz:SetPreset><tptz:ProfileToken>prof_main</tptz:ProfileToken>"
                           "<tptz:PresetName>Preset %1</tptz:PresetName></tptz:SetPreset>")
                .arg(i));
    }
    struct Ask
    {
        const char* name;
        const char* operation;
        const char* className;
        Service service;
        const char* body;
    };
    const Ask asks[] = {
        { "GetDeviceInformation", "GetDeviceInformation", "tds::GetDeviceInformationResponse",
            Service::Device, "<tds:GetDeviceInformation/>" },
        { "GetCapabilities", "GetCapabilities", "tds::GetCapabilitiesResponse", Service::Device,
            "<tds:GetCapabilities><tds:Category>All</tds:Category></tds:GetCapabilities>" },
        { "GetStreamUri", "GetStreamUri", "trt::GetStreamUriResponse", Service::Media,
            "<trt:GetStreamUri><trt:StreamSetup><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport>"
            "<tt:Protocol>RTSP</tt:Protocol></tt:Transport></trt:StreamSetup>"
            "<trt:ProfileToken>prof_main</trt:ProfileToken></trt:GetStreamUri>" },
        { "GetNode", "GetNode", "tptz::GetNodeResponse", Service::Ptz,
            "<tptz:GetNode><tptz:NodeToken>ptz_node_0</tptz:NodeToken></tptz:GetNode>" },
        { "GetPresets32", "GetPresets", "tptz::GetPresetsResponse", Service::Ptz,
            "<tptz:GetPresets><tptz:ProfileToken>prof_main</tptz:ProfileToken></tptz:GetPresets>" },
    };
    QVector<Reply> replies;
    for (const Ask& ask : asks) {
        const QByteArray bytes = post(camera, ask.service, QLatin1String(ask.body));
        if (bytes.isEmpty()) {
            if (error)
                *error = QStringLiteral("the simulated camera did not answer %1").arg(ask.name);
            return {};
        }
        replies.append(
            { QLatin1String(ask.name), QLatin1String(ask.operation), QLatin1String(ask.className), bytes });
    }
    camera.stop();

    // The simulator's own profiles are lean; four full ones in its envelope instead.
    QString profiles = QStringLiteral("<trt:GetProfilesResponse>");
    for (int i = 0; i < 4; ++i)
        profiles += fullProfile(i);
    profiles += QStringLiteral("</trt:GetProfilesResponse>");
    replies.insert(2,
        { QStringLiteral("GetProfiles4"), QStringLiteral("GetProfiles"),
            QStringLiteral("trt::GetProfilesResponse"),
            CameraSim::Soap::envelope(QStringLiteral("env"), QString(), profiles) });
    return replies;
}

QVector<Reply> fixtureReplies(const QString& dir, QStringList* skipped)
{
    QVector<Reply> replies;
    if (dir.isEmpty())
        return replies;
    QStringList files;
    QDirIterator it(dir, { QStringLiteral("*.xml") }, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    files.sort();
    for (const QString& path : files) {
        const QString relative = QDir(dir).relativeFilePath(path);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            skipped->append(relative + QStringLiteral(" (unreadable)"));
            continue;
        }
        const QByteArray bytes = file.readAll();
        QDomDocument document;
        if (!document.setContent(bytes, true)) {
            skipped->append(relative + QStringLiteral(" (not well-formed)"));
            continue;
        }
        QDomElement body = document.documentElement().firstChildElement();
        while (!body.isNull() && body.localName() != QLatin1String("Body"))
            body = body.nextSiblingElement();
        const QDomElement answer = body.firstChildElement();
        const QString local = answer.localName();
        const QString className = prefixFor(answer.namespaceURI()) + QStringLiteral("::") + local;
        if (!local.endsWith(QLatin1String("Response")) || !SchemaRegistry::create(className)) {
            skipped->append(
                relative + QStringLiteral(" (%1)").arg(local.isEmpty() ? QStringLiteral("no body") : local));
            continue;
        }
        replies.append({ relative, local.chopped(int(qstrlen("Response"))), className, bytes });
    }
    return replies;
}

QString fixturesDir()
{
    QString dir = qEnvironmentVariable("ONVIFTYPES_FIXTURES");
    if (dir.isEmpty())
        dir = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures");
    return QDir(dir).exists() ? dir : QString();
}

} // namespace Bench
