#ifndef ONVIFTYPES_PTZ_ONVIFPTZREQ_H
#define ONVIFTYPES_PTZ_ONVIFPTZREQ_H

#include <onvifTypes/onvifLog.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/soapFault.h>

#include <QFuture>
#include <QMetaType>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVector>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace AsyncFuture {
template <typename T> class Deferred;
}

namespace PtzSys {

// One media profile that carries a PTZ configuration.
struct ONVIFTYPES_EXPORT Token
{
    QString MediaProfileToken;
    QString MediaProfileName;
    QString PtzNodeToken;
    QString PtzNodeName;
};

// One preset of a profile; nameless or tokenless presets are named by their index.
struct ONVIFTYPES_EXPORT Preset
{
    QString profileToken;
    QString token;
    QString name;
    double zoom = 0;
    double pan = 0;
    double tilt = 0;
};

// The ranges of one PTZ node. Only the first space of each kind is read.
struct ONVIFTYPES_EXPORT NodeInfo
{
    QString token;
    QString name;
    float absPanMin = 0, absPanMax = 0, absTiltMin = 0, absTiltMax = 0;
    float absZoomMin = 0, absZoomMax = 0;
    float relPanMin = 0, relPanMax = 0, relTiltMin = 0, relTiltMax = 0;
    float relZoomMin = 0, relZoomMax = 0;
    float velPanMin = 0, velPanMax = 0, velTiltMin = 0, velTiltMax = 0;
    float velZoomMin = 0, velZoomMax = 0;
    float speedPanTiltMin = 0, speedPanTiltMax = 0;
    float speedZoomMin = 0, speedZoomMax = 0;
    int maxPresets = 0;
    bool homeSupported = false;
    // A node that does not say counts as having a fixed home position.
    bool fixedHomePosition = true;
};

// The PTZ requests of one camera. Call checkCapability() first: every other request
// goes to the PTZ address it learns. Numbers are sent exactly as given. Network
// errors and faults cancel the future. Futures of requests still in flight when
// the object is destroyed never complete with a value.
class ONVIFTYPES_EXPORT OnvifPtzReq : public QObject
{
    Q_OBJECT

public:
    OnvifPtzReq(const OnvifSecurity& security, const QString& deviceUrl, QNetworkAccessManager* manager,
        int id, QObject* parent = nullptr);
    ~OnvifPtzReq() override;

    QFuture<bool> checkCapability();
    bool support() const { return m_supported; }
    QString ptzUrl() const { return m_ptzUrl; }

    QFuture<QVector<Token>> reqTokens();
    // The cached tokens; when there are none yet, starts reqTokens() and returns the
    // empty cache without waiting.
    QVector<Token> tokens();

    QFuture<NodeInfo> reqNodeInfo(const QString& nodeToken);
    QFuture<QVector<Preset>> presets(const QString& profileToken);
    // Diagnostics on the debug output; the future never completes with success.
    QFuture<void> presetTours(const QString& profileToken);
    // A null token or name is left out; an empty one is sent as an empty element.
    QFuture<void> setPreset(
        const QString& profileToken, const QString& presetToken, const QString& presetName);
    QFuture<void> delPreset(const QString& profileToken, const QString& presetToken);
    QFuture<void> gotoPreset(const QString& profileToken, const QString& presetToken);
    // Speeds of 0 are left out; both 0 sends no Speed at all.
    QFuture<void> toHome(const QString& profileToken, float panTiltSpeed, float zoomSpeed);
    QFuture<void> saveAsHome(const QString& profileToken);
    QFuture<void> continuousPos(const QString& profileToken, float x, float y);
    QFuture<void> continuousZoom(const QString& profileToken, float speed);
    QFuture<void> stop(const QString& profileToken, bool panTilt, bool zoom);

    // The fault of the request that finished last, read from the answer also when it came
    // with an HTTP error status (the futures alone do not tell why); null after a success.
    Onvif::SoapFault lastFault() const { return m_lastFault; }

private:
    template <typename Req, typename Resp, typename T>
    QFuture<T> request(Req& body, const QString& action, const QString& url,
        std::function<void(Resp&, AsyncFuture::Deferred<T>&)> handler);
    template <typename Req, typename Resp> QFuture<void> voidRequest(Req& body, const QString& action);

    OnvifLog::Logger m_logger;
    OnvifSecurity m_security;
    QString m_deviceUrl;
    QString m_ptzUrl;
    QNetworkAccessManager* m_manager;
    bool m_supported = false;
    QVector<Token> m_tokens;
    QVector<QPointer<QNetworkReply>> m_replies;
    Onvif::SoapFault m_lastFault;
};

} // namespace PtzSys

Q_DECLARE_METATYPE(PtzSys::Token)
Q_DECLARE_METATYPE(PtzSys::Preset)
Q_DECLARE_METATYPE(PtzSys::NodeInfo)

#endif // ONVIFTYPES_PTZ_ONVIFPTZREQ_H
