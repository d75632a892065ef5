#ifndef ONVIFTYPES_ONVIFREQUEST_H
#define ONVIFTYPES_ONVIFREQUEST_H

#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/serializable.h>
#include <onvifTypes/soapFault.h>

#include <asyncfuture.h>

#include <QFuture>
#include <QNetworkReply>

#include <functional>

class QNetworkAccessManager;

// The complete SOAP 1.2 request text: a fixed envelope with the header's and the
// body's text put in.
class ONVIFTYPES_EXPORT OnvifRequest
{
public:
    // The body is asked for its text before the header.
    OnvifRequest(Serializable& header, Serializable& body);

    QString getMessage() const { return m_message; }

    // The envelope with its two placeholders, %0 for the header and %1 for the body.
    static QString envelopeTemplate();

private:
    QString m_message;
};

namespace Onvif {

namespace Internal {

// What the reply handler learnt from one finished reply.
struct ReplyOutcome
{
    bool failed = false; // network error without fault body, or a SOAP fault
    bool authFault = false;
    // Why an answer that came without error could not be read (not XML, past a limit,
    // or without the response element); empty for a readable one. Such an answer still
    // completes with default values.
    QString unreadable;
    // The device's fault, when it sent one (with any HTTP status).
    SoapFault fault;
};

// Posts header + body as "application/soap+xml" with "Connection: Close".
ONVIFTYPES_EXPORT QNetworkReply* postSoap(
    Serializable& header, Serializable& body, const QString& url, QNetworkAccessManager* manager, bool trace);
// Releases the reply, logs network errors and faults, and fills response from the
// element "<requestName>Response" unless the reply was a fault.
ONVIFTYPES_EXPORT ReplyOutcome readReply(
    QNetworkReply* reply, const QString& requestName, Serializable& response, bool trace);

} // namespace Internal

// One ONVIF operation: posts request with a fresh security header and, when the
// reply has finished, hands the parsed response to completion exactly once. A
// network error or a SOAP fault cancels the future before completion runs; the
// bool tells an authentication fault. No timeout: the manager decides.
// The overload with `observe` shows it the whole outcome of the reply first (whether the
// answer was readable, say), just before completion runs.
template <typename Req, typename Resp, typename T>
QFuture<T> RequestHelper(Req& request, const QString& requestName, const QString& url,
    OnvifSecurity& security, QNetworkAccessManager* manager,
    std::function<void(Resp&, bool, AsyncFuture::Deferred<T>&)> completion, bool trace,
    std::function<void(const Internal::ReplyOutcome&)> observe)
{
    QNetworkReply* reply = Internal::postSoap(security, request, url, manager, trace);
    AsyncFuture::Deferred<T> deferred;
    QObject::connect(
        reply, &QNetworkReply::finished, reply,
        [reply, deferred, requestName, completion, trace, observe]() mutable {
            Resp response;
            const Internal::ReplyOutcome outcome = Internal::readReply(reply, requestName, response, trace);
            if (outcome.failed)
                deferred.cancel();
            if (observe)
                observe(outcome);
            completion(response, outcome.authFault, deferred);
        },
        Qt::DirectConnection);
    return deferred.future();
}

template <typename Req, typename Resp, typename T>
QFuture<T> RequestHelper(Req& request, const QString& requestName, const QString& url,
    OnvifSecurity& security, QNetworkAccessManager* manager,
    std::function<void(Resp&, bool, AsyncFuture::Deferred<T>&)> completion, bool trace)
{
    return RequestHelper<Req, Resp, T>(request, requestName, url, security, manager, std::move(completion),
        trace, std::function<void(const Internal::ReplyOutcome&)>());
}

} // namespace Onvif

#endif // ONVIFTYPES_ONVIFREQUEST_H
