#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/GetServiceCapabilitiesResponse.h>

namespace tev {

namespace {

void bindGetServiceCapabilitiesResponse(Serializable* object, void** m)
{
    auto* o = static_cast<GetServiceCapabilitiesResponse*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->Capabilities;
}

const ComplexType::Member membersGetServiceCapabilitiesResponse[] = {
    { "tev:Capabilities", ComplexType::Required, &ComplexType::typeOps<tev::Capabilities> },
};

const ComplexType::ClassInfo infoGetServiceCapabilitiesResponse = { "tev:GetServiceCapabilitiesResponse",
    membersGetServiceCapabilitiesResponse, 1, &bindGetServiceCapabilitiesResponse };

} // namespace

GetServiceCapabilitiesResponse::GetServiceCapabilitiesResponse()
{
    ComplexType::construct(infoGetServiceCapabilitiesResponse, this);
}

QString GetServiceCapabilitiesResponse::serialize(QString tagName)
{
    return ComplexType::serialize(infoGetServiceCapabilitiesResponse, this, tagName);
}

void GetServiceCapabilitiesResponse::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoGetServiceCapabilitiesResponse, this, node);
}

} // namespace tev
