#ifndef CAMERASIM_DISCOVERYRESPONDER_H
#define CAMERASIM_DISCOVERYRESPONDER_H

#include <QString>
#include <QStringList>
#include <QVector>

#include <atomic>
#include <mutex>
#include <thread>

namespace CameraSim {

class Camera;

struct DiscoveryEntry
{
    QString endpoint; // urn:uuid:...
    QString xaddrs; // http://<ip>:<port>/onvif/device_service
    QStringList scopes;
    QString types = QStringLiteral("dn:NetworkVideoTransmitter tds:Device");
};

// Answers WS-Discovery Probe datagrams with one ProbeMatches datagram per camera it
// speaks for. One responder serves any number of cameras, so a large fleet costs
// one socket and one thread. Sending and answering probes is only allowed inside a
// network namespace other than the one of process 1: start() refuses otherwise.
class DiscoveryResponder
{
public:
    DiscoveryResponder();
    ~DiscoveryResponder();
    DiscoveryResponder(const DiscoveryResponder&) = delete;
    DiscoveryResponder& operator=(const DiscoveryResponder&) = delete;

    // address: IPv4 address to bind (0.0.0.0 for every address of the namespace).
    bool start(const QString& address, quint16 port = 3702, QString* error = nullptr);
    void stop();
    bool isRunning() const { return m_running; }
    quint16 port() const { return m_port; }

    void addEntry(const DiscoveryEntry& entry);
    // The camera's own address, or advertisedHost in its place (for namespaces where
    // the camera is reached through another address).
    void addCamera(const Camera& camera, const QString& advertisedHost = QString());
    void clearEntries();
    int probesAnswered() const { return m_answered; }

    static bool inPrivateNetworkNamespace();

private:
    void run();
    QByteArray matchFor(const DiscoveryEntry& entry, const QString& relatesTo, int sequence) const;

    int m_socket = -1; // bound to the address: unicast and broadcast probes, and every reply
    int m_multicast = -1; // bound to the WS-Discovery group, joined on the address's interface
    int m_wakePipe[2] = { -1, -1 };
    quint16 m_port = 0;
    std::thread m_thread;
    std::atomic<bool> m_running { false };
    std::atomic<int> m_answered { 0 };
    mutable std::mutex m_mutex;
    QVector<DiscoveryEntry> m_entries;
    int m_messageNumber = 0;
};

} // namespace CameraSim

#endif // CAMERASIM_DISCOVERYRESPONDER_H
