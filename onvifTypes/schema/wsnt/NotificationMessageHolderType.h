#ifndef ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGEHOLDERTYPE_H
#define ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGEHOLDERTYPE_H

#include <onvifTypes/schema/a/EndpointReferenceType.h>
#include <onvifTypes/schema/rawXml.h>
#include <onvifTypes/schema/tt/Message.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

// One notification: the topic (text and Dialect attribute kept verbatim) and the
// ONVIF event found inside the wsnt:Message wrapper. A wrapper without an event
// carrying UtcTime is kept in unmatchedElements and Message stays at its default.
class ONVIFTYPES_EXPORT NotificationMessageHolderType : public Serializable
{
public:
    NotificationMessageHolderType();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<a::EndpointReferenceType> SubscriptionReference;
    QSharedPointer<RawXml> Topic;
    QSharedPointer<a::EndpointReferenceType> ProducerReference;
    QSharedPointer<tt::Message> Message;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_NOTIFICATIONMESSAGEHOLDERTYPE_H
