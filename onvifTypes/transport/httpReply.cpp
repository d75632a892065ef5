#include "onvifTypes/transport/httpReply_p.h"

#include <QCoreApplication>
#include <QNetworkCookie>
#include <QNetworkCookieJar>

#include <zlib.h>

#include <limits>

namespace Onvif::Internal {

namespace {

constexpr int maxBusyPerHost = 6; // as QNetworkAccessManager
constexpr qint64 idleLifetimeMs = 120000; // as long as Qt keeps an unused connection

QString translated(const char* context, const char* text)
{
    return QCoreApplication::translate(context, text);
}

// QNetworkAccessManager's reading of an HTTP error status.
QNetworkReply::NetworkError statusError(int status)
{
    static const QHash<int, QNetworkReply::NetworkError> known = {
        { 400, QNetworkReply::ProtocolInvalidOperationError },
        { 401, QNetworkReply::AuthenticationRequiredError }, { 403, QNetworkReply::ContentAccessDenied },
        { 404, QNetworkReply::ContentNotFoundError },
        { 405, QNetworkReply::ContentOperationNotPermittedError },
        { 407, QNetworkReply::ProxyAuthenticationRequiredError },
        { 409, QNetworkReply::ContentConflictError }, { 410, QNetworkReply::ContentGoneError },
        { 418, QNetworkReply::ProtocolInvalidOperationError }, { 500, QNetworkReply::InternalServerError },
        { 501, QNetworkReply::OperationNotImplementedError }, { 503, QNetworkReply::ServiceUnavailableError }
    };
    return known.value(status,
        status >= 500       ? QNetworkReply::UnknownServerError
            : status >= 400 ? QNetworkReply::UnknownContentError
                            : QNetworkReply::NoError);
}

bool hasToken(const QByteArray& value, const char* token)
{
    return value.toLower().contains(token);
}

} // namespace

// gzip, zlib or raw deflate, whichever the body turns out to be, as QNetworkAccessManager accepts.
struct Inflater
{
    enum Result { Ok, Corrupt, TooLarge, TooDense };
    z_stream stream {};
    bool raw = false;
    bool ended = false;
    qint64 fed = 0;

    Inflater() { inflateInit2(&stream, MAX_WBITS + 32); }
    ~Inflater() { inflateEnd(&stream); }

    // Output is checked slice by slice: a bomb never inflates past the limits.
    Result inflateChunk(const QByteArray& in, QByteArray& out, qint64 produced, qint64 maxOut, int maxRatio)
    {
        const qint64 fedBefore = fed;
        fed += in.size();
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.constData()));
        stream.avail_in = uInt(in.size());
        char buffer[16384];
        while (stream.avail_in > 0 && !ended) {
            stream.next_out = reinterpret_cast<Bytef*>(buffer);
            stream.avail_out = sizeof buffer;
            const int rc = inflate(&stream, Z_NO_FLUSH);
            if (rc == Z_DATA_ERROR && !raw && fedBefore == 0 && stream.total_out == 0) {
                raw = true;
                inflateEnd(&stream);
                stream = z_stream {};
                inflateInit2(&stream, -MAX_WBITS);
                stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.constData()));
                stream.avail_in = uInt(in.size());
                continue;
            }
            if (rc != Z_OK && rc != Z_STREAM_END)
                return Corrupt;
            out.append(buffer, int(sizeof buffer - stream.avail_out));
            ended = rc == Z_STREAM_END;
            const qint64 total = produced + out.size();
            if (total > maxOut)
                return TooLarge;
            // Small bodies may be dense; past a floor the ratio holds.
            if (maxRatio > 0 && total > 64 * 1024 && total > qint64(maxRatio) * qint64(stream.total_in))
                return TooDense;
        }
        // A second stream after the first would be a body of its own, wrapped once more.
        if (ended && stream.avail_in > 0)
            return Corrupt;
        return Ok;
    }
};

