#ifndef CAMERASIM_CAMERAIMPL_H
#define CAMERASIM_CAMERAIMPL_H

// Private to the simulator: the state behind Camera, shared by camera.cpp and the
// service handlers.

#include "camera.h"
#include "elasticPool.h"
#include "wsSecurity.h"

#include <QDomDocument>
#include <QHash>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace CameraSim {

// What an operation handler produces before any injected fault spoils it.
struct SoapReply
{
    int status = 200;
    QString body; // content of the Body element
    QString header;
};

// The parsed request handed to operation handlers.
struct SoapRequest
{
    QString path;
    QString operation;
    QString operationNs;
    QDomElement header;
    QDomElement body; // the operation element
};

struct PtzNodeState
{
    PtzPosition position;
    PtzPosition home;
    double velPan = 0, velTilt = 0, velZoom = 0;
    qint64 panTiltUntilMs = 0, zoomUntilMs = 0;
    qint64 updatedMs = 0;
};

struct Subscription
{
    int id = 0;
    bool pullPoint = true;
    QString consumer;
    QDateTime terminationUtc;
    QDateTime dropUtc; // subscription-early-expiry: when the camera really forgets it
    qint64 nextEvent = 1; // index of the first event this subscriber has not seen
};

struct Camera::Impl
{
    explicit Impl(const CameraConfig& config);

    // camera.cpp
    void handle(const httplib::Request& req, httplib::Response& res);
    void setBody(const httplib::Request& req, httplib::Response& res, const QByteArray& body,
        const char* contentType) const;
    void handleSnapshot(const httplib::Request& req, httplib::Response& res);
    void handleControl(const httplib::Request& req, httplib::Response& res);
    bool takeFault(const QString& operation, FaultSpec& spec);
    void record(RequestRecord&& record);
    bool sleepInterruptibly(int ms);
    QDateTime cameraNow() const;
    // The camera's own idea of its address, which is not the client's behind NAT.
    QString advertisedHost() const { return config.hasQuirk("nat") ? config.natHost : config.host; }
    QString base() const
    {
        return QStringLiteral("http://%1:%2")
            .arg(advertisedHost())
            .arg(config.hasQuirk("nat") ? config.natPort : boundPort);
    }
    // HTTP Digest (RFC 2617, MD5, qop=auth); on refusal, res carries the 401 challenge.
    bool checkHttpDigest(const httplib::Request& req, httplib::Response& res, QString* why);
    int noteLoginFailure(); // attempts left before lock-out
    QString lockoutRefusal(); // empty unless the account is locked
    QByteArray wireQuirks(QByteArray text, int* status) const;
    void rebootLocked();
    void sweepSubscriptionsLocked(const QDateTime& now);
    QString faultReply(const QString& code, const QString& subcode, const QString& reason) const;

    // cameraServices.cpp
    SoapReply dispatch(const SoapRequest& request, bool emptyUri);
    SoapReply fault(int status, const QString& code, const QString& subcode, const QString& reason) const;
    SoapReply getDeviceInformation();
    SoapReply deviceSettings(const QString& op); // the read-only device queries clients make on connecting
    SoapReply getCapabilities(const SoapRequest& request);
    SoapReply getServices(const SoapRequest& request);
    SoapReply getSystemDateAndTime();
    SoapReply getProfiles(const SoapRequest& request, bool single);
    SoapReply getMediaUri(const SoapRequest& request, bool snapshot, bool emptyUri);
    SoapReply ptzOperation(const SoapRequest& request);
    SoapReply eventOperation(const SoapRequest& request);
    SoapReply imagingOperation(const SoapRequest& request); // imagingService.cpp
    // Media1's view unless allProfiles: media2Only profiles are neither listed nor counted.
    QString profileXml(const ProfileConfig& profile, bool allProfiles = false) const;
    // Configurations of one kind (tt:tag) as element, from the profiles; one token or (null) all.
    QString configurationsXml(const QString& tag, const QString& element,
        const QString& wantedToken = QString(), bool allProfiles = false) const;
    int useCount(QString ProfileConfig::*member, const QString& token, bool allProfiles) const;
    QString videoSourceConfigurationXml(const QString& element, bool allProfiles) const;
    QString audioSourceConfigurationXml(
        const QString& element, const QString& audioEncoder, bool allProfiles) const;
    QString ptzConfigurationXml(const QString& element, const PtzNodeConfig& node, bool allProfiles) const;
    QString streamUri(const ProfileConfig& profile) const; // rtsp://, as GetStreamUri gives it
    QString snapshotUri(const ProfileConfig& profile) const;
    bool media1Served() const { return config.mediaCapability && !config.hasQuirk("media2-only"); }
    SoapReply media2Operation(const SoapRequest& request, bool emptyUri); // media2Service.cpp
    QString media2CapabilitiesXml() const; // tr2:Capabilities, declaring tr2 itself
    QString mediaConfigurations(const QString& op) const; // null unless op lists configurations
    QString nodeXml(const PtzNodeConfig& node) const;
    void settle(PtzNodeState& state, qint64 nowMs) const;
    QString eventMessagesXml(Subscription& sub, int limit, qint64 nowMs, int* count) const;
    Subscription* findSubscription(const SoapRequest& request);
    QByteArray snapshotJpeg(const QString& profileToken);

    const CameraConfig config;
    DigestVerifier verifier;
    std::unique_ptr<httplib::Server> server;
    std::atomic<ElasticPool*> pool { nullptr }; // owned by the server once handed over
    std::thread listener;
    std::thread notifier; // sends Notify to push subscribers; started by the first one (guarded by mutex)
    void notifyLoop();
    std::atomic<bool> running { false };
    std::atomic<int> requestTotal { 0 };
    quint16 boundPort = 0;
    qint64 startMs = 0;

    // Wakes delayed replies and long pulls when the camera stops.
    std::mutex stopMutex;
    std::condition_variable stopCv;
    bool stopping = false;

    mutable std::mutex mutex; // guards everything below
    QMap<QString, FaultSpec> faults;
    std::deque<RequestRecord> log;
    QHash<QString, PtzNodeState> ptz;
    QHash<QString, QVector<PresetState>> presetsByProfile;
    int nextPresetId = 1;
    QHash<int, Subscription> subscriptions;
    int nextSubscriptionId = 1;
    QHash<QString, QByteArray> snapshots;
    CameraStats stats;
    QHash<QString, QString> imaging; // settings changed, by path ("Brightness", "Exposure/Gain")
    double focusPosition = 0;
    double focusSpeed = 0; // a continuous focus move while not 0
    qint64 focusSinceMs = 0; // when focusPosition was last brought up to date
    int failedInRow = 0; // lockout
    qint64 lockedUntilMs = 0;
    qint64 lastRebootMs = 0;
    QByteArray digestSecret;
};

} // namespace CameraSim

#endif // CAMERASIM_CAMERAIMPL_H
