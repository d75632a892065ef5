#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/PullMessages.h>

namespace tev {

namespace {

void bindPullMessages(Serializable* object, void** m)
{
    auto* o = static_cast<PullMessages*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->Timeout;
    m[3] = &o->MessageLimit;
}

const ComplexType::Member membersPullMessages[] = {
    { "tev:Timeout", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
    { "tev:MessageLimit", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<int>> },
};

const ComplexType::ClassInfo infoPullMessages
    = { "tev:PullMessages", membersPullMessages, 2, &bindPullMessages };

} // namespace

PullMessages::PullMessages()
{
    ComplexType::construct(infoPullMessages, this);
}

QString PullMessages::serialize(QString tagName)
{
    return ComplexType::serialize(infoPullMessages, this, tagName);
}

void PullMessages::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoPullMessages, this, node);
}

} // namespace tev
