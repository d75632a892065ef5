// A camera that attacks the HTTP layer: endless or huge bodies and headers, bombs,
// broken framing, trickling and silence. Each case must end in its own error, in time,
// without the process growing.
#include "futureWait.h"

#include <onvifTypes/onvifDeviceInfo.h>
#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifRequests.h>

#include <QElapsedTimer>
#include <QFile>
#include <QNetworkReply>
#include <QtTest>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool instrumented = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool instrumented = true;
#else
constexpr bool instrumented = false;
#endif
#else
constexpr bool instrumented = false;
#endif

// Peak resident memory of this process.
qint64 peakRssKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

// One answer: a head, then pieces until the client gives up or the budget runs out.
struct Script
{
    QByteArray head;
    std::function<QByteArray(int)> piece {}; // none: head only, then the connection stays open
    int pauseMs = 0;
};

// Streams of compressed data that never end or end too soon.
class Deflater
{
public:
    explicit Deflater(int windowBits)
    {
        deflateInit2(&m_stream, 1, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
    }
    ~Deflater() { deflateEnd(&m_stream); }
    QByteArray feed(const QByteArray& data, int flush)
    {
        QByteArray out;
        m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.constData()));
        m_stream.avail_in = uInt(data.size());
        do {
            char buffer[65536];
            m_stream.next_out = reinterpret_cast<Bytef*>(buffer);
            m_stream.avail_out = sizeof buffer;
            deflate(&m_stream, flush);
            out.append(buffer, int(sizeof buffer - m_stream.avail_out));
        } while (m_stream.avail_out == 0);
        return out;
    }

private:
    z_stream m_stream {};
};

QByteArray gzip(const QByteArray& data)
{
    return Deflater(31).feed(data, Z_FINISH);
}

// Compressed zeros, made a mebibyte at a time.
QByteArray bomb(int windowBits, int mebibytes)
{
    Deflater deflater(windowBits);
    const QByteArray zeros(1024 * 1024, '\0');
    QByteArray out;
    for (int i = 0; i < mebibytes; ++i)
        out += deflater.feed(zeros, i + 1 == mebibytes ? Z_FINISH : Z_NO_FLUSH);
    return out;
}

QByteArray noise(int size, quint32 seed)
{
    QByteArray out(size, Qt::Uninitialized);
    for (char& c : out) {
        seed = seed * 1664525u + 1013904223u;
        c = char(seed >> 24);
    }
    return out;
}

QByteArray withBody(const QByteArray& head, const QByteArray& body)
{
    return head + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// A loopback server on a thread of its own with blocking sockets, so that it keeps
// sending whatever the client's event loop does. It stops by itself after budgetMs.
class HostileCamera
{
public:
    explicit HostileCamera(Script script, int budgetMs = 6000)
        : m_script(std::move(script))
    {
        m_listen = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(m_listen, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(m_listen, 8);
        socklen_t length = sizeof address;
        ::getsockname(m_listen, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this, budgetMs] { run(budgetMs); });
    }
    ~HostileCamera()
    {
        m_stop = true;
        ::shutdown(m_listen, SHUT_RDWR);
        m_thread.join();
        ::close(m_listen);
    }
    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(m_port)); }

