#include "onvifTypes/events/notificationListener.h"

#include <httplib.h>

#include <QMutex>
#include <QPointer>
#include <QSet>
#include <QUdpSocket>

#include <thread>

namespace Onvif {

struct NotificationListener::Private
{
    QPointer<NotificationListener> owner;
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    QHostAddress address;
    quint16 port = 0;
    QString error;
    size_t maxBytes = 1024 * 1024;
    QMutex mutex;
    QSet<QString> keys;
};

NotificationListener::NotificationListener(QObject* parent)
    : QObject(parent)
    , d(std::make_shared<Private>())
{
    d->owner = this;
    qRegisterMetaType<QVector<Onvif::Event>>();
}

NotificationListener::~NotificationListener()
{
    close();
}

bool NotificationListener::listen(const QHostAddress& address, quint16 port)
{
    close();
    auto server = std::make_unique<httplib::Server>();
    server->set_payload_max_length(d->maxBytes);
    server->set_read_timeout(5, 0);
    server->set_write_timeout(5, 0);
    server->set_keep_alive_max_count(20);
    // The handler holds the state, not the object: a message in flight when the object goes
    // finds no owner and is dropped.
    std::weak_ptr<Private> state = d;
    server->Post(R"(/onvif-events/([A-Za-z0-9_.-]{1,64}))",
        [state](const httplib::Request& request, httplib::Response& response) {
            const auto d = state.lock();
            const QString key = QString::fromStdString(request.matches[1]);
            bool known = false;
            if (d) {
                QMutexLocker lock(&d->mutex);
                known = d->keys.contains(key);
            }
            if (!known) {
                response.status = 404;
                return;
            }
            const QString text = QString::fromUtf8(request.body.data(), int(request.body.size()));
            QMetaObject::invokeMethod(
                d->owner.data(),
                [owner = d->owner, key, text] {
                    if (!owner)
                        return;
                    const QVector<Event> events = readNotifications(text);
                    if (!events.isEmpty())
                        emit owner->notified(key, events);
                },
                Qt::QueuedConnection);
            response.status = 200;
        });
    const std::string host = address.toString().toStdString();
    const int bound
        = port == 0 ? server->bind_to_any_port(host) : (server->bind_to_port(host, port) ? port : -1);
    if (bound <= 0) {
        d->error = QStringLiteral("cannot listen on %1:%2").arg(address.toString()).arg(port);
        return false;
    }
    d->address = address;
    d->port = quint16(bound);
    d->error.clear();
    httplib::Server* raw = server.get();
    d->server = std::move(server);
    d->thread = std::thread([raw] { raw->listen_after_bind(); });
    return true;
}

void NotificationListener::close()
{
    if (!d->server)
        return;
    d->server->stop();
    if (d->thread.joinable())
        d->thread.join();
    d->server.reset();
    d->port = 0;
}

bool NotificationListener::isListening() const
{
    return d->server != nullptr;
}

quint16 NotificationListener::port() const
{
    return d->port;
}

QString NotificationListener::errorString() const
{
    return d->error;
}

void NotificationListener::setMaxMessageBytes(qint64 bytes)
{
    d->maxBytes = size_t(qMax<qint64>(1024, bytes));
}

void NotificationListener::addKey(const QString& key)
{
    QMutexLocker lock(&d->mutex);
    d->keys.insert(key);
}

void NotificationListener::removeKey(const QString& key)
{
    QMutexLocker lock(&d->mutex);
    d->keys.remove(key);
}

QUrl NotificationListener::consumerUrl(const QString& key, const QUrl& camera) const
{
    QHostAddress host = d->address;
    if (host == QHostAddress::AnyIPv4 || host == QHostAddress::Any || host.isNull()) {
        // A connected UDP socket sends nothing, and tells which local address routes to the camera.
        QUdpSocket route;
        route.connectToHost(camera.host(), quint16(camera.port(80)));
        host = route.localAddress();
        route.abort();
    }
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(host.toString());
    url.setPort(d->port);
    url.setPath(QStringLiteral("/onvif-events/") + key);
    return url;
}

} // namespace Onvif
