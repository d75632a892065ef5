#include "commands.h"

#include <onvifTypes/discovery.h>

#include <QJsonArray>
#include <QTextStream>

#include <algorithm>
#include <memory>
#include <vector>

namespace Cli {

namespace {

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"'))
        && !text.contains(QLatin1Char('\n')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1String("\""), QLatin1String("\"\""))
        + QLatin1Char('"');
}

// What each device said when asked for its identity with the given credentials: the probe
// answer alone does not tell a camera that refuses them from one that is gone.
QStringList statuses(const Options& options, const QVector<Onvif::DeviceInfo>& devices)
{
    std::vector<std::unique_ptr<Onvif::Requests>> requests;
    QVector<QFuture<Onvif::DeviceInfo>> futures;
    for (const Onvif::DeviceInfo& d : devices) {
        const QString host
            = d.ip.contains(QLatin1Char(':')) ? QLatin1Char('[') + d.ip + QLatin1Char(']') : d.ip;
        requests.push_back(std::make_unique<Onvif::Requests>(options.user, options.password,
            QStringLiteral("http://%1:%2%3").arg(host, d.port, d.path), false));
        futures.append(requests.back()->deviceInfo());
    }
    awaitCondition(
        [&] {
            return std::all_of(futures.begin(), futures.end(), [](const auto& f) { return f.isFinished(); });
        },
        options.timeoutMs, QString());
    QStringList result;
    for (int i = 0; i < futures.size(); ++i) {
        const Onvif::Requests& r = *requests[size_t(i)];
        if (!futures[i].isFinished())
            result << QStringLiteral("no answer");
        else if (!futures[i].isCanceled() && !r.isUnreadableAnswer())
            result << QStringLiteral("answered");
        else if (r.isAuthFault() || r.lastFault().isAuthFault())
            result << QStringLiteral("credentials refused");
        else if (!r.lastFault().isNull())
            result << QStringLiteral("fault");
        else if (r.isUnreadableAnswer())
            result << QStringLiteral("unreadable answer");
        else
            result << QStringLiteral("no answer");
    }
    return result;
}

} // namespace

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
    const QStringList status = statuses(options, devices);

    if (options.json) {
        QJsonArray array;
        for (int i = 0; i < devices.size(); ++i) {
            const Onvif::DeviceInfo& d = devices[i];
            QJsonObject o = toJson(d);
            o.insert("ip", d.ip);
            o.insert("port", d.port.toInt());
            o.insert("path", d.path);
            o.insert("url", QStringLiteral("http://%1:%2%3").arg(d.ip, d.port, d.path));
            o.insert("status", status[i]);
            array.append(o);
        }
        printJson(QJsonObject { { "devices", array } });
        return devices.isEmpty() ? Unreachable : Ok;
    }
    if (devices.isEmpty() && !options.csv) {
        printLine(QStringLiteral("No device answered."));
        return Unreachable;
    }
    QVector<QStringList> rows { { "URL", "STATUS", "MANUFACTURER", "MODEL", "SERIAL", "FIRMWARE", "TYPE" } };
    for (int i = 0; i < devices.size(); ++i) {
        const Onvif::DeviceInfo& d = devices[i];
        rows.append({ QStringLiteral("http://%1:%2%3").arg(d.ip, d.port, d.path), status[i], d.manufacturer,
            d.model, d.serialNumber, d.firmwareVersion, d.type });
    }
    if (options.csv) {
        for (const QStringList& row : qAsConst(rows)) {
            QStringList fields;
            for (const QString& field : row)
                fields << csvField(field);
            printLine(fields.join(QLatin1Char(',')));
        }
        return devices.isEmpty() ? Unreachable : Ok;
    }
    QVector<int> widths(rows.first().size(), 0);
    for (const QStringList& row : qAsConst(rows)) {
        for (int c = 0; c < row.size(); ++c)
            widths[c] = qMax(widths[c], row[c].size());
    }
    for (const QStringList& row : qAsConst(rows)) {
        QString line;
        for (int c = 0; c < row.size(); ++c)
            line += c + 1 < row.size() ? row[c].leftJustified(widths[c] + 2) : row[c];
        printLine(line.trimmed());
    }
    return Ok;
}

} // namespace Cli
