#include "onvifTypes/schema/soapenv/subcode.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

subcode::subcode()
    : Value(new universalSimpleType<QString>)
{
}

QString subcode::serialize(QString tagName)
{
    QString content = Value->serialize(QStringLiteral("soapenv:Value"));
    if (Subcode)
        content += Subcode->serialize(QStringLiteral("soapenv:Subcode"));
    return detail_p::element(tagName, "subcode", content);
}

void subcode::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [this](const QString& name, QDomNode& child) {
            if (name == QLatin1String("Value")) {
                Value->deserialize(child);
            } else if (name == QLatin1String("Subcode")) {
                if (!Subcode)
                    Subcode.reset(new subcode);
                Subcode->deserialize(child);
            } else {
                return false;
            }
            return true;
        });
}

} // namespace soapenv
