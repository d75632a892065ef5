#ifndef ONVIFTYPES_SOAPENV_DETAIL_H
#define ONVIFTYPES_SOAPENV_DETAIL_H

#include <onvifTypes/serializable.h>

namespace soapenv {

// A fault's Detail, arbitrary content: its content is kept as unmatched text only.
class ONVIFTYPES_EXPORT detail : public Serializable
{
public:
    QString unmatchedElements;
    QString unmatchedAttributes;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
