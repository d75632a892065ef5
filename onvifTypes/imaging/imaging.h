#ifndef ONVIFTYPES_IMAGING_IMAGING_H
#define ONVIFTYPES_IMAGING_IMAGING_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QString>
#include <QStringList>
#include <QtMath>

namespace Onvif {

// Image settings of one video source, in the device's own units. A number the device did not
// report is NaN and a mode it did not report is empty; in a change, those are left alone.
struct ONVIFTYPES_EXPORT ImagingSettings
{
    double brightness = qQNaN();
    double contrast = qQNaN();
    double colorSaturation = qQNaN();
    double sharpness = qQNaN();
    QString irCutFilter; // "ON", "OFF", "AUTO"
    QString exposureMode; // "AUTO", "MANUAL"
    double exposureTime = qQNaN(); // microseconds
    double gain = qQNaN();
    QString whiteBalanceMode; // "AUTO", "MANUAL"
    double crGain = qQNaN();
    double cbGain = qQNaN();
    QString focusMode; // "AUTO", "MANUAL"
};

struct ONVIFTYPES_EXPORT ImagingRange
{
    double min = qQNaN();
    double max = qQNaN();
    bool isValid() const { return !qIsNaN(min) && !qIsNaN(max) && min <= max; }
};

// What a video source accepts; a range or list the device did not state is invalid or empty,
// and a value for it is sent unchecked.
struct ONVIFTYPES_EXPORT ImagingOptions
{
    ImagingRange brightness, contrast, colorSaturation, sharpness;
    QStringList irCutFilterModes;
    QStringList exposureModes;
    ImagingRange exposureTime, gain;
    QStringList whiteBalanceModes;
    ImagingRange crGain, cbGain; // the schema's YrGain and YbGain
    QStringList focusModes;
};

struct ONVIFTYPES_EXPORT FocusState
{
    double position = qQNaN();
    QString moveStatus; // "IDLE", "MOVING", "UNKNOWN"; empty when not told
    QString error;
};

} // namespace Onvif

#endif // ONVIFTYPES_IMAGING_IMAGING_H
