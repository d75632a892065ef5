// What a video-management program asks first: who the camera is, and every video
// profile with its RTSP URI, through QFutures.
//   onvif-example-cameraInfo http://192.168.0.10/onvif/device_service [user password]
#include "then.h"

#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/session/nonces.h>

#include <QTextStream>
#include <QUrl>

#include <memory>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2) {
        QTextStream(stderr) << "usage: " << args.first() << " DEVICE-SERVICE-URL [USER PASSWORD]\n";
        return 2;
    }
    // Without this, an application that never calls qsrand() repeats its nonces after a
    // restart and cameras with a replay cache refuse the right password.
    Onvif::useStrongNonces();

    auto camera = std::make_shared<Onvif::Requests>(
        args.value(2, QStringLiteral("admin")), args.value(3, QStringLiteral("admin")), args.at(1), false);
    QTextStream out(stdout);
    const auto fail = [camera](const QString& step) {
        const QString why = camera->isAuthFault() ? QStringLiteral("user name or password refused")
            : camera->isUnreadableAnswer()        ? camera->readError()
                                                  : QStringLiteral("no answer, or a fault");
        QTextStream(stderr) << step << ": " << why << '\n';
        QCoreApplication::exit(1);
    };

    then(camera->deviceInfo(), [&, camera, fail](const QFuture<Onvif::DeviceInfo>& info) {
        if (info.isCanceled())
            return fail(QStringLiteral("device information"));
        out << info.result().manufacturer << ' ' << info.result().model << " (firmware "
            << info.result().firmwareVersion << ")\n";
        // Profiles and stream URIs live at the media service's address.
        then(camera->mediaAddr(), [&, camera, fail](const QFuture<QString>& media) {
            if (media.isCanceled() || media.result().isEmpty())
                return fail(QStringLiteral("media service"));
            const QString path = QUrl(media.result()).path();
            then(camera->profiles(path),
                [&, camera, fail, path](const QFuture<QVector<Onvif::OnvifProfileInfo>>& list) {
                    if (list.isCanceled())
                        return fail(QStringLiteral("profiles"));
                    auto left = std::make_shared<int>(list.result().size());
                    if (*left == 0)
                        return QCoreApplication::exit(0);
                    for (const Onvif::OnvifProfileInfo& profile : list.result()) {
                        then(camera->rtspUrl(profile.token, path),
                            [&, profile, left](const QFuture<QString>& uri) {
                                out << profile.token << ": " << profile.width << 'x' << profile.height << ' '
                                    << profile.encoding << "  "
                                    << (uri.isCanceled() ? QStringLiteral("(no URI)") : uri.result()) << '\n';
                                out.flush();
                                if (--*left == 0)
                                    QCoreApplication::exit(0);
                            });
                    }
                });
        });
    });
    return app.exec();
}
