#ifndef ONVIFTYPES_SOAPENV_FAULTCODE_H
#define ONVIFTYPES_SOAPENV_FAULTCODE_H

#include <onvifTypes/schema/soapenv/faultcodeEnum.h>
#include <onvifTypes/schema/soapenv/subcode.h>

namespace soapenv {

class ONVIFTYPES_EXPORT faultcode : public Serializable
{
public:
    faultcode();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<faultcodeEnum> Value;
    QSharedPointer<subcode> Subcode;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
