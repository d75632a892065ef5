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

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
    // The text of serialize() appended to out, as the library writes members.
    void serializeTo(QString& out, QLatin1String tagName) const;
};

} // namespace a

#endif // ONVIFTYPES_SCHEMA_A_ENDPOINTREFERENCETYPE_H
