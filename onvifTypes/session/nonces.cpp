#include "onvifTypes/session/nonces.h"

#include <QRandomGenerator>

#include <atomic>

namespace Onvif {

namespace {
std::atomic<bool> strong { false };
}

void useStrongNonces(bool on)
{
    strong.store(on, std::memory_order_relaxed);
}

bool strongNoncesUsed()
{
    return strong.load(std::memory_order_relaxed);
}

QByteArray Internal::makeNonce()
{
    return makeNonce(strongNoncesUsed());
}

QByteArray Internal::makeNonce(bool strongSource)
{
    QByteArray nonce(32, Qt::Uninitialized);
    if (strongSource) {
        QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(nonce.data()), nonce.size() / 4);
        return nonce;
    }
    // The host's qsrand() decides the sequence; the library never seeds it.
    for (char& byte : nonce) {
        QT_WARNING_PUSH
        QT_WARNING_DISABLE_DEPRECATED
        byte = char(qrand() & 0xff);
        QT_WARNING_POP
    }
    return nonce;
}

} // namespace Onvif
