#include "simClient.h"

#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>

#include <QElapsedTimer>
#include <QHostAddress>

#include <functional>

namespace {

class RawBody : public Serializable
{
public:
    explicit RawBody(const QString& text)
        : m_text(text)
    { }
    QString serialize(QString) override { return m_text; }
    void deserialize(QDomNode&) override { }

private:
    QString m_text;
};

} // namespace

QByteArray HttpReply::header(const QByteArray& name) const
{
    for (const auto& h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return QByteArray();
}

QDomDocument HttpReply::xml(bool* ok) const
{
    QDomDocument doc;
    const bool parsed = doc.setContent(body, true);
    if (ok)
        *ok = parsed;
    return doc;
}

HttpConnection::HttpConnection(quint16 port)
{
    m_socket.connectToHost(QHostAddress::LocalHost, port);
    m_socket.waitForConnected(3000);
}

bool HttpConnection::isOpen() const
{
    return m_socket.state() == QAbstractSocket::ConnectedState;
}

HttpReply HttpConnection::request(const QByteArray& method, const QByteArray& path, const QByteArray& body,
    const QByteArray& headers, bool close, int timeoutMs, const QByteArray& closeToken)
{
    QByteArray text = method + ' ' + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + headers;
    if (method != "GET" || !body.isEmpty())
        text += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    if (close)
        text += "Connection: " + closeToken + "\r\n";
    text += "\r\n" + body;
    HttpReply reply;
    if (!isOpen()) {
        reply.closed = true;
        return reply;
    }
    m_socket.write(text);
    m_socket.waitForBytesWritten(timeoutMs);

    QByteArray buffer;
    QElapsedTimer timer;
    timer.start();
    int headerEnd = -1;
    auto remaining = [&] { return std::max<qint64>(1, timeoutMs - timer.elapsed()); };
    while (timer.elapsed() < timeoutMs) {
        if (headerEnd < 0)
            headerEnd = buffer.indexOf("\r\n\r\n");
        if (headerEnd >= 0 && reply.announcedLength < 0 && !reply.answered) {
            const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
            reply.answered = true;
            reply.status = lines.value(0).split(' ').value(1).toInt();
            for (int i = 1; i < lines.size(); ++i) {
                const int colon = lines[i].indexOf(':');
                if (colon > 0)
                    reply.headers.append(
                        qMakePair(lines[i].left(colon).trimmed(), lines[i].mid(colon + 1).trimmed()));
            }
            const QByteArray length = reply.header("Content-Length");
            reply.announcedLength = length.isEmpty() ? -1 : length.toLongLong();
        }
        if (reply.answered && reply.announcedLength >= 0
            && buffer.size() - headerEnd - 4 >= reply.announcedLength)
            break;
        if (m_socket.bytesAvailable() == 0 && !m_socket.waitForReadyRead(static_cast<int>(remaining()))) {
            if (m_socket.state() != QAbstractSocket::ConnectedState) {
                reply.closed = true;
                break;
            }
            continue;
        }
        buffer += m_socket.readAll();
    }
    if (reply.answered) {
        reply.body = buffer.mid(headerEnd + 4);
        if (reply.announcedLength >= 0) {
            reply.complete = reply.body.size() >= reply.announcedLength;
            reply.body.truncate(static_cast<int>(std::min<qint64>(reply.body.size(), reply.announcedLength)));
        }
    }
    if (close && !reply.closed)
        reply.closed = waitForClose(timeoutMs);
    return reply;
}

bool HttpConnection::waitForClose(int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (m_socket.state() == QAbstractSocket::ConnectedState && timer.elapsed() < timeoutMs) {
        m_socket.waitForReadyRead(50);
        m_socket.readAll();
    }
    return m_socket.state() != QAbstractSocket::ConnectedState;
}

HttpReply post(quint16 port, const QByteArray& body, const QByteArray& path, const QByteArray& contentType,
    int timeoutMs)
{
    HttpConnection connection(port);
    return connection.request("POST", path, body, "Content-Type: " + contentType + "\r\n", true, timeoutMs);
}

HttpReply get(quint16 port, const QByteArray& path, const QByteArray& authorization)
{
    HttpConnection connection(port);
    return connection.request("GET", path, QByteArray(),
        authorization.isEmpty() ? "" : "Authorization: " + authorization + "\r\n", true);
}

QByteArray signedEnvelope(
    const QString& body, const QString& user, const QString& password, long long timeShiftMs)
{
    OnvifSecurity security(user, password, timeShiftMs);
    RawBody content(body);
    return OnvifRequest(security, content).getMessage().toUtf8();
}

QByteArray plainEnvelope(const QString& body, const QString& header)
{
    RawBody headerText(header), content(body);
    return OnvifRequest(headerText, content).getMessage().toUtf8();
}

QDomElement findElement(const QDomDocument& doc, const QString& localName)
{
    const QList<QDomElement> all = findElements(doc, localName);
    return all.isEmpty() ? QDomElement() : all.first();
}

QList<QDomElement> findElements(const QDomDocument& doc, const QString& localName)
{
    QList<QDomElement> out;
    std::function<void(const QDomElement&)> walk = [&](const QDomElement& e) {
        if (e.localName() == localName)
            out.append(e);
        for (QDomElement c = e.firstChildElement(); !c.isNull(); c = c.nextSiblingElement())
            walk(c);
    };
    walk(doc.documentElement());
    return out;
}

QString faultSummary(const HttpReply& reply)
{
    const QDomDocument doc = reply.xml();
    const QDomElement fault = findElement(doc, QStringLiteral("Fault"));
    if (fault.isNull())
        return QString();
    const QDomElement code = fault.firstChildElement().firstChildElement(); // Code/Value
    QString summary = code.text().section(QLatin1Char(':'), -1);
    const QDomElement sub = code.nextSiblingElement().firstChildElement(); // Code/Subcode/Value
    if (!sub.isNull())
        summary += QLatin1Char('|') + sub.text();
    return summary;
}
