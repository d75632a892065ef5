#ifndef ONVIFTYPES_ONVIFDEVICEINFO_H
#define ONVIFTYPES_ONVIFDEVICEINFO_H

#include <onvifTypes/onvifLog.h>
#include <onvifTypes/onvifRequests.h>

#include <QObject>
#include <QPointer>
#include <QString>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;
class QUrl;
class Serializable;

// Device information of one camera and the library's device classification.
//
// One request at a time: a new getDeviceInfo() silently drops the one in flight.
// Each request ends with exactly one queued signal, receiveDevInfo() or error(),
// unless stop() comes first. Error codes: 1 SOAP fault (detail: the fault text),
// 3 network error (detail: the QNetworkReply::NetworkError number) or no answer
// within 5000 ms (detail: "timeout").
class ONVIFTYPES_EXPORT OnvifDeviceInfo : public QObject
{
    Q_OBJECT

public:
    static const QString zyrName;
    static const QString geovisionName;
    static const QString hunterName;
    static const QString unknownName;

    // The manager is borrowed and must outlive this object.
    OnvifDeviceInfo(QNetworkAccessManager& manager, QObject* parent);
    ~OnvifDeviceInfo() override;

    // Without credentials.
    void getDeviceInfo(const QUrl& url);
    // With a WS-Security digest header made from the credentials.
    void getDeviceInfo(const QUrl& url, const QString& login, const QString& password);
    // With a header of the caller's own.
    void getDeviceInfo(const QUrl& url, Serializable& header);
    // Abandons the request in flight; no signal follows for it.
    void stop();

    // The host's device type of a record: "ZYR", "GeoVision", "Hunter" or "Unknown".
    static QString getDeviceType(const Onvif::DeviceInfo& info);
    static QString devTypeFromManufacturer(const QString& manufacturer);
    // Whether a white-label device belongs to the own family (asks ZYRChecker).
    static bool checkZYR(const Onvif::DeviceInfo& info);

signals:
    void receiveDevInfo(Onvif::DeviceInfo info);
    void error(unsigned int code, QString text);

public slots:
    void getDeviceInfoResponse();

private:
    void requestTimeout();
    void dropPending();
    void emitLater(const Onvif::DeviceInfo* info, unsigned int code, const QString& text);

    QNetworkAccessManager* m_manager;
    QTimer* m_timer;
    QPointer<QNetworkReply> m_pending;
    // Told to queued signals: a stop() or a new request since they were queued silences them.
    quint64 m_request = 0;
    OnvifLog::Logger m_logger;
};

#endif // ONVIFTYPES_ONVIFDEVICEINFO_H
