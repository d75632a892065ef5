// What a video-management program lives on: the camera's events (motion, tamper, inputs), pulled
// from a pull-point subscription for a while, then the subscription cancelled.
//   onvif-example-events http://192.168.0.10/onvif/device_service [user password [seconds]]
#include "then.h"

#include <onvifTypes/schema/tev/CreatePullPointSubscription.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionHeader.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h>
#include <onvifTypes/schema/tev/PullMessages.h>
#include <onvifTypes/schema/tev/PullMessagesHeader.h>
#include <onvifTypes/schema/tev/PullMessagesResponse.h>
#include <onvifTypes/schema/wsnt/Unsubscribe.h>
#include <onvifTypes/schema/wsnt/UnsubscribeHeader.h>
#include <onvifTypes/schema/wsnt/UnsubscribeResponse.h>
#include <onvifTypes/session/camera.h>

#include <QElapsedTimer>
#include <QTextStream>

#include <functional>
#include <memory>

namespace {

QString items(const QSharedPointer<tt::ItemList>& list)
{
    QStringList parts;
    if (list && list->SimpleItem) {
        for (const RawXml& item : *list->SimpleItem)
            parts << item.attribute(QStringLiteral("Name")) + '=' + item.attribute(QStringLiteral("Value"));
    }
    return parts.join(' ');
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2) {
        QTextStream(stderr) << "usage: " << args.first() << " DEVICE-SERVICE-URL [USER PASSWORD [SECONDS]]\n";
        return 2;
    }
    const int seconds = args.value(4, QStringLiteral("10")).toInt();
    // The session measures the camera's clock, answers HTTP Digest and bounds failed logins.
    auto camera = std::make_shared<Onvif::Camera>(
        QUrl(args.at(1)), args.value(2, QStringLiteral("admin")), args.value(3, QStringLiteral("admin")));
    QTextStream out(stdout);
    const auto fail = [camera](const QString& step) {
        QTextStream(stderr) << step << ": " << camera->lastResult().message << '\n';
        QCoreApplication::exit(1);
    };

    then(camera->open(), [&, camera, fail, seconds](const QFuture<Onvif::CameraConnection>& opened) {
        const Onvif::CameraConnection connection = opened.result();
        if (!connection.ok()) {
            QTextStream(stderr) << "connect: " << connection.message << '\n';
            return QCoreApplication::exit(1);
        }
        const QString events = connection.services.events.toString();
        tev::CreatePullPointSubscription create;
        create.InitialTerminationTime.reset(new universalSimpleType<QString>(QStringLiteral("PT60S")));
        then(camera->call<tev::CreatePullPointSubscription, tev::CreatePullPointSubscriptionResponse>(
                 QUrl(events), std::make_shared<tev::CreatePullPointSubscriptionHeader>(events), create,
                 QStringLiteral("CreatePullPointSubscription")),
            [&, camera, fail, seconds](const QFuture<tev::CreatePullPointSubscriptionResponse>& created) {
                if (created.isCanceled())
                    return fail(QStringLiteral("subscribe"));
                const QString pullPoint = created.result().SubscriptionReference->Address->value();
                out << "subscribed at " << pullPoint << '\n';
                out.flush();
                auto clock = std::make_shared<QElapsedTimer>();
                clock->start();
                // Pull with a long poll until the time is up, then cancel the subscription.
                auto pull = std::make_shared<std::function<void()>>();
                *pull = [&, camera, fail, seconds, pullPoint, clock, pull] {
                    if (clock->elapsed() >= seconds * 1000) {
                        then(camera->call<wsnt::Unsubscribe, wsnt::UnsubscribeResponse>(QUrl(pullPoint),
                                 std::make_shared<wsnt::UnsubscribeHeader>(pullPoint), wsnt::Unsubscribe(),
                                 QStringLiteral("Unsubscribe")),
                            [&, pull](const QFuture<wsnt::UnsubscribeResponse>& done) {
                                out << (done.isCanceled() ? "the subscription ends by itself\n"
                                                          : "unsubscribed\n");
                                *pull = nullptr; // ends the cycle of the pull closure
                                QCoreApplication::exit(0);
                            });
                        return;
                    }
                    tev::PullMessages ask;
                    ask.Timeout->setValue(QStringLiteral("PT2S"));
                    ask.MessageLimit->setValue(20);
                    then(camera->call<tev::PullMessages, tev::PullMessagesResponse>(QUrl(pullPoint),
                             std::make_shared<tev::PullMessagesHeader>(pullPoint), ask,
                             QStringLiteral("PullMessages"), 10000),
                        [&, fail, pull](const QFuture<tev::PullMessagesResponse>& pulled) {
                            if (pulled.isCanceled())
                                return fail(QStringLiteral("pull"));
                            if (pulled.result().Message) {
                                for (const tt::Message& m : *pulled.result().Message)
                                    out << "event " << (m.UtcTime ? m.UtcTime->value() : QString()) << ' '
                                        << (m.PropertyOperation ? m.PropertyOperation->value() : QString())
                                        << "  source: " << items(m.Source) << "  data: " << items(m.Data)
                                        << '\n';
                                out.flush();
                            }
                            (*pull)();
                        });
                };
                (*pull)();
            });
    });
    return app.exec();
}
