#ifndef ONVIFTYPES_ONVIFPREVIEW_H
#define ONVIFTYPES_ONVIFPREVIEW_H

#include <onvifTypes/onvifLog.h>

#include <QImage>
#include <QObject>

class QNetworkAccessManager;

namespace Onvif {

// A still picture of a camera: the snapshot URI of a profile (GetSnapshotUri),
// then, on request, the picture itself by plain HTTP GET. Failures are logged and
// emit nothing.
class ONVIFTYPES_EXPORT OnvifPreview : public QObject
{
    Q_OBJECT

public:
    OnvifPreview(const QString& login, const QString& password, const QString& url,
        QNetworkAccessManager* manager, QObject* parent = nullptr);
    // With a network manager of its own, owned by the preview.
    OnvifPreview(
        const QString& login, const QString& password, const QString& url, QObject* parent = nullptr);
    explicit OnvifPreview(QNetworkAccessManager* manager, QObject* parent = nullptr);

    void getSnapshotUri(
        const QString& login, const QString& password, const QString& url, const QString& profileToken);
    void getSnapshotUri(const QString& profileToken);
    // Cameras that protect snapshots need the credentials inside the URI.
    void downloadImage(const QString& uri);

signals:
    void snapshotUri(const QString& uri);
    // A body that does not decode gives a null image.
    void image(const QImage& picture);

public slots:
    void getSnapshotUriResponse();
    void downloaded();

private:
    QNetworkAccessManager* m_manager;
    QString m_login;
    QString m_password;
    QString m_url;
    OnvifLog::Logger m_logger;
};

} // namespace Onvif

#endif // ONVIFTYPES_ONVIFPREVIEW_H
