#ifndef ONVIFTYPES_PROFILEINFO_P_H
#define ONVIFTYPES_PROFILEINFO_P_H

#include <onvifTypes/onvifRequests.h>

namespace tt {
class Profile;
}

namespace Onvif {
namespace Internal {

// One record per video encoder (the first profile using it wins), largest area
// first; profiles without a video encoder are left out.
QVector<OnvifProfileInfo> profileInfos(const QVector<tt::Profile>& profiles);

} // namespace Internal
} // namespace Onvif

#endif
