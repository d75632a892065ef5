// The HTTP reply parser on arbitrary answers: a loopback peer sends the input as its whole
// answer. Every reply must finish exactly once, in time, with no more body than the limit.
#include <onvifTypes/onvifNetworkAccessManager.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace {

constexpr qint64 bodyLimit = 64 * 1024;
constexpr int deadlineMs = 2000;

// Answers one connection at a time with the current input, then closes.
class Peer
{
public:
    Peer()
    {
        m_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (m_fd < 0 || bind(m_fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(m_fd, 8) != 0
            || getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            abort();
        m_port = ntohs(address.sin_port);
        std::thread([this] { serve(); }).detach(); // lives as long as the process
    }

    quint16 port() const { return m_port; }

    void setAnswer(QByteArray answer)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_answer = std::move(answer);
    }

private:
    void serve()
    {
        for (;;) {
            const int client = accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0)
                continue;
            // The request is small; take what has come within a moment, then answer.
            char buffer[4096];
            pollfd p { client, POLLIN, 0 };
            if (poll(&p, 1, 1000) > 0)
                (void)recv(client, buffer, sizeof buffer, 0);
            QByteArray answer;
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                answer = m_answer;
            }
            for (int sent = 0; sent < answer.size();) {
                const ssize_t n
                    = send(client, answer.constData() + sent, size_t(answer.size() - sent), MSG_NOSIGNAL);
                if (n <= 0)
                    break;
                sent += int(n);
            }
            shutdown(client, SHUT_WR);
            close(client);
        }
    }

    int m_fd = -1;
    quint16 m_port = 0;
    std::mutex m_mutex;
    QByteArray m_answer;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz_http";
    static char* argv[] = { name, nullptr };
    static QCoreApplication app(argc, argv);
    static Peer peer;
    static Onvif::NetworkAccessManager manager;
    static const bool configured = [] {
        Onvif::Limits limits = manager.limits();
        limits.maxReplyBytes = bodyLimit;
        limits.requestDeadlineMs = deadlineMs;
        manager.setLimits(limits);
        return true;
    }();
    Q_UNUSED(configured);

    // A cookie an earlier answer set would send this request through Qt's own stack.
    manager.setCookieJar(new QNetworkCookieJar(&manager));
    peer.setAnswer(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    QNetworkRequest request(
        QUrl(QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(peer.port())));
    request.setRawHeader("Connection", "close");
    QNetworkReply* reply = manager.get(request);
    int finished = 0;
    QByteArray body;
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::readyRead, [&] { body += reply->readAll(); });
    QObject::connect(reply, &QNetworkReply::finished, [&] {
        ++finished;
        loop.quit();
    });
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(deadlineMs + 3000, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    QCoreApplication::processEvents(); // a second finished would show here
    body += reply->readAll();
    if (finished != 1 || body.size() > bodyLimit || clock.elapsed() > deadlineMs + 1000)
        abort();
    delete reply;
    return 0;
}
