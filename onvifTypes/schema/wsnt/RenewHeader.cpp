#include <onvifTypes/schema/wsnt/RenewHeader.h>
#include <onvifTypes/schema/wsnt/addressing_p.h>

namespace wsnt {

RenewHeader::RenewHeader(const QString& address)
    : address(address)
{ }

QString RenewHeader::serialize(QString)
{
    return Addressing::headerText(
        "http://docs.oasis-open.org/wsn/bw-2/SubscriptionManager/RenewRequest", address);
}

void RenewHeader::deserialize(QDomNode&) { }

} // namespace wsnt
