#include "camera.h"
#include "cameraImpl.h"
#include "soapXml.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>
#include <QUuid>

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

namespace CameraSim {

namespace {

const char kSoapContentType[] = "application/soap+xml; charset=utf-8";

bool isLoopback(const QString& host)
{
    in_addr addr {};
    if (inet_pton(AF_INET, host.toLatin1().constData(), &addr) != 1)
        return false;
    return (ntohl(addr.s_addr) >> 24) == 127;
}

// cpp-httplib has no way for a handler to abort its connection, so the socket is
// found by its two endpoints and shut down; the library then fails its write and
// closes it, and the client sees the connection end without a byte of reply.
bool shutdownConnection(quint16 localPort, const std::string& remoteAddr, int remotePort, int how = SHUT_RDWR)
{
    DIR* dir = opendir("/proc/self/fd");
    if (!dir)
        return false;
    bool done = false;
    while (dirent* entry = readdir(dir)) {
        char* end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0')
            continue;
        sockaddr_in local {}, peer {};
        socklen_t len = sizeof(local);
        if (getsockname(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&local), &len) != 0
            || local.sin_family != AF_INET || ntohs(local.sin_port) != localPort)
            continue;
        len = sizeof(peer);
        if (getpeername(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&peer), &len) != 0
            || ntohs(peer.sin_port) != remotePort)
            continue;
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &peer.sin_addr, text, sizeof(text));
        if (remoteAddr == text) {
            ::shutdown(static_cast<int>(fd), how);
            done = true;
            break;
        }
    }
    closedir(dir);
    return done;
}

UsernameToken readToken(const QDomElement& header)
{
    UsernameToken token;
    const QDomElement ut = Soap::descendant(header, "UsernameToken");
    if (ut.isNull())
        return token;
    token.present = true;
    token.username = Soap::childText(ut, "Username");
    const QDomElement password = Soap::child(ut, "Password");
    token.password = password.text().trimmed();
    token.passwordType = password.attribute(QStringLiteral("Type"));
    token.nonce = Soap::childText(ut, "Nonce");
    token.created = Soap::childText(ut, "Created");
    return token;
}

// Serves a body of `total` bytes made of head, filler and tail without holding it whole.
httplib::ContentProvider paddedProvider(QByteArray head, QByteArray tail, size_t total)
{
    return [head, tail, total](size_t offset, size_t length, httplib::DataSink& sink) {
        static const QByteArray filler(64 * 1024, 'x');
        const size_t headSize = static_cast<size_t>(head.size());
        const size_t tailStart = total - static_cast<size_t>(tail.size());
        size_t n = 0;
        if (offset < headSize) {
            n = std::min(length, headSize - offset);
            sink.write(head.constData() + offset, n);
        } else if (offset < tailStart) {
            n = std::min({ length, tailStart - offset, static_cast<size_t>(filler.size()) });
            sink.write(filler.constData(), n);
        } else {
            n = std::min(length, total - offset);
            sink.write(tail.constData() + (offset - tailStart), n);
        }
        return n > 0;
    };
}

} // namespace

QByteArray RequestRecord::header(const QByteArray& name) const
{
    for (const auto& h : headers) {
        if (h.first.compare(name, Qt::CaseInsensitive) == 0)
            return h.second;
    }
    return QByteArray();
}

Camera::Impl::Impl(const CameraConfig& c)
    : config(c)
    , verifier(c.user, c.password, c.allowedSkewMs, c.rejectReplayedNonce, c.allowPasswordText)
    , faults(c.faults)
    , digestSecret(QUuid::createUuid().toRfc4122())
{
    for (const PtzNodeConfig& node : config.ptzNodes)
        ptz.insert(node.token, PtzNodeState());
}

QDateTime Camera::Impl::cameraNow() const
{
    return QDateTime::currentDateTimeUtc().addMSecs(config.clockOffsetMs);
}

bool Camera::Impl::sleepInterruptibly(int ms)
{
    std::unique_lock<std::mutex> lock(stopMutex);
    return !stopCv.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopping; });
}

