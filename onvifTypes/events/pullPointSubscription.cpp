#include "onvifTypes/events/pullPointSubscription.h"

#include "onvifTypes/schema/tev/CreatePullPointSubscription.h"
#include "onvifTypes/schema/tev/CreatePullPointSubscriptionHeader.h"
#include "onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h"
#include "onvifTypes/schema/tev/PullMessages.h"
#include "onvifTypes/schema/tev/PullMessagesHeader.h"
#include "onvifTypes/schema/wsnt/FilterType.h"
#include "onvifTypes/schema/wsnt/Renew.h"
#include "onvifTypes/schema/wsnt/RenewHeader.h"
#include "onvifTypes/schema/wsnt/RenewResponse.h"
#include "onvifTypes/schema/wsnt/Unsubscribe.h"
#include "onvifTypes/schema/wsnt/UnsubscribeHeader.h"
#include "onvifTypes/schema/wsnt/UnsubscribeResponse.h"
#include "onvifTypes/session/camera.h"

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QPointer>
#include <QTimer>

namespace Onvif {

struct PullPointSubscription::Private
{
    PullPointSubscription* q;
    QPointer<Camera> camera;
    Options options;
    bool running = false;
    quint64 generation = 0; // answers of an earlier run or subscription are dropped
    QUrl pullPoint;
    QElapsedTimer sinceDeadlineKnown;
    qint64 remainingMs = -1; // of the subscription when sinceDeadlineKnown started
    int backoffMs = 0;
    QVector<qint64> recreates; // times of new subscriptions after a loss
    QElapsedTimer clock;
    bool subscribedOnce = false;

    void subscribe();
    void pull();
    void renew();
    void lose(const QString& why);
    void giveUp(const QString& why);
    template <typename T> void then(const QFuture<T>& future, std::function<void(const QFuture<T>&)> next);
};

template <typename T>
void PullPointSubscription::Private::then(
    const QFuture<T>& future, std::function<void(const QFuture<T>&)> next)
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

PullPointSubscription::PullPointSubscription(Camera* camera, QObject* parent)
    : PullPointSubscription(camera, Options(), parent)
{ }

PullPointSubscription::PullPointSubscription(Camera* camera, const Options& options, QObject* parent)
    : QObject(parent)
    , d(new Private)
{
    d->q = this;
    d->camera = camera;
    d->options = options;
    d->backoffMs = options.initialBackoffMs;
    d->clock.start();
}

PullPointSubscription::~PullPointSubscription() = default;

bool PullPointSubscription::isRunning() const
{
    return d->running;
}

QUrl PullPointSubscription::pullPoint() const
{
    return d->pullPoint;
}

void PullPointSubscription::start()
{
    if (d->running || !d->camera)
        return;
    d->running = true;
    ++d->generation;
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

void PullPointSubscription::stop()
{
    if (!d->running)
        return;
    d->running = false;
    ++d->generation;
    const QUrl point = d->pullPoint;
    d->pullPoint.clear();
    if (point.isEmpty() || d->options.keepOnStop || !d->camera) {
        emit stopped(false);
        return;
    }
    const QString address = point.toString();
    auto* watcher = new QFutureWatcher<wsnt::UnsubscribeResponse>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        emit stopped(!watcher->future().isCanceled());
    });
    watcher->setFuture(d->camera->call<wsnt::Unsubscribe, wsnt::UnsubscribeResponse>(point,
        std::make_shared<wsnt::UnsubscribeHeader>(address), wsnt::Unsubscribe(),
        QStringLiteral("Unsubscribe")));
}

void PullPointSubscription::Private::subscribe()
{
    const QString events = camera->connection().services.events.toString();
    if (events.isEmpty())
        return giveUp(QStringLiteral("the device names no event service"));
    tev::CreatePullPointSubscription create;
    create.InitialTerminationTime.reset(
        new universalSimpleType<QString>(QStringLiteral("PT%1S").arg(options.terminationSeconds)));
    if (!options.topicFilter.isEmpty()) {
        RawXml expression;
        expression.attributes
            = { { QStringLiteral("Dialect"),
                    QStringLiteral("http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet") },
                  { QStringLiteral("xmlns:tns1"), QStringLiteral("http://www.onvif.org/ver10/topics") } };
        expression.content = options.topicFilter.toHtmlEscaped();
        create.Filter.reset(new wsnt::FilterType);
        create.Filter->TopicExpression.reset(new QVector<RawXml> { expression });
    }
    then<tev::CreatePullPointSubscriptionResponse>(
        camera->call<tev::CreatePullPointSubscription, tev::CreatePullPointSubscriptionResponse>(QUrl(events),
            std::make_shared<tev::CreatePullPointSubscriptionHeader>(events), create,
            QStringLiteral("CreatePullPointSubscription")),
        [this](const QFuture<tev::CreatePullPointSubscriptionResponse>& created) {
            if (created.isCanceled() || !created.result().SubscriptionReference
                || !created.result().SubscriptionReference->Address)
                return lose(created.isCanceled() ? camera->lastResult().message
                                                 : QStringLiteral("the device named no pull point"));
            const auto& r = created.result();
            pullPoint = QUrl(r.SubscriptionReference->Address->value().trimmed());
            const QDateTime now = QDateTime::fromString(
                r.CurrentTime ? r.CurrentTime->value() : QString(), Qt::ISODateWithMs);
            const QDateTime end = QDateTime::fromString(
                r.TerminationTime ? r.TerminationTime->value() : QString(), Qt::ISODateWithMs);
            remainingMs = now.isValid() && end.isValid() ? now.msecsTo(end) : -1;
            sinceDeadlineKnown.start();
            const bool again = subscribedOnce;
            subscribedOnce = true;
            ++generation; // a new subscription: answers about the old one no longer count
            emit q->subscribed(pullPoint, again);
            pull();
        });
}

