#include "onvifTypes/soapFault.h"

#include <QDomElement>

namespace Onvif {

namespace {

QString localPart(const QString& qualified)
{
    return qualified.mid(qualified.lastIndexOf(QLatin1Char(':')) + 1);
}

// Children by local name, whatever prefix the device chose.
QDomElement child(const QDomElement& parent, const QString& localName)
{
    for (QDomElement e = parent.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        const QString name = e.localName().isEmpty() ? localPart(e.tagName()) : e.localName();
        if (name == localName)
            return e;
    }
    return QDomElement();
}

} // namespace

bool SoapFault::isAuthFault() const
{
    for (const QString& subcode : subcodes) {
        if (localPart(subcode).compare(QLatin1String("NotAuthorized"), Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

QString SoapFault::toString() const
{
    QString text = subcodes.isEmpty() ? code : subcodes.last();
    if (!subcodes.isEmpty() && !code.isEmpty())
        text += QLatin1String(" (") + code + QLatin1Char(')');
    if (!reasons.isEmpty())
        text += QLatin1String(": ") + reasons.join(QLatin1String("; "));
    return text;
}

SoapFault SoapFault::fromElement(const QDomElement& fault)
{
    SoapFault result;
    if (fault.isNull())
        return result;
    const QDomElement code = child(fault, QStringLiteral("Code"));
    result.code = localPart(child(code, QStringLiteral("Value")).text().trimmed());
    // A loop, not recursion: the chain is as deep as the (bounded) document lets it be.
    for (QDomElement sub = child(code, QStringLiteral("Subcode")); !sub.isNull();
         sub = child(sub, QStringLiteral("Subcode")))
        result.subcodes.append(child(sub, QStringLiteral("Value")).text().trimmed());
    const QDomElement reason = child(fault, QStringLiteral("Reason"));
    for (QDomElement e = reason.firstChildElement(); !e.isNull(); e = e.nextSiblingElement())
        result.reasons.append(e.text().trimmed());
    result.node = child(fault, QStringLiteral("Node")).text().trimmed();
    result.role = child(fault, QStringLiteral("Role")).text().trimmed();
    if (code.isNull()) {
        // SOAP 1.1, still sent by some older firmware.
        result.code = localPart(child(fault, QStringLiteral("faultcode")).text().trimmed());
        const QString text = child(fault, QStringLiteral("faultstring")).text().trimmed();
        if (!text.isEmpty())
            result.reasons.append(text);
    }
    return result;
}

} // namespace Onvif
