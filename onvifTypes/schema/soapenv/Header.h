#ifndef ONVIFTYPES_SOAPENV_HEADER_H
#define ONVIFTYPES_SOAPENV_HEADER_H

#include <onvifTypes/serializable.h>

namespace soapenv {

// The SOAP header, arbitrary content: its content is kept as unmatched text only.
class ONVIFTYPES_EXPORT Header : public Serializable
{
public:
    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
