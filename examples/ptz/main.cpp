// Pan a PTZ camera for a moment, stop, and list its presets.
//   onvif-example-ptz http://192.168.0.10/onvif/device_service [user password]
#include "then.h"

#include <onvifTypes/onvifNetworkAccessManager.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/ptz/onvifPtzController.h>
#include <onvifTypes/session/nonces.h>

#include <QTextStream>
#include <QTimer>

#include <memory>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2) {
        QTextStream(stderr) << "usage: " << args.first() << " DEVICE-SERVICE-URL [USER PASSWORD]\n";
        return 2;
    }
    Onvif::useStrongNonces();

    Onvif::NetworkAccessManager manager;
    const OnvifSecurity security(
        args.value(2, QStringLiteral("admin")), args.value(3, QStringLiteral("admin")), 0LL);
    PtzSys::OnvifPtzReq requests(security, args.at(1), &manager, 0);
    std::unique_ptr<PtzSys::OnvifPtzController> ptz;
    QTextStream out(stdout);
    const auto fail = [](const char* step) {
        QTextStream(stderr) << step << " failed\n";
        QCoreApplication::exit(1);
    };

    // The PTZ address first, then the profiles that carry a PTZ configuration.
    then(requests.checkCapability(), [&](const QFuture<bool>& capable) {
        if (capable.isCanceled() || !capable.result())
            return fail("PTZ capability");
        then(requests.reqTokens(), [&](const QFuture<QVector<PtzSys::Token>>& tokens) {
            if (tokens.isCanceled() || tokens.result().isEmpty())
                return fail("PTZ profiles");
            const PtzSys::Token token = tokens.result().first();
            out << "profile " << token.MediaProfileToken << ", node " << token.PtzNodeToken << '\n';
            ptz = std::make_unique<PtzSys::OnvifPtzController>(token, &requests);
            // The controller learns the node's ranges before it moves.
            then(ptz->getNodeInfo(), [&](const QFuture<PtzSys::NodeInfo>& node) {
                if (node.isCanceled())
                    return fail("PTZ node");
                then(ptz->continuousPos(0.5f, 0.0f), [&](const QFuture<void>& moving) {
                    if (moving.isCanceled())
                        return fail("move");
                    out << "panning right for 500 ms\n";
                    QTimer::singleShot(500, [&] {
                        then(ptz->stop(true, true), [&](const QFuture<void>& stopped) {
                            if (stopped.isCanceled())
                                return fail("stop");
                            then(ptz->presets(), [&](const QFuture<QVector<PtzSys::Preset>>& presets) {
                                if (presets.isCanceled())
                                    return fail("presets");
                                for (const PtzSys::Preset& preset : presets.result())
                                    out << "preset " << preset.token << " \"" << preset.name << "\"\n";
                                out.flush();
                                QCoreApplication::exit(0);
                            });
                        });
                    });
                });
            });
        });
    });
    return app.exec();
}
