#include "ptzTestSupport.h"

#include <QRegularExpression>

namespace PtzTest {

QString soapBody(const QByteArray& envelope)
{
    const QString text = QString::fromUtf8(envelope);
    const int bodyTag = text.indexOf(QLatin1String("<s:Body"));
    const int start = text.indexOf(QLatin1Char('>'), bodyTag) + 1;
    const int end = text.lastIndexOf(QLatin1String("</s:Body>"));
    if (bodyTag < 0 || end < start)
        return QString();
    return text.mid(start, end - start);
}

QString lastBody(const CameraSim::Camera& camera, const QString& op)
{
    const auto sent = camera.requestsFor(op);
    return sent.isEmpty() ? QString() : soapBody(sent.last().body);
}

QString bare(const LogCapture::Record& record)
{
    const QString& m = record.message;
    const int start = m.indexOf(QLatin1String(": ")) + 2;
    const int end = m.lastIndexOf(QLatin1String(" ("));
    return start < 2 || end < start ? m : m.mid(start, end - start);
}

QStringList messages(const LogCapture& log, const QString& clsName)
{
    QStringList result;
    for (const LogCapture::Record& r : log.records()) {
        if (r.clsName == clsName)
            result << bare(r);
    }
    return result;
}

CannedServer::CannedServer()
{
    connect(&m_server, &QTcpServer::newConnection, this, &CannedServer::onNewConnection);
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("canned server did not listen: %s", qPrintable(m_server.errorString()));
}

CannedServer::~CannedServer()
{
    for (const QPointer<QTcpSocket>& socket : qAsConst(m_sockets))
        delete socket.data();
}

QString CannedServer::deviceUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(m_server.serverPort());
}

QString CannedServer::ptzUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1/onvif/ptz_service").arg(m_server.serverPort());
}

int CannedServer::openConnections() const
{
    int open = 0;
    for (const QPointer<QTcpSocket>& socket : m_sockets)
        open += socket && socket->state() == QAbstractSocket::ConnectedState ? 1 : 0;
    return open;
}

void CannedServer::onNewConnection()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        m_sockets.append(socket);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void CannedServer::onReadyRead(QTcpSocket* socket)
{
    QByteArray& buffer = m_buffers[socket];
    buffer += socket->readAll();
    const int headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;
    static const QRegularExpression lengthRe(
        QStringLiteral("content-length:\\s*(\\d+)"), QRegularExpression::CaseInsensitiveOption);
    const auto length = lengthRe.match(QString::fromLatin1(buffer.left(headerEnd)));
    if (!length.hasMatch() || buffer.size() < headerEnd + 4 + length.captured(1).toInt())
        return;

    static const QRegularExpression opRe(QStringLiteral("<s:Body[^>]*>\\s*<\\w+:(\\w+)"));
    const QString op = opRe.match(QString::fromUtf8(buffer)).captured(1);
    m_buffers.remove(socket);
    m_received << op;
    if (!m_answers.contains(op))
        return; // held open

    const QByteArray body = QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
        "<env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\""
        " xmlns:tt=\"http://www.onvif.org/ver10/schema\" xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
        " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\" "
        "xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\">"
        "<env:Body>%1</env:Body></env:Envelope>")
                                .arg(m_answers.value(op))
                                .toUtf8();
    socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml; charset=utf-8\r\nContent-Length: "
        + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
    socket->disconnectFromHost();
}

} // namespace PtzTest
