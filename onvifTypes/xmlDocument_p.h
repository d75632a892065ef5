#ifndef ONVIFTYPES_XMLDOCUMENT_P_H
#define ONVIFTYPES_XMLDOCUMENT_P_H

#include <QString>

class QDomDocument;

namespace Utilites {

// No ONVIF message comes near this; the limit keeps QDom's recursive parsing,
// walking and freeing of a tree, and the readers built on it, within the stack.
constexpr int kMaxXmlDepth = 512;

// Whether no element of the text lies deeper than kMaxXmlDepth. Checked without
// building a tree; a text that is not well-formed is left to the real parser.
bool xmlDepthWithinLimit(const QString& text);

// Parses a reply with namespace processing into `document`: the tree is the one
// QDomDocument::setContent(QXmlStreamReader*, true) builds, or, for texts only the
// forgiving QString overload accepts, that one's. False (and an empty document)
// when the text is not well-formed or nests deeper than kMaxXmlDepth.
bool parseDocument(QDomDocument& document, const QString& text);

} // namespace Utilites

#endif // ONVIFTYPES_XMLDOCUMENT_P_H
