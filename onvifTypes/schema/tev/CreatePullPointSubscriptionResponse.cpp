#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/CreatePullPointSubscriptionResponse.h>

namespace tev {

namespace {

void bindCreatePullPointSubscriptionResponse(Serializable* object, void** m)
{
    auto* o = static_cast<CreatePullPointSubscriptionResponse*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->SubscriptionReference;
    m[3] = &o->CurrentTime;
    m[4] = &o->TerminationTime;
}

const ComplexType::Member membersCreatePullPointSubscriptionResponse[] = {
    { "tev:SubscriptionReference", ComplexType::Required, &ComplexType::typeOps<a::EndpointReferenceType> },
    { "wsnt:CurrentTime", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
    { "wsnt:TerminationTime", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoCreatePullPointSubscriptionResponse
    = { "tev:CreatePullPointSubscriptionResponse", membersCreatePullPointSubscriptionResponse, 3,
          &bindCreatePullPointSubscriptionResponse };

} // namespace

CreatePullPointSubscriptionResponse::CreatePullPointSubscriptionResponse()
{
    ComplexType::construct(infoCreatePullPointSubscriptionResponse, this);
}

QString CreatePullPointSubscriptionResponse::serialize(QString tagName)
{
    return ComplexType::serialize(infoCreatePullPointSubscriptionResponse, this, tagName);
}

void CreatePullPointSubscriptionResponse::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoCreatePullPointSubscriptionResponse, this, node);
}

} // namespace tev
