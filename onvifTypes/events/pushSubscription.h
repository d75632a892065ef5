#ifndef ONVIFTYPES_EVENTS_PUSHSUBSCRIPTION_H
#define ONVIFTYPES_EVENTS_PUSHSUBSCRIPTION_H

#include <onvifTypes/events/event.h>

#include <QObject>
#include <QUrl>

#include <memory>

namespace Onvif {

class Camera;
class NotificationListener;

// Events the camera sends by itself (WS-BaseNotification Subscribe) to a NotificationListener:
// renewed before the subscription ends, made again when a renewal is refused (a reboot, an early
// expiry) after a doubling pause and within a bound per window, unsubscribed on stop unless
// keepOnStop. The camera and the listener must outlive the object.
class ONVIFTYPES_EXPORT PushSubscription : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QString topicFilter; // applied to what arrives; empty: all
        int terminationSeconds = 60;
        // A camera that forgets a subscription early just goes quiet: after this long without a
        // notification, a renewal asks whether it still exists (0: only the regular renewals).
        int silenceCheckMs = 30000;
        bool keepOnStop = false;
        int initialBackoffMs = 500;
        int maxBackoffMs = 30000;
        int maxRecreatesPerWindow = 5;
        int recreateWindowMs = 10 * 60 * 1000;
    };

    PushSubscription(Camera* camera, NotificationListener* listener, QObject* parent = nullptr);
    PushSubscription(
        Camera* camera, NotificationListener* listener, const Options& options, QObject* parent = nullptr);
    ~PushSubscription() override;

    void start();
    void stop();
    bool isRunning() const;
    QUrl subscription() const; // the subscription manager's address as the device stated it

signals:
    void event(const Onvif::Event& event);
    void subscribed(const QUrl& subscription, bool again);
    void lost(const QString& why);
    void failed(const QString& why);
    void stopped(bool unsubscribed);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Onvif

#endif // ONVIFTYPES_EVENTS_PUSHSUBSCRIPTION_H
