#include "simCamera.h"

#include <onvifTypes/onvifNetworkAccessManager.h>

#include <QAuthenticator>
#include <QElapsedTimer>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QtTest>

#include <zlib.h>

#include <atomic>

namespace {

const char* const ourReply = "Onvif::Internal::HttpReply";

// Answers requests in arrival order with scripted texts; "\x01" splits a text into pieces
// written apart, "DROP" resets the connection unanswered, "SILENT" never answers.
class ScriptServer : public QObject
{
public:
    explicit ScriptServer(QByteArrayList answers, bool closeAfter = false)
        : m_answers(std::move(answers))
        , m_closeAfter(closeAfter)
    {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                ++connections;
                ++open;
                socket->setParent(this);
                connect(socket, &QAbstractSocket::disconnected, this, [this, socket] {
                    --open;
                    socket->deleteLater();
                });
                connect(socket, &QIODevice::readyRead, this, [this, socket] { serve(socket); });
            }
        });
    }
    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(m_server.serverPort()));
    }
    void reset()
    {
        for (QTcpSocket* socket : findChildren<QTcpSocket*>())
            socket->abort();
        QTRY_COMPARE(open, 0);
        m_served = 0;
        connections = 0;
        requests.clear();
    }

    qint64 unsent() const
    {
        qint64 bytes = 0;
        for (const QTcpSocket* socket : findChildren<QTcpSocket*>())
            bytes += socket->bytesToWrite();
        return bytes;
    }

    QByteArrayList requests;
    int connections = 0;
    int open = 0;

private:
    void serve(QTcpSocket* socket)
    {
        QByteArray& in = m_pending[socket];
        in += socket->readAll();
        for (int end; (end = in.indexOf("\r\n\r\n")) >= 0;) {
            const QRegularExpression length(QStringLiteral("\r\nContent-Length: (\\d+)"));
            const auto match = length.match(QString::fromLatin1(in.left(end)));
            const int size = end + 4 + (match.hasMatch() ? match.captured(1).toInt() : 0);
            if (in.size() < size)
                return;
            requests.append(in.left(size));
            in.remove(0, size);
            const QByteArray answer = m_answers.at(qMin(m_served++, m_answers.size() - 1));
            if (answer == "DROP")
                return socket->abort();
            if (answer != "SILENT")
                write(socket, answer.split('\x01'));
        }
    }
    void write(QPointer<QTcpSocket> socket, QByteArrayList pieces)
    {
        if (!socket)
            return;
        socket->write(pieces.takeFirst());
        if (!pieces.isEmpty())
            QTimer::singleShot(10, this, [=] { write(socket, pieces); });
        else if (m_closeAfter)
            socket->disconnectFromHost();
    }

    QTcpServer m_server;
    QByteArrayList m_answers;
    QHash<QTcpSocket*, QByteArray> m_pending;
    int m_served = 0;
    bool m_closeAfter;
};

