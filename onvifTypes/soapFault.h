#ifndef ONVIFTYPES_SOAPFAULT_H
#define ONVIFTYPES_SOAPFAULT_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QString>
#include <QStringList>

class QDomElement;

namespace Onvif {

// A SOAP 1.2 fault as a device sent it, for programs that act on it or show it. Codes are
// read as written: cameras prefix them with whatever their namespaces are called.
struct ONVIFTYPES_EXPORT SoapFault
{
    QString code; // the local name of Code/Value: "Sender", "Receiver", ...
    QStringList subcodes; // Subcode values as written, outermost first ("ter:ActionNotSupported")
    QStringList reasons; // every Reason/Text, in document order
    QString node;
    QString role;
    int httpStatus = 0; // the HTTP status it came with, when known

    bool isNull() const { return code.isEmpty() && subcodes.isEmpty() && reasons.isEmpty(); }
    // A subcode whose local name is NotAuthorized (any case), at any level.
    bool isAuthFault() const;
    // "ter:ActionNotSupported (Receiver): The operation is not supported"; the innermost
    // subcode names the fault best.
    QString toString() const;

    // The fault below a Fault element; a null element gives a null fault.
    static SoapFault fromElement(const QDomElement& fault);
};

} // namespace Onvif

#endif // ONVIFTYPES_SOAPFAULT_H
