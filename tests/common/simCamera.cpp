#include "simCamera.h"

#include <QTcpServer>

std::unique_ptr<CameraSim::Camera> startCamera(const CameraSim::CameraConfig& config)
{
    auto camera = std::make_unique<CameraSim::Camera>(config);
    QString error;
    if (!camera->start(&error))
        qFatal("simulator did not start: %s", qPrintable(error));
    return camera;
}

CameraSim::FaultSpec faultOf(CameraSim::FaultMode mode, int count)
{
    CameraSim::FaultSpec fault;
    fault.mode = mode;
    fault.count = count;
    return fault;
}

quint16 closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}
