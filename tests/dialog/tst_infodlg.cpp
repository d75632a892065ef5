// OnvifInfoDlg under the offscreen platform against the simulated camera.

#include "simCamera.h"

#include <camera.h>

#include <onvifTypes/dialog/onvifInfoDlg.h>

#include <QAction>
#include <QBoxLayout>
#include <QCheckBox>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTranslator>
#include <QTreeWidget>
#include <QtTest>

using CameraSim::Camera;
using CameraSim::CameraConfig;
using CameraSim::ProfileConfig;
using CameraSim::VideoEncoder;

namespace {

Onvif::DeviceInfo addressOf(const Camera& camera)
{
    Onvif::DeviceInfo info;
    info.ip = camera.host();
    info.port = QString::number(camera.port());
    info.path = QUrl(camera.deviceUrl()).path();
    return info;
}

VideoEncoder video(const QString& token, const char* encoding, int width, int height)
{
    VideoEncoder v;
    v.token = v.name = token;
    v.encoding = QLatin1String(encoding);
    v.width = width;
    v.height = height;
    return v;
}

ProfileConfig profile(const QString& token, const QString& videoToken, const QString& audioToken = QString())
{
    ProfileConfig p;
    p.token = p.name = token;
    p.videoEncoder = videoToken;
    p.audioEncoder = audioToken;
    return p;
}

// The tree as indented "label = value" lines, in display order.
void dumpItem(const QTreeWidgetItem* item, int depth, QStringList* lines)
{
    QString line = QString(depth * 2, QLatin1Char(' ')) + item->text(0);
    if (item->childCount() == 0)
        line += QStringLiteral(" = ") + item->text(1);
    lines->append(line);
    for (int i = 0; i < item->childCount(); ++i)
        dumpItem(item->child(i), depth + 1, lines);
}

QStringList dump(const QTreeWidget* tree)
{
    QStringList lines;
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        dumpItem(tree->topLevelItem(i), 0, &lines);
    return lines;
}

QList<QTreeWidgetItem*> allItems(const QTreeWidget* tree)
{
    QList<QTreeWidgetItem*> items;
    for (QTreeWidgetItemIterator it(const_cast<QTreeWidget*>(tree)); *it; ++it)
        items.append(*it);
    return items;
}

// The branches (items with children) that are expanded, and the ones that are not.
QPair<int, int> expandedBranches(const QTreeWidget* tree)
{
    QPair<int, int> counts { 0, 0 };
    for (const QTreeWidgetItem* item : allItems(tree)) {
        if (item->childCount() > 0)
            ++(item->isExpanded() ? counts.first : counts.second);
    }
    return counts;
}

QString tokenIn(const QByteArray& body)
{
    const int start = body.indexOf("ProfileToken>") + int(qstrlen("ProfileToken>"));
    return QString::fromUtf8(body.mid(start, body.indexOf('<', start) - start));
}

// A shown dialog for the camera, so that its labels have their laid-out sizes.
struct Dialog
{
    Dialog(const Camera& camera, const QString& password = QStringLiteral("admin"))
        : dlg(QStringLiteral("admin"), password, addressOf(camera))
        , tree(dlg.findChild<QTreeWidget*>("treeInfo"))
        , image(dlg.findChild<QLabel*>("lbImage"))
        , snapshotUri(dlg.findChild<QLabel*>("lbSnapshotUri"))
        , expand(dlg.findChild<QCheckBox*>("cbExpand"))
        , button(dlg.findChild<QPushButton*>("btnConnect"))
    {
        dlg.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dlg));
    }
    // Presses the button and waits until the profiles are in and the identity as well.
    bool pressAndFill(int profileCount)
    {
        QTest::mouseClick(button, Qt::LeftButton);
        return QTest::qWaitFor(
            [&] {
                const auto found = tree->findItems(QStringLiteral("Profiles"), Qt::MatchExactly);
                const auto model
                    = tree->findItems(QStringLiteral("Model"), Qt::MatchExactly | Qt::MatchRecursive);
                return found.size() == 1 && found[0]->childCount() == profileCount && model.size() == 1
                    && !model[0]->text(1).isEmpty();
            },
            10000);
    }

    OnvifInfoDlg dlg;
    QTreeWidget* tree;
    QLabel* image;
    QLabel* snapshotUri;
    QCheckBox* expand;
    QPushButton* button;
};

} // namespace

