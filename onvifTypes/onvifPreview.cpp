#include "onvifTypes/onvifPreview.h"

#include "onvifTypes/onvifNetworkAccessManager.h"
#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifSecurity.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/trt/GetSnapshotUri.h"
#include "onvifTypes/schema/trt/GetSnapshotUriResponse.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace Onvif {

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
    QNetworkReply* reply = m_manager->get(QNetworkRequest(QUrl(uri)));
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
    if (error != QNetworkReply::NoError) {
        ONVIF_LOG(
            m_logger, OnvifLog::Error, QStringLiteral("Error with code: ") + QString::number(int(error)));
        return;
    }
    emit image(QImage::fromData(reply->readAll()));
}

} // namespace Onvif
