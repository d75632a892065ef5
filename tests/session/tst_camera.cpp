// The camera session against the simulator's vendor quirks and against real captured replies.
#include "futureWait.h"
#include "simCamera.h"

#include <onvifTypes/session/camera.h>

#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using Onvif::CameraError;
using Onvif::CameraOptions;

namespace {

template <typename T> T resultOf(const QFuture<T>& future, int timeoutMs = 20000)
{
    if (!waitForFuture(future, timeoutMs) || future.isCanceled())
        return T();
    return future.result();
}

// Answers every request with one canned HTTP answer, as a device with a single reply would.
class CannedServer : public QTcpServer
{
public:
    CannedServer(int status, const QByteArray& body)
        : m_answer("HTTP/1.1 " + QByteArray::number(status)
            + " X\r\nContent-Type: application/soap+xml\r\n"
              "Connection: close\r\nContent-Length: "
            + QByteArray::number(body.size()) + "\r\n\r\n" + body)
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    m_seen[socket] += socket->readAll();
                    const QByteArray& in = m_seen[socket];
                    const int end = in.indexOf("\r\n\r\n");
                    const int length
                        = in.mid(in.toLower().indexOf("content-length:") + 15, 12).trimmed().toInt();
                    if (end >= 0 && in.size() >= end + 4 + length) {
                        socket->write(m_answer);
                        socket->disconnectFromHost();
                    }
                });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }
    QUrl url() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(serverPort()));
    }

private:
    QByteArray m_answer;
    QHash<QTcpSocket*, QByteArray> m_seen;
};

} // namespace

class TestCamera : public QObject
{
    Q_OBJECT

private slots:
    void throughQuirks_data();
    void throughQuirks();
    void refusedLoginsAreBounded_data();
    void refusedLoginsAreBounded();
    void unreachableOrNotOnvif();
    void userNameWithMarkup();
    void destroyedMidway();
    void clockFromRealReplies();
};

void TestCamera::throughQuirks_data()
{
    QTest::addColumn<QStringList>("quirks");
    QTest::addColumn<int>("policy");
    QTest::addColumn<qint64>("offsetMs");

    const int automatic = int(CameraOptions::AddressPolicy::Automatic);
    QTest::newRow("plain") << QStringList() << automatic << 0LL;
    QTest::newRow("clock hours off") << QStringList { "clock-skew" } << automatic << 3 * 3600 * 1000LL;
    QTest::newRow("digest only") << QStringList { "digest-only" } << automatic << 0LL;
    QTest::newRow("snapshot behind digest") << QStringList { "snapshot-digest" } << automatic << 0LL;
    QTest::newRow("no GetServices") << QStringList { "no-getservices" } << automatic << 0LL;
    QTest::newRow("nat, rewritten") << QStringList { "nat" } << int(CameraOptions::AddressPolicy::Rewrite)
                                    << 0LL;
    QTest::newRow("nat, found out") << QStringList { "nat" } << automatic << 0LL;
    QTest::newRow("replay cache") << QStringList { "nonce-replay" } << automatic << 0LL;
    QTest::newRow("vendor prefixes") << QStringList { "prefixed-faults", "crlf-odd-prefixes" } << automatic
                                     << 0LL;
}