// Strict hexadecimal chunk size: digits only, no sign, no prefix, no overflow.
static bool chunkSize(const QByteArray& line, qint64* size)
{
    const int semicolon = line.indexOf(';');
    const QByteArray digits = (semicolon < 0 ? line : line.left(semicolon)).trimmed();
    if (digits.isEmpty() || digits.size() > 15)
        return false;
    qint64 value = 0;
    for (const char c : digits) {
        const int d = c >= '0' && c <= '9' ? c - '0'
            : c >= 'a' && c <= 'f'         ? c - 'a' + 10
            : c >= 'A' && c <= 'F'         ? c - 'A' + 10
                                           : -1;
        if (d < 0)
            return false;
        value = value * 16 + d;
    }
    *size = value;
    return true;
}

HttpPool::HttpPool(QObject* parent)
    : QObject(parent)
    , m_sweep(this) // moves to another thread with the pool
{
    m_clock.start();
    m_sweep.setInterval(idleLifetimeMs / 4);
    connect(&m_sweep, &QTimer::timeout, this, [this] { sweep(m_clock.elapsed() - idleLifetimeMs); });
}

HttpPool::~HttpPool()
{
    // Replies still holding a socket hear it close; nothing may come back to this pool.
    m_closing = true;
    const QList<TcpLink*> links = findChildren<TcpLink*>(QString(), Qt::FindDirectChildrenOnly);
    for (TcpLink* link : links)
        link->shutDown();
    qDeleteAll(links); // before the poller they are registered with
    if (m_poller)
        LinkPoller::release(m_poller);
}

bool HttpPool::event(QEvent* event)
{
    // Still in the old thread, whose poller watches the connections: idle ones close,
    // busy ones are told of their loss in the new thread, where a reply may send again.
    if (event->type() == QEvent::ThreadChange && m_poller) {
        for (auto it = m_hosts.begin(); it != m_hosts.end(); ++it) {
            for (const Idle& idle : qAsConst(it->idle))
                discard(idle.socket);
            it->idle.clear();
        }
        for (TcpLink* link : findChildren<TcpLink*>(QString(), Qt::FindDirectChildrenOnly))
            link->detach();
        LinkPoller::release(m_poller);
        m_poller = nullptr;
    }
    return QObject::event(event);
}

void HttpPool::enqueue(HttpReply* reply)
{
    const QString key = reply->poolKey();
    m_hosts[key].waiting.enqueue(reply);
    dispatch(key);
}

TcpLink* HttpPool::connectNew(const QString& key, const QString& host, quint16 port)
{
    // Idle managers hold no poller.
    if (!m_poller)
        m_poller = LinkPoller::acquire();
    auto* socket = new TcpLink(m_poller, this);
    socket->setObjectName(key); // the pool finds a socket's host by it
    // An idle connection that the peer closes or talks on cannot carry a request any more.
    connect(socket, &TcpLink::disconnected, this, [this, socket] { dropIdle(socket); });
    connect(socket, &TcpLink::readyRead, this, [this, socket] { dropIdle(socket); });
    socket->connectToHost(host, port);
    return socket;
}

void HttpPool::dispatch(const QString& key)
{
    // Start the replies only after the bookkeeping: a start may come back here.
    QVector<QPair<QPointer<HttpReply>, QPair<TcpLink*, bool>>> starts;
    Host& host = m_hosts[key];
    while (!host.waiting.isEmpty()) {
        const QPointer<HttpReply> reply = host.waiting.head();
        if (!reply || reply->isFinished()) {
            host.waiting.dequeue();
            continue;
        }
        while (!host.idle.isEmpty() && host.idle.last().socket->state() != QAbstractSocket::ConnectedState)
            discard(host.idle.takeLast().socket);
        TcpLink* socket = nullptr;
        const bool reused = !host.idle.isEmpty();
        if (reused)
            socket = host.idle.takeLast().socket;
        else if (host.busy < maxBusyPerHost)
            socket = connectNew(key, reply->url().host(), quint16(reply->url().port(80)));
        else
            break;
        ++host.busy;
        host.waiting.dequeue();
        starts.append({ reply, { socket, reused } });
    }
    if (host.waiting.isEmpty() && host.idle.isEmpty() && host.busy == 0)
        m_hosts.remove(key);
    for (const auto& start : starts) {
        if (start.first && !start.first->isFinished())
            start.first->start(start.second.first, start.second.second);
        else
            release(start.second.first, start.second.second);
    }
}

