#ifndef ONVIFTYPES_SCHEMA_A_ENDPOINTREFERENCETYPE_H
#define ONVIFTYPES_SCHEMA_A_ENDPOINTREFERENCETYPE_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace a {

// A WS-Addressing endpoint. Only the address is modelled; reference parameters
// (which some cameras use to tell subscriptions apart) arrive in unmatchedElements.
class ONVIFTYPES_EXPORT EndpointReferenceType : public Serializable
{
public:
    EndpointReferenceType();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<QString>> Address;

    QString serialize(const QString& tagName) const override;
    void deserialize(const QDomNode& node) override;
};

} // namespace a

#endif // ONVIFTYPES_SCHEMA_A_ENDPOINTREFERENCETYPE_H
