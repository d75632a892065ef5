#include "onvifTypes/schema/soapenv/faultreason.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

QString faultreason::serialize(QString tagName)
{
    QString content;
    for (auto& text : Text)
        content += text.serialize(QStringLiteral("soapenv:Text"));
    return detail_p::element(tagName, "faultreason", content);
}

void faultreason::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [this](const QString& name, QDomNode& child) {
            if (name != QLatin1String("Text"))
                return false;
            universalSimpleType<QString> text;
            text.deserialize(child);
            Text.append(text);
            return true;
        });
}

} // namespace soapenv