bool Camera::Impl::takeFault(const QString& operation, FaultSpec& spec)
{
    std::lock_guard<std::mutex> lock(mutex);
    auto it = faults.find(operation);
    if (it == faults.end() && operation != QLatin1String("Snapshot"))
        it = faults.find(QStringLiteral("*"));
    if (it == faults.end())
        return false;
    if (it->skip > 0) {
        --it->skip;
        return false;
    }
    spec = it.value();
    if (it->count > 0 && --it->count == 0)
        faults.erase(it);
    return true;
}

void Camera::Impl::record(RequestRecord&& rec)
{
    std::lock_guard<std::mutex> lock(mutex);
    log.push_back(std::move(rec));
    while (log.size() > static_cast<size_t>(std::max(1, config.logLimit)))
        log.pop_front();
}

int Camera::Impl::noteLoginFailure()
{
    std::lock_guard<std::mutex> lock(mutex);
    ++stats.failedLogins;
    if (!config.hasQuirk("lockout"))
        return 0;
    if (++failedInRow < config.lockoutAttempts)
        return config.lockoutAttempts - failedInRow;
    failedInRow = 0;
    lockedUntilMs = QDateTime::currentMSecsSinceEpoch() + config.lockoutMs;
    return 0;
}

QString Camera::Impl::lockoutRefusal()
{
    std::lock_guard<std::mutex> lock(mutex);
    const qint64 left = lockedUntilMs - QDateTime::currentMSecsSinceEpoch();
    if (!config.hasQuirk("lockout") || left <= 0)
        return QString();
    ++stats.lockedRefusals;
    return QStringLiteral("Account locked. Try again in %1 seconds").arg((left + 999) / 1000);
}

bool Camera::Impl::checkHttpDigest(const httplib::Request& req, httplib::Response& res, QString* why)
{
    static const QString realm = QStringLiteral("IP Camera");
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    auto md5 = [](const QByteArray& data) {
        return QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex();
    };
    // Self-validating nonces: the issue time and a keyed hash of it, so none need be stored.
    auto nonceAt = [&](qint64 ms) {
        const QByteArray stamp = QByteArray::number(ms, 16);
        return stamp + md5(stamp + ':' + digestSecret);
    };
    auto challenge = [&](bool stale, const QString& text) {
        res.status = 401;
        res.set_header("WWW-Authenticate",
            QStringLiteral("Digest realm=\"%1\", qop=\"auth\", algorithm=MD5, nonce=\"%2\"%3")
                .arg(realm, QString::fromLatin1(nonceAt(nowMs)),
                    stale ? QStringLiteral(", stale=true") : QString())
                .toStdString());
        *why = text;
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.digestChallenges;
        if (stale)
            ++stats.staleNonces;
        return false;
    };

    const QString header = QString::fromStdString(req.get_header_value("Authorization"));
    if (!header.startsWith(QLatin1String("Digest "), Qt::CaseInsensitive))
        return challenge(false, QStringLiteral("no HTTP Digest credentials"));
    QHash<QString, QString> p;
    static const QRegularExpression param(QStringLiteral("(\\w+)\\s*=\\s*(?:\"([^\"]*)\"|([^,\\s]*))"));
    for (auto it = param.globalMatch(header.mid(7)); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        p.insert(m.captured(1).toLower(), m.captured(2).isNull() ? m.captured(3) : m.captured(2));
    }
    const QByteArray nonce = p.value(QStringLiteral("nonce")).toLatin1();
    const QByteArray ha1 = md5(config.user.toUtf8() + ':' + realm.toUtf8() + ':' + config.password.toUtf8());
    const QByteArray ha2
        = md5(QByteArray::fromStdString(req.method) + ':' + p.value(QStringLiteral("uri")).toUtf8());
    const QString qop = p.value(QStringLiteral("qop"));
    const QByteArray expected = qop.isEmpty()
        ? md5(ha1 + ':' + nonce + ':' + ha2)
        : md5(ha1 + ':' + nonce + ':' + p.value(QStringLiteral("nc")).toLatin1() + ':'
            + p.value(QStringLiteral("cnonce")).toLatin1() + ':' + qop.toLatin1() + ':' + ha2);
    if (p.value(QStringLiteral("username")) != config.user || p.value(QStringLiteral("realm")) != realm
        || p.value(QStringLiteral("response")).toLatin1() != expected) {
        noteLoginFailure();
        return challenge(false, QStringLiteral("wrong HTTP Digest credentials"));
    }
    bool ok = false;
    const qint64 issued = nonce.left(nonce.size() - 32).toLongLong(&ok, 16);
    if (!ok || nonce.size() <= 32 || nonceAt(issued) != nonce)
        return challenge(false, QStringLiteral("unknown HTTP Digest nonce"));
    if (nowMs - issued > config.digestNonceLifetimeMs)
        return challenge(true, QStringLiteral("stale HTTP Digest nonce"));
    return true;
}

