#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/Subscribe.h>

namespace wsnt {

namespace {

void bindSubscribe(Serializable* object, void** m)
{
    auto* o = static_cast<Subscribe*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->ConsumerReference;
    m[3] = &o->InitialTerminationTime;
}

const ComplexType::Member membersSubscribe[] = {
    { "wsnt:ConsumerReference", ComplexType::Required, &ComplexType::typeOps<a::EndpointReferenceType> },
    { "wsnt:InitialTerminationTime", ComplexType::Optional,
        &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoSubscribe = { "wsnt:Subscribe", membersSubscribe, 2, &bindSubscribe };

} // namespace

Subscribe::Subscribe()
{
    ComplexType::construct(infoSubscribe, this);
}

QString Subscribe::serialize(QString tagName)
{
    const QString tag = tagName.isEmpty() ? QStringLiteral("wsnt:Subscribe") : tagName;
    const QString address
        = ConsumerReference && ConsumerReference->Address ? ConsumerReference->Address->value() : QString();
    const QString time = InitialTerminationTime ? InitialTerminationTime->value() : QString();
    // One substitution step, so that a "%1" inside the address stays as it is.
    const QString content
        = QStringLiteral("<wsnt:ConsumerReference><a:Address>%0</a:Address></wsnt:ConsumerReference>"
                         "<wsnt:InitialTerminationTime>%1</wsnt:InitialTerminationTime>")
              .arg(address, time);
    return QLatin1Char('<') + tag + QLatin1String(" >") + content + QLatin1String("</") + tag
        + QLatin1Char('>');
}

void Subscribe::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoSubscribe, this, node);
}

} // namespace wsnt
