#include <onvifTypes/schema/wsnt/UnsubscribeHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace wsnt {

UnsubscribeHeader::UnsubscribeHeader(const QString& address)
    : address(address)
{ }

QString UnsubscribeHeader::serialize(const QString&) const
{
    return Addressing::headerText(
        "http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/SubscribeRequest", address);
}

void UnsubscribeHeader::deserialize(const QDomNode&) { }

} // namespace wsnt