TcpLink* HttpPool::replace(TcpLink* stale)
{
    const QString key = stale->objectName();
    discard(stale);
    const int colon = key.lastIndexOf(QLatin1Char(':'));
    return connectNew(key, key.left(colon), quint16(key.mid(colon + 1).toUInt()));
}

void HttpPool::release(TcpLink* socket, bool reusable)
{
    if (m_closing)
        return;
    const QString key = socket->objectName();
    Host& host = m_hosts[key];
    --host.busy;
    if (reusable && socket->state() == QAbstractSocket::ConnectedState && socket->bytesAvailable() == 0) {
        host.idle.append({ socket, m_clock.elapsed() });
        if (!m_sweep.isActive())
            m_sweep.start();
    } else {
        discard(socket);
    }
    dispatch(key);
}

void HttpPool::dropIdle(TcpLink* socket)
{
    if (m_closing)
        return;
    const auto it = m_hosts.find(socket->objectName());
    if (it == m_hosts.end())
        return;
    QVector<Idle>& idle = it->idle;
    for (int i = 0; i < idle.size(); ++i) {
        if (idle.at(i).socket == socket) {
            idle.remove(i);
            discard(socket);
            if (idle.isEmpty() && it->busy == 0 && it->waiting.isEmpty())
                m_hosts.erase(it);
            return;
        }
    }
}

void HttpPool::closeIdle()
{
    sweep(std::numeric_limits<qint64>::max());
}

void HttpPool::sweep(qint64 oldest)
{
    bool anyIdle = false;
    for (auto it = m_hosts.begin(); it != m_hosts.end();) {
        QVector<Idle>& idle = it->idle;
        while (!idle.isEmpty() && idle.first().since <= oldest)
            discard(idle.takeFirst().socket);
        anyIdle = anyIdle || !idle.isEmpty();
        if (idle.isEmpty() && it->busy == 0 && it->waiting.isEmpty())
            it = m_hosts.erase(it);
        else
            ++it;
    }
    if (!anyIdle)
        m_sweep.stop();
}

void HttpPool::discard(TcpLink* socket)
{
    socket->disconnect();
    socket->abort();
    socket->deleteLater();
}

HttpReply::HttpReply(HttpPool* pool, QNetworkAccessManager* manager, QNetworkAccessManager::Operation op,
    const QNetworkRequest& request, QByteArray wire, qint64 uploadSize, bool autoDecompress, int timeoutMs,
    const Limits& limits)
    : QNetworkReply(manager)
    , m_manager(manager)
    , m_pool(pool)
    , m_wire(std::move(wire))
    , m_uploadSize(uploadSize)
    , m_limits(limits)
    , m_bodyLimit(limits.maxReplyBytes)
    , m_autoDecompress(autoDecompress)
{
    const QVariant bodyLimit = request.attribute(Limits::BodyLimitAttribute);
    if (bodyLimit.isValid())
        m_bodyLimit = bodyLimit.toLongLong();
    setRequest(request);
    setUrl(request.url());
    setOperation(op);
    QIODevice::open(QIODevice::ReadOnly);
    if (timeoutMs > 0) {
        // Restarted by every byte that moves, as Qt's transfer timeout.
        m_timer = new QTimer(this);
        m_timer->setSingleShot(true);
        m_timer->setInterval(timeoutMs);
        connect(m_timer, &QTimer::timeout, this, &HttpReply::abort);
        m_timer->start();
    }
}

HttpReply::~HttpReply()
{
    releaseSocket(false);
}

QString HttpReply::poolKey() const
{
    return url().host() + QLatin1Char(':') + QString::number(url().port(80));
}

void HttpReply::start(TcpLink* socket, bool reused)
{
    m_reused = reused;
    attach(socket);
}

