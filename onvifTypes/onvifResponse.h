#ifndef ONVIFTYPES_ONVIFRESPONSE_H
#define ONVIFTYPES_ONVIFRESPONSE_H

#include <onvifTypes/onvifTypesGlobal.h>
#include <onvifTypes/soapFault.h>

#include <QDomDocument>
#include <QDomElement>

// One parsed SOAP reply. An unreadable reply (not well-formed, or past one of the
// Onvif::Limits on camera input) is kept as an empty document: it is then no fault and
// has no elements, so callers fall back to default values; isReadable() tells it apart.
class ONVIFTYPES_EXPORT OnvifResponse
{
public:
    OnvifResponse(const QString& text);

    // A descendant element with the local name "Fault", whatever its prefix.
    bool isFault() const;
    QDomElement getFaultNode() const;
    // True when the fault's first-level Subcode value contains "NotAuthorized" (any case).
    bool isAuthFault() const;
    // One line for the log: "Fault detail:  Code: ...; Subcode: ...; Reason: ...".
    QString getFaultText() const;
    // The fault with its codes as written (prefixes kept) and every reason; null when the
    // reply is no fault.
    Onvif::SoapFault fault() const;
    // The first descendant element of the document element with this local name.
    QDomElement getNodeByTag(const QString& localName) const;

    const QDomDocument& document() const { return m_document; }

    // False when the text could not be read as XML; parseError() then says why
    // (the limit it went past, or where it is not well-formed).
    bool isReadable() const { return m_parseError.isEmpty(); }
    QString parseError() const { return m_parseError; }

private:
    QDomDocument m_document;
    QString m_parseError;
};

#endif // ONVIFTYPES_ONVIFRESPONSE_H