void TestCamera::throughQuirks()
{
    QFETCH(QStringList, quirks);
    QFETCH(int, policy);
    QFETCH(qint64, offsetMs);
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    for (const QString& quirk : quirks)
        QVERIFY(config.applyQuirk(quirk));
    config.digestNonceLifetimeMs = 400;
    // The private address the camera believes it has: on loopback, where nothing answers.
    config.natHost = QStringLiteral("127.0.0.3");
    config.natPort = closedPort();
    const auto sim = startCamera(config);
    CameraOptions options;
    options.addressPolicy = CameraOptions::AddressPolicy(policy);
    Onvif::Camera camera(QUrl(sim->deviceUrl()), config.user, config.password, options);

    const Onvif::CameraConnection connection = resultOf(camera.open());
    QVERIFY2(connection.ok(), qPrintable(connection.message));
    QCOMPARE(connection.device.serialNumber, config.serialNumber);
    QVERIFY2(
        qAbs(camera.clockOffsetMs() - offsetMs) < 3000, qPrintable(QString::number(camera.clockOffsetMs())));
    QCOMPARE(connection.message.contains(QLatin1String("clock")), offsetMs != 0);
    QCOMPARE(connection.servicesFromCapabilities, quirks.contains("no-getservices"));
    QCOMPARE(connection.addressesRewritten, quirks.contains("nat"));
    QVERIFY(!connection.services.ptz.isEmpty() && !connection.services.events.isEmpty());

    // Every profile, in the device's order, with URIs the client can reach.
    if (quirks.contains("digest-only"))
        QTest::qWait(500); // the first Digest nonce goes stale: it must be renewed, not reported
    const QVector<Onvif::CameraProfile> profiles = resultOf(camera.profiles());
    // Media2 where the device names it (GetCapabilities cannot), with its own H.265 profile.
    QStringList listed, configured;
    for (const Onvif::CameraProfile& p : profiles)
        listed << p.token;
    for (const CameraSim::ProfileConfig& p : config.profiles) {
        if (!p.media2Only || !connection.services.media2.isEmpty())
            configured << p.token;
    }
    QCOMPARE(listed, configured);
    QCOMPARE(QUrl(profiles[0].streamUri).host(), QStringLiteral("127.0.0.1"));
    QCOMPARE(QUrl(profiles[0].snapshotUri).port(), int(sim->port()));
    QVERIFY(profiles.last().videoEncoding.isEmpty());

    const Onvif::Snapshot picture = resultOf(camera.snapshot(profiles[0].token));
    QVERIFY2(picture.bytes.startsWith("\xff\xd8\xff"), qPrintable(camera.lastResult().message));
    QCOMPARE(picture.contentType, QStringLiteral("image/jpeg"));

    QVERIFY(waitForFuture(camera.ptzMove(profiles[0].token, 0.5, 0, 0), 20000));
    QVERIFY(sim->ptzPosition("ptz_node_0").moving);
    const QFuture<void> stop = camera.ptzStop(profiles[0].token);
    QVERIFY(waitForFuture(stop, 20000) && !stop.isCanceled());
    QCOMPARE(resultOf(camera.ptzStatus(profiles[0].token)).panTiltMove, QStringLiteral("IDLE"));

    // Many calls at once: no nonce is sent twice, nothing is refused.
    QVector<QFuture<Onvif::DeviceInfo>> burst;
    for (int i = 0; i < 20; ++i)
        burst.append(camera.deviceInformation());
    for (const auto& call : burst)
        QVERIFY(waitForFuture(call, 20000) && !call.isCanceled());
    QCOMPARE(sim->stats().failedLogins, 0);
    if (quirks.contains("digest-only")) {
        QVERIFY(sim->stats().digestChallenges > 0);
        QVERIFY(sim->stats().staleNonces > 0);
    }
}

void TestCamera::refusedLoginsAreBounded_data()
{
    QTest::addColumn<QStringList>("quirks");
    QTest::newRow("ws-security") << QStringList { "lockout" };
    QTest::newRow("http digest") << QStringList { "lockout", "digest-only" };
}

void TestCamera::refusedLoginsAreBounded()
{
    QFETCH(QStringList, quirks);
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    for (const QString& quirk : quirks)
        QVERIFY(config.applyQuirk(quirk));
    config.lockoutAttempts = 5; // more than the session allows itself
    const auto sim = startCamera(config);
    CameraOptions options;
    options.maxFailedLogins = 3;
    Onvif::Camera camera(QUrl(sim->deviceUrl()), config.user, QStringLiteral("wrong"), options);

    const Onvif::CameraConnection connection = resultOf(camera.open());
    QCOMPARE(connection.error, CameraError::CredentialsRefused);
    for (int i = 0; i < 6; ++i) {
        const QFuture<Onvif::DeviceInfo> call = camera.deviceInformation();
        QVERIFY(waitForFuture(call, 20000) && call.isCanceled());
    }
    QCOMPARE(camera.lastResult().error, CameraError::LockoutRisk);
    QVERIFY2(sim->stats().failedLogins <= options.maxFailedLogins,
        qPrintable(QString::number(sim->stats().failedLogins)));
    QCOMPARE(sim->stats().lockedRefusals, 0);
    // The bound is the device's, not the object's: a second session starts where the first stopped.
    Onvif::Camera again(QUrl(sim->deviceUrl()), config.user, config.password, options);
    QCOMPARE(resultOf(again.open()).error, CameraError::LockoutRisk);
}

