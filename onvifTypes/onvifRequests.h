#ifndef ONVIFTYPES_ONVIFREQUESTS_H
#define ONVIFTYPES_ONVIFREQUESTS_H

#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/soapFault.h>

#include <onvifTypes/transport/limits.h>

#include <QFuture>
#include <QMetaType>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>

class QNetworkAccessManager;

namespace Onvif {

class NetworkAccessManager;

namespace Internal {
struct ReplyOutcome;
}

// One camera's identity. The device-service URL is "http://" + ip + ":" + port + path.
struct ONVIFTYPES_EXPORT DeviceInfo
{
    QString ip;
    QString type; // OnvifDeviceInfo::getDeviceType
    QString port;
    QString path;
    QString manufacturer;
    QString model;
    QString serialNumber;
    QString hardwareId;
    QString firmwareVersion;
};

// One media profile with its video and audio encoder settings.
struct ONVIFTYPES_EXPORT OnvifProfileInfo
{
    int width = 0;
    int height = 0;
    QString token;
    QString uri; // filled by the RTSP stream list
    QString encoderToken;
    QString encoding;
    float quality = 0.0f;
    int frameRate = 0;
    bool hasH264 = false;
    int govLength = 0;
    QString h264Profile;
    bool hasAudio = false;
    QString audioToken;
    QString audioEncoding;
    int audioBitrate = 0;
    int audioSampleRate = 0;
};

class ONVIFTYPES_EXPORT IRequests
{
public:
    virtual ~IRequests();
    virtual QFuture<QString> mediaAddr() = 0;
    virtual QFuture<QVector<OnvifProfileInfo>> profiles(const QString& path) = 0;
    virtual QFuture<QString> rtspUrl(const QString& profileToken, const QString& path) = 0;
    virtual QFuture<DeviceInfo> deviceInfo() = 0;
    virtual bool isAuthFault() const = 0;
};

// One camera: a device-service URL, credentials and a network manager of its own.
// Calls may overlap; each returns a future that finishes once (cancelled on a
// network error or fault). Destroying the object cancels the calls in flight.
class ONVIFTYPES_EXPORT Requests : public IRequests
{
public:
    Requests(const QString& login, const QString& password, const QString& url, bool trace);
    ~Requests() override;
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

    // The media service address from GetCapabilities; empty when the device names none.
    QFuture<QString> mediaAddr() override;
    // The profiles with a video encoder, one per encoder, largest resolution first.
    // A non-empty path replaces the path of the device-service URL.
    QFuture<QVector<OnvifProfileInfo>> profiles(const QString& path) override;
    // The RTSP (RTP-Unicast over RTSP) stream URI of a profile.
    QFuture<QString> rtspUrl(const QString& profileToken, const QString& path) override;
    QFuture<DeviceInfo> deviceInfo() override;
    // Whether the last answer was an authentication fault.
    bool isAuthFault() const override;
    // Whether the last answer came without network error but could not be read (not
    // XML, past one of the Onvif::Limits, or without the expected response element).
    // Its call completed with default values all the same; readError() says why.
    bool isUnreadableAnswer() const { return !m_readError.isEmpty(); }
    QString readError() const { return m_readError; }
    // The fault the device sent for the last call, codes and reasons as written; null when
    // the last call ended without one.
    SoapFault lastFault() const { return m_lastFault; }

    // The manager this object sends through: for TLS settings, limits, or observing each
    // exchange (NetworkAccessManager::exchangeFinished).
    NetworkAccessManager* networkManager() const;

    // What the camera may send, and the deadline of each call (requestDeadlineMs: a camera
    // that accepts and never answers cancels the call then). Limits::defaults() at first;
    // applies to calls made afterwards.
    void setLimits(const Limits& limits);
    Limits limits() const;

private:
    QString endpoint(const QString& path) const;
    std::function<void(const Internal::ReplyOutcome&)> outcomeObserver();

    OnvifSecurity m_security;
    QString m_url;
    std::unique_ptr<QNetworkAccessManager> m_manager;
    bool m_trace;
    bool m_authFault = false;
    QString m_readError;
    SoapFault m_lastFault;
};

} // namespace Onvif

Q_DECLARE_METATYPE(Onvif::DeviceInfo)
Q_DECLARE_METATYPE(Onvif::OnvifProfileInfo)

#endif // ONVIFTYPES_ONVIFREQUESTS_H
