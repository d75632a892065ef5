#ifndef ONVIFTYPES_SCHEMA_WSNT_RENEWRESPONSE_H
#define ONVIFTYPES_SCHEMA_WSNT_RENEWRESPONSE_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace wsnt {

class ONVIFTYPES_EXPORT RenewResponse : public Serializable
{
public:
    RenewResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<QString>> TerminationTime;
    QSharedPointer<universalSimpleType<QString>> CurrentTime;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_RENEWRESPONSE_H
