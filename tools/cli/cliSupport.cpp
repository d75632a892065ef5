#include "cliSupport.h"

#include <onvifTypes/onvifNetworkAccessManager.h>

#include <QRegularExpression>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <QEventLoop>
#include <QFutureWatcher>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QTextStream>

#include <memory>
#include <mutex>
#include <unistd.h>

namespace logging = boost::log;

namespace Cli {

struct LibraryLog::Sink : logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding>
{
    explicit Sink(bool echo)
        : echo(echo)
    { }

    void consume(const logging::record_view& record)
    {
        const auto severity = logging::extract<unsigned int>("Severity", record);
        const auto message = logging::extract<std::string>("Message", record);
        const auto cls = logging::extract<std::string>("ClsName", record);
        const QString text = message ? QString::fromStdString(*message) : QString();
        if (echo) {
            // Traced requests carry the password digest and its nonce: never on a terminal.
            static const QRegularExpression secret(
                QStringLiteral("(<(?:\\w+:)?(?:Password|Nonce)\\b[^>]*>)[^<]*(</)"));
            QString shown = text;
            shown.replace(secret, QStringLiteral("\\1***\\2"));
            QTextStream(stderr) << '[' << (severity ? *severity : 0u) << "] "
                                << (cls ? QString::fromStdString(*cls) : QString()) << ':' << shown << '\n';
        }
        if (severity && *severity >= 4) {
            std::lock_guard<std::mutex> lock(mutex);
            lastError = text;
        }
    }

