#include "onvifTypes/onvifRequests.h"

#include "onvifTypes/onvifDeviceInfo.h"
#include "onvifTypes/onvifNetworkAccessManager.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/profileInfo_p.h"
#include "onvifTypes/schema/tds/GetCapabilities.h"
#include "onvifTypes/schema/tds/GetCapabilitiesResponse.h"
#include "onvifTypes/schema/tds/GetDeviceInformation.h"
#include "onvifTypes/schema/tds/GetDeviceInformationResponse.h"
#include "onvifTypes/schema/trt/GetProfiles.h"
#include "onvifTypes/schema/trt/GetProfilesResponse.h"
#include "onvifTypes/schema/trt/GetStreamUri.h"
#include "onvifTypes/schema/trt/GetStreamUriResponse.h"

#include <QNetworkAccessManager>
#include <QUrl>

#include <algorithm>

namespace {

// Queued signals and invokeMethod find the records by these names.
void registerMetaTypes()
{
    qRegisterMetaType<Onvif::DeviceInfo>("Onvif::DeviceInfo");
    qRegisterMetaType<Onvif::OnvifProfileInfo>("Onvif::OnvifProfileInfo");
    qRegisterMetaType<QVector<Onvif::OnvifProfileInfo>>("QVector<Onvif::OnvifProfileInfo>");
}

// Area in 32-bit arithmetic as the devices' own tools compare it; wraps instead of UB.
qint32 area(const Onvif::OnvifProfileInfo& p)
{
    return qint32(quint32(p.width) * quint32(p.height));
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerMetaTypes)

namespace Onvif {

namespace Internal {

QVector<OnvifProfileInfo> profileInfos(const QVector<tt::Profile>& profiles)
{
    QVector<OnvifProfileInfo> result;
    for (const tt::Profile& profile : profiles) {
        const auto& video = profile.VideoEncoderConfiguration;
        if (!video)
            continue;
        const QString encoderToken = video->token->value();
        const bool taken = std::any_of(result.cbegin(), result.cend(),
            [&](const OnvifProfileInfo& known) { return known.encoderToken == encoderToken; });
        if (taken)
            continue;

        OnvifProfileInfo info;
        info.width = video->Resolution->Width->value();
        info.height = video->Resolution->Height->value();
        info.token = profile.token->value();
        info.encoderToken = encoderToken;
        info.encoding = video->Encoding->serialize(QString());
        info.quality = video->Quality->value();
        info.frameRate = video->RateControl ? video->RateControl->FrameRateLimit->value() : 25;
        info.hasH264 = bool(video->H264);
        if (info.hasH264) {
            info.govLength = video->H264->GovLength->value();
            info.h264Profile = video->H264->H264Profile->serialize(QString());
        }
        const auto& audio = profile.AudioEncoderConfiguration;
        info.hasAudio = bool(audio);
        if (audio) {
            info.audioToken = audio->token->value();
            info.audioEncoding = audio->Encoding->serialize(QString());
            info.audioBitrate = audio->Bitrate->value();
            info.audioSampleRate = audio->SampleRate->value();
        }
        result.append(info);
    }
    // Unstable on purpose: equal areas keep no defined order.
    std::sort(result.begin(), result.end(),
        [](const OnvifProfileInfo& a, const OnvifProfileInfo& b) { return area(a) > area(b); });
    return result;
}

} // namespace Internal

IRequests::~IRequests() = default;

Requests::Requests(const QString& login, const QString& password, const QString& url, bool trace)
    : m_security(login, password, false)
    , m_url(url)
    , m_manager(new NetworkAccessManager)
    , m_trace(trace)
{ }

// The manager takes its replies with it; their handlers never run, and each
// pending future is cancelled when the last copy of its promise goes.
Requests::~Requests() = default;

bool Requests::isAuthFault() const
{
    return m_authFault;
}

std::function<void(const Internal::ReplyOutcome&)> Requests::outcomeObserver()
{
    m_readError.clear();
    m_lastFault = SoapFault();
    return [this](const Internal::ReplyOutcome& outcome) {
        m_readError = outcome.unreadable;
        m_lastFault = outcome.fault;
    };
}

NetworkAccessManager* Requests::networkManager() const
{
    return static_cast<NetworkAccessManager*>(m_manager.get());
}

void Requests::setLimits(const Limits& limits)
{
    static_cast<NetworkAccessManager*>(m_manager.get())->setLimits(limits);
}

Limits Requests::limits() const
{
    return static_cast<const NetworkAccessManager*>(m_manager.get())->limits();
}

QString Requests::endpoint(const QString& path) const
{
    QUrl url(m_url);
    if (!path.isEmpty())
        url.setPath(path, QUrl::DecodedMode);
    return url.toString();
}

QFuture<DeviceInfo> Requests::deviceInfo()
{
    m_authFault = false;
    tds::GetDeviceInformation request;
    return RequestHelper<tds::GetDeviceInformation, tds::GetDeviceInformationResponse, DeviceInfo>(
        request, QStringLiteral("GetDeviceInformation"), m_url, m_security, m_manager.get(),
        [this](tds::GetDeviceInformationResponse& response, bool authFault,
            AsyncFuture::Deferred<DeviceInfo>& result) {
            m_authFault = authFault;
            if (result.future().isCanceled())
                return;
            DeviceInfo info;
            info.manufacturer = response.Manufacturer->value();
            info.model = response.Model->value();
            info.firmwareVersion = response.FirmwareVersion->value();
            info.serialNumber = response.SerialNumber->value();
            info.hardwareId = response.HardwareId->value();
            info.type = OnvifDeviceInfo::getDeviceType(info);
            result.complete(info);
        },
        m_trace, outcomeObserver());
}

QFuture<QString> Requests::mediaAddr()
{
    m_authFault = false;
    tds::GetCapabilities request;
    request.Category.reset(
        new QVector<tt::CapabilityCategory> { tt::CapabilityCategory(tt::CapabilityCategory::All) });
    return RequestHelper<tds::GetCapabilities, tds::GetCapabilitiesResponse, QString>(
        request, QStringLiteral("GetCapabilities"), m_url, m_security, m_manager.get(),
        [this](
            tds::GetCapabilitiesResponse& response, bool authFault, AsyncFuture::Deferred<QString>& result) {
            m_authFault = authFault;
            if (result.future().isCanceled())
                return;
            if (response.Capabilities->Media)
                result.complete(response.Capabilities->Media->XAddr->value());
            result.complete(QString()); // ignored when the address came first
        },
        m_trace, outcomeObserver());
}

QFuture<QVector<OnvifProfileInfo>> Requests::profiles(const QString& path)
{
    m_authFault = false;
    trt::GetProfiles request;
    return RequestHelper<trt::GetProfiles, trt::GetProfilesResponse, QVector<OnvifProfileInfo>>(
        request, QStringLiteral("GetProfiles"), endpoint(path), m_security, m_manager.get(),
        [this](trt::GetProfilesResponse& response, bool authFault,
            AsyncFuture::Deferred<QVector<OnvifProfileInfo>>& result) {
            m_authFault = authFault;
            if (result.future().isCanceled())
                return;
            result.complete(
                response.Profiles ? Internal::profileInfos(*response.Profiles) : QVector<OnvifProfileInfo>());
        },
        m_trace, outcomeObserver());
}

QFuture<QString> Requests::rtspUrl(const QString& profileToken, const QString& path)
{
    m_authFault = false;
    trt::GetStreamUri request;
    request.ProfileToken->setValue(profileToken);
    request.StreamSetup->Stream->setIndex(tt::StreamType::RTP_Unicast);
    request.StreamSetup->Transport->Protocol->setIndex(tt::TransportProtocol::RTSP);
    return RequestHelper<trt::GetStreamUri, trt::GetStreamUriResponse, QString>(
        request, QStringLiteral("GetStreamUri"), endpoint(path), m_security, m_manager.get(),
        [this](trt::GetStreamUriResponse& response, bool authFault, AsyncFuture::Deferred<QString>& result) {
            m_authFault = authFault;
            if (result.future().isCanceled())
                return;
            result.complete(response.MediaUri->Uri->value());
        },
        m_trace, outcomeObserver());
}

} // namespace Onvif
