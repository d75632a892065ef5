#ifndef ONVIFTYPES_SESSION_CAMERA_H
#define ONVIFTYPES_SESSION_CAMERA_H

#include <onvifTypes/imaging/imaging.h>
#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/ptz/onvifPtzReq.h>
#include <onvifTypes/serializable.h>
#include <onvifTypes/soapFault.h>

#include <QDateTime>
#include <QFuture>
#include <QFutureInterface>
#include <QObject>
#include <QPointer>
#include <QSharedPointer>
#include <QUrl>

#include <asyncfuture.h>

#include <functional>
#include <memory>

namespace Onvif {

class NetworkAccessManager;

// Why a camera call failed, for a program to act on (a message for a person comes with it).
enum class CameraError {
    None,
    Unreachable, // no connection, or no answer in time
    NotOnvif, // it answered, but not as an ONVIF device
    CredentialsRefused,
    ClockFarOff, // refused for its clock, even with the measured offset applied
    LockoutRisk, // not sent: the device refused too many logins lately
    DeviceFault, // any other SOAP fault; CameraResult::fault says which
    Unreadable, // not XML, past a limit, or without the expected element
    NotSupported, // the device offers no such service
    OutOfRange, // not sent: a value outside what the device says it accepts
};

// How a stream is to be carried (both unicast).
enum class StreamTransport {
    Rtsp, // RTSP, with RTP as the player negotiates it
    RtspOverHttp, // RTSP tunnelled through HTTP, for networks that pass only the web
};

struct ONVIFTYPES_EXPORT CameraOptions
{
    // Stated service and media addresses that name another host or port than the one the
    // session was given (a camera behind NAT names its LAN address): Off keeps them, Rewrite
    // puts the session's host (and, for HTTP, port) in, Automatic does so only when the stated
    // address does not take a connection.
    enum class AddressPolicy { Off, Rewrite, Automatic };
    AddressPolicy addressPolicy = AddressPolicy::Automatic;
    // HTTP Basic sends the password in the clear; only when allowed.
    bool allowBasicAuth = false;
    // Failed logins to one device (all sessions of this process) within the window, past which
    // calls fail at once instead of risking the camera's lock-out.
    int maxFailedLogins = 3;
    int failedLoginWindowMs = 10 * 60 * 1000;
    int controlTimeoutMs = 10000; // every call but long polls
    int longPollTimeoutMs = 70000;
    // Each request and answer as a log record (severity 2, "Camera"); failures are logged at 4
    // whatever this says.
    bool trace = false;
    // The service that profiles, stream and snapshot URIs come from: Media2 where the device
    // offers it (open() finds out; H.265 profiles often exist only there), else Media (ver10);
    // or either one forced.
    enum class MediaService { Automatic, Media1, Media2 };
    MediaService mediaService = MediaService::Automatic;
};

struct ONVIFTYPES_EXPORT CameraServices
{
    QUrl device, media, media2, ptz, events, imaging;
};

// One media profile as the device lists it.
struct ONVIFTYPES_EXPORT CameraProfile
{
    QString token;
    QString name;
    QString videoEncoderToken;
    QString videoEncoding; // "JPEG", "MPEG4", "H264", "H265"...; empty for a profile without video
    int width = 0;
    int height = 0;
    int frameRate = 0;
    int bitrateKbps = 0;
    QString audioEncoding; // empty for a profile without audio
    int audioBitrateKbps = 0;
    int audioSampleRateKHz = 0;
    bool ptz = false;
    QString streamUri; // RTSP unicast; empty when the device gives none
    QString snapshotUri;
    // Added with Media2 support; Media (ver10) fills them where it tells them.
    QString videoProfile; // the encoder's profile: "Main", "High", "Main10"...
    int govLength = 0;
    QString videoSourceToken; // what the imaging operations take
    bool fromMedia2 = false; // read from the Media2 service
};

struct ONVIFTYPES_EXPORT Snapshot
{
    QByteArray bytes; // exactly as the camera sent them
    QString contentType;
};

struct ONVIFTYPES_EXPORT PtzState
{
    double pan = 0, tilt = 0, zoom = 0;
    QString panTiltMove, zoomMove; // "IDLE", "MOVING", "UNKNOWN"; empty when not told
    QString error;
};

// The outcome of connecting, and of every failed call (Camera::lastResult()).
struct ONVIFTYPES_EXPORT CameraResult
{
    CameraError error = CameraError::None;
    QString message;
    SoapFault fault;
    bool ok() const { return error == CameraError::None; }
};

struct ONVIFTYPES_EXPORT CameraConnection : CameraResult
{
    DeviceInfo device;
    CameraServices services;
    QDateTime deviceTimeUtc; // as measured; invalid when the device did not tell it
    qint64 clockOffsetMs = 0; // device clock minus ours, applied to every security header
    bool servicesFromCapabilities = false; // GetServices refused; GetCapabilities answered
    bool addressesRewritten = false;
};

// One camera, as real cameras behave: the device's clock offset is measured and applied to
// every WS-Security header; HTTP Digest is answered where the device asks for it (SOAP and
// snapshots alike); a NotAuthorized fault re-measures the clock and retries once; failed logins
// are bounded per device; stated addresses follow CameraOptions::addressPolicy. Calls may
// overlap; each future finishes once, with a value or cancelled, and lastResult() then tells
// why. Everything runs on the thread the object lives in.
class ONVIFTYPES_EXPORT Camera : public QObject
{
    Q_OBJECT

public:
    Camera(const QUrl& deviceUrl, const QString& user, const QString& password,
        const CameraOptions& options = CameraOptions(), QObject* parent = nullptr);
    ~Camera() override;

