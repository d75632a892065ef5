#ifndef ONVIFTYPES_SCHEMA_WSNT_RENEW_H
#define ONVIFTYPES_SCHEMA_WSNT_RENEW_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

// Extends a subscription to a new termination time (absolute or a duration).
class ONVIFTYPES_EXPORT Renew : public Serializable
{
public:
    Renew();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<QString>> TerminationTime;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_RENEW_H
