#include "onvifTypes/ptz/onvifPtzReq.h"

#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/tds/GetCapabilities.h"
#include "onvifTypes/schema/tds/GetCapabilitiesResponse.h"
#include "onvifTypes/schema/tptz/ContinuousMove.h"
#include "onvifTypes/schema/tptz/ContinuousMoveResponse.h"
#include "onvifTypes/schema/tptz/GetNode.h"
#include "onvifTypes/schema/tptz/GetNodeResponse.h"
#include "onvifTypes/schema/tptz/GetPresetTours.h"
#include "onvifTypes/schema/tptz/GetPresetToursResponse.h"
#include "onvifTypes/schema/tptz/GetPresets.h"
#include "onvifTypes/schema/tptz/GetPresetsResponse.h"
#include "onvifTypes/schema/tptz/GotoHomePosition.h"
#include "onvifTypes/schema/tptz/GotoHomePositionResponse.h"
#include "onvifTypes/schema/tptz/GotoPreset.h"
#include "onvifTypes/schema/tptz/GotoPresetResponse.h"
#include "onvifTypes/schema/tptz/RemovePreset.h"
#include "onvifTypes/schema/tptz/RemovePresetResponse.h"
#include "onvifTypes/schema/tptz/SetHomePosition.h"
#include "onvifTypes/schema/tptz/SetHomePositionResponse.h"
#include "onvifTypes/schema/tptz/SetPreset.h"
#include "onvifTypes/schema/tptz/SetPresetResponse.h"
#include "onvifTypes/schema/tptz/Stop.h"
#include "onvifTypes/schema/tptz/StopResponse.h"
#include "onvifTypes/schema/trt/GetProfiles.h"
#include "onvifTypes/schema/trt/GetProfilesResponse.h"
#include "onvifTypes/transport/limits.h"
#include "onvifTypes/transport/replyGuard_p.h"
#include "onvifTypes/transport/userAgent_p.h"

#include <asyncfuture.h>

#include <QDebug>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace PtzSys {

