#ifndef ONVIFTYPES_SCHEMA_TEV_GETEVENTPROPERTIES_H
#define ONVIFTYPES_SCHEMA_TEV_GETEVENTPROPERTIES_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

class ONVIFTYPES_EXPORT GetEventProperties : public Serializable
{
public:
    GetEventProperties();

    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_GETEVENTPROPERTIES_H
