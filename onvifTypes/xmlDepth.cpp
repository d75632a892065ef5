#include "onvifTypes/xmlDepth_p.h"

#include <QDomDocument>
#include <QXmlStreamReader>

namespace Utilites {

namespace {

// Exact, token by token; needed where entities may expand into markup.
bool depthWithinLimitByTokens(const QString& text)
{
    QXmlStreamReader reader(text);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > kMaxXmlDepth)
                return false;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        default:
            break;
        }
    }
    return true;
}

// Index just past `terminator` at or after `from`, or the end of the text.
int skipPast(const QString& text, int from, QLatin1String terminator)
{
    const int at = text.indexOf(terminator, from);
    return at < 0 ? text.size() : at + terminator.size();
}

} // namespace

bool xmlDepthWithinLimit(const QString& text)
{
    // A scan of the markup alone costs a fraction of tokenising; it reads comments,
    // CDATA, instructions and quoted attribute values as the parser does, so a
    // well-formed text can't hide depth from it.
    if (text.contains(QLatin1String("<!DOCTYPE")))
        return depthWithinLimitByTokens(text);
    const QChar* data = text.constData();
    const int size = text.size();
    int depth = 0;
    int i = text.indexOf(QLatin1Char('<'));
    while (i >= 0 && i < size) {
        if (text.midRef(i, 4) == QLatin1String("<!--")) {
            i = skipPast(text, i + 4, QLatin1String("-->"));
        } else if (text.midRef(i, 9) == QLatin1String("<![CDATA[")) {
            i = skipPast(text, i + 9, QLatin1String("]]>"));
        } else if (text.midRef(i, 2) == QLatin1String("<?")) {
            i = skipPast(text, i + 2, QLatin1String("?>"));
        } else if (text.midRef(i, 2) == QLatin1String("</")) {
            --depth;
            i = skipPast(text, i + 2, QLatin1String(">"));
        } else {
            // A start tag: find its end outside quoted values.
            QChar quote;
            int j = i + 1;
            for (; j < size; ++j) {
                const QChar c = data[j];
                if (!quote.isNull()) {
                    if (c == quote)
                        quote = QChar();
                } else if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
                    quote = c;
                } else if (c == QLatin1Char('>')) {
                    break;
                }
            }
            if (j >= size || data[j - 1] != QLatin1Char('/')) {
                if (++depth > kMaxXmlDepth)
                    return false;
            }
            i = j + 1;
        }
        if (i < size)
            i = text.indexOf(QLatin1Char('<'), i);
    }
    return true;
}

bool parseDocument(QDomDocument& document, const QString& text)
{
    if (!xmlDepthWithinLimit(text)) {
        document.clear();
        return false;
    }
    // The stream reader builds the same namespace-aware tree at well under half the
    // cost of the SAX-based QString overload, but refuses what that one forgives
    // (undeclared prefixes, which some devices send): those get the forgiving parser.
    QXmlStreamReader reader(text);
    if (document.setContent(&reader, true) || document.setContent(text, true))
        return true;
    document.clear();
    return false;
}

} // namespace Utilites
