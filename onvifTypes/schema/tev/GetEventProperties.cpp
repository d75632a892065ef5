#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/GetEventProperties.h>

namespace tev {

namespace {

void bindGetEventProperties(Serializable* object, void** m)
{
    auto* o = static_cast<GetEventProperties*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
}

const ComplexType::ClassInfo infoGetEventProperties
    = { "tev:GetEventProperties", nullptr, 0, &bindGetEventProperties };

} // namespace

GetEventProperties::GetEventProperties()
{
    ComplexType::construct(infoGetEventProperties, this);
}

QString GetEventProperties::serialize(QString tagName)
{
    return ComplexType::serialize(infoGetEventProperties, this, tagName);
}

void GetEventProperties::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoGetEventProperties, this, node);
}

} // namespace tev