namespace {

template <typename P> QString ptzText(const P& value)
{
    return value ? value->value() : QString();
}

void ptzRange(const QSharedPointer<tt::FloatRange>& range, float& min, float& max)
{
    if (!range)
        return;
    if (range->Min)
        min = range->Min->value();
    if (range->Max)
        max = range->Max->value();
}

// Only the first space of a kind counts; further ones describe alternative units.
template <typename Space> const Space* firstSpace(const QSharedPointer<QVector<Space>>& list)
{
    return list && !list->isEmpty() ? &list->first() : nullptr;
}

void ptzSpace2D(const QSharedPointer<QVector<tt::Space2DDescription>>& list, float& xMin, float& xMax,
    float& yMin, float& yMax)
{
    if (const tt::Space2DDescription* space = firstSpace(list)) {
        ptzRange(space->XRange, xMin, xMax);
        ptzRange(space->YRange, yMin, yMax);
    }
}

void ptzSpace1D(const QSharedPointer<QVector<tt::Space1DDescription>>& list, float& min, float& max)
{
    if (const tt::Space1DDescription* space = firstSpace(list))
        ptzRange(space->XRange, min, max);
}

NodeInfo nodeInfoFrom(const tt::PTZNode& node)
{
    NodeInfo info;
    info.token = ptzText(node.token);
    info.name = node.Name ? node.Name->value() : info.token;
    if (const auto& spaces = node.SupportedPTZSpaces) {
        ptzSpace2D(spaces->AbsolutePanTiltPositionSpace, info.absPanMin, info.absPanMax, info.absTiltMin,
            info.absTiltMax);
        ptzSpace1D(spaces->AbsoluteZoomPositionSpace, info.absZoomMin, info.absZoomMax);
        ptzSpace2D(spaces->RelativePanTiltTranslationSpace, info.relPanMin, info.relPanMax, info.relTiltMin,
            info.relTiltMax);
        ptzSpace1D(spaces->RelativeZoomTranslationSpace, info.relZoomMin, info.relZoomMax);
        ptzSpace2D(spaces->ContinuousPanTiltVelocitySpace, info.velPanMin, info.velPanMax, info.velTiltMin,
            info.velTiltMax);
        ptzSpace1D(spaces->ContinuousZoomVelocitySpace, info.velZoomMin, info.velZoomMax);
        ptzSpace1D(spaces->PanTiltSpeedSpace, info.speedPanTiltMin, info.speedPanTiltMax);
        ptzSpace1D(spaces->ZoomSpeedSpace, info.speedZoomMin, info.speedZoomMax);
    }
    if (node.MaximumNumberOfPresets)
        info.maxPresets = node.MaximumNumberOfPresets->value();
    if (node.HomeSupported)
        info.homeSupported = node.HomeSupported->value();
    if (node.FixedHomePosition)
        info.fixedHomePosition = node.FixedHomePosition->value();
    return info;
}

Preset presetFrom(const tt::PTZPreset& source, const QString& profileToken, int index)
{
    Preset preset;
    preset.profileToken = profileToken;
    preset.token
        = source.token ? source.token->value() : QStringLiteral("PresetToken") + QString::number(index);
    preset.name = source.Name ? source.Name->value() : QStringLiteral("Preset") + QString::number(index);
    if (const auto& position = source.PTZPosition) {
        if (position->Zoom && position->Zoom->x)
            preset.zoom = double(position->Zoom->x->value());
        if (const auto& panTilt = position->PanTilt) {
            if (panTilt->x)
                preset.pan = double(panTilt->x->value());
            if (panTilt->y)
                preset.tilt = double(panTilt->y->value());
        }
    }
    return preset;
}

template <typename T> QSharedPointer<universalSimpleType<T>> simple(const T& value)
{
    return QSharedPointer<universalSimpleType<T>>::create(value);
}

} // namespace

OnvifPtzReq::OnvifPtzReq(const OnvifSecurity& security, const QString& deviceUrl,
    QNetworkAccessManager* manager, int id, QObject* parent)
    : QObject(parent)
    , m_logger(OnvifLog::makeLogger(QStringLiteral("PTZREQ:") + QString::number(id)))
    , m_security(security)
    , m_deviceUrl(deviceUrl)
    , m_manager(manager)
{ }

// The handlers run in this object's context, so they die with it; releasing the
// replies also releases their promises.
OnvifPtzReq::~OnvifPtzReq()
{
    for (const QPointer<QNetworkReply>& reply : qAsConst(m_replies)) {
        if (reply)
            reply->deleteLater();
    }
}

