// Prints one complete SOAP 1.2 GetDeviceInformation request signed with a
// WS-Security UsernameToken digest: what the library posts to a camera.
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>

#include <QCoreApplication>
#include <QTextStream>

namespace {

class GetDeviceInformation : public Serializable
{
public:
    QString serialize(QString tagName) override
    {
        const QString name = tagName.isEmpty() ? QStringLiteral("tds:GetDeviceInformation") : tagName;
        return QStringLiteral("<%1 ></%1>").arg(name);
    }
    void deserialize(QDomNode&) override { }
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const QString user = args.value(1, QStringLiteral("admin"));
    const QString password = args.value(2, QStringLiteral("secret"));

    OnvifSecurity security(user, password, 0LL);
    GetDeviceInformation body;
    const OnvifRequest request(security, body);
    QTextStream(stdout) << request.getMessage() << '\n';
    return 0;
}
