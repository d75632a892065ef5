#ifndef ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTION_H
#define ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTION_H

#include <onvifTypes/schema/wsnt/FilterType.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

// Asks the event service for a pull point. Only what is set is written; the
// subscription policy is inserted as it stands, so it may carry XML.
class ONVIFTYPES_EXPORT CreatePullPointSubscription : public Serializable
{
public:
    CreatePullPointSubscription();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<wsnt::FilterType> Filter;
    QSharedPointer<universalSimpleType<QString>> InitialTerminationTime;
    QSharedPointer<universalSimpleType<QString>> SubscriptionPolicy;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTION_H
