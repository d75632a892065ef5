#ifndef ONVIFTYPES_STRINGENUMBASE_H
#define ONVIFTYPES_STRINGENUMBASE_H

#include <onvifTypes/serializable.h>

#include <QVector>

// A schema enumeration of strings: a table of the allowed texts and the index of
// the current one. Writers go through index(); readers of what a device sent read
// value(), which stays empty until setValue() accepted a text.
class ONVIFTYPES_EXPORT StringEnumBase : public Serializable
{
public:
    StringEnumBase(unsigned int index, const QVector<QString>& table);
    StringEnumBase(const StringEnumBase&) = default;
    StringEnumBase& operator=(const StringEnumBase&) = default;
    ~StringEnumBase() override;

    // Selects the first entry equal to text; an unknown text changes nothing.
    void setValue(const QString& text);
    QString value() const { return m_value; }

    unsigned int index() const { return m_index; }
    void setIndex(unsigned int index) { m_index = index; }
    const QVector<QString>& table() const { return m_table; }

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
    // The text of serialize() appended to out: the generated classes' way of writing.
    void serializeTo(QString& out, QLatin1String tagName) const;

private:
    template <typename Tag> void write(QString& out, const Tag& tagName) const;

    QString m_value;
    unsigned int m_index;
    QVector<QString> m_table;
};

#endif // ONVIFTYPES_STRINGENUMBASE_H
