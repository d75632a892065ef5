#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/Unsubscribe.h>

namespace wsnt {

namespace {

void bindUnsubscribe(Serializable* object, void** m)
{
    auto* o = static_cast<Unsubscribe*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
}

const ComplexType::ClassInfo infoUnsubscribe = { "wsnt:Unsubscribe", nullptr, 0, &bindUnsubscribe };

} // namespace

Unsubscribe::Unsubscribe()
{
    ComplexType::construct(infoUnsubscribe, this);
}

QString Unsubscribe::serialize(QString tagName)
{
    return ComplexType::serialize(infoUnsubscribe, this, tagName);
}

void Unsubscribe::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoUnsubscribe, this, node);
}

} // namespace wsnt
