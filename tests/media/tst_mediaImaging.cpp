// The session's media interface (Media2 where offered, else Media) and its imaging operations,
// against the simulator.
#include "futureWait.h"
#include "simCamera.h"

#include <onvifTypes/session/camera.h>

#include <QtTest>

using Onvif::CameraError;
using Onvif::CameraOptions;
using Media = Onvif::CameraOptions::MediaService;

namespace {

template <typename T> T resultOf(const QFuture<T>& future)
{
    if (!waitForFuture(future, 20000) || future.isCanceled())
        return T();
    return future.result();
}

bool done(const QFuture<void>& future)
{
    return waitForFuture(future, 20000) && !future.isCanceled();
}

// Which service each request of an operation reached, in order ("media", "media2").
QStringList servicesAsked(const CameraSim::Camera& sim, const QString& operation)
{
    QStringList services;
    for (const CameraSim::RequestRecord& r : sim.requestsFor(operation))
        services << (r.body.contains("http://www.onvif.org/ver20/media/wsdl") ? "media2" : "media");
    return services;
}

const Onvif::CameraProfile* find(const QVector<Onvif::CameraProfile>& list, const QString& token)
{
    for (const Onvif::CameraProfile& p : list) {
        if (p.token == token)
            return &p;
    }
    return nullptr;
}

std::unique_ptr<Onvif::Camera> openedSession(const CameraSim::Camera& sim, Media media = Media::Automatic)
{
    CameraOptions options;
    options.mediaService = media;
    auto camera = std::make_unique<Onvif::Camera>(QUrl(sim.deviceUrl()), "admin", "admin", options);
    const Onvif::CameraConnection opened = resultOf(camera->open());
    if (!opened.ok())
        qWarning() << "open failed:" << opened.message;
    return camera;
}

} // namespace

class TestMediaImaging : public QObject
{
    Q_OBJECT

private slots:
    void mediaService_data();
    void mediaService();
    void media2FailureFallsBackToMedia();
    void imagingRoundTrip();
    void imagingOutOfRange();
    void focus();
};

void TestMediaImaging::mediaService_data()
{
    QTest::addColumn<bool>("media2Offered");
    QTest::addColumn<QStringList>("quirks");
    QTest::addColumn<int>("media"); // Media
    QTest::addColumn<QString>("servedBy"); // the service the profiles came from; empty: the call fails

    QTest::newRow("both offered, automatic") << true << QStringList() << int(Media::Automatic) << "media2";
    QTest::newRow("both offered, Media forced") << true << QStringList() << int(Media::Media1) << "media";
    QTest::newRow("Media only, automatic") << false << QStringList() << int(Media::Automatic) << "media";
    QTest::newRow("Media only, Media2 forced") << false << QStringList() << int(Media::Media2) << "";
    QTest::newRow("Media2 only, automatic")
        << true << QStringList { "media2-only" } << int(Media::Automatic) << "media2";
    QTest::newRow("Media2 only, Media forced")
        << true << QStringList { "media2-only" } << int(Media::Media1) << "";
}

void TestMediaImaging::mediaService()
{
    QFETCH(bool, media2Offered);
    QFETCH(QStringList, quirks);
    QFETCH(int, media);
    QFETCH(QString, servedBy);
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    config.media2Capability = media2Offered;
    for (const QString& quirk : quirks)
        QVERIFY(config.applyQuirk(quirk));
    const auto sim = startCamera(config);
    const auto camera = openedSession(*sim, Media(media));

    const QFuture<QVector<Onvif::CameraProfile>> listed = camera->profiles();
    const QVector<Onvif::CameraProfile> profiles = resultOf(listed);
    if (servedBy.isEmpty()) {
        QVERIFY(listed.isCanceled());
        QVERIFY(camera->lastResult().error == CameraError::NotSupported
            || camera->lastResult().error == CameraError::DeviceFault);
        return;
    }
    QCOMPARE(servicesAsked(*sim, "GetProfiles"), QStringList { servedBy });
    QCOMPARE(
        servicesAsked(*sim, "GetStreamUri").filter(servedBy).size(), sim->requestsFor("GetStreamUri").size());
    const bool media2 = servedBy == QLatin1String("media2");
    for (const Onvif::CameraProfile& p : profiles)
        QCOMPARE(p.fromMedia2, media2);

    // The H.265 profile exists only in Media2; the H.264 one in both, with the same URI.
    const Onvif::CameraProfile* h265 = find(profiles, "profile_h265");
    QCOMPARE(h265 != nullptr, media2);
    if (h265) {
        QCOMPARE(h265->videoEncoding, QStringLiteral("H265"));
        QCOMPARE(QString("%1x%2 %3 fps GOP %4 %5")
                     .arg(h265->width)
                     .arg(h265->height)
                     .arg(h265->frameRate)
                     .arg(h265->govLength)
                     .arg(h265->videoProfile),
            QStringLiteral("2560x1440 25 fps GOP 50 Main"));
        QVERIFY(h265->streamUri.startsWith("rtsp://127.0.0.1"));
        QVERIFY(!h265->videoSourceToken.isEmpty());
        const Onvif::Snapshot picture = resultOf(camera->snapshot("profile_h265"));
        QVERIFY(picture.bytes.startsWith("\xff\xd8"));
        const QString tunnel
            = resultOf(camera->streamUri("profile_h265", Onvif::StreamTransport::RtspOverHttp));
        QVERIFY2(tunnel.startsWith(sim->baseUrl()), qPrintable(tunnel));
    }
    const Onvif::CameraProfile* main = find(profiles, "prof_main");
    QVERIFY(main);
    QCOMPARE(main->videoEncoding, QStringLiteral("H264"));
    QCOMPARE(main->streamUri, QStringLiteral("rtsp://127.0.0.1:554/prof_main"));
    QCOMPARE(main->videoProfile, QStringLiteral("High"));
    QVERIFY(main->govLength > 0);
}

