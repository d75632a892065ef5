#ifndef ONVIFTYPES_ONVIFDEVICEINFO_H
#define ONVIFTYPES_ONVIFDEVICEINFO_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QObject>
#include <QString>

namespace Onvif {
struct DeviceInfo;
}

// Device information of one camera and the library's device classification.
class ONVIFTYPES_EXPORT OnvifDeviceInfo : public QObject
{
    Q_OBJECT

public:
    static const QString zyrName;
    static const QString geovisionName;
    static const QString hunterName;
    static const QString unknownName;

    // The host's device type of a record: "ZYR", "GeoVision", "Hunter" or "Unknown".
    static QString getDeviceType(const Onvif::DeviceInfo& info);
    static QString devTypeFromManufacturer(const QString& manufacturer);
    // Whether a white-label device belongs to the own family (asks ZYRChecker).
    static bool checkZYR(const Onvif::DeviceInfo& info);
};

#endif // ONVIFTYPES_ONVIFDEVICEINFO_H
