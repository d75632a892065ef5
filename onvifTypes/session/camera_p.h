#ifndef ONVIFTYPES_SESSION_CAMERA_P_H
#define ONVIFTYPES_SESSION_CAMERA_P_H

// The session's internals, shared by the files that implement its operations (session,
// media, imaging).

#include "onvifTypes/onvifLog.h"
#include "onvifTypes/schema/tds/GetCapabilitiesResponse.h"
#include "onvifTypes/schema/tds/GetServicesResponse.h"
#include "onvifTypes/session/camera.h"
#include "onvifTypes/session/httpDigest_p.h"
#include "onvifTypes/stringEnumBase.h"

#include <QNetworkRequest>

class QNetworkReply;

namespace Onvif {

template <typename Resp> QFuture<void> asVoid(const QFuture<Resp>& future)
{
    return AsyncFuture::observe(future).subscribe([](const Resp&) {}).future();
}

// Cancels through a copy: AsyncFuture calls its callbacks as const.
template <typename T> void cancel(AsyncFuture::Deferred<T> deferred)
{
    deferred.cancel();
}

inline QString text(const QSharedPointer<universalSimpleType<QString>>& value)
{
    return value ? value->value() : QString();
}

struct Camera::Private
{
    // One operation, over as many attempts as the policies allow.
    struct Call
    {
        Service service;
        QUrl address; // instead of the service's, when given
        std::shared_ptr<Serializable> extraHeader;
        std::shared_ptr<Serializable> body;
        QString operation;
        int timeoutMs = 0;
        bool anonymous = false; // no WS-Security header (the clock is asked this way)
        bool clockRetried = false;
        int httpAuthRetries = 0;
        AsyncFuture::Deferred<QString> result;
    };

    Camera* q;
    QUrl deviceUrl;
    QString user, password;
    CameraOptions options;
    NetworkAccessManager* manager;
    QString deviceKey;
    CameraConnection connection;
    qint64 offsetMs = 0;
    Internal::HttpAuthorizer http; // set once the device asked for HTTP authentication
    bool rewriting = false;
    CameraResult last;
    OnvifLog::Logger logger = OnvifLog::makeLogger(QStringLiteral("Camera"));

    void attempt(const std::shared_ptr<Call>& call);
    void finished(const std::shared_ptr<Call>& call, QNetworkReply* reply);
    void fail(const std::shared_ptr<Call>& call, CameraError error, const QString& message,
        const SoapFault& fault = SoapFault());
    enum class Challenge { Retry, Refused, BasicNotAllowed };
    // A 401: whether to try again with an answer to its challenge.
    Challenge challenged(QNetworkReply* reply, int* retries);
    void authorize(QNetworkRequest& request, const QByteArray& method);
    QFuture<QString> post(Service service, const std::shared_ptr<Serializable>& body,
        const QString& operation, int timeoutMs, bool anonymous, const QUrl& address = QUrl(),
        const std::shared_ptr<Serializable>& extraHeader = nullptr);
    QFuture<QDateTime> measureClock();
    QUrl serviceUrl(Service service) const;
    QUrl place(const QUrl& stated) const;
    bool sameEndpoint(const QUrl& stated) const;
    void readServices(const tds::GetServicesResponse& response);
    void readCapabilities(const tds::GetCapabilitiesResponse& response);
    void get(const QUrl& url, AsyncFuture::Deferred<Snapshot> result, int httpAuthRetries);

    // Media (onvifTypes/media/cameraMedia.cpp)
    bool media2For(CameraOptions::MediaService media) const;
    QFuture<QVector<CameraProfile>> media1Profiles();
    QFuture<QVector<CameraProfile>> media2Profiles();
    // Both URIs of every profile, asked at once; a profile without one keeps it empty.
    void addUris(const QSharedPointer<QVector<CameraProfile>>& profiles, bool media2,
        AsyncFuture::Deferred<QVector<CameraProfile>> result);
    QFuture<QString> streamUri(const QString& profileToken, StreamTransport transport, bool media2);
    QFuture<QString> snapshotUri(const QString& profileToken, bool media2);
    // A stated URI as the address policy places it; a failure (lastResult()) when there is none.
    QString placedUri(const QString& stated, const QString& operation);
};

} // namespace Onvif

#endif // ONVIFTYPES_SESSION_CAMERA_P_H