QByteArray compressed(const QByteArray& data, int windowBits)
{
    z_stream stream {};
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    QByteArray out(int(deflateBound(&stream, uLong(data.size()))) + 32, Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.constData()));
    stream.avail_in = uInt(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = uInt(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(int(stream.total_out));
    deflateEnd(&stream);
    return out;
}

QByteArray withBody(const QByteArray& head, const QByteArray& body)
{
    return head + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// What a caller can see of one reply.
struct Outcome
{
    QString className;
    int error = -1;
    QString errorString;
    QVariant status, reason, redirect;
    QByteArray body;
    QByteArrayList headers;
    QString signalTrace;
    bool isFinished = false;

    QString describe() const
    {
        return QStringLiteral("%1 '%2' %3 %4 %5 body=%6 headers=%7 signals=%8 finished=%9")
            .arg(error)
            .arg(errorString, status.toString(), reason.toString(), redirect.toString(),
                QString::fromLatin1(body.toPercentEncoding(" <>/")), QString::fromLatin1(headers.join('|')),
                signalTrace)
            .arg(isFinished);
    }
};

enum class Cancel { None, Abort, Close };

Outcome run(QNetworkAccessManager& manager, const QUrl& url, const QByteArray& op, bool soap, int timeoutMs,
    Cancel cancel = Cancel::None, ScriptServer* server = nullptr)
{
    QNetworkRequest request(url);
    if (soap) {
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
        request.setRawHeader("Connection", "Close");
    }
    request.setTransferTimeout(timeoutMs);
    QNetworkReply* reply
        = op == "GET" ? manager.get(request) : manager.post(request, QByteArrayLiteral("<Envelope/>"));
    Outcome outcome;
    QStringList trace;
    auto note = [&trace](const QString& name) {
        if (trace.isEmpty() || trace.last() != name || name != QLatin1String("read"))
            trace.append(name);
    };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, [&] { note(QStringLiteral("meta")); });
    QObject::connect(reply, &QNetworkReply::readyRead, [&] {
        note(QStringLiteral("read"));
        outcome.body += reply->readAll();
    });
    QObject::connect(reply, &QNetworkReply::errorOccurred, [&] { note(QStringLiteral("error")); });
    QObject::connect(reply, &QNetworkReply::finished, [&] { note(QStringLiteral("finished")); });
    if (cancel != Cancel::None) {
        const int before = server->requests.size();
        if (QTest::qWaitFor([&] { return server->requests.size() > before; }))
            cancel == Cancel::Abort ? reply->abort() : reply->close();
    }
    if (!QTest::qWaitFor([&] { return reply->isFinished(); }))
        qWarning("reply never finished");
    QTest::qWait(30); // a second finished would show
    outcome.className = QString::fromLatin1(reply->metaObject()->className());
    outcome.error = reply->error();
    outcome.errorString = reply->errorString();
    outcome.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    outcome.reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute);
    outcome.redirect = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (reply->isOpen())
        outcome.body += reply->readAll();
    for (const QByteArray& name : reply->rawHeaderList())
        outcome.headers.append(name + ": " + reply->rawHeader(name));
    outcome.signalTrace = trace.join(',');
    outcome.isFinished = reply->isFinished();
    delete reply;
    return outcome;
}

} // namespace

class TestNetworkManager : public QObject
{
    Q_OBJECT

private slots:
    void sameAsQt_data();
    void sameAsQt();
    void connections_data();
    void connections();
    void deleteInFlight_data();
    void deleteInFlight();
    void readBufferLimit();
    void requestLargerThanSocketBuffers();
    void managersInOneThread();
    void movedToAnotherThread();
    void fallsBackToQt_data();
    void fallsBackToQt();
};