template <typename Req, typename Resp, typename T>
QFuture<T> OnvifPtzReq::request(Req& body, const QString& action, const QString& url,
    std::function<void(Resp&, AsyncFuture::Deferred<T>&)> handler)
{
    AsyncFuture::Deferred<T> deferred;
    if (!m_manager) {
        ONVIF_LOG(m_logger, OnvifLog::Error, action + QStringLiteral(": no network manager"));
        deferred.cancel();
        return deferred.future();
    }
    const OnvifRequest envelope(m_security, body);
    QNetworkRequest httpRequest(QUrl(url, QUrl::TolerantMode));
    Onvif::Internal::setUserAgent(httpRequest);
    httpRequest.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    httpRequest.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("Close"));
    QNetworkReply* reply = m_manager->post(httpRequest, envelope.getMessage().toUtf8());
    Onvif::Internal::guardLentReply(reply);

    // Replies that the manager took with it never report back; forget them here.
    m_replies.removeAll(QPointer<QNetworkReply>());
    m_replies.append(reply);

    connect(reply, &QNetworkReply::finished, this, [this, reply, deferred, action, handler]() mutable {
        ONVIF_LOG(m_logger, OnvifLog::Trace, action + QStringLiteral(" finished"));
        reply->deleteLater();
        Resp response;
        const QNetworkReply::NetworkError error = reply->error();
        m_lastFault = Onvif::SoapFault();
        if (error == QNetworkReply::NoError) {
            const OnvifResponse parsed(QString::fromUtf8(reply->readAll()));
            QDomNode node = parsed.getNodeByTag(action + QStringLiteral("Response"));
            response.deserialize(node);
            if (parsed.isFault()) {
                ONVIF_LOG(m_logger, OnvifLog::Error, "Onvif fault.");
                ONVIF_LOG(m_logger, OnvifLog::Error, parsed.getFaultText());
                m_lastFault = parsed.fault();
                deferred.cancel();
            }
        } else {
            ONVIF_LOG(m_logger, OnvifLog::Error,
                action + QStringLiteral(": network error. Code ") + QString::number(int(error)));
            // Devices tell a refused password or an unsupported move in the body of an HTTP
            // error; it is read for lastFault() only, the call fails as a network error all the same.
            const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            if (status >= 400) {
                const QByteArray body = reply->read(Onvif::Limits::defaults().maxReplyBytes);
                m_lastFault = OnvifResponse(QString::fromUtf8(body)).fault();
                m_lastFault.httpStatus = status;
            }
            deferred.cancel();
        }
        handler(response, deferred);
        m_replies.removeAll(QPointer<QNetworkReply>(reply));
    });
    return deferred.future();
}

// The answers of the movement and preset commands carry nothing the caller needs.
template <typename Req, typename Resp>
QFuture<void> OnvifPtzReq::voidRequest(Req& body, const QString& action)
{
    return request<Req, Resp, void>(body, action, m_ptzUrl, [](Resp&, AsyncFuture::Deferred<void>& deferred) {
        const QFuture<void> future = deferred.future();
        if (!future.isCanceled() && !future.isFinished())
            deferred.complete();
    });
}

QFuture<bool> OnvifPtzReq::checkCapability()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "Check ptz support.");
    tds::GetCapabilities body;
    body.Category = QSharedPointer<QVector<tt::CapabilityCategory>>::create(
        1, tt::CapabilityCategory(tt::CapabilityCategory::PTZ));
    return request<tds::GetCapabilities, tds::GetCapabilitiesResponse, bool>(body,
        QStringLiteral("GetCapabilities"), m_deviceUrl,
        [this](tds::GetCapabilitiesResponse& response, AsyncFuture::Deferred<bool>& deferred) {
            if (deferred.future().isCanceled()) {
                m_supported = false;
                return;
            }
            const QSharedPointer<tt::PTZCapabilities> ptz
                = response.Capabilities ? response.Capabilities->PTZ : QSharedPointer<tt::PTZCapabilities>();
            if (!ptz) {
                m_supported = false;
                ONVIF_LOG(m_logger, OnvifLog::Info, "Ptz is not supported.");
            } else {
                m_supported = true;
                m_ptzUrl = ptzText(ptz->XAddr);
                ONVIF_LOG(m_logger, OnvifLog::Info, "Ptz is supported.");
                ONVIF_LOG(
                    m_logger, OnvifLog::Info, QStringLiteral("Ptz url \"") + m_ptzUrl + QStringLiteral("\""));
            }
            deferred.complete(m_supported);
        });
}

