#include "fleet.h"

namespace CameraSim {

Fleet::Fleet() = default;

Fleet::~Fleet()
{
    stop();
}

bool Fleet::start(const QVector<CameraConfig>& configs, QString* error)
{
    stop();
    for (const CameraConfig& config : configs) {
        m_cameras.push_back(std::make_unique<Camera>(config));
        if (!m_cameras.back()->start(error)) {
            stop();
            return false;
        }
    }
    return true;
}

bool Fleet::start(int count, const CameraConfig& base, QString* error)
{
    QVector<CameraConfig> configs;
    configs.reserve(count);
    for (int i = 0; i < count; ++i) {
        CameraConfig c = base;
        c.serialNumber = QStringLiteral("%1-%2").arg(base.serialNumber).arg(i + 1, 4, 10, QLatin1Char('0'));
        if (base.port != 0)
            c.port = static_cast<quint16>(base.port + i);
        configs.append(c);
    }
    return start(configs, error);
}

void Fleet::stop()
{
    if (m_discovery)
        m_discovery->stop();
    m_discovery.reset();
    // All are told first, so that their keep-alive waits run out together, not one after another.
    for (auto& camera : m_cameras)
        camera->requestStop();
    for (auto& camera : m_cameras)
        camera->stop();
    m_cameras.clear();
}

QVector<quint16> Fleet::ports() const
{
    QVector<quint16> result;
    for (const auto& camera : m_cameras)
        result.append(camera->port());
    return result;
}

bool Fleet::startDiscovery(
    const QString& address, quint16 port, const QString& advertisedHost, QString* error)
{
    m_discovery = std::make_unique<DiscoveryResponder>();
    for (const auto& camera : m_cameras)
        m_discovery->addCamera(*camera, advertisedHost);
    if (!m_discovery->start(address, port, error)) {
        m_discovery.reset();
        return false;
    }
    return true;
}

} // namespace CameraSim