QByteArray Camera::Impl::wireQuirks(QByteArray text, int* status) const
{
    if (config.hasQuirk("prefixed-faults") && text.contains(":Fault>")) {
        // The standard namespace under a vendor's prefix, and the status by who is to blame.
        text.replace("ter:", "vnd:").replace("xmlns:ter=", "xmlns:vnd=");
        *status = text.contains(">Receiver<") || text.contains(":Receiver<") ? 500 : 400;
    }
    if (config.hasQuirk("undeclared-prefix"))
        text.replace(" xmlns:tt=\"http://www.onvif.org/ver10/schema\"", "");
    if (config.hasQuirk("crlf-odd-prefixes")) {
        text.replace("\r\n", "\n").replace("\n", "\r\n").replace("><", ">\r\n<");
    }
    return text;
}

void Camera::Impl::rebootLocked()
{
    subscriptions.clear();
    failedInRow = 0;
    lockedUntilMs = 0;
    lastRebootMs = QDateTime::currentMSecsSinceEpoch();
    ++stats.reboots;
}

void Camera::Impl::notifyLoop()
{
    const int interval = std::max(10, config.eventIntervalMs);
    while (sleepInterruptibly(interval)) {
        QVector<QPair<QString, QString>> deliveries; // consumer, messages
        {
            std::lock_guard<std::mutex> lock(mutex);
            sweepSubscriptionsLocked(cameraNow());
            const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
            for (Subscription& sub : subscriptions) {
                if (sub.pullPoint || sub.consumer.isEmpty())
                    continue;
                int count = 0;
                const QString messages = eventMessagesXml(sub, 100, nowMs, &count);
                if (count > 0)
                    deliveries.append(qMakePair(sub.consumer, messages));
            }
        }
        for (const auto& delivery : deliveries) {
            // The simulator only ever sends to loopback, whatever a client names as its consumer.
            const QUrl url(delivery.first);
            if (url.scheme() != QLatin1String("http") || !isLoopback(url.host()))
                continue;
            httplib::Client client(url.host().toStdString(), url.port(80));
            client.set_connection_timeout(1);
            client.set_read_timeout(2);
            client.set_write_timeout(2);
            const QByteArray body = Soap::envelope(config.soapPrefix,
                QStringLiteral("<wsa5:Action>http://docs.oasis-open.org/wsn/bw-2/NotificationConsumer/Notify"
                               "</wsa5:Action>"),
                QStringLiteral("<wsnt:Notify>%1</wsnt:Notify>").arg(delivery.second));
            const QString path = url.path(QUrl::FullyEncoded);
            client.Post(path.isEmpty() ? "/" : path.toStdString(), body.toStdString(), kSoapContentType);
        }
    }
}

QString Camera::Impl::faultReply(const QString& code, const QString& subcode, const QString& reason) const
{
    return Soap::faultBody(config.soapPrefix, code, subcode, reason);
}

void Camera::Impl::setBody(const httplib::Request& req, httplib::Response& res, const QByteArray& body,
    const char* contentType) const
{
    // Connection options are case-insensitive and ONVIF clients commonly send "Close", which
    // cpp-httplib ignores (it honours only "close"). A camera ends such a connection after the
    // reply; left open, idle connections would hold this camera's few workers. The reply goes out
    // through a provider whose releaser runs once it is written: closing the read side then makes
    // the server's keep-alive loop see the end and close the socket.
    const std::string connection = req.get_header_value("Connection");
    if (body.isEmpty() || connection == "close"
        || QByteArray::fromStdString(connection).trimmed().toLower() != "close") {
        res.set_content(body.constData(), static_cast<size_t>(body.size()), contentType);
        return;
    }
    res.set_header("Connection", "close");
    const quint16 port = boundPort;
    const std::string remoteAddr = req.remote_addr;
    const int remotePort = req.remote_port;
    res.set_content_provider(
        static_cast<size_t>(body.size()), contentType,
        [body](size_t offset, size_t length, httplib::DataSink& sink) {
            return sink.write(body.constData() + offset, length);
        },
        [port, remoteAddr, remotePort](bool) { shutdownConnection(port, remoteAddr, remotePort, SHUT_RD); });
}

