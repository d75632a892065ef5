#include "onvifTypes/transport/tcpLink_p.h"

#include <QCoreApplication>
#include <QHostInfo>
#include <QPointer>
#include <QSocketNotifier>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <limits>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Onvif::Internal {

namespace {

constexpr int readChunk = 32 * 1024; // a whole SOAP answer, mostly, in one call
constexpr int eventBatch = 64;
constexpr int batchesPerWakeup = 4; // then the event loop has its turn

// QTcpSocket's texts and codes for what connect, send and recv report.
QAbstractSocket::SocketError socketError(int error, QString* text)
{
    static const struct
    {
        int error;
        QAbstractSocket::SocketError code;
        const char* text;
    } known[] = {
        { ECONNREFUSED, QAbstractSocket::ConnectionRefusedError, "Connection refused" },
        { EINVAL, QAbstractSocket::ConnectionRefusedError, "Connection refused" },
        { ECONNRESET, QAbstractSocket::RemoteHostClosedError, "The remote host closed the connection" },
        { EPIPE, QAbstractSocket::RemoteHostClosedError, "The remote host closed the connection" },
        { ETIMEDOUT, QAbstractSocket::NetworkError, "Connection timed out" },
        { EHOSTUNREACH, QAbstractSocket::NetworkError, "Host unreachable" },
        { ENETUNREACH, QAbstractSocket::NetworkError, "Network unreachable" },
        { EACCES, QAbstractSocket::SocketAccessError, "Permission denied" },
        { EPERM, QAbstractSocket::SocketAccessError, "Permission denied" },
        { EMFILE, QAbstractSocket::SocketResourceError, "Out of resources" },
        { ENFILE, QAbstractSocket::SocketResourceError, "Out of resources" },
        { ENOBUFS, QAbstractSocket::SocketResourceError, "Out of resources" },
        { ENOMEM, QAbstractSocket::SocketResourceError, "Out of resources" },
    };
    for (const auto& entry : known) {
        if (entry.error == error) {
            *text = QCoreApplication::translate("QNativeSocketEngine", entry.text);
            return entry.code;
        }
    }
    *text = QString::fromLocal8Bit(strerror(error));
    return QAbstractSocket::NetworkError;
}

} // namespace

// A poller belongs to the thread whose event loop watches it.
static thread_local LinkPoller* threadPoller = nullptr;

LinkPoller* LinkPoller::acquire()
{
    if (!threadPoller)
        threadPoller = new LinkPoller;
    ++threadPoller->m_users;
    return threadPoller;
}

void LinkPoller::release(LinkPoller* poller)
{
    if (--poller->m_users > 0)
        return;
    if (threadPoller == poller)
        threadPoller = nullptr;
    delete poller;
}

LinkPoller::LinkPoller()
    : m_epoll(epoll_create1(EPOLL_CLOEXEC))
{
    if (m_epoll < 0)
        return;
    m_notifier = new QSocketNotifier(m_epoll, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &LinkPoller::drain);
}

LinkPoller::~LinkPoller()
{
    delete m_notifier;
    if (m_epoll >= 0)
        ::close(m_epoll);
}

quint64 LinkPoller::track(TcpLink* link)
{
    m_links.insert(++m_next, link);
    return m_next;
}

void LinkPoller::forget(quint64 id)
{
    m_links.remove(id);
}

bool LinkPoller::control(int op, int fd, quint32 events, quint64 id)
{
    epoll_event event {};
    event.events = events;
    event.data.u64 = id;
    return epoll_ctl(m_epoll, op, fd, &event) == 0;
}

void LinkPoller::drain()
{
    const QPointer<LinkPoller> self(this);
    epoll_event events[eventBatch];
    for (int batch = 0; batch < batchesPerWakeup; ++batch) {
        const int n = epoll_wait(m_epoll, events, eventBatch, 0);
        if (n < 0 && errno == EINTR)
            continue;
        // A handler may close or delete any link, or the pool with this poller.
        for (int i = 0; i < n && self; ++i) {
            if (TcpLink* link = m_links.value(events[i].data.u64))
                link->onEvents(events[i].events);
        }
        if (!self || n < eventBatch)
            return;
    }
}

TcpLink::TcpLink(LinkPoller* poller, QObject* parent)
    : QObject(parent)
    , m_poller(poller)
{ }

TcpLink::~TcpLink()
{
    abort();
}