void TestNetworkManager::sameAsQt_data()
{
    QTest::addColumn<QByteArray>("op");
    QTest::addColumn<bool>("soap");
    QTest::addColumn<QByteArrayList>("answers");
    QTest::addColumn<int>("requests");
    QTest::addColumn<bool>("closeAfter");
    QTest::addColumn<int>("timeoutMs");
    QTest::addColumn<int>("cancel");
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("host");

    const QByteArray ok = withBody("HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\n", "<ok/>");
    const QByteArray text = "plain text, compressed on the way";
    auto add = [](const char* name, const QByteArray& op, bool soap, const QByteArrayList& answers,
                   int requests, bool closeAfter, int error, const QByteArray& body, int timeoutMs = 0,
                   Cancel cancel = Cancel::None, const QString& host = QStringLiteral("127.0.0.1")) {
        QTest::newRow(name) << op << soap << answers << requests << closeAfter << timeoutMs << int(cancel)
                            << error << body << host;
    };
    add("soap post", "POST", true, { ok }, 1, true, 0, "<ok/>");
    add("get, keep-alive", "GET", false, { ok }, 2, false, 0, "<ok/>");
    add("pieces", "POST", true,
        { "HTTP/1.1 200 OK\r\nCont\x01"
          "ent-Length: 5\r\n\r\nhe\x01llo" },
        1, false, 0, "hello");
    add("chunked", "POST", true,
        { "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n4;x=y\x01\r\ndefg\r\n0\r\nT: "
          "1\r\n\r\n" },
        2, false, 0, "abcdefg");
    add("chunk sizes past 9", "GET", false,
        { "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1a\r\n" + QByteArray(26, 'a') + "\r\nB\r\n"
            + QByteArray(11, 'b') + "\r\n0\r\n\r\n" },
        1, false, 0, QByteArray(26, 'a') + QByteArray(11, 'b'));
    add("until close", "POST", true, { "HTTP/1.1 200 OK\r\n\r\nto the end" }, 1, true, 0, "to the end");
    add("http/1.0", "GET", false, { "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok" }, 2, false, 0, "ok");
    add("100 continue", "POST", true, { "HTTP/1.1 100 Continue\r\n\r\n" + ok }, 1, false, 0, "<ok/>");
    add("204", "POST", true, { "HTTP/1.1 204 No Content\r\n\r\n" }, 2, false, 0, "");
    add("repeated and folded headers", "GET", false,
        { withBody("HTTP/1.1 200 OK\r\nX-A: 1\r\nx-a: 2\r\n 3\r\nlocation: /x\r\n", "ok") }, 1, false, 0,
        "ok");
    add("no reason phrase", "GET", false, { "HTTP/1.1 200\r\nContent-Length: 2\r\n\r\nok" }, 1, false, 0,
        "ok");
    add("302 not followed", "GET", false,
        { withBody("HTTP/1.1 302 Found\r\nLocation: /elsewhere\r\n", "moved") }, 1, false, 0, "moved");
    const QByteArray fault = "<Fault/>";
    // Named codes, and the fallbacks for unnamed 4xx and 5xx ones.
    const QList<QPair<int, int>> statuses = { { 401, QNetworkReply::AuthenticationRequiredError },
        { 404, QNetworkReply::ContentNotFoundError }, { 418, QNetworkReply::ProtocolInvalidOperationError },
        { 429, QNetworkReply::UnknownContentError }, { 500, QNetworkReply::InternalServerError },
        { 502, QNetworkReply::UnknownServerError } };
    for (const auto& [status, error] : statuses) {
        const QByteArray name = "status " + QByteArray::number(status);
        add(name.constData(), "POST", true,
            { withBody(
                "HTTP/1.1 " + QByteArray::number(status) + " Text\r\nWWW-Authenticate: Basic realm=\"r\"\r\n",
                fault) },
            1, false, error, fault);
    }
    add("body cut short", "POST", true, { "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc" }, 1, true,
        QNetworkReply::RemoteHostClosedError, "abc");
    add("chunks cut short", "POST", true,
        { "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n5\r\nde" }, 1, true,
        QNetworkReply::RemoteHostClosedError, "abcde");
    add("no http", "POST", true, { "SSH-2.0-OpenSSH\r\n\r\n" }, 1, true, QNetworkReply::RemoteHostClosedError,
        "");
    add("stale keep-alive retried", "GET", false, { ok, "DROP", ok }, 2, false, 0, "<ok/>");
    add("stale keep-alive, retry dropped too", "GET", false, { ok, "DROP", "DROP" }, 2, false,
        QNetworkReply::RemoteHostClosedError, "");
    add("gzip", "GET", false,
        { withBody("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n", compressed(text, 31)) }, 1, false, 0,
        text);
    add("deflate", "GET", false,
        { withBody("HTTP/1.1 200 OK\r\nContent-Encoding: deflate\r\n", compressed(text, 15)) }, 1, false, 0,
        text);
    add("corrupt gzip", "GET", false, { withBody("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n", "hello") },
        1, false, QNetworkReply::ProtocolFailure, "");
    add("transfer timeout", "POST", true, { "SILENT" }, 1, false, QNetworkReply::OperationCanceledError, "",
        100);
    add("abort", "POST", true, { "SILENT" }, 1, false, QNetworkReply::OperationCanceledError, "", 0,
        Cancel::Abort);
    add("close", "POST", true, { "SILENT" }, 1, false, QNetworkReply::OperationCanceledError, "", 0,
        Cancel::Close);
    add("refused", "POST", true, { "REFUSED" }, 1, false, QNetworkReply::ConnectionRefusedError, "");
    // Looked up; where localhost is ::1 first, that address refuses and the next one answers.
    add("host name", "GET", false, { ok }, 2, false, 0, "<ok/>", 0, Cancel::None,
        QStringLiteral("localhost"));
    const QByteArray big(300 * 1024, 'x');
    add("body larger than a read", "POST", true, { withBody("HTTP/1.1 200 OK\r\n", big) }, 1, false, 0, big);
}

