#ifndef ONVIFTYPES_SERIALIZABLE_H
#define ONVIFTYPES_SERIALIZABLE_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QDomNode>
#include <QPair>
#include <QString>

// Every value that travels in a SOAP message. Output is built as text (never
// through a DOM writer); input is read from a parsed DOM node, element or attribute.
class ONVIFTYPES_EXPORT Serializable
{
public:
    Serializable() = default;
    Serializable(const Serializable&) = default;
    Serializable& operator=(const Serializable&) = default;
    virtual ~Serializable();

    // The whole element named tagName, or only the content when tagName is empty.
    virtual QString serialize(QString tagName) = 0;
    // Fills the object from an element or attribute node.
    virtual void deserialize(QDomNode& node) = 0;
};

// An empty SOAP header or body.
class ONVIFTYPES_EXPORT EmptyOnvifType : public Serializable
{
public:
    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

// Several blocks standing where one Serializable is expected (e.g. header blocks).
class ONVIFTYPES_EXPORT SerializableContainer : public Serializable
{
public:
    void append(Serializable& item);
    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;

private:
    QString m_text;
};

class ONVIFTYPES_EXPORT TypeConvertor
{
public:
    template <typename T> static QString convertToString(const T& value);
    template <typename T> static T convertFromString(const QString& text);
};

template <> ONVIFTYPES_EXPORT QString TypeConvertor::convertToString<QString>(const QString& value);
template <> ONVIFTYPES_EXPORT QString TypeConvertor::convertToString<int>(const int& value);
template <> ONVIFTYPES_EXPORT QString TypeConvertor::convertToString<float>(const float& value);
template <> ONVIFTYPES_EXPORT QString TypeConvertor::convertToString<bool>(const bool& value);
template <> ONVIFTYPES_EXPORT QString TypeConvertor::convertFromString<QString>(const QString& text);
template <> ONVIFTYPES_EXPORT int TypeConvertor::convertFromString<int>(const QString& text);
template <> ONVIFTYPES_EXPORT float TypeConvertor::convertFromString<float>(const QString& text);
template <> ONVIFTYPES_EXPORT bool TypeConvertor::convertFromString<bool>(const QString& text);

namespace Utilites {

// "s:Envelope" -> "Envelope"; "a:b:c" -> "b:c"; a name without ':' is returned as is.
ONVIFTYPES_EXPORT QString delNameSpacePrefix(const QString& name);
// The node's own markup, children included, as XML text.
ONVIFTYPES_EXPORT QString nodeToText(const QDomNode& node);
// Splits a base class's serialisation (written under the marker "_MagicString_")
// into (content, attribute text) so that a derived class can embed it.
ONVIFTYPES_EXPORT QPair<QString, QString> serializeParent(const QString& text);
// Text of an attribute node, or the concatenated text of an element node.
ONVIFTYPES_EXPORT QString nodeText(const QDomNode& node);

// Appends <tagName>text</tagName>, or only the text when tagName is empty.
template <typename Tag> void appendElement(QString& out, const Tag& tagName, const QString& text)
{
    if (tagName.isEmpty()) {
        out += text;
        return;
    }
    out += QLatin1Char('<');
    out += tagName;
    out += QLatin1Char('>');
    out += text;
    out += QLatin1String("</");
    out += tagName;
    out += QLatin1Char('>');
}

} // namespace Utilites

// A simple value (QString, int, float or bool) as an element or attribute.
// Numbers and booleans start at zero/false so that no read is ever undefined.
template <typename T> class universalSimpleType : public Serializable
{
public:
    universalSimpleType()
        : m_value()
    { }
    explicit universalSimpleType(const T& value)
        : m_value(value)
    { }

    const T& value() const { return m_value; }
    void setValue(const T& value) { m_value = value; }

    QString serialize(QString tagName) override
    {
        QString out;
        Utilites::appendElement(out, tagName, TypeConvertor::convertToString<T>(m_value));
        return out;
    }

    void deserialize(QDomNode& node) override
    {
        m_value = TypeConvertor::convertFromString<T>(Utilites::nodeText(node));
    }

    // The text of serialize() appended to out: the generated classes' way of writing.
    void serializeTo(QString& out, QLatin1String tagName) const
    {
        Utilites::appendElement(out, tagName, TypeConvertor::convertToString<T>(m_value));
    }

private:
    T m_value;
};

extern template class ONVIFTYPES_EXPORT universalSimpleType<QString>;
extern template class ONVIFTYPES_EXPORT universalSimpleType<int>;
extern template class ONVIFTYPES_EXPORT universalSimpleType<float>;
extern template class ONVIFTYPES_EXPORT universalSimpleType<bool>;

#endif // ONVIFTYPES_SERIALIZABLE_H
