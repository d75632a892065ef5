#ifndef ONVIFTYPES_SOAPENV_BODY_H
#define ONVIFTYPES_SOAPENV_BODY_H

#include <onvifTypes/serializable.h>

namespace soapenv {

// The SOAP body, arbitrary content: its content is kept as unmatched text only.
class ONVIFTYPES_EXPORT Body : public Serializable
{
public:
    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
