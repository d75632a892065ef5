// onvif-sim-bench: drives signed SOAP requests at simulated cameras and reports requests per second.
//
//   onvif-sim-bench --in-process 200 --threads 8 --seconds 10 [--close]
//   onvif-sim-bench --ports 20000-20199 ...   (against a separate onvif-camera-sim --port 20000 --cameras
//   200)

#include "fleet.h"
#include "wsSecurity.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

using namespace CameraSim;

namespace {

QByteArray signedRequest(std::mt19937& rng, const QString& user, const QString& password, const QString& body)
{
    QByteArray nonce(16, Qt::Uninitialized);
    for (char& c : nonce)
        c = static_cast<char>(rng() & 0xff);
    const QString created
        = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ"));
    const QString header = QStringLiteral(
        "<Security s:mustUnderstand=\"1\" xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-wssecurity-secext-1.0.xsd\"><UsernameToken><Username>%1</Username><Password Type=\""
        "http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-username-token-profile-1.0#PasswordDigest\">%2"
        "</Password><Nonce>%3</Nonce><Created xmlns=\"http://docs.oasis-open.org/wss/2004/01/"
        "oasis-200401-wss-wssecurity-utility-1.0.xsd\">%4</Created></UsernameToken></Security>")
                               .arg(user, DigestVerifier::digest(nonce, created, password),
                                   QString::fromLatin1(nonce.toBase64()), created);
    return QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<s:Envelope xmlns:s=\"http://www.w3.org/2003/"
        "05/soap-envelope\" xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" xmlns:trt=\"http://"
        "www.onvif.org/ver10/media/wsdl\"><s:Header>%1</s:Header><s:Body>%2</s:Body></s:Envelope>")
        .arg(header, body)
        .toUtf8();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption inProcess(
        QStringLiteral("in-process"), QStringLiteral("Start this many cameras here."), QStringLiteral("n"));
    const QCommandLineOption ports(QStringLiteral("ports"),
        QStringLiteral("Port range first-last of running cameras."), QStringLiteral("range"));
    const QCommandLineOption threads(QStringLiteral("threads"), QStringLiteral("Client threads."),
        QStringLiteral("n"), QStringLiteral("8"));
    const QCommandLineOption seconds(
        QStringLiteral("seconds"), QStringLiteral("Duration."), QStringLiteral("s"), QStringLiteral("10"));
    const QCommandLineOption close(
        QStringLiteral("close"), QStringLiteral("Send Connection: close (a new connection per request)."));
    const QCommandLineOption operation(QStringLiteral("operation"),
        QStringLiteral("GetDeviceInformation (default) or GetProfiles."), QStringLiteral("name"),
        QStringLiteral("GetDeviceInformation"));
    parser.addOptions({ inProcess, ports, threads, seconds, close, operation });
    parser.process(app);

    Fleet fleet;
    QVector<quint16> targets;
    if (parser.isSet(inProcess)) {
        QString error;
        if (!fleet.start(parser.value(inProcess).toInt(), CameraConfig::defaultCamera(), &error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 2;
        }
        targets = fleet.ports();
    } else if (parser.isSet(ports)) {
        const QStringList range = parser.value(ports).split(QLatin1Char('-'));
        for (int p = range.value(0).toInt(); p <= range.value(1, range.value(0)).toInt(); ++p)
            targets.append(static_cast<quint16>(p));
    }
    if (targets.isEmpty()) {
        std::fprintf(stderr, "give --in-process N or --ports first-last\n");
        return 2;
    }

    const int threadCount = std::max(1, parser.value(threads).toInt());
    const bool keepAlive = !parser.isSet(close);
    const QString body = parser.value(operation) == QLatin1String("GetProfiles")
        ? QStringLiteral("<trt:GetProfiles/>")
        : QStringLiteral("<tds:GetDeviceInformation/>");
    std::atomic<bool> running { true };
    std::atomic<long> ok { 0 }, failed { 0 };
    std::vector<std::thread> workers;
    for (int t = 0; t < threadCount; ++t) {
        workers.emplace_back([&, t] {
            std::mt19937 rng(static_cast<unsigned>(t * 7919 + 1));
            // Each camera is served by one client thread, as a viewing program would hold it.
            std::vector<std::unique_ptr<httplib::Client>> clients;
            for (int i = t; i < targets.size(); i += threadCount) {
                clients.push_back(std::make_unique<httplib::Client>("127.0.0.1", targets[i]));
                clients.back()->set_keep_alive(keepAlive);
                clients.back()->set_tcp_nodelay(true);
            }
            size_t next = 0;
            while (running && !clients.empty()) {
                httplib::Client& client = *clients[next++ % clients.size()];
                const QByteArray request
                    = signedRequest(rng, QStringLiteral("admin"), QStringLiteral("admin"), body);
                auto res = client.Post("/onvif/device_service", request.constData(),
                    static_cast<size_t>(request.size()), "application/soap+xml");
                if (res && res->status == 200)
                    ++ok;
                else
                    ++failed;
            }
        });
    }
    const auto begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(parser.value(seconds).toDouble()));
    running = false;
    for (auto& w : workers)
        w.join();
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::printf("cameras %d threads %d %s: %ld ok, %ld failed in %.1f s = %.0f requests/s\n", targets.size(),
        threadCount, keepAlive ? "keep-alive" : "Connection: close", ok.load(), failed.load(), elapsed,
        static_cast<double>(ok.load()) / elapsed);
    fleet.stop();
    return failed.load() == 0 ? 0 : 1;
}
