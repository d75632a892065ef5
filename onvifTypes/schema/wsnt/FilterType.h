#ifndef ONVIFTYPES_SCHEMA_WSNT_FILTERTYPE_H
#define ONVIFTYPES_SCHEMA_WSNT_FILTERTYPE_H

#include <onvifTypes/schema/rawXml.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>
#include <QVector>

namespace wsnt {

// A subscription filter. Topic expressions and content filters keep their dialect
// attribute and are written back verbatim.
class ONVIFTYPES_EXPORT FilterType : public Serializable
{
public:
    FilterType();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QSharedPointer<QVector<RawXml>> TopicExpression;
    QSharedPointer<QVector<RawXml>> ProducerProperties;
    QSharedPointer<QVector<RawXml>> MessageContent;

    QString serialize(const QString& tagName) const override;
    void deserialize(const QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_FILTERTYPE_H
