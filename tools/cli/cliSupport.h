#ifndef ONVIFCLI_CLISUPPORT_H
#define ONVIFCLI_CLISUPPORT_H

#include <QElapsedTimer>
#include <QFuture>
#include <QFutureWatcher>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QSslConfiguration>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <csignal>
#include <memory>

#include <boost/shared_ptr.hpp>

namespace Onvif {
class NetworkAccessManager;
}

namespace Cli {

// Exit codes a script can rely on.
enum Exit {
    Ok = 0,
    DeviceFault = 1, // the device answered with a SOAP fault
    BadArguments = 2, // bad arguments or URL
    Unreachable = 3, // network error or no answer in time
    AuthFailed = 4, // wrong user name or password
};

struct Options
{
    QString user;
    QString password;
    bool json = false;
    bool csv = false; // discover only
    bool verbose = false;
    int timeoutMs = 10000;
    bool tlsSet = false; // --cacert or --insecure
    QSslConfiguration tls;
};

// Sees the library's log records (as any host's sink would) so that a failed call
// can be reported with its reason; prints them all with --verbose.
class LibraryLog
{
public:
    explicit LibraryLog(bool echo);
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

    void clear();
    // The last error record (severity 4) since clear(), or an empty text.
    QString lastError() const;

    struct Sink;

private:
    boost::shared_ptr<Sink> m_sink;
    boost::shared_ptr<void> m_frontend;
};

// SIGINT and SIGTERM, while one lives, are noted instead of ending the process, so that a
// command can leave the camera tidy (a move stopped, a subscription cancelled).
class Interruption
{
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    bool happened() const { return m_happened; }

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
    struct sigaction m_oldInt
    {
    };
    struct sigaction m_oldTerm
    {
    };
    bool m_happened = false;
};

// "Waiting for ..." on stderr while a slow device keeps us waiting.
class Progress
{
public:
    explicit Progress(const QString& what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    QString m_what;
    QTimer m_timer;
    QElapsedTimer m_elapsed;
    bool m_started = false;
};

// Gives the manager the TLS settings of --cacert / --insecure and, with --verbose, a line on
// stderr per exchange (status and time); returns it.
Onvif::NetworkAccessManager* configure(const Options& options, Onvif::NetworkAccessManager* manager);

// Runs the event loop until the future finishes or timeoutMs passes; false on timeout.
bool await(const QFuture<void>& future, int timeoutMs, const QString& what);
template <typename T> bool await(const QFuture<T>& future, int timeoutMs, const QString& what)
{
    return await(QFuture<void>(future), timeoutMs, what);
}

// Runs the event loop until done() is true or timeoutMs passes; false on timeout.
bool awaitCondition(const std::function<bool()>& done, int timeoutMs, const QString& what);

// A device-service URL the library can use, or an explanation in *error.
bool parseDeviceUrl(const QString& text, QUrl* url, QString* error);

// Asks on the terminal, without echo.
QString askPassword(const QString& user);

void printLine(const QString& text);
void printError(const QString& text);
void printJson(const QJsonObject& object);
// The last text printError printed, and whether any JSON went to stdout.
QString lastError();
bool jsonPrinted();
// For output written as JSON lines rather than through printJson.
void markJsonPrinted();

} // namespace Cli

#endif
