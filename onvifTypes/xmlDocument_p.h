#ifndef ONVIFTYPES_XMLDOCUMENT_P_H
#define ONVIFTYPES_XMLDOCUMENT_P_H

#include <onvifTypes/transport/limits.h>

#include <QString>

class QDomDocument;

namespace Utilites {

// Parses a reply with namespace processing into `document`: the tree is the one
// QDomDocument::setContent(QXmlStreamReader*, true) builds, or, for texts only the
// forgiving QString overload accepts, that one's.
//
// A camera's text is refused (false, an empty document, and *error says why) when it
// is not well-formed, is longer than limits.maxReplyBytes characters, nests deeper than
// limits.maxXmlDepth, has more than limits.maxXmlElements elements or more than
// limits.maxXmlAttributesPerElement attributes on one element, carries a document type
// declaration, or refers to any entity but the five predefined ones (character
// references aside): nothing is ever expanded. Time and memory stay linear in the text.
bool parseDocument(QDomDocument& document, const QString& text, const Onvif::Limits& limits, QString* error);
// The same with Onvif::Limits::defaults().
bool parseDocument(QDomDocument& document, const QString& text, QString* error = nullptr);

} // namespace Utilites

#endif // ONVIFTYPES_XMLDOCUMENT_P_H
