#ifndef CAMERASIM_WSSECURITY_H
#define CAMERASIM_WSSECURITY_H

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>

#include <mutex>

namespace CameraSim {

// The fields of a WS-Security UsernameToken as they arrived.
struct UsernameToken
{
    bool present = false;
    QString username;
    QString password;
    QString passwordType;
    QString nonce; // Base64 text
    QString created;
};

enum class AuthResult { Ok, Missing, WrongUser, WrongPassword, BadCreated, Stale, Replayed };

QString authResultText(AuthResult result);

// Checks UsernameToken digests the way a camera does: Base64(SHA-1(nonce + created +
// password)), creation time within the allowed skew of the camera's clock, and each
// nonce accepted once while it could still be valid.
class DigestVerifier
{
public:
    DigestVerifier(const QString& user, const QString& password, qint64 allowedSkewMs, bool rejectReplay,
        bool allowPasswordText);

    AuthResult verify(const UsernameToken& token, const QDateTime& cameraNowUtc);

    static QString digest(const QByteArray& nonce, const QString& created, const QString& password);

private:
    const QString m_user;
    const QString m_password;
    const qint64 m_skewMs;
    const bool m_rejectReplay;
    const bool m_allowText;
    std::mutex m_mutex;
    QHash<QByteArray, qint64> m_seenNonces; // nonce -> camera time (ms) after which it may be forgotten
    qint64 m_nextPruneMs = 0;
};

} // namespace CameraSim

#endif // CAMERASIM_WSSECURITY_H
