#include "onvifTypes/onvifResponse.h"

#include "onvifTypes/schema/soapenv/Fault.h"
#include "onvifTypes/serializable.h"
#include "onvifTypes/xmlDocument_p.h"

namespace {

QString localNameOf(const QDomElement& element)
{
    const QString local = element.localName();
    return local.isEmpty() ? Utilites::delNameSpacePrefix(element.tagName()) : local;
}

// Document order, without recursion: replies may nest deeper than the stack allows.
QDomElement firstDescendant(const QDomElement& root, const QString& localName)
{
    if (root.isNull())
        return QDomElement();
    QDomElement current = root.firstChildElement();
    while (!current.isNull()) {
        if (localNameOf(current) == localName)
            return current;
        const QDomElement child = current.firstChildElement();
        if (!child.isNull()) {
            current = child;
            continue;
        }
        while (!current.isNull() && current != root) {
            const QDomElement sibling = current.nextSiblingElement();
            if (!sibling.isNull()) {
                current = sibling;
                break;
            }
            current = current.parentNode().toElement();
        }
        if (current == root)
            break;
    }
    return QDomElement();
}

soapenv::Fault readFault(const QDomElement& node)
{
    soapenv::Fault fault;
    QDomNode faultNode = node;
    if (!faultNode.isNull())
        fault.deserialize(faultNode);
    return fault;
}

} // namespace

OnvifResponse::OnvifResponse(const QString& text)
{
    Utilites::parseDocument(m_document, text, &m_parseError);
}

bool OnvifResponse::isFault() const
{
    return !getFaultNode().isNull();
}

QDomElement OnvifResponse::getFaultNode() const
{
    return getNodeByTag(QStringLiteral("Fault"));
}

QDomElement OnvifResponse::getNodeByTag(const QString& localName) const
{
    return firstDescendant(m_document.documentElement(), localName);
}

bool OnvifResponse::isAuthFault() const
{
    const QDomElement node = getFaultNode();
    if (node.isNull())
        return false;
    const soapenv::Fault fault = readFault(node);
    return fault.Code->Subcode
        && fault.Code->Subcode->Value->value().contains(QLatin1String("NotAuthorized"), Qt::CaseInsensitive);
}

Onvif::SoapFault OnvifResponse::fault() const
{
    return Onvif::SoapFault::fromElement(getFaultNode());
}

QString OnvifResponse::getFaultText() const
{
    const soapenv::Fault fault = readFault(getFaultNode());
    QString text = QStringLiteral("Fault detail: ");
    text += QLatin1String(" Code: ") + fault.Code->Value->value();
    if (fault.Code->Subcode)
        text += QLatin1String("; Subcode: ") + fault.Code->Subcode->Value->value();
    for (const auto& reason : fault.Reason->Text)
        text += QLatin1String("; Reason: ") + reason.value();
    if (fault.Node)
        text += QLatin1String("; Node: ") + fault.Node->value();
    if (fault.Role)
        text += QLatin1String("; Role: ") + fault.Role->value();
    return text;
}
