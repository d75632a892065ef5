#ifndef ONVIFTYPES_SCHEMA_WSNT_NOTIFY_H
#define ONVIFTYPES_SCHEMA_WSNT_NOTIFY_H

#include <onvifTypes/schema/wsnt/NotificationMessage.h>
#include <onvifTypes/serializable.h>

#include <QSharedPointer>
#include <QVector>

namespace wsnt {

class ONVIFTYPES_EXPORT Notify : public Serializable
{
public:
    Notify();

    QString unmatchedElements;
    QString unmatchedAttributes;
    QVector<wsnt::NotificationMessage> NotificationMessage;

    QString serialize(QString tagName) override;
    void deserialize(QDomNode& node) override;
};

} // namespace wsnt

#endif // ONVIFTYPES_SCHEMA_WSNT_NOTIFY_H
