#include "onvifTypes/onvifRequests.h"

#include <QVector>

namespace {

// Queued signals and invokeMethod find the records by these names.
void registerMetaTypes()
{
    qRegisterMetaType<Onvif::DeviceInfo>("Onvif::DeviceInfo");
    qRegisterMetaType<Onvif::OnvifProfileInfo>("Onvif::OnvifProfileInfo");
    qRegisterMetaType<QVector<Onvif::OnvifProfileInfo>>("QVector<Onvif::OnvifProfileInfo>");
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerMetaTypes)
