#ifndef ONVIFTYPES_SCHEMA_TEV_GETSERVICECAPABILITIES_H
#define ONVIFTYPES_SCHEMA_TEV_GETSERVICECAPABILITIES_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

class ONVIFTYPES_EXPORT GetServiceCapabilities : public Serializable
{
public:
    GetServiceCapabilities();

    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_GETSERVICECAPABILITIES_H
