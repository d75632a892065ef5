#include "onvifTypes/session/camera.h"
#include "onvifTypes/session/camera_p.h"

#include "onvifTypes/onvifLog.h"
#include "onvifTypes/onvifNetworkAccessManager.h"
#include "onvifTypes/onvifResponse.h"
#include "onvifTypes/onvifrequest.h"
#include "onvifTypes/schema/tds/GetCapabilities.h"
#include "onvifTypes/schema/tds/GetCapabilitiesResponse.h"
#include "onvifTypes/schema/tds/GetDeviceInformation.h"
#include "onvifTypes/schema/tds/GetDeviceInformationResponse.h"
#include "onvifTypes/schema/tds/GetServices.h"
#include "onvifTypes/schema/tds/GetServicesResponse.h"
#include "onvifTypes/schema/tds/GetSystemDateAndTime.h"
#include "onvifTypes/schema/tds/GetSystemDateAndTimeResponse.h"
#include "onvifTypes/schema/tptz/ContinuousMove.h"
#include "onvifTypes/schema/tptz/ContinuousMoveResponse.h"
#include "onvifTypes/schema/tptz/GetPresets.h"
#include "onvifTypes/schema/tptz/GetPresetsResponse.h"
#include "onvifTypes/schema/tptz/GetStatus.h"
#include "onvifTypes/schema/tptz/GetStatusResponse.h"
#include "onvifTypes/schema/tptz/GotoHomePosition.h"
#include "onvifTypes/schema/tptz/GotoHomePositionResponse.h"
#include "onvifTypes/schema/tptz/GotoPreset.h"
#include "onvifTypes/schema/tptz/GotoPresetResponse.h"
#include "onvifTypes/schema/tptz/Stop.h"
#include "onvifTypes/schema/tptz/StopResponse.h"
#include "onvifTypes/session/httpDigest_p.h"
#include "onvifTypes/session/nonces.h"
#include "onvifTypes/transport/userAgent_p.h"

#include <QElapsedTimer>
#include <QHash>
#include <QMutex>
#include <QNetworkReply>
#include <QPointer>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