    const bool echo;
    std::mutex mutex;
    QString lastError;
};

namespace {
using Frontend = logging::sinks::synchronous_sink<LibraryLog::Sink>;
}

LibraryLog::LibraryLog(bool echo)
    : m_sink(boost::make_shared<Sink>(echo))
{
    // Registering a sink also silences Boost.Log's default console output.
    const auto frontend = boost::make_shared<Frontend>(m_sink);
    logging::core::get()->add_sink(frontend);
    m_frontend = frontend;
}

LibraryLog::~LibraryLog()
{
    logging::core::get()->remove_sink(boost::static_pointer_cast<Frontend>(m_frontend));
}

void LibraryLog::clear()
{
    std::lock_guard<std::mutex> lock(m_sink->mutex);
    m_sink->lastError.clear();
}

QString LibraryLog::lastError() const
{
    std::lock_guard<std::mutex> lock(m_sink->mutex);
    return m_sink->lastError;
}

namespace {
int g_interruptPipe[2] = { -1, -1 };
}

// Through a pipe: the only thing a signal handler may safely do.
Interruption::Interruption()
{
    if (pipe2(g_interruptPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(g_interruptPipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] {
        char byte;
        while (read(g_interruptPipe[0], &byte, 1) > 0) { }
        m_happened = true;
    });
    struct sigaction action
    {
    };
    action.sa_handler = [](int) {
        const char byte = 1;
        (void)!write(g_interruptPipe[1], &byte, 1);
    };
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &m_oldInt);
    sigaction(SIGTERM, &action, &m_oldTerm);
}

Interruption::~Interruption()
{
    if (!m_notifier)
        return;
    sigaction(SIGINT, &m_oldInt, nullptr);
    sigaction(SIGTERM, &m_oldTerm, nullptr);
    m_notifier.reset();
    close(g_interruptPipe[0]);
    close(g_interruptPipe[1]);
}

Progress::Progress(const QString& what)
    : m_what(what)
{
    m_elapsed.start();
    m_timer.setInterval(500);
    QObject::connect(&m_timer, &QTimer::timeout, [this] {
        QTextStream err(stderr);
        if (!m_started) {
            err << "Waiting for " << m_what << ' ';
            m_started = true;
        }
        err << '.';
        err.flush();
    });
    m_timer.start();
}

Progress::~Progress()
{
    if (m_started)
        QTextStream(stderr) << QStringLiteral(" %1 s\n").arg(m_elapsed.elapsed() / 1000.0, 0, 'f', 1);
}

bool awaitCondition(const std::function<bool()>& done, int timeoutMs, const QString& what)
{
    if (done())
        return true;
    // Expected waits (long polls, pauses) pass no description and show no progress.
    std::unique_ptr<Progress> progress(what.isEmpty() ? nullptr : new Progress(what));
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(10);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    loop.exec();
    return done();
}

bool await(const QFuture<void>& future, int timeoutMs, const QString& what)
{
    if (future.isFinished())
        return true;
    // Expected waits (long polls) pass no description and show no progress.
    std::unique_ptr<Progress> progress(what.isEmpty() ? nullptr : new Progress(what));
    QEventLoop loop;
    QFutureWatcher<void> watcher;
    QObject::connect(&watcher, &QFutureWatcher<void>::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished())
        loop.exec();
    return future.isFinished();
}

bool parseDeviceUrl(const QString& text, QUrl* url, QString* error)
{
    // A bare host or host:port is what people type; an unbracketed IPv6 address has no port.
    QString full = text;
    if (!text.isEmpty() && !text.contains(QLatin1String("://")))
        full = QLatin1String("http://")
            + (text.count(QLatin1Char(':')) > 1 && !text.startsWith(QLatin1Char('['))
                    ? QLatin1Char('[') + text + QLatin1Char(']')
                    : text);
    const QUrl parsed(full, QUrl::StrictMode);
    if (text.isEmpty()) {
        *error
            = QStringLiteral("a device-service URL is needed, e.g. http://192.168.0.10/onvif/device_service");
        return false;
    }
    if (!parsed.isValid() || parsed.host().isEmpty()
        || (parsed.scheme() != QLatin1String("http") && parsed.scheme() != QLatin1String("https"))) {
        *error = QStringLiteral("not an http(s) URL with a host: %1").arg(text);
        return false;
    }
    *url = parsed;
    if (url->path().isEmpty())
        url->setPath(QStringLiteral("/onvif/device_service"));
    return true;
}

Onvif::NetworkAccessManager* configure(const Options& options, Onvif::NetworkAccessManager* manager)
{
    if (options.tlsSet)
        manager->setSslConfiguration(options.tls);
    if (options.verbose) {
        QObject::connect(manager, &Onvif::NetworkAccessManager::exchangeFinished, manager,
            [](QNetworkReply* reply, qint64 elapsedMs) {
                const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
                const QString answer = status > 0 ? QString::number(status) + QLatin1Char(' ')
                        + reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString()
                                                  : reply->errorString();
                QTextStream(stderr) << "[http] "
                                    << (reply->operation() == QNetworkAccessManager::GetOperation ? "GET "
                                                                                                  : "POST ")
                                    << reply->url().toString(QUrl::RemoveUserInfo) << " -> " << answer << ", "
                                    << elapsedMs << " ms, " << reply->bytesAvailable() << " bytes\n";
            });
    }
    return manager;
}

void printLine(const QString& text)
{
    QTextStream(stdout) << text << '\n';
    // Line by line also into a pipe: a script reading events sees each as it comes.
    fflush(stdout);
}

QString askPassword(const QString& user)
{
    QTextStream(stderr) << "Password for " << user << ": " << Qt::flush;
    termios saved {};
    const bool terminal = tcgetattr(STDIN_FILENO, &saved) == 0;
    if (terminal) {
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    QTextStream in(stdin);
    const QString password = in.readLine(4096);
    if (terminal)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    QTextStream(stderr) << '\n';
    return password;
}

namespace {
QString g_lastError;
bool g_jsonPrinted = false;
} // namespace

void printError(const QString& text)
{
    g_lastError = text;
    QTextStream(stderr) << "onvif-cli: " << text << '\n';
}

void printJson(const QJsonObject& object)
{
    g_jsonPrinted = true;
    QTextStream(stdout) << QJsonDocument(object).toJson(QJsonDocument::Indented);
}

QString lastError()
{
    return g_lastError;
}

bool jsonPrinted()
{
    return g_jsonPrinted;
}

void markJsonPrinted()
{
    g_jsonPrinted = true;
}

} // namespace Cli