void Camera::Impl::handle(const httplib::Request& req, httplib::Response& res)
{
    ++requestTotal;
    RequestRecord rec;
    rec.receivedUtc = QDateTime::currentDateTimeUtc();
    rec.method = QString::fromStdString(req.method);
    rec.path = QString::fromStdString(req.path);
    for (const auto& h : req.headers)
        rec.headers.append(
            qMakePair(QByteArray::fromStdString(h.first), QByteArray::fromStdString(h.second)));
    rec.body = QByteArray::fromStdString(req.body);

    auto reply = [&](int status, QByteArray text) {
        text = wireQuirks(text, &status);
        res.status = status;
        setBody(req, res, text, kSoapContentType);
        rec.status = status;
        record(std::move(rec));
    };
    auto refuse = [&](const QString& code, const QString& subcode, const QString& reason) {
        reply(400, Soap::envelope(config.soapPrefix, QString(), faultReply(code, subcode, reason)));
    };

    if (rec.body.trimmed().isEmpty())
        return refuse(
            QStringLiteral("Sender"), QStringLiteral("ter:WellFormed"), QStringLiteral("Empty request"));
    const QString contentType = QString::fromStdString(req.get_header_value("Content-Type")).toLower();
    const QString mime = contentType.section(QLatin1Char(';'), 0, 0).trimmed();
    if (mime != QLatin1String("application/soap+xml") && mime != QLatin1String("application/xml")
        && mime != QLatin1String("text/xml"))
        return refuse(QStringLiteral("Sender"), QStringLiteral("ter:InvalidArgs"),
            QStringLiteral("Unsupported content type: %1").arg(contentType));

    QDomDocument doc;
    QString parseError;
    if (!doc.setContent(rec.body, true, &parseError))
        return refuse(QStringLiteral("Sender"), QStringLiteral("ter:WellFormed"),
            QStringLiteral("XML not well-formed: %1").arg(parseError));
    const QDomElement root = doc.documentElement();
    if (root.localName() == QLatin1String("Envelope") && root.namespaceURI() == Soap::kEnvelope11Ns)
        return refuse(QStringLiteral("VersionMismatch"), QString(), QStringLiteral("SOAP 1.2 expected"));
    if (root.localName() != QLatin1String("Envelope") || root.namespaceURI() != Soap::kEnvelopeNs)
        return refuse(QStringLiteral("Sender"), QStringLiteral("ter:WellFormed"),
            QStringLiteral("Not a SOAP envelope"));
    SoapRequest request;
    request.path = rec.path;
    request.header = Soap::child(root, "Header");
    request.body = Soap::firstChildElement(Soap::child(root, "Body"));
    if (request.body.isNull())
        return refuse(
            QStringLiteral("Sender"), QStringLiteral("ter:InvalidArgs"), QStringLiteral("Empty body"));
    request.operation = request.body.localName();
    request.operationNs = request.body.namespaceURI();
    rec.operation = request.operation;

    FaultSpec spec;
    const bool faulty = takeFault(request.operation, spec);
    if (faulty && spec.delayMs > 0 && !sleepInterruptibly(spec.delayMs))
        spec.mode = FaultMode::Drop; // stopping: do not hold the worker any longer
    if (faulty) {
        switch (spec.mode) {
        case FaultMode::Drop:
            // Logged first: the client may look at the log as soon as it sees the connection end.
            rec.status = 0;
            record(std::move(rec));
            res.set_header("Connection", "close");
            shutdownConnection(boundPort, req.remote_addr, req.remote_port);
            return;
        case FaultMode::Http500:
            res.status = 500;
            rec.status = 500;
            record(std::move(rec));
            return;
        case FaultMode::SoapFault:
            return reply(spec.httpStatus,
                Soap::envelope(
                    config.soapPrefix, QString(), faultReply(spec.code, spec.subcode, spec.reason)));
        default:
            break;
        }
    }

    if (!config.requireAuth || config.anonymousOperations.contains(request.operation)) {
        rec.authResult = QStringLiteral("not required");
    } else {
        auto notAuthorized = [&](const QString& reason) {
            return reply(config.authFailureStatus,
                Soap::envelope(config.soapPrefix, QString(),
                    faultReply(QStringLiteral("Sender"), QStringLiteral("ter:NotAuthorized"), reason)));
        };
        const QString locked = lockoutRefusal();
        if (!locked.isEmpty()) {
            rec.authResult = QStringLiteral("account locked");
            return notAuthorized(locked);
        }
        if (config.hasQuirk("digest-only")) {
            // Such firmware never looks at WS-Security; only the HTTP layer decides.
            QString why;
            if (!checkHttpDigest(req, res, &why)) {
                rec.authResult = why;
                rec.status = 401;
                res.set_content("401 Unauthorized", "text/plain");
                record(std::move(rec));
                return;
            }
            rec.authResult = QStringLiteral("ok");
        } else {
            const AuthResult auth = verifier.verify(readToken(request.header), cameraNow());
            rec.authResult = authResultText(auth);
            if (auth != AuthResult::Ok) {
                QString reason = QStringLiteral("Sender not Authorized");
                if ((auth == AuthResult::Stale && config.hasQuirk("clock-skew"))
                    || (auth == AuthResult::Replayed && config.hasQuirk("nonce-replay")))
                    reason = authResultText(auth);
                if (auth != AuthResult::Missing) {
                    const int left = noteLoginFailure();
                    if (config.hasQuirk("lockout"))
                        reason = left > 0
                            ? QStringLiteral("%1. You still have %2 attempts").arg(reason).arg(left)
                            : QStringLiteral("Account locked. Try again in %1 seconds")
                                  .arg((config.lockoutMs + 999) / 1000);
                }
                return notAuthorized(reason);
            }
            std::lock_guard<std::mutex> lock(mutex);
            failedInRow = 0;
        }
    }

    const SoapReply answer = dispatch(request, faulty && spec.mode == FaultMode::EmptyUri);
    QByteArray text = Soap::envelope(config.soapPrefix, answer.header, answer.body);
    if (!faulty)
        return reply(answer.status, text);

    const QByteArray bodyEnd = "</" + config.soapPrefix.toUtf8() + ":Body>";
    switch (spec.mode) {
    case FaultMode::Malformed:
        text.replace(bodyEnd, "<&broken></" + config.soapPrefix.toUtf8() + ":Bdy>");
        return reply(answer.status, text);
    case FaultMode::Truncate: {
        const size_t total = static_cast<size_t>(text.size());
        res.status = answer.status;
        res.set_content_provider(
            total, kSoapContentType, [text, total](size_t offset, size_t, httplib::DataSink& sink) {
                if (offset > 0)
                    return false; // the connection ends short of Content-Length
                sink.write(text.constData(), total / 2);
                return true;
            });
        rec.status = answer.status;
        record(std::move(rec));
        return;
    }
    case FaultMode::Huge: {
        const int cut = text.lastIndexOf(bodyEnd);
        const QByteArray head = text.left(cut) + "<!--";
        const QByteArray tail = "-->" + text.mid(cut);
        const size_t total = std::max<size_t>(
            static_cast<size_t>(spec.hugeBytes), static_cast<size_t>(head.size() + tail.size()));
        res.status = answer.status;
        res.set_content_provider(total, kSoapContentType, paddedProvider(head, tail, total));
        rec.status = answer.status;
        record(std::move(rec));
        return;
    }
    default:
        return reply(answer.status, text);
    }
}