void HttpReply::attach(TcpLink* socket)
{
    if (m_limits.requestDeadlineMs > 0 && !m_deadline) {
        // Unlike the transfer timeout, nothing the peer sends moves it.
        m_deadline = new QTimer(this);
        m_deadline->setSingleShot(true);
        m_deadline->setTimerType(Qt::PreciseTimer); // a coarse timer may fire 5% early
        connect(m_deadline, &QTimer::timeout, this, [this] {
            refuse(TimeoutError,
                QStringLiteral("request exceeds the deadline of %1 ms (Onvif::Limits::requestDeadlineMs)")
                    .arg(m_limits.requestDeadlineMs));
        });
        m_deadline->start(m_limits.requestDeadlineMs);
    }
    m_socket = socket;
    socket->setReadBytesPerWakeup(m_limits.readBytesPerWakeup);
    m_stage = Stage::Status;
    socket->setReadBufferSize(qMax<qint64>(0, readBufferSize()));
    connect(socket, &TcpLink::readyRead, this, &HttpReply::onReadyRead);
    connect(socket, &TcpLink::errorOccurred, this, &HttpReply::onSocketGone);
    connect(socket, &TcpLink::disconnected, this,
        [this] { onSocketGone(QAbstractSocket::RemoteHostClosedError); });
    if (socket->state() == QAbstractSocket::ConnectedState)
        send();
    else
        connect(socket, &TcpLink::connected, this, &HttpReply::send);
}

void HttpReply::send()
{
    if (m_timer)
        m_timer->start();
    // Header and body in one segment: nothing waits for the peer's delayed ACK.
    m_socket->write(m_wire);
}

void HttpReply::onReadyRead()
{
    if (!m_socket || m_stage == Stage::Done)
        return;
    const qint64 limit = room();
    if (limit == 0)
        return; // readData resumes once the reader made room
    if (m_inPos > 0 && m_inPos >= m_in.size() / 2) {
        m_in.remove(0, m_inPos); // parsed bytes go in one move, not one per line
        m_inPos = 0;
    }
    const int before = m_in.size();
    m_in += limit < 0 ? m_socket->readAll() : m_socket->read(limit);
    if (m_in.size() == before)
        return;
    if (m_timer)
        m_timer->start();
    if (!m_answered) {
        m_answered = true;
        m_wire.clear();
        if (operation() == QNetworkAccessManager::PostOperation)
            emit uploadProgress(m_uploadSize, m_uploadSize);
    }
    const QPointer<HttpReply> self(this);
    if (!parse() && self && !isFinished()) {
        releaseSocket(false);
        finish(RemoteHostClosedError, translated("QHttp", "Connection closed"));
    }
}

void HttpReply::onSocketGone(QAbstractSocket::SocketError socketError)
{
    if (!m_socket || m_stage == Stage::Done)
        return;
    const QPointer<HttpReply> self(this);
    if (m_socket->bytesAvailable() > 0 && (onReadyRead(), !self || m_stage == Stage::Done))
        return;
    if (!m_answered && m_reused && !m_retried && m_pool && !m_pool->closing()) {
        // A kept-alive connection the peer dropped meanwhile: once more on a fresh one, as Qt.
        m_retried = true;
        TcpLink* stale = m_socket;
        stale->disconnect(this);
        m_socket = nullptr;
        attach(m_pool->replace(stale));
        return;
    }
    if (m_stage == Stage::Body && m_remaining < 0 && socketError == QAbstractSocket::RemoteHostClosedError) {
        releaseSocket(false);
        complete(); // the body ran until the peer closed
        return;
    }
    const QString socketText = m_socket->errorString();
    releaseSocket(false);
    switch (socketError) {
    case QAbstractSocket::ConnectionRefusedError:
        finish(ConnectionRefusedError, translated("QHttp", "Connection refused"));
        break;
    case QAbstractSocket::HostNotFoundError:
        finish(HostNotFoundError, translated("QHttp", "Host %1 not found").arg(url().host()));
        break;
    case QAbstractSocket::SocketTimeoutError:
        finish(TimeoutError, translated("QAbstractSocket", "Socket operation timed out"));
        break;
    case QAbstractSocket::RemoteHostClosedError:
        finish(RemoteHostClosedError, translated("QHttp", "Connection closed"));
        break;
    default:
        finish(UnknownNetworkError, socketText);
        break;
    }
}

