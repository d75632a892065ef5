#ifndef ONVIFTYPES_FUZZCOMMON_H
#define ONVIFTYPES_FUZZCOMMON_H

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

namespace FuzzCommon {

// The reply text as the request layer makes it: UTF-8 up to the first NUL byte.
inline QString replyText(const uint8_t* data, size_t size)
{
    return QString::fromUtf8(
        reinterpret_cast<const char*>(data), int(qstrnlen(reinterpret_cast<const char*>(data), uint(size))));
}

// Takes the first two bytes as a selector, so that one corpus file addresses one class.
inline unsigned takeSelector(const uint8_t*& data, size_t& size)
{
    unsigned selector = 0;
    for (int i = 0; i < 2 && size > 0; ++i, ++data, --size)
        selector = selector << 8 | *data;
    return selector;
}

} // namespace FuzzCommon

#endif // ONVIFTYPES_FUZZCOMMON_H
