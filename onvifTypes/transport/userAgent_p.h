#ifndef ONVIFTYPES_TRANSPORT_USERAGENT_P_H
#define ONVIFTYPES_TRANSPORT_USERAGENT_P_H

#include <QNetworkRequest>

namespace Onvif {
namespace Internal {

// Camera logs and firewalls should see which client asks; Qt's default names a browser.
inline void setUserAgent(QNetworkRequest& request)
{
    request.setRawHeader(
        QByteArrayLiteral("User-Agent"), QByteArrayLiteral("OnvifTypes/" ONVIFTYPES_VERSION));
}

} // namespace Internal
} // namespace Onvif

#endif // ONVIFTYPES_TRANSPORT_USERAGENT_P_H