bool HttpReply::takeLine(QByteArray& line, int maxBytes, const char* limitName)
{
    const int end = m_in.indexOf('\n', m_inPos);
    if (end < 0) {
        if (m_in.size() - m_inPos > maxBytes)
            return overLimit("line", maxBytes, limitName);
        return false;
    }
    int length = end - m_inPos;
    if (length > maxBytes + 1)
        return overLimit("line", maxBytes, limitName);
    if (length > 0 && m_in.at(end - 1) == '\r')
        --length;
    line = m_in.mid(m_inPos, length);
    m_inPos = end + 1;
    return true;
}

bool HttpReply::refuse(NetworkError code, const QString& text)
{
    if (isFinished())
        return false;
    releaseSocket(false);
    m_in.clear();
    m_inPos = 0;
    m_body.clear();
    m_bodyPos = 0;
    m_headers.clear();
    m_headerIndex.clear();
    m_inflater.reset();
    finish(code, text);
    return false;
}

bool HttpReply::overLimit(const char* what, qint64 limit, const char* limitName)
{
    return refuse(ProtocolFailure,
        QStringLiteral("reply %1 exceeds the limit of %2%3 (Onvif::Limits::%4)")
            .arg(QLatin1String(what), QString::number(limit),
                QLatin1String(qstrcmp(limitName, "maxDecompressionRatio") == 0 ? ""
                        : QByteArray(limitName).contains("Bytes")              ? " bytes"
                                                                               : ""),
                QLatin1String(limitName)));
}

const char* HttpReply::bodyLimitName() const
{
    if (!request().attribute(Limits::BodyLimitAttribute).isValid())
        return "maxReplyBytes";
    return m_bodyLimit == m_limits.maxImageBytes ? "maxImageBytes" : "BodyLimitAttribute";
}

bool HttpReply::addHeader(const QByteArray& line)
{
    m_headerBytes += line.size() + 2;
    if (m_headerBytes > m_limits.maxHeaderBytes)
        return overLimit("header", m_limits.maxHeaderBytes, "maxHeaderBytes");
    if ((line.at(0) == ' ' || line.at(0) == '\t') && !m_headers.isEmpty()) {
        m_headers.last().second += ' ' + line.trimmed();
        return true;
    }
    const int colon = line.indexOf(':');
    if (colon <= 0)
        return true;
    const QByteArray name = line.left(colon).trimmed();
    const QByteArray value = line.mid(colon + 1).trimmed();
    const QByteArray key = name.toLower();
    if (key == "content-length") {
        bool ok = false;
        const qint64 length = value.toLongLong(&ok);
        if (!ok || length < 0
            || !std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; }))
            return refuse(ProtocolFailure, QStringLiteral("reply has a malformed Content-Length"));
        if (m_headerIndex.contains(key) && m_headers.at(m_headerIndex.value(key)).second != value)
            return refuse(ProtocolFailure, QStringLiteral("reply has conflicting Content-Length headers"));
    }
    // Repeated fields join as Qt joins them; cookies line by line.
    if (++m_headerLines > m_limits.maxHeaderCount)
        return overLimit("header count", m_limits.maxHeaderCount, "maxHeaderCount");
    const auto known = m_headerIndex.constFind(key);
    if (known == m_headerIndex.constEnd()) {
        m_headerIndex.insert(key, m_headers.size());
        m_headers.append({ name, value });
    } else if (key != "content-length") {
        auto& header = m_headers[known.value()];
        header.first = name; // Qt keeps the last spelling
        header.second += (key == "set-cookie" ? "\n" : ", ") + value;
    }
    return true;
}

