#ifndef TESTS_SIMCLIENT_H
#define TESTS_SIMCLIENT_H

// A deliberately plain HTTP client for the simulator's tests: blocking sockets and
// hand-written requests, so that every byte on the wire is under the test's control.

#include <QByteArray>
#include <QDomDocument>
#include <QList>
#include <QPair>
#include <QString>
#include <QTcpSocket>

struct HttpReply
{
    bool answered = false; // a status line arrived
    bool closed = false; // the server closed the connection
    bool complete = false; // the whole announced body arrived
    int status = 0;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    qint64 announcedLength = -1;

    QByteArray header(const QByteArray& name) const;
    QDomDocument xml(bool* ok = nullptr) const;
};

// One connection that may carry several requests.
class HttpConnection
{
public:
    explicit HttpConnection(quint16 port);
    bool isOpen() const;
    // headers: whole header lines, each ending in CR LF.
    HttpReply request(const QByteArray& method, const QByteArray& path, const QByteArray& body,
        const QByteArray& headers = "Content-Type: application/soap+xml; charset=utf-8\r\n",
        bool close = false, int timeoutMs = 5000, const QByteArray& closeToken = "close");
    bool waitForClose(int timeoutMs);

private:
    QTcpSocket m_socket;
};

// A single request on its own connection with Connection: close.
HttpReply post(quint16 port, const QByteArray& body, const QByteArray& path = "/onvif/device_service",
    const QByteArray& contentType = "application/soap+xml; charset=utf-8", int timeoutMs = 5000);
HttpReply get(quint16 port, const QByteArray& path, const QByteArray& authorization = QByteArray());

// A complete request signed through the library's own WS-Security header.
QByteArray signedEnvelope(const QString& body, const QString& user = QStringLiteral("admin"),
    const QString& password = QStringLiteral("admin"), long long timeShiftMs = 0);
QByteArray plainEnvelope(const QString& body, const QString& header = QString());

// First element of that local name anywhere in the document, or a null element.
QDomElement findElement(const QDomDocument& doc, const QString& localName);
QList<QDomElement> findElements(const QDomDocument& doc, const QString& localName);
// "Sender|ter:NotAuthorized" style summary of a SOAP fault (code and first subcode), empty if none.
QString faultSummary(const HttpReply& reply);

#endif // TESTS_SIMCLIENT_H
