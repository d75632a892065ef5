#include "onvifTypes/dialog/infoDlgExtras_p.h"

#include <QAction>
#include <QClipboard>
#include <QCoreApplication>
#include <QEvent>
#include <QFutureWatcher>
#include <QGuiApplication>
#include <QLabel>
#include <QNetworkReply>
#include <QPainter>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace Onvif {
namespace Internal {

InfoDlgExtras::InfoDlgExtras(
    QObject* parent, QTreeWidget* tree, QLabel* image, QPushButton* button, QVBoxLayout* column)
    : QObject(parent)
    , m_tree(tree)
    , m_image(image)
    , m_button(button)
    , m_column(column)
{
    m_image->installEventFilter(this);
    auto* copy = new QAction(QCoreApplication::translate("OnvifInfoDlg", "Copy"), m_tree);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    connect(copy, &QAction::triggered, this, &InfoDlgExtras::copyCurrent);
    m_tree->addAction(copy);
    m_tree->setContextMenuPolicy(Qt::ActionsContextMenu);
}

void InfoDlgExtras::showPicture(const QImage& picture)
{
    m_picture = picture;
    const QSize area = m_image->size();
    if (picture.isNull() || area.isEmpty())
        return;
    // The label stretches its pixmap to its own size: one of exactly that size, with the picture
    // centred in it at its own proportions, stays undistorted.
    QPixmap canvas(area);
    canvas.fill(Qt::transparent);
    const QImage scaled = picture.scaled(area, Qt::KeepAspectRatio, Qt::FastTransformation);
    QPainter painter(&canvas);
    painter.drawImage(
        QPoint((area.width() - scaled.width()) / 2, (area.height() - scaled.height()) / 2), scaled);
    painter.end();
    m_image->setPixmap(canvas);
}

bool InfoDlgExtras::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_image && event->type() == QEvent::Resize && !m_picture.isNull())
        showPicture(m_picture);
    return false;
}

void InfoDlgExtras::copyCurrent()
{
    const QTreeWidgetItem* item = m_tree->currentItem();
    if (!item)
        return;
    // A value row copies its value; a heading its label.
    QGuiApplication::clipboard()->setText(item->text(item->childCount() == 0 ? 1 : 0));
}

void InfoDlgExtras::setStatusShown(bool shown)
{
    if (shown == statusShown())
        return;
    if (!shown) {
        delete m_status;
        m_button->setEnabled(true);
        return;
    }
    m_status = new QLabel(m_image->parentWidget());
    m_status->setObjectName(QStringLiteral("lbStatus"));
    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_column->insertWidget(m_column->indexOf(m_image), m_status);
    setStatus(
        m_pending > 0 ? QCoreApplication::translate("OnvifInfoDlg", "Querying the camera...") : m_failure);
}

void InfoDlgExtras::setStatus(const QString& text)
{
    if (!m_status)
        return;
    m_status->setText(text);
    m_status->setVisible(!text.isEmpty());
    m_button->setEnabled(m_pending == 0);
}

namespace {

QString querying()
{
    return QCoreApplication::translate("OnvifInfoDlg", "Querying the camera...");
}

QString refused()
{
    return QCoreApplication::translate("OnvifInfoDlg", "The camera refused the user name or password.");
}

} // namespace

void InfoDlgExtras::started(int parts, const QString& login, const QString& password, const QString& url)
{
    m_pending = parts;
    m_failure.clear();
    m_login = login;
    m_password = password;
    m_url = url;
    m_probe.reset();
    m_media2.reset();
    m_media2Tokens.clear();
    setStatus(querying());
}

