#ifndef ONVIFTYPES_SOAPENV_FAULT_H
#define ONVIFTYPES_SOAPENV_FAULT_H

#include <onvifTypes/schema/soapenv/detail.h>
#include <onvifTypes/schema/soapenv/faultcode.h>
#include <onvifTypes/schema/soapenv/faultreason.h>

namespace soapenv {

class ONVIFTYPES_EXPORT Fault : public Serializable
{
public:
    Fault();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<faultcode> Code;
    QSharedPointer<faultreason> Reason;
    QSharedPointer<universalSimpleType<QString>> Node;
    QSharedPointer<universalSimpleType<QString>> Role;
    QSharedPointer<detail> Detail;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