void Camera::Impl::handleSnapshot(const httplib::Request& req, httplib::Response& res)
{
    ++requestTotal;
    RequestRecord rec;
    rec.receivedUtc = QDateTime::currentDateTimeUtc();
    rec.method = QString::fromStdString(req.method);
    rec.path = QString::fromStdString(req.path);
    for (const auto& h : req.headers)
        rec.headers.append(
            qMakePair(QByteArray::fromStdString(h.first), QByteArray::fromStdString(h.second)));
    rec.operation = QStringLiteral("Snapshot");
    rec.authResult = QStringLiteral("not required");

    if (config.hasQuirk("snapshot-digest") || config.hasQuirk("digest-only")) {
        QString why;
        if (!checkHttpDigest(req, res, &why)) {
            rec.authResult = why;
            rec.status = 401;
            res.set_content("401 Unauthorized", "text/plain");
            record(std::move(rec));
            return;
        }
        rec.authResult = QStringLiteral("ok");
    }

    QString token = rec.path.section(QLatin1Char('/'), -1);
    if (token.endsWith(QLatin1String(".jpg")))
        token.chop(4);
    FaultSpec spec;
    const bool faulty = takeFault(rec.operation, spec);
    if (faulty && spec.delayMs > 0 && !sleepInterruptibly(spec.delayMs))
        spec.mode = FaultMode::Drop;
    const FaultMode mode = faulty ? spec.mode : FaultMode::None;
    QByteArray jpeg;
    if (mode != FaultMode::Drop && mode != FaultMode::Http500)
        jpeg = snapshotJpeg(token);

    if (mode == FaultMode::Drop) {
        rec.status = 0;
        record(std::move(rec));
        res.set_header("Connection", "close");
        shutdownConnection(boundPort, req.remote_addr, req.remote_port);
        return;
    }
    if (mode == FaultMode::Http500) {
        res.status = 500;
    } else if (jpeg.isEmpty()) {
        res.status = 404;
    } else if (mode == FaultMode::Malformed) {
        // Plausible size and type, but not an image.
        res.set_content(QByteArray(jpeg.size(), 'z').toStdString(), "image/jpeg");
    } else if (mode == FaultMode::Truncate) {
        const size_t total = static_cast<size_t>(jpeg.size());
        res.set_content_provider(
            total, "image/jpeg", [jpeg, total](size_t offset, size_t, httplib::DataSink& sink) {
                if (offset > 0)
                    return false;
                sink.write(jpeg.constData(), total / 2);
                return true;
            });
    } else {
        setBody(req, res, jpeg, "image/jpeg");
    }
    rec.status = res.status;
    record(std::move(rec));
}

