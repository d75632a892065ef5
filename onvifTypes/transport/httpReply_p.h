#ifndef ONVIFTYPES_HTTPREPLY_P_H
#define ONVIFTYPES_HTTPREPLY_P_H

#include <QElapsedTimer>
#include <QHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QQueue>
#include <QTimer>
#include <QVector>

#include "onvifTypes/transport/limits.h"
#include "onvifTypes/transport/tcpLink_p.h"

#include <memory>

namespace Onvif::Internal {

class HttpReply;

// Keep-alive connections of one manager: idle sockets per host:port, at most six busy
// ones per host:port as in Qt, and a queue of the replies waiting for one.
class HttpPool : public QObject
{
    Q_OBJECT

public:
    explicit HttpPool(QObject* parent);
    ~HttpPool() override;

    void enqueue(HttpReply* reply);
    // The reply's reused connection died unanswered: a fresh one on the same slot.
    TcpLink* replace(TcpLink* stale);
    void release(TcpLink* socket, bool reusable);
    void closeIdle();
    bool closing() const { return m_closing; }

protected:
    bool event(QEvent* event) override;

private:
    struct Idle
    {
        TcpLink* socket;
        qint64 since;
    };
    struct Host
    {
        QVector<Idle> idle;
        QQueue<QPointer<HttpReply>> waiting;
        int busy = 0;
    };
    TcpLink* connectNew(const QString& key, const QString& host, quint16 port);
    void dispatch(const QString& key);
    void dropIdle(TcpLink* socket);
    // Closes the idle connections that have waited since oldest or longer.
    void sweep(qint64 oldest);
    static void discard(TcpLink* socket);

    LinkPoller* m_poller = nullptr;
    QHash<QString, Host> m_hosts;
    QTimer m_sweep;
    QElapsedTimer m_clock;
    bool m_closing = false;
};

struct Inflater;

// One HTTP/1.1 exchange on a pooled connection, reported as QNetworkAccessManager's
// own replies report it: signals, errors, attributes and headers.
class HttpReply : public QNetworkReply
{
    Q_OBJECT

public:
    HttpReply(HttpPool* pool, QNetworkAccessManager* manager, QNetworkAccessManager::Operation op,
        const QNetworkRequest& request, QByteArray wire, qint64 uploadSize, bool autoDecompress,
        int timeoutMs, const Limits& limits);
    ~HttpReply() override;

    QString poolKey() const;
    void start(TcpLink* socket, bool reused);

    void abort() override;
    void close() override;
    qint64 bytesAvailable() const override;
    void setReadBufferSize(qint64 size) override;

protected:
    qint64 readData(char* data, qint64 maxSize) override;

private:
    enum class Stage { Waiting, Status, Headers, Body, ChunkSize, ChunkData, ChunkEnd, Trailer, Done };

    void attach(TcpLink* socket);
    void send();
    void onReadyRead();
    void onSocketGone(QAbstractSocket::SocketError socketError);
    bool parse();
    // A whole line, or false while it is still coming; past maxBytes the reply fails.
    bool takeLine(QByteArray& line, int maxBytes, const char* limitName);
    bool addHeader(const QByteArray& line);
    bool headersDone();
    // Fails the reply for input past a limit or against the framing; false from then on.
    bool refuse(NetworkError code, const QString& text);
    bool overLimit(const char* what, qint64 limit, const char* limitName);
    const char* bodyLimitName() const;
    bool deliver(QByteArray data);
    void complete();
    void finish(NetworkError code, const QString& text);
    void releaseSocket(bool reusable);
    bool keepAlive() const;
    qint64 room() const;

    QPointer<QNetworkAccessManager> m_manager;
    QPointer<HttpPool> m_pool;
    QPointer<TcpLink> m_socket;
    QByteArray m_wire;
    qint64 m_uploadSize;
    QByteArray m_in; // received; parsed up to m_inPos
    int m_inPos = 0;
    QByteArray m_body; // parsed, not yet read
    qint64 m_bodyPos = 0;
    QVector<QPair<QByteArray, QByteArray>> m_headers;
    QHash<QByteArray, int> m_headerIndex; // lower-case name: its place in m_headers
    qint64 m_headerBytes = 0;
    int m_headerLines = 0;
    int m_interim = 0;
    Limits m_limits;
    qint64 m_bodyLimit;
    qint64 m_plainBytes = 0; // body after decompression
    QTimer* m_deadline = nullptr;
    Stage m_stage = Stage::Waiting;
    qint64 m_remaining = -1; // body or chunk bytes still due; -1: until the peer closes
    qint64 m_total = -1;
    qint64 m_received = 0;
    int m_status = 0;
    int m_minorVersion = 1;
    bool m_reused = false;
    bool m_retried = false;
    bool m_answered = false;
    bool m_autoDecompress;
    std::unique_ptr<Inflater> m_inflater;
    QTimer* m_timer = nullptr;
};

} // namespace Onvif::Internal

#endif // ONVIFTYPES_HTTPREPLY_P_H