namespace Onvif {

namespace {

const qint64 kFarOffMs = 5 * 60 * 1000; // where cameras start refusing a Created time

const char* const kServiceNamespaces[] = {
    "http://www.onvif.org/ver10/device/wsdl",
    "http://www.onvif.org/ver10/media/wsdl",
    "http://www.onvif.org/ver20/media/wsdl",
    "http://www.onvif.org/ver20/ptz/wsdl",
    "http://www.onvif.org/ver10/events/wsdl",
    "http://www.onvif.org/ver20/imaging/wsdl",
};

// Failed logins per device, shared by every session of the process: two sessions to one camera
// lock the same account.
class LoginFailures
{
public:
    static LoginFailures& instance()
    {
        static LoginFailures failures;
        return failures;
    }
    bool mayTry(const QString& device, const CameraOptions& options)
    {
        QMutexLocker lock(&m_mutex);
        QVector<qint64>& times = m_times[device];
        const qint64 now = m_clock.elapsed();
        times.erase(std::remove_if(times.begin(), times.end(),
                        [&](qint64 t) { return now - t > options.failedLoginWindowMs; }),
            times.end());
        return times.size() < options.maxFailedLogins;
    }
    void record(const QString& device)
    {
        QMutexLocker lock(&m_mutex);
        m_times[device].append(m_clock.elapsed());
    }

private:
    LoginFailures() { m_clock.start(); }
    QMutex m_mutex;
    QElapsedTimer m_clock;
    QHash<QString, QVector<qint64>> m_times;
};

// The session's WS-Security header: the measured clock offset, and nonces from the strong
// source whatever the process chose for the other objects.
class SessionSecurity : public Serializable
{
public:
    SessionSecurity(const QString& user, const QString& password, qint64 shiftMs)
        : m_user(user)
        , m_password(password)
        , m_shift(shiftMs)
    { }
    // The name is escaped here (the shared header writes it as it stands): "R&D" stays one name.
    QString serialize(QString) override
    {
        return Internal::usernameToken(m_user.toHtmlEscaped(), m_password, m_shift, true);
    }
    void deserialize(QDomNode&) override { }

private:
    QString m_user, m_password;
    qint64 m_shift;
};

QDateTime deviceUtc(const tds::GetSystemDateAndTimeResponse& response)
{
    const auto& system = response.SystemDateAndTime;
    if (!system)
        return QDateTime();
    const auto read = [](const QSharedPointer<tt::DateTime>& dt) {
        if (!dt || !dt->Date || !dt->Time || !dt->Date->Year || !dt->Date->Month || !dt->Date->Day
            || !dt->Time->Hour || !dt->Time->Minute || !dt->Time->Second)
            return QDateTime();
        return QDateTime(QDate(dt->Date->Year->value(), dt->Date->Month->value(), dt->Date->Day->value()),
            QTime(dt->Time->Hour->value(), dt->Time->Minute->value(), dt->Time->Second->value()), Qt::UTC);
    };
    // Devices without UTCDateTime state only local time; its zone is then rarely usable, so the
    // local time read as UTC is the best guess left.
    QDateTime utc = read(system->UTCDateTime);
    if (!utc.isValid())
        utc = read(system->LocalDateTime);
    return utc;
}

QString durationText(qint64 ms)
{
    const qint64 minutes = qAbs(ms) / 60000;
    return minutes >= 60 ? QStringLiteral("%1 h %2 min").arg(minutes / 60).arg(minutes % 60)
                         : QStringLiteral("%1 min %2 s").arg(minutes).arg(qAbs(ms) / 1000 % 60);
}

} // namespace

Camera::Camera(const QUrl& deviceUrl, const QString& user, const QString& password,
    const CameraOptions& options, QObject* parent)
    : QObject(parent)
    , d(new Private)
{
    d->q = this;
    d->deviceUrl = deviceUrl;
    if (d->deviceUrl.path().isEmpty())
        d->deviceUrl.setPath(QStringLiteral("/onvif/device_service"));
    d->user = user;
    d->password = password;
    d->options = options;
    d->manager = new NetworkAccessManager(this);
    d->deviceKey = deviceUrl.host().toLower() + QLatin1Char(':') + QString::number(deviceUrl.port(80));
    d->connection.services.device = d->deviceUrl;
}

Camera::~Camera() = default;

CameraConnection Camera::connection() const
{
    return d->connection;
}

qint64 Camera::clockOffsetMs() const
{
    return d->offsetMs;
}

QUrl Camera::placedUrl(const QUrl& stated) const
{
    return d->place(stated);
}

CameraResult Camera::lastResult() const
{
    return d->last;
}

NetworkAccessManager* Camera::networkManager() const
{
    return d->manager;
}

QFuture<QString> Camera::send(Service service, const QUrl& address,
    const std::shared_ptr<Serializable>& header, const std::shared_ptr<Serializable>& body,
    const QString& operation, int timeoutMs)
{
    return d->post(service, body, operation, timeoutMs, false, address, header);
}

QFuture<QString> Camera::Private::post(Service service, const std::shared_ptr<Serializable>& body,
    const QString& operation, int timeoutMs, bool anonymous, const QUrl& address,
    const std::shared_ptr<Serializable>& extraHeader)
{
    auto call = std::make_shared<Call>();
    call->service = service;
    call->address = address;
    call->extraHeader = extraHeader;
    call->body = body;
    call->operation = operation;
    call->timeoutMs = timeoutMs > 0 ? timeoutMs : options.controlTimeoutMs;
    call->anonymous = anonymous;
    const QFuture<QString> future = call->result.future();
    attempt(call);
    return future;
}

void Camera::Private::attempt(const std::shared_ptr<Call>& call)
{
    // A call carries credentials unless it is anonymous on a device that asks for none over HTTP.
    if ((!call->anonymous || http.isSet()) && !LoginFailures::instance().mayTry(deviceKey, options)) {
        fail(call, CameraError::LockoutRisk,
            QStringLiteral("%1 not sent: %2 refused %3 logins lately, and another could lock the account")
                .arg(call->operation, deviceKey)
                .arg(options.maxFailedLogins));
        return;
    }
    const QUrl url = call->address.isEmpty() ? serviceUrl(call->service) : place(call->address);
    if (url.isEmpty()) {
        fail(call, CameraError::NotSupported,
            QStringLiteral("the device offers no service for %1").arg(call->operation));
        return;
    }
    SerializableContainer header;
    SessionSecurity security(user, password, offsetMs);
    if (!call->anonymous && !user.isEmpty())
        header.append(security);
    if (call->extraHeader)
        header.append(*call->extraHeader);
    const OnvifRequest envelope(header, *call->body);
    QNetworkRequest request(url);
    Internal::setUserAgent(request);
    request.setHeader(
        QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml; charset=utf-8"));
    request.setTransferTimeout(call->timeoutMs);
    // Cameras serve few connections at once; one held open idles a worker another request needs.
    request.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("Close"));
    authorize(request, "POST");
    if (options.trace)
        ONVIF_LOG_AS(logger, OnvifLog::Info, "Camera", envelope.getMessage());
    QNetworkReply* reply = manager->post(request, envelope.getMessage().toUtf8());
    QObject::connect(reply, &QNetworkReply::finished, q, [this, call, reply] { finished(call, reply); });
}

void Camera::Private::finished(const std::shared_ptr<Call>& call, QNetworkReply* reply)
{
    reply->deleteLater();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status == 401) {
        switch (challenged(reply, &call->httpAuthRetries)) {
        case Challenge::Retry:
            attempt(call);
            return;
        case Challenge::BasicNotAllowed:
            fail(call, CameraError::CredentialsRefused,
                QStringLiteral(
                    "%1: the device asks for HTTP Basic authentication, which sends the password in "
                    "the clear; CameraOptions::allowBasicAuth allows it")
                    .arg(call->operation));
            return;
        case Challenge::Refused:
            fail(call, CameraError::CredentialsRefused,
                QStringLiteral("%1: the device refused the user name or password").arg(call->operation));
            return;
        }
    }
    const QNetworkReply::NetworkError error = reply->error();
    const QString body = QString::fromUtf8(reply->readAll());
    if (options.trace)
        ONVIF_LOG_AS(logger, OnvifLog::Info, "Camera", body);
    const OnvifResponse parsed(body);
    if (parsed.isFault()) {
        SoapFault fault = parsed.fault();
        fault.httpStatus = status;
        if (fault.isAuthFault() && !call->anonymous) {
            LoginFailures::instance().record(deviceKey);
            // A clock that moved since it was measured is the usual cause, and cheap to rule out.
            if (!call->clockRetried) {
                call->clockRetried = true;
                const QFuture<QDateTime> clock = measureClock();
                AsyncFuture::observe(clock).subscribe(
                    [self = QPointer<Camera>(q), this, call] {
                        if (self)
                            attempt(call);
                    },
                    [self = QPointer<Camera>(q), this, call, fault] {
                        if (!self)
                            return;
                        fail(call, CameraError::CredentialsRefused,
                            QStringLiteral("%1: refused: %2").arg(call->operation, fault.toString()), fault);
                    });
                return;
            }
            const bool clock = fault.reasons.join(QLatin1Char(' '))
                                   .contains(QRegularExpression(QStringLiteral("skew|clock|time"),
                                       QRegularExpression::CaseInsensitiveOption));
            fail(call, clock ? CameraError::ClockFarOff : CameraError::CredentialsRefused,
                clock
                    ? QStringLiteral("%1: refused for the time, though the device's clock offset (%2 ms) was "
                                     "applied: %3")
                          .arg(call->operation)
                          .arg(offsetMs)
                          .arg(fault.toString())
                    : QStringLiteral("%1: the device refused the user name or password (%2)")
                          .arg(call->operation, fault.toString()),
                fault);
            return;
        }
        fail(call, CameraError::DeviceFault,
            QStringLiteral("%1: device fault %2").arg(call->operation, fault.toString()), fault);
        return;
    }
    if (error != QNetworkReply::NoError) {
        if (status >= 400)
            fail(call, CameraError::NotOnvif,
                QStringLiteral("%1: HTTP %2 from %3, not a SOAP answer")
                    .arg(call->operation)
                    .arg(status)
                    .arg(reply->url().toString(QUrl::RemoveUserInfo)));
        else if (error == QNetworkReply::ProtocolFailure)
            fail(call, CameraError::Unreadable,
                QStringLiteral("%1: %2").arg(call->operation, reply->errorString()));
        else if (error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError)
            fail(call, CameraError::Unreachable,
                QStringLiteral("%1: no answer from %2 within %3 s")
                    .arg(call->operation, reply->url().toString(QUrl::RemoveUserInfo))
                    .arg(call->timeoutMs / 1000.0));
        else
            fail(call, CameraError::Unreachable,
                QStringLiteral("%1: cannot reach %2 (%3)")
                    .arg(call->operation, reply->url().toString(QUrl::RemoveUserInfo), reply->errorString()));
        return;
    }
    if (!parsed.isReadable()
        || parsed.document().documentElement().localName() != QLatin1String("Envelope")) {
        fail(call, parsed.isReadable() ? CameraError::NotOnvif : CameraError::Unreadable,
            QStringLiteral("%1: the camera sent an unreadable answer (%2)")
                .arg(call->operation,
                    parsed.isReadable() ? QStringLiteral("no SOAP envelope") : parsed.parseError()));
        return;
    }
    call->result.complete(body);
}

