#include "onvifTypes/transport/replyGuard_p.h"

#include "onvifTypes/transport/httpReply_p.h"

#include <QNetworkReply>
#include <QPointer>
#include <QTimer>

namespace Onvif::Internal {

namespace {

const char* const errorProperty = "onvifLimitError";

void stop(QNetworkReply* reply, const QString& text)
{
    if (reply->isFinished() || reply->property(errorProperty).isValid())
        return;
    reply->setProperty(errorProperty, text);
    reply->abort();
}

QString tooLarge(qint64 limit, const char* name)
{
    return QStringLiteral("reply body exceeds the limit of %1 bytes (Onvif::Limits::%2)")
        .arg(limit)
        .arg(QLatin1String(name));
}

} // namespace

void guardReply(QNetworkReply* reply, qint64 bodyLimit, const Limits& limits)
{
    if (!reply || reply->isFinished() || qobject_cast<HttpReply*>(reply)
        || reply->property("onvifGuarded").toBool())
        return;
    reply->setProperty("onvifGuarded", true);
    const char* name = "maxReplyBytes";
    if (bodyLimit < 0) {
        const QVariant attribute = reply->request().attribute(Limits::BodyLimitAttribute);
        bodyLimit = attribute.isValid() ? attribute.toLongLong() : limits.maxReplyBytes;
        if (attribute.isValid())
            name = bodyLimit == limits.maxImageBytes ? "maxImageBytes" : "BodyLimitAttribute";
    }
    // Qt stops reading once this much waits unread: an endless body holds no more.
    reply->setReadBufferSize(bodyLimit + 1);
    const QPointer<QNetworkReply> guarded(reply);
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [guarded, bodyLimit, name] {
        bool ok = false;
        const qint64 declared = guarded->header(QNetworkRequest::ContentLengthHeader).toLongLong(&ok);
        if (ok && declared > bodyLimit)
            stop(guarded, tooLarge(bodyLimit, name));
    });
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
        [guarded, bodyLimit, name](qint64 received, qint64 total) {
            if (received > bodyLimit || total > bodyLimit || guarded->bytesAvailable() > bodyLimit)
                stop(guarded, tooLarge(bodyLimit, name));
        });
    if (limits.requestDeadlineMs > 0) {
        auto* deadline = new QTimer(reply);
        deadline->setSingleShot(true);
        deadline->setTimerType(Qt::PreciseTimer);
        QObject::connect(deadline, &QTimer::timeout, reply, [guarded, ms = limits.requestDeadlineMs] {
            stop(guarded,
                QStringLiteral("request exceeds the deadline of %1 ms (Onvif::Limits::requestDeadlineMs)")
                    .arg(ms));
        });
        QObject::connect(reply, &QNetworkReply::finished, deadline, &QTimer::stop);
        deadline->start(limits.requestDeadlineMs);
    }
}

void guardLentReply(QNetworkReply* reply)
{
    Limits limits = Limits::defaults();
    limits.requestDeadlineMs = 0;
    guardReply(reply, -1, limits);
}

QString replyErrorText(const QNetworkReply* reply)
{
    const QVariant limit = reply->property(errorProperty);
    return limit.isValid() ? limit.toString() : reply->errorString();
}

} // namespace Onvif::Internal