void PullPointSubscription::Private::pull()
{
    // Renewed while a pull or two would still fit in its time.
    const qint64 margin = qMax<qint64>(2LL * options.pullTimeoutSeconds * 1000, 10000);
    if (remainingMs >= 0 && remainingMs - sinceDeadlineKnown.elapsed() < margin)
        return renew();
    const QString address = pullPoint.toString();
    tev::PullMessages ask;
    ask.Timeout->setValue(QStringLiteral("PT%1S").arg(options.pullTimeoutSeconds));
    ask.MessageLimit->setValue(options.messageLimit);
    then<QString>(camera->callText(pullPoint, std::make_shared<tev::PullMessagesHeader>(address), ask,
                      QStringLiteral("PullMessages"), options.pullTimeoutSeconds * 1000 + 10000),
        [this](const QFuture<QString>& answer) {
            if (answer.isCanceled())
                return lose(camera->lastResult().message);
            QString error;
            QDateTime now, end;
            const QVector<Event> events = readNotifications(answer.result(), &error, &now, &end);
            if (!error.isEmpty())
                return lose(QStringLiteral("PullMessages: unreadable answer (%1)").arg(error));
            // Devices that extend a subscription on every pull say so here.
            if (now.isValid() && end.isValid()) {
                remainingMs = now.msecsTo(end);
                sinceDeadlineKnown.start();
            }
            backoffMs = options.initialBackoffMs;
            const quint64 mine = generation;
            for (const Event& e : events) {
                if (!options.topicFilter.isEmpty() && !topicMatches(e, options.topicFilter))
                    continue;
                emit q->event(e);
                if (!running || mine != generation)
                    return; // stopped from a slot
            }
            pull();
        });
}

void PullPointSubscription::Private::renew()
{
    const QString address = pullPoint.toString();
    wsnt::Renew ask;
    ask.TerminationTime.reset(
        new universalSimpleType<QString>(QStringLiteral("PT%1S").arg(options.terminationSeconds)));
    then<wsnt::RenewResponse>(camera->call<wsnt::Renew, wsnt::RenewResponse>(pullPoint,
                                  std::make_shared<wsnt::RenewHeader>(address), ask, QStringLiteral("Renew")),
        [this](const QFuture<wsnt::RenewResponse>& renewed) {
            if (renewed.isCanceled())
                return lose(QStringLiteral("Renew refused: %1").arg(camera->lastResult().message));
            const auto& r = renewed.result();
            const QDateTime now = QDateTime::fromString(
                r.CurrentTime ? r.CurrentTime->value() : QString(), Qt::ISODateWithMs);
            const QDateTime end = QDateTime::fromString(
                r.TerminationTime ? r.TerminationTime->value() : QString(), Qt::ISODateWithMs);
            remainingMs
                = now.isValid() && end.isValid() ? now.msecsTo(end) : options.terminationSeconds * 1000LL;
            sinceDeadlineKnown.start();
            pull();
        });
}

void PullPointSubscription::Private::lose(const QString& why)
{
    if (!camera)
        return giveUp(why);
    const CameraError error = camera->lastResult().error;
    // A pull point the camera still holds (a refused renewal) would take a slot until it ends.
    if (!pullPoint.isEmpty())
        camera->call<wsnt::Unsubscribe, wsnt::UnsubscribeResponse>(pullPoint,
            std::make_shared<wsnt::UnsubscribeHeader>(pullPoint.toString()), wsnt::Unsubscribe(),
            QStringLiteral("Unsubscribe"));
    pullPoint.clear();
    remainingMs = -1;
    // Subscribing again with refused credentials is what locks accounts.
    if (error == CameraError::CredentialsRefused || error == CameraError::LockoutRisk
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

void PullPointSubscription::Private::giveUp(const QString& why)
{
    running = false;
    ++generation;
    pullPoint.clear();
    emit q->failed(why);
}

} // namespace Onvif