// A host deletes a camera whenever it likes: calls in flight end cancelled, and the answers and
// callbacks still queued find nothing to touch (the sanitizer pass would see it otherwise).
void TestCamera::destroyedMidway()
{
    const auto sim = startCamera();
    const QUrl url(sim->deviceUrl());
    // The operation held back, and the one answered just before it (the simulator logs a request
    // once it has answered it).
    const QPair<const char*, const char*> cases[] = { { "GetServices", "GetSystemDateAndTime" },
        { "GetStreamUri", "GetProfiles" }, { "GetSnapshotUri", nullptr } };
    for (const auto& c : cases) {
        CameraSim::FaultSpec slow;
        slow.delayMs = 3000; // still in flight when the camera goes
        sim->setFault(QLatin1String(c.first), slow);
        const int before = c.second ? sim->requestsFor(QLatin1String(c.second)).size() : 0;
        auto* camera = new Onvif::Camera(url, QStringLiteral("admin"), QStringLiteral("admin"));
        QFuture<void> call;
        if (qstrcmp(c.first, "GetServices") == 0)
            call = camera->open();
        else if (qstrcmp(c.first, "GetStreamUri") == 0)
            call = camera->profiles();
        else
            call = camera->snapshot(QStringLiteral("prof_main"));
        if (c.second)
            QTRY_VERIFY(sim->requestsFor(QLatin1String(c.second)).size() > before);
        delete camera;
        QVERIFY(waitForFuture(call, 2000));
        QVERIFY2(call.isCanceled(), c.first);
        QTest::qWait(100);
        sim->clearFaults();
    }
}

void TestCamera::userNameWithMarkup()
{
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    config.user = QStringLiteral("R&D <ops>");
    const auto sim = startCamera(config);
    Onvif::Camera camera(QUrl(sim->deviceUrl()), config.user, config.password);
    const Onvif::CameraConnection opened = resultOf(camera.open());
    QVERIFY2(opened.ok(), qPrintable(opened.message));
    QCOMPARE(sim->requestsFor("GetDeviceInformation").last().authResult, QStringLiteral("ok"));
}

void TestCamera::unreachableOrNotOnvif()
{
    Onvif::Camera closed(QUrl(QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(closedPort())),
        QStringLiteral("admin"), QStringLiteral("admin"));
    QCOMPARE(resultOf(closed.open()).error, CameraError::Unreachable);

    CannedServer web(404, "<html><body>Not Found</body></html>");
    Onvif::Camera page(web.url(), QStringLiteral("admin"), QStringLiteral("admin"));
    const Onvif::CameraConnection seen = resultOf(page.open());
    QCOMPARE(seen.error, CameraError::NotOnvif);
    QVERIFY2(seen.message.contains(QLatin1String("404")), qPrintable(seen.message));
}

void TestCamera::clockFromRealReplies()
{
    const QString fixtures = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real/");
    if (!QFileInfo::exists(fixtures))
        QSKIP("captured camera replies (../shared/fixtures) are not present");
    const QList<QPair<QString, QDateTime>> cases {
        { "onvif-nvt/axis/core/GetSystemDateAndTime.Response.xml",
            QDateTime({ 2018, 2, 27 }, { 23, 9, 59 }, Qt::UTC) },
        { "onvif-nvt/hikvision/core/GetSystemDateAndTime.Response.xml",
            QDateTime({ 2018, 2, 27 }, { 18, 28, 1 }, Qt::UTC) },
        { "easy_onvif/IPD-H4K8M05-BS/device_management/GetSystemDateAndTimeResponse.xml",
            QDateTime({ 2025, 4, 6 }, { 17, 38, 53 }, Qt::UTC) },
        { "agsh-onvif/GetSystemDateAndTime.xml", QDateTime({ 2014, 12, 24 }, { 19, 14, 37 }, Qt::UTC) },
    };
    for (const auto& c : cases) {
        QFile file(fixtures + c.first);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(c.first));
        CannedServer device(200, file.readAll());
        Onvif::Camera camera(device.url(), QStringLiteral("admin"), QStringLiteral("admin"));
        const Onvif::CameraConnection connection = resultOf(camera.open());
        QCOMPARE(connection.deviceTimeUtc, c.second);
        // Years off: the offset still goes into every header, and the user hears of it.
        QVERIFY(qAbs(camera.clockOffsetMs()
                    - (c.second.toMSecsSinceEpoch() - QDateTime::currentMSecsSinceEpoch()))
            < 5000);
    }
    // A device that wants credentials even for its clock, with an HTML page: no time, and the
    // refusal is told as such, not as a broken device.
    QFile page(
        fixtures + "2bad-onvif/ezviz/ds-2de2c400ig-w-w/device.GetSystemDateAndTimeUnauthorizedFault.xml");
    QVERIFY(page.open(QIODevice::ReadOnly));
    CannedServer locked(401, page.readAll());
    Onvif::Camera camera(locked.url(), QStringLiteral("admin"), QStringLiteral("admin"));
    const Onvif::CameraConnection connection = resultOf(camera.open());
    QVERIFY(!connection.deviceTimeUtc.isValid());
    QCOMPARE(connection.error, CameraError::CredentialsRefused);
}

QTEST_GUILESS_MAIN(TestCamera)
#include "tst_camera.moc"
