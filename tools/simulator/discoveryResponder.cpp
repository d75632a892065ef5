#include "discoveryResponder.h"

#include "camera.h"
#include "soapXml.h"

#include <QDomDocument>
#include <QFile>
#include <QUuid>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace CameraSim {

namespace {

QString localName(const QDomElement& e)
{
    return e.tagName().section(QLatin1Char(':'), -1);
}

// First child element with that local name, or the first child element at all for nullptr.
QDomElement localChild(const QDomElement& parent, const char* name)
{
    for (QDomElement e = parent.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        if (!name || localName(e) == QLatin1String(name))
            return e;
    }
    return QDomElement();
}

} // namespace

DiscoveryResponder::DiscoveryResponder() = default;

DiscoveryResponder::~DiscoveryResponder()
{
    stop();
}

bool DiscoveryResponder::inPrivateNetworkNamespace()
{
    struct stat own = {};
    if (stat("/proc/self/ns/net", &own) != 0)
        return false; // cannot tell: assume the real network
    auto differs = [&own](long pid) {
        struct stat other = {};
        const QByteArray path = "/proc/" + QByteArray::number(static_cast<qlonglong>(pid)) + "/ns/net";
        return stat(path.constData(), &other) == 0
            && (other.st_ino != own.st_ino || other.st_dev != own.st_dev);
    };
    auto parentOf = [](long pid) {
        QFile statFile(QString::fromLatin1("/proc/%1/stat").arg(pid));
        if (!statFile.open(QIODevice::ReadOnly))
            return 0L;
        // "pid (comm) state ppid ...": the command may hold blanks, so read after the last ')'.
        const QByteArray line = statFile.readAll();
        return line.mid(line.lastIndexOf(')') + 2).split(' ').value(1).toLong();
    };
    // Private when process 1 or any ancestor lives in another network namespace. Process 1 is
    // not always readable (hardened sandboxes), but whoever made the namespace is an ancestor.
    if (differs(1))
        return true;
    for (long pid = static_cast<long>(getppid()); pid > 1; pid = parentOf(pid)) {
        if (differs(pid))
            return true;
    }
    return false;
}

