// The library's reply parser against Qt's: for any text, the tree it builds must be Qt's
// own, within the limits; where it refuses a text Qt reads, the text must be past a limit
// or carry a DTD or an entity reference. Aborts with both trees when that does not hold.
#include "fuzzCommon.h"

#include "domTree.h"

#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/transport/limits.h>

#include <QRegularExpression>

#include <cstdio>
#include <cstdlib>

namespace {

// Small enough for the fuzzer's inputs to reach every limit.
Onvif::Limits fuzzLimits()
{
    Onvif::Limits limits = Onvif::Limits::defaults();
    limits.maxXmlElements = 4000;
    limits.maxXmlAttributesPerElement = 32;
    Onvif::Limits::setDefaults(limits);
    return limits;
}

struct Shape
{
    int depth = 0;
    int elements = 0;
};

Shape shapeOf(const QDomNode& node, int depth = 0)
{
    Shape shape;
    for (QDomElement child = node.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        const Shape inner = shapeOf(child, depth + 1);
        shape.depth = qMax(shape.depth, inner.depth);
        shape.elements += inner.elements + 1;
    }
    shape.depth = qMax(shape.depth, depth);
    return shape;
}

// Attributes of the fullest start tag, namespace declarations included.
int mostAttributes(const QString& text)
{
    QXmlStreamReader reader(text);
    reader.setNamespaceProcessing(false);
    int most = 0;
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement)
            most = qMax(most, reader.attributes().size());
    }
    return most;
}

bool refusalHolds(const QString& text, const QString& reason, const Onvif::Limits& limits, bool tooDeep)
{
    QDomDocument qt;
    QXmlStreamReader reader(text);
    if (!tooDeep && !qt.setContent(&reader, true))
        qt.setContent(text, true);
    const Shape shape = shapeOf(qt);
    if (reason.contains(QLatin1String("(maxXmlDepth)")))
        return tooDeep || shape.depth > limits.maxXmlDepth;
    if (reason.contains(QLatin1String("(maxXmlElements)")))
        return shape.elements > limits.maxXmlElements;
    if (reason.contains(QLatin1String("(maxXmlAttributesPerElement)")))
        return mostAttributes(text) > limits.maxXmlAttributesPerElement
            || text.count(QLatin1Char('=')) > limits.maxXmlAttributesPerElement;
    if (reason.contains(QLatin1String("(maxReplyBytes)")))
        return text.size() > limits.maxReplyBytes;
    if (reason.contains(QLatin1String("document type")))
        return text.contains(QLatin1String("<!"));
    if (reason.contains(QLatin1String("no entities")))
        return text.contains(QRegularExpression(QStringLiteral("&(?!(lt|gt|amp|quot|apos|#[0-9]+|#x[0-9a-fA-F]+);)")));
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const Onvif::Limits limits = fuzzLimits();
    FuzzCommon::takeSelector(data, size); // unused; keeps the shared XML seeds readable
    const QString text = FuzzCommon::replyText(data, size);
    bool tooDeep = false;
    const QString expected = parsedByQt(text, limits.maxXmlDepth, &tooDeep);
    const OnvifResponse response(text);
    const QString built = domTree(response.document());
    bool holds = built == expected;
    if (response.isReadable()) {
        const Shape shape = shapeOf(response.document());
        holds = holds && shape.depth <= limits.maxXmlDepth && shape.elements <= limits.maxXmlElements;
    } else if (!expected.isEmpty()) {
        holds = refusalHolds(text, response.parseError(), limits, tooDeep);
    }
    if (!holds) {
        std::fprintf(stderr, "trees differ (%s)\n-- library\n%s-- Qt\n%s", qPrintable(response.parseError()),
            qPrintable(built), qPrintable(expected));
        std::abort();
    }
    return 0;
}
