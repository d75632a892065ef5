#include "commands.h"

#include <onvifTypes/discovery.h>

#include <QJsonArray>
#include <QTextStream>

namespace Cli {

int discover(const Options& options, int listenMs)
{
    // Said first, because a probe leaves on every network this machine is on.
    QTextStream(stderr)
        << "Broadcasting a WS-Discovery probe from every local address (UDP 3702) and listening "
        << listenMs / 1000.0 << " s ...\n";
    Discovery discovery(nullptr);
    // Only answers to this probe: a forged datagram must not make us send a password digest.
    discovery.setDropUnrelatedAnswers(true);
    discovery.search(options.user, options.password);
    awaitCondition([] { return false; }, listenMs, QString());
    const QVector<Onvif::DeviceInfo> devices = discovery.getDeviceInformation();

    if (options.json) {
        QJsonArray array;
        for (const Onvif::DeviceInfo& d : devices) {
            QJsonObject o = toJson(d);
            o.insert("ip", d.ip);
            o.insert("port", d.port.toInt());
            o.insert("path", d.path);
            o.insert("url", QStringLiteral("http://%1:%2%3").arg(d.ip, d.port, d.path));
            array.append(o);
        }
        printJson(QJsonObject { { "devices", array } });
        return devices.isEmpty() ? Unreachable : Ok;
    }
    if (devices.isEmpty()) {
        printLine(QStringLiteral("No device answered."));
        return Unreachable;
    }
    for (const Onvif::DeviceInfo& d : devices) {
        printLine(QStringLiteral("http://%1:%2%3  %4 %5  serial %6  firmware %7  type %8")
                      .arg(d.ip, d.port, d.path, d.manufacturer, d.model, d.serialNumber, d.firmwareVersion,
                          d.type.isEmpty() ? QStringLiteral("-") : d.type));
    }
    return Ok;
}

} // namespace Cli