void Camera::Impl::handleControl(const httplib::Request& req, httplib::Response& res)
{
    // Run-time control for programs that use the simulator out of process.
    if (req.path == "/sim/log" && req.method == "GET") {
        QJsonArray array;
        std::lock_guard<std::mutex> lock(mutex);
        for (const RequestRecord& r : log) {
            QJsonObject headers;
            for (const auto& h : r.headers)
                headers.insert(QString::fromLatin1(h.first), QString::fromLatin1(h.second));
            array.append(QJsonObject { { QStringLiteral("time"), r.receivedUtc.toString(Qt::ISODateWithMs) },
                { QStringLiteral("method"), r.method }, { QStringLiteral("path"), r.path },
                { QStringLiteral("operation"), r.operation }, { QStringLiteral("auth"), r.authResult },
                { QStringLiteral("status"), r.status }, { QStringLiteral("headers"), headers },
                { QStringLiteral("body"), QString::fromUtf8(r.body) } });
        }
        res.set_content(QJsonDocument(array).toJson().toStdString(), "application/json");
        return;
    }
    if (req.path == "/sim/stats" && req.method == "GET") {
        std::lock_guard<std::mutex> lock(mutex);
        const QJsonObject json { { QStringLiteral("requests"), requestTotal.load() },
            { QStringLiteral("failedLogins"), stats.failedLogins },
            { QStringLiteral("lockedRefusals"), stats.lockedRefusals },
            { QStringLiteral("digestChallenges"), stats.digestChallenges },
            { QStringLiteral("staleNonces"), stats.staleNonces },
            { QStringLiteral("reboots"), stats.reboots },
            { QStringLiteral("subscriptions"), subscriptions.size() } };
        res.set_content(QJsonDocument(json).toJson().toStdString(), "application/json");
        return;
    }
    if (req.path == "/sim/reboot" && req.method == "POST") {
        std::lock_guard<std::mutex> lock(mutex);
        rebootLocked();
        return;
    }
    if (req.path == "/sim/faults" && req.method == "DELETE") {
        std::lock_guard<std::mutex> lock(mutex);
        faults.clear();
        return;
    }
    if (req.path == "/sim/faults" && req.method == "POST") {
        const QJsonObject json = QJsonDocument::fromJson(QByteArray::fromStdString(req.body)).object();
        QMap<QString, FaultSpec> parsed;
        for (auto it = json.begin(); it != json.end(); ++it) {
            QString error;
            parsed.insert(it.key(), FaultSpec::fromJson(it.value().toObject(), &error));
            if (!error.isEmpty()) {
                res.status = 400;
                res.set_content(error.toStdString(), "text/plain");
                return;
            }
        }
        std::lock_guard<std::mutex> lock(mutex);
        for (auto it = parsed.begin(); it != parsed.end(); ++it)
            faults.insert(it.key(), it.value());
        return;
    }
    res.status = 404;
}

