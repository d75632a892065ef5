#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/Renew.h>

namespace wsnt {

namespace {

void bindRenew(Serializable* object, void** m)
{
    auto* o = static_cast<Renew*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->TerminationTime;
}

const ComplexType::Member membersRenew[] = {
    { "wsnt:TerminationTime", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoRenew = { "wsnt:Renew", membersRenew, 1, &bindRenew };

} // namespace

Renew::Renew()
{
    ComplexType::construct(infoRenew, this);
}

QString Renew::serialize(QString tagName)
{
    return ComplexType::serialize(infoRenew, this, tagName);
}

void Renew::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoRenew, this, node);
}

} // namespace wsnt
