#include "onvifTypes/dialog/onvifInfoDlg.h"

#include "onvifTypes/dialog/infoDlgExtras_p.h"

#include "ui_onvifInfoDlg.h"

#include "onvifTypes/onvifDeviceInfo.h"
#include "onvifTypes/onvifLog.h"
#include "onvifTypes/onvifNetworkAccessManager.h"
#include "onvifTypes/onvifPreview.h"
#include "onvifTypes/onvifRTSP.h"

#include <QNetworkAccessManager>
#include <QPixmap>
#include <QUrl>

namespace {

// Shared by all dialogs: they live on the GUI thread, and the header stays free of Boost.
OnvifLog::Logger& infoDlgLogger()
{
    static OnvifLog::Logger logger = OnvifLog::makeLogger(QStringLiteral("OnvifInfoDlg"));
    return logger;
}

QTreeWidgetItem* addInfoRow(QTreeWidgetItem* parent, const QString& label, const QString& value = QString())
{
    auto* item = new QTreeWidgetItem(parent, QStringList { label, value });
    // A long value (an RTSP URI) is cut in its column; the tooltip shows it whole.
    if (!value.isEmpty())
        item->setToolTip(1, value);
    return item;
}

Onvif::Internal::InfoDlgExtras* extrasOf(const QObject* dialog)
{
    return dialog->findChild<Onvif::Internal::InfoDlgExtras*>(QString(), Qt::FindDirectChildrenOnly);
}

} // namespace

OnvifInfoDlg::OnvifInfoDlg(
    const QString& login, const QString& password, const Onvif::DeviceInfo& info, QWidget* parent)
    : QDialog(parent)
    , ui(new Ui_OnvifInfoDlg)
    , info(info)
    , manager(new Onvif::NetworkAccessManager(this))
    , deviceInfo(new OnvifDeviceInfo(*manager, this))
    , rtsp(new OnvifRTSP(-1, this))
    , preview(new Onvif::OnvifPreview(manager, this))
{
    rtsp->setNetworkManager(*manager);

    ui->setupUi(this);
    // An IPv6 address keeps its brackets, or the port would read as part of it.
    const bool ipv6 = info.ip.contains(QLatin1Char(':')) && !info.ip.startsWith(QLatin1Char('['));
    const QString host = ipv6 ? QLatin1Char('[') + info.ip + QLatin1Char(']') : info.ip;
    ui->edtUrl->setText(QStringLiteral("http://") + host + QLatin1Char(':') + info.port + info.path);
    ui->edtLogin->setText(login);
    ui->edtPass->setText(password);

    ui->treeInfo->setColumnCount(2);
    ui->treeInfo->setHeaderLabels({ QString(), QString() });
    ui->cbExpand->setChecked(true);

    connect(ui->btnConnect, &QPushButton::clicked, this, &OnvifInfoDlg::runUpdateOnvifInfo);
    connect(ui->cbExpand, &QCheckBox::toggled, this, [this](bool checked) {
        if (checked)
            ui->treeInfo->expandAll();
        else
            ui->treeInfo->collapseAll();
    });
    auto* extras = new Onvif::Internal::InfoDlgExtras(
        this, ui->treeInfo, ui->lbImage, ui->btnConnect, ui->verticalLayout_2);
    connect(deviceInfo, &OnvifDeviceInfo::receiveDevInfo, extras,
        [extras] { extras->finished(true, 0, QString()); });
    connect(deviceInfo, &OnvifDeviceInfo::error, extras,
        [extras](unsigned int code, const QString& text) { extras->finished(false, code, text); });
    connect(rtsp, &OnvifRTSP::receiveRTSPList, extras, [extras] { extras->finished(true, 0, QString()); });
    connect(rtsp, &OnvifRTSP::error, extras,
        [extras](unsigned int code, const QString& text) { extras->finished(false, code, text); });
    connect(deviceInfo, &OnvifDeviceInfo::receiveDevInfo, this, [this](const Onvif::DeviceInfo& received) {
        // Only the identity comes from the camera; the address stays the host's.
        this->info.manufacturer = received.manufacturer;
        this->info.model = received.model;
        this->info.serialNumber = received.serialNumber;
        this->info.hardwareId = received.hardwareId;
        this->info.firmwareVersion = received.firmwareVersion;
        updateOnvifInfo();
    });
    connect(rtsp, &OnvifRTSP::receiveRTSPList, this,
        [this, extras](const QVector<Onvif::OnvifProfileInfo>& list) {
            profiles = list;
            updateOnvifInfo();
            extras->addMedia2Profiles(list, [this](const QVector<Onvif::OnvifProfileInfo>& more) {
                profiles += more;
                updateOnvifInfo();
            });
        });
    connect(preview, &Onvif::OnvifPreview::snapshotUri, this, [this](const QString& uri) {
        ui->lbSnapshotUri->setText(tr("Snapshot uri: ") + uri);
        preview->downloadImage(uri);
    });
    connect(preview, &Onvif::OnvifPreview::image, this, [extras](const QImage& picture) {
        if (!picture.isNull())
            extras->showPicture(picture);
    });
}