bool DiscoveryResponder::start(const QString& address, quint16 port, QString* error)
{
    auto fail = [this, error](const QString& text) {
        if (m_socket >= 0)
            ::close(m_socket);
        if (m_multicast >= 0)
            ::close(m_multicast);
        m_socket = m_multicast = -1;
        if (error)
            *error = text;
        return false;
    };
    if (m_running)
        return true;
    if (!inPrivateNetworkNamespace())
        return fail(QStringLiteral("WS-Discovery is only answered inside a private network namespace"));

    sockaddr_in addr {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    if (inet_pton(AF_INET, address.toLatin1().constData(), &addr.sin_addr) != 1)
        return fail(QStringLiteral("not an IPv4 address: %1").arg(address));
    m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        return fail(QStringLiteral("socket: %1").arg(QString::fromLocal8Bit(strerror(errno))));
    // SO_REUSEADDR lets several responders share port 3702 on different (or wildcard)
    // addresses, and each receives a copy of a broadcast probe. SO_REUSEPORT is not used:
    // for unicast it would hand each probe to only one of the sockets.
    const int on = 1;
    setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    setsockopt(m_socket, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
    if (::bind(m_socket, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        return fail(QStringLiteral("bind %1:%2: %3")
                        .arg(address)
                        .arg(port)
                        .arg(QString::fromLocal8Bit(strerror(errno))));
    socklen_t len = sizeof(addr);
    getsockname(m_socket, reinterpret_cast<sockaddr*>(&addr), &len);
    m_port = ntohs(addr.sin_port);

    // Standard clients probe the group 239.255.255.250, which a socket bound to one address never
    // hears; this one is bound to the group and joined on the interface that owns the address.
    sockaddr_in group {};
    group.sin_family = AF_INET;
    group.sin_port = htons(m_port);
    inet_pton(AF_INET, "239.255.255.250", &group.sin_addr);
    ip_mreq membership {};
    membership.imr_multiaddr = group.sin_addr;
    membership.imr_interface = addr.sin_addr;
    m_multicast = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (m_multicast < 0 || setsockopt(m_multicast, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0
        || ::bind(m_multicast, reinterpret_cast<sockaddr*>(&group), sizeof(group)) != 0
        || setsockopt(m_multicast, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) != 0)
        return fail(QStringLiteral("cannot join 239.255.255.250:%1 on %2: %3")
                        .arg(m_port)
                        .arg(address, QString::fromLocal8Bit(strerror(errno))));

    if (pipe2(m_wakePipe, O_CLOEXEC) != 0)
        return fail(QStringLiteral("pipe failed"));
    m_running = true;
    m_thread = std::thread([this] { run(); });
    return true;
}

void DiscoveryResponder::stop()
{
    if (!m_running)
        return;
    m_running = false;
    const char byte = 0;
    if (::write(m_wakePipe[1], &byte, 1) < 0) {
        // The poll timeout still ends the thread.
    }
    if (m_thread.joinable())
        m_thread.join();
    ::close(m_socket);
    ::close(m_multicast);
    ::close(m_wakePipe[0]);
    ::close(m_wakePipe[1]);
    m_socket = m_multicast = m_wakePipe[0] = m_wakePipe[1] = -1;
}

void DiscoveryResponder::addEntry(const DiscoveryEntry& entry)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.append(entry);
}

void DiscoveryResponder::addCamera(const Camera& camera, const QString& advertisedHost)
{
    DiscoveryEntry entry;
    entry.endpoint = camera.endpointReference();
    entry.xaddrs = QStringLiteral("http://%1:%2/onvif/device_service")
                       .arg(advertisedHost.isEmpty() ? camera.host() : advertisedHost)
                       .arg(camera.port());
    entry.scopes = camera.scopes();
    addEntry(entry);
}

void DiscoveryResponder::clearEntries()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
}

QByteArray DiscoveryResponder::matchFor(const DiscoveryEntry& e, const QString& relatesTo, int sequence) const
{
    using Soap::esc;
    const QString text
        = QStringLiteral(
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" "
            "xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
            "xmlns:wsdd=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
            "xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" "
            "xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\">"
            "<SOAP-ENV:Header><wsa:MessageID>urn:uuid:%1</wsa:MessageID><wsa:RelatesTo>%2</wsa:RelatesTo>"
            "<wsa:To "
            "SOAP-ENV:mustUnderstand=\"true\">http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous"
            "</wsa:To><wsa:Action SOAP-ENV:mustUnderstand=\"true\">"
            "http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</wsa:Action>"
            "<wsdd:AppSequence MessageNumber=\"%3\" InstanceId=\"1\"/></SOAP-ENV:Header>"
            "<SOAP-ENV:Body><wsdd:ProbeMatches><wsdd:ProbeMatch><wsa:EndpointReference><wsa:Address>%4</"
            "wsa:Address>"
            "</wsa:EndpointReference><wsdd:Types>%5</wsdd:Types><wsdd:Scopes>%6</wsdd:Scopes>"
            "<wsdd:XAddrs>%7</wsdd:XAddrs><wsdd:MetadataVersion>1</wsdd:MetadataVersion></wsdd:ProbeMatch>"
            "</wsdd:ProbeMatches></SOAP-ENV:Body></SOAP-ENV:Envelope>")
              .arg(QUuid::createUuid().toString(QUuid::WithoutBraces), esc(relatesTo))
              .arg(sequence)
              .arg(esc(e.endpoint), esc(e.types), esc(e.scopes.join(QLatin1Char(' '))), esc(e.xaddrs));
    return text.toUtf8();
}

void DiscoveryResponder::run()
{
    QByteArray buffer(65536, Qt::Uninitialized);
    pollfd fds[3] = { { m_socket, POLLIN, 0 }, { m_multicast, POLLIN, 0 }, { m_wakePipe[0], POLLIN, 0 } };
    while (m_running) {
        if (poll(fds, 3, 500) <= 0 || (fds[2].revents & POLLIN))
            continue;
        sockaddr_in from {};
        socklen_t fromLen = sizeof(from);
        const int source = (fds[0].revents & POLLIN) ? m_socket : m_multicast;
        const ssize_t n = recvfrom(source, buffer.data(), static_cast<size_t>(buffer.size()), 0,
            reinterpret_cast<sockaddr*>(&from), &fromLen);
        if (n <= 0)
            continue;
        // Parsed without namespace processing: probes in the field (the ONVIF client of this very
        // project included) carry attributes with undeclared prefixes, and cameras answer them anyway.
        QDomDocument doc;
        if (!doc.setContent(buffer.left(static_cast<int>(n)), false))
            continue;
        const QDomElement root = doc.documentElement();
        const QDomElement probe = localChild(localChild(root, "Body"), nullptr);
        if (localName(probe) != QLatin1String("Probe"))
            continue;
        // An empty Types asks for everything; otherwise only transmitters and devices are answered.
        const QString types = localChild(probe, "Types").text().trimmed();
        if (!types.isEmpty() && !types.contains(QLatin1String("NetworkVideoTransmitter"))
            && !types.contains(QLatin1String("Device")))
            continue;
        const QString messageId = localChild(localChild(root, "Header"), "MessageID").text().trimmed();
        QVector<DiscoveryEntry> entries;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            entries = m_entries;
        }
        ++m_answered;
        int sent = 0;
        for (const DiscoveryEntry& e : entries) {
            const QByteArray reply = matchFor(e, messageId, ++m_messageNumber);
            sendto(m_socket, reply.constData(), static_cast<size_t>(reply.size()), 0,
                reinterpret_cast<sockaddr*>(&from), fromLen);
            // Pace long bursts so that the prober's receive buffer can keep up.
            if (++sent % 32 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
}

} // namespace CameraSim
