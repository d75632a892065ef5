#ifndef ONVIFTYPES_TESTS_SIGNALWAIT_H
#define ONVIFTYPES_TESTS_SIGNALWAIT_H

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include <initializer_list>

// Runs the event loop until any of the spies has caught a signal or the time is
// up, then keeps it running for settleMs more so that a second, wrong signal
// would be caught too. Returns whether anything was caught.
inline bool waitForAny(std::initializer_list<QSignalSpy*> spies, int timeoutMs, int settleMs = 300)
{
    auto caught = [&spies]() {
        for (QSignalSpy* spy : spies) {
            if (!spy->isEmpty())
                return true;
        }
        return false;
    };
    QElapsedTimer timer;
    timer.start();
    while (!caught() && timer.elapsed() < timeoutMs)
        QTest::qWait(5);
    QTest::qWait(settleMs);
    return caught();
}

#endif
