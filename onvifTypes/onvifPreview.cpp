#include "onvifTypes/onvifPreview.h"

#include "onvifTypes/onvifNetworkAccessManager.h"
#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifSecurity.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/trt/GetSnapshotUri.h"
#include "onvifTypes/schema/trt/GetSnapshotUriResponse.h"
#include "onvifTypes/transport/limits.h"
#include "onvifTypes/transport/replyGuard_p.h"
#include "onvifTypes/transport/userAgent_p.h"

#include <QBuffer>
#include <QImageReader>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace Onvif {

namespace {

// Set on a snapshot reply that was cut off, with the reason for the log.
const char kRefusedProperty[] = "onvifRefused";

// Stops a snapshot download past the image limit, whatever manager carries it.
void limitDownload(QNetworkReply* reply, qint64 maxBytes)
{
    const auto refuse = [reply](const QString& why) {
        if (reply->property(kRefusedProperty).isValid())
            return;
        reply->setProperty(kRefusedProperty, why);
        reply->abort();
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, maxBytes, refuse] {
        const QVariant declared = reply->header(QNetworkRequest::ContentLengthHeader);
        if (declared.isValid() && declared.toLongLong() > maxBytes)
            refuse(QStringLiteral("the picture declares %1 bytes, more than %2 (maxImageBytes)")
                       .arg(declared.toLongLong())
                       .arg(maxBytes));
    });
    QObject::connect(
        reply, &QNetworkReply::downloadProgress, reply, [maxBytes, refuse](qint64 received, qint64) {
            if (received > maxBytes)
                refuse(QStringLiteral("the picture is larger than %1 bytes (maxImageBytes)").arg(maxBytes));
        });
}

} // namespace

OnvifPreview::OnvifPreview(const QString& login, const QString& password, const QString& url,
    QNetworkAccessManager* manager, QObject* parent)
    : QObject(parent)
    , m_manager(manager)
    , m_login(login)
    , m_password(password)
    , m_url(url)
    , m_logger(OnvifLog::makeLogger(QStringLiteral("OnvifPreview")))
{ }

OnvifPreview::OnvifPreview(const QString& login, const QString& password, const QString& url, QObject* parent)
    : OnvifPreview(login, password, url, nullptr, parent)
{
    m_manager = new NetworkAccessManager(this);
}

OnvifPreview::OnvifPreview(QNetworkAccessManager* manager, QObject* parent)
    : OnvifPreview(QString(), QString(), QString(), manager, parent)
{ }

void OnvifPreview::getSnapshotUri(const QString& profileToken)
{
    getSnapshotUri(m_login, m_password, m_url, profileToken);
}

void OnvifPreview::getSnapshotUri(
    const QString& login, const QString& password, const QString& url, const QString& profileToken)
{
    ONVIF_LOG(m_logger, OnvifLog::Info,
        QStringLiteral("Request snapshot uri. Login: %1; Pass: %2; OnvifUrl: %3; Profile token: %4")
            .arg(login, password, url, profileToken));
    OnvifSecurity security(login, password, 0LL);
    trt::GetSnapshotUri body;
    body.ProfileToken->setValue(profileToken);
    const OnvifRequest envelope(security, body);

    QNetworkRequest request { QUrl(url) };
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    QNetworkReply* reply = m_manager->post(request, envelope.getMessage().toUtf8());
    Internal::guardLentReply(reply);
    connect(reply, &QNetworkReply::finished, this, &OnvifPreview::getSnapshotUriResponse);
    // Released also when the preview is gone by then; the borrowed manager would keep it.
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}

void OnvifPreview::getSnapshotUriResponse()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply)
        return;
    if (reply->error() != QNetworkReply::NoError) {
        reply->deleteLater();
        return;
    }
    const OnvifResponse response(QString::fromLatin1(reply->readAll()));
    reply->deleteLater();
    if (!response.isReadable())
        ONVIF_LOG(m_logger, OnvifLog::Error,
            QStringLiteral("getSnapshotUri answer is unreadable: ") + response.parseError());
    if (response.isFault()) {
        ONVIF_LOG(m_logger, OnvifLog::Error,
            QStringLiteral("getSnapshotUri response has error:\n") + response.getFaultText());
        return;
    }
    trt::GetSnapshotUriResponse answer;
    QDomNode node = response.getNodeByTag(QStringLiteral("GetSnapshotUriResponse"));
    answer.deserialize(node);
    const QString uri = answer.MediaUri->Uri->value();
    ONVIF_LOG(m_logger, OnvifLog::Info, QStringLiteral("Snapshot uri:") + uri);
    emit snapshotUri(uri);
}

void OnvifPreview::downloadImage(const QString& uri)
{
    ONVIF_LOG(m_logger, OnvifLog::Info, QStringLiteral("Download image: ") + uri);
    // A camera names the URI: anything but the web (a local file, inline data, a
    // resource of the host program) is never fetched.
    const QUrl url(uri);
    const QString scheme = url.scheme().toLower();
    if ((scheme != QLatin1String("http") && scheme != QLatin1String("https")) || url.host().isEmpty()) {
        ONVIF_LOG(m_logger, OnvifLog::Error,
            QStringLiteral("Refused: only http and https snapshot URIs are fetched: ") + uri);
        return;
    }
    const Limits limits = Limits::defaults();
    QNetworkRequest request(url);
    Onvif::Internal::setUserAgent(request);
    request.setAttribute(Limits::BodyLimitAttribute, limits.maxImageBytes);
    // Nor is a redirect followed, whatever policy a lent manager has: it could lead there too.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    QNetworkReply* reply = m_manager->get(request);
    limitDownload(reply, limits.maxImageBytes);
    connect(reply, &QNetworkReply::finished, this, &OnvifPreview::downloaded);
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}

void OnvifPreview::downloaded()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply) {
        ONVIF_LOG(m_logger, OnvifLog::Error, "Sender is null.");
        return;
    }
    const QNetworkReply::NetworkError error = reply->error();
    reply->deleteLater();
    const QVariant refused = reply->property(kRefusedProperty);
    if (refused.isValid()) {
        ONVIF_LOG(m_logger, OnvifLog::Error, QStringLiteral("Refused: ") + refused.toString());
        return;
    }
    if (error != QNetworkReply::NoError) {
        ONVIF_LOG(
            m_logger, OnvifLog::Error, QStringLiteral("Error with code: ") + QString::number(int(error)));
        ONVIF_LOG(m_logger, OnvifLog::Error, QStringLiteral("Download failed: ") + reply->errorString());
        return;
    }
    QByteArray body = reply->readAll();
    QBuffer buffer(&body);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    if (!reader.canRead()) {
        emit image(QImage()); // not an image at all
        return;
    }
    // The size from the header alone, so that no pixel is allocated for a picture past the limit.
    const QSize size = reader.size();
    const qint64 maxPixels = Limits::defaults().maxImagePixels;
    if (!size.isValid()) {
        ONVIF_LOG(m_logger, OnvifLog::Error, "Refused: the picture does not tell its size before decoding");
        return;
    }
    if (qint64(size.width()) * size.height() > maxPixels) {
        ONVIF_LOG(m_logger, OnvifLog::Error,
            QStringLiteral("Refused: the picture declares %1 x %2 pixels, more than %3 (maxImagePixels)")
                .arg(size.width())
                .arg(size.height())
                .arg(maxPixels));
        return;
    }
    emit image(reader.read());
}

} // namespace Onvif
