#ifndef ONVIFTYPES_TRANSPORT_REPLYGUARD_P_H
#define ONVIFTYPES_TRANSPORT_REPLYGUARD_P_H

#include <onvifTypes/onvifTypesGlobal.h>
#include <onvifTypes/transport/limits.h>

class QNetworkReply;

namespace Onvif::Internal {

// Bounds a reply of Qt's own manager (https, or a manager the host lent) as far as Qt
// lets a caller: its read buffer, its declared and received size, and a deadline that
// trickling data does not move. Past a limit the reply is aborted (Qt's
// OperationCanceledError) and the property "onvifLimitError" names the limit. Replies
// of Onvif::NetworkAccessManager's own connections bound themselves and are left alone,
// as is a reply guarded before. bodyLimit < 0: the request's BodyLimitAttribute, else
// limits.maxReplyBytes.
ONVIFTYPES_EXPORT void guardReply(
    QNetworkReply* reply, qint64 bodyLimit = -1, const Limits& limits = Limits::defaults());

// guardReply for a reply of a manager the host lent to one of the library's objects: the
// size bounds of Limits::defaults(), no deadline (the timing of those requests is the
// lending manager's, or the object's own timer).
ONVIFTYPES_EXPORT void guardLentReply(QNetworkReply* reply);

// The text guardReply left on an aborted reply, or its errorString.
ONVIFTYPES_EXPORT QString replyErrorText(const QNetworkReply* reply);

} // namespace Onvif::Internal

#endif // ONVIFTYPES_TRANSPORT_REPLYGUARD_P_H
