#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/PullMessagesFaultResponse.h>

namespace tev {

namespace {

void bindPullMessagesFaultResponse(Serializable* object, void** m)
{
    auto* o = static_cast<PullMessagesFaultResponse*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->MaxTimeout;
    m[3] = &o->MaxMessageLimit;
}

const ComplexType::Member membersPullMessagesFaultResponse[] = {
    { "tev:MaxTimeout", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<QString>> },
    { "tev:MaxMessageLimit", ComplexType::Required, &ComplexType::typeOps<universalSimpleType<int>> },
};

const ComplexType::ClassInfo infoPullMessagesFaultResponse = { "tev:PullMessagesFaultResponse",
    membersPullMessagesFaultResponse, 2, &bindPullMessagesFaultResponse };

} // namespace

PullMessagesFaultResponse::PullMessagesFaultResponse()
{
    ComplexType::construct(infoPullMessagesFaultResponse, this);
}

QString PullMessagesFaultResponse::serialize(QString tagName)
{
    return ComplexType::serialize(infoPullMessagesFaultResponse, this, tagName);
}

void PullMessagesFaultResponse::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoPullMessagesFaultResponse, this, node);
}

} // namespace tev
