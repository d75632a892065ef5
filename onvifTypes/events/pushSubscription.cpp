#include "onvifTypes/events/pushSubscription.h"

#include "onvifTypes/events/notificationListener.h"
#include "onvifTypes/schema/wsnt/Renew.h"
#include "onvifTypes/schema/wsnt/RenewHeader.h"
#include "onvifTypes/schema/wsnt/RenewResponse.h"
#include "onvifTypes/schema/wsnt/Subscribe.h"
#include "onvifTypes/schema/wsnt/SubscribeHeader.h"
#include "onvifTypes/schema/wsnt/SubscribeResponse.h"
#include "onvifTypes/schema/wsnt/Unsubscribe.h"
#include "onvifTypes/schema/wsnt/UnsubscribeHeader.h"
#include "onvifTypes/schema/wsnt/UnsubscribeResponse.h"
#include "onvifTypes/session/camera.h"

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QPointer>
#include <QTimer>
#include <QUuid>

namespace Onvif {

struct PushSubscription::Private
{
    PushSubscription* q;
    QPointer<Camera> camera;
    QPointer<NotificationListener> listener;
    Options options;
    QString key = QUuid::createUuid().toString(QUuid::Id128);
    bool running = false;
    quint64 generation = 0;
    QUrl subscription;
    QTimer renewal;
    QTimer silence; // no notification for a while: a renewal tells whether it still exists
    int backoffMs = 0;
    QVector<qint64> recreates;
    QElapsedTimer clock;
    bool subscribedOnce = false;

    void subscribe();
    void renew();
    void scheduleRenewal(const QSharedPointer<universalSimpleType<QString>>& current,
        const QSharedPointer<universalSimpleType<QString>>& termination);
    void lose(const QString& why);
    void giveUp(const QString& why);
    template <typename T> void then(const QFuture<T>& future, std::function<void(const QFuture<T>&)> next)
    {
        const quint64 mine = generation;
        auto* watcher = new QFutureWatcher<T>(q);
        QObject::connect(watcher, &QFutureWatcherBase::finished, q, [this, watcher, next, mine] {
            watcher->deleteLater();
            if (running && mine == generation && camera)
                next(watcher->future());
        });
        watcher->setFuture(future);
    }
};

PushSubscription::PushSubscription(Camera* camera, NotificationListener* listener, QObject* parent)
    : PushSubscription(camera, listener, Options(), parent)
{ }

PushSubscription::PushSubscription(
    Camera* camera, NotificationListener* listener, const Options& options, QObject* parent)
    : QObject(parent)
    , d(new Private)
{
    d->q = this;
    d->camera = camera;
    d->listener = listener;
    d->options = options;
    d->backoffMs = options.initialBackoffMs;
    d->clock.start();
    d->renewal.setSingleShot(true);
    connect(&d->renewal, &QTimer::timeout, this, [this] { d->renew(); });
    d->silence.setSingleShot(true);
    connect(&d->silence, &QTimer::timeout, this, [this] { d->renew(); });
    connect(listener, &NotificationListener::notified, this,
        [this](const QString& key, const QVector<Event>& events) {
            if (!d->running || key != d->key)
                return;
            if (d->options.silenceCheckMs > 0)
                d->silence.start(d->options.silenceCheckMs);
            for (const Event& e : events) {
                if (d->options.topicFilter.isEmpty() || topicMatches(e, d->options.topicFilter))
                    emit event(e);
                if (!d->running)
                    return;
            }
        });
}

PushSubscription::~PushSubscription()
{
    if (d->listener)
        d->listener->removeKey(d->key);
}

bool PushSubscription::isRunning() const
{
    return d->running;
}

QUrl PushSubscription::subscription() const
{
    return d->subscription;
}

void PushSubscription::start()
{
    if (d->running || !d->camera || !d->listener)
        return;
    d->running = true;
    ++d->generation;
    d->listener->addKey(d->key);
    if (d->camera->connection().services.events.isEmpty()) {
        d->then<CameraConnection>(d->camera->open(), [this](const QFuture<CameraConnection>& opened) {
            if (!opened.result().ok())
                return d->giveUp(opened.result().message);
            d->subscribe();
        });
        return;
    }
    d->subscribe();
}

void PushSubscription::stop()
{
    if (!d->running)
        return;
    d->running = false;
    ++d->generation;
    d->renewal.stop();
    d->silence.stop();
    if (d->listener)
        d->listener->removeKey(d->key);
    const QUrl manager = d->subscription;
    d->subscription.clear();
    if (manager.isEmpty() || d->options.keepOnStop || !d->camera) {
        emit stopped(false);
        return;
    }
    auto* watcher = new QFutureWatcher<wsnt::UnsubscribeResponse>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        emit stopped(!watcher->future().isCanceled());
    });
    watcher->setFuture(d->camera->call<wsnt::Unsubscribe, wsnt::UnsubscribeResponse>(manager,
        std::make_shared<wsnt::UnsubscribeHeader>(manager.toString()), wsnt::Unsubscribe(),
        QStringLiteral("Unsubscribe")));
}

