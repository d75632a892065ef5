// Events that keep flowing: the pull-point manager against the simulator's subscription quirks,
// and the notification reader against real pull answers.
#include "futureWait.h"
#include "simCamera.h"

#include <onvifTypes/events/notificationListener.h>
#include <onvifTypes/events/pullPointSubscription.h>
#include <onvifTypes/events/pushSubscription.h>
#include <onvifTypes/onvifNetworkAccessManager.h>

#include <QNetworkReply>
#include <onvifTypes/session/camera.h>

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QtTest>

namespace {
template <typename T> T resultOf(const QFuture<T>& future)
{
    return waitForFuture(future, 20000) && !future.isCanceled() ? future.result() : T();
}
} // namespace

class TestPullPoint : public QObject
{
    Q_OBJECT

private slots:
    void readsRealAnswers();
    void keepsFlowing_data();
    void keepsFlowing();
    void givesUpWithinTheBound();
    void stopUnsubscribesUnlessKept();
    void pushedEventsKeepFlowing_data();
    void pushedEventsKeepFlowing();
    void listenerTakesOnlyItsOwn();
};

void TestPullPoint::readsRealAnswers()
{
    const QString fixtures = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real/onvif-nvt/");
    if (!QFileInfo::exists(fixtures))
        QSKIP("captured camera replies (../shared/fixtures) are not present");
    QFile pelco(fixtures + "pelco/events/PullMessages.Response.xml");
    QVERIFY(pelco.open(QIODevice::ReadOnly));
    QString error;
    QDateTime now, end;
    const QVector<Onvif::Event> events
        = Onvif::readNotifications(QString::fromUtf8(pelco.readAll()), &error, &now, &end);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(events.size(), 10);
    const Onvif::Event& first = events.first();
    // The topic's prefix is declared on the Topic element itself.
    QCOMPARE(first.topic, QStringLiteral("tns1:Monitoring/ProcessorUsage"));
    QCOMPARE(first.topicNamespace, QStringLiteral("http://www.onvif.org/ver10/topics"));
    QCOMPARE(first.topicPath, QStringLiteral("Monitoring/ProcessorUsage"));
    QCOMPARE(first.operation, QStringLiteral("Initialized"));
    QCOMPARE(first.utcTime, QDateTime({ 2018, 2, 27 }, { 18, 27, 56, 71 }, Qt::UTC));
    QCOMPARE(first.source, (Onvif::Event::Items { { "Token", "cpu" } }));
    QCOMPARE(first.data, (Onvif::Event::Items { { "Value", "0.44" } }));
    QCOMPARE(events[1].topicPath, QStringLiteral("Monitoring/LinkStatus"));
    QVERIFY2(events[1].data.value(0).second.contains(QLatin1String("<tt:Speed>100</tt:Speed>")),
        qPrintable(events[1].data.value(0).second));
    QCOMPARE(now.msecsTo(end), 90000 - 1); // 18:27:56.135641 to 18:29:26.135423

    QFile hikvision(fixtures + "hikvision/events/PullMessages.Response.xml");
    QVERIFY(hikvision.open(QIODevice::ReadOnly));
    QVERIFY(Onvif::readNotifications(QString::fromUtf8(hikvision.readAll()), &error).isEmpty());
    QVERIFY(error.isEmpty());
    QVERIFY(Onvif::readNotifications(QStringLiteral("<a><b>"), &error).isEmpty() && !error.isEmpty());
}

void TestPullPoint::keepsFlowing_data()
{
    QTest::addColumn<QString>("quirk");
    QTest::newRow("plain") << QString();
    QTest::newRow("early expiry") << QStringLiteral("subscription-early-expiry");
    QTest::newRow("renew refused") << QStringLiteral("renew-refused");
    QTest::newRow("reboots") << QStringLiteral("reboot");
}

