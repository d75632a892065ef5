#ifndef ONVIFTYPES_SOAPENV_FAULTREASON_H
#define ONVIFTYPES_SOAPENV_FAULTREASON_H

#include <onvifTypes/serializable.h>

#include <QVector>

namespace soapenv {

class ONVIFTYPES_EXPORT faultreason : public Serializable
{
public:
    QString unmatchedElements;
    QString unmatchedAttributes;
    // One entry per Text element, in document order; the language is not kept.
    QVector<universalSimpleType<QString>> Text;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace soapenv

#endif