// False on text that is no HTTP answer.
bool HttpReply::parse()
{
    const QPointer<HttpReply> self(this);
    QByteArray line;
    while (self && m_stage != Stage::Done && !isFinished()) {
        switch (m_stage) {
        case Stage::Status: {
            if (!takeLine(line, m_limits.maxStatusLineBytes, "maxStatusLineBytes"))
                return true;
            if (!line.startsWith("HTTP/") || line.size() < 12 || line.at(8) != ' ')
                return false;
            bool ok = false;
            m_status = line.mid(9, 3).toInt(&ok);
            if (!ok || (line.size() > 12 && line.at(12) != ' '))
                return false;
            m_minorVersion = line.at(7) - '0';
            // Without a reason phrase Qt reports the whole line as the phrase.
            const int space = line.indexOf(' ', 9);
            setAttribute(
                QNetworkRequest::HttpReasonPhraseAttribute, QString::fromLatin1(line.mid(space + 1)));
            m_headers.clear();
            m_headerIndex.clear();
            m_headerBytes = 0;
            m_headerLines = 0;
            m_stage = Stage::Headers;
            break;
        }
        case Stage::Headers:
            if (!takeLine(line, m_limits.maxHeaderLineBytes, "maxHeaderLineBytes"))
                return true;
            if (line.isEmpty() ? !headersDone() : !addHeader(line))
                return true;
            break;
        case Stage::Body: {
            const qint64 available = m_in.size() - m_inPos;
            const qint64 n = m_remaining < 0 ? available : qMin<qint64>(m_remaining, available);
            if (n == 0)
                return true;
            if (m_remaining > 0)
                m_remaining -= n;
            const QByteArray part = m_in.mid(m_inPos, int(n));
            m_inPos += int(n);
            if (!deliver(part))
                return true;
            if (m_remaining == 0)
                complete();
            else if (m_inPos == m_in.size())
                return true;
            break;
        }
        case Stage::ChunkSize: {
            if (!takeLine(line, m_limits.maxHeaderLineBytes, "maxHeaderLineBytes"))
                return true;
            if (!chunkSize(line, &m_remaining))
                return refuse(ProtocolFailure, QStringLiteral("reply has a malformed chunk size")), true;
            if (m_received + m_remaining > m_bodyLimit)
                return overLimit("body", m_bodyLimit, bodyLimitName()), true;
            m_stage = m_remaining > 0 ? Stage::ChunkData : Stage::Trailer;
            break;
        }
        case Stage::ChunkData: {
            const qint64 n = qMin<qint64>(m_remaining, m_in.size() - m_inPos);
            if (n == 0)
                return true;
            m_remaining -= n;
            const QByteArray part = m_in.mid(m_inPos, int(n));
            m_inPos += int(n);
            if (m_remaining == 0)
                m_stage = Stage::ChunkEnd;
            if (!deliver(part))
                return true;
            break;
        }
        case Stage::ChunkEnd: {
            // Only a line end may follow the data: anything else means the size was a lie.
            const int available = m_in.size() - m_inPos;
            const bool crlf = available >= 2 && m_in.at(m_inPos) == '\r' && m_in.at(m_inPos + 1) == '\n';
            const bool lf = available >= 1 && m_in.at(m_inPos) == '\n';
            if (!crlf && !lf) {
                if (available >= 2 || (available == 1 && m_in.at(m_inPos) != '\r'))
                    return refuse(
                               ProtocolFailure, QStringLiteral("reply has chunk data longer than its size")),
                           true;
                return true;
            }
            m_inPos += crlf ? 2 : 1;
            m_stage = Stage::ChunkSize;
            break;
        }
        case Stage::Trailer:
            if (!takeLine(line, m_limits.maxHeaderLineBytes, "maxHeaderLineBytes"))
                return true;
            m_headerBytes += line.size() + 2;
            if (m_headerBytes > m_limits.maxHeaderBytes)
                return overLimit("header", m_limits.maxHeaderBytes, "maxHeaderBytes"), true;
            if (line.isEmpty())
                complete();
            break;
        case Stage::Waiting:
        case Stage::Done:
            return true;
        }
    }
    return true;
}

