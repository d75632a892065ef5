#ifndef ONVIFTYPES_ONVIFNETWORKACCESSMANAGER_H
#define ONVIFTYPES_ONVIFNETWORKACCESSMANAGER_H

#include <onvifTypes/onvifTypesGlobal.h>
#include <onvifTypes/transport/limits.h>

#include <QNetworkAccessManager>
#include <QSet>
#include <QSslConfiguration>

namespace Onvif {

namespace Internal {
class HttpPool;
}

// A QNetworkAccessManager that serves plain-HTTP GET and POST itself, in the thread it lives in:
// header and body leave in one write on a TCP_NODELAY socket, so a request on a reused
// keep-alive connection does not wait for the peer's delayed ACK, and no bytes cross to
// Qt's HTTP thread. The thread's event loop watches all such connections as one
// descriptor, so hundreds in flight do not make each wake-up dearer. The request text is the one
// QNetworkAccessManager sends. Anything it would not honour (https, proxies, redirects to follow, caches,
// cookies, authentication handlers, other operations) goes to QNetworkAccessManager unchanged.
class ONVIFTYPES_EXPORT NetworkAccessManager : public QNetworkAccessManager
{
    Q_OBJECT

public:
    explicit NetworkAccessManager(QObject* parent = nullptr);
    ~NetworkAccessManager() override;

    // Closes the idle keep-alive connections of this manager and of Qt's. It hides
    // QNetworkAccessManager's, which is not virtual: called through a base pointer it
    // closes only Qt's.
    void clearConnectionCache();

    // What a camera may send on one request of this manager; Limits::defaults() at first.
    // Applies to requests made afterwards. Requests that go to QNetworkAccessManager get
    // what Qt allows of them: a read buffer, the body size and the deadline.
    void setLimits(const Limits& limits);
    Limits limits() const;

    // TLS settings for the https requests of this manager that bring none of their own
    // (QNetworkRequest::sslConfiguration() left at the default): a camera's own CA, or no
    // verification for a self-signed certificate. Every library object sharing this manager
    // uses them.
    void setSslConfiguration(const QSslConfiguration& configuration);
    QSslConfiguration sslConfiguration() const;

signals:
    // Each request of this manager when it has ended, with the time from the call that made it
    // (for traces and metrics). Emitted before the reply's own finished() reaches anyone else.
    void exchangeFinished(QNetworkReply* reply, qint64 elapsedMs);

protected:
    QNetworkReply* createRequest(
        Operation op, const QNetworkRequest& request, QIODevice* outgoingData = nullptr) override;

private:
    bool servesItself(Operation op, const QNetworkRequest& request, QIODevice* outgoingData);
    QNetworkReply* makeReply(Operation op, const QNetworkRequest& request, QIODevice* outgoingData);

    Internal::HttpPool* m_pool;
    Limits m_limits;
    // Hosts that saw credentials: Qt's authentication cache may answer for them later.
    QSet<QString> m_authHosts;
    QSslConfiguration m_ssl;
    bool m_sslSet = false;
};

} // namespace Onvif

#endif // ONVIFTYPES_ONVIFNETWORKACCESSMANAGER_H
