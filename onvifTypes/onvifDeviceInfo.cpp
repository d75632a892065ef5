#include "onvifTypes/onvifDeviceInfo.h"

#include "onvifTypes/onvifRequests.h"
#include "zyrChecker/zyrChecker.h"

#include <QRegExp>

const QString OnvifDeviceInfo::zyrName = QStringLiteral("ZYR");
const QString OnvifDeviceInfo::geovisionName = QStringLiteral("GeoVision");
const QString OnvifDeviceInfo::hunterName = QStringLiteral("Hunter");
const QString OnvifDeviceInfo::unknownName = QStringLiteral("Unknown");

QString OnvifDeviceInfo::getDeviceType(const Onvif::DeviceInfo& info)
{
    if (checkZYR(info))
        return zyrName;
    return devTypeFromManufacturer(info.manufacturer);
}

QString OnvifDeviceInfo::devTypeFromManufacturer(const QString& manufacturer)
{
    const QString lower = manufacturer.toLower();
    if (lower == QLatin1String("geovision"))
        return geovisionName;
    if (lower == QLatin1String("h264"))
        return hunterName;
    return unknownName;
}

bool OnvifDeviceInfo::checkZYR(const Onvif::DeviceInfo& info)
{
    static const QStringList whiteLabels { QStringLiteral("ONVIF-IPNC"), QStringLiteral("ONVIF_IPNC"),
        QStringLiteral("ONVIF_CAMERA_ANJV"), QStringLiteral("ONVIF_CAMERA"),
        QStringLiteral("Network Digital Video"), QStringLiteral("A_ONVIF_CAMERA") };

    if (whiteLabels.contains(info.manufacturer)) {
        // Empty pieces kept here and dropped for "ZYR-PI" below: the two families name models differently.
        const QStringList pieces = info.model.split(QLatin1Char('-'), Qt::KeepEmptyParts);
        return !pieces.isEmpty() && ZYRChecker::check(pieces.first());
    }
    if (info.manufacturer == QLatin1String("IP CAMERA")
        && info.model.toLower() == QLatin1String("ip camera")) {
        // "<build>_..._YYYYMMDD": the build prefix names the family. Compiled once, kept.
        static const QRegExp firmware(QStringLiteral("^(.*)[_-].*_(\\d{4})-?(\\d{2})-?(\\d{2})$"));
        QRegExp matcher(firmware);
        if (matcher.indexIn(info.firmwareVersion) < 0)
            return false;
        return ZYRChecker::check(matcher.cap(1));
    }
    if (info.manufacturer == QLatin1String("ZYR-PI")) {
        const QStringList pieces = info.model.split(QLatin1Char('-'), Qt::SkipEmptyParts);
        return !pieces.isEmpty() && ZYRChecker::check(pieces.first());
    }
    if (!info.model.isEmpty() || !info.manufacturer.isEmpty() || info.hardwareId.isEmpty())
        return false;
    return ZYRChecker::check(info.hardwareId);
}
