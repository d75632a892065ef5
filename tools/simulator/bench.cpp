// onvif-sim-bench: drives signed SOAP requests at simulated cameras and reports requests per second.
//
//   onvif-sim-bench --in-process 200 --threads 8 --seconds 10 [--close]
//   onvif-sim-bench --ports 20000-20199 ...   (against onvif-camera-sim --port 20000 --cameras 200)

#include "fleet.h"
#include "loadGenerator.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace CameraSim;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption inProcess(
        QStringLiteral("in-process"), QStringLiteral("Start this many cameras here."), QStringLiteral("n"));
    const QCommandLineOption ports(QStringLiteral("ports"),
        QStringLiteral("Port range first-last of running cameras."), QStringLiteral("range"));
    const QCommandLineOption threads(QStringLiteral("threads"), QStringLiteral("Client threads."),
        QStringLiteral("n"), QStringLiteral("8"));
    const QCommandLineOption seconds(
        QStringLiteral("seconds"), QStringLiteral("Duration."), QStringLiteral("s"), QStringLiteral("10"));
    const QCommandLineOption close(
        QStringLiteral("close"), QStringLiteral("Send Connection: close (a new connection per request)."));
    const QCommandLineOption operation(QStringLiteral("operation"),
        QStringLiteral("GetDeviceInformation (default) or GetProfiles."), QStringLiteral("name"),
        QStringLiteral("GetDeviceInformation"));
    parser.addOptions({ inProcess, ports, threads, seconds, close, operation });
    parser.process(app);

    Fleet fleet;
    LoadOptions options;
    if (parser.isSet(inProcess)) {
        QString error;
        if (!fleet.start(parser.value(inProcess).toInt(), CameraConfig::defaultCamera(), &error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 2;
        }
        options.ports = fleet.ports();
    } else if (parser.isSet(ports)) {
        const QStringList range = parser.value(ports).split(QLatin1Char('-'));
        for (int p = range.value(0).toInt(); p <= range.value(1, range.value(0)).toInt(); ++p)
            options.ports.append(static_cast<quint16>(p));
    }
    if (options.ports.isEmpty()) {
        std::fprintf(stderr, "give --in-process N or --ports first-last\n");
        return 2;
    }
    options.threads = parser.value(threads).toInt();
    options.seconds = parser.value(seconds).toDouble();
    options.keepAlive = !parser.isSet(close);
    if (parser.value(operation) == QLatin1String("GetProfiles"))
        options.body = QStringLiteral("<trt:GetProfiles/>");

    const LoadResult result = runLoad(options);
    std::printf("cameras %d threads %d %s: %ld ok, %ld failed in %.1f s = %.0f requests/s\n",
        options.ports.size(), options.threads, options.keepAlive ? "keep-alive" : "Connection: close",
        result.ok, result.failed, result.seconds, result.rate());
    if (result.failed > 0)
        std::printf("first failure: %s\n", qPrintable(result.firstFailure));
    fleet.stop();
    return result.failed == 0 ? 0 : 1;
}
