#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>

#include <iostream>

struct GetDeviceInformation : Serializable
{
    QString serialize(const QString&) const override
    {
        return QStringLiteral("<tds:GetDeviceInformation ></tds:GetDeviceInformation>");
    }
    void deserialize(const QDomNode&) override { }
};

int main()
{
    const OnvifRequest request(OnvifSecurity("admin", "admin", 0LL), GetDeviceInformation());
    const OnvifResponse response(request.getMessage());
    if (response.getNodeByTag(QStringLiteral("GetDeviceInformation")).isNull())
        return 1;
    std::cout << request.getMessage().toStdString() << std::endl;
    return 0;
}
