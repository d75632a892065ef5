#include "onvifTypes/serializable.h"

#include <QBuffer>
#include <QDomAttr>
#include <QDomElement>
#include <QTextStream>

Serializable::~Serializable() = default;

QString EmptyOnvifType::serialize(const QString&) const
{
    return QString();
}

void EmptyOnvifType::deserialize(const QDomNode&) { }

void SerializableContainer::append(const Serializable& item)
{
    m_text += item.serialize(QString());
}

QString SerializableContainer::serialize(const QString&) const
{
    return m_text;
}

void SerializableContainer::deserialize(const QDomNode&) { }

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

QString nodeToText(const QDomNode& node)
{
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
