#include "onvifTypes/schema/rawXml.h"

#include <QDomNamedNodeMap>
#include <QDomNodeList>

QString RawXml::attribute(const QString& name) const
{
    for (const auto& attribute : attributes) {
        if (attribute.first == name)
            return attribute.second;
    }
    return QString();
}

QString RawXml::serialize(QString tagName)
{
    QString text;
    write(text, tagName);
    return text;
}

void RawXml::serializeTo(QString& out, QLatin1String tagName) const
{
    write(out, QString(tagName));
}

void RawXml::write(QString& out, const QString& tagName) const
{
    if (tagName.isEmpty()) {
        out += content;
        return;
    }
    out += QLatin1Char('<') + tagName + QLatin1Char(' ');
    for (const auto& attribute : attributes)
        out += attribute.first + QLatin1String("=\"") + attribute.second + QLatin1String("\" ");
    out += QLatin1Char('>') + content + QLatin1String("</") + tagName + QLatin1Char('>');
}

void RawXml::deserialize(QDomNode& node)
{
    attributes.clear();
    content.clear();
    if (!node.isElement()) {
        // An attribute node carries only a value.
        content = Utilites::nodeText(node);
        return;
    }
    const QDomNamedNodeMap map = node.attributes();
    for (int i = 0, n = map.size(); i < n; ++i) {
        const QDomNode attribute = map.item(i);
        attributes.append(qMakePair(attribute.nodeName(), attribute.nodeValue()));
    }
    const QDomNodeList children = node.childNodes();
    for (int i = 0, n = children.size(); i < n; ++i)
        content += Utilites::nodeToText(children.at(i));
}
