#ifndef ONVIFTYPES_SESSION_NONCES_H
#define ONVIFTYPES_SESSION_NONCES_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QByteArray>

namespace Onvif {

// WS-Security nonces come from the application-wide qrand() by default, and the library
// never seeds it: an application that does not call qsrand() sends the same nonces after
// every start, and a camera with a replay cache then refuses the right password. Call this
// once at start-up to draw every nonce of the process from QRandomGenerator::system()
// instead; nothing else about the header changes. Thread-safe.
ONVIFTYPES_EXPORT void useStrongNonces(bool on = true);
ONVIFTYPES_EXPORT bool strongNoncesUsed();

namespace Internal {
// 32 bytes from the source chosen above.
ONVIFTYPES_EXPORT QByteArray makeNonce();
// 32 bytes, from the strong source when strong is true whatever was chosen above.
ONVIFTYPES_EXPORT QByteArray makeNonce(bool strong);
// The UsernameToken header OnvifSecurity writes, for a device clock shiftMs ahead of ours.
ONVIFTYPES_EXPORT QString usernameToken(
    const QString& user, const QString& password, long long shiftMs, bool strongNonce);
} // namespace Internal

} // namespace Onvif

#endif // ONVIFTYPES_SESSION_NONCES_H