Camera::Camera(const CameraConfig& config)
    : d(std::make_unique<Impl>(config))
{ }

Camera::~Camera()
{
    stop();
}

bool Camera::start(QString* error)
{
    if (d->running)
        return true;
    auto fail = [error](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (!isLoopback(d->config.host))
        return fail(
            QStringLiteral("refusing to serve on %1: only 127.0.0.0/8 is allowed").arg(d->config.host));

    {
        std::lock_guard<std::mutex> lock(d->stopMutex);
        d->stopping = false;
    }
    d->server = std::make_unique<httplib::Server>();
    httplib::Server& svr = *d->server;
    Impl* impl = d.get();
    // Few threads per camera, started on demand: 200 idle cameras must not cost thousands of threads.
    // The server takes ownership of the queue and deletes it when listening ends.
    svr.new_task_queue = [impl]() -> httplib::TaskQueue* {
        auto* pool = new ElasticPool(impl->config.maxThreads, 3000);
        impl->pool = pool;
        return pool;
    };
    svr.set_keep_alive_timeout(std::max(1, d->config.keepAliveTimeoutSec));
    svr.set_keep_alive_max_count(1000);
    svr.set_socket_options([](socket_t sock) {
        const int on = 1;
        // Not SO_REUSEPORT (the library default): a second camera must not share a fixed port unnoticed.
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        // Accepted sockets inherit this. Headers and body leave in separate writes, and without
        // it Nagle and delayed ACKs add 40 ms to every reply on a kept-alive connection.
        setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    });
    svr.set_read_timeout(5);
    svr.set_write_timeout(5);
    svr.set_payload_max_length(64 * 1024 * 1024);
    svr.Get(
        "/sim/log", [impl](const httplib::Request& q, httplib::Response& r) { impl->handleControl(q, r); });
    svr.Get(
        "/sim/stats", [impl](const httplib::Request& q, httplib::Response& r) { impl->handleControl(q, r); });
    svr.Post("/sim/reboot",
        [impl](const httplib::Request& q, httplib::Response& r) { impl->handleControl(q, r); });
    svr.Post("/sim/faults",
        [impl](const httplib::Request& q, httplib::Response& r) { impl->handleControl(q, r); });
    svr.Delete("/sim/faults",
        [impl](const httplib::Request& q, httplib::Response& r) { impl->handleControl(q, r); });
    svr.Get("/snapshot/.*",
        [impl](const httplib::Request& q, httplib::Response& r) { impl->handleSnapshot(q, r); });
    svr.Post(".*", [impl](const httplib::Request& q, httplib::Response& r) { impl->handle(q, r); });

    const std::string host = d->config.host.toStdString();
    int port = d->config.port;
    if (port == 0)
        port = svr.bind_to_any_port(host);
    else if (!svr.bind_to_port(host, port))
        port = -1;
    if (port <= 0) {
        d->server.reset();
        return fail(QStringLiteral("cannot bind %1:%2").arg(d->config.host).arg(d->config.port));
    }
    d->boundPort = static_cast<quint16>(port);
    d->startMs = QDateTime::currentMSecsSinceEpoch();
    d->lastRebootMs = d->startMs;
    d->running = true;
    d->listener = std::thread([impl] { impl->server->listen_after_bind(); });
    // The server ignores stop() until its loop has begun; a quick start-stop would otherwise hang.
    while (!d->server->is_running())
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    return true;
}

void Camera::requestStop()
{
    if (!d->running)
        return;
    {
        std::lock_guard<std::mutex> lock(d->stopMutex);
        d->stopping = true;
    }
    d->stopCv.notify_all();
    d->server->stop();
}

void Camera::stop()
{
    if (!d->running)
        return;
    requestStop();
    if (d->listener.joinable())
        d->listener.join();
    std::thread notifier;
    {
        std::lock_guard<std::mutex> lock(d->mutex);
        notifier.swap(d->notifier);
    }
    if (notifier.joinable())
        notifier.join();
    d->pool = nullptr;
    d->server.reset();
    d->running = false;
}

bool Camera::isRunning() const
{
    return d->running;
}

quint16 Camera::port() const
{
    return d->boundPort;
}

QString Camera::host() const
{
    return d->config.host;
}

QString Camera::baseUrl() const
{
    return QStringLiteral("http://%1:%2").arg(d->config.host).arg(d->boundPort);
}

QString Camera::deviceUrl() const
{
    return serviceUrl(Service::Device);
}

QString Camera::serviceUrl(Service service) const
{
    static const char* const paths[] = { "/onvif/device_service", "/onvif/media_service",
        "/onvif/ptz_service", "/onvif/event_service", "/onvif/imaging_service", "/onvif/media2_service" };
    return baseUrl() + QLatin1String(paths[static_cast<int>(service)]);
}

QString Camera::endpointReference() const
{
    if (!d->config.endpointUuid.isEmpty())
        return QStringLiteral("urn:uuid:") + d->config.endpointUuid;
    // Stable per serial number, so a restarted camera keeps its identity.
    const QByteArray hash
        = QCryptographicHash::hash(d->config.serialNumber.toUtf8(), QCryptographicHash::Md5);
    return QStringLiteral("urn:uuid:") + QUuid::fromRfc4122(hash).toString(QUuid::WithoutBraces);
}

QStringList Camera::scopes() const
{
    const CameraConfig& c = d->config;
    QStringList list = { QStringLiteral("onvif://www.onvif.org/type/video_encoder"),
        QStringLiteral("onvif://www.onvif.org/Profile/Streaming"),
        QStringLiteral("onvif://www.onvif.org/name/")
            + QString::fromLatin1(QUrl::toPercentEncoding(c.manufacturer)),
        QStringLiteral("onvif://www.onvif.org/hardware/")
            + QString::fromLatin1(QUrl::toPercentEncoding(c.hardwareScope)),
        QStringLiteral("onvif://www.onvif.org/location/") };
    if (c.ptzCapability)
        list.insert(1, QStringLiteral("onvif://www.onvif.org/type/ptz"));
    return list;
}

const CameraConfig& Camera::config() const
{
    return d->config;
}

void Camera::setFault(const QString& operation, const FaultSpec& spec)
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->faults.insert(operation, spec);
}