void TcpLink::connectToHost(const QString& host, quint16 port)
{
    abort();
    if (!m_poller) {
        m_state = QAbstractSocket::ConnectingState;
        failLater(ENOMEM);
        return;
    }
    m_port = port;
    m_state = QAbstractSocket::HostLookupState;
    QHostAddress address;
    if (address.setAddress(host)) {
        m_addresses = { address };
        tryNext(true, 0);
        return;
    }
    m_lookupId = QHostInfo::lookupHost(host, this, [this](const QHostInfo& info) {
        m_lookupId = -1;
        const QList<QHostAddress> found = info.addresses();
        m_addresses = QVector<QHostAddress>(found.begin(), found.end());
        if (info.error() != QHostInfo::NoError || m_addresses.isEmpty())
            fail(QAbstractSocket::HostNotFoundError,
                QCoreApplication::translate("QAbstractSocket", "Host not found"));
        else
            tryNext(false, 0);
    });
}

void TcpLink::tryNext(bool fromCaller, int error)
{
    while (!m_addresses.isEmpty()) {
        const QHostAddress address = m_addresses.takeFirst();
        sockaddr_storage storage {};
        socklen_t length = 0;
        if (address.protocol() == QAbstractSocket::IPv6Protocol) {
            auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
            in6->sin6_family = AF_INET6;
            in6->sin6_port = htons(m_port);
            const Q_IPV6ADDR bytes = address.toIPv6Address();
            memcpy(&in6->sin6_addr, &bytes, sizeof bytes);
            const QString scope = address.scopeId();
            bool numeric = false;
            in6->sin6_scope_id = scope.toUInt(&numeric);
            if (!numeric && !scope.isEmpty())
                in6->sin6_scope_id = if_nametoindex(scope.toLatin1().constData());
            length = sizeof(sockaddr_in6);
        } else {
            auto* in4 = reinterpret_cast<sockaddr_in*>(&storage);
            in4->sin_family = AF_INET;
            in4->sin_port = htons(m_port);
            in4->sin_addr.s_addr = htonl(address.toIPv4Address());
            length = sizeof(sockaddr_in);
        }
        m_fd = ::socket(storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (m_fd < 0) {
            error = errno;
            continue;
        }
        // Header and body leave in one segment and nothing waits for a delayed ACK.
        const int on = 1;
        setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&storage), length) == 0 || errno == EINPROGRESS) {
            m_state = QAbstractSocket::ConnectingState;
            m_id = m_poller->track(this);
            // Writable once the handshake is done, or failed.
            updateInterest();
            if (m_interest != 0)
                return;
            error = errno;
        } else {
            error = errno;
        }
        closeDescriptor();
    }
    if (!m_poller->isValid())
        error = ENOMEM;
    if (fromCaller) {
        m_state = QAbstractSocket::ConnectingState;
        failLater(error); // nobody has connected to this link yet
    } else {
        fail(error);
    }
}

void TcpLink::onEvents(quint32 events)
{
    if (m_state == QAbstractSocket::ConnectingState) {
        onConnectDone();
        return;
    }
    if (m_state != QAbstractSocket::ConnectedState)
        return;
    const QPointer<TcpLink> self(this);
    if (events & EPOLLOUT)
        flushOut(false);
    if (self && m_fd >= 0 && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)))
        readFromKernel();
}

void TcpLink::onConnectDone()
{
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
        error = errno;
    if (error != 0) {
        closeDescriptor();
        tryNext(false, error); // the next address, or this error
        return;
    }
    m_addresses.clear();
    m_state = QAbstractSocket::ConnectedState;
    updateInterest();
    const QPointer<TcpLink> self(this);
    flushOut(false);
    if (self && m_state == QAbstractSocket::ConnectedState)
        emit connected();
}

void TcpLink::write(const QByteArray& data)
{
    m_out += data;
    if (m_state == QAbstractSocket::ConnectedState)
        flushOut(true);
}