void TestMediaImaging::media2FailureFallsBackToMedia()
{
    const auto sim = startCamera();
    const auto camera = openedSession(*sim);
    sim->setFault("GetProfiles", faultOf(CameraSim::FaultMode::SoapFault, 1));
    const QVector<Onvif::CameraProfile> profiles = resultOf(camera->profiles());
    QCOMPARE(servicesAsked(*sim, "GetProfiles"), (QStringList { "media2", "media" }));
    QVERIFY(find(profiles, "prof_main"));
    QVERIFY(!find(profiles, "profile_h265"));

    // A lost connection is no Media2 problem: Media would not answer either.
    sim->clearRequestLog();
    sim->setFault("GetProfiles", faultOf(CameraSim::FaultMode::Drop, 1));
    const QFuture<QVector<Onvif::CameraProfile>> lost = camera->profiles();
    resultOf(lost);
    QVERIFY(lost.isCanceled());
    QCOMPARE(servicesAsked(*sim, "GetProfiles"), QStringList { "media2" });
}

void TestMediaImaging::imagingRoundTrip()
{
    const auto sim = startCamera();
    const auto camera = openedSession(*sim);
    const QString source = resultOf(camera->profiles()).value(0).videoSourceToken;
    QVERIFY(!source.isEmpty());

    const Onvif::ImagingOptions options = resultOf(camera->imagingOptions(source));
    QCOMPARE(options.sharpness.max, 15.0);
    QVERIFY(options.irCutFilterModes.contains("OFF"));

    Onvif::ImagingSettings change;
    change.brightness = 30;
    change.sharpness = 40; // past the device's 15: clamped
    change.irCutFilter = "OFF";
    change.whiteBalanceMode = "MANUAL";
    change.crGain = 120;
    const Onvif::ImagingSettings sent = resultOf(camera->setImagingSettings(source, change));
    QCOMPARE(sent.sharpness, 15.0);

    const Onvif::ImagingSettings now = resultOf(camera->imagingSettings(source));
    QCOMPARE(now.brightness, 30.0);
    QCOMPARE(now.sharpness, 15.0);
    QCOMPARE(now.irCutFilter, QStringLiteral("OFF"));
    QCOMPARE(now.whiteBalanceMode, QStringLiteral("MANUAL"));
    QCOMPARE(now.crGain, 120.0);
    // What the change left alone stays as it was.
    QVERIFY(!qIsNaN(now.contrast));
    QCOMPARE(now.contrast, resultOf(camera->imagingSettings(source)).contrast);
}

void TestMediaImaging::imagingOutOfRange()
{
    const auto sim = startCamera();
    const auto camera = openedSession(*sim);
    const QString source = resultOf(camera->profiles()).value(0).videoSourceToken;
    const Onvif::ImagingSettings before = resultOf(camera->imagingSettings(source));

    struct Case
    {
        Onvif::ImagingSettings change;
        Onvif::Camera::OutOfRangePolicy policy;
        const char* named;
    };
    Onvif::ImagingSettings sharp, mode;
    sharp.sharpness = 40;
    sharp.brightness = 10;
    mode.irCutFilter = "FOO";
    for (const Case& c : { Case { sharp, Onvif::Camera::OutOfRangePolicy::Refuse, "sharpness 40" },
             Case { mode, Onvif::Camera::OutOfRangePolicy::Clamp, "IR cut filter mode FOO" } }) {
        const QFuture<Onvif::ImagingSettings> set = camera->setImagingSettings(source, c.change, c.policy);
        resultOf(set);
        QVERIFY(set.isCanceled());
        QCOMPARE(camera->lastResult().error, CameraError::OutOfRange);
        QVERIFY2(camera->lastResult().message.contains(c.named), qPrintable(camera->lastResult().message));
    }
    QCOMPARE(sim->requestsFor("SetImagingSettings").size(), 0);
    QCOMPARE(resultOf(camera->imagingSettings(source)).brightness, before.brightness);

    // A device without the service: a clear error, nothing sent.
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    config.imagingCapability = false;
    const auto plain = startCamera(config);
    const auto session = openedSession(*plain);
    const QFuture<Onvif::ImagingSettings> none = session->imagingSettings(source);
    resultOf(none);
    QVERIFY(none.isCanceled());
    QCOMPARE(session->lastResult().error, CameraError::NotSupported);
}

void TestMediaImaging::focus()
{
    const auto sim = startCamera();
    const auto camera = openedSession(*sim);
    const QString source = resultOf(camera->profiles()).value(0).videoSourceToken;

    QVERIFY(done(camera->focusAbsolute(source, 0.25)));
    QCOMPARE(resultOf(camera->focusStatus(source)).position, 0.25);
    QVERIFY(done(camera->focusRelative(source, 0.5)));
    QCOMPARE(resultOf(camera->focusStatus(source)).position, 0.75);
    QVERIFY(done(camera->focusContinuous(source, -0.5)));
    QCOMPARE(resultOf(camera->focusStatus(source)).moveStatus, QStringLiteral("MOVING"));
    QVERIFY(done(camera->focusStop(source)));
    QCOMPARE(resultOf(camera->focusStatus(source)).moveStatus, QStringLiteral("IDLE"));
    // Outside the device's range: its fault, passed on.
    const QFuture<void> far = camera->focusAbsolute(source, 7);
    QVERIFY(!done(far));
    QCOMPARE(camera->lastResult().error, CameraError::DeviceFault);
}

QTEST_GUILESS_MAIN(TestMediaImaging)
#include "tst_mediaImaging.moc"