// Events every 100 ms through every loss the quirk causes: no gap longer than the recovery time
// (a lost pull, the first pause and a new subscription), and new subscriptions within the bound.
void TestPullPoint::keepsFlowing()
{
    QFETCH(QString, quirk);
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    if (!quirk.isEmpty())
        QVERIFY(config.applyQuirk(quirk));
    config.eventIntervalMs = 100;
    config.rebootAfterMs = 1500;
    const auto sim = startCamera(config);
    Onvif::Camera camera(QUrl(sim->deviceUrl()), config.user, config.password);
    QVERIFY(resultOf(camera.open()).ok());

    Onvif::PullPointSubscription::Options options;
    options.pullTimeoutSeconds = 1;
    options.terminationSeconds = 12; // renewed after two seconds
    Onvif::PullPointSubscription events(&camera, options);
    QVector<qint64> arrivals;
    QElapsedTimer clock;
    clock.start();
    connect(&events, &Onvif::PullPointSubscription::event, this, [&] { arrivals.append(clock.elapsed()); });
    QSignalSpy lost(&events, &Onvif::PullPointSubscription::lost);
    QSignalSpy failed(&events, &Onvif::PullPointSubscription::failed);
    events.start();
    QTRY_VERIFY_WITH_TIMEOUT(arrivals.size() >= 50 || !failed.isEmpty(), 30000);
    events.stop();
    QVERIFY2(failed.isEmpty(), failed.isEmpty() ? "" : qPrintable(failed.first().first().toString()));
    qint64 gap = arrivals.first();
    for (int i = 1; i < arrivals.size(); ++i)
        gap = qMax(gap, arrivals[i] - arrivals[i - 1]);
    const qint64 recovery = 1000 + options.initialBackoffMs + 1500;
    QVERIFY2(gap < recovery, qPrintable(QStringLiteral("gap %1 ms").arg(gap)));
    QCOMPARE(lost.isEmpty(), quirk.isEmpty());
    QVERIFY(lost.size() <= options.maxRecreatesPerWindow);
    QCOMPARE(sim->stats().failedLogins, 0);
}

