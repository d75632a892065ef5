#ifndef ONVIFTYPES_EXAMPLES_THEN_H
#define ONVIFTYPES_EXAMPLES_THEN_H

#include <QCoreApplication>
#include <QFuture>
#include <QFutureWatcher>

// Calls next(future) on the event loop once the future has finished (with a result, or
// cancelled: the library cancels on a network error or a fault).
template <typename T, typename Next> void then(const QFuture<T>& future, Next next)
{
    auto* watcher = new QFutureWatcher<T>(QCoreApplication::instance());
    QObject::connect(watcher, &QFutureWatcher<T>::finished, watcher, [watcher, next] {
        next(watcher->future());
        watcher->deleteLater();
    });
    watcher->setFuture(future);
}

#endif // ONVIFTYPES_EXAMPLES_THEN_H
