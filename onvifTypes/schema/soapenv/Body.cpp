#include "onvifTypes/schema/soapenv/Body.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

QString Body::serialize(QString tagName)
{
    return detail_p::element(tagName, "Body", QString());
}

void Body::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [](const QString&, const QDomNode&) { return false; });
}

} // namespace soapenv
