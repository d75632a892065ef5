#include "onvifTypes/schema/soapenv/Header.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

QString Header::serialize(QString tagName)
{
    return detail_p::element(tagName, "Header", QString());
}

void Header::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [](const QString&, const QDomNode&) { return false; });
}

} // namespace soapenv