private:
    void run(int budgetMs)
    {
        QElapsedTimer clock;
        clock.start();
        timeval tick { 0, 100 * 1000 };
        setsockopt(m_listen, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
        while (!m_stop && clock.elapsed() < budgetMs) {
            const int fd = ::accept(m_listen, nullptr, nullptr);
            if (fd < 0)
                continue;
            setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tick, sizeof tick);
            setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tick, sizeof tick);
            serve(fd, clock, budgetMs);
            ::close(fd);
        }
    }
    bool sendAll(int fd, const QByteArray& data, const QElapsedTimer& clock, int budgetMs)
    {
        for (qint64 sent = 0; sent < data.size();) {
            if (m_stop || clock.elapsed() >= budgetMs)
                return false;
            const ssize_t n = ::send(fd, data.constData() + sent, size_t(data.size() - sent), MSG_NOSIGNAL);
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
                continue;
            if (n <= 0)
                return false;
            sent += n;
        }
        return true;
    }
    void serve(int fd, const QElapsedTimer& clock, int budgetMs)
    {
        QByteArray request;
        char buffer[4096];
        while (!request.contains("\r\n\r\n")) {
            if (m_stop || clock.elapsed() >= budgetMs)
                return;
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
                return;
            if (n > 0)
                request.append(buffer, int(n));
        }
        if (!sendAll(fd, m_script.head, clock, budgetMs))
            return;
        for (int i = 0; !m_stop && clock.elapsed() < budgetMs; ++i) {
            if (m_script.piece && !sendAll(fd, m_script.piece(i), clock, budgetMs))
                return;
            if (m_script.pauseMs > 0 || !m_script.piece)
                std::this_thread::sleep_for(
                    std::chrono::milliseconds(m_script.piece ? m_script.pauseMs : 20));
            // A client that hung up shows as a readable end of stream.
            if (::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT) == 0)
                return;
        }
    }

    Script m_script;
    int m_listen = -1;
    quint16 m_port = 0;
    std::atomic<bool> m_stop { false };
    std::thread m_thread;
};

const QByteArray ok = "HTTP/1.1 200 OK\r\n";
const QByteArray chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
const QByteArray filler(64 * 1024, 'x');

std::function<QByteArray(int)> always(const QByteArray& piece)
{
    return [piece](int) { return piece; };
}

// A 64 KiB chunk announced with that size text.
Script chunkSized(const QByteArray& size)
{
    return { chunked + size + "\r\n" + filler + "\r\n0\r\n\r\n" };
}

} // namespace

Q_DECLARE_METATYPE(Script)

class TestHostileCamera : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_startKb = peakRssKb(); }
    void attack_data();
    void attack();
    void fastCameraLeavesOthersTheirTurn();
    void lentQtManagerIsBounded();

private:
    void checkMemory()
    {
        const qint64 ceilingKb = (instrumented ? 400 : 100) * 1024;
        const qint64 grownKb = peakRssKb() - m_startKb;
        QVERIFY2(grownKb < ceilingKb, qPrintable(QStringLiteral("peak grew by %1 kB").arg(grownKb)));
    }
    qint64 m_startKb = 0;
};