QFuture<QVector<Token>> OnvifPtzReq::reqTokens()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "getTokens");
    m_tokens.clear();
    trt::GetProfiles body;
    return request<trt::GetProfiles, trt::GetProfilesResponse, QVector<Token>>(body,
        QStringLiteral("GetProfiles"), m_ptzUrl,
        [this](trt::GetProfilesResponse& response, AsyncFuture::Deferred<QVector<Token>>& deferred) {
            if (deferred.future().isCanceled())
                return;
            // Each answer stands for the whole list, so overlapping requests cannot
            // pile up duplicates.
            m_tokens.clear();
            if (response.Profiles) {
                for (const tt::Profile& profile : qAsConst(*response.Profiles)) {
                    if (!profile.PTZConfiguration)
                        continue;
                    Token token;
                    token.MediaProfileToken = ptzText(profile.token);
                    token.MediaProfileName = ptzText(profile.Name);
                    token.PtzNodeToken = ptzText(profile.PTZConfiguration->NodeToken);
                    token.PtzNodeName = ptzText(profile.PTZConfiguration->Name);
                    ONVIF_LOG(m_logger, OnvifLog::Info,
                        QStringLiteral("New ptz token. MediaProfileToken:") + token.MediaProfileToken
                            + QStringLiteral(" MediaProfileName:") + token.MediaProfileName
                            + QStringLiteral(" PtzNodeToken:") + token.PtzNodeToken
                            + QStringLiteral(" PtzNodeName:") + token.PtzNodeName);
                    m_tokens.append(token);
                }
            }
            deferred.complete(m_tokens);
        });
}

QVector<Token> OnvifPtzReq::tokens()
{
    if (m_tokens.isEmpty())
        reqTokens();
    return m_tokens;
}

QFuture<NodeInfo> OnvifPtzReq::reqNodeInfo(const QString& nodeToken)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "getNodeInfo");
    tptz::GetNode body;
    body.NodeToken->setValue(nodeToken);
    return request<tptz::GetNode, tptz::GetNodeResponse, NodeInfo>(body, QStringLiteral("GetNode"), m_ptzUrl,
        [](tptz::GetNodeResponse& response, AsyncFuture::Deferred<NodeInfo>& deferred) {
            if (deferred.future().isCanceled())
                return;
            deferred.complete(response.PTZNode ? nodeInfoFrom(*response.PTZNode) : NodeInfo());
        });
}

QFuture<QVector<Preset>> OnvifPtzReq::presets(const QString& profileToken)
{
    tptz::GetPresets body;
    body.ProfileToken->setValue(profileToken);
    return request<tptz::GetPresets, tptz::GetPresetsResponse, QVector<Preset>>(body,
        QStringLiteral("GetPresets"), m_ptzUrl,
        [profileToken](tptz::GetPresetsResponse& response, AsyncFuture::Deferred<QVector<Preset>>& deferred) {
            if (deferred.future().isCanceled())
                return;
            QVector<Preset> result;
            if (response.Preset) {
                result.reserve(response.Preset->size());
                for (const tt::PTZPreset& preset : qAsConst(*response.Preset))
                    result.append(presetFrom(preset, profileToken, result.size()));
            }
            deferred.complete(result);
        });
}

QFuture<void> OnvifPtzReq::presetTours(const QString& profileToken)
{
    tptz::GetPresetTours body;
    body.ProfileToken->setValue(profileToken);
    return request<tptz::GetPresetTours, tptz::GetPresetToursResponse, void>(body,
        QStringLiteral("GetPresetTours"), m_ptzUrl,
        [](tptz::GetPresetToursResponse& response, AsyncFuture::Deferred<void>& deferred) {
            if (deferred.future().isCanceled())
                return;
            if (!response.PresetTour) {
                qDebug() << "----- No preset tours";
                return;
            }
            for (const tt::PresetTour& tour : qAsConst(*response.PresetTour)) {
                if (tour.Name)
                    qDebug() << "-----" << tour.Name->value();
                else
                    qDebug() << "----- No name";
            }
            // Diagnostics only: the promise is deliberately left open.
        });
}

QFuture<void> OnvifPtzReq::setPreset(
    const QString& profileToken, const QString& presetToken, const QString& presetName)
{
    tptz::SetPreset body;
    body.ProfileToken->setValue(profileToken);
    if (!presetToken.isNull())
        body.PresetToken = simple(presetToken);
    if (!presetName.isNull())
        body.PresetName = simple(presetName);
    return voidRequest<tptz::SetPreset, tptz::SetPresetResponse>(body, QStringLiteral("SetPreset"));
}

