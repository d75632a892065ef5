#ifndef ONVIFTYPES_DIALOG_INFODLGEXTRAS_P_H
#define ONVIFTYPES_DIALOG_INFODLGEXTRAS_P_H

#include <QImage>
#include <QObject>
#include <QPointer>

#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/session/camera.h>

#include <functional>

#include <memory>

#include <QLabel>
class QPushButton;
class QTreeWidget;
class QVBoxLayout;

namespace Onvif {
namespace Internal {

// What the dialog does beyond its fixed form, kept apart from it: the picture letterboxed to the
// label (the label stretches whatever it shows) and redone on resize, a Copy action for values,
// and, when asked for, a status line that tells a query under way and why one failed.
class InfoDlgExtras : public QObject
{
    Q_OBJECT

public:
    InfoDlgExtras(
        QObject* parent, QTreeWidget* tree, QLabel* image, QPushButton* button, QVBoxLayout* column);

    void showPicture(const QImage& picture);
    void setStatusShown(bool shown);
    bool statusShown() const { return m_status != nullptr; }
    // A query of the device information and the profile list began; each ends with one
    // finished() call.
    void started(int parts, const QString& login, const QString& password, const QString& url);
    void finished(bool ok, unsigned int code, const QString& text);

    // Profiles that only the Media2 service lists (H.265 ones, often), asked when shown: done
    // gets those whose tokens the Media list lacked, once per query.
    void setMedia2ProfilesShown(bool shown) { m_media2Shown = shown; }
    bool media2ProfilesShown() const { return m_media2Shown; }
    void addMedia2Profiles(const QVector<Onvif::OnvifProfileInfo>& media1,
        const std::function<void(const QVector<Onvif::OnvifProfileInfo>&)>& done);
    bool isMedia2Only(const QString& token) const { return m_media2Tokens.contains(token); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void copyCurrent();
    void setStatus(const QString& text);
    // The objects report an HTTP error without its body, where cameras say a password is wrong:
    // asked once more in a way that tells.
    void classify();

    QTreeWidget* m_tree;
    QLabel* m_image;
    QPushButton* m_button;
    QVBoxLayout* m_column;
    QPointer<QLabel> m_status;
    QImage m_picture;
    int m_pending = 0;
    QString m_failure;
    QString m_login, m_password, m_url;
    std::unique_ptr<Onvif::Requests> m_probe;
    bool m_media2Shown = false;
    std::unique_ptr<Onvif::Camera> m_media2;
    QStringList m_media2Tokens;
};

} // namespace Internal
} // namespace Onvif

#endif // ONVIFTYPES_DIALOG_INFODLGEXTRAS_P_H
