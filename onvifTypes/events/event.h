#ifndef ONVIFTYPES_EVENTS_EVENT_H
#define ONVIFTYPES_EVENTS_EVENT_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QPair>
#include <QString>
#include <QVector>

namespace Onvif {

// One notification as a camera sent it: what happened (the topic), when, and its items.
struct ONVIFTYPES_EXPORT Event
{
    QString topic; // as written, "tns1:RuleEngine/CellMotionDetector/Motion"
    QString topicNamespace; // its prefix resolved, "http://www.onvif.org/ver10/topics"
    QString topicPath; // without the prefix, "RuleEngine/CellMotionDetector/Motion"
    QDateTime utcTime;
    QString operation; // "Initialized", "Changed" or "Deleted"
    using Items = QList<QPair<QString, QString>>; // name and value; element items give their XML
    Items source, key, data;
};

// The events of a PullMessagesResponse or a Notify message, in document order. Bounded by the
// text's size (the answer was bounded when it was read); a text that is no XML gives none and
// *error says why.
// A pull answer also tells the device's time and when the subscription ends, in its clock.
ONVIFTYPES_EXPORT QVector<Event> readNotifications(const QString& text, QString* error = nullptr,
    QDateTime* currentTime = nullptr, QDateTime* terminationTime = nullptr);

// Whether the event's topic is one a concrete-set expression names: alternatives joined by "|",
// each a topic ("tns1:VideoSource/MotionAlarm") or a topic and all below it ("tns1:RuleEngine//.").
// Prefixes are not compared: devices name the same namespace differently.
ONVIFTYPES_EXPORT bool topicMatches(const Event& event, const QString& expression);

} // namespace Onvif

Q_DECLARE_METATYPE(Onvif::Event)

#endif // ONVIFTYPES_EVENTS_EVENT_H
