#include "onvifTypes/dialog/onvifInfoDlg.h"

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
    return new QTreeWidgetItem(parent, QStringList { label, value });
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
    connect(deviceInfo, &OnvifDeviceInfo::receiveDevInfo, this, [this](const Onvif::DeviceInfo& received) {
        // Only the identity comes from the camera; the address stays the host's.
        this->info.manufacturer = received.manufacturer;
        this->info.model = received.model;
        this->info.serialNumber = received.serialNumber;
        this->info.hardwareId = received.hardwareId;
        this->info.firmwareVersion = received.firmwareVersion;
        updateOnvifInfo();
    });
    connect(rtsp, &OnvifRTSP::receiveRTSPList, this, [this](const QVector<Onvif::OnvifProfileInfo>& list) {
        profiles = list;
        updateOnvifInfo();
    });
    connect(preview, &Onvif::OnvifPreview::snapshotUri, this, [this](const QString& uri) {
        ui->lbSnapshotUri->setText(QStringLiteral("Snapshot uri: ") + uri);
        preview->downloadImage(uri);
    });
    connect(preview, &Onvif::OnvifPreview::image, this, [this](const QImage& picture) {
        if (picture.isNull())
            return;
        ui->lbImage->setPixmap(QPixmap::fromImage(
            picture.scaled(ui->lbImage->size(), Qt::KeepAspectRatio, Qt::FastTransformation)));
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
    deviceInfo->getDeviceInfo(QUrl(url), login, password);
    // getRTSPList takes (login, password, url): passed by meaning, since in any other
    // order the stream list would be asked of the wrong address and never arrive.
    rtsp->getRTSPList(login, password, url);
}

void OnvifInfoDlg::updateOnvifInfo()
{
    QTreeWidget* tree = ui->treeInfo;
    tree->clear();

    auto* general = new QTreeWidgetItem(tree, QStringList { QStringLiteral("General") });
    addInfoRow(general, QStringLiteral("IP"), info.ip);
    addInfoRow(general, QStringLiteral("Onvif port"), info.port);
    addInfoRow(general, QStringLiteral("Onvif url"), info.path);
    addInfoRow(general, QStringLiteral("Manufacturer"), info.manufacturer);
    addInfoRow(general, QStringLiteral("Model"), info.model);
    addInfoRow(general, QStringLiteral("Serial number"), info.serialNumber);
    addInfoRow(general, QStringLiteral("Hardware id"), info.hardwareId);
    addInfoRow(general, QStringLiteral("Firmware version"), info.firmwareVersion);

    auto* profileRoot = new QTreeWidgetItem(tree, QStringList { QStringLiteral("Profiles") });
    const Onvif::OnvifProfileInfo* best = nullptr;
    qint32 bestArea = 0;
    for (const Onvif::OnvifProfileInfo& p : qAsConst(profiles)) {
        QTreeWidgetItem* profileItem = addInfoRow(profileRoot, p.token);

        QTreeWidgetItem* video = addInfoRow(profileItem, QStringLiteral("Video"));
        addInfoRow(video, QStringLiteral("Encoder token"), p.encoderToken);
        addInfoRow(video, QStringLiteral("Encoding"), p.encoding);
        addInfoRow(video, QStringLiteral("Width"), QString::number(p.width));
        addInfoRow(video, QStringLiteral("Height"), QString::number(p.height));
        addInfoRow(video, QStringLiteral("Video quality"), QString::number(p.quality, 'g', 6));
        addInfoRow(video, QStringLiteral("Video frame rate"), QString::number(p.frameRate));
        if (p.hasH264) {
            addInfoRow(video, QStringLiteral("H.264 profile"), p.h264Profile);
            addInfoRow(video, QStringLiteral("H.264 gov length"), QString::number(p.govLength));
        }
        addInfoRow(video, QStringLiteral("RTSP"), p.uri);

        if (p.hasAudio) {
            QTreeWidgetItem* audio = addInfoRow(profileItem, QStringLiteral("Audio"));
            addInfoRow(audio, QStringLiteral("Encoder token"), p.audioToken);
            addInfoRow(audio, QStringLiteral("Encoding"), p.audioEncoding);
            addInfoRow(audio, QStringLiteral("Bitrate"), QString::number(p.audioBitrate));
            addInfoRow(audio, QStringLiteral("Sample rate"), QString::number(p.audioSampleRate));
        }

        // Strictly larger only: the first of equal profiles wins, and zero areas never do.
        const qint32 area = p.width * p.height;
        if (area > bestArea) {
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
