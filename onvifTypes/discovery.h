#ifndef ONVIFTYPES_DISCOVERY_H
#define ONVIFTYPES_DISCOVERY_H

#include <onvifTypes/onvifLog.h>
#include <onvifTypes/onvifRequests.h>

#include <QMap>
#include <QObject>
#include <QString>
#include <QVector>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;
class QUdpSocket;

// Finds cameras on the local networks: a WS-Discovery Probe for network video
// transmitters is broadcast from every local address to UDP port 3702, every
// answer becomes a record (address, port, device-service path and the name scope
// as a first guess of the maker), and each camera found is then asked for its
// device information to complete the record.
//
// There is no completion signal: the host polls getDeviceInformation() when it
// chooses. Answers are kept as they come, duplicates included; a camera that does
// not answer GetDeviceInformation within 5000 ms keeps its discovery record.
class ONVIFTYPES_EXPORT Discovery : public QObject
{
    Q_OBJECT

public:
    static const QString m_zyrName;
    static const QString m_geovisionName;
    static const QString m_hunterName;
    static const QString m_unknownName;

    explicit Discovery(QObject* parent);
    ~Discovery() override;

    // Drops earlier results and the device requests still in flight, then probes.
    // Empty credentials send the device requests without a security header.
    void search(const QString& login, const QString& password);
    // The records found so far, in order of arrival.
    QVector<Onvif::DeviceInfo> getDeviceInformation() const;

public slots:
    void readPendingDatagrams();
    void getDeviceInformationResponse();
    void requestTimeout();

private:
    void readDatagram(const QByteArray& datagram);
    void requestDeviceInformation(const QString& xaddrs, int index);

    QTimer* timer;
    QNetworkAccessManager* manager;
    QVector<QUdpSocket*> sockets;
    QVector<Onvif::DeviceInfo> devices;
    QMap<QNetworkReply*, int> pending;
    QString login;
    QString password;
    OnvifLog::Logger logger;
};

#endif // ONVIFTYPES_DISCOVERY_H
