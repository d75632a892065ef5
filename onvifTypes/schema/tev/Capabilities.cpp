#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/tev/Capabilities.h>

namespace tev {

namespace {

void bindCapabilities(Serializable* object, void** m)
{
    auto* o = static_cast<Capabilities*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->WSSubscriptionPolicySupport;
    m[3] = &o->WSPullPointSupport;
    m[4] = &o->WSPausableSubscriptionManagerInterfaceSupport;
    m[5] = &o->MaxNotificationProducers;
    m[6] = &o->MaxPullPoints;
    m[7] = &o->PersistentNotificationStorage;
}

const ComplexType::Member membersCapabilities[] = {
    { "WSSubscriptionPolicySupport", ComplexType::OptionalAttribute,
        &ComplexType::typeOps<universalSimpleType<bool>> },
    { "WSPullPointSupport", ComplexType::OptionalAttribute,
        &ComplexType::typeOps<universalSimpleType<bool>> },
    { "WSPausableSubscriptionManagerInterfaceSupport", ComplexType::OptionalAttribute,
        &ComplexType::typeOps<universalSimpleType<bool>> },
    { "MaxNotificationProducers", ComplexType::OptionalAttribute,
        &ComplexType::typeOps<universalSimpleType<int>> },
    { "MaxPullPoints", ComplexType::OptionalAttribute, &ComplexType::typeOps<universalSimpleType<int>> },
    { "PersistentNotificationStorage", ComplexType::OptionalAttribute,
        &ComplexType::typeOps<universalSimpleType<bool>> },
};

const ComplexType::ClassInfo infoCapabilities
    = { "tev:Capabilities", membersCapabilities, 6, &bindCapabilities };

} // namespace

Capabilities::Capabilities()
{
    ComplexType::construct(infoCapabilities, this);
}

QString Capabilities::serialize(QString tagName)
{
    return ComplexType::serialize(infoCapabilities, this, tagName);
}

void Capabilities::serializeTo(QString& out, QLatin1String tagName) const
{
    ComplexType::serializeTo(infoCapabilities, this, out, tagName);
}

void Capabilities::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoCapabilities, this, node);
}

} // namespace tev
