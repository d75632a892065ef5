#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/UnsubscribeResponse.h>

namespace wsnt {

namespace {

void bindUnsubscribeResponse(Serializable* object, void** m)
{
    auto* o = static_cast<UnsubscribeResponse*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
}

const ComplexType::ClassInfo infoUnsubscribeResponse
    = { "wsnt:UnsubscribeRespose", nullptr, 0, &bindUnsubscribeResponse };

} // namespace

UnsubscribeResponse::UnsubscribeResponse()
{
    ComplexType::construct(infoUnsubscribeResponse, this);
}

QString UnsubscribeResponse::serialize(QString tagName)
{
    return ComplexType::serialize(infoUnsubscribeResponse, this, tagName);
}

void UnsubscribeResponse::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoUnsubscribeResponse, this, node);
}

} // namespace wsnt