// Each exchange runs through Qt's manager and ours: same outcome, same request bytes.
void TestNetworkManager::sameAsQt()
{
    QFETCH(QByteArray, op);
    QFETCH(bool, soap);
    QFETCH(QByteArrayList, answers);
    QFETCH(int, requests);
    QFETCH(bool, closeAfter);
    QFETCH(int, timeoutMs);
    QFETCH(int, cancel);
    QFETCH(int, error);
    QFETCH(QByteArray, body);
    QFETCH(QString, host);

    ScriptServer server(answers, closeAfter);
    QUrl url = server.url();
    url.setHost(host);
    if (answers.first() == "REFUSED")
        url.setPort(closedPort());
    QNetworkAccessManager qt;
    Onvif::NetworkAccessManager ours;
    QVector<Outcome> expected;
    for (int i = 0; i < requests; ++i)
        expected.append(run(qt, url, op, soap, timeoutMs, Cancel(cancel), &server));
    QByteArrayList qtRequests = server.requests;
    server.reset();
    for (int i = 0; i < requests; ++i) {
        const Outcome outcome = run(ours, url, op, soap, timeoutMs, Cancel(cancel), &server);
        QCOMPARE(outcome.className, QString::fromLatin1(ourReply));
        QCOMPARE(outcome.describe(), expected.at(i).describe());
    }
    QCOMPARE(expected.last().error, error);
    QCOMPARE(expected.last().body, body);
    // Qt sends a request again after some failures; the texts are what must agree.
    auto distinct = [](const QByteArrayList& texts) {
        QByteArrayList result;
        for (const QByteArray& text : texts)
            if (!result.contains(text))
                result.append(text);
        return result;
    };
    QCOMPARE(distinct(server.requests), distinct(qtRequests));
}

void TestNetworkManager::connections_data()
{
    QTest::addColumn<bool>("soap");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("parallel");
    QTest::addColumn<bool>("clearCache");
    QTest::addColumn<int>("connections");

    const QByteArray ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    QTest::newRow("kept alive") << false << ok << 1 << false << 1;
    QTest::newRow("client says close") << true << ok << 1 << false << 3;
    QTest::newRow("server says close")
        << false << QByteArray("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\nok") << 1
        << false << 3;
    QTest::newRow("http/1.0") << false << QByteArray("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok") << 1
                              << false << 3;
    QTest::newRow("http/1.0 keep-alive")
        << false << QByteArray("HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\nContent-Length: 2\r\n\r\nok")
        << 1 << false << 1;
    QTest::newRow("six at once per host") << false << ok << 9 << false << 6;
    QTest::newRow("cache cleared between rounds") << false << ok << 2 << true << 6;
}

