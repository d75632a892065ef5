#ifndef ONVIFTYPES_SCHEMA_WSNT_ADDRESSING_P_H
#define ONVIFTYPES_SCHEMA_WSNT_ADDRESSING_P_H

#include <onvifTypes/schema/tt/Message.h>
#include <onvifTypes/serializable.h>

#include <QDomNode>
#include <QSharedPointer>
#include <QVector>

// Shared by the event and notification messages: the WS-Addressing header block
// and the search for event messages inside notification wrappers.
namespace Addressing {

// Action, a fresh message id, anonymous reply address and the destination.
QString headerText(const char* action, const QString& to);

// Appends every element below node (not node itself) whose local name is "Message"
// and that carries "UtcTime" to list, in document order, making the list at its
// first entry. The wsnt:Message wrapper has no UtcTime and so is passed through.
// Returns the number appended.
int readEventMessages(const QDomNode& node, QSharedPointer<QVector<tt::Message>>& list);

// <wsnt:Message><tt:Message ...>...</tt:Message></wsnt:Message>
QString messageWrapper(const tt::Message& message);

} // namespace Addressing

#endif // ONVIFTYPES_SCHEMA_WSNT_ADDRESSING_P_H
