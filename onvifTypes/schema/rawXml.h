#ifndef ONVIFTYPES_SCHEMA_RAWXML_H
#define ONVIFTYPES_SCHEMA_RAWXML_H

#include <onvifTypes/serializable.h>

#include <QPair>
#include <QVector>

// An element whose type has no class of its own: a type from a schema that the
// library does not model (tt:GeoLocation, wsnt:NotificationMessage, xop:Include)
// or an anonymous type declared inside another element (tt:ItemList's SimpleItem).
// It keeps what was read verbatim and writes it back unchanged.
class ONVIFTYPES_EXPORT RawXml : public Serializable
{
public:
    QString unmatchedElements; // always empty: nothing is unknown here
    QString unmatchedAttributes; // always empty
    // The element's attributes as written (name with any prefix, value), in the
    // order the parser gives them.
    QVector<QPair<QString, QString>> attributes;
    // Everything between the start and end tag, as XML text.
    QString content;

    // The value of the attribute named name, or a null string.
    QString attribute(const QString& name) const;

    // The whole element named tagName; with an empty name only the content.
    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
    // The text of serialize() appended to out: the generated classes' way of writing.
    void serializeTo(QString& out, QLatin1String tagName) const;

private:
    void write(QString& out, const QString& tagName) const;
};

#endif // ONVIFTYPES_SCHEMA_RAWXML_H
