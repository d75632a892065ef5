#include "commands.h"

#include <camera.h>

#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifProbe.h>

#include <QDir>
#include <QNetworkAccessManager>

namespace Cli {

namespace {

const int kMoveMs = 400; // the move of the PTZ tour

void heading(int step, const QString& title)
{
    printLine(QString());
    printLine(QStringLiteral("%1. %2").arg(step).arg(title));
}

} // namespace

int demo(const Options& given, LibraryLog& log, const QString& outputDir)
{
    // A camera of our own on loopback: nothing here leaves the machine, nothing broadcasts.
    // Its moves end by the camera's own clock, so the position shown does not depend on
    // how quickly the stop that follows gets there.
    CameraSim::CameraConfig cameraConfig = CameraSim::CameraConfig::defaultCamera();
    cameraConfig.ptzTimeoutMs = kMoveMs;
    CameraSim::Camera camera(cameraConfig);
    QString error;
    if (!camera.start(&error)) {
        printError(QStringLiteral("demo: the simulated camera did not start: %1").arg(error));
        return Unreachable;
    }
    const CameraSim::CameraConfig& config = camera.config();
    Context context;
    context.options = given;
    context.options.user = config.user;
    context.options.password = config.password;
    context.options.json = false;
    context.log = &log;
    context.url = QUrl(camera.deviceUrl());

    printLine(QStringLiteral("OnvifTypes demo: a simulated camera at %1 (user %2)")
                  .arg(camera.deviceUrl(), config.user));

    heading(1, QStringLiteral("Probe: does a camera answer with these credentials?"));
    Onvif::NetworkAccessManager manager;
    Onvif::OnvifProbe probe(config.host, camera.port(), QStringLiteral("onvif/device_service"), config.user,
        config.password, &manager, std::chrono::milliseconds(context.options.timeoutMs));
    bool connected = false;
    bool abandoned = false;
    Onvif::DeviceInfo probed;
    QObject::connect(&probe, &Onvif::OnvifProbe::connected, [&](const Onvif::DeviceInfo& info) {
        probed = info;
        connected = true;
    });
    QObject::connect(&probe, &Onvif::OnvifProbe::finished, [&] { abandoned = true; });
    probe.start();
    awaitCondition([&] { return connected || abandoned; }, context.options.timeoutMs + 1000, probe.url());
    if (!connected) {
        printError(QStringLiteral("demo: the probe was abandoned"));
        return Unreachable;
    }
    printLine(QStringLiteral("   connected: %1 %2").arg(probed.manufacturer, probed.model));

    heading(2, QStringLiteral("Device information and type"));
    int status = info(context);
    if (status != Ok)
        return status;

    heading(3, QStringLiteral("Media profiles and RTSP stream URIs (one per video encoder, largest first)"));
    status = profiles(context);
    if (status != Ok)
        return status;

    heading(4, QStringLiteral("Snapshot of the largest profile"));
    const QString file = QDir(outputDir).filePath(QStringLiteral("demo-snapshot.jpg"));
    status = snapshot(context, file);
    if (status != Ok)
        return status;

    heading(5, QStringLiteral("PTZ: presets, a move, a preset saved and visited, home"));
    const QString node = config.ptzNodes.isEmpty() ? QString() : config.ptzNodes.first().token;
    auto position = [&] {
        const CameraSim::PtzPosition at = camera.ptzPosition(node);
        return QStringLiteral("     camera at pan %1, tilt %2, zoom %3")
            .arg(at.pan, 0, 'f', 2)
            .arg(at.tilt, 0, 'f', 2)
            .arg(at.zoom, 0, 'f', 2);
    };
    const QList<QStringList> tour { { "presets" },
        { "move", "0.5", "-0.25", "0", QString::number(kMoveMs / 1000.0) }, { "set-preset", "Door" },
        { "presets" }, { "home" }, { "goto", "" } };
    for (QStringList step : tour) {
        if (step.first() == QLatin1String("goto"))
            step[1] = camera.presets(QStringLiteral("prof_main")).value(0).token;
        printLine(QStringLiteral("   > ptz %1").arg(step.join(QLatin1Char(' '))));
        status = ptz(context, QString(), step);
        if (status != Ok)
            return status;
        if (step.first() != QLatin1String("presets"))
            printLine(position());
    }

    heading(6, QStringLiteral("Events pulled from a pull-point subscription"));
    status = events(context, 2);
    if (status != Ok)
        return status;

    printLine(QString());
    printLine(
        QStringLiteral("Done: %1 requests answered by the simulated camera.").arg(camera.requestCount()));
    camera.stop();
    return Ok;
}

} // namespace Cli
