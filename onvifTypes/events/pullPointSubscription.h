#ifndef ONVIFTYPES_EVENTS_PULLPOINTSUBSCRIPTION_H
#define ONVIFTYPES_EVENTS_PULLPOINTSUBSCRIPTION_H

#include <onvifTypes/events/event.h>

#include <QObject>
#include <QUrl>

#include <memory>

namespace Onvif {

class Camera;

// Events that keep flowing: a pull-point subscription on a camera session, pulled with a long
// poll, renewed before it ends, and made again when it is lost (a reboot, an early expiry, a
// refused renewal, a fault, no connection) after a growing pause, a bounded number of times per
// window. stop() unsubscribes unless keepOnStop (some cameras cancel everyone's subscriptions on
// one Unsubscribe). The camera must outlive the object.
class ONVIFTYPES_EXPORT PullPointSubscription : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        // Only these topics, as a concrete-set expression ("tns1:RuleEngine//."); empty: all. Asked
        // of the device and applied here too, as some devices ignore it.
        QString topicFilter;
        int pullTimeoutSeconds = 10; // the long poll
        int messageLimit = 100;
        int terminationSeconds = 60; // asked for at creation and on each renewal
        bool keepOnStop = false;
        int initialBackoffMs = 500; // the pause before the first new subscription, doubled up to
        int maxBackoffMs = 30000;
        int maxRecreatesPerWindow = 5; // past these, failed() and no more tries
        int recreateWindowMs = 10 * 60 * 1000;
    };

    explicit PullPointSubscription(Camera* camera, QObject* parent = nullptr);
    PullPointSubscription(Camera* camera, const Options& options, QObject* parent = nullptr);
    ~PullPointSubscription() override;

    void start();
    void stop();
    bool isRunning() const;
    QUrl pullPoint() const; // as the device stated it; empty between subscriptions

signals:
    void event(const Onvif::Event& event);
    void subscribed(const QUrl& pullPoint, bool again);
    void lost(const QString& why);
    void failed(const QString& why); // for good: nothing more is tried
    void stopped(bool unsubscribed);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Onvif

#endif // ONVIFTYPES_EVENTS_PULLPOINTSUBSCRIPTION_H
