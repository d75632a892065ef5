#include <onvifTypes/schema/a/EndpointReferenceType.h>
#include <onvifTypes/schema/complexType_p.h>

namespace a {

namespace {

void bindEndpointReferenceType(Serializable* object, void** m)
{
    auto* o = static_cast<EndpointReferenceType*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->Address;
}

const ComplexType::Member membersEndpointReferenceType[] = {
    { "a:Address", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoEndpointReferenceType
    = { "a:EndpointReferenceType", membersEndpointReferenceType, 1, &bindEndpointReferenceType };

} // namespace

EndpointReferenceType::EndpointReferenceType()
{
    ComplexType::construct(infoEndpointReferenceType, this);
}

QString EndpointReferenceType::serialize(QString tagName)
{
    return ComplexType::serialize(infoEndpointReferenceType, this, tagName);
}

void EndpointReferenceType::serializeTo(QString& out, QLatin1String tagName) const
{
    ComplexType::serializeTo(infoEndpointReferenceType, this, out, tagName);
}

void EndpointReferenceType::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoEndpointReferenceType, this, node);
}

} // namespace a
