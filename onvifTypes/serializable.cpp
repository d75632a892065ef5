#include "onvifTypes/serializable.h"

#include <QBuffer>
#include <QDomAttr>
#include <QDomElement>
#include <QDomNamedNodeMap>
#include <QSet>
#include <QTextStream>

Serializable::~Serializable() = default;

QString EmptyOnvifType::serialize(QString)
{
    return QString();
}

void EmptyOnvifType::deserialize(QDomNode&) { }

void SerializableContainer::append(Serializable& item)
{
    m_text += item.serialize(QString());
}

QString SerializableContainer::serialize(QString)
{
    return m_text;
}

void SerializableContainer::deserialize(QDomNode&) { }

template <> QString TypeConvertor::convertToString<QString>(const QString& value)
{
    return value;
}

template <> QString TypeConvertor::convertToString<int>(const int& value)
{
    return QString::number(value, 10);
}

template <> QString TypeConvertor::convertToString<float>(const float& value)
{
    // Same text as printf's %g.
    return QString::number(double(value), 'g', 6);
}

template <> QString TypeConvertor::convertToString<bool>(const bool& value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

template <> QString TypeConvertor::convertFromString<QString>(const QString& text)
{
    return text;
}

namespace {

// QString's number parsers forgive surrounding blanks; values from a device must
// be the number and nothing else.
bool hasBlank(const QString& text)
{
    for (const QChar c : text) {
        if (c.isSpace())
            return true;
    }
    return false;
}

} // namespace

template <> int TypeConvertor::convertFromString<int>(const QString& text)
{
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    return ok && !hasBlank(text) ? value : 0;
}

template <> float TypeConvertor::convertFromString<float>(const QString& text)
{
    bool ok = false;
    const float value = text.toFloat(&ok);
    return ok && !hasBlank(text) ? value : 0.0f;
}

template <> bool TypeConvertor::convertFromString<bool>(const QString& text)
{
    // Deliberately one-sided: only "false" in any letter case is false.
    return text.toUpper() != QLatin1String("FALSE");
}

namespace Utilites {

QString delNameSpacePrefix(const QString& name)
{
    const int colon = name.indexOf(QLatin1Char(':'));
    return colon < 0 ? name : name.mid(colon + 1);
}

namespace {

// QDom's writer asks the stream's codec about every character, which made it most of
// the cost of reading a reply with unknown elements. Nodes made of ASCII elements,
// attributes and text are written here by the same rules; anything else (other
// characters, CDATA, comments, instructions, entities) goes to QDom itself.
class AsciiNodeWriter
{
public:
    bool write(const QDomNode& node)
    {
        if (node.isAttr()) {
            // QDom compares with its owner's prefix; a detached attribute's owner is
            // the document, which has none.
            const QDomNode owner = node.parentNode();
            return attribute(node.toAttr(), owner.isNull() ? QString() : owner.prefix(), nullptr);
        }
        if (node.isElement())
            return element(node.toElement());
        if (node.isText() && !node.isCDATASection())
            return text(node.toText());
        return false;
    }
    QString result;

private:
    enum Escape { Quotes = 1, Blanks = 2, Returns = 4 };

    // Mirrors QDom's escaping; false for a character it would look up in the codec.
    bool escaped(const QString& value, int escape)
    {
        result.reserve(result.size() + value.size());
        const int start = result.size();
        for (const QChar c : value) {
            const ushort u = c.unicode();
            if (u >= 0x80)
                return false;
            const int n = result.size();
            if (u == '<')
                result += QLatin1String("&lt;");
            else if (u == '"' && (escape & Quotes))
                result += QLatin1String("&quot;");
            else if (u == '&')
                result += QLatin1String("&amp;");
            else if (u == '>' && n - start >= 2 && result.at(n - 1) == QLatin1Char(']')
                && result.at(n - 2) == QLatin1Char(']'))
                result += QLatin1String("&gt;");
            else if ((escape & Blanks) && (u == '\n' || u == '\r' || u == '\t'))
                result += QLatin1String("&#x") + QString::number(u, 16) + QLatin1Char(';');
            else if ((escape & Returns) && u == '\r')
                result += QLatin1String("&#xd;");
            else
                result += c;
        }
        return true;
    }

    static QString unprefixed(const QDomNode& node)
    {
        const QString name = node.nodeName();
        const QString prefix = node.prefix();
        return prefix.isEmpty() ? name : name.mid(prefix.size() + 1);
    }

    // A name QDom writes: without namespace it drops the prefix, with one it keeps it.
    static QString writtenName(const QDomNode& node)
    {
        return node.namespaceURI().isNull() ? unprefixed(node) : node.nodeName();
    }

    bool nameIsAscii(const QString& name)
    {
        for (const QChar c : name) {
            if (c.unicode() >= 0x80)
                return false;
        }
        return true;
    }

    // `declared` collects the prefixes an element has declared for its attributes; a
    // lone attribute (none) declares its own.
    bool attribute(const QDomAttr& attr, const QString& ownerPrefix, QSet<QString>* declared)
    {
        const QString name = writtenName(attr);
        if (!nameIsAscii(name))
            return false;
        result += name + QLatin1String("=\"");
        if (!escaped(attr.value(), Quotes | Blanks))
            return false;
        result += QLatin1Char('"');
        if (attr.namespaceURI().isNull())
            return true;
        const QString prefix = attr.prefix();
        if (ownerPrefix != prefix && (!declared || !declared->contains(prefix))) {
            if (declared)
                declared->insert(prefix);
            result += QLatin1String(" xmlns:") + prefix + QLatin1String("=\"");
            if (!escaped(attr.namespaceURI(), Quotes | Blanks))
                return false;
            result += QLatin1Char('"');
        }
        return true;
    }

    bool text(const QDomText& node)
    {
        const QDomNode parent = node.parentNode();
        return escaped(node.data(), (parent.isNull() || !parent.isElement() ? Quotes : 0) | Returns);
    }

    bool element(const QDomElement& node)
    {
        const QString name = writtenName(node);
        if (!nameIsAscii(name))
            return false;
        result += QLatin1Char('<') + name;
        if (!node.namespaceURI().isNull()) {
            const QString prefix = node.prefix();
            result += prefix.isEmpty() ? QLatin1String(" xmlns") : QLatin1String(" xmlns:") + prefix;
            result += QLatin1String("=\"");
            if (!escaped(node.namespaceURI(), Quotes))
                return false;
            result += QLatin1Char('"');
        }
        const QDomNamedNodeMap attributes = node.attributes();
        const QString prefix = node.prefix();
        QSet<QString> declared;
        for (int i = 0, n = attributes.size(); i < n; ++i) {
            result += QLatin1Char(' ');
            if (!attribute(attributes.item(i).toAttr(), prefix, &declared))
                return false;
        }
        QDomNode child = node.firstChild();
        if (child.isNull()) {
            result += QLatin1String("/>");
        } else {
            result += child.isText() ? QLatin1String(">") : QLatin1String(">\n");
            for (; !child.isNull(); child = child.nextSibling()) {
                if (!write(child))
                    return false;
            }
            result += QLatin1String("</") + name + QLatin1Char('>');
        }
        if (!node.nextSibling().isText())
            result += QLatin1Char('\n');
        return true;
    }
};

} // namespace

QString nodeToText(const QDomNode& node)
{
    AsciiNodeWriter writer;
    if (writer.write(node))
        return writer.result;
    QByteArray bytes;
    QTextStream stream(&bytes);
    node.save(stream, 0);
    stream.flush();
    stream.seek(0);
    return stream.readAll();
}

QPair<QString, QString> serializeParent(const QString& text)
{
    static const QString marker = QStringLiteral("_MagicString_");
    QPair<QString, QString> result;
    const int p = text.indexOf(marker);
    if (p < 0)
        return result;
    const int g = text.indexOf(QLatin1Char('>'));
    if (g < 0)
        return result;
    const int attributesStart = p + marker.size();
    if (g > attributesStart)
        result.second = text.mid(attributesStart, g - attributesStart);
    const int l = text.lastIndexOf(QLatin1Char('<'));
    if (l < 0)
        return result;
    if (l > g)
        result.first = text.mid(g + 1, l - g - 1);
    return result;
}

QString nodeText(const QDomNode& node)
{
    if (node.isAttr())
        return node.toAttr().value();
    return node.toElement().text();
}

} // namespace Utilites

template class universalSimpleType<QString>;
template class universalSimpleType<int>;
template class universalSimpleType<float>;
template class universalSimpleType<bool>;