void Camera::Private::fail(
    const std::shared_ptr<Call>& call, CameraError error, const QString& message, const SoapFault& fault)
{
    last.error = error;
    last.message = message;
    last.fault = fault;
    ONVIF_LOG_AS(logger, OnvifLog::Error, "Camera", message);
    call->result.cancel();
}

Camera::Private::Challenge Camera::Private::challenged(QNetworkReply* reply, int* retries)
{
    const Internal::HttpChallenge challenge = Internal::parseChallenge(reply->rawHeader("WWW-Authenticate"));
    const bool answered = reply->request().hasRawHeader("Authorization");
    if (challenge.scheme == Internal::HttpChallenge::Basic && !options.allowBasicAuth)
        return Challenge::BasicNotAllowed;
    // A stale nonce is no refusal of the credentials: answer the new one (a few times at most).
    if (answered && !challenge.stale)
        LoginFailures::instance().record(deviceKey);
    if (challenge.scheme == Internal::HttpChallenge::None || (answered && !challenge.stale) || ++*retries > 3)
        return Challenge::Refused;
    http.setChallenge(challenge);
    return Challenge::Retry;
}

void Camera::Private::authorize(QNetworkRequest& request, const QByteArray& method)
{
    if (!http.isSet())
        return;
    const QByteArray uri
        = request.url().toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
    request.setRawHeader(
        "Authorization", http.authorization(method, uri.isEmpty() ? "/" : uri, user, password));
}