// Three rounds of requests: connections are reused only when both sides allow it, six at most,
// and not after the cache is cleared.
void TestNetworkManager::connections()
{
    QFETCH(bool, soap);
    QFETCH(QByteArray, answer);
    QFETCH(int, parallel);
    QFETCH(bool, clearCache);
    QFETCH(int, connections);

    // The server closes first only where the body runs until it does; elsewhere the client decided.
    ScriptServer server({ answer }, !answer.contains("Content-Length"));
    Onvif::NetworkAccessManager manager;
    QNetworkRequest request(server.url());
    if (soap)
        request.setRawHeader("Connection", "Close");
    for (int round = 0; round < 3; ++round) {
        QVector<QNetworkReply*> replies;
        for (int i = 0; i < parallel; ++i)
            replies.append(manager.get(request));
        for (QNetworkReply* reply : replies) {
            QTRY_VERIFY(reply->isFinished());
            QCOMPARE(reply->error(), QNetworkReply::NoError);
            QCOMPARE(reply->readAll(), QByteArray("ok"));
            delete reply;
        }
        if (clearCache) {
            manager.clearConnectionCache();
            QTRY_COMPARE(server.open, 0);
        }
    }
    QCOMPARE(server.requests.size(), 3 * parallel);
    QCOMPARE(server.connections, connections);
}

void TestNetworkManager::deleteInFlight_data()
{
    QTest::addColumn<bool>("deleteManager");
    QTest::addColumn<bool>("keepReply");
    QTest::newRow("reply") << false << false;
    QTest::newRow("manager") << true << false;
    QTest::newRow("manager, reply kept") << true << true;
}

// Nothing signalled, the connection closed, and a kept manager serves the next request.
// A reply that outlives its manager hears the connection close, once.
void TestNetworkManager::deleteInFlight()
{
    QFETCH(bool, deleteManager);
    QFETCH(bool, keepReply);

    ScriptServer server({ "SILENT", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok" });
    auto* manager = new Onvif::NetworkAccessManager;
    QNetworkReply* reply = manager->get(QNetworkRequest(server.url()));
    if (keepReply)
        reply->setParent(nullptr);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QSignalSpy managerFinished(manager, &QNetworkAccessManager::finished);
    QTRY_COMPARE(server.requests.size(), 1);
    QCOMPARE(server.open, 1);
    if (deleteManager)
        delete manager;
    else
        delete reply;
    QTRY_COMPARE(server.open, 0);
    QCOMPARE(finished.count(), keepReply ? 1 : 0);
    if (keepReply) {
        QCOMPARE(reply->error(), QNetworkReply::RemoteHostClosedError);
        QTest::qWait(30);
        QCOMPARE(finished.count(), 1);
        delete reply;
        return;
    }
    QCOMPARE(managerFinished.count(), 0);
    if (deleteManager)
        return;
    QNetworkReply* next = manager->get(QNetworkRequest(server.url()));
    QTRY_VERIFY(next->isFinished());
    QCOMPARE(next->readAll(), QByteArray("ok"));
    QCOMPARE(managerFinished.count(), 1);
    delete manager;
}

// A reader that sets a limit holds back the rest in the kernel, and still gets every byte.
void TestNetworkManager::readBufferLimit()
{
    // More than loopback's socket buffers hold, so a reader that stops stops the sender.
    QByteArray body(32 * 1024 * 1024, Qt::Uninitialized);
    for (int i = 0; i < body.size(); ++i)
        body[i] = char('a' + i % 23);
    ScriptServer server({ withBody("HTTP/1.1 200 OK\r\n", body) });
    Onvif::NetworkAccessManager manager;
    Onvif::Limits limits = manager.limits();
    limits.maxReplyBytes = body.size();
    manager.setLimits(limits);
    QNetworkReply* reply = manager.get(QNetworkRequest(server.url()));
    reply->setReadBufferSize(4096);
    QTRY_VERIFY(reply->bytesAvailable() > 0);
    QTest::qWait(300);
    QVERIFY2(reply->bytesAvailable() <= 4096, QByteArray::number(reply->bytesAvailable()).constData());
    QVERIFY2(server.unsent() > body.size() / 2, QByteArray::number(server.unsent()).constData());
    QByteArray got;
    QElapsedTimer clock;
    clock.start();
    qint64 most = 0;
    while (!reply->isFinished() || reply->bytesAvailable() > 0) {
        got += reply->read(4000);
        most = qMax(most, reply->bytesAvailable());
        QCoreApplication::processEvents();
        QVERIFY(clock.elapsed() < 20000);
    }
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(got.size(), body.size());
    QVERIFY(got == body);
    QVERIFY2(most <= 4096, QByteArray::number(most).constData());
    delete reply;
}

// The server reads only when this thread's loop runs, so the kernel takes the request in
// parts: what it did not take at first must still go out, in order.
void TestNetworkManager::requestLargerThanSocketBuffers()
{
    QByteArray body(32 * 1024 * 1024, Qt::Uninitialized);
    for (int i = 0; i < body.size(); ++i)
        body[i] = char('a' + i % 23);
    ScriptServer server({ "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok" });
    Onvif::NetworkAccessManager manager;
    QNetworkRequest request(server.url());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("text/plain"));
    request.setTransferTimeout(10000);
    QScopedPointer<QNetworkReply> reply(manager.post(request, body));
    QCOMPARE(QString::fromLatin1(reply->metaObject()->className()), QString::fromLatin1(ourReply));
    QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 15000);
    QCOMPARE(reply->error(), QNetworkReply::NoError);
    QCOMPARE(server.requests.size(), 1);
    QVERIFY(server.requests.first().endsWith(body));
}

