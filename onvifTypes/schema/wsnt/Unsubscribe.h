#ifndef ONVIFTYPES_SCHEMA_WSNT_UNSUBSCRIBE_H
#define ONVIFTYPES_SCHEMA_WSNT_UNSUBSCRIBE_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

class ONVIFTYPES_EXPORT Unsubscribe : public Serializable
{
public:
    Unsubscribe();

    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_UNSUBSCRIBE_H
