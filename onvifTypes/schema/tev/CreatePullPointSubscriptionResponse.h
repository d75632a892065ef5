#ifndef ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTIONRESPONSE_H
#define ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTIONRESPONSE_H

#include <onvifTypes/schema/a/EndpointReferenceType.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

// The new pull point: its address and the times of the camera's clock.
class ONVIFTYPES_EXPORT CreatePullPointSubscriptionResponse : public Serializable
{
public:
    CreatePullPointSubscriptionResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<a::EndpointReferenceType> SubscriptionReference;
    QSharedPointer<universalSimpleType<QString>> CurrentTime;
    QSharedPointer<universalSimpleType<QString>> TerminationTime;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTIONRESPONSE_H
