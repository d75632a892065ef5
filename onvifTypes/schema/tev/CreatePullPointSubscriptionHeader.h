#ifndef ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTIONHEADER_H
#define ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTIONHEADER_H

#include <onvifTypes/serializable.h>

namespace tev {

// WS-Addressing header block of the request; join it with the security header
// in a SerializableContainer. Every serialize() makes a fresh message id.
class ONVIFTYPES_EXPORT CreatePullPointSubscriptionHeader : public Serializable
{
public:
    explicit CreatePullPointSubscriptionHeader(const QString& address = QString());

    // Where the request is posted: the event service address.
    QString address;

    // The name is ignored: a header writes its own blocks.
    QString serialize(QString tagName) override;
    // Nothing is read back.
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_CREATEPULLPOINTSUBSCRIPTIONHEADER_H
