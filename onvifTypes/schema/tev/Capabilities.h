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

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
    // The text of serialize() appended to out, as the library writes members.
    void serializeTo(QString& out, QLatin1String tagName) const;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_CAPABILITIES_H
