#include "onvifTypes/onvifrequest.h"

#include "onvifTypes/onvifLog.h"
#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/transport/limits.h"
#include "onvifTypes/transport/replyGuard_p.h"
#include "onvifTypes/transport/userAgent_p.h"

#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QUrl>

#include <cstring>

namespace {

// The envelope around the header's and the body's text. The message is put together
// piece by piece: QString::arg scans the whole envelope for placeholders every time.
const QLatin1String kEnvelopeStart("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
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
                                   "<s:Header>");
const QLatin1String kEnvelopeMiddle("</s:Header>"
                                    "<s:Body"
                                    " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
                                    " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">");
const QLatin1String kEnvelopeEnd("</s:Body></s:Envelope>");

} // namespace

OnvifRequest::OnvifRequest(Serializable& header, Serializable& body)
{
    const QString bodyText = body.serialize(QString());
    const QString headerText = header.serialize(QString());
    m_message.reserve(kEnvelopeStart.size() + headerText.size() + kEnvelopeMiddle.size() + bodyText.size()
        + kEnvelopeEnd.size());
    m_message += kEnvelopeStart;
    m_message += headerText;
    m_message += kEnvelopeMiddle;
    m_message += bodyText;
    m_message += kEnvelopeEnd;
}

QString OnvifRequest::envelopeTemplate()
{
    return kEnvelopeStart + QLatin1String("%0") + kEnvelopeMiddle + QLatin1String("%1") + kEnvelopeEnd;
}

namespace Onvif {
namespace Internal {

namespace {

// One logger per thread serves every call: the attributes never change.
OnvifLog::Logger& requestLogger()
{
    thread_local OnvifLog::Logger logger = OnvifLog::makeLogger(QStringLiteral("Onvif"));
    return logger;
}

QString replyText(const QByteArray& body)
{
    if (body.isNull())
        return QString();
    // Some devices pad their answers with NUL bytes; the text ends at the first.
    return QString::fromUtf8(body.constData(), int(::strnlen(body.constData(), size_t(body.size()))));
}

} // namespace

QNetworkReply* postSoap(
    Serializable& header, Serializable& body, const QString& url, QNetworkAccessManager* manager, bool trace)
{
    const OnvifRequest envelope(header, body);
    QNetworkRequest request(QUrl(url, QUrl::TolerantMode));
    Onvif::Internal::setUserAgent(request);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
    request.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("Close"));
    const QString message = envelope.getMessage();
    if (trace)
        ONVIF_LOG_AS(requestLogger(), OnvifLog::Info, "RequestHelper", message);
    QNetworkReply* reply = manager->post(request, message.toUtf8());
    // A host-lent plain manager gets the size bounds; its timing stays the manager's own
    // decision (its transfer timeout). Ours are bound already.
    guardLentReply(reply);
    return reply;
}

ReplyOutcome readReply(QNetworkReply* reply, const QString& requestName, Serializable& response, bool trace)
{
    reply->deleteLater();
    OnvifLog::Logger& logger = requestLogger();
    const QNetworkReply::NetworkError error = reply->error();
    const QByteArray body = reply->readAll();
    // Past the limit the text is not even decoded (a manager the host lent may not cut it off).
    const qint64 maxBytes = Limits::defaults().maxReplyBytes;
    const bool tooLong = body.size() > maxBytes;
    const QString text = tooLong ? QString() : replyText(body);
    if (trace)
        ONVIF_LOG_AS(logger, OnvifLog::Info, "operator()", text);

    const OnvifResponse parsed(text);
    ReplyOutcome outcome;
    const bool fault = parsed.isFault();
    outcome.authFault = fault && parsed.isAuthFault(); // no second walk of a large answer
    if (error != QNetworkReply::NoError && !fault) {
        ONVIF_LOG_AS(logger, OnvifLog::Error, "operator()",
            QStringLiteral("Network error. Code:") + QString::number(int(error))
                + QStringLiteral(" Request name: ") + requestName);
        outcome.failed = true;
        // An answer cut off at one of the limits, or framed wrongly, is an unreadable answer:
        // the camera did answer.
        const QString why = replyErrorText(reply);
        if (error == QNetworkReply::ProtocolFailure || why.contains(QLatin1String("Onvif::Limits::")))
            outcome.unreadable = why;
    }
    if (fault) {
        ONVIF_LOG_AS(logger, OnvifLog::Error, "operator()",
            QStringLiteral("Parse error. Msg: ") + parsed.getFaultText() + QStringLiteral(" Request name: ")
                + requestName);
        outcome.failed = true;
        outcome.fault = parsed.fault();
        outcome.fault.httpStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    } else {
        const QString element = requestName + QStringLiteral("Response");
        QDomNode node = parsed.getNodeByTag(element);
        if (error == QNetworkReply::NoError) {
            if (tooLong)
                outcome.unreadable
                    = QStringLiteral("the answer is longer than %1 bytes (maxReplyBytes)").arg(maxBytes);
            else if (!parsed.isReadable())
                outcome.unreadable = parsed.parseError();
            else if (node.isNull())
                outcome.unreadable = QStringLiteral("no %1 element in the answer").arg(element);
        }
        response.deserialize(node);
    }
    return outcome;
}

} // namespace Internal
} // namespace Onvif
