#ifndef ONVIFTYPES_SCHEMA_WSNT_SUBSCRIBERESPONSE_H
#define ONVIFTYPES_SCHEMA_WSNT_SUBSCRIBERESPONSE_H

#include <onvifTypes/schema/a/EndpointReferenceType.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

class ONVIFTYPES_EXPORT SubscribeResponse : public Serializable
{
public:
    SubscribeResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<a::EndpointReferenceType> SubscriptionReference;
    QSharedPointer<universalSimpleType<QString>> CurrentTime;
    QSharedPointer<universalSimpleType<QString>> TerminationTime;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_SUBSCRIBERESPONSE_H