// Managers of one thread share its poller: deleting one, even from the middle of another
// one's signal, leaves the others' connections working.
void TestNetworkManager::managersInOneThread()
{
    const QByteArray ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    ScriptServer slow({ "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\no\x01k" });
    ScriptServer fast({ ok });
    ScriptServer silent({ "SILENT" });
    auto* first = new Onvif::NetworkAccessManager;
    auto* second = new Onvif::NetworkAccessManager;
    auto* third = new Onvif::NetworkAccessManager;
    QNetworkReply* kept = first->get(QNetworkRequest(slow.url()));
    QNetworkReply* doomed = third->get(QNetworkRequest(silent.url()));
    QTRY_COMPARE(silent.requests.size(), 1);
    QNetworkReply* deleter = second->get(QNetworkRequest(fast.url()));
    QByteArray answer;
    connect(deleter, &QNetworkReply::finished, this, [&] {
        answer = deleter->readAll();
        delete third;
        delete second; // the reply whose signal this is goes with it
    });
    QTRY_COMPARE(answer, QByteArray("ok"));
    QTRY_COMPARE(silent.open, 0);
    Q_UNUSED(doomed);
    QTRY_VERIFY(kept->isFinished());
    QCOMPARE(kept->error(), QNetworkReply::NoError);
    QCOMPARE(kept->readAll(), QByteArray("ok"));
    // The thread's poller is made again after its last user went.
    delete first;
    Onvif::NetworkAccessManager again;
    QNetworkReply* last = again.get(QNetworkRequest(fast.url()));
    QTRY_VERIFY(last->isFinished());
    QCOMPARE(last->readAll(), QByteArray("ok"));
}

// A manager moved to a worker thread takes its connections' watching along: the idle one
// is closed, the request in flight on a reused connection is sent again from the worker,
// and the next request is served there.
void TestNetworkManager::movedToAnotherThread()
{
    const QByteArray ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";
    ScriptServer server({ ok, ok, "SILENT", ok, ok });
    auto* manager = new Onvif::NetworkAccessManager;
    QNetworkReply* first = manager->get(QNetworkRequest(server.url()));
    QNetworkReply* second = manager->get(QNetworkRequest(server.url()));
    QTRY_VERIFY(first->isFinished() && second->isFinished());
    QCOMPARE(server.open, 2);
    delete first;
    delete second;
    QNetworkReply* inFlight = manager->get(QNetworkRequest(server.url()));
    QTRY_COMPARE(server.requests.size(), 3);
    std::atomic<bool> inFlightDone { false };
    QByteArray inFlightBody;
    QThread* inFlightThread = nullptr;
    connect(inFlight, &QNetworkReply::finished, inFlight, [&] {
        inFlightBody = inFlight->readAll();
        inFlightThread = QThread::currentThread();
        inFlightDone = true;
    });

    QThread worker;
    worker.start();
    manager->moveToThread(&worker);
    QTRY_VERIFY(inFlightDone);
    QCOMPARE(inFlightThread, &worker);
    QCOMPARE(inFlightBody, QByteArray("ok"));

    std::atomic<bool> nextDone { false };
    QByteArray nextBody;
    QMetaObject::invokeMethod(manager, [&] {
        QNetworkReply* next = manager->get(QNetworkRequest(server.url()));
        connect(next, &QNetworkReply::finished, next, [&, next] {
            nextBody = next->readAll();
            nextDone = true;
        });
    });
    QTRY_VERIFY(nextDone);
    QCOMPARE(nextBody, QByteArray("ok"));
    QMetaObject::invokeMethod(manager, [manager] { delete manager; });
    worker.quit();
    QVERIFY(worker.wait(5000));
    QTRY_COMPARE(server.open, 0);
    QCOMPARE(server.requests.size(), 5);
}