void TestHostileCamera::attack_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("client"); // soap, snapshot or requests
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("deadlineMs");

    const auto row = [](const char* name, const Script& script, const char* client, const char* text,
                         int error = QNetworkReply::ProtocolFailure, int deadlineMs = 0) {
        QTest::newRow(name) << script << QString::fromLatin1(client) << error << QString::fromLatin1(text)
                            << deadlineMs;
    };
    const Script endlessChunks { chunked, always("10000\r\n" + filler + "\r\n") };
    auto deflater = std::make_shared<Deflater>(31);
    const Script endlessGzip { chunked.left(chunked.size() - 2) + "Content-Encoding: gzip\r\n\r\n",
        [deflater](int i) {
            const QByteArray part = deflater->feed(noise(256 * 1024, quint32(i)), Z_SYNC_FLUSH);
            return QByteArray::number(part.size(), 16) + "\r\n" + part + "\r\n";
        } };
    const QByteArray gzipped = gzip(noise(4096, 7));
    const QByteArray gzipHead = ok + "Content-Encoding: gzip\r\n";

    row("endless chunked body", endlessChunks, "soap",
        "body exceeds the limit of 8388608 bytes (Onvif::Limits::maxReplyBytes)");
    row("endless unframed body", { ok + "\r\n", always(filler) }, "soap", "Onvif::Limits::maxReplyBytes");
    row("huge valid reply", { ok + "Content-Length: 2684354560\r\n\r\n", always(filler) }, "soap",
        "Onvif::Limits::maxReplyBytes");
    row("huge Content-Length snapshot",
        { ok + "Content-Type: image/jpeg\r\nContent-Length: 6442450944\r\n\r\n", always(filler) }, "snapshot",
        "of 16777216 bytes (Onvif::Limits::maxImageBytes)");
    row("endless chunked snapshot", endlessChunks, "snapshot", "Onvif::Limits::maxImageBytes");
    row("endless 100 Continue", { QByteArray(), always("HTTP/1.1 100 Continue\r\n\r\n") }, "soap",
        "Onvif::Limits::maxInterimResponses");
    row("endless status line", { "HTTP/1.1 200 ", always(filler) }, "soap",
        "Onvif::Limits::maxStatusLineBytes");
    row("endless header line", { ok + "X-Long: ", always(filler) }, "soap",
        "Onvif::Limits::maxHeaderLineBytes");
    row("100,000 headers", { ok, [](int i) { return "X-" + QByteArray::number(i) + ": v\r\n"; } }, "soap",
        "Onvif::Limits::maxHeaderCount");
    row("huge headers",
        { ok, [](int i) { return "X-" + QByteArray::number(i) + ": " + QByteArray(8000, 'v') + "\r\n"; } },
        "soap", "Onvif::Limits::maxHeaderBytes");
    row("gzip bomb", { withBody(gzipHead, bomb(31, 64)) }, "soap", "Onvif::Limits::maxDecompressionRatio");
    row("deflate bomb", { withBody(ok + "Content-Encoding: deflate\r\n", bomb(15, 64)) }, "soap",
        "Onvif::Limits::maxDecompressionRatio");
    row("endless gzip", endlessGzip, "soap", "Onvif::Limits::maxReplyBytes");
    for (const char* size : { "-5", "zz", "0x10", "ffffffffffffffffff", "7fffffffffffffff" })
        row(qPrintable(QStringLiteral("chunk size ") + QLatin1String(size)), chunkSized(size), "soap",
            "malformed chunk size");
    row("chunk size 10 (too short)", chunkSized("10"), "soap", "chunk data longer than its size");
    row("conflicting Content-Length", { ok + "Content-Length: 5\r\nContent-Length: 7\r\n\r\nhello, " },
        "soap", "conflicting Content-Length");
    row("truncated gzip", { withBody(gzipHead, gzipped.left(gzipped.size() / 2)) }, "soap",
        "ends inside its compressed body");
    row("gzip of gzip", { withBody(gzipHead, gzip(gzip("<ok/>"))) }, "soap", "compressed more than once");
    row("two encodings", { withBody(ok + "Content-Encoding: gzip, gzip\r\n", gzip(gzip("<ok/>"))) }, "soap",
        "compressed more than once");
    row("trickle", { ok + "Content-Length: 1000\r\n\r\n", always("x"), 200 }, "soap",
        "deadline of 1000 ms (Onvif::Limits::requestDeadlineMs)", QNetworkReply::TimeoutError, 1000);
    row("accept, never answer", { QByteArray() }, "requests", "", -1, 1000);
}

void TestHostileCamera::attack()
{
    QFETCH(Script, script);
    QFETCH(QString, client);
    QFETCH(int, error);
    QFETCH(QString, text);
    QFETCH(int, deadlineMs);
    HostileCamera camera(script);
    Onvif::Limits limits = Onvif::Limits::defaults();
    limits.requestDeadlineMs = deadlineMs > 0 ? deadlineMs : 5000;
    // Every case ends well before the deadline, except those that test it.
    const int allowedMs = deadlineMs > 0 ? deadlineMs + 1000 : (instrumented ? 4000 : 2000);
    QElapsedTimer clock;
    clock.start();

    if (client == QLatin1String("requests")) {
        Onvif::Requests requests(
            QStringLiteral("admin"), QStringLiteral("pw"), camera.url().toString(), false);
        requests.setLimits(limits);
        const QFuture<Onvif::DeviceInfo> future = requests.deviceInfo();
        QVERIFY(waitForFuture(future, allowedMs + 1000));
        QVERIFY(future.isCanceled());
        QVERIFY2(clock.elapsed() >= deadlineMs && clock.elapsed() <= allowedMs,
            qPrintable(QString::number(clock.elapsed())));
        checkMemory();
        return;
    }

    Onvif::NetworkAccessManager manager;
    manager.setLimits(limits);
    QNetworkRequest request(camera.url());
    QNetworkReply* reply = nullptr;
    if (client == QLatin1String("snapshot")) {
        request.setAttribute(Onvif::Limits::BodyLimitAttribute, limits.maxImageBytes);
        reply = manager.get(request);
    } else {
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
        reply = manager.post(request, QByteArrayLiteral("<Envelope/>"));
    }
    QByteArray body;
    connect(reply, &QNetworkReply::readyRead, this, [&] { body += reply->readAll(); });
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(finished.wait(allowedMs + 1000) || finished.count() == 1);
    const qint64 elapsed = clock.elapsed();
    QCoreApplication::processEvents(); // a second finished would show
    QCOMPARE(finished.count(), 1);
    QCOMPARE(int(reply->error()), error);
    QVERIFY2(reply->errorString().contains(text), qPrintable(reply->errorString()));
    QVERIFY2(elapsed <= allowedMs && elapsed >= deadlineMs, qPrintable(QString::number(elapsed)));
    QVERIFY(body.size() <= limits.maxImageBytes);
    delete reply;
    checkMemory();
}

