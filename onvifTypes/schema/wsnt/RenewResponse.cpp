#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/RenewResponse.h>

namespace wsnt {

namespace {

void bindRenewResponse(Serializable* object, void** m)
{
    auto* o = static_cast<RenewResponse*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->TerminationTime;
    m[3] = &o->CurrentTime;
}

const ComplexType::Member membersRenewResponse[] = {
    { "wsnt:TerminationTime", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
    { "wsnt:CurrentTime", ComplexType::Optional, &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoRenewResponse
    = { "wsnt:RenewResponse", membersRenewResponse, 2, &bindRenewResponse };

} // namespace

RenewResponse::RenewResponse()
{
    ComplexType::construct(infoRenewResponse, this);
}

QString RenewResponse::serialize(QString tagName)
{
    return ComplexType::serialize(infoRenewResponse, this, tagName);
}

void RenewResponse::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoRenewResponse, this, node);
}

} // namespace wsnt
