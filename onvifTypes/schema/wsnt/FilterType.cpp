#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/FilterType.h>

namespace wsnt {

namespace {

void bindFilterType(Serializable* object, void** m)
{
    auto* o = static_cast<FilterType*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->TopicExpression;
    m[3] = &o->ProducerProperties;
    m[4] = &o->MessageContent;
}

const ComplexType::Member membersFilterType[] = {
    { "wsnt:TopicExpression", ComplexType::OptionalList, &ComplexType::listOps<RawXml> },
    { "wsnt:ProducerProperties", ComplexType::OptionalList, &ComplexType::listOps<RawXml> },
    { "wsnt:MessageContent", ComplexType::OptionalList, &ComplexType::listOps<RawXml> },
};

const ComplexType::ClassInfo infoFilterType = { "wsnt:FilterType", membersFilterType, 3, &bindFilterType };

} // namespace

FilterType::FilterType()
{
    ComplexType::construct(infoFilterType, this);
}

QString FilterType::serialize(QString tagName)
{
    return ComplexType::serialize(infoFilterType, this, tagName);
}

void FilterType::serializeTo(QString& out, QLatin1String tagName) const
{
    ComplexType::serializeTo(infoFilterType, this, out, tagName);
}

void FilterType::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoFilterType, this, node);
}

} // namespace wsnt