void InfoDlgExtras::addMedia2Profiles(const QVector<Onvif::OnvifProfileInfo>& media1,
    const std::function<void(const QVector<Onvif::OnvifProfileInfo>&)>& done)
{
    if (!m_media2Shown || m_media2)
        return;
    QStringList known;
    for (const Onvif::OnvifProfileInfo& p : media1)
        known.append(p.token);
    // Deleted with the next query or the dialog: its futures then cancel and nothing arrives.
    m_media2 = std::make_unique<Onvif::Camera>(QUrl(m_url), m_login, m_password);
    Onvif::Camera* camera = m_media2.get();
    auto* opened = new QFutureWatcher<Onvif::CameraConnection>(this);
    connect(opened, &QFutureWatcherBase::finished, this, [this, opened, camera, known, done] {
        opened->deleteLater();
        if (m_media2.get() != camera || opened->isCanceled()
            || camera->connection().services.media2.isEmpty())
            return;
        auto* listed = new QFutureWatcher<QVector<Onvif::CameraProfile>>(this);
        connect(listed, &QFutureWatcherBase::finished, this, [this, listed, camera, known, done] {
            listed->deleteLater();
            if (m_media2.get() != camera || listed->isCanceled())
                return;
            QVector<Onvif::OnvifProfileInfo> added;
            for (const Onvif::CameraProfile& c : listed->result()) {
                if (known.contains(c.token) || c.videoEncoding.isEmpty())
                    continue;
                Onvif::OnvifProfileInfo p;
                p.token = c.token;
                p.uri = c.streamUri;
                p.encoderToken = c.videoEncoderToken;
                p.encoding = c.videoEncoding;
                p.width = c.width;
                p.height = c.height;
                p.frameRate = c.frameRate;
                p.hasH264 = c.videoEncoding == QLatin1String("H264");
                p.govLength = c.govLength;
                p.h264Profile = p.hasH264 ? c.videoProfile : QString();
                p.hasAudio = !c.audioEncoding.isEmpty();
                p.audioEncoding = c.audioEncoding;
                p.audioBitrate = c.audioBitrateKbps;
                p.audioSampleRate = c.audioSampleRateKHz;
                m_media2Tokens.append(p.token);
                added.append(p);
            }
            if (!added.isEmpty())
                done(added);
        });
        listed->setFuture(camera->profiles(Onvif::CameraOptions::MediaService::Media2));
    });
    opened->setFuture(camera->open());
}

void InfoDlgExtras::classify()
{
    if (m_probe)
        return;
    m_probe = std::make_unique<Onvif::Requests>(m_login, m_password, m_url, false);
    auto* watcher = new QFutureWatcher<Onvif::DeviceInfo>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (m_probe && m_probe->isAuthFault()) {
            m_failure = refused();
            if (m_pending == 0)
                setStatus(m_failure);
        }
    });
    watcher->setFuture(m_probe->deviceInfo());
}

void InfoDlgExtras::finished(bool ok, unsigned int code, const QString& text)
{
    if (m_pending == 0)
        return;
    --m_pending;
    if (!ok && m_failure.isEmpty()) {
        // Code 1: a SOAP fault with its text; 3: a network error number or "timeout".
        const int number = text.toInt();
        if (code == 1 && text.contains(QLatin1String("NotAuthorized"), Qt::CaseInsensitive)) {
            m_failure = refused();
        } else if (code == 3 && number >= QNetworkReply::ContentAccessDenied
            && number <= QNetworkReply::AuthenticationRequiredError) {
            m_failure = refused();
        } else if (code == 3 && (text == QLatin1String("timeout") || number < 100)) {
            m_failure
                = QCoreApplication::translate("OnvifInfoDlg", "The camera did not answer (%1).")
                      .arg(text == QLatin1String("timeout")
                              ? QCoreApplication::translate("OnvifInfoDlg", "no answer in time")
                              : QCoreApplication::translate("OnvifInfoDlg", "network error %1").arg(number));
        } else if (code == 1) {
            m_failure = QCoreApplication::translate("OnvifInfoDlg", "The camera answered with a fault: %1")
                            .arg(text.trimmed());
        } else if (code == 3) {
            // An HTTP error: these objects do not read its body, where a camera tells a refused login.
            m_failure
                = QCoreApplication::translate("OnvifInfoDlg", "The camera refused the request (error %1).")
                      .arg(number);
            classify();
        } else {
            m_failure = QCoreApplication::translate("OnvifInfoDlg", "The query failed: %1").arg(text);
        }
    }
    setStatus(m_pending > 0 ? querying() : m_failure);
}

} // namespace Internal
} // namespace Onvif