// A camera that always has data ready takes its share of a wake-up and no more: a 50 ms
// timer still fires on time and a second camera is answered while the first one streams.
void TestHostileCamera::fastCameraLeavesOthersTheirTurn()
{
    HostileCamera flood({ ok + "\r\n", always(filler) }, 4000);
    HostileCamera second({ withBody(ok, "<ok/>") });
    Onvif::NetworkAccessManager manager;
    Onvif::Limits limits = manager.limits();
    limits.maxReplyBytes = qint64(8) << 30; // the flood is not cut short by its size
    limits.requestDeadlineMs = 3000;
    manager.setLimits(limits);

    QNetworkReply* flooding = manager.get(QNetworkRequest(flood.url()));
    qint64 flooded = 0;
    connect(flooding, &QNetworkReply::readyRead, this, [&] { flooded += flooding->readAll().size(); });
    QTRY_VERIFY(flooded > 0);

    QElapsedTimer clock;
    clock.start();
    qint64 firedAt = -1;
    QTimer::singleShot(50, this, [&] { firedAt = clock.elapsed(); });
    QNetworkReply* answered = manager.get(QNetworkRequest(second.url()));
    QTRY_VERIFY_WITH_TIMEOUT(firedAt >= 0 && answered->isFinished(), 2500);
    QVERIFY2(firedAt < (instrumented ? 400 : 150), qPrintable(QString::number(firedAt)));
    QCOMPARE(answered->error(), QNetworkReply::NoError);
    QCOMPARE(answered->readAll(), QByteArray("<ok/>"));
    QVERIFY(!flooding->isFinished());
    QVERIFY(flooded > 1024 * 1024);
    delete answered;
    delete flooding;
    checkMemory();
}

// An object given Qt's own manager by the host still refuses a huge answer once its size is
// known, long before its own time-out. (An endless body is cut too, but Qt's network thread
// may read far ahead of the main thread meanwhile: that memory is Qt's to bound.)
void TestHostileCamera::lentQtManagerIsBounded()
{
    HostileCamera camera({ ok + "Content-Length: 2684354560\r\n\r\n", always(filler) }, 4000);
    QNetworkAccessManager manager;
    OnvifDeviceInfo info(manager, nullptr);
    QSignalSpy errors(&info, &OnvifDeviceInfo::error);
    QElapsedTimer clock;
    clock.start();
    info.getDeviceInfo(camera.url(), QStringLiteral("admin"), QStringLiteral("pw"));
    QVERIFY(errors.wait(4500) || errors.count() == 1);
    QVERIFY2(clock.elapsed() < 4000, qPrintable(QString::number(clock.elapsed()))); // not its 5 s timer
    QCOMPARE(errors.first().at(0).toUInt(), 3u);
    checkMemory();
}

QTEST_GUILESS_MAIN(TestHostileCamera)
#include "tst_hostileCamera.moc"
