#ifndef ONVIFTYPES_SCHEMA_TEV_CAPABILITIES_H
#define ONVIFTYPES_SCHEMA_TEV_CAPABILITIES_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

// The event service's capabilities; every attribute is optional.
class ONVIFTYPES_EXPORT Capabilities : public Serializable
{
public:
    Capabilities();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<bool>> WSSubscriptionPolicySupport;
    QSharedPointer<universalSimpleType<bool>> WSPullPointSupport;
    QSharedPointer<universalSimpleType<bool>> WSPausableSubscriptionManagerInterfaceSupport;
    QSharedPointer<universalSimpleType<int>> MaxNotificationProducers;
    QSharedPointer<universalSimpleType<int>> MaxPullPoints;
    QSharedPointer<universalSimpleType<bool>> PersistentNotificationStorage;

    QString serialize(const QString& tagName) const override;
    void deserialize(const QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_CAPABILITIES_H
