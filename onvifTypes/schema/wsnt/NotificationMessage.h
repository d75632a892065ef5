#ifndef ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGE_H
#define ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGE_H

#include <onvifTypes/schema/a/EndpointReferenceType.h>
#include <onvifTypes/schema/rawXml.h>
#include <onvifTypes/schema/tt/Message.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

// One notification: the topic (text and Dialect attribute kept verbatim) and the
// ONVIF event found inside the wsnt:Message wrapper. A wrapper without an event
// carrying UtcTime is kept in unmatchedElements and Message stays at its default.
class ONVIFTYPES_EXPORT NotificationMessage : public Serializable
{
public:
    NotificationMessage();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<a::EndpointReferenceType> SubscriptionReference;
    QSharedPointer<RawXml> Topic;
    QSharedPointer<a::EndpointReferenceType> ProducerReference;
    QSharedPointer<tt::Message> Message;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
    // The text of serialize() appended to out, as the library writes members.
    void serializeTo(QString& out, QLatin1String tagName) const;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGE_H
