#include <onvifTypes/schema/wsnt/NotificationMessageHolderType.h>
#include <onvifTypes/schema/wsnt/notificationMessage_p.h>

namespace wsnt {

NotificationMessageHolderType::NotificationMessageHolderType()
    : Message(new tt::Message)
{ }

QString NotificationMessageHolderType::serialize(QString tagName)
{
    return NotificationMessageIo::serialize(*this, tagName, "wsnt:NotificationMessageHolderType");
}

void NotificationMessageHolderType::deserialize(QDomNode& node)
{
    NotificationMessageIo::deserialize(*this, node);
}

} // namespace wsnt
