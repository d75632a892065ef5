#ifndef ONVIFTYPES_ONVIFSECURITY_H
#define ONVIFTYPES_ONVIFSECURITY_H

#include <onvifTypes/serializable.h>

#include <QDateTime>

// WS-Security UsernameToken header with a password digest. Every serialize()
// makes a fresh nonce and creation time, so one object serves any number of
// requests. The creation time is stated in the device's clock (local UTC + shift).
class ONVIFTYPES_EXPORT OnvifSecurity : public Serializable
{
public:
    // timeShift: milliseconds to add to the local UTC time to get the device's time.
    OnvifSecurity(const QString& user, const QString& password, long long timeShift);
    // The shift is taken from the device's current time, once, at construction.
    OnvifSecurity(const QString& user, const QString& password, const QDateTime& deviceTime);

    QString user() const { return m_user; }
    long long timeShift() const { return m_timeShift; }

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;

    // Base64(SHA-1(nonce + created + password)), the password as Latin-1.
    static QString passwordDigest(const QByteArray& nonce, const QString& created, const QString& password);

private:
    QString m_user;
    QString m_password;
    long long m_timeShift;
};

#endif // ONVIFTYPES_ONVIFSECURITY_H
