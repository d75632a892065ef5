#include "onvifTypes/onvifNetworkAccessManager.h"

#include "onvifTypes/transport/httpReply_p.h"
#include "onvifTypes/transport/replyGuard_p.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QLocale>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkProxy>

namespace Onvif {

namespace {

// Qt's own choice from the system locale.
QByteArray acceptLanguage()
{
    const QString locale = QLocale::system().name().replace(QLatin1Char('_'), QLatin1Char('-'));
    if (locale == QLatin1String("C"))
        return QByteArrayLiteral("en,*");
    if (locale.startsWith(QLatin1String("en-")))
        return locale.toLatin1() + ",*";
    return locale.toLatin1() + ",en,*";
}

// Request attributes served here when absent or at these values (-1: any value).
struct AttributeRule
{
    QNetworkRequest::Attribute attribute;
    int allowed;
};
constexpr AttributeRule attributeRules[] = {
    { QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::PreferNetwork },
    { QNetworkRequest::CacheSaveControlAttribute, -1 },
    { QNetworkRequest::DoNotBufferUploadDataAttribute, -1 },
    { QNetworkRequest::HttpPipeliningAllowedAttribute, 0 },
    { QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Automatic },
    { QNetworkRequest::CookieSaveControlAttribute, -1 },
    { QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Automatic },
    { QNetworkRequest::MaximumDownloadBufferSizeAttribute, -1 },
    { QNetworkRequest::SynchronousRequestAttribute, 0 },
    { QNetworkRequest::BackgroundRequestAttribute, 0 },
    { QNetworkRequest::Http2AllowedAttribute, 0 },
    { QNetworkRequest::EmitAllUploadProgressSignalsAttribute, -1 },
    { QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy },
    { QNetworkRequest::Http2DirectAttribute, 0 },
    { QNetworkRequest::AutoDeleteReplyOnFinishAttribute, -1 },
};

bool attributesServed(const QNetworkRequest& request)
{
    for (int a = QNetworkRequest::HttpStatusCodeAttribute;
         a <= QNetworkRequest::AutoDeleteReplyOnFinishAttribute; ++a) {
        const QVariant value = request.attribute(QNetworkRequest::Attribute(a));
        if (!value.isValid())
            continue;
        const auto rule = std::find_if(std::begin(attributeRules), std::end(attributeRules),
            [a](const AttributeRule& r) { return r.attribute == a; });
        if (rule == std::end(attributeRules) || (rule->allowed >= 0 && value.toInt() != rule->allowed))
            return false;
    }
    return true;
}

void addMissing(QByteArray& out, const QNetworkRequest& request, const char* name, const QByteArray& value)
{
    if (!request.hasRawHeader(name))
        out += QByteArray(name) + ": " + value + "\r\n";
}

// The bytes QNetworkAccessManager writes for this request, in its order.
QByteArray requestText(QNetworkAccessManager::Operation op, const QNetworkRequest& request,
    const QByteArray& body, bool* autoDecompress)
{
    static const QByteArray language = acceptLanguage();
    QUrl target = request.url();
    QUrl::FormattingOptions format = QUrl::RemoveFragment | QUrl::RemoveUserInfo | QUrl::FullyEncoded
        | QUrl::RemoveScheme | QUrl::RemoveAuthority;
    if (target.path().isEmpty())
        target.setPath(QStringLiteral("/"));
    else
        format |= QUrl::NormalizePathSegments;
    const bool post = op == QNetworkAccessManager::PostOperation;
    QByteArray out;
    out.reserve(400 + body.size());
    out += post ? "POST " : "GET ";
    out += target.toEncoded(format) + " HTTP/1.1\r\n";
    if (!request.hasRawHeader("Host")) {
        const QString host = request.url().host();
        out += "Host: ";
        out += QHostAddress(host).protocol() == QAbstractSocket::IPv6Protocol ? '[' + host.toLatin1() + ']'
                                                                              : QUrl::toAce(host);
        if (request.url().port() != -1)
            out += ':' + QByteArray::number(request.url().port());
        out += "\r\n";
    }
    for (const QByteArray& name : request.rawHeaderList())
        out += name + ": " + request.rawHeader(name) + "\r\n";
    if (post)
        out += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    addMissing(out, request, "Connection", QByteArrayLiteral("Keep-Alive"));
    *autoDecompress = !request.hasRawHeader("Accept-Encoding");
    addMissing(out, request, "Accept-Encoding", QByteArrayLiteral("gzip, deflate"));
    addMissing(out, request, "Accept-Language", language);
    addMissing(out, request, "User-Agent", QByteArrayLiteral("Mozilla/5.0"));
    if (post && !body.isEmpty() && !request.hasRawHeader("Content-Type")) {
        qWarning("content-type missing in HTTP POST, defaulting to application/x-www-form-urlencoded. Use "
                 "QNetworkRequest::setHeader() to fix this problem.");
        out += "Content-Type: application/x-www-form-urlencoded\r\n";
    }
    out += "\r\n";
    out += body;
    return out;
}

} // namespace

NetworkAccessManager::NetworkAccessManager(QObject* parent)
    : QNetworkAccessManager(parent)
    , m_pool(new Internal::HttpPool(this))
    , m_limits(Limits::defaults())
{ }

NetworkAccessManager::~NetworkAccessManager()
{
    // Replies go before their pool, without signals, as QNetworkAccessManager deletes its replies.
    qDeleteAll(findChildren<Internal::HttpReply*>(QString(), Qt::FindDirectChildrenOnly));
}

void NetworkAccessManager::clearConnectionCache()
{
    m_pool->closeIdle();
    QNetworkAccessManager::clearConnectionCache();
}

void NetworkAccessManager::setLimits(const Limits& limits)
{
    m_limits = limits;
}

Limits NetworkAccessManager::limits() const
{
    return m_limits;
}

void NetworkAccessManager::setSslConfiguration(const QSslConfiguration& configuration)
{
    m_ssl = configuration;
    m_sslSet = true;
}

QSslConfiguration NetworkAccessManager::sslConfiguration() const
{
    return m_sslSet ? m_ssl : QSslConfiguration::defaultConfiguration();
}

bool NetworkAccessManager::servesItself(Operation op, const QNetworkRequest& request, QIODevice* outgoingData)
{
    const QUrl url = request.url();
    if (op == GetOperation ? outgoingData != nullptr
                           : op != PostOperation || !outgoingData || outgoingData->isSequential())
        return false;
    if (url.scheme() != QLatin1String("http") || url.host().isEmpty()
        || request.hasRawHeader("Content-Length"))
        return false;
    // Credentials go to Qt, which answers challenges and remembers them for the host.
    if (!url.userInfo().isEmpty()
        || isSignalConnected(QMetaMethod::fromSignal(&QNetworkAccessManager::authenticationRequired))) {
        m_authHosts.insert(url.host());
        return false;
    }
    if (m_authHosts.contains(url.host()) || cache() || proxyFactory()
        || redirectPolicy() != QNetworkRequest::ManualRedirectPolicy || isStrictTransportSecurityEnabled()
        || !attributesServed(request))
        return false;
    if (cookieJar() && !cookieJar()->cookiesForUrl(url).isEmpty())
        return false;
    QNetworkProxy proxy = this->proxy();
    if (proxy.type() == QNetworkProxy::DefaultProxy) {
        const QList<QNetworkProxy> proxies = QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(url));
        proxy = proxies.isEmpty() ? QNetworkProxy(QNetworkProxy::NoProxy) : proxies.first();
    }
    return proxy.type() == QNetworkProxy::NoProxy
        || (proxy.type() == QNetworkProxy::DefaultProxy
            && QNetworkProxy::applicationProxy().type() == QNetworkProxy::NoProxy);
}

