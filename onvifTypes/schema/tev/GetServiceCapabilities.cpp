#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/GetServiceCapabilities.h>

namespace tev {

namespace {

void bindGetServiceCapabilities(Serializable* object, void** m)
{
    auto* o = static_cast<GetServiceCapabilities*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
}

const ComplexType::ClassInfo infoGetServiceCapabilities
    = { "tev:GetServiceCapabilities", nullptr, 0, &bindGetServiceCapabilities };

} // namespace

GetServiceCapabilities::GetServiceCapabilities()
{
    ComplexType::construct(infoGetServiceCapabilities, this);
}

QString GetServiceCapabilities::serialize(QString tagName)
{
    return ComplexType::serialize(infoGetServiceCapabilities, this, tagName);
}

void GetServiceCapabilities::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoGetServiceCapabilities, this, node);
}

} // namespace tev