class TestInfoDlg : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void form();
    void fillsTreeInOrder();
    void snapshotOfFirstLargest_data();
    void snapshotOfFirstLargest();
    void statusCopyPictureAndTranslation();

private:
    std::unique_ptr<Camera> m_camera;
};

void TestInfoDlg::initTestCase()
{
    // The default camera lists its profiles in another order than the largest-first
    // display; its JPEG profile has no H.264 part and its sub stream no audio.
    CameraConfig config = CameraConfig::defaultCamera();
    config.videoEncoders[0].quality = 7.5f; // venc_main: a fraction must show as one
    m_camera = startCamera(config);
}

void TestInfoDlg::form()
{
    Onvif::DeviceInfo info;
    info.ip = QStringLiteral("127.0.0.9");
    info.port = QStringLiteral("8080");
    info.path = QStringLiteral("/onvif/device_service");
    OnvifInfoDlg dlg(QStringLiteral("operator"), QStringLiteral("secret"), info);
    QCOMPARE(dlg.windowTitle(), QStringLiteral("Onvif информация"));

    const QPair<const char*, QString> texts[] = { { "label_4", "Имя пользователя:" },
        { "label_2", "Пароль:" }, { "label_3", "Onvif URL:" }, { "cbExpand", "Expand" },
        { "btnConnect", "Обновить" }, { "lbSnapshotUri", "" }, { "lbImage", "preview" } };
    for (const auto& t : texts)
        QCOMPARE(dlg.findChild<QWidget*>(t.first)->property("text").toString(), t.second);

    // Filled from the constructor's arguments; the password hidden.
    QCOMPARE(dlg.findChild<QLineEdit*>("edtUrl")->text(),
        QStringLiteral("http://127.0.0.9:8080/onvif/device_service"));
    QCOMPARE(
        dlg.findChild<QLineEdit*>("edtLogin")->text() + '/' + dlg.findChild<QLineEdit*>("edtPass")->text(),
        QStringLiteral("operator/secret"));
    QCOMPARE(dlg.findChild<QLineEdit*>("edtPass")->echoMode(), QLineEdit::Password);
    QVERIFY(dlg.findChild<QCheckBox*>("cbExpand")->isChecked());
    QCOMPARE(dlg.findChild<QTreeWidget*>("treeInfo")->topLevelItemCount(), 0);

    // An IPv6 address keeps its brackets; a URL given as such keeps its scheme.
    info.ip = QStringLiteral("fe80::1");
    OnvifInfoDlg v6(QString(), QString(), info);
    QCOMPARE(v6.findChild<QLineEdit*>("edtUrl")->text(),
        QStringLiteral("http://[fe80::1]:8080/onvif/device_service"));
    v6.setDeviceUrl(QUrl(QStringLiteral("https://[fe80::1]:8443/onvif/device_service")));
    QCOMPARE(v6.findChild<QLineEdit*>("edtUrl")->text(),
        QStringLiteral("https://[fe80::1]:8443/onvif/device_service"));

    // Nothing goes out before the button is pressed.
    const int before = m_camera->requestCount();
    Dialog idle(*m_camera);
    QTest::qWait(300);
    QCOMPARE(m_camera->requestCount(), before);
}

