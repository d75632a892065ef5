#ifndef CAMERASIM_CAMERACONFIG_H
#define CAMERASIM_CAMERACONFIG_H

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

namespace CameraSim {

// How a request for one operation is spoilt. Delay may accompany any mode.
enum class FaultMode {
    None, // only the delay, if any
    SoapFault, // a SOAP 1.2 fault with the configured code, subcode, reason and HTTP status
    Http500, // HTTP 500 with an empty body
    Drop, // the connection is closed without a single byte of reply
    Truncate, // the real reply, announced in full but cut off halfway
    Malformed, // the real reply made not well-formed XML
    EmptyUri, // GetStreamUri / GetSnapshotUri answer with an empty tt:Uri
    Huge, // the real reply padded to hugeBytes
};

QString faultModeName(FaultMode mode);
FaultMode faultModeFromName(const QString& name, bool* ok = nullptr);

struct FaultSpec
{
    FaultMode mode = FaultMode::None;
    int delayMs = 0;
    qint64 hugeBytes = 8 * 1024 * 1024;
    int httpStatus = 500;
    QString code = QStringLiteral("Receiver");
    QString subcode = QStringLiteral("ter:Action");
    QString reason = QStringLiteral("Simulated fault");
    int count = -1; // requests it applies to; -1 means until cleared
    int skip = 0; // requests answered normally before it applies (e.g. 2: the third is spoilt)

    static FaultSpec fromJson(const QJsonObject& json, QString* error);
    QJsonObject toJson() const;
};

struct VideoEncoder
{
    QString token;
    QString name;
    QString encoding = QStringLiteral("H264"); // H264, H265 (Media2 only) or JPEG
    int width = 1920;
    int height = 1080;
    float quality = 5;
    int frameRate = 25;
    int bitrate = 4096;
    int govLength = 50;
    QString h264Profile = QStringLiteral("Main"); // Media1's H264Profile
    QString profile; // Media2's Profile attribute; empty: h264Profile for H264, Main for H265
    bool rateControl = true;
};

struct AudioEncoder
{
    QString token;
    QString name;
    QString encoding = QStringLiteral("G711");
    int bitrate = 64;
    int sampleRate = 8;
};

struct PtzNodeConfig
{
    QString token;
    QString name;
    int maxPresets = 16;
    bool homeSupported = true;
    bool fixedHomePosition = false;
};

struct ProfileConfig
{
    QString token;
    QString name;
    QString videoEncoder; // token of a VideoEncoder; empty: the profile has none
    QString audioEncoder; // token of an AudioEncoder; empty: none
    QString ptzNode; // token of a PtzNodeConfig; empty: no PTZ configuration
    QString streamUri; // empty: rtsp://<host>:554/<token>
    bool media2Only = false; // absent from Media1 answers, as profiles Media1 cannot express are
};

struct CameraConfig
{
    QString host = QStringLiteral("127.0.0.1"); // must lie in 127.0.0.0/8
    quint16 port = 0; // 0: an ephemeral port

    QString manufacturer = QStringLiteral("SimCam");
    QString model = QStringLiteral("SC-1000");
    QString firmwareVersion = QStringLiteral("1.0.0");
    QString serialNumber = QStringLiteral("SIM0000001");
    QString hardwareId = QStringLiteral("SIMHW-1");
    QString hardwareScope = QStringLiteral("SC-1000");
    QString endpointUuid; // empty: derived from the serial number

    QString user = QStringLiteral("admin");
    QString password = QStringLiteral("admin");
    bool requireAuth = true;
    bool allowPasswordText = false;
    qint64 allowedSkewMs = 5 * 60 * 1000;
    bool rejectReplayedNonce = true;
    int authFailureStatus = 400; // 400 or 401
    QStringList anonymousOperations = { QStringLiteral("GetSystemDateAndTime") };
    qint64 clockOffsetMs = 0; // the camera's clock minus the real clock

    bool deviceCapability = true;
    bool mediaCapability = true;
    bool media2Capability = true;
    bool ptzCapability = true;
    bool eventsCapability = true;
    bool imagingCapability = true;

    QVector<VideoEncoder> videoEncoders;
    QVector<AudioEncoder> audioEncoders;
    QVector<PtzNodeConfig> ptzNodes;
    QVector<ProfileConfig> profiles;

    int eventIntervalMs = 1000;
    int ptzTimeoutMs = 10000; // DefaultPTZTimeout: a ContinuousMove without a Timeout stops after it
    int maxThreads = 4;
    int keepAliveTimeoutSec = 2;
    int logLimit = 500;
    QString soapPrefix = QStringLiteral("env");

    QMap<QString, FaultSpec> faults; // operation name ("*" for every one, "Snapshot" for the image)

    // Named vendor behaviours (tools/simulator/README.md), set through applyQuirk.
    QStringList quirks;
    qint64 quirkClockOffsetMs = 3 * 3600 * 1000; // clock-skew, when clockOffsetMs is left at 0
    int lockoutAttempts = 3; // lockout: failed logins before the account locks
    qint64 lockoutMs = 30000; // lockout: how long it stays locked
    qint64 digestNonceLifetimeMs = 60000; // digest-only, snapshot-digest: older nonces are stale
    QString natHost = QStringLiteral("10.255.255.1"); // nat: the address the camera believes it has
    quint16 natPort = 8080;
    qint64 subscriptionLifetimeMs = 2000; // subscription-early-expiry: what any subscription really lives
    qint64 rebootAfterMs = 0; // reboot: also reboot by itself this often (0: only on demand)

    bool hasQuirk(const char* name) const { return quirks.contains(QLatin1String(name)); }
    // Adds a quirk by name and the settings it implies; false for an unknown name.
    bool applyQuirk(const QString& name, QString* error = nullptr);
    static QStringList knownQuirks();

    // The built-in camera: five Media1 profiles covering the shapes clients must handle, and an
    // H.265 one that only Media2 lists.
    static CameraConfig defaultCamera();
    // Overlays the keys present in json on top of *this.
    bool applyJson(const QJsonObject& json, QString* error);
};

// A whole simulator setup: {"cameras": [ {...}, ... ], "defaults": {...}} or a single camera
// object. A camera object may carry "repeat": n to stand for n cameras with numbered serials.
bool parseConfig(const QByteArray& jsonText, QVector<CameraConfig>& cameras, QString* error);

} // namespace CameraSim

#endif // CAMERASIM_CAMERACONFIG_H
