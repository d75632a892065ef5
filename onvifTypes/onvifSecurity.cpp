#include "onvifTypes/onvifSecurity.h"

#include "onvifTypes/session/nonces.h"

#include <QCryptographicHash>

namespace {

// The header around the user name, digest, nonce and creation time, in that order.
const QLatin1String kHeaderStart("<Security s:mustUnderstand=\"1\""
                                 " xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
                                 "oasis-200401-wss-wssecurity-secext-1.0.xsd\">"
                                 "<UsernameToken><Username>");
const QLatin1String kBeforeDigest("</Username>"
                                  "<Password Type=\"http://docs.oasis-open.org/wss/2004/01/"
                                  "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">");
const QLatin1String kBeforeNonce("</Password>"
                                 "<Nonce EncodingType=\"http://docs.oasis-open.org/wss/2004/01/"
                                 "oasis-200401-wss-soap-message-security-1.0#Base64Binary\">");
const QLatin1String kBeforeCreated("</Nonce>"
                                   "<Created xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
                                   "oasis-200401-wss-wssecurity-utility-1.0.xsd\">");
const QLatin1String kHeaderEnd("</Created></UsernameToken></Security>");

// "yyyy-MM-ddThh:mm:ss.zzzZ" written directly: QDateTime::toString with a format
// text costs as much as the digest itself.
QString createdText(const QDateTime& utc)
{
    int year = 0, month = 0, day = 0;
    utc.date().getDate(&year, &month, &day);
    if (year < 0 || year > 9999)
        return utc.toString(QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
    const QTime time = utc.time();
    char text[] = "0000-00-00T00:00:00.000Z";
    const auto put = [&text](int at, int value, int digits) {
        for (int i = at + digits - 1; i >= at; --i, value /= 10)
            text[i] = char('0' + value % 10);
    };
    put(0, year, 4);
    put(5, month, 2);
    put(8, day, 2);
    put(11, time.hour(), 2);
    put(14, time.minute(), 2);
    put(17, time.second(), 2);
    put(20, time.msec(), 3);
    return QString::fromLatin1(text, int(sizeof(text)) - 1);
}

} // namespace

OnvifSecurity::OnvifSecurity(const QString& user, const QString& password, long long timeShift)
    : m_user(user)
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

QString OnvifSecurity::serialize(QString)
{
    return Onvif::Internal::usernameToken(m_user, m_password, m_timeShift, Onvif::strongNoncesUsed());
}

QString Onvif::Internal::usernameToken(
    const QString& user, const QString& password, long long shiftMs, bool strongNonce)
{
    QString out;
    const QByteArray nonce = makeNonce(strongNonce);
    const QString created = createdText(QDateTime::currentDateTimeUtc().addMSecs(shiftMs));
    const QString digest = OnvifSecurity::passwordDigest(nonce, created, password);
    out += kHeaderStart;
    out += user;
    out += kBeforeDigest;
    out += digest;
    out += kBeforeNonce;
    out += QLatin1String(nonce.toBase64());
    out += kBeforeCreated;
    out += created;
    out += kHeaderEnd;
    return out;
}

void OnvifSecurity::deserialize(QDomNode&) { }