void TestInfoDlg::fillsTreeInOrder()
{
    // The constructor's password is wrong: what counts is the edit's text at the press.
    Dialog d(*m_camera, QStringLiteral("wrong"));
    d.dlg.findChild<QLineEdit*>("edtPass")->setText(QStringLiteral("admin"));
    QVERIFY(d.pressAndFill(3));

    const QString port = QString::number(m_camera->port());
    const QStringList expected = { "General", "  IP = 127.0.0.1", "  Onvif port = " + port,
        "  Onvif url = /onvif/device_service", "  Manufacturer = SimCam", "  Model = SC-1000",
        "  Serial number = SIM0000001", "  Hardware id = SIMHW-1", "  Firmware version = 1.0.0", "Profiles",
        "  prof_main", "    Video", "      Encoder token = venc_main", "      Encoding = H264",
        "      Width = 1920", "      Height = 1080", "      Video quality = 7.5",
        "      Video frame rate = 25", "      H.264 profile = High", "      H.264 gov length = 50",
        "      RTSP = rtsp://127.0.0.1:554/prof_main", "    Audio", "      Encoder token = aenc_0",
        "      Encoding = G711", "      Bitrate = 64", "      Sample rate = 8", "  prof_jpeg", "    Video",
        "      Encoder token = venc_jpeg", "      Encoding = JPEG", "      Width = 1280",
        "      Height = 720", "      Video quality = 5", "      Video frame rate = 25",
        "      RTSP = rtsp://127.0.0.1:554/prof_jpeg", "    Audio", "      Encoder token = aenc_0",
        "      Encoding = G711", "      Bitrate = 64", "      Sample rate = 8", "  prof_sub", "    Video",
        "      Encoder token = venc_sub", "      Encoding = H264", "      Width = 640", "      Height = 360",
        "      Video quality = 5", "      Video frame rate = 15", "      H.264 profile = Baseline",
        "      H.264 gov length = 30", "      RTSP = rtsp://127.0.0.1:554/prof_sub" };
    QCOMPARE(dump(d.tree), expected);

    // Values can be edited (to copy them); nothing else can.
    for (const QTreeWidgetItem* item : allItems(d.tree))
        QVERIFY2(
            bool(item->flags() & Qt::ItemIsEditable) == (item->childCount() == 0), qPrintable(item->text(0)));
    QCOMPARE(expandedBranches(d.tree), qMakePair(10, 0));

    d.expand->setChecked(false);
    QCOMPARE(expandedBranches(d.tree), qMakePair(0, 10));

    // Both answers rebuild the tree again, and both keep it collapsed.
    QSignalSpy rebuilt(d.tree->model(), &QAbstractItemModel::modelReset);
    QTest::mouseClick(d.button, Qt::LeftButton);
    QTRY_COMPARE_WITH_TIMEOUT(rebuilt.count(), 2, 10000);
    QCOMPARE(dump(d.tree).size(), 51);
    QCOMPARE(expandedBranches(d.tree), qMakePair(0, 10));

    d.expand->setChecked(true);
    QCOMPARE(expandedBranches(d.tree), qMakePair(10, 0));
}

void TestInfoDlg::snapshotOfFirstLargest_data()
{
    QTest::addColumn<QVector<QSize>>("sizes"); // one profile "p<i>" with an encoder of its own each
    QTest::addColumn<bool>("requested");
    QTest::newRow("two equal largest")
        << QVector<QSize> { { 640, 480 }, { 1920, 1080 }, { 1920, 1080 } } << true;
    QTest::newRow("no resolution") << QVector<QSize> { { 0, 0 } } << false;
}

