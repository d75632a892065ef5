// onvif-cli dialog: the library's device information dialog for one camera.
#include "commands.h"

#include <onvifTypes/dialog/onvifInfoDlg.h>

#include <QLabel>
#include <QPixmap>
#include <QScreen>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

namespace Cli {

namespace {

QTreeWidgetItem* findRow(QTreeWidget* tree, const QString& label)
{
    const auto found = tree->findItems(label, Qt::MatchExactly | Qt::MatchRecursive);
    return found.isEmpty() ? nullptr : found.first();
}

// Filled: the camera's identity, every video profile it lists and the preview are all in.
bool isFilled(QTreeWidget* tree, QLabel* image, const QStringList& videoProfiles)
{
    const QTreeWidgetItem* model = findRow(tree, QStringLiteral("Model"));
    const QTreeWidgetItem* profiles = findRow(tree, QStringLiteral("Profiles"));
    if (!model || model->text(1).isEmpty() || !profiles || profiles->childCount() == 0
        || image->pixmap(Qt::ReturnByValue).isNull())
        return false;
    for (const QString& token : videoProfiles) {
        if (!findRow(tree, token))
            return false;
    }
    return true;
}

void printShown(QTreeWidget* tree, QLabel* snapshotUri, QLabel* image)
{
    for (QTreeWidgetItemIterator it(tree); *it; ++it) {
        int depth = 0;
        for (const QTreeWidgetItem* up = (*it)->parent(); up; up = up->parent())
            ++depth;
        QString line = QString(depth * 2, QLatin1Char(' ')) + (*it)->text(0);
        if ((*it)->childCount() == 0)
            line += QStringLiteral(": ") + (*it)->text(1);
        printLine(line);
    }
    printLine(snapshotUri->text());
    const QSize shown = image->pixmap(Qt::ReturnByValue).size();
    printLine(QStringLiteral("Preview: %1x%2").arg(shown.width()).arg(shown.height()));
}

} // namespace

int dialog(const Context& context)
{
    Onvif::DeviceInfo info;
    info.ip = context.url.host();
    info.port = QString::number(context.url.port(context.url.scheme() == QLatin1String("https") ? 443 : 80));
    info.path = context.url.path();
    OnvifInfoDlg dlg(context.options.user, context.options.password, info);
    dlg.setStatusShown(true); // a person at the screen should see it working, and why it failed
    dlg.setMedia2ProfilesShown(true);
    dlg.setDeviceUrl(context.url);
    dlg.show();
    // Whoever opens it from the command line wants the answer: ask at once.
    dlg.runUpdateOnvifInfo();

    // For scripts and tests: ONVIF_CLI_DIALOG_EXIT=filled closes the dialog once it is
    // filled (or --timeout passes) and prints what it showed; ONVIF_CLI_DIALOG_GRAB=FILE
    // saves a screen grab of the filled dialog before that.
    if (qEnvironmentVariable("ONVIF_CLI_DIALOG_EXIT") != QLatin1String("filled")) {
        dlg.exec();
        return Ok;
    }

    auto* tree = dlg.findChild<QTreeWidget*>(QStringLiteral("treeInfo"));
    auto* image = dlg.findChild<QLabel*>(QStringLiteral("lbImage"));
    auto* snapshotUri = dlg.findChild<QLabel*>(QStringLiteral("lbSnapshotUri"));
    context.log->clear();
    // What the device lists, Media2 included, as the dialog should end up showing it.
    QStringList videoProfiles;
    const auto session = context.camera();
    QVector<Onvif::CameraProfile> listed;
    int ignored = Ok;
    if (context.loadProfiles(*session, &listed, &ignored)) {
        for (const Onvif::CameraProfile& p : qAsConst(listed)) {
            if (!p.videoEncoding.isEmpty())
                videoProfiles << p.token;
        }
    }
    if (!awaitCondition([&] { return isFilled(tree, image, videoProfiles); }, context.options.timeoutMs,
            QStringLiteral("the dialog to fill"))) {
        const QString reason = context.log->lastError().trimmed();
        printError(QStringLiteral("dialog: not filled within %1 s%2")
                       .arg(context.options.timeoutMs / 1000.0)
                       .arg(reason.isEmpty() ? QString() : QStringLiteral(" (") + reason + ')'));
        return Unreachable;
    }
    const QString grabFile = qEnvironmentVariable("ONVIF_CLI_DIALOG_GRAB");
    if (!grabFile.isEmpty()) {
        // Let the last answers reach the screen before it is read back.
        awaitCondition([] { return false; }, 500, QString());
        QPixmap shot = dlg.screen()->grabWindow(dlg.winId());
        if (shot.isNull())
            shot = dlg.grab(); // platforms without a readable screen, e.g. offscreen
        if (!shot.save(grabFile)) {
            printError(QStringLiteral("dialog: cannot write %1").arg(grabFile));
            return BadArguments;
        }
    }
    printShown(tree, snapshotUri, image);
    dlg.close();
    return Ok;
}

} // namespace Cli
