#ifndef ONVIFTYPES_SCHEMA_TEV_PULLMESSAGESRESPONSE_H
#define ONVIFTYPES_SCHEMA_TEV_PULLMESSAGESRESPONSE_H

#include <onvifTypes/schema/tt/Message.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>
#include <QVector>

namespace tev {

// The pulled events. Only the ONVIF event messages (elements "Message" that carry
// "UtcTime", at any depth of a notification) are kept, in document order; Message
// stays null when none arrived. Children that hold no event go to unmatchedElements.
class ONVIFTYPES_EXPORT PullMessagesResponse : public Serializable
{
public:
    PullMessagesResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<QString>> CurrentTime;
    QSharedPointer<universalSimpleType<QString>> TerminationTime;
    QSharedPointer<QVector<tt::Message>> Message;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_PULLMESSAGESRESPONSE_H
