#include "loadGenerator.h"

#include "wsSecurity.h"

#include <QDateTime>

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>

namespace CameraSim {

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

LoadResult runLoad(const LoadOptions& options)
{
    const int threadCount = std::max(1, options.threads);
    std::atomic<bool> running { true };
    std::vector<std::atomic<long>> okPerPort(static_cast<size_t>(options.ports.size()));
    std::atomic<long> failed { 0 };
    std::mutex failureMutex;
    QString firstFailure;
    std::vector<std::thread> workers;
    for (int t = 0; t < threadCount; ++t) {
        workers.emplace_back([&, t] {
            std::random_device seed;
            std::mt19937 rng(seed() ^ static_cast<unsigned>(t));
            std::vector<std::pair<int, std::unique_ptr<httplib::Client>>> clients;
            for (int i = t; i < options.ports.size(); i += threadCount) {
                auto client = std::make_unique<httplib::Client>("127.0.0.1", options.ports[i]);
                client->set_keep_alive(options.keepAlive);
                client->set_tcp_nodelay(true);
                client->set_read_timeout(5);
                clients.emplace_back(i, std::move(client));
            }
            size_t next = 0;
            while (running && !clients.empty()) {
                const auto& entry = clients[next++ % clients.size()];
                const int index = entry.first;
                httplib::Client* client = entry.second.get();
                const auto post = [&] {
                    const QByteArray request
                        = signedRequest(rng, options.user, options.password, options.body);
                    return client->Post("/onvif/device_service", request.constData(),
                        static_cast<size_t>(request.size()), "application/soap+xml");
                };
                auto res = post();
                // A camera closes a kept-alive connection after its idle timeout; on a
                // loaded machine this client may reuse it just then. Once more on a
                // fresh connection, as HTTP clients do.
                if (!res && options.keepAlive)
                    res = post();
                if (res && res->status == 200) {
                    ++okPerPort[static_cast<size_t>(index)];
                    continue;
                }
                if (failed++ == 0) {
                    const std::lock_guard<std::mutex> lock(failureMutex);
                    firstFailure = res ? QStringLiteral("HTTP %1").arg(res->status)
                                       : QString::fromStdString(httplib::to_string(res.error()));
                }
            }
        });
    }
    const auto begin = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(options.seconds));
    running = false;
    for (auto& w : workers)
        w.join();
    LoadResult result;
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    result.failed = failed;
    result.firstFailure = firstFailure;
    for (const auto& n : okPerPort) {
        result.perPort.append(n);
        result.ok += n;
    }
    return result;
}

} // namespace CameraSim
