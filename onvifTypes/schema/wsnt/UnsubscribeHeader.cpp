#include <onvifTypes/schema/wsnt/UnsubscribeHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace wsnt {

UnsubscribeHeader::UnsubscribeHeader(const QString& address)
    : address(address)
{ }

QString UnsubscribeHeader::serialize(QString)
{
    return Addressing::headerText(
        "http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/SubscribeRequest", address);
}

void UnsubscribeHeader::deserialize(QDomNode&) { }

} // namespace wsnt
