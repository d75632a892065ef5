#ifndef ONVIFTYPES_ONVIFPROBE_H
#define ONVIFTYPES_ONVIFPROBE_H

#include <onvifTypes/onvifRequests.h>

#include <QObject>

#include <chrono>
#include <functional>

class QNetworkAccessManager;

namespace Onvif {

// Does a camera answer at this address with these credentials, and who is it?
// One GetDeviceInformation bounded by a timeout; the outcome is one queued signal:
// connected() with the record, or finished() when the attempt was abandoned.
class ONVIFTYPES_EXPORT OnvifProbe : public QObject
{
    Q_OBJECT

public:
    // The URL is "http://" + ip + ":" + port + "/" + path, so a path starting with
    // "/" gives a double slash after the port; devices accept it and it is kept.
    OnvifProbe(const QString& ip, int port, const QString& path, const QString& login,
        const QString& password, QNetworkAccessManager* manager, std::chrono::milliseconds timeout,
        QObject* parent = nullptr);

    QString url() const { return m_url; }

    void start();
    // Cancels the request in flight (finished() follows); nothing before start().
    void stop();

signals:
    void connected(Onvif::DeviceInfo info);
    void finished();

private:
    QString m_ip;
    QString m_port;
    QString m_path;
    QString m_url;
    QString m_login;
    QString m_password;
    QNetworkAccessManager* m_manager;
    std::chrono::milliseconds m_timeout;
    std::function<void()> m_cancel;
};

} // namespace Onvif

#endif // ONVIFTYPES_ONVIFPROBE_H
