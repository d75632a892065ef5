#ifndef CAMERASIM_CAMERA_H
#define CAMERASIM_CAMERA_H

#include "cameraConfig.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>
#include <QVector>

#include <memory>

namespace CameraSim {

// One HTTP request as the camera received it.
struct RequestRecord
{
    QDateTime receivedUtc;
    QString method;
    QString path;
    QList<QPair<QByteArray, QByteArray>> headers; // names as sent, sorted by name
    QByteArray body;
    QString operation; // local name of the body's first element; empty if none was found
    QString authResult; // "ok", "not required" or why it was refused
    int status = 0; // HTTP status answered (0 when the connection was dropped)

    QByteArray header(const QByteArray& name) const;
};

struct PtzPosition
{
    double pan = 0;
    double tilt = 0;
    double zoom = 0;
    bool moving = false;
};

struct PresetState
{
    QString token;
    QString name;
    PtzPosition position;
};

// Counters a test reads to bound what a client tried; also served as JSON at GET /sim/stats.
struct CameraStats
{
    int failedLogins = 0; // credentials checked and found wrong (WS-Security or HTTP Digest)
    int lockedRefusals = 0; // requests refused because the account was locked
    int digestChallenges = 0; // 401 answers asking for HTTP Digest
    int staleNonces = 0; // HTTP Digest answers with a nonce too old
    int reboots = 0;
};

enum class Service { Device, Media, Ptz, Events, Imaging, Media2 };

// A simulated ONVIF camera on one loopback port. The server runs on its own
// threads; every method may be called from any thread.
class Camera
{
public:
    explicit Camera(const CameraConfig& config = CameraConfig::defaultCamera());
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    bool start(QString* error = nullptr);
    void stop();
    // Begins stopping without waiting, so that many cameras can wind down together.
    void requestStop();
    bool isRunning() const;

    quint16 port() const;
    QString host() const;
    QString baseUrl() const; // http://host:port
    QString deviceUrl() const;
    QString serviceUrl(Service service) const;
    QString endpointReference() const; // urn:uuid:...
    QStringList scopes() const;
    const CameraConfig& config() const;

    void setFault(const QString& operation, const FaultSpec& spec);
    void clearFault(const QString& operation);
    void clearFaults();
    QMap<QString, FaultSpec> faults() const;

    QVector<RequestRecord> requestLog() const;
    QVector<RequestRecord> requestsFor(const QString& operation) const;
    int requestCount() const; // all requests since start, not capped by logLimit
    void clearRequestLog();

    PtzPosition ptzPosition(const QString& nodeToken) const;
    QVector<PresetState> presets(const QString& profileToken) const;
    int subscriptionCount() const;
    CameraStats stats() const;
    // As a device reboot appears to clients: subscriptions and lock-out are gone.
    void reboot();
    int workerThreads() const;

    struct Impl;

private:
    std::unique_ptr<Impl> d;
};

} // namespace CameraSim

#endif // CAMERASIM_CAMERA_H
