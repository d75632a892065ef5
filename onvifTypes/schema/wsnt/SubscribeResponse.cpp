#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/SubscribeResponse.h>

namespace wsnt {

namespace {

void bindSubscribeResponse(Serializable* object, void** m)
{
    auto* o = static_cast<SubscribeResponse*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->SubscriptionReference;
    m[3] = &o->CurrentTime;
    m[4] = &o->TerminationTime;
}

const ComplexType::Member membersSubscribeResponse[] = {
    { "wsnt:SubscriptionReference", ComplexType::Required, &ComplexType::typeOps<a::EndpointReferenceType> },
    { "wsnt:CurrentTime", ComplexType::Optional, &ComplexType::typeOps<universalSimpleType<QString>> },
    { "wsnt:TerminationTime", ComplexType::Optional, &ComplexType::typeOps<universalSimpleType<QString>> },
};

const ComplexType::ClassInfo infoSubscribeResponse
    = { "wsnt:SubscribeResponse", membersSubscribeResponse, 3, &bindSubscribeResponse };

} // namespace

SubscribeResponse::SubscribeResponse()
{
    ComplexType::construct(infoSubscribeResponse, this);
}

QString SubscribeResponse::serialize(QString tagName)
{
    return ComplexType::serialize(infoSubscribeResponse, this, tagName);
}

void SubscribeResponse::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoSubscribeResponse, this, node);
}

} // namespace wsnt
