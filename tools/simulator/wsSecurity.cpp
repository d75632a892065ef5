#include "wsSecurity.h"

#include <QCryptographicHash>

namespace CameraSim {

namespace {
const QLatin1String kDigestType(
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest");
const QLatin1String kTextType(
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordText");
} // namespace

QString authResultText(AuthResult result)
{
    switch (result) {
    case AuthResult::Ok:
        return QStringLiteral("ok");
    case AuthResult::Missing:
        return QStringLiteral("no UsernameToken");
    case AuthResult::WrongUser:
        return QStringLiteral("unknown user");
    case AuthResult::WrongPassword:
        return QStringLiteral("wrong password digest");
    case AuthResult::BadCreated:
        return QStringLiteral("unreadable Created time");
    case AuthResult::Stale:
        return QStringLiteral("Created outside the allowed clock skew");
    case AuthResult::Replayed:
        return QStringLiteral("nonce used before");
    }
    return QString();
}

DigestVerifier::DigestVerifier(const QString& user, const QString& password, qint64 allowedSkewMs,
    bool rejectReplay, bool allowPasswordText)
    : m_user(user)
    , m_password(password)
    , m_skewMs(allowedSkewMs)
    , m_rejectReplay(rejectReplay)
    , m_allowText(allowPasswordText)
{ }

QString DigestVerifier::digest(const QByteArray& nonce, const QString& created, const QString& password)
{
    const QByteArray input = nonce + created.toUtf8() + password.toUtf8();
    return QString::fromLatin1(QCryptographicHash::hash(input, QCryptographicHash::Sha1).toBase64());
}

AuthResult DigestVerifier::verify(const UsernameToken& token, const QDateTime& cameraNowUtc)
{
    if (!token.present)
        return AuthResult::Missing;
    if (token.username != m_user)
        return AuthResult::WrongUser;

    const bool isText = token.passwordType == kTextType;
    if (isText) {
        if (!m_allowText || token.password != m_password)
            return AuthResult::WrongPassword;
        return AuthResult::Ok;
    }
    // A missing Type means digest in practice; anything else is not understood.
    if (!token.passwordType.isEmpty() && token.passwordType != kDigestType)
        return AuthResult::WrongPassword;

    const QByteArray nonce = QByteArray::fromBase64(token.nonce.toLatin1());
    if (digest(nonce, token.created, m_password) != token.password.trimmed())
        return AuthResult::WrongPassword;

    QDateTime created = QDateTime::fromString(token.created.trimmed(), Qt::ISODateWithMs);
    if (!created.isValid())
        return AuthResult::BadCreated;
    const qint64 createdMs = created.toMSecsSinceEpoch();
    const qint64 nowMs = cameraNowUtc.toMSecsSinceEpoch();
    if (qAbs(nowMs - createdMs) > m_skewMs)
        return AuthResult::Stale;

    if (m_rejectReplay) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (nowMs >= m_nextPruneMs) {
            for (auto it = m_seenNonces.begin(); it != m_seenNonces.end();) {
                if (it.value() < nowMs)
                    it = m_seenNonces.erase(it);
                else
                    ++it;
            }
            m_nextPruneMs = nowMs + 1000;
        }
        // Beyond createdMs + skew the token is stale anyway, so the nonce need not be kept longer.
        const qint64 keepUntil = createdMs + m_skewMs;
        auto it = m_seenNonces.find(nonce);
        if (it != m_seenNonces.end())
            return AuthResult::Replayed;
        m_seenNonces.insert(nonce, keepUntil);
    }
    return AuthResult::Ok;
}

} // namespace CameraSim
