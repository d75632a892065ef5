#ifndef ONVIFTYPES_SCHEMA_TEV_PULLMESSAGESFAULTRESPONSE_H
#define ONVIFTYPES_SCHEMA_TEV_PULLMESSAGESFAULTRESPONSE_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace tev {

// Detail of the fault a camera gives for a timeout or limit beyond its own.
class ONVIFTYPES_EXPORT PullMessagesFaultResponse : public Serializable
{
public:
    PullMessagesFaultResponse();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<universalSimpleType<QString>> MaxTimeout;
    QSharedPointer<universalSimpleType<int>> MaxMessageLimit;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace tev

#endif // ONVIFTYPES_SCHEMA_TEV_PULLMESSAGESFAULTRESPONSE_H
