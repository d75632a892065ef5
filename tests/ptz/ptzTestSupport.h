#ifndef ONVIFTYPES_TESTS_PTZTESTSUPPORT_H
#define ONVIFTYPES_TESTS_PTZTESTSUPPORT_H

#include "logCapture.h"
#include "simCamera.h"

#include <camera.h>

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

namespace PtzTest {

using ::startCamera;

// The element inside s:Body of a request envelope, as sent.
QString soapBody(const QByteArray& envelope);
// The body of the last request the camera received for op.
QString lastBody(const CameraSim::Camera& camera, const QString& op);

// The message part of a record " function: message (file:line)".
QString bare(const LogCapture::Record& record);
// Messages of the records whose ClsName is clsName, in order.
QStringList messages(const LogCapture& log, const QString& clsName);

// A loopback HTTP server with hand-written answers, for reply shapes the simulator
// does not produce. An operation without an answer is held open until the server
// goes; every socket dies with it.
class CannedServer : public QObject
{
public:
    CannedServer();
    ~CannedServer() override;

    QString deviceUrl() const;
    QString ptzUrl() const;
    // inner: the content of the reply's Body element.
    void setAnswer(const QString& operation, const QString& inner) { m_answers[operation] = inner; }
    QStringList received() const { return m_received; }
    int openConnections() const;

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket* socket);

    QTcpServer m_server;
    QMap<QString, QString> m_answers;
    QHash<QTcpSocket*, QByteArray> m_buffers;
    QList<QPointer<QTcpSocket>> m_sockets;
    QStringList m_received;
};

} // namespace PtzTest

#endif
