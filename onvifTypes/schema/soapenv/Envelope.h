#ifndef ONVIFTYPES_SOAPENV_ENVELOPE_H
#define ONVIFTYPES_SOAPENV_ENVELOPE_H

#include <onvifTypes/schema/soapenv/Body.h>
#include <onvifTypes/schema/soapenv/Header.h>

#include <QSharedPointer>

namespace soapenv {

class ONVIFTYPES_EXPORT Envelope : public Serializable
{
public:
    Envelope();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<soapenv::Header> Header;
    QSharedPointer<soapenv::Body> Body;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
