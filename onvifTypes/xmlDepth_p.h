#ifndef ONVIFTYPES_XMLDEPTH_P_H
#define ONVIFTYPES_XMLDEPTH_P_H

#include <QString>
#include <QXmlStreamReader>

namespace Utilites {

// No ONVIF message comes near this; the limit keeps QDom's recursive parsing,
// walking and freeing of a tree, and the readers built on it, within the stack.
constexpr int kMaxXmlDepth = 512;

// Whether no element of the text lies deeper than kMaxXmlDepth. Checked without
// building a tree; a text that is not well-formed is left to the real parser.
inline bool xmlDepthWithinLimit(const QString& text)
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

} // namespace Utilites

#endif // ONVIFTYPES_XMLDEPTH_P_H
