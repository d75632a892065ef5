#ifndef ONVIFTYPES_SOAPENV_SUBCODE_H
#define ONVIFTYPES_SOAPENV_SUBCODE_H

#include <onvifTypes/serializable.h>

#include <QSharedPointer>

namespace soapenv {

class ONVIFTYPES_EXPORT subcode : public Serializable
{
public:
    subcode();

    QString unmatchedElements;
    QString unmatchedAttributes;
    // A qualified name as text, prefix included (e.g. "ter:NotAuthorized").
    QSharedPointer<universalSimpleType<QString>> Value;
    QSharedPointer<subcode> Subcode;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