QFuture<QDateTime> Camera::Private::measureClock()
{
    AsyncFuture::Deferred<QDateTime> result;
    QElapsedTimer sent;
    sent.start();
    const qint64 sentAt = QDateTime::currentMSecsSinceEpoch();
    const QFuture<QString> reply = post(Service::Device, std::make_shared<tds::GetSystemDateAndTime>(),
        QStringLiteral("GetSystemDateAndTime"), 0, true);
    AsyncFuture::observe(reply).subscribe(
        [self = QPointer<Camera>(q), this, result, sent, sentAt](const QString& body) mutable {
            if (!self)
                return; // the deferred, dropped, cancels
            tds::GetSystemDateAndTimeResponse response;
            q->readInto(body, QStringLiteral("GetSystemDateAndTime"), response);
            const QDateTime device = deviceUtc(response);
            if (!device.isValid()) {
                last = CameraResult { CameraError::Unreadable,
                    QStringLiteral("GetSystemDateAndTime: the answer states no time"), SoapFault() };
                result.cancel();
                return;
            }
            // The device read its clock about half-way through the round trip; it states whole seconds.
            const qint64 midway = sentAt + sent.elapsed() / 2;
            offsetMs = device.toMSecsSinceEpoch() + 500 - midway;
            if (qAbs(offsetMs) < 1000)
                offsetMs = 0;
            connection.deviceTimeUtc = device;
            connection.clockOffsetMs = offsetMs;
            result.complete(device);
        },
        [result]() {
            auto r = result;
            r.cancel();
        });
    return result.future();
}

QFuture<QDateTime> Camera::deviceTime()
{
    return d->measureClock();
}

QUrl Camera::Private::serviceUrl(Service service) const
{
    const CameraServices& s = connection.services;
    switch (service) {
    case Service::Device:
        return deviceUrl;
    case Service::Media:
        // Devices that name no media service often serve it at the device address.
        return s.media.isEmpty() ? deviceUrl : place(s.media);
    case Service::Media2:
        return place(s.media2);
    case Service::Ptz:
        return place(s.ptz);
    case Service::Events:
        return place(s.events);
    case Service::Imaging:
        return place(s.imaging);
    }
    return QUrl();
}