void TestPullPoint::givesUpWithinTheBound()
{
    const auto sim = startCamera();
    sim->setFault(QStringLiteral("CreatePullPointSubscription"), faultOf(CameraSim::FaultMode::SoapFault));
    Onvif::Camera camera(QUrl(sim->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(resultOf(camera.open()).ok());
    Onvif::PullPointSubscription::Options options;
    options.initialBackoffMs = 10;
    options.maxRecreatesPerWindow = 3;
    Onvif::PullPointSubscription events(&camera, options);
    QSignalSpy failed(&events, &Onvif::PullPointSubscription::failed);
    events.start();
    QVERIFY(failed.wait(10000));
    QVERIFY(!events.isRunning());
    // The first try and three new ones, then nothing more.
    QCOMPARE(sim->requestsFor(QStringLiteral("CreatePullPointSubscription")).size(), 4);
    QTest::qWait(200);
    QCOMPARE(sim->requestsFor(QStringLiteral("CreatePullPointSubscription")).size(), 4);
}

void TestPullPoint::stopUnsubscribesUnlessKept()
{
    const auto sim = startCamera();
    Onvif::Camera camera(QUrl(sim->deviceUrl()), QStringLiteral("admin"), QStringLiteral("admin"));
    for (const bool keep : { false, true }) {
        Onvif::PullPointSubscription::Options options;
        options.keepOnStop = keep;
        options.pullTimeoutSeconds = 1;
        Onvif::PullPointSubscription events(&camera, options); // opens the session itself
        QSignalSpy subscribed(&events, &Onvif::PullPointSubscription::subscribed);
        QSignalSpy stopped(&events, &Onvif::PullPointSubscription::stopped);
        const int before = sim->subscriptionCount();
        events.start();
        QVERIFY(subscribed.wait(10000));
        QCOMPARE(sim->subscriptionCount(), before + 1);
        events.stop();
        QVERIFY(!stopped.isEmpty() || stopped.wait(10000));
        QCOMPARE(sim->subscriptionCount(), keep ? before + 1 : before);
    }
}

void TestPullPoint::pushedEventsKeepFlowing_data()
{
    QTest::addColumn<QString>("quirk");
    QTest::newRow("plain") << QString();
    QTest::newRow("early expiry") << QStringLiteral("subscription-early-expiry");
    QTest::newRow("renew refused") << QStringLiteral("renew-refused");
}

// Pushed to a listener on loopback: a camera that forgets the subscription goes quiet, and a
// renewal after a second of silence finds it out; a refused renewal means subscribing again.
void TestPullPoint::pushedEventsKeepFlowing()
{
    QFETCH(QString, quirk);
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    if (!quirk.isEmpty())
        QVERIFY(config.applyQuirk(quirk));
    config.eventIntervalMs = 100;
    const auto sim = startCamera(config);
    Onvif::Camera camera(QUrl(sim->deviceUrl()), config.user, config.password);
    Onvif::NotificationListener listener;
    QVERIFY2(listener.listen(QHostAddress::LocalHost), qPrintable(listener.errorString()));
    Onvif::PushSubscription::Options options;
    // Renewed after a second and a half when it asks for three seconds; the forgetful camera is
    // found out by the silence instead.
    options.terminationSeconds = quirk == QLatin1String("renew-refused") ? 3 : 60;
    options.silenceCheckMs = 1000;
    Onvif::PushSubscription events(&camera, &listener, options);
    QVector<qint64> arrivals;
    QElapsedTimer clock;
    clock.start();
    connect(&events, &Onvif::PushSubscription::event, this, [&](const Onvif::Event& e) {
        QVERIFY(!e.topic.isEmpty());
        arrivals.append(clock.elapsed());
    });
    QSignalSpy lost(&events, &Onvif::PushSubscription::lost);
    QSignalSpy failed(&events, &Onvif::PushSubscription::failed);
    QSignalSpy stopped(&events, &Onvif::PushSubscription::stopped);
    events.start();
    QTRY_VERIFY_WITH_TIMEOUT(arrivals.size() >= 50 || !failed.isEmpty(), 30000);
    QVERIFY2(failed.isEmpty(), failed.isEmpty() ? "" : qPrintable(failed.first().first().toString()));
    qint64 gap = arrivals.first();
    for (int i = 1; i < arrivals.size(); ++i)
        gap = qMax(gap, arrivals[i] - arrivals[i - 1]);
    QVERIFY2(gap < options.silenceCheckMs + options.initialBackoffMs + 1500,
        qPrintable(QStringLiteral("gap %1 ms").arg(gap)));
    QCOMPARE(lost.isEmpty(), quirk.isEmpty());
    events.stop();
    QVERIFY(!stopped.isEmpty() || stopped.wait(10000));
    QTRY_COMPARE(sim->subscriptionCount(), 0); // a subscription given up on is cancelled too
}

void TestPullPoint::listenerTakesOnlyItsOwn()
{
    Onvif::NotificationListener listener;
    listener.setMaxMessageBytes(64 * 1024);
    QVERIFY(listener.listen(QHostAddress::LocalHost));
    listener.addKey(QStringLiteral("mine"));
    QSignalSpy notified(&listener, &Onvif::NotificationListener::notified);
    Onvif::NetworkAccessManager manager;
    const auto post = [&](const QString& key, const QByteArray& body) {
        QNetworkRequest request(listener.consumerUrl(key, QUrl(QStringLiteral("http://127.0.0.1/"))));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/soap+xml"));
        QNetworkReply* reply = manager.post(request, body);
        QSignalSpy done(reply, &QNetworkReply::finished);
        if (!reply->isFinished())
            done.wait(10000);
        reply->deleteLater();
        return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    };
    const QByteArray notify
        = "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\"><e:Body>"
          "<wsnt:Notify xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\"><wsnt:NotificationMessage>"
          "<wsnt:Topic xmlns:tns1=\"http://www.onvif.org/ver10/topics\">tns1:Device/Trigger/Relay"
          "</wsnt:Topic></wsnt:NotificationMessage></wsnt:Notify></e:Body></e:Envelope>";
    QCOMPARE(listener.consumerUrl(QStringLiteral("mine"), QUrl(QStringLiteral("http://127.0.0.1/"))).host(),
        QStringLiteral("127.0.0.1"));
    QCOMPARE(post(QStringLiteral("mine"), notify), 200);
    QTRY_COMPARE(notified.size(), 1);
    QCOMPARE(notified.first().at(1).value<QVector<Onvif::Event>>().first().topicPath,
        QStringLiteral("Device/Trigger/Relay"));
    // Another path, or a message past the bound, is refused and reported to no one.
    QCOMPARE(post(QStringLiteral("other"), notify), 404);
    QCOMPARE(post(QStringLiteral("mine"), QByteArray(70 * 1024, 'x')), 413);
    QTest::qWait(100);
    QCOMPARE(notified.size(), 1);
}

QTEST_GUILESS_MAIN(TestPullPoint)
#include "tst_pullPoint.moc"
