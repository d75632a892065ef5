#ifndef ONVIFTYPES_SCHEMA_TEV_GETSERVICECAPABILITIESRESPONSE_H
#define ONVIFTYPES_SCHEMA_TEV_GETSERVICECAPABILITIESRESPONSE_H

#include <onvifTypes/schema/tev/Capabilities.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

class ONVIFTYPES_EXPORT GetServiceCapabilitiesResponse : public Serializable
{
public:
    GetServiceCapabilitiesResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<tev::Capabilities> Capabilities;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_GETSERVICECAPABILITIESRESPONSE_H
