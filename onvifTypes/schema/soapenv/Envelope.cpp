#include "onvifTypes/schema/soapenv/Envelope.h"
#include "onvifTypes/schema/soapenv/soapenvTypes_p.h"

namespace soapenv {

Envelope::Envelope()
    : Body(new soapenv::Body)
{
}

QString Envelope::serialize(QString tagName)
{
    QString content;
    if (Header)
        content += Header->serialize(QStringLiteral("soapenv:Header"));
    content += Body->serialize(QStringLiteral("soapenv:Body"));
    return detail_p::element(tagName, "Envelope", content);
}

void Envelope::deserialize(QDomNode& node)
{
    detail_p::readChildren(node, unmatchedElements, unmatchedAttributes,
        [this](const QString& name, QDomNode& child) {
            if (name == QLatin1String("Header")) {
                if (!Header)
                    Header.reset(new soapenv::Header);
                Header->deserialize(child);
            } else if (name == QLatin1String("Body")) {
                Body->deserialize(child);
            } else {
                return false;
            }
            return true;
        });
}

} // namespace soapenv