bool Camera::Private::sameEndpoint(const QUrl& stated) const
{
    const bool web = stated.scheme().startsWith(QLatin1String("http"));
    return stated.host().compare(deviceUrl.host(), Qt::CaseInsensitive) == 0
        && (!web
            || stated.port(stated.scheme() == QLatin1String("https") ? 443 : 80)
                == deviceUrl.port(deviceUrl.scheme() == QLatin1String("https") ? 443 : 80));
}

QUrl Camera::Private::place(const QUrl& stated) const
{
    if (!rewriting || stated.isEmpty() || sameEndpoint(stated))
        return stated;
    QUrl placed = stated;
    placed.setHost(deviceUrl.host());
    // Web addresses take the port the caller reached the device on; a stream keeps its own
    // (RTSP is forwarded on a port of its own, if at all).
    if (stated.scheme().startsWith(QLatin1String("http"))) {
        placed.setScheme(deviceUrl.scheme());
        placed.setPort(deviceUrl.port());
    }
    return placed;
}

void Camera::Private::readServices(const tds::GetServicesResponse& response)
{
    CameraServices& s = connection.services;
    QUrl* targets[] = { &s.device, &s.media, &s.media2, &s.ptz, &s.events, &s.imaging };
    for (const tds::Service& service : response.Service) {
        const QString ns = text(service.Namespace).trimmed();
        for (size_t i = 0; i < sizeof(kServiceNamespaces) / sizeof(*kServiceNamespaces); ++i) {
            if (ns == QLatin1String(kServiceNamespaces[i]))
                *targets[i] = QUrl(text(service.XAddr).trimmed());
        }
    }
}

void Camera::Private::readCapabilities(const tds::GetCapabilitiesResponse& response)
{
    CameraServices& s = connection.services;
    const auto& c = response.Capabilities;
    if (!c)
        return;
    if (c->Device)
        s.device = QUrl(text(c->Device->XAddr).trimmed());
    if (c->Media)
        s.media = QUrl(text(c->Media->XAddr).trimmed());
    if (c->PTZ)
        s.ptz = QUrl(text(c->PTZ->XAddr).trimmed());
    if (c->Events)
        s.events = QUrl(text(c->Events->XAddr).trimmed());
    if (c->Imaging)
        s.imaging = QUrl(text(c->Imaging->XAddr).trimmed());
}