    // Clock, service addresses (GetServices, or GetCapabilities when refused), then the device
    // information. Always finishes with a value; its error classifies a failure.
    QFuture<CameraConnection> open();
    CameraConnection connection() const;
    qint64 clockOffsetMs() const;
    // Measures the device's clock again; the offset applies from then on.
    QFuture<QDateTime> deviceTime();

    QFuture<DeviceInfo> deviceInformation();
    // Every profile in the device's order, with its stream and snapshot URIs, from the service
    // CameraOptions::mediaService names (Automatic falls back to Media when Media2 fails).
    QFuture<QVector<CameraProfile>> profiles();
    QFuture<QVector<CameraProfile>> profiles(CameraOptions::MediaService media);
    QFuture<QString> streamUri(
        const QString& profileToken, StreamTransport transport = StreamTransport::Rtsp);
    QFuture<QString> snapshotUri(const QString& profileToken);
    // The picture of a profile, fetched with the session's authentication.
    QFuture<Snapshot> snapshot(const QString& profileToken);

    // Imaging of a video source (CameraProfile::videoSourceToken).
    QFuture<ImagingSettings> imagingSettings(const QString& videoSourceToken);
    QFuture<ImagingOptions> imagingOptions(const QString& videoSourceToken);
    // Changes the values change sets (the others stay as the device has them), checked against
    // the device's options first: numbers outside a range are clamped into it, or with Refuse the
    // call fails with CameraError::OutOfRange; a mode the device does not list always fails so.
    // The result holds the settings as sent.
    enum class OutOfRangePolicy { Clamp, Refuse };
    QFuture<ImagingSettings> setImagingSettings(const QString& videoSourceToken,
        const ImagingSettings& change, OutOfRangePolicy policy = OutOfRangePolicy::Clamp);
    // Focus: continuous at a speed (-1..1, until focusStop), to a position, or by a distance.
    QFuture<void> focusContinuous(const QString& videoSourceToken, double speed);
    QFuture<void> focusAbsolute(const QString& videoSourceToken, double position);
    QFuture<void> focusRelative(const QString& videoSourceToken, double distance);
    QFuture<void> focusStop(const QString& videoSourceToken);
    QFuture<FocusState> focusStatus(const QString& videoSourceToken);

