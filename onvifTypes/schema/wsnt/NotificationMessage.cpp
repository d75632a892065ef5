#include <onvifTypes/schema/wsnt/NotificationMessage.h>
#include <onvifTypes/schema/wsnt/notificationMessage_p.h>

namespace wsnt {

NotificationMessage::NotificationMessage()
    : Message(new tt::Message)
{ }

QString NotificationMessage::serialize(const QString& tagName) const
{
    return NotificationMessageIo::serialize(*this, tagName, "wsnt:NotificationMessage");
}

void NotificationMessage::deserialize(const QDomNode& node)
{
    NotificationMessageIo::deserialize(*this, node);
}

} // namespace wsnt