QFuture<CameraConnection> Camera::open()
{
    AsyncFuture::Deferred<CameraConnection> result;
    QPointer<Camera> self(this);
    const std::function<void(CameraError, const QString&)> finish
        = [this, result](CameraError error, const QString& message) mutable {
              d->connection.error = error;
              d->connection.message = message;
              d->connection.fault = error == CameraError::None ? SoapFault() : d->last.fault;
              result.complete(d->connection);
          };
    const std::function<void(const QString&)> failWithLast = [this, finish](const QString& context) mutable {
        CameraError error = d->last.error;
        QString message = d->last.message;
        if (error == CameraError::None) {
            error = CameraError::Unreachable;
            message = context;
        }
        finish(error, message);
    };

    // Step 3, then the address policy.
    const std::function<void()> identify = [self, this, finish, failWithLast]() mutable {
        AsyncFuture::observe(deviceInformation())
            .subscribe(
                [self, this, finish](const DeviceInfo& device) mutable {
                    if (!self)
                        return;
                    d->connection.device = device;
                    QString message;
                    if (qAbs(d->offsetMs) >= kFarOffMs)
                        message
                            = QStringLiteral("the device's clock is %1 %2; corrected in every request")
                                  .arg(durationText(d->offsetMs),
                                      d->offsetMs > 0 ? QStringLiteral("ahead") : QStringLiteral("behind"));
                    const CameraServices& s = d->connection.services;
                    QUrl stated;
                    for (const QUrl& url : { s.media, s.ptz, s.events, s.imaging, s.media2 }) {
                        if (!url.isEmpty() && !d->sameEndpoint(url)) {
                            stated = url;
                            break;
                        }
                    }
                    const std::function<void()> done = [this, finish, message]() mutable {
                        d->connection.addressesRewritten = d->rewriting;
                        finish(CameraError::None, message);
                    };
                    if (stated.isEmpty()
                        || d->options.addressPolicy != CameraOptions::AddressPolicy::Automatic) {
                        d->rewriting = d->options.addressPolicy == CameraOptions::AddressPolicy::Rewrite;
                        done();
                        return;
                    }
                    // Automatic: the stated address is used when it takes a connection.
                    auto* probe = new QTcpSocket(this);
                    auto* timer = new QTimer(probe);
                    timer->setSingleShot(true);
                    const std::function<void(bool)> decide = [this, probe, done](bool reachable) mutable {
                        if (probe->property("decided").toBool())
                            return;
                        probe->setProperty("decided", true);
                        d->rewriting = !reachable;
                        probe->abort();
                        probe->deleteLater();
                        done();
                    };
                    connect(probe, &QTcpSocket::connected, this, [decide]() mutable { decide(true); });
                    connect(
                        probe, &QAbstractSocket::errorOccurred, this, [decide]() mutable { decide(false); });
                    connect(timer, &QTimer::timeout, this, [decide]() mutable { decide(false); });
                    timer->start(qMin(3000, d->options.controlTimeoutMs));
                    probe->connectToHost(stated.host(),
                        quint16(stated.port(stated.scheme() == QLatin1String("https") ? 443 : 80)));
                },
                [self, failWithLast]() {
                    if (self)
                        failWithLast(QStringLiteral("GetDeviceInformation failed"));
                });
    };

    // Step 2: service addresses, from GetServices or else GetCapabilities.
    const std::function<void()> discoverServices = [self, this, identify, failWithLast]() mutable {
        tds::GetServices ask;
        ask.IncludeCapability.reset(new universalSimpleType<bool>(false));
        AsyncFuture::observe(call<tds::GetServices, tds::GetServicesResponse>(
                                 Service::Device, ask, QStringLiteral("GetServices")))
            .subscribe(
                [self, this, identify](const tds::GetServicesResponse& response) mutable {
                    if (!self)
                        return;
                    d->readServices(response);
                    identify();
                },
                [self, this, identify, failWithLast]() {
                    if (!self)
                        return;
                    const CameraError why = d->last.error;
                    if (why == CameraError::CredentialsRefused || why == CameraError::LockoutRisk
                        || why == CameraError::Unreachable || why == CameraError::ClockFarOff) {
                        failWithLast(QStringLiteral("GetServices failed"));
                        return;
                    }
                    // Older firmware knows only GetCapabilities.
                    tds::GetCapabilities ask;
                    ask.Category.reset(new QVector<tt::CapabilityCategory> {
                        tt::CapabilityCategory(tt::CapabilityCategory::All) });
                    AsyncFuture::observe(call<tds::GetCapabilities, tds::GetCapabilitiesResponse>(
                                             Service::Device, ask, QStringLiteral("GetCapabilities")))
                        .subscribe(
                            [self, this, identify](const tds::GetCapabilitiesResponse& response) mutable {
                                if (!self)
                                    return;
                                d->readCapabilities(response);
                                d->connection.servicesFromCapabilities = true;
                                identify();
                            },
                            [self, failWithLast]() {
                                if (self)
                                    failWithLast(QStringLiteral("GetCapabilities failed"));
                            });
                });
    };

    // Step 1: the clock, asked without credentials. A device that wants them for it, or states
    // no time, is used with our own clock.
    d->last = CameraResult();
    AsyncFuture::observe(d->measureClock())
        .subscribe(
            [self, discoverServices]() mutable {
                if (self)
                    discoverServices();
            },
            [self, this, discoverServices, failWithLast]() {
                if (!self)
                    return;
                if (d->last.error == CameraError::Unreachable || d->last.error == CameraError::NotOnvif
                    || d->last.error == CameraError::Unreadable) {
                    if (d->last.error == CameraError::Unreadable)
                        d->last.error = CameraError::NotOnvif;
                    failWithLast(QStringLiteral("GetSystemDateAndTime failed"));
                    return;
                }
                d->last = CameraResult();
                discoverServices();
            });
    return result.future();
}

