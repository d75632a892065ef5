#ifndef ONVIFTYPES_TESTS_FUTUREWAIT_H
#define ONVIFTYPES_TESTS_FUTUREWAIT_H

#include <QEventLoop>
#include <QFuture>
#include <QFutureWatcher>
#include <QTimer>

// Runs the event loop until the future has finished or the time is up; true when it finished.
template <typename T> bool waitForFuture(const QFuture<T>& future, int timeoutMs = 5000)
{
    if (future.isFinished())
        return true;
    QEventLoop loop;
    QFutureWatcher<T> watcher;
    QObject::connect(&watcher, &QFutureWatcher<T>::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished())
        loop.exec();
    return future.isFinished();
}

#endif