// False when the reply failed meanwhile.
bool HttpReply::headersDone()
{
    if (m_status >= 100 && m_status < 200) {
        if (++m_interim > m_limits.maxInterimResponses)
            return overLimit("interim answers", m_limits.maxInterimResponses, "maxInterimResponses");
        m_stage = Stage::Status; // interim answer; the final one follows
        return true;
    }
    setAttribute(QNetworkRequest::HttpStatusCodeAttribute, m_status);
    setAttribute(QNetworkRequest::ConnectionEncryptedAttribute, false);
    setAttribute(QNetworkRequest::HttpPipeliningWasUsedAttribute, false);
    setAttribute(QNetworkRequest::Http2WasUsedAttribute, false);
    QByteArray length, encoding, transfer;
    for (const auto& header : qAsConst(m_headers)) {
        const QByteArray name = header.first.toLower();
        if (name == "content-length")
            length = header.second;
        else if (name == "content-encoding")
            encoding = header.second.toLower();
        else if (name == "transfer-encoding")
            transfer = header.second.toLower().trimmed();
    }
    if (m_autoDecompress && encoding.contains(','))
        return refuse(ProtocolFailure, QStringLiteral("reply is compressed more than once"));
    const bool decompress = m_autoDecompress && (encoding == "gzip" || encoding == "deflate");
    bool lengthOk = false;
    const qint64 declared = length.toLongLong(&lengthOk);
    if (lengthOk && declared > m_bodyLimit)
        return overLimit("body", m_bodyLimit, bodyLimitName());
    for (const auto& header : qAsConst(m_headers)) {
        // Qt drops the length of a body it decompresses.
        if (!(decompress && header.first.compare("content-length", Qt::CaseInsensitive) == 0))
            setRawHeader(header.first, header.second);
    }
    if (decompress) {
        m_inflater = std::make_unique<Inflater>();
        if (lengthOk)
            setAttribute(QNetworkRequest::OriginalContentLengthAttribute, declared);
    }
    // Relative targets too, which the cooked Location header leaves out.
    if (m_status >= 300 && m_status < 400 && hasRawHeader("Location"))
        setAttribute(QNetworkRequest::RedirectionTargetAttribute, QUrl::fromEncoded(rawHeader("Location")));
    if (m_manager && m_manager->cookieJar() && hasRawHeader("Set-Cookie")
        && request().attribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Automatic)
            == QNetworkRequest::Automatic) {
        m_manager->cookieJar()->setCookiesFromUrl(
            header(QNetworkRequest::SetCookieHeader).value<QList<QNetworkCookie>>(), url());
    }
    if (!transfer.isEmpty() && transfer != "chunked" && transfer != "identity")
        return refuse(ProtocolFailure, QStringLiteral("reply has an unknown transfer coding"));
    if (transfer == "chunked") {
        m_stage = Stage::ChunkSize;
    } else {
        m_stage = Stage::Body;
        m_remaining = lengthOk && declared >= 0 ? declared : -1;
        m_total = m_remaining;
    }
    if (m_status == 204 || m_status == 304)
        m_remaining = 0, m_stage = Stage::Body;
    const QPointer<HttpReply> self(this);
    emit metaDataChanged();
    if (self && m_stage == Stage::Body && m_remaining == 0 && !isFinished())
        complete();
    return true;
}

// False when the reply finished or went away meanwhile.
bool HttpReply::deliver(QByteArray data)
{
    m_received += data.size();
    if (m_received > m_bodyLimit)
        return overLimit("body", m_bodyLimit, bodyLimitName());
    if (m_inflater) {
        QByteArray plain;
        switch (m_inflater->inflateChunk(
            data, plain, m_plainBytes, m_bodyLimit, m_limits.maxDecompressionRatio)) {
        case Inflater::Ok:
            break;
        case Inflater::Corrupt:
            return refuse(ProtocolFailure, translated("QHttp", "Data corrupted"));
        case Inflater::TooLarge:
            return overLimit("body", m_bodyLimit, bodyLimitName());
        case Inflater::TooDense:
            return overLimit("decompression ratio", m_limits.maxDecompressionRatio, "maxDecompressionRatio");
        }
        // A compressed body inside the compressed body: a bomb's usual wrapping.
        if (m_plainBytes == 0 && plain.startsWith("\x1f\x8b"))
            return refuse(ProtocolFailure, QStringLiteral("reply is compressed more than once"));
        data = plain;
    }
    if (data.isEmpty())
        return true;
    m_plainBytes += data.size();
    if (m_bodyPos > 0 && m_bodyPos == m_body.size()) {
        m_body.clear();
        m_bodyPos = 0;
    }
    m_body += data;
    const QPointer<HttpReply> self(this);
    emit readyRead();
    if (self)
        emit downloadProgress(m_received, m_total);
    return self && !isFinished();
}