void TcpLink::flushOut(bool fromCaller)
{
    while (!m_out.isEmpty() && m_fd >= 0) {
        const ssize_t n = ::send(m_fd, m_out.constData(), size_t(m_out.size()), MSG_NOSIGNAL);
        if (n > 0) {
            m_out.remove(0, int(n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        const int error = n < 0 ? errno : EPIPE;
        if (fromCaller) {
            closeDescriptor();
            failLater(error); // the caller is inside its own call
        } else {
            fail(error);
        }
        return;
    }
    updateInterest();
}

void TcpLink::readFromKernel()
{
    const int before = m_in.size();
    int error = 0;
    while (m_fd >= 0) {
        // Level-triggered polling brings the rest on the next pass.
        qint64 want = qMin<qint64>(readChunk, m_perWakeup - (qint64(m_in.size()) - before));
        if (m_readLimit > 0)
            want = qMin<qint64>(want, m_readLimit - m_in.size());
        if (want <= 0)
            break;
        // A buffer nobody empties stops growing well before its size could wrap.
        if (qint64(m_in.size()) + want > std::numeric_limits<int>::max() / 2) {
            error = ENOBUFS;
            break;
        }
        const int old = m_in.size();
        m_in.resize(old + int(want));
        const ssize_t n = ::recv(m_fd, m_in.data() + old, size_t(want), 0);
        m_in.resize(old + int(qMax<ssize_t>(n, 0)));
        if (n > 0) {
            if (n < want)
                break; // drained; level-triggered polling says when more comes
            continue;
        }
        if (n == 0) {
            m_peerClosed = true;
        } else if (errno == EINTR) {
            continue;
        } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
            error = errno;
        }
        break;
    }
    updateInterest();
    const QPointer<TcpLink> self(this);
    if (m_in.size() > before)
        emit readyRead();
    if (!self || m_state != QAbstractSocket::ConnectedState)
        return;
    if (m_peerClosed || error != 0)
        fail(m_peerClosed ? ECONNRESET : error);
}

QByteArray TcpLink::read(qint64 maxSize)
{
    QByteArray out;
    if (maxSize < 0 || maxSize >= m_in.size()) {
        out.swap(m_in);
    } else {
        out = m_in.left(int(maxSize));
        m_in.remove(0, int(maxSize));
    }
    if (m_readLimit > 0)
        updateInterest(); // room again
    return out;
}

void TcpLink::setReadBufferSize(qint64 size)
{
    m_readLimit = qMax<qint64>(0, size);
    updateInterest();
}

void TcpLink::stopConnecting()
{
    if (m_lookupId >= 0) {
        QHostInfo::abortHostLookup(m_lookupId);
        m_lookupId = -1;
    }
    closeDescriptor();
    m_addresses.clear();
}

void TcpLink::abort()
{
    ++m_generation;
    stopConnecting();
    m_state = QAbstractSocket::UnconnectedState;
    m_in.clear();
    m_out.clear();
    m_peerClosed = false;
}

void TcpLink::shutDown()
{
    if (m_state != QAbstractSocket::UnconnectedState)
        fail(ECONNRESET);
}

void TcpLink::detach()
{
    if (!m_poller)
        return;
    stopConnecting();
    m_poller = nullptr;
    if (m_state != QAbstractSocket::UnconnectedState)
        failLater(ECONNRESET);
}

void TcpLink::fail(QAbstractSocket::SocketError error, const QString& text)
{
    const bool wasConnected = m_state == QAbstractSocket::ConnectedState;
    closeDescriptor();
    ++m_generation;
    m_state = QAbstractSocket::UnconnectedState;
    m_errorString = text;
    const QPointer<TcpLink> self(this);
    emit errorOccurred(error);
    if (self && wasConnected)
        emit disconnected();
}

void TcpLink::fail(int error)
{
    QString text;
    const QAbstractSocket::SocketError code = socketError(error, &text);
    fail(code, text);
}

void TcpLink::failLater(int error)
{
    QMetaObject::invokeMethod(
        this,
        [this, error, generation = m_generation] {
            if (generation == m_generation)
                fail(error);
        },
        Qt::QueuedConnection);
}

void TcpLink::updateInterest()
{
    if (m_fd < 0)
        return;
    quint32 want = 0;
    if (m_state == QAbstractSocket::ConnectingState) {
        want = EPOLLOUT;
    } else if (m_state == QAbstractSocket::ConnectedState) {
        // A full buffer leaves the descriptor out of the set: a hang-up is reported even
        // to a set that asks for nothing, and would come back on every wake-up.
        if (!m_peerClosed && (m_readLimit <= 0 || m_in.size() < m_readLimit))
            want |= EPOLLIN;
        if (!m_out.isEmpty())
            want |= EPOLLOUT;
    }
    if (want == m_interest)
        return;
    const int op = m_interest == 0 ? EPOLL_CTL_ADD : want == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
    if (m_poller->control(op, m_fd, want, m_id))
        m_interest = want;
}

void TcpLink::closeDescriptor()
{
    if (m_fd < 0)
        return;
    // Closing takes the descriptor out of the epoll set.
    ::close(m_fd);
    m_fd = -1;
    m_interest = 0;
    m_poller->forget(m_id);
    m_id = 0;
}

} // namespace Onvif::Internal
