#ifndef CAMERASIM_FLEET_H
#define CAMERASIM_FLEET_H

#include "camera.h"
#include "discoveryResponder.h"

#include <memory>
#include <vector>

namespace CameraSim {

// Many simulated cameras in one process, each on its own loopback port.
class Fleet
{
public:
    Fleet();
    ~Fleet();
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    // Starts one camera per configuration; on failure nothing is left running.
    bool start(const QVector<CameraConfig>& configs, QString* error = nullptr);
    // count copies of base, told apart by numbered serial numbers.
    bool start(int count, const CameraConfig& base = CameraConfig::defaultCamera(), QString* error = nullptr);
    void stop();

    int size() const { return static_cast<int>(m_cameras.size()); }
    Camera& camera(int index) { return *m_cameras.at(static_cast<size_t>(index)); }
    const Camera& camera(int index) const { return *m_cameras.at(static_cast<size_t>(index)); }
    QVector<quint16> ports() const;

    // One responder speaking for every camera of the fleet (private network namespace only).
    bool startDiscovery(const QString& address, quint16 port = 3702,
        const QString& advertisedHost = QString(), QString* error = nullptr);
    DiscoveryResponder* discovery() { return m_discovery.get(); }

private:
    std::vector<std::unique_ptr<Camera>> m_cameras;
    std::unique_ptr<DiscoveryResponder> m_discovery;
};

} // namespace CameraSim

#endif // CAMERASIM_FLEET_H
