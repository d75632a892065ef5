#include <onvifTypes/schema/tev/CreatePullPointSubscriptionHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace tev {

CreatePullPointSubscriptionHeader::CreatePullPointSubscriptionHeader(const QString& address)
    : address(address)
{ }

QString CreatePullPointSubscriptionHeader::serialize(QString)
{
    return Addressing::headerText(
        "http://www.onvif.org/ver10/events/wsdl/EventPortType/CreatePullPointSubscriptionRequest", address);
}

void CreatePullPointSubscriptionHeader::deserialize(QDomNode&) { }

} // namespace tev
