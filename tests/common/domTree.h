#ifndef ONVIFTYPES_TESTS_DOMTREE_H
#define ONVIFTYPES_TESTS_DOMTREE_H

#include <QDomDocument>
#include <QStringList>
#include <QXmlStreamReader>

// One line per node with everything QDom tells about it: kind, names, namespace and
// value, null and empty told apart. Attributes are sorted, as QDom's order varies per
// process. Recursive: callers keep trees shallow (see parsedByQt).
inline void appendDomTree(const QDomNode& node, int indent, QString& out)
{
    const auto field = [](const QString& value) {
        return value.isNull() ? QStringLiteral("null") : QLatin1Char('"') + value + QLatin1Char('"');
    };
    const auto describe = [&](const QDomNode& n) {
        return QStringLiteral("%1 %2 ns=%3 prefix=%4 local=%5 value=%6\n")
            .arg(n.nodeType())
            .arg(field(n.nodeName()), field(n.namespaceURI()), field(n.prefix()), field(n.localName()),
                field(n.nodeValue()));
    };
    out += QString(indent, QLatin1Char(' ')) + describe(node);
    QStringList attributes;
    const QDomNamedNodeMap map = node.attributes();
    for (int i = 0; i < map.count(); ++i)
        attributes << QString(indent + 2, QLatin1Char(' ')) + QLatin1Char('@') + describe(map.item(i));
    attributes.sort();
    out += attributes.join(QString());
    for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
        appendDomTree(child, indent + 2, out);
}

inline QString domTree(const QDomNode& node)
{
    QString out;
    if (!node.isNull() && node.hasChildNodes())
        appendDomTree(node, 0, out);
    return out;
}

// Deepest element nesting of a text, by the stream reader's tokens; -1 if it errs first.
inline int xmlNesting(const QString& text)
{
    QXmlStreamReader reader(text);
    int depth = 0;
    int deepest = 0;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::StartElement)
            deepest = qMax(deepest, ++depth);
        else if (token == QXmlStreamReader::EndElement)
            --depth;
    }
    return reader.hasError() ? -1 : deepest;
}

// A rough nesting count from the markup alone, for texts the stream reader refuses:
// tags are counted as they open and close, comments and instructions skipped.
inline int markupNesting(const QString& text)
{
    int depth = 0;
    int deepest = 0;
    for (int i = text.indexOf(QLatin1Char('<')); i >= 0 && i + 1 < text.size();
         i = text.indexOf(QLatin1Char('<'), i + 1)) {
        const QChar next = text.at(i + 1);
        if (next == QLatin1Char('/')) {
            --depth;
        } else if (next != QLatin1Char('!') && next != QLatin1Char('?')) {
            const int end = text.indexOf(QLatin1Char('>'), i);
            if (end < 0 || text.at(end - 1) != QLatin1Char('/'))
                deepest = qMax(deepest, ++depth);
        }
    }
    return deepest;
}

// The tree Qt builds for a reply: the stream reader's, or where it refuses the text,
// the forgiving SAX-based parser's; empty when both refuse. Texts nested deeper than
// `maxDepth` are not built (their trees would overflow the stack when freed): empty,
// and *tooDeep set.
inline QString parsedByQt(const QString& text, int maxDepth, bool* tooDeep = nullptr)
{
    const int nesting = xmlNesting(text);
    const bool deep = nesting > maxDepth || (nesting < 0 && markupNesting(text) > maxDepth);
    if (tooDeep)
        *tooDeep = deep;
    if (deep)
        return QString();
    QDomDocument document;
    QXmlStreamReader reader(text);
    if (!document.setContent(&reader, true) && !document.setContent(text, true))
        return QString();
    return domTree(document);
}

#endif // ONVIFTYPES_TESTS_DOMTREE_H
