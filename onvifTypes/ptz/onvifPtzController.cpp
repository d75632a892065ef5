#include "onvifTypes/ptz/onvifPtzController.h"

#include <asyncfuture.h>

namespace PtzSys {

IController::~IController() = default;

OnvifPtzController::OnvifPtzController(const Token& token, OnvifPtzReq* req)
    : m_logger(OnvifLog::makeLogger(QStringLiteral("OnvifPtzController. ") + token.MediaProfileToken
        + QStringLiteral("(") + token.PtzNodeToken + QStringLiteral(")")))
    , m_token(token)
    , m_req(req)
{
    reqNodeInfo();
}

OnvifPtzController::~OnvifPtzController() = default;

void OnvifPtzController::reqNodeInfo()
{
    m_nodeState = NodeRequested;
    // Observed in this object's context: an answer after its destruction is dropped.
    AsyncFuture::observe(m_req->reqNodeInfo(m_token.PtzNodeToken))
        .context(
            this,
            [this](NodeInfo info) {
                ONVIF_LOG(m_logger, OnvifLog::Info, "Node info request completed.");
                if (m_nodeState != NodeRequested)
                    return;
                m_nodeInfo = info;
                m_nodeState = NodeKnown;
            },
            [this]() {
                ONVIF_LOG(m_logger, OnvifLog::Info, "Could not request node info.");
                m_nodeState = NoNode;
            });
}

QFuture<void> OnvifPtzController::checkNodeInfo()
{
    AsyncFuture::Deferred<void> result;
    if (m_nodeState != NoNode) {
        result.complete();
    } else {
        ONVIF_LOG(m_logger, OnvifLog::Info, "Node info not found. Request.");
        reqNodeInfo();
        result.cancel();
    }
    return result.future();
}

QFuture<NodeInfo> OnvifPtzController::getNodeInfo()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "reqNodeInfo");
    if (m_nodeState == NodeKnown) {
        ONVIF_LOG(m_logger, OnvifLog::Info, "Node info already exist.");
        AsyncFuture::Deferred<NodeInfo> result;
        result.complete(m_nodeInfo);
        return result.future();
    }
    ONVIF_LOG(m_logger, OnvifLog::Info, "Node info not found. Request.");
    // A side request: only the controller's own fetch fills the cache.
    return m_req->reqNodeInfo(m_token.PtzNodeToken);
}

QFuture<void> OnvifPtzController::stop(bool panTilt, bool zoom)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "stop");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->stop(m_token.MediaProfileToken, panTilt, zoom);
}

QFuture<void> OnvifPtzController::continuousZoom(float speed)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "continuousZoom");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->continuousZoom(m_token.MediaProfileToken, speed);
}

QFuture<void> OnvifPtzController::continuousPos(float x, float y)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "continuousPos");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->continuousPos(m_token.MediaProfileToken, x, y);
}

QFuture<void> OnvifPtzController::toHome(float panTiltSpeed, float zoomSpeed)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "toHome");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->toHome(m_token.MediaProfileToken, panTiltSpeed, zoomSpeed);
}

QFuture<void> OnvifPtzController::saveAsHome()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "saveAsHome");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->saveAsHome(m_token.MediaProfileToken);
}

QFuture<void> OnvifPtzController::setPreset(const QString& presetToken, const QString& presetName)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "setPreset");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->setPreset(m_token.MediaProfileToken, presetToken, presetName);
}

QFuture<void> OnvifPtzController::delPreset(const QString& presetToken)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "delPreset");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->delPreset(m_token.MediaProfileToken, presetToken);
}

QFuture<void> OnvifPtzController::gotoPreset(const QString& presetToken)
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "gotoPreset");
    const QFuture<void> check = checkNodeInfo();
    return check.isCanceled() ? check : m_req->gotoPreset(m_token.MediaProfileToken, presetToken);
}

QFuture<QVector<Preset>> OnvifPtzController::presets()
{
    ONVIF_LOG(m_logger, OnvifLog::Trace, "presets");
    AsyncFuture::Deferred<QVector<Preset>> result;
    if (checkNodeInfo().isCanceled())
        result.cancel();
    else
        result.complete(m_req->presets(m_token.MediaProfileToken));
    return result.future();
}

// Inert on purpose: the camera position is neither set nor read through this
// interface; the refusal still triggers a node fetch when none is known.
QFuture<void> OnvifPtzController::setZoom(double)
{
    return checkNodeInfo();
}

QFuture<void> OnvifPtzController::setPos(double, double)
{
    return checkNodeInfo();
}

QFuture<double> OnvifPtzController::getZoom()
{
    AsyncFuture::Deferred<double> result;
    result.cancel();
    return result.future();
}

QFuture<QPointF> OnvifPtzController::getPos()
{
    AsyncFuture::Deferred<QPointF> result;
    result.cancel();
    return result.future();
}

} // namespace PtzSys
