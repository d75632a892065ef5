#ifndef ONVIFTYPES_TRANSPORT_LIMITS_H
#define ONVIFTYPES_TRANSPORT_LIMITS_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QNetworkRequest>
#include <QtGlobal>

namespace Onvif {

// What the library accepts from one camera before it gives up on an answer. A camera is
// untrusted input: past any of these the request fails at once with an error that names
// the limit, the connection is dropped and its memory released. The defaults leave room
// for every real reply seen so far while keeping hundreds of cameras in one process cheap.
struct ONVIFTYPES_EXPORT Limits
{
    // HTTP framing
    int maxStatusLineBytes = 8 * 1024;
    int maxHeaderLineBytes = 16 * 1024;
    int maxHeaderCount = 100;
    int maxHeaderBytes = 64 * 1024;
    int maxInterimResponses = 10; // 1xx answers before the final one
    qint64 maxReplyBytes = 8 * 1024 * 1024; // a SOAP answer, after decompression
    qint64 maxImageBytes = 16 * 1024 * 1024; // a snapshot, after decompression
    int maxDecompressionRatio = 200; // inflated size per compressed byte
    // Bytes read from one connection per event-loop wake-up, so one fast camera cannot
    // starve timers and the other cameras.
    int readBytesPerWakeup = 256 * 1024;
    // Whole time of one request, from sending to the last byte; trickling data does not
    // extend it. 0 leaves the request to the caller's own timeout.
    int requestDeadlineMs = 60 * 1000;

    // XML
    int maxXmlDepth = 128;
    int maxXmlElements = 100 * 1000;
    // Namespace declarations count: cameras built with gSOAP declare every namespace they
    // know on the envelope (68 seen).
    int maxXmlAttributesPerElement = 256;
    // Entity references beyond the five predefined ones are refused: no expansion at all.

    // Images
    qint64 maxImagePixels = 4096LL * 4096; // width × height, checked before decoding

    // Discovery
    int maxDiscoveryRecords = 1024; // per run
    int maxDiscoveryRequestsInFlight = 32; // device-information requests

    // A qint64 on a QNetworkRequest that gives that one request a body limit of its own
    // (the snapshot download sets maxImageBytes this way); absent, maxReplyBytes holds.
    static constexpr QNetworkRequest::Attribute BodyLimitAttribute
        = QNetworkRequest::Attribute(QNetworkRequest::User + 0x4f01);

    // The limits new managers, parsers and objects start from; thread-safe.
    static Limits defaults();
    static void setDefaults(const Limits& limits);
};

} // namespace Onvif

#endif // ONVIFTYPES_TRANSPORT_LIMITS_H
