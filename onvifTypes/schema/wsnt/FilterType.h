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

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
    // The text of serialize() appended to out, as the library writes members.
    void serializeTo(QString& out, QLatin1String tagName) const;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_FILTERTYPE_H