void TestNetworkManager::fallsBackToQt_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QByteArray>("op");
    QTest::addColumn<QString>("setup");
    QTest::addColumn<bool>("served");

    const QString http = QStringLiteral("http://127.0.0.1:%1/").arg(closedPort());
    QTest::newRow("plain post") << http << QByteArray("POST") << QString() << true;
    QTest::newRow("https") << QStringLiteral("https://127.0.0.1:%1/").arg(closedPort()) << QByteArray("POST")
                           << QString() << false;
    QTest::newRow("put") << http << QByteArray("PUT") << QString() << false;
    QTest::newRow("user info") << QStringLiteral("http://u:p@127.0.0.1:%1/").arg(closedPort())
                               << QByteArray("GET") << QString() << false;
    QTest::newRow("manager proxy") << http << QByteArray("GET") << QStringLiteral("proxy") << false;
    // Qt never proxies loopback; the reply is aborted before anything leaves for the other address.
    QTest::newRow("application proxy, loopback")
        << http << QByteArray("GET") << QStringLiteral("appProxy") << true;
    QTest::newRow("application proxy")
        << QStringLiteral("http://192.0.2.1/") << QByteArray("GET") << QStringLiteral("appProxy") << false;
    QTest::newRow("follows redirects") << http << QByteArray("GET") << QStringLiteral("redirect") << false;
    QTest::newRow("authentication handler") << http << QByteArray("GET") << QStringLiteral("auth") << false;
    QTest::newRow("cookie for the host") << http << QByteArray("GET") << QStringLiteral("cookie") << false;
}

void TestNetworkManager::fallsBackToQt()
{
    QFETCH(QString, url);
    QFETCH(QByteArray, op);
    QFETCH(QString, setup);
    QFETCH(bool, served);

    Onvif::NetworkAccessManager manager;
    QNetworkRequest request { QUrl(url) };
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("text/plain"));
    if (setup == QLatin1String("proxy"))
        manager.setProxy(QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), closedPort()));
    if (setup == QLatin1String("appProxy"))
        QNetworkProxy::setApplicationProxy(
            QNetworkProxy(QNetworkProxy::HttpProxy, QStringLiteral("127.0.0.1"), closedPort()));
    if (setup == QLatin1String("redirect"))
        request.setAttribute(
            QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    if (setup == QLatin1String("auth"))
        connect(&manager, &QNetworkAccessManager::authenticationRequired, this, [] {});
    if (setup == QLatin1String("cookie"))
        manager.cookieJar()->setCookiesFromUrl({ QNetworkCookie("a", "b") }, request.url());
    QNetworkReply* reply = op == "GET" ? manager.get(request)
        : op == "PUT"                  ? manager.put(request, QByteArray("x"))
                                       : manager.post(request, QByteArray("x"));
    QNetworkProxy::setApplicationProxy(QNetworkProxy::DefaultProxy);
    QCOMPARE(QString::fromLatin1(reply->metaObject()->className()) == QLatin1String(ourReply), served);
    reply->abort();
    delete reply;
}

QTEST_GUILESS_MAIN(TestNetworkManager)
#include "tst_networkManager.moc"