void Camera::clearFault(const QString& operation)
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->faults.remove(operation);
}

void Camera::clearFaults()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->faults.clear();
}

QMap<QString, FaultSpec> Camera::faults() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->faults;
}

QVector<RequestRecord> Camera::requestLog() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return QVector<RequestRecord>(d->log.begin(), d->log.end());
}

QVector<RequestRecord> Camera::requestsFor(const QString& operation) const
{
    QVector<RequestRecord> result;
    std::lock_guard<std::mutex> lock(d->mutex);
    for (const RequestRecord& r : d->log) {
        if (r.operation == operation)
            result.append(r);
    }
    return result;
}

int Camera::requestCount() const
{
    return d->requestTotal;
}

void Camera::clearRequestLog()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->log.clear();
}

PtzPosition Camera::ptzPosition(const QString& nodeToken) const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    auto it = d->ptz.find(nodeToken);
    if (it == d->ptz.end())
        return PtzPosition();
    d->settle(*it, QDateTime::currentMSecsSinceEpoch());
    return it->position;
}

QVector<PresetState> Camera::presets(const QString& profileToken) const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->presetsByProfile.value(profileToken);
}

int Camera::subscriptionCount() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->subscriptions.size();
}

CameraStats Camera::stats() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->stats;
}

void Camera::reboot()
{
    std::lock_guard<std::mutex> lock(d->mutex);
    d->rebootLocked();
}

int Camera::workerThreads() const
{
    ElasticPool* pool = d->pool;
    return pool ? pool->threadCount() : 0;
}

} // namespace CameraSim
