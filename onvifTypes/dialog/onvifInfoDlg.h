#ifndef ONVIFTYPES_ONVIFINFODLG_H
#define ONVIFTYPES_ONVIFINFODLG_H

#include <onvifTypes/onvifRequests.h>

#include <QDialog>
#include <QString>
#include <QVector>

class QUrl;
class QNetworkAccessManager;
class QTreeWidgetItem;
class OnvifDeviceInfo;
class OnvifRTSP;
class Ui_OnvifInfoDlg;

namespace Onvif {
class OnvifPreview;
}

// One camera's identity and media profiles in an editable two-column tree, with the
// snapshot of its largest profile. Nothing is sent until the user presses the button;
// every answer then rebuilds the tree from scratch. Failures show no text of their
// own unless setStatusShown(true): the tree keeps what it had. Values carry their full text as a
// tooltip and copy with Ctrl+C or the context menu; the picture keeps its proportions.
class ONVIFTYPES_EXPORT OnvifInfoDlg : public QDialog
{
    Q_OBJECT

public:
    // The device-service URL is built from info's ip, port and path.
    OnvifInfoDlg(const QString& login, const QString& password, const Onvif::DeviceInfo& info,
        QWidget* parent = nullptr);
    ~OnvifInfoDlg() override;

    // Shows this device-service URL in place of the one built from info, scheme and all
    // (an https camera stays https).
    void setDeviceUrl(const QUrl& url);

public slots:
    // Queries device information and the profile list with the texts of the edits.
    void runUpdateOnvifInfo();
    void updateOnvifInfo();

public:
    // Makes the leaves below item editable, so that values can be selected and copied.
    void makeChildsEditable(QTreeWidgetItem* item);

    // A status line above the picture: "querying" while a query is under way (the button is
    // disabled meanwhile) and why the last one failed. Off by default, where the dialog shows no
    // texts of its own and a failed query only leaves the tree as it was.
    void setStatusShown(bool shown);
    bool isStatusShown() const;

    // Also the profiles that only the device's Media2 service lists (H.265 ones, often), asked
    // after the profile list. Off by default.
    void setMedia2ProfilesShown(bool shown);
    bool areMedia2ProfilesShown() const;

private:
    Ui_OnvifInfoDlg* ui;
    Onvif::DeviceInfo info;
    QVector<Onvif::OnvifProfileInfo> profiles;
    QNetworkAccessManager* manager;
    OnvifDeviceInfo* deviceInfo;
    OnvifRTSP* rtsp;
    Onvif::OnvifPreview* preview;
};

#endif // ONVIFTYPES_ONVIFINFODLG_H