    QFuture<void> ptzMove(const QString& profileToken, double pan, double tilt, double zoom);
    QFuture<void> ptzStop(const QString& profileToken);
    QFuture<void> ptzHome(const QString& profileToken);
    QFuture<void> ptzGotoPreset(const QString& profileToken, const QString& presetToken);
    QFuture<QVector<PtzSys::Preset>> ptzPresets(const QString& profileToken);
    QFuture<PtzState> ptzStatus(const QString& profileToken);

    // Any operation of the schema classes through the session's policies: the body element
    // named operation + "Response" is read into Resp.
    enum class Service { Device, Media, Media2, Ptz, Events, Imaging };
    template <typename Req, typename Resp>
    QFuture<Resp> call(Service service, const Req& request, const QString& operation, int timeoutMs = 0)
    {
        return call<Req, Resp>(service, QUrl(), nullptr, request, operation, timeoutMs);
    }
    // To an address the device named (a subscription's, placed by the address policy), with a
    // header block beside the security one (WS-Addressing, say).
    template <typename Req, typename Resp>
    QFuture<Resp> call(const QUrl& address, const std::shared_ptr<Serializable>& header, const Req& request,
        const QString& operation, int timeoutMs = 0)
    {
        return call<Req, Resp>(Service::Device, address, header, request, operation, timeoutMs);
    }

    // The answer's text (a SOAP envelope that is no fault), for readers of their own.
    template <typename Req>
    QFuture<QString> callText(const QUrl& address, const std::shared_ptr<Serializable>& header,
        const Req& request, const QString& operation, int timeoutMs = 0)
    {
        return send(Service::Device, address, header, std::make_shared<Req>(request), operation, timeoutMs);
    }

    // An address the device stated (a subscription's, say), as the address policy places it.
    QUrl placedUrl(const QUrl& stated) const;

    // The last failure of any call, classified.
    CameraResult lastResult() const;
    // The manager the session sends through (TLS settings, exchange reports).
    NetworkAccessManager* networkManager() const;

    struct Private;

private:
    // The reply text of one operation, or a cancelled future (lastResult() says why).
    template <typename Req, typename Resp>
    QFuture<Resp> call(Service service, const QUrl& address, const std::shared_ptr<Serializable>& header,
        const Req& request, const QString& operation, int timeoutMs);
    QFuture<QString> send(Service service, const QUrl& address, const std::shared_ptr<Serializable>& header,
        const std::shared_ptr<Serializable>& body, const QString& operation, int timeoutMs);
    // Fills response from the element operation + "Response"; false (and lastResult()) when the
    // answer has none.
    bool readInto(const QString& text, const QString& operation, Serializable& response);
    // Sends, then reads the answer into response (which lives as long as done) and calls done
    // once, true when it was read.
    void sendInto(Service service, const QUrl& address, const std::shared_ptr<Serializable>& header,
        const std::shared_ptr<Serializable>& body, const QString& operation, int timeoutMs,
        Serializable& response, const std::function<void(bool)>& done);

    std::unique_ptr<Private> d;
};

namespace Internal {

// The promise of one typed call: cancelled if it is dropped unfinished, so that a future can
// never be left waiting.
template <typename Resp> struct CallCompletion
{
    QFutureInterface<Resp> promise;
    Resp response;
    ~CallCompletion()
    {
        if (!promise.isFinished()) {
            promise.reportCanceled();
            promise.reportFinished();
        }
    }
};

} // namespace Internal

template <typename Req, typename Resp>
QFuture<Resp> Camera::call(Service service, const QUrl& address, const std::shared_ptr<Serializable>& header,
    const Req& request, const QString& operation, int timeoutMs)
{
    // The typed part stays this small; sending, policies and reading are compiled once.
    auto completion = std::make_shared<Internal::CallCompletion<Resp>>();
    completion->promise.reportStarted();
    sendInto(service, address, header, std::make_shared<Req>(request), operation, timeoutMs,
        completion->response, [completion](bool ok) {
            if (ok)
                completion->promise.reportResult(completion->response);
            else
                completion->promise.reportCanceled();
            completion->promise.reportFinished();
        });
    return completion->promise.future();
}

} // namespace Onvif

Q_DECLARE_METATYPE(Onvif::CameraConnection)

#endif // ONVIFTYPES_SESSION_CAMERA_H
