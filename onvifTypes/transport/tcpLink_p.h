#ifndef ONVIFTYPES_TCPLINK_P_H
#define ONVIFTYPES_TCPLINK_P_H

#include <QAbstractSocket>
#include <QHash>
#include <QHostAddress>
#include <QObject>
#include <QVector>

class QSocketNotifier;

namespace Onvif::Internal {

class TcpLink;

// One epoll set for a thread's connections, watched by its event loop as one descriptor.
// Qt's dispatchers poll every socket notifier on every wake-up, so with hundreds of
// cameras in flight each wake-up cost grew with the fleet; here it costs what is ready.
class LinkPoller : public QObject
{
    Q_OBJECT

public:
    // The calling thread's poller, shared by all its users and made on first use.
    static LinkPoller* acquire();
    // Gone with its last user.
    static void release(LinkPoller* poller);
    ~LinkPoller() override;

    bool isValid() const { return m_epoll >= 0; }
    // Each descriptor a link opens gets an id of its own: events still queued for a
    // closed one find nobody.
    quint64 track(TcpLink* link);
    void forget(quint64 id);
    bool control(int op, int fd, quint32 events, quint64 id);

private:
    LinkPoller();
    void drain();

    int m_epoll = -1;
    QSocketNotifier* m_notifier = nullptr;
    QHash<quint64, TcpLink*> m_links;
    quint64 m_next = 0;
    int m_users = 0;
};

// The part of QTcpSocket a pooled HTTP connection needs, on a non-blocking descriptor
// with TCP_NODELAY. Signals come as QTcpSocket sends them: connected, readyRead, and on
// a failure errorOccurred then (once connected) disconnected.
class TcpLink : public QObject
{
    Q_OBJECT

public:
    TcpLink(LinkPoller* poller, QObject* parent);
    ~TcpLink() override;

    void connectToHost(const QString& host, quint16 port);
    QAbstractSocket::SocketState state() const { return m_state; }
    QString errorString() const { return m_errorString; }

    // Sent at once as far as the kernel takes it, the rest when it can.
    void write(const QByteArray& data);
    qint64 bytesAvailable() const { return m_in.size(); }
    QByteArray read(qint64 maxSize);
    QByteArray readAll() { return read(-1); }
    // At most this many unread bytes are taken from the kernel; 0: no limit.
    void setReadBufferSize(qint64 size);
    // At most this many bytes per event-loop wake-up; the rest waits for the next pass,
    // so one fast peer leaves timers and other connections their turn.
    void setReadBytesPerWakeup(int bytes) { m_perWakeup = qMax(1, bytes); }
    // Closed at once, without signals.
    void abort();
    // Closed at once, told as a peer's close is told.
    void shutDown();
    // Closed at once and left by its poller, told as a peer's close from the event loop of
    // the thread this link then lives in. It cannot connect again.
    void detach();

signals:
    void connected();
    void readyRead();
    void disconnected();
    void errorOccurred(QAbstractSocket::SocketError error);

private:
    friend class LinkPoller;
    void onEvents(quint32 events);
    // fromCaller: inside the caller's own call, where failures wait for the event loop.
    // error: what the previous address failed with, told when none is left.
    void tryNext(bool fromCaller, int error);
    void onConnectDone();
    void readFromKernel();
    void flushOut(bool fromCaller);
    void fail(QAbstractSocket::SocketError error, const QString& text);
    // An errno value, told with QTcpSocket's code and text.
    void fail(int error);
    // Told from the event loop, unless the link was closed or reused meanwhile.
    void failLater(int error);
    void stopConnecting();
    void updateInterest();
    void closeDescriptor();

    LinkPoller* m_poller;
    int m_fd = -1;
    quint64 m_id = 0;
    quint32 m_interest = 0;
    QAbstractSocket::SocketState m_state = QAbstractSocket::UnconnectedState;
    QVector<QHostAddress> m_addresses; // still to try
    quint16 m_port = 0;
    int m_lookupId = -1;
    QByteArray m_in;
    QByteArray m_out;
    qint64 m_readLimit = 0;
    int m_perWakeup = 256 * 1024;
    bool m_peerClosed = false;
    quint64 m_generation = 0; // a failure told later is void once this moved on
    QString m_errorString;
};

} // namespace Onvif::Internal

#endif // ONVIFTYPES_TCPLINK_P_H
