#include <onvifTypes/schema/tev/PullMessagesHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace tev {

PullMessagesHeader::PullMessagesHeader(const QString& address)
    : address(address)
{ }

QString PullMessagesHeader::serialize(const QString&) const
{
    return Addressing::headerText(
        "http://www.onvif.org/ver10/events/wsdl/PullPointSubscription/PullMessagesRequest", address);
}

void PullMessagesHeader::deserialize(const QDomNode&) { }

} // namespace tev
