#include "onvifTypes/transport/limits.h"

#include <QMutex>

namespace Onvif {

namespace {
QMutex& defaultsLock()
{
    static QMutex lock;
    return lock;
}
Limits& stored()
{
    static Limits limits;
    return limits;
}
} // namespace

Limits Limits::defaults()
{
    QMutexLocker locker(&defaultsLock());
    return stored();
}

void Limits::setDefaults(const Limits& limits)
{
    QMutexLocker locker(&defaultsLock());
    stored() = limits;
}

} // namespace Onvif
