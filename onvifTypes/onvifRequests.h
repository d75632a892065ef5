#ifndef ONVIFTYPES_ONVIFREQUESTS_H
#define ONVIFTYPES_ONVIFREQUESTS_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QMetaType>
#include <QString>

namespace Onvif {

// One camera's identity. The device-service URL is "http://" + ip + ":" + port + path.
struct ONVIFTYPES_EXPORT DeviceInfo
{
    QString ip;
    QString type; // OnvifDeviceInfo::getDeviceType
    QString port;
    QString path;
    QString manufacturer;
    QString model;
    QString serialNumber;
    QString hardwareId;
    QString firmwareVersion;
};

// One media profile with its video and audio encoder settings.
struct ONVIFTYPES_EXPORT OnvifProfileInfo
{
    int width = 0;
    int height = 0;
    QString token;
    QString uri; // filled by the RTSP stream list
    QString encoderToken;
    QString encoding;
    float quality = 0.0f;
    int frameRate = 0;
    bool hasH264 = false;
    int govLength = 0;
    QString h264Profile;
    bool hasAudio = false;
    QString audioToken;
    QString audioEncoding;
    int audioBitrate = 0;
    int audioSampleRate = 0;
};

} // namespace Onvif

Q_DECLARE_METATYPE(Onvif::DeviceInfo)
Q_DECLARE_METATYPE(Onvif::OnvifProfileInfo)

#endif // ONVIFTYPES_ONVIFREQUESTS_H
