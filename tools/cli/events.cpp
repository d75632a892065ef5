#include "commands.h"

#include <onvifTypes/events/pullPointSubscription.h>

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
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace Cli {

namespace {

// How long a pull may wait on the device for events.
const int kLongPollMs = 5000;

QString itemsText(const Onvif::Event::Items& items)
{
    QStringList parts;
    for (const auto& item : items)
        parts << item.first + QLatin1Char('=') + item.second;
    return parts.join(QLatin1Char(' '));
}

QJsonObject itemsJson(const Onvif::Event::Items& items)
{
    QJsonObject o;
    for (const auto& item : items)
        o.insert(item.first, item.second);
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
    if (opened.result().services.events.isEmpty()) {
        printError(QStringLiteral("events: the device names no event service"));
        return DeviceFault;
    }

    Onvif::PullPointSubscription::Options options;
    options.pullTimeoutSeconds = qBound(1, seconds, kLongPollMs / 1000);
    options.terminationSeconds = qMax(60, 3 * options.pullTimeoutSeconds);
    options.topicFilter = context.topic;
    Onvif::PullPointSubscription subscription(camera.get(), options);
    // One line per event as it comes (a JSON object per line with --json), renewed and made
    // again as the camera needs, until the time is up or Ctrl-C.
    QObject::connect(
        &subscription, &Onvif::PullPointSubscription::subscribed, [&](const QUrl& pullPoint, bool again) {
            if (!context.options.json)
                printLine(QStringLiteral("%1 at %2; events for %3 s:")
                              .arg(again ? QStringLiteral("Subscribed again") : QStringLiteral("Subscribed"),
                                  pullPoint.toString())
                              .arg(seconds));
        });
    QObject::connect(&subscription, &Onvif::PullPointSubscription::lost, [](const QString& why) {
        QTextStream(stderr) << "onvif-cli: events: subscription lost (" << why << "); subscribing again\n";
    });
    QString failure;
    QObject::connect(
        &subscription, &Onvif::PullPointSubscription::failed, [&](const QString& why) { failure = why; });
    QObject::connect(&subscription, &Onvif::PullPointSubscription::event, [&](const Onvif::Event& e) {
        if (context.options.json) {
            QTextStream(stdout) << QJsonDocument(
                QJsonObject { { "topic", e.topic }, { "topicNamespace", e.topicNamespace },
                    { "topicPath", e.topicPath }, { "utcTime", e.utcTime.toString(Qt::ISODateWithMs) },
                    { "operation", e.operation }, { "source", itemsJson(e.source) },
                    { "key", itemsJson(e.key) }, { "data", itemsJson(e.data) } })
                                       .toJson(QJsonDocument::Compact)
                                << '\n'
                                << Qt::flush;
            fflush(stdout);
            markJsonPrinted();
        } else {
            printLine(QStringLiteral("  %1 %2 %3  source: %4  key: %5  data: %6")
                          .arg(e.utcTime.toString(Qt::ISODateWithMs),
                              e.topic.isEmpty() ? QStringLiteral("-") : e.topic, e.operation,
                              itemsText(e.source), itemsText(e.key), itemsText(e.data)));
        }
    });

    const Interruption interruption;
    subscription.start();
    awaitCondition([&] { return interruption.happened() || !failure.isEmpty(); }, seconds * 1000, QString());
    if (!failure.isEmpty()) {
        printError(QStringLiteral("events: %1").arg(failure));
        return context.sessionFailure(QStringLiteral("events"), camera->lastResult());
    }
    bool stopped = false;
    bool unsubscribed = false;
    QObject::connect(&subscription, &Onvif::PullPointSubscription::stopped, [&](bool done) {
        stopped = true;
        unsubscribed = done;
    });
    subscription.stop();
    awaitCondition([&] { return stopped; }, 4 * context.options.timeoutMs, QString());
    if (!context.options.json)
        printLine(unsubscribed ? QStringLiteral("Unsubscribed.")
                               : QStringLiteral("The subscription ends by itself."));
    return interruption.happened() ? 130 : Ok;
}

} // namespace Cli
