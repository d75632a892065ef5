#ifndef ONVIFTYPES_DISCOVERY_H
#define ONVIFTYPES_DISCOVERY_H

#include <onvifTypes/onvifLog.h>
#include <onvifTypes/onvifRequests.h>

#include <QMap>
#include <QObject>
#include <QPair>
#include <QQueue>
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
//
// Answers are unauthenticated datagrams, and each one makes the object send the
// credentials' password digest to the address the answer names. The records of one
// search and the device requests in flight are capped (Onvif::Limits gives the
// defaults; requests past the cap wait for a free place), and an answer that does not
// relate to this search's probe can be dropped (off by default).
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

    // Answers past this many records in one search are ignored.
    void setMaxRecords(int count);
    int maxRecords() const { return m_maxRecords; }
    // Device requests past this many in flight wait until one finishes or times out.
    void setMaxRequestsInFlight(int count);
    int maxRequestsInFlight() const { return m_maxRequestsInFlight; }
    // When true, answers whose RelatesTo names no probe of the current search (forged,
    // stale or unsolicited ones) are dropped before anything is asked of them.
    void setDropUnrelatedAnswers(bool drop) { m_dropUnrelated = drop; }
    bool dropUnrelatedAnswers() const { return m_dropUnrelated; }

public slots:
    void readPendingDatagrams();
    void getDeviceInformationResponse();
    void requestTimeout();

private:
    void readDatagram(const QByteArray& datagram);
    void requestDeviceInformation(const QString& xaddrs, int index);
    void postDeviceInformation(const QString& xaddrs, int index);
    void sendWaiting();

    QTimer* timer;
    QNetworkAccessManager* manager;
    QVector<QUdpSocket*> sockets;
    QVector<Onvif::DeviceInfo> devices;
    QMap<QNetworkReply*, int> pending;
    QString login;
    QString password;
    OnvifLog::Logger logger;
    QString m_probeId; // the UUID of the current search's probe
    QQueue<QPair<QString, int>> m_waiting; // device requests past the cap: XAddrs, record index
    int m_maxRecords;
    int m_maxRequestsInFlight;
    bool m_dropUnrelated = false;
    bool m_recordLimitLogged = false;
};

#endif // ONVIFTYPES_DISCOVERY_H
