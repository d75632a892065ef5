#ifndef ONVIFTYPES_PTZ_ONVIFPTZCONTROLLER_H
#define ONVIFTYPES_PTZ_ONVIFPTZCONTROLLER_H

#include <onvifTypes/ptz/onvifPtzReq.h>

#include <QFuture>
#include <QObject>
#include <QPointF>
#include <QVector>

namespace PtzSys {

// PTZ commands for one media profile. Values go to the camera unconverted.
class ONVIFTYPES_EXPORT IController
{
public:
    virtual ~IController();

    virtual QFuture<NodeInfo> getNodeInfo() = 0;
    virtual QFuture<void> stop(bool panTilt, bool zoom) = 0;
    virtual QFuture<void> continuousZoom(float speed) = 0;
    virtual QFuture<void> continuousPos(float x, float y) = 0;
    virtual QFuture<void> toHome(float panTiltSpeed, float zoomSpeed) = 0;
    virtual QFuture<void> saveAsHome() = 0;
    virtual QFuture<void> setZoom(double zoom) = 0;
    virtual QFuture<void> setPos(double x, double y) = 0;
    virtual QFuture<double> getZoom() = 0;
    virtual QFuture<QPointF> getPos() = 0;
    virtual QFuture<QVector<Preset>> presets() = 0;
    virtual QFuture<void> setPreset(const QString& presetToken, const QString& presetName) = 0;
    virtual QFuture<void> delPreset(const QString& presetToken) = 0;
    virtual QFuture<void> gotoPreset(const QString& presetToken) = 0;
};

// Drives one profile of one camera through the camera's shared request object,
// which must outlive it. Commands wait for nothing, but are refused (cancelled
// future) while the node description is neither known nor being fetched; the
// refusal starts a new fetch, so a later retry goes out. Absolute positioning is
// not offered: setPos/setZoom send nothing and getPos/getZoom are cancelled.
class ONVIFTYPES_EXPORT OnvifPtzController : public QObject, public IController
{
    Q_OBJECT

public:
    OnvifPtzController(const Token& token, OnvifPtzReq* req);
    ~OnvifPtzController() override;

    QFuture<NodeInfo> getNodeInfo() override;
    QFuture<void> stop(bool panTilt, bool zoom) override;
    QFuture<void> continuousZoom(float speed) override;
    QFuture<void> continuousPos(float x, float y) override;
    QFuture<void> toHome(float panTiltSpeed, float zoomSpeed) override;
    QFuture<void> saveAsHome() override;
    QFuture<void> setZoom(double zoom) override;
    QFuture<void> setPos(double x, double y) override;
    QFuture<double> getZoom() override;
    QFuture<QPointF> getPos() override;
    QFuture<QVector<Preset>> presets() override;
    QFuture<void> setPreset(const QString& presetToken, const QString& presetName) override;
    QFuture<void> delPreset(const QString& presetToken) override;
    QFuture<void> gotoPreset(const QString& presetToken) override;

private:
    enum NodeState { NoNode = 0, NodeRequested = 1, NodeKnown = 2 };

    void reqNodeInfo();
    QFuture<void> checkNodeInfo();

    OnvifLog::Logger m_logger;
    Token m_token;
    OnvifPtzReq* m_req;
    int m_nodeState = NoNode;
    NodeInfo m_nodeInfo;
};

} // namespace PtzSys

#endif // ONVIFTYPES_PTZ_ONVIFPTZCONTROLLER_H
