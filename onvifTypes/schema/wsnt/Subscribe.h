#ifndef ONVIFTYPES_SCHEMA_WSNT_SUBSCRIBE_H
#define ONVIFTYPES_SCHEMA_WSNT_SUBSCRIBE_H

#include <onvifTypes/schema/a/EndpointReferenceType.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

// A WS-BaseNotification subscription for the consumer's address. Without an
// initial termination time an empty element is written and the device picks one.
class ONVIFTYPES_EXPORT Subscribe : public Serializable
{
public:
    Subscribe();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<a::EndpointReferenceType> ConsumerReference;
    QSharedPointer<universalSimpleType<QString>> InitialTerminationTime;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_SUBSCRIBE_H
