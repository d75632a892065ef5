#include "logCapture.h"

#include <camera.h>

#include <onvifTypes/onvifPreview.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QtTest>

using CameraSim::Camera;

class TestPreview : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void snapshotUriThenImage();
    void snapshotUriFailureEmitsNothing_data();
    void snapshotUriFailureEmitsNothing();
    void nonImageBodyGivesNullImage();
    void failedDownloadEmitsNothing();

private:
    std::unique_ptr<Camera> m_camera;
};

void TestPreview::initTestCase()
{
    // Login and password differ, so that a request signed with them swapped is refused.
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    config.user = QStringLiteral("viewer");
    config.password = QStringLiteral("secret");
    m_camera = std::make_unique<Camera>(config);
    qRegisterMetaType<QNetworkReply*>();
    QVERIFY(m_camera->start());
}

void TestPreview::snapshotUriThenImage()
{
    LogCapture log;
    Onvif::OnvifPreview preview("viewer", "secret", m_camera->serviceUrl(CameraSim::Service::Media));
    QSignalSpy uris(&preview, &Onvif::OnvifPreview::snapshotUri);
    QSignalSpy images(&preview, &Onvif::OnvifPreview::image);
    preview.getSnapshotUri(QStringLiteral("prof_main"));
    QVERIFY(uris.wait(5000));
    const QString uri = uris.at(0).at(0).toString();
    QVERIFY2(uri.startsWith(m_camera->baseUrl()), qPrintable(uri));
    QCOMPARE(images.size(), 0); // the picture is fetched only on request

    preview.downloadImage(uri);
    QVERIFY(images.wait(5000));
    const QImage picture = images.at(0).at(0).value<QImage>();
    QVERIFY(!picture.isNull());
    QVERIFY(picture.width() > 0 && picture.height() > 0);

    const auto sent = m_camera->requestsFor(QStringLiteral("GetSnapshotUri")).last();
    QVERIFY(sent.body.contains("<trt:ProfileToken>prof_main</trt:ProfileToken>"));
    QCOMPARE(m_camera->requestsFor(QStringLiteral("Snapshot")).last().method, QStringLiteral("GET"));
    // The request's log line is a fixed text, credentials included.
    bool logged = false;
    for (const auto& r : log.records())
        logged |= r.clsName == QLatin1String("OnvifPreview")
            && r.message.contains(
                QLatin1String("Request snapshot uri. Login: viewer; Pass: secret; OnvifUrl: "));
    QVERIFY(logged);
}

void TestPreview::snapshotUriFailureEmitsNothing_data()
{
    QTest::addColumn<bool>("fault");
    // Delivered with HTTP 200, as some devices do; over an error status it is the fault matrix's.
    QTest::newRow("fault over HTTP 200") << true;
    QTest::newRow("no URL") << false;
}

void TestPreview::snapshotUriFailureEmitsNothing()
{
    QFETCH(bool, fault);
    LogCapture log;
    QNetworkAccessManager manager;
    Onvif::OnvifPreview preview(&manager);
    QSignalSpy uris(&preview, &Onvif::OnvifPreview::snapshotUri);
    QSignalSpy answered(&manager, &QNetworkAccessManager::finished);
    if (fault) {
        CameraSim::FaultSpec spec;
        spec.mode = CameraSim::FaultMode::SoapFault;
        spec.count = 1;
        spec.httpStatus = 200;
        m_camera->setFault(QStringLiteral("GetSnapshotUri"), spec);
        preview.getSnapshotUri("viewer", "secret", m_camera->deviceUrl(), QStringLiteral("prof_main"));
    } else {
        preview.getSnapshotUri(QStringLiteral("prof_main"));
    }
    QVERIFY(answered.wait(5000));
    QCoreApplication::processEvents(); // the preview's own slot runs after the manager's signal
    QCOMPARE(uris.size(), 0);
    const QString logged = log.withSeverity(4).value(0).message;
    QVERIFY2(!fault
            || (logged.contains(QLatin1String("getSnapshotUri response has error:\nFault detail:  Code: "))
                && logged.contains(QLatin1String("; Reason: Simulated fault"))),
        qPrintable(logged));
}

void TestPreview::nonImageBodyGivesNullImage()
{
    CameraSim::FaultSpec notAnImage;
    notAnImage.mode = CameraSim::FaultMode::Malformed;
    notAnImage.count = 1;
    m_camera->setFault(QStringLiteral("Snapshot"), notAnImage);
    Onvif::OnvifPreview preview("admin", "admin", m_camera->deviceUrl());
    QSignalSpy images(&preview, &Onvif::OnvifPreview::image);
    preview.downloadImage(m_camera->baseUrl() + QStringLiteral("/snapshot/prof_main.jpg"));
    QVERIFY(images.wait(5000));
    QVERIFY(images.at(0).at(0).value<QImage>().isNull());
}

void TestPreview::failedDownloadEmitsNothing()
{
    LogCapture log;
    Onvif::OnvifPreview preview("admin", "admin", m_camera->deviceUrl());
    QSignalSpy images(&preview, &Onvif::OnvifPreview::image);
    preview.downloadImage(m_camera->baseUrl() + QStringLiteral("/snapshot/no_such_profile.jpg"));
    QTRY_VERIFY_WITH_TIMEOUT(!log.withSeverity(4).isEmpty(), 5000);
    QVERIFY(log.withSeverity(4).first().message.contains(QLatin1String("Error with code: ")));
    QCOMPARE(images.size(), 0);
}

QTEST_GUILESS_MAIN(TestPreview)
#include "tst_preview.moc"
