#include <onvifTypes/schema/wsnt/NotificationMessage.h>
#include <onvifTypes/schema/wsnt/notificationMessage_p.h>

namespace wsnt {

NotificationMessage::NotificationMessage()
    : Message(new tt::Message)
{ }

QString NotificationMessage::serialize(QString tagName)
{
    return NotificationMessageIo::serialize(*this, tagName, "wsnt:NotificationMessage");
}

void NotificationMessage::serializeTo(QString& out, QLatin1String tagName) const
{
    out += NotificationMessageIo::serialize(*this, QString(tagName), "wsnt:NotificationMessage");
}

void NotificationMessage::deserialize(QDomNode& node)
{
    NotificationMessageIo::deserialize(*this, node);
}

} // namespace wsnt
