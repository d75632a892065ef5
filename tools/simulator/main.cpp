// onvif-camera-sim: serves simulated ONVIF cameras on 127.0.0.1 until stopped.

#include "fleet.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <csignal>
#include <cstdio>
#include <ctime>

using namespace CameraSim;

int main(int argc, char** argv)
{
    // Block the stop signals before any thread starts, so that every thread inherits
    // the mask and the main thread alone collects them with sigtimedwait.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("onvif-camera-sim"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ONVIFTYPES_VERSION));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Simulated ONVIF cameras on 127.0.0.1, one port per camera. Prints one line per camera:\n"
        "camera <index> <port> <device service URL>, then \"ready <count>\"."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption configOption(
        QStringLiteral("config"), QStringLiteral("JSON configuration file."), QStringLiteral("file"));
    const QCommandLineOption camerasOption(QStringLiteral("cameras"),
        QStringLiteral("Number of cameras (copies of the default or of the configured first one)."),
        QStringLiteral("n"));
    const QCommandLineOption portOption(QStringLiteral("port"),
        QStringLiteral("Port of the first camera, the next ones count up (0: ephemeral)."),
        QStringLiteral("port"), QStringLiteral("0"));
    const QCommandLineOption userOption(
        QStringLiteral("user"), QStringLiteral("User name."), QStringLiteral("name"));
    const QCommandLineOption passwordOption(
        QStringLiteral("password"), QStringLiteral("Password."), QStringLiteral("password"));
    const QCommandLineOption noAuthOption(
        QStringLiteral("no-auth"), QStringLiteral("Accept requests without credentials."));
    const QCommandLineOption threadsOption(
        QStringLiteral("threads"), QStringLiteral("Most worker threads per camera."), QStringLiteral("n"));
    const QCommandLineOption durationOption(QStringLiteral("duration"),
        QStringLiteral("Stop after this many seconds (default: run until SIGINT/SIGTERM)."),
        QStringLiteral("seconds"));
    const QCommandLineOption discoveryOption(QStringLiteral("discovery"),
        QStringLiteral(
            "Answer WS-Discovery probes sent to this IPv4 address (e.g. 127.0.0.1) and to the group "
            "239.255.255.250 on its interface; replies go unicast to the prober. Only allowed in a private "
            "network namespace (unshare -n)."),
        QStringLiteral("address"));
    const QCommandLineOption discoveryPortOption(QStringLiteral("discovery-port"),
        QStringLiteral("UDP port for WS-Discovery (default 3702)."), QStringLiteral("port"),
        QStringLiteral("3702"));
    const QCommandLineOption quirkOption(QStringLiteral("quirk"),
        QStringLiteral("Give every camera a vendor behaviour; repeatable. One of: %1.")
            .arg(CameraConfig::knownQuirks().join(QStringLiteral(", "))),
        QStringLiteral("name"));
    parser.addOptions({ quirkOption, configOption, camerasOption, portOption, userOption, passwordOption,
        noAuthOption, threadsOption, durationOption, discoveryOption, discoveryPortOption });
    parser.process(app);

    auto die = [](const QString& text) {
        std::fprintf(stderr, "onvif-camera-sim: %s\n", qPrintable(text));
        return 2;
    };

    QVector<CameraConfig> configs = { CameraConfig::defaultCamera() };
    if (parser.isSet(configOption)) {
        QFile file(parser.value(configOption));
        if (!file.open(QIODevice::ReadOnly))
            return die(QStringLiteral("cannot read %1").arg(file.fileName()));
        QString error;
        if (!parseConfig(file.readAll(), configs, &error))
            return die(QStringLiteral("%1: %2").arg(file.fileName(), error));
        if (configs.isEmpty())
            return die(QStringLiteral("%1 configures no camera").arg(file.fileName()));
    }
    if (parser.isSet(camerasOption)) {
        bool ok = false;
        const int count = parser.value(camerasOption).toInt(&ok);
        if (!ok || count < 1)
            return die(QStringLiteral("--cameras needs a positive number"));
        const CameraConfig first = configs.first();
        configs.clear();
        for (int i = 0; i < count; ++i) {
            CameraConfig c = first;
            c.serialNumber
                = QStringLiteral("%1-%2").arg(first.serialNumber).arg(i + 1, 4, 10, QLatin1Char('0'));
            configs.append(c);
        }
    }
    const int firstPort = parser.value(portOption).toInt();
    for (int i = 0; i < configs.size(); ++i) {
        CameraConfig& c = configs[i];
        if (parser.isSet(portOption) && firstPort > 0)
            c.port = static_cast<quint16>(firstPort + i);
        if (parser.isSet(userOption))
            c.user = parser.value(userOption);
        if (parser.isSet(passwordOption))
            c.password = parser.value(passwordOption);
        if (parser.isSet(noAuthOption))
            c.requireAuth = false;
        for (const QString& quirk : parser.values(quirkOption)) {
            QString error;
            if (!c.applyQuirk(quirk, &error))
                return die(error);
        }
        if (parser.isSet(threadsOption))
            c.maxThreads = std::max(1, parser.value(threadsOption).toInt());
    }

    Fleet fleet;
    QString error;
    if (!fleet.start(configs, &error))
        return die(error);
    if (parser.isSet(discoveryOption)
        && !fleet.startDiscovery(parser.value(discoveryOption),
            static_cast<quint16>(parser.value(discoveryPortOption).toUInt()), QString(), &error))
        return die(error);

    for (int i = 0; i < fleet.size(); ++i)
        std::printf("camera %d %u %s\n", i, fleet.camera(i).port(), qPrintable(fleet.camera(i).deviceUrl()));
    std::printf("ready %d\n", fleet.size());
    std::fflush(stdout);

    const double duration = parser.isSet(durationOption) ? parser.value(durationOption).toDouble() : -1;
    if (duration >= 0) {
        timespec timeout {};
        timeout.tv_sec = static_cast<time_t>(duration);
        timeout.tv_nsec = static_cast<long>((duration - static_cast<double>(timeout.tv_sec)) * 1e9);
        sigtimedwait(&stopSignals, nullptr, &timeout);
    } else {
        int signal = 0;
        sigwait(&stopSignals, &signal);
    }
    fleet.stop();
    std::printf("stopped\n");
    return 0;
}