QFuture<void> OnvifPtzReq::delPreset(const QString& profileToken, const QString& presetToken)
{
    tptz::RemovePreset body;
    body.ProfileToken->setValue(profileToken);
    body.PresetToken->setValue(presetToken);
    return voidRequest<tptz::RemovePreset, tptz::RemovePresetResponse>(body, QStringLiteral("RemovePreset"));
}

QFuture<void> OnvifPtzReq::gotoPreset(const QString& profileToken, const QString& presetToken)
{
    tptz::GotoPreset body;
    body.ProfileToken->setValue(profileToken);
    body.PresetToken->setValue(presetToken);
    return voidRequest<tptz::GotoPreset, tptz::GotoPresetResponse>(body, QStringLiteral("GotoPreset"));
}

QFuture<void> OnvifPtzReq::toHome(const QString& profileToken, float panTiltSpeed, float zoomSpeed)
{
    tptz::GotoHomePosition body;
    body.ProfileToken->setValue(profileToken);
    // A NaN is "not 0" and goes out as it is: the camera judges it, not this layer.
    if (panTiltSpeed != 0.0f || zoomSpeed != 0.0f) {
        body.Speed = QSharedPointer<tt::PTZSpeed>::create();
        if (panTiltSpeed != 0.0f) {
            body.Speed->PanTilt = QSharedPointer<tt::Vector2D>::create();
            body.Speed->PanTilt->x->setValue(panTiltSpeed);
            body.Speed->PanTilt->y->setValue(panTiltSpeed);
        }
        if (zoomSpeed != 0.0f) {
            body.Speed->Zoom = QSharedPointer<tt::Vector1D>::create();
            body.Speed->Zoom->x->setValue(zoomSpeed);
        }
    }
    return voidRequest<tptz::GotoHomePosition, tptz::GotoHomePositionResponse>(
        body, QStringLiteral("GotoHomePosition"));
}

QFuture<void> OnvifPtzReq::saveAsHome(const QString& profileToken)
{
    tptz::SetHomePosition body;
    body.ProfileToken->setValue(profileToken);
    return voidRequest<tptz::SetHomePosition, tptz::SetHomePositionResponse>(
        body, QStringLiteral("SetHomePosition"));
}

// No space attribute and no Timeout: the camera's default velocity space and
// timeout apply.
QFuture<void> OnvifPtzReq::continuousPos(const QString& profileToken, float x, float y)
{
    tptz::ContinuousMove body;
    body.ProfileToken->setValue(profileToken);
    body.Velocity->PanTilt = QSharedPointer<tt::Vector2D>::create();
    body.Velocity->PanTilt->x->setValue(x);
    body.Velocity->PanTilt->y->setValue(y);
    return voidRequest<tptz::ContinuousMove, tptz::ContinuousMoveResponse>(
        body, QStringLiteral("ContinuousMove"));
}

QFuture<void> OnvifPtzReq::continuousZoom(const QString& profileToken, float speed)
{
    tptz::ContinuousMove body;
    body.ProfileToken->setValue(profileToken);
    body.Velocity->Zoom = QSharedPointer<tt::Vector1D>::create();
    body.Velocity->Zoom->x->setValue(speed);
    return voidRequest<tptz::ContinuousMove, tptz::ContinuousMoveResponse>(
        body, QStringLiteral("ContinuousMove"));
}

// Both flags always go out: a camera that misses one would stop that axis too.
QFuture<void> OnvifPtzReq::stop(const QString& profileToken, bool panTilt, bool zoom)
{
    tptz::Stop body;
    body.ProfileToken->setValue(profileToken);
    body.PanTilt = simple(panTilt);
    body.Zoom = simple(zoom);
    return voidRequest<tptz::Stop, tptz::StopResponse>(body, QStringLiteral("Stop"));
}

} // namespace PtzSys
