#ifndef ONVIFTYPES_ONVIFRESPONSE_H
#define ONVIFTYPES_ONVIFRESPONSE_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QDomDocument>
#include <QDomElement>

// One parsed SOAP reply. An unparsable reply is kept as an empty document: it is
// then no fault and has no elements, so callers fall back to default values.
class ONVIFTYPES_EXPORT OnvifResponse
{
public:
    explicit OnvifResponse(const QString& text);

    // A descendant element with the local name "Fault", whatever its prefix.
    bool isFault() const;
    QDomElement getFaultNode() const;
    // True when the fault's first-level Subcode value contains "NotAuthorized" (any case).
    bool isAuthFault() const;
    // One line for the log: "Fault detail:  Code: ...; Subcode: ...; Reason: ...".
    QString getFaultText() const;
    // The first descendant element of the document element with this local name.
    QDomElement getNodeByTag(const QString& localName) const;

    const QDomDocument& document() const { return m_document; }

private:
    QDomDocument m_document;
};

#endif // ONVIFTYPES_ONVIFRESPONSE_H
