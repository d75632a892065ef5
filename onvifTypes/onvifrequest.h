#ifndef ONVIFTYPES_ONVIFREQUEST_H
#define ONVIFTYPES_ONVIFREQUEST_H

#include <onvifTypes/serializable.h>

// The complete SOAP 1.2 request text: a fixed envelope with the header's and the
// body's text put in.
class ONVIFTYPES_EXPORT OnvifRequest
{
public:
    // The body is asked for its text before the header.
    OnvifRequest(const Serializable& header, const Serializable& body);

    QString getMessage() const { return m_message; }

    // The envelope with its two placeholders, %0 for the header and %1 for the body.
    static QString envelopeTemplate();

private:
    QString m_message;
};

#endif // ONVIFTYPES_ONVIFREQUEST_H