QFuture<DeviceInfo> Camera::deviceInformation()
{
    const QUrl url = d->deviceUrl;
    return AsyncFuture::observe(
        call<tds::GetDeviceInformation, tds::GetDeviceInformationResponse>(
            Service::Device, tds::GetDeviceInformation(), QStringLiteral("GetDeviceInformation")))
        .subscribe([url](const tds::GetDeviceInformationResponse& r) {
            DeviceInfo info;
            info.ip = url.host();
            info.port = QString::number(url.port(80));
            info.path = url.path();
            info.manufacturer = text(r.Manufacturer);
            info.model = text(r.Model);
            info.firmwareVersion = text(r.FirmwareVersion);
            info.serialNumber = text(r.SerialNumber);
            info.hardwareId = text(r.HardwareId);
            return info;
        })
        .future();
}

void Camera::Private::get(const QUrl& url, AsyncFuture::Deferred<Snapshot> result, int httpAuthRetries)
{
    if (!LoginFailures::instance().mayTry(deviceKey, options)) {
        last = CameraResult { CameraError::LockoutRisk,
            QStringLiteral("snapshot not fetched: %1 refused %2 logins lately")
                .arg(deviceKey)
                .arg(options.maxFailedLogins),
            SoapFault() };
        result.cancel();
        return;
    }
    QNetworkRequest request(url);
    Internal::setUserAgent(request);
    request.setTransferTimeout(options.controlTimeoutMs);
    request.setAttribute(Limits::BodyLimitAttribute, manager->limits().maxImageBytes);
    request.setRawHeader(QByteArrayLiteral("Connection"), QByteArrayLiteral("Close"));
    authorize(request, "GET");
    QNetworkReply* reply = manager->get(request);
    QObject::connect(
        reply, &QNetworkReply::finished, q, [this, reply, url, result, httpAuthRetries]() mutable {
            reply->deleteLater();
            const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            if (status == 401) {
                int retries = httpAuthRetries;
                const Challenge answer = challenged(reply, &retries);
                if (answer == Challenge::Retry) {
                    get(url, result, retries);
                    return;
                }
                last = CameraResult { CameraError::CredentialsRefused,
                    answer == Challenge::BasicNotAllowed
                        ? QStringLiteral("snapshot: the device asks for HTTP Basic authentication, which "
                                         "CameraOptions::allowBasicAuth does not allow")
                        : QStringLiteral("snapshot: the device refused the user name or password"),
                    SoapFault() };
                result.cancel();
                return;
            }
            if (reply->error() != QNetworkReply::NoError) {
                last = CameraResult { status > 0 || reply->error() == QNetworkReply::ProtocolFailure
                        ? CameraError::Unreadable
                        : CameraError::Unreachable,
                    QStringLiteral("snapshot: %1 (%2)")
                        .arg(url.toString(QUrl::RemoveUserInfo), reply->errorString()),
                    SoapFault() };
                result.cancel();
                return;
            }
            result.complete(
                Snapshot { reply->readAll(), reply->header(QNetworkRequest::ContentTypeHeader).toString() });
        });
}

QFuture<void> Camera::ptzMove(const QString& profileToken, double pan, double tilt, double zoom)
{
    tptz::ContinuousMove move;
    move.ProfileToken->setValue(profileToken);
    move.Velocity->PanTilt.reset(new tt::Vector2D);
    move.Velocity->PanTilt->x.reset(new universalSimpleType<float>(float(pan)));
    move.Velocity->PanTilt->y.reset(new universalSimpleType<float>(float(tilt)));
    if (zoom != 0) {
        move.Velocity->Zoom.reset(new tt::Vector1D);
        move.Velocity->Zoom->x.reset(new universalSimpleType<float>(float(zoom)));
    }
    return asVoid(call<tptz::ContinuousMove, tptz::ContinuousMoveResponse>(
        Service::Ptz, move, QStringLiteral("ContinuousMove")));
}

QFuture<void> Camera::ptzStop(const QString& profileToken)
{
    tptz::Stop stop;
    stop.ProfileToken->setValue(profileToken);
    stop.PanTilt.reset(new universalSimpleType<bool>(true));
    stop.Zoom.reset(new universalSimpleType<bool>(true));
    return asVoid(call<tptz::Stop, tptz::StopResponse>(Service::Ptz, stop, QStringLiteral("Stop")));
}

QFuture<void> Camera::ptzHome(const QString& profileToken)
{
    tptz::GotoHomePosition home;
    home.ProfileToken->setValue(profileToken);
    return asVoid(call<tptz::GotoHomePosition, tptz::GotoHomePositionResponse>(
        Service::Ptz, home, QStringLiteral("GotoHomePosition")));
}

