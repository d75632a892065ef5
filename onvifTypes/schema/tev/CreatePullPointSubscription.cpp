#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscription.h>

namespace tev {

namespace {

void bindCreatePullPointSubscription(Serializable* object, void** m)
{
    auto* o = static_cast<CreatePullPointSubscription*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->Filter;
    m[3] = &o->InitialTerminationTime;
    m[4] = &o->SubscriptionPolicy;
}

const ComplexType::Member membersCreatePullPointSubscription[] = {
    { "tev:Filter", ComplexType::Optional, &ComplexType::typeOps<wsnt::FilterType> },
    { "tev:InitialTerminationTime", ComplexType::Optional,
        &ComplexType::typeOps<universalSimpleType<QString>> },
    { "tev:SubscriptionPolicy", ComplexType::Optional, &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoCreatePullPointSubscription = { "tev:CreatePullPointSubscription",
    membersCreatePullPointSubscription, 3, &bindCreatePullPointSubscription };

} // namespace

CreatePullPointSubscription::CreatePullPointSubscription()
{
    ComplexType::construct(infoCreatePullPointSubscription, this);
}

QString CreatePullPointSubscription::serialize(QString tagName)
{
    return ComplexType::serialize(infoCreatePullPointSubscription, this, tagName);
}

void CreatePullPointSubscription::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoCreatePullPointSubscription, this, node);
}

} // namespace tev
