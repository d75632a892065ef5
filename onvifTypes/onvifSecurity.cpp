#include "onvifTypes/onvifSecurity.h"

#include <QCryptographicHash>

namespace {

const QString& headerTemplate()
{
    static const QString text = QStringLiteral(
        "<Security s:mustUnderstand=\"1\""
        " xmlns=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">"
        "<UsernameToken><Username>%0</Username>"
        "<Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">%1</Password>"
        "<Nonce EncodingType=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-soap-message-security-1.0#Base64Binary\">%2</Nonce>"
        "<Created xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-wssecurity-utility-1.0.xsd\">%3</Created>"
        "</UsernameToken></Security>");
    return text;
}

QByteArray makeNonce()
{
    // The host's qsrand() decides the sequence; the library never seeds it.
    QByteArray nonce(32, Qt::Uninitialized);
    for (char& byte : nonce) {
        QT_WARNING_PUSH
        QT_WARNING_DISABLE_DEPRECATED
        byte = char(qrand() & 0xff);
        QT_WARNING_POP
    }
    return nonce;
}

} // namespace

OnvifSecurity::OnvifSecurity(const QString& user, const QString& password, long long timeShift)
    : m_template(headerTemplate())
    , m_user(user)
    , m_password(password)
    , m_timeShift(timeShift)
{ }

OnvifSecurity::OnvifSecurity(const QString& user, const QString& password, const QDateTime& deviceTime)
    : OnvifSecurity(
        user, password, deviceTime.toMSecsSinceEpoch() - QDateTime::currentDateTimeUtc().toMSecsSinceEpoch())
{ }

QString OnvifSecurity::passwordDigest(
    const QByteArray& nonce, const QString& created, const QString& password)
{
    QCryptographicHash sha1(QCryptographicHash::Sha1);
    sha1.addData(nonce);
    sha1.addData(created.toLatin1());
    sha1.addData(password.toLatin1());
    return QString::fromLatin1(sha1.result().toBase64());
}

QString OnvifSecurity::serialize(const QString&) const
{
    const QByteArray nonce = makeNonce();
    const QString created = QDateTime::currentDateTimeUtc()
                                .addMSecs(m_timeShift)
                                .toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
    return m_template.arg(
        m_user, passwordDigest(nonce, created, m_password), QString::fromLatin1(nonce.toBase64()), created);
}

void OnvifSecurity::deserialize(const QDomNode&) { }
