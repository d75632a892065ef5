#include <onvifTypes/schema/wsnt/SubscribeHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace wsnt {

SubscribeHeader::SubscribeHeader(const QString& address)
    : address(address)
{ }

QString SubscribeHeader::serialize(QString)
{
    return Addressing::headerText(
        "http://docs.oasis-open.org/wsn/bw-2/NotificationProducer/SubscribeRequest", address);
}

void SubscribeHeader::deserialize(QDomNode&) { }

} // namespace wsnt
