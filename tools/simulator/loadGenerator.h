#ifndef CAMERASIM_LOADGENERATOR_H
#define CAMERASIM_LOADGENERATOR_H

#include <QString>
#include <QVector>

namespace CameraSim {

struct LoadOptions
{
    QVector<quint16> ports;
    int threads = 8;
    double seconds = 5;
    bool keepAlive = true;
    QString body = QStringLiteral("<tds:GetDeviceInformation/>");
    QString user = QStringLiteral("admin");
    QString password = QStringLiteral("admin");
};

struct LoadResult
{
    long ok = 0;
    long failed = 0;
    QString firstFailure; // what went wrong first: the HTTP status or the transport error
    double seconds = 0;
    QVector<long> perPort;
    double rate() const { return seconds > 0 ? static_cast<double>(ok) / seconds : 0; }
};

// Sends freshly signed SOAP requests to the given loopback ports for a while. Each port
// is driven by one client thread (one connection when kept alive), as a viewing program would.
LoadResult runLoad(const LoadOptions& options);

} // namespace CameraSim

#endif // CAMERASIM_LOADGENERATOR_H
