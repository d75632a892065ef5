#include "onvifTypes/schema/soapenv/faultreason.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

QString faultreason::serialize(const QString& tagName) const
{
    QString content;
    for (const auto& text : Text)
        content += text.serialize(QStringLiteral("soapenv:Text"));
    return detail_p::element(tagName, "faultreason", content);
}

void faultreason::deserialize(const QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [this](const QString& name, const QDomNode& child) {
            if (name != QLatin1String("Text"))
                return false;
            universalSimpleType<QString> text;
            text.deserialize(child);
            Text.append(text);
            return true;
        });
}

} // namespace soapenv
