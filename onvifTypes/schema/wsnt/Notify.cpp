#include <onvifTypes/schema/complexType_p.h>
#include <onvifTypes/schema/wsnt/Notify.h>

namespace wsnt {

namespace {

void bindNotify(Serializable* object, void** m)
{
    auto* o = static_cast<Notify*>(object);
    m[0] = &o->unmatchedElements;
    m[1] = &o->unmatchedAttributes;
    m[2] = &o->NotificationMessage;
}

const ComplexType::Member membersNotify[] = {
    { "wsnt:NotificationMessage", ComplexType::List, &ComplexType::listOps<wsnt::NotificationMessage> },
};

const ComplexType::ClassInfo infoNotify = { "wsnt:Notify", membersNotify, 1, &bindNotify };

} // namespace

Notify::Notify()
{
    ComplexType::construct(infoNotify, this);
}

QString Notify::serialize(QString tagName)
{
    return ComplexType::serialize(infoNotify, this, tagName);
}

void Notify::deserialize(QDomNode& node)
{
    ComplexType::deserialize(infoNotify, this, node);
}

} // namespace wsnt
