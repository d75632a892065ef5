#include "onvifTypes/schema/soapenv/Fault.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

Fault::Fault()
    : Code(new faultcode)
    , Reason(new faultreason)
{
}

QString Fault::serialize(QString tagName)
{
    QString content = Code->serialize(QStringLiteral("soapenv:Code"));
    content += Reason->serialize(QStringLiteral("soapenv:Reason"));
    if (Node)
        content += Node->serialize(QStringLiteral("soapenv:Node"));
    if (Role)
        content += Role->serialize(QStringLiteral("soapenv:Role"));
    if (Detail)
        content += Detail->serialize(QStringLiteral("soapenv:Detail"));
    return detail_p::element(tagName, "Fault", content);
}

void Fault::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [this](const QString& name, QDomNode& child) {
            if (name == QLatin1String("Code")) {
                Code->deserialize(child);
            } else if (name == QLatin1String("Reason")) {
                Reason->deserialize(child);
            } else if (name == QLatin1String("Node")) {
                if (!Node)
                    Node.reset(new universalSimpleType<QString>);
                Node->deserialize(child);
            } else if (name == QLatin1String("Role")) {
                if (!Role)
                    Role.reset(new universalSimpleType<QString>);
                Role->deserialize(child);
            } else if (name == QLatin1String("Detail")) {
                if (!Detail)
                    Detail.reset(new detail);
                Detail->deserialize(child);
            } else {
                return false;
            }
            return true;
        });
}

} // namespace soapenv