OnvifInfoDlg::~OnvifInfoDlg()
{
    delete ui;
}

void OnvifInfoDlg::setDeviceUrl(const QUrl& url)
{
    ui->edtUrl->setText(url.toString());
}

void OnvifInfoDlg::runUpdateOnvifInfo()
{
    ONVIF_LOG(infoDlgLogger(), OnvifLog::Trace, "updateOnvifInfo");
    const QString password = ui->edtPass->text();
    const QString login = ui->edtLogin->text();
    const QString url = ui->edtUrl->text();
    extrasOf(this)->started(2, login, password, url);
    deviceInfo->getDeviceInfo(QUrl(url), login, password);
    // getRTSPList takes (login, password, url): passed by meaning, since in any other
    // order the stream list would be asked of the wrong address and never arrive.
    rtsp->getRTSPList(login, password, url);
}

void OnvifInfoDlg::updateOnvifInfo()
{
    QTreeWidget* tree = ui->treeInfo;
    tree->clear();

    auto* general = new QTreeWidgetItem(tree, QStringList { tr("General") });
    addInfoRow(general, tr("IP"), info.ip);
    addInfoRow(general, tr("Onvif port"), info.port);
    addInfoRow(general, tr("Onvif url"), info.path);
    addInfoRow(general, tr("Manufacturer"), info.manufacturer);
    addInfoRow(general, tr("Model"), info.model);
    addInfoRow(general, tr("Serial number"), info.serialNumber);
    addInfoRow(general, tr("Hardware id"), info.hardwareId);
    addInfoRow(general, tr("Firmware version"), info.firmwareVersion);

    auto* profileRoot = new QTreeWidgetItem(tree, QStringList { tr("Profiles") });
    const Onvif::OnvifProfileInfo* best = nullptr;
    qint32 bestArea = 0;
    for (const Onvif::OnvifProfileInfo& p : qAsConst(profiles)) {
        QTreeWidgetItem* profileItem = addInfoRow(profileRoot, p.token);

        QTreeWidgetItem* video = addInfoRow(profileItem, tr("Video"));
        addInfoRow(video, tr("Encoder token"), p.encoderToken);
        addInfoRow(video, tr("Encoding"), p.encoding);
        addInfoRow(video, tr("Width"), QString::number(p.width));
        addInfoRow(video, tr("Height"), QString::number(p.height));
        addInfoRow(video, tr("Video quality"), QString::number(p.quality, 'g', 6));
        addInfoRow(video, tr("Video frame rate"), QString::number(p.frameRate));
        if (p.hasH264) {
            addInfoRow(video, tr("H.264 profile"), p.h264Profile);
            addInfoRow(video, tr("H.264 gov length"), QString::number(p.govLength));
        }
        addInfoRow(video, tr("RTSP"), p.uri);

        if (p.hasAudio) {
            QTreeWidgetItem* audio = addInfoRow(profileItem, tr("Audio"));
            addInfoRow(audio, tr("Encoder token"), p.audioToken);
            addInfoRow(audio, tr("Encoding"), p.audioEncoding);
            addInfoRow(audio, tr("Bitrate"), QString::number(p.audioBitrate));
            addInfoRow(audio, tr("Sample rate"), QString::number(p.audioSampleRate));
        }

        // Strictly larger only: the first of equal profiles wins, and zero areas never do. The
        // snapshot is asked through Media, which knows no Media2-only profile.
        const qint32 area = p.width * p.height;
        if (area > bestArea && !extrasOf(this)->isMedia2Only(p.token)) {
            bestArea = area;
            best = &p;
        }
    }

    makeChildsEditable(general);
    makeChildsEditable(profileRoot);
    if (ui->cbExpand->isChecked())
        tree->expandAll();
    else
        tree->collapseAll();
    tree->resizeColumnToContents(0);

    if (best)
        preview->getSnapshotUri(ui->edtLogin->text(), ui->edtPass->text(), ui->edtUrl->text(), best->token);
}

void OnvifInfoDlg::makeChildsEditable(QTreeWidgetItem* item)
{
    for (int i = 0; i < item->childCount(); ++i) {
        QTreeWidgetItem* child = item->child(i);
        if (child->childCount() == 0)
            child->setFlags(child->flags() | Qt::ItemIsEditable);
        else
            makeChildsEditable(child);
    }
}

void OnvifInfoDlg::setStatusShown(bool shown)
{
    extrasOf(this)->setStatusShown(shown);
}

bool OnvifInfoDlg::isStatusShown() const
{
    return extrasOf(this)->statusShown();
}

void OnvifInfoDlg::setMedia2ProfilesShown(bool shown)
{
    extrasOf(this)->setMedia2ProfilesShown(shown);
}

bool OnvifInfoDlg::areMedia2ProfilesShown() const
{
    return extrasOf(this)->media2ProfilesShown();
}