void PushSubscription::Private::subscribe()
{
    const QString events = camera->connection().services.events.toString();
    if (events.isEmpty() || !listener || !listener->isListening())
        return giveUp(events.isEmpty() ? QStringLiteral("the device names no event service")
                                       : QStringLiteral("the notification listener is not listening"));
    wsnt::Subscribe ask;
    ask.ConsumerReference->Address.reset(new universalSimpleType<QString>(
        listener->consumerUrl(key, camera->placedUrl(QUrl(events))).toString()));
    ask.InitialTerminationTime.reset(
        new universalSimpleType<QString>(QStringLiteral("PT%1S").arg(options.terminationSeconds)));
    then<wsnt::SubscribeResponse>(
        camera->call<wsnt::Subscribe, wsnt::SubscribeResponse>(
            QUrl(events), std::make_shared<wsnt::SubscribeHeader>(events), ask, QStringLiteral("Subscribe")),
        [this](const QFuture<wsnt::SubscribeResponse>& answer) {
            if (answer.isCanceled() || !answer.result().SubscriptionReference
                || !answer.result().SubscriptionReference->Address)
                return lose(answer.isCanceled() ? camera->lastResult().message
                                                : QStringLiteral("the device named no subscription"));
            subscription = QUrl(answer.result().SubscriptionReference->Address->value().trimmed());
            backoffMs = options.initialBackoffMs;
            const bool again = subscribedOnce;
            subscribedOnce = true;
            emit q->subscribed(subscription, again);
            if (options.silenceCheckMs > 0)
                silence.start(options.silenceCheckMs);
            scheduleRenewal(answer.result().CurrentTime, answer.result().TerminationTime);
        });
}

void PushSubscription::Private::scheduleRenewal(const QSharedPointer<universalSimpleType<QString>>& current,
    const QSharedPointer<universalSimpleType<QString>>& termination)
{
    const QDateTime now = QDateTime::fromString(current ? current->value() : QString(), Qt::ISODateWithMs);
    const QDateTime end
        = QDateTime::fromString(termination ? termination->value() : QString(), Qt::ISODateWithMs);
    const qint64 remaining
        = now.isValid() && end.isValid() ? now.msecsTo(end) : options.terminationSeconds * 1000LL;
    // Renewed with a fifth of its time left, and no later than ten seconds before its end.
    const qint64 margin = qMax<qint64>(remaining / 5, qMin<qint64>(10000, remaining / 2));
    renewal.start(int(qBound<qint64>(0, remaining - margin, 24 * 3600 * 1000LL)));
}

void PushSubscription::Private::renew()
{
    if (!running || subscription.isEmpty())
        return;
    wsnt::Renew ask;
    ask.TerminationTime.reset(
        new universalSimpleType<QString>(QStringLiteral("PT%1S").arg(options.terminationSeconds)));
    then<wsnt::RenewResponse>(
        camera->call<wsnt::Renew, wsnt::RenewResponse>(subscription,
            std::make_shared<wsnt::RenewHeader>(subscription.toString()), ask, QStringLiteral("Renew")),
        [this](const QFuture<wsnt::RenewResponse>& answer) {
            if (answer.isCanceled())
                return lose(QStringLiteral("Renew refused: %1").arg(camera->lastResult().message));
            scheduleRenewal(answer.result().CurrentTime, answer.result().TerminationTime);
            if (options.silenceCheckMs > 0)
                silence.start(options.silenceCheckMs);
        });
}

void PushSubscription::Private::lose(const QString& why)
{
    // The camera may still hold it (a refused renewal): cancelled, and its path closed, so that
    // it neither takes a slot nor delivers twice.
    if (!subscription.isEmpty() && camera)
        camera->call<wsnt::Unsubscribe, wsnt::UnsubscribeResponse>(subscription,
            std::make_shared<wsnt::UnsubscribeHeader>(subscription.toString()), wsnt::Unsubscribe(),
            QStringLiteral("Unsubscribe"));
    if (listener) {
        listener->removeKey(key);
        key = QUuid::createUuid().toString(QUuid::Id128);
        listener->addKey(key);
    }
    subscription.clear();
    renewal.stop();
    silence.stop();
    const CameraError error = camera ? camera->lastResult().error : CameraError::Unreachable;
    // Subscribing again with refused credentials is what locks accounts.
    if (!camera || error == CameraError::CredentialsRefused || error == CameraError::LockoutRisk
        || error == CameraError::ClockFarOff)
        return giveUp(why);
    const qint64 now = clock.elapsed();
    recreates.erase(std::remove_if(recreates.begin(), recreates.end(),
                        [&](qint64 t) { return now - t > options.recreateWindowMs; }),
        recreates.end());
    if (recreates.size() >= options.maxRecreatesPerWindow)
        return giveUp(
            QStringLiteral("%1 (gave up after %2 new subscriptions)").arg(why).arg(recreates.size()));
    recreates.append(now);
    emit q->lost(why);
    const quint64 mine = ++generation;
    QTimer::singleShot(backoffMs, q, [this, mine] {
        if (running && mine == generation)
            subscribe();
    });
    backoffMs = qMin(backoffMs * 2, options.maxBackoffMs);
}

void PushSubscription::Private::giveUp(const QString& why)
{
    running = false;
    ++generation;
    renewal.stop();
    silence.stop();
    subscription.clear();
    if (listener)
        listener->removeKey(key);
    emit q->failed(why);
}

} // namespace Onvif
