#include "commands.h"

#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/schema/tds/GetCapabilities.h>
#include <onvifTypes/schema/tds/GetCapabilitiesResponse.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscription.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionHeader.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h>
#include <onvifTypes/schema/tev/PullMessages.h>
#include <onvifTypes/schema/tev/PullMessagesHeader.h>
#include <onvifTypes/schema/tev/PullMessagesResponse.h>
#include <onvifTypes/schema/wsnt/Unsubscribe.h>
#include <onvifTypes/schema/wsnt/UnsubscribeHeader.h>
#include <onvifTypes/schema/wsnt/UnsubscribeResponse.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace Cli {

namespace {

// How long a pull may wait on the device for events.
const int kLongPollMs = 5000;

// One event request: security and WS-Addressing blocks in one header.
class EventCall
{
public:
    EventCall(const Context& context, QNetworkAccessManager* manager, qint64 clockOffsetMs)
        : m_context(context)
        , m_manager(manager)
        , m_security(context.options.user, context.options.password, clockOffsetMs)
    { }

    // False (and *exitCode) when the call failed or went unanswered.
    bool run(Serializable& addressing, Serializable& body, const QString& url, const QString& operation,
        Serializable& response, int* exitCode, bool longPoll = false)
    {
        SerializableContainer header;
        header.append(m_security);
        header.append(addressing);
        QNetworkReply* reply = Onvif::Internal::postSoap(header, body, url, m_manager, false);
        m_context.log->clear();
        const int timeout = m_context.options.timeoutMs + (longPoll ? kLongPollMs : 0);
        const bool answered = awaitCondition(
            [reply] { return reply->isFinished(); }, timeout, longPoll ? QString() : operation);
        if (!answered) {
            reply->abort(); // finishes the reply; the manager releases it
            reply->deleteLater();
            *exitCode = m_context.failure(operation, true, false);
            return false;
        }
        const Onvif::Internal::ReplyOutcome outcome
            = Onvif::Internal::readReply(reply, operation, response, false);
        if (outcome.failed) {
            *exitCode = m_context.failure(operation, false, outcome.authFault, outcome.fault);
            return false;
        }
        return true;
    }

private:
    const Context& m_context;
    QNetworkAccessManager* m_manager;
    OnvifSecurity m_security;
};

QString itemsText(const QSharedPointer<tt::ItemList>& items)
{
    QStringList parts;
    if (items && items->SimpleItem) {
        for (const RawXml& item : *items->SimpleItem)
            parts << item.attribute(QStringLiteral("Name")) + QLatin1Char('=')
                    + item.attribute(QStringLiteral("Value"));
    }
    return parts.join(QLatin1Char(' '));
}

QJsonObject itemsJson(const QSharedPointer<tt::ItemList>& items)
{
    QJsonObject o;
    if (items && items->SimpleItem) {
        for (const RawXml& item : *items->SimpleItem)
            o.insert(item.attribute(QStringLiteral("Name")), item.attribute(QStringLiteral("Value")));
    }
    return o;
}

} // namespace

int events(const Context& context, int seconds)
{
    Onvif::NetworkAccessManager manager;
    configure(context.options, &manager);
    int exitCode = Ok;

    // The session finds the event service (stated addresses placed by its policy) and the
    // device's clock offset, which the event calls then apply.
    const auto camera = context.camera();
    const QFuture<Onvif::CameraConnection> opened = camera->open();
    if (!context.wait(*camera, opened, QStringLiteral("the device"), &exitCode))
        return exitCode;
    if (!opened.result().ok())
        return context.sessionFailure(QStringLiteral("events"), opened.result());
    const QString eventUrl = opened.result().services.events.isEmpty()
        ? QString()
        : camera->placedUrl(opened.result().services.events).toString();
    if (eventUrl.isEmpty()) {
        printError(QStringLiteral("events: the device names no event service"));
        return DeviceFault;
    }

    EventCall call(context, &manager, camera->clockOffsetMs());
    tev::CreatePullPointSubscription create;
    create.InitialTerminationTime.reset(
        new universalSimpleType<QString>(QStringLiteral("PT%1S").arg(qMax(60, seconds + 30))));
    tev::CreatePullPointSubscriptionResponse created;
    tev::CreatePullPointSubscriptionHeader createHeader(eventUrl);
    if (!call.run(createHeader, create, eventUrl, QStringLiteral("CreatePullPointSubscription"), created,
            &exitCode))
        return exitCode;
    const QString pullPoint
        = camera->placedUrl(QUrl(created.SubscriptionReference->Address->value())).toString();
    if (!context.options.json)
        printLine(QStringLiteral("Subscribed at %1; events for %2 s:").arg(pullPoint).arg(seconds));

    QJsonArray collected;
    QElapsedTimer elapsed;
    elapsed.start();
    while (elapsed.elapsed() < seconds * 1000LL) {
        tev::PullMessages pull;
        const int waitSeconds = int(qBound(1LL, seconds - elapsed.elapsed() / 1000, kLongPollMs / 1000LL));
        pull.Timeout->setValue(QStringLiteral("PT%1S").arg(waitSeconds));
        pull.MessageLimit->setValue(10);
        tev::PullMessagesResponse pulled;
        tev::PullMessagesHeader pullHeader(pullPoint);
        if (!call.run(pullHeader, pull, pullPoint, QStringLiteral("PullMessages"), pulled, &exitCode, true))
            return exitCode;
        if (!pulled.Message)
            continue;
        for (const tt::Message& message : *pulled.Message) {
            const QString time = message.UtcTime ? message.UtcTime->value() : QString();
            const QString operation
                = message.PropertyOperation ? message.PropertyOperation->value() : QString();
            if (context.options.json) {
                collected.append(QJsonObject { { "utcTime", time }, { "operation", operation },
                    { "source", itemsJson(message.Source) }, { "key", itemsJson(message.Key) },
                    { "data", itemsJson(message.Data) } });
            } else {
                printLine(QStringLiteral("  %1 %2  source: %3  key: %4  data: %5")
                              .arg(time, operation, itemsText(message.Source), itemsText(message.Key),
                                  itemsText(message.Data)));
            }
        }
    }

    wsnt::Unsubscribe cancel;
    wsnt::UnsubscribeResponse cancelled;
    wsnt::UnsubscribeHeader cancelHeader(pullPoint);
    const bool unsubscribed
        = call.run(cancelHeader, cancel, pullPoint, QStringLiteral("Unsubscribe"), cancelled, &exitCode);
    if (context.options.json)
        printJson(QJsonObject {
            { "subscription", pullPoint }, { "events", collected }, { "unsubscribed", unsubscribed } });
    else
        printLine(unsubscribed ? QStringLiteral("Unsubscribed.")
                               : QStringLiteral("The subscription ends by itself."));
    return Ok;
}

} // namespace Cli
