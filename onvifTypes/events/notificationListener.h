#ifndef ONVIFTYPES_EVENTS_NOTIFICATIONLISTENER_H
#define ONVIFTYPES_EVENTS_NOTIFICATIONLISTENER_H

#include <onvifTypes/events/event.h>

#include <QHostAddress>
#include <QObject>
#include <QUrl>

#include <memory>

namespace Onvif {

// A small HTTP server for cameras that push their events (WS-BaseNotification Notify): each
// subscription gets a path of its own under /onvif-events/. It serves on threads of its own and
// reports on the thread it lives in. A message is bounded (maxMessageBytes, read within five
// seconds) and an unknown path is answered 404.
class ONVIFTYPES_EXPORT NotificationListener : public QObject
{
    Q_OBJECT

public:
    explicit NotificationListener(QObject* parent = nullptr);
    ~NotificationListener() override;

    // Any free port when port is 0; false (and errorString()) when it cannot listen.
    bool listen(const QHostAddress& address = QHostAddress::AnyIPv4, quint16 port = 0);
    void close();
    bool isListening() const;
    quint16 port() const;
    QString errorString() const;
    void setMaxMessageBytes(qint64 bytes); // before listen(); 1 MiB at first

    // Where a camera should send the notifications named by key: this listener as the camera
    // reaches it (the local address of the route to the camera, unless listening on one).
    QUrl consumerUrl(const QString& key, const QUrl& camera) const;
    // Keys the listener answers for; notifications for others get 404.
    void addKey(const QString& key);
    void removeKey(const QString& key);

signals:
    void notified(const QString& key, const QVector<Onvif::Event>& events);

private:
    struct Private;
    std::shared_ptr<Private> d;
};

} // namespace Onvif

#endif // ONVIFTYPES_EVENTS_NOTIFICATIONLISTENER_H
