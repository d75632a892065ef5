#include <onvifTypes/schema/tev/PullMessagesHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace tev {

PullMessagesHeader::PullMessagesHeader(const QString& address)
    : address(address)
{ }

QString PullMessagesHeader::serialize(QString)
{
    return Addressing::headerText(
        "http://www.onvif.org/ver10/events/wsdl/PullPointSubscription/PullMessagesRequest", address);
}

void PullMessagesHeader::deserialize(QDomNode&) { }

} // namespace tev
