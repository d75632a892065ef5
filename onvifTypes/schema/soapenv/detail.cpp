#include "onvifTypes/schema/soapenv/detail.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

QString detail::serialize(const QString& tagName) const
{
    return detail_p::element(tagName, "detail", QString());
}

void detail::deserialize(const QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [](const QString&, const QDomNode&) { return false; });
}

} // namespace soapenv