QFuture<void> Camera::ptzGotoPreset(const QString& profileToken, const QString& presetToken)
{
    tptz::GotoPreset go;
    go.ProfileToken->setValue(profileToken);
    go.PresetToken->setValue(presetToken);
    return asVoid(
        call<tptz::GotoPreset, tptz::GotoPresetResponse>(Service::Ptz, go, QStringLiteral("GotoPreset")));
}

QFuture<QVector<PtzSys::Preset>> Camera::ptzPresets(const QString& profileToken)
{
    tptz::GetPresets ask;
    ask.ProfileToken->setValue(profileToken);
    return AsyncFuture::observe(
        call<tptz::GetPresets, tptz::GetPresetsResponse>(Service::Ptz, ask, QStringLiteral("GetPresets")))
        .subscribe([profileToken](const tptz::GetPresetsResponse& r) {
            QVector<PtzSys::Preset> presets;
            for (const tt::PTZPreset& p : r.Preset ? *r.Preset : QVector<tt::PTZPreset>()) {
                PtzSys::Preset preset;
                preset.profileToken = profileToken;
                preset.token = text(p.token);
                preset.name = text(p.Name);
                if (p.PTZPosition && p.PTZPosition->PanTilt) {
                    preset.pan = p.PTZPosition->PanTilt->x ? p.PTZPosition->PanTilt->x->value() : 0;
                    preset.tilt = p.PTZPosition->PanTilt->y ? p.PTZPosition->PanTilt->y->value() : 0;
                }
                if (p.PTZPosition && p.PTZPosition->Zoom && p.PTZPosition->Zoom->x)
                    preset.zoom = p.PTZPosition->Zoom->x->value();
                presets.append(preset);
            }
            return presets;
        })
        .future();
}

QFuture<PtzState> Camera::ptzStatus(const QString& profileToken)
{
    tptz::GetStatus ask;
    ask.ProfileToken.reset(new universalSimpleType<QString>(profileToken));
    return AsyncFuture::observe(
        call<tptz::GetStatus, tptz::GetStatusResponse>(Service::Ptz, ask, QStringLiteral("GetStatus")))
        .subscribe([](const tptz::GetStatusResponse& r) {
            PtzState state;
            if (const auto& s = r.PTZStatus) {
                if (s->Position && s->Position->PanTilt) {
                    state.pan = s->Position->PanTilt->x ? s->Position->PanTilt->x->value() : 0;
                    state.tilt = s->Position->PanTilt->y ? s->Position->PanTilt->y->value() : 0;
                }
                if (s->Position && s->Position->Zoom && s->Position->Zoom->x)
                    state.zoom = s->Position->Zoom->x->value();
                if (s->MoveStatus && s->MoveStatus->PanTilt)
                    state.panTiltMove = s->MoveStatus->PanTilt->value();
                if (s->MoveStatus && s->MoveStatus->Zoom)
                    state.zoomMove = s->MoveStatus->Zoom->value();
                state.error = text(s->Error);
            }
            return state;
        })
        .future();
}

void Camera::sendInto(Service service, const QUrl& address, const std::shared_ptr<Serializable>& header,
    const std::shared_ptr<Serializable>& body, const QString& operation, int timeoutMs,
    Serializable& response, const std::function<void(bool)>& done)
{
    Serializable* into = &response;
    AsyncFuture::observe(send(service, address, header, body, operation, timeoutMs))
        .subscribe(
            [self = QPointer<Camera>(this), into, operation, done](const QString& reply) {
                // A camera deleted meanwhile reads nothing.
                done(self && self->readInto(reply, operation, *into));
            },
            [done] { done(false); });
}

bool Camera::readInto(const QString& text, const QString& operation, Serializable& response)
{
    const OnvifResponse parsed(text);
    QDomNode node = parsed.getNodeByTag(operation + QStringLiteral("Response"));
    if (node.isNull()) {
        d->last = CameraResult { CameraError::Unreadable,
            QStringLiteral("%1: the camera sent an unreadable answer (%2)")
                .arg(operation,
                    parsed.isReadable() ? QStringLiteral("no %1Response element").arg(operation)
                                        : parsed.parseError()),
            SoapFault() };
        return false;
    }
    response.deserialize(node);
    return true;
}

} // namespace Onvif
