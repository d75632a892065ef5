// Lists the cameras that answer a WS-Discovery probe within a few seconds.
//   onvif-example-discovery [seconds [user password]]
// The probe goes out on every local network: run it where you may send one.
#include <onvifTypes/discovery.h>
#include <onvifTypes/session/nonces.h>

#include <QCoreApplication>
#include <QTextStream>
#include <QTimer>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    Onvif::useStrongNonces();

    Discovery discovery(&app);
    // Answers are unauthenticated datagrams: ignore any that is not about our probe.
    discovery.setDropUnrelatedAnswers(true);
    discovery.search(args.value(2), args.value(3));
    // Discovery has no completion signal: look at the records after a while.
    QTimer::singleShot(args.value(1, QStringLiteral("5")).toInt() * 1000, &app, [&] {
        QTextStream out(stdout);
        const QVector<Onvif::DeviceInfo> found = discovery.getDeviceInformation();
        for (const Onvif::DeviceInfo& device : found)
            out << "http://" << device.ip << ':' << device.port << device.path << "  " << device.manufacturer
                << ' ' << device.model << '\n';
        out << found.size() << " device(s)\n";
        QCoreApplication::exit(0);
    });
    return app.exec();
}