QNetworkReply* NetworkAccessManager::createRequest(
    Operation op, const QNetworkRequest& request, QIODevice* outgoingData)
{
    QNetworkReply* reply = makeReply(op, request, outgoingData);
    if (isSignalConnected(QMetaMethod::fromSignal(&NetworkAccessManager::exchangeFinished))) {
        QElapsedTimer started;
        started.start();
        connect(reply, &QNetworkReply::finished, this,
            [this, reply, started] { emit exchangeFinished(reply, started.elapsed()); });
    }
    return reply;
}

QNetworkReply* NetworkAccessManager::makeReply(
    Operation op, const QNetworkRequest& request, QIODevice* outgoingData)
{
    if (!servesItself(op, request, outgoingData)) {
        QNetworkRequest tls = request;
        if (m_sslSet && request.url().scheme() == QLatin1String("https")
            && request.sslConfiguration() == QSslConfiguration::defaultConfiguration())
            tls.setSslConfiguration(m_ssl);
        QNetworkReply* reply = QNetworkAccessManager::createRequest(op, tls, outgoingData);
        Internal::guardReply(reply, -1, m_limits);
        return reply;
    }
    const QByteArray body = outgoingData ? outgoingData->readAll() : QByteArray();
    bool autoDecompress = false;
    QByteArray wire = requestText(op, request, body, &autoDecompress);
    const int timeout = request.transferTimeout() > 0 ? request.transferTimeout() : transferTimeout();
    // Qt's post-processing of every created reply emits finished(reply) and deletes it when asked.
    QNetworkRequest own = request;
    if (autoDeleteReplies()
        && !request.attribute(QNetworkRequest::AutoDeleteReplyOnFinishAttribute).isValid())
        own.setAttribute(QNetworkRequest::AutoDeleteReplyOnFinishAttribute, true);
    auto* reply = new Internal::HttpReply(
        m_pool, this, op, own, std::move(wire), body.size(), autoDecompress, timeout, m_limits);
    // Nothing may be signalled before the caller has connected to the reply.
    QMetaObject::invokeMethod(
        reply,
        [pool = QPointer<Internal::HttpPool>(m_pool), reply] {
            if (pool && !reply->isFinished())
                pool->enqueue(reply);
        },
        Qt::QueuedConnection);
    return reply;
}

} // namespace Onvif
