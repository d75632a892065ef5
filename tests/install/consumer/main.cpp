#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>

#include <iostream>

struct GetDeviceInformation : Serializable
{
    QString serialize(QString) override
    {
        return QStringLiteral("<tds:GetDeviceInformation ></tds:GetDeviceInformation>");
    }
    void deserialize(QDomNode&) override { }
};

int main()
{
    OnvifSecurity security("admin", "admin", 0LL);
    GetDeviceInformation body;
    const OnvifRequest request(security, body);
    const OnvifResponse response(request.getMessage());
    if (response.getNodeByTag(QStringLiteral("GetDeviceInformation")).isNull())
        return 1;
    std::cout << request.getMessage().toStdString() << std::endl;
    return 0;
}
