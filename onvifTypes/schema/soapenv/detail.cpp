#include "onvifTypes/schema/soapenv/detail.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

QString detail::serialize(QString tagName)
{
    return detail_p::element(tagName, "detail", QString());
}

void detail::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [](const QString&, const QDomNode&) { return false; });
}

} // namespace soapenv
