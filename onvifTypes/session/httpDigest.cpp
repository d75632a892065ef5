#include "onvifTypes/session/httpDigest_p.h"

#include <QCryptographicHash>
#include <QList>
#include <QPair>
#include <QRandomGenerator>
#include <QString>

namespace Onvif {
namespace Internal {

namespace {

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == ',';
}

// One scheme with its parameters, from position *at on.
struct Parsed
{
    QByteArray scheme;
    QList<QPair<QByteArray, QByteArray>> params;
};

QList<Parsed> parseAll(const QByteArray& header)
{
    QList<Parsed> schemes;
    int i = 0;
    const int n = header.size();
    while (i < n) {
        while (i < n && isSpace(header[i]))
            ++i;
        const int start = i;
        while (i < n && !isSpace(header[i]) && header[i] != '=')
            ++i;
        const QByteArray token = header.mid(start, i - start);
        if (token.isEmpty())
            break;
        int look = i;
        while (look < n && (header[look] == ' ' || header[look] == '\t'))
            ++look;
        if (look < n && header[look] == '=' && !schemes.isEmpty()) {
            i = look + 1;
            while (i < n && (header[i] == ' ' || header[i] == '\t'))
                ++i;
            QByteArray value;
            if (i < n && header[i] == '"') {
                for (++i; i < n && header[i] != '"'; ++i) {
                    if (header[i] == '\\' && i + 1 < n)
                        ++i;
                    value += header[i];
                }
                ++i;
            } else {
                const int valueStart = i;
                while (i < n && !isSpace(header[i]))
                    ++i;
                value = header.mid(valueStart, i - valueStart);
            }
            schemes.last().params.append({ token.toLower(), value });
        } else {
            schemes.append(Parsed { token.toLower(), {} });
        }
    }
    return schemes;
}

QByteArray hex(QCryptographicHash::Algorithm algorithm, const QByteArray& data)
{
    return QCryptographicHash::hash(data, algorithm).toHex();
}

} // namespace

HttpChallenge parseChallenge(const QByteArray& header)
{
    HttpChallenge result;
    for (const Parsed& p : parseAll(header)) {
        const bool digest = p.scheme == "digest";
        if (!digest && (p.scheme != "basic" || result.scheme != HttpChallenge::None))
            continue;
        HttpChallenge c;
        c.scheme = digest ? HttpChallenge::Digest : HttpChallenge::Basic;
        for (const auto& param : p.params) {
            if (param.first == "realm")
                c.realm = param.second;
            else if (param.first == "nonce")
                c.nonce = param.second;
            else if (param.first == "opaque")
                c.opaque = param.second;
            else if (param.first == "algorithm")
                c.algorithm = param.second;
            else if (param.first == "qop")
                c.qop = param.second;
            else if (param.first == "stale")
                c.stale = param.second.toLower() == "true";
        }
        result = c;
        if (digest)
            break;
    }
    return result;
}

void HttpAuthorizer::setChallenge(const HttpChallenge& challenge)
{
    if (challenge.nonce != m_challenge.nonce)
        m_count = 0;
    m_challenge = challenge;
}

QByteArray HttpAuthorizer::authorization(const QByteArray& method, const QByteArray& uri, const QString& user,
    const QString& password, QByteArray cnonce)
{
    const QByteArray u = user.toUtf8();
    const QByteArray pw = password.toUtf8();
    if (m_challenge.scheme == HttpChallenge::Basic)
        return "Basic " + (u + ':' + pw).toBase64();
    const QByteArray algorithmName = m_challenge.algorithm.toUpper();
    const bool sha256 = algorithmName.startsWith("SHA-256");
    const auto algorithm = sha256 ? QCryptographicHash::Sha256 : QCryptographicHash::Md5;
    if (cnonce.isEmpty())
        cnonce = QByteArray::number(QRandomGenerator::system()->generate64(), 16);
    QByteArray ha1 = hex(algorithm, u + ':' + m_challenge.realm + ':' + pw);
    if (algorithmName.endsWith("-SESS"))
        ha1 = hex(algorithm, ha1 + ':' + m_challenge.nonce + ':' + cnonce);
    const QByteArray ha2 = hex(algorithm, method + ':' + uri);
    // qop may list several; "auth" is the one that does not need the body.
    bool qop = false;
    for (const QByteArray& offered : m_challenge.qop.split(','))
        qop = qop || offered.trimmed() == "auth";
    const QByteArray nc = QByteArray::number(++m_count, 16).rightJustified(8, '0');
    const QByteArray response = qop
        ? hex(algorithm, ha1 + ':' + m_challenge.nonce + ':' + nc + ':' + cnonce + ":auth:" + ha2)
        : hex(algorithm, ha1 + ':' + m_challenge.nonce + ':' + ha2);
    QByteArray out = "Digest username=\"" + u + "\", realm=\"" + m_challenge.realm + "\", nonce=\""
        + m_challenge.nonce + "\", uri=\"" + uri + "\", response=\"" + response + '"';
    if (!m_challenge.algorithm.isEmpty())
        out += ", algorithm=" + m_challenge.algorithm;
    if (!m_challenge.opaque.isEmpty())
        out += ", opaque=\"" + m_challenge.opaque + '"';
    if (qop)
        out += ", qop=auth, nc=" + nc + ", cnonce=\"" + cnonce + '"';
    return out;
}

} // namespace Internal
} // namespace Onvif
