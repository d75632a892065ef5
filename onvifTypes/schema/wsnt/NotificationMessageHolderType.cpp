#include <onvifTypes/schema/wsnt/NotificationMessageHolderType.h>
#include <onvifTypes/schema/wsnt/notificationMessage_p.h>

namespace wsnt {

NotificationMessageHolderType::NotificationMessageHolderType()
    : Message(new tt::Message)
{ }

QString NotificationMessageHolderType::serialize(const QString& tagName) const
{
    return NotificationMessageIo::serialize(*this, tagName, "wsnt:NotificationMessageHolderType");
}

void NotificationMessageHolderType::deserialize(const QDomNode& node)
{
    NotificationMessageIo::deserialize(*this, node);
}

} // namespace wsnt
