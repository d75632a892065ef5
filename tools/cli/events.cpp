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
    int exitCode = Ok;
    // Through the session: the event service as its address policy places it, the device's
    // clock offset and HTTP Digest apply to the event calls too.
    const auto camera = context.camera();
    const QFuture<Onvif::CameraConnection> opened = camera->open();
    if (!context.wait(*camera, opened, QStringLiteral("the device"), &exitCode))
        return exitCode;
    if (!opened.result().ok())
        return context.sessionFailure(QStringLiteral("events"), opened.result());
    const QString eventUrl = opened.result().services.events.toString();
    if (eventUrl.isEmpty()) {
        printError(QStringLiteral("events: the device names no event service"));
        return DeviceFault;
    }

    tev::CreatePullPointSubscription create;
    create.InitialTerminationTime.reset(
        new universalSimpleType<QString>(QStringLiteral("PT%1S").arg(qMax(60, seconds + 30))));
    const auto created
        = camera->call<tev::CreatePullPointSubscription, tev::CreatePullPointSubscriptionResponse>(
            QUrl(eventUrl), std::make_shared<tev::CreatePullPointSubscriptionHeader>(eventUrl), create,
            QStringLiteral("CreatePullPointSubscription"));
    if (!context.wait(*camera, created, QStringLiteral("events: subscribing"), &exitCode))
        return exitCode;
    // Stated as the device knows itself; the session places it for the calls.
    const QString pullPoint = created.result().SubscriptionReference->Address->value();
    if (!context.options.json)
        printLine(QStringLiteral("Subscribed at %1; events for %2 s:")
                      .arg(camera->placedUrl(QUrl(pullPoint)).toString())
                      .arg(seconds));

    QJsonArray collected;
    QElapsedTimer elapsed;
    elapsed.start();
    while (elapsed.elapsed() < seconds * 1000LL) {
        tev::PullMessages pull;
        const int waitSeconds = int(qBound(1LL, seconds - elapsed.elapsed() / 1000, kLongPollMs / 1000LL));
        pull.Timeout->setValue(QStringLiteral("PT%1S").arg(waitSeconds));
        pull.MessageLimit->setValue(10);
        const auto pulled = camera->call<tev::PullMessages, tev::PullMessagesResponse>(QUrl(pullPoint),
            std::make_shared<tev::PullMessagesHeader>(pullPoint), pull, QStringLiteral("PullMessages"),
            context.options.timeoutMs + waitSeconds * 1000);
        if (!context.wait(*camera, pulled, QString(), &exitCode))
            return exitCode;
        if (!pulled.result().Message)
            continue;
        for (const tt::Message& message : *pulled.result().Message) {
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

    const auto cancelled = camera->call<wsnt::Unsubscribe, wsnt::UnsubscribeResponse>(QUrl(pullPoint),
        std::make_shared<wsnt::UnsubscribeHeader>(pullPoint), wsnt::Unsubscribe(),
        QStringLiteral("Unsubscribe"));
    const bool unsubscribed
        = await(cancelled, 4 * context.options.timeoutMs, QString()) && !cancelled.isCanceled();
    if (context.options.json)
        printJson(QJsonObject {
            { "subscription", pullPoint }, { "events", collected }, { "unsubscribed", unsubscribed } });
    else
        printLine(unsubscribed ? QStringLiteral("Unsubscribed.")
                               : QStringLiteral("The subscription ends by itself."));
    return Ok;
}

} // namespace Cli
