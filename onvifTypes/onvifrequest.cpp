#include "onvifTypes/onvifrequest.h"

namespace {

const QString& envelope()
{
    static const QString text = QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
        "<s:Envelope"
        " xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\""
        " xmlns:tt=\"http://www.onvif.org/ver10/schema\""
        " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
        " xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\""
        " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
        " xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\""
        " xmlns:a=\"http://www.w3.org/2005/08/addressing\""
        " xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\""
        " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
        " xmlns:tan=\"http://www.onvif.org/ver20/analytics/wsdl\""
        " >"
        "<s:Header>%0</s:Header>"
        "<s:Body"
        " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
        " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">"
        "%1</s:Body></s:Envelope>");
    return text;
}

} // namespace

OnvifRequest::OnvifRequest(const Serializable& header, const Serializable& body)
{
    const QString bodyText = body.serialize(QString());
    const QString headerText = header.serialize(QString());
    // One pass, so that a "%1" inside the header text stays literal.
    m_message = envelope().arg(headerText, bodyText);
}

QString OnvifRequest::envelopeTemplate()
{
    return envelope();
}