bool HttpReply::keepAlive() const
{
    if (hasToken(request().rawHeader("Connection"), "close"))
        return false;
    const QByteArray answer = rawHeader("Connection");
    return m_minorVersion >= 1 ? !hasToken(answer, "close") : hasToken(answer, "keep-alive");
}

void HttpReply::complete()
{
    if (m_inflater && m_inflater->fed > 0 && !m_inflater->ended) {
        refuse(ProtocolFailure, QStringLiteral("reply ends inside its compressed body"));
        return;
    }
    m_stage = Stage::Done;
    // Bytes beyond the answer are nothing this connection can be trusted with again.
    releaseSocket(keepAlive() && m_inPos == m_in.size() && (m_total >= 0 || m_remaining == 0));
    const NetworkError code = statusError(m_status);
    if (code == NoError)
        finish(NoError, QString());
    else if (code == AuthenticationRequiredError)
        finish(code, translated("QHttp", "Host requires authentication"));
    else if (code == ProxyAuthenticationRequiredError)
        finish(code, translated("QHttp", "Proxy requires authentication"));
    else
        finish(code,
            translated("QNetworkReply", "Error transferring %1 - server replied: %2")
                .arg(url().toString(), attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString()));
}

void HttpReply::finish(NetworkError code, const QString& text)
{
    if (isFinished())
        return;
    m_stage = Stage::Done;
    if (m_timer)
        m_timer->stop();
    if (m_deadline)
        m_deadline->stop();
    const QPointer<HttpReply> self(this);
    if (code != NoError) {
        setError(code, text);
        emit errorOccurred(code);
#if QT_DEPRECATED_SINCE(5, 15)
        QT_WARNING_PUSH
        QT_WARNING_DISABLE_DEPRECATED
        if (self)
            emit error(code);
        QT_WARNING_POP
#endif
    }
    if (!self || isFinished())
        return;
    setFinished(true);
    emit finished();
}

void HttpReply::releaseSocket(bool reusable)
{
    if (!m_socket)
        return;
    TcpLink* socket = m_socket;
    m_socket = nullptr;
    socket->disconnect(this);
    socket->setReadBufferSize(0);
    if (m_pool)
        m_pool->release(socket, reusable);
}

void HttpReply::abort()
{
    if (isFinished())
        return;
    releaseSocket(false);
    QNetworkReply::close();
    finish(OperationCanceledError, translated("QNetworkReply", "Operation canceled"));
}

void HttpReply::close()
{
    if (isFinished())
        QNetworkReply::close();
    else
        abort();
}

qint64 HttpReply::bytesAvailable() const
{
    return QNetworkReply::bytesAvailable() + m_body.size() - m_bodyPos;
}

void HttpReply::setReadBufferSize(qint64 size)
{
    QNetworkReply::setReadBufferSize(size);
    if (m_socket)
        QMetaObject::invokeMethod(this, &HttpReply::onReadyRead, Qt::QueuedConnection);
}

// Bytes the socket may hand over now; -1 without a limit.
qint64 HttpReply::room() const
{
    const qint64 limit = readBufferSize();
    // What QIODevice's buffer holds counts too: the limit is on what the reader has waiting.
    return limit <= 0 ? -1 : qMax<qint64>(0, limit - bytesAvailable());
}

qint64 HttpReply::readData(char* data, qint64 maxSize)
{
    const qint64 n = qMin<qint64>(maxSize, m_body.size() - m_bodyPos);
    if (n > 0) {
        memcpy(data, m_body.constData() + m_bodyPos, size_t(n));
        m_bodyPos += n;
        if (m_bodyPos == m_body.size()) {
            m_body.clear();
            m_bodyPos = 0;
        }
    }
    // Whatever the reader took made room, even when QIODevice's buffer served it.
    if (readBufferSize() > 0 && m_socket && m_socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &HttpReply::onReadyRead, Qt::QueuedConnection);
    if (n <= 0)
        return isFinished() ? -1 : 0;
    return n;
}

} // namespace Onvif::Internal
