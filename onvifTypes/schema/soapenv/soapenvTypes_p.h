#ifndef ONVIFTYPES_SOAPENV_TYPES_P_H
#define ONVIFTYPES_SOAPENV_TYPES_P_H

#include <onvifTypes/serializable.h>

#include <QDomNamedNodeMap>
#include <QDomNodeList>

// Shared plumbing of the hand-written envelope types: the element frame and the
// walk over children that keeps what it does not know as text.
namespace soapenv {
namespace detail_p {

inline QString element(const QString& name, const char* ownName, const QString& content)
{
    const QString tag = name.isEmpty() ? QLatin1String("soapenv:") + QLatin1String(ownName) : name;
    return QLatin1Char('<') + tag + QLatin1String(" >") + content + QLatin1String("</") + tag + QLatin1Char('>');
}

// Calls match(localName, child) for every child element; a false answer files the
// child under unmatchedElements. Every attribute is unmatched for these types.
template<typename Match>
void readChildren(const QDomNode& node, QString& unmatchedElements, QString& unmatchedAttributes, Match match)
{
    const QDomNodeList children = node.childNodes();
    for (int i = 0; i < children.size(); ++i) {
        QDomNode child = children.at(i);
        if (!child.isElement())
            continue;
        if (!match(Utilites::delNameSpacePrefix(child.nodeName()), child))
            unmatchedElements += Utilites::nodeToText(child) + QLatin1Char('\n');
    }
    const QDomNamedNodeMap attributes = node.attributes();
    for (int i = 0; i < attributes.size(); ++i)
        unmatchedAttributes += Utilites::nodeToText(attributes.item(i)) + QLatin1Char('\n');
}

} // namespace detail_p
} // namespace soapenv

#endif
