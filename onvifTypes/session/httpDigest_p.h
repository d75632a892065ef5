#ifndef ONVIFTYPES_SESSION_HTTPDIGEST_P_H
#define ONVIFTYPES_SESSION_HTTPDIGEST_P_H

#include <QByteArray>

namespace Onvif {
namespace Internal {

// What a 401 asks for. Digest is preferred to Basic when a device offers both.
struct HttpChallenge
{
    enum Scheme { None, Basic, Digest } scheme = None;
    QByteArray realm, nonce, opaque, algorithm, qop;
    bool stale = false; // the nonce expired: the credentials were fine
};

// Reads one or more WWW-Authenticate values (repeated headers joined by ", ").
HttpChallenge parseChallenge(const QByteArray& header);

// Answers challenges for one device. Qt's QAuthenticator would do this as well, but Qt retries
// credentials it cached without telling the application, and every such try counts against an
// account that locks after a few: here each try is one the session decided on.
class HttpAuthorizer
{
public:
    void setChallenge(const HttpChallenge& challenge);
    bool isSet() const { return m_challenge.scheme != HttpChallenge::None; }
    HttpChallenge::Scheme scheme() const { return m_challenge.scheme; }
    // The Authorization value for one request (path with query, as sent); cnonce is drawn from
    // the strong source when not given.
    QByteArray authorization(const QByteArray& method, const QByteArray& uri, const QString& user,
        const QString& password, QByteArray cnonce = QByteArray());

private:
    HttpChallenge m_challenge;
    quint32 m_count = 0; // nonce count, per nonce
};

} // namespace Internal
} // namespace Onvif

#endif // ONVIFTYPES_SESSION_HTTPDIGEST_P_H