void TestInfoDlg::snapshotOfFirstLargest()
{
    QFETCH(QVector<QSize>, sizes);
    QFETCH(bool, requested);
    CameraConfig config = CameraConfig::defaultCamera();
    config.videoEncoders.clear();
    config.profiles.clear();
    for (int i = 0; i < sizes.size(); ++i) {
        const QString token = QStringLiteral("p%1").arg(i);
        config.videoEncoders.append(video("v" + token, "H264", sizes[i].width(), sizes[i].height()));
        config.profiles.append(profile(token, "v" + token));
    }
    const auto camera = startCamera(config);
    Dialog d(*camera);
    QVERIFY(d.pressAndFill(sizes.size()));

    if (!requested) {
        QTest::qWait(500);
        QVERIFY(camera->requestsFor(QStringLiteral("GetSnapshotUri")).isEmpty());
        QVERIFY(d.image->pixmap(Qt::ReturnByValue).isNull());
        QCOMPARE(d.snapshotUri->text(), QString());
        return;
    }
    // The stream list may order equal areas either way; the first shown must win.
    const QString first = d.tree->topLevelItem(1)->child(0)->text(0);
    QTRY_VERIFY_WITH_TIMEOUT(!d.image->pixmap(Qt::ReturnByValue).isNull(), 10000);
    const auto asked = camera->requestsFor(QStringLiteral("GetSnapshotUri"));
    QVERIFY(!asked.isEmpty());
    for (const auto& request : asked) {
        QCOMPARE(tokenIn(request.body), first);
        QCOMPARE(request.authResult, QStringLiteral("ok"));
    }
    QCOMPARE(d.snapshotUri->text(), "Snapshot uri: " + camera->baseUrl() + "/snapshot/" + first + ".jpg");
    QCOMPARE(camera->requestsFor(QStringLiteral("Snapshot")).last().path, "/snapshot/" + first + ".jpg");

    // The label stretches its pixmap to its size: the pixmap has that size, and the picture in it
    // keeps its proportions (16:9 here), filling the width with bands above and below.
    const QImage shown = d.image->pixmap(Qt::ReturnByValue).toImage();
    QCOMPARE(shown.size(), d.image->size());
    int top = -1, bottom = -1;
    for (int y = 0; y < shown.height(); ++y) {
        if (qAlpha(shown.pixel(shown.width() / 2, y)) > 0) {
            top = top < 0 ? y : top;
            bottom = y;
        }
    }
    QVERIFY2(top > 0 && qAbs(shown.width() * 9 - (bottom - top + 1) * 16) <= 32,
        qPrintable(QString("%1 to %2 of %3x%4").arg(top).arg(bottom).arg(shown.width()).arg(shown.height())));
}

void TestInfoDlg::statusCopyPictureAndTranslation()
{
    Dialog d(*m_camera, QStringLiteral("wrong"));
    d.dlg.setStatusShown(true);
    auto* status = d.dlg.findChild<QLabel*>("lbStatus");
    QVERIFY(status);
    QTest::mouseClick(d.button, Qt::LeftButton);
    QVERIFY(!d.button->isEnabled());
    QVERIFY2(status->text().contains(QLatin1String("Querying")), qPrintable(status->text()));
    QTRY_VERIFY_WITH_TIMEOUT(d.button->isEnabled(), 10000);
    QTRY_VERIFY2_WITH_TIMEOUT(status->text().contains(QLatin1String("refused the user name or password")),
        qPrintable(status->text()), 10000);

    d.dlg.findChild<QLineEdit*>("edtPass")->setText(QStringLiteral("admin"));
    QVERIFY(d.pressAndFill(3));
    QTRY_VERIFY_WITH_TIMEOUT(d.button->isEnabled(), 10000);
    QVERIFY(status->isHidden());

    // The value users come for is cut in its column: whole in the tooltip, and copied whole.
    QTreeWidgetItem* rtsp
        = d.tree->findItems(QStringLiteral("RTSP"), Qt::MatchExactly | Qt::MatchRecursive).first();
    QCOMPARE(rtsp->toolTip(1), QStringLiteral("rtsp://127.0.0.1:554/prof_main"));
    d.tree->setCurrentItem(rtsp);
    d.tree->actions().first()->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("rtsp://127.0.0.1:554/prof_main"));

    // Resized, the picture is laid out again from the original.
    QTRY_VERIFY_WITH_TIMEOUT(!d.image->pixmap(Qt::ReturnByValue).isNull(), 10000);
    d.image->setFixedSize(200, 500);
    QTRY_COMPARE(d.image->pixmap(Qt::ReturnByValue).size(), QSize(200, 500));

    // Every text of the tree goes through the translator, with the English as the source.
    struct German : QTranslator
    {
        QString translate(const char* context, const char* source, const char*, int) const override
        {
            return qstrcmp(context, "OnvifInfoDlg") == 0 && qstrcmp(source, "Serial number") == 0
                ? QStringLiteral("Seriennummer")
                : QString();
        }
    } german;
    QCoreApplication::installTranslator(&german);
    d.dlg.updateOnvifInfo();
    QCoreApplication::removeTranslator(&german);
    QCOMPARE(d.tree->topLevelItem(0)->child(5)->text(0), QStringLiteral("Seriennummer"));
}

QTEST_MAIN(TestInfoDlg)
#include "tst_infodlg.moc"
