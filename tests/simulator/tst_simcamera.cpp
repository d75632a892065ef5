// Tests of the simulated camera itself, as far as later tests trust its judgement:
// authentication, faults, connections, its request log and its own shutdown.

#include "simCamera.h"
#include "simClient.h"

#include <cameraConfig.h>

#include <QCryptographicHash>
#include <QtTest>

#include <future>

using namespace CameraSim;

Q_DECLARE_METATYPE(CameraSim::FaultMode)

namespace {

QString text(const HttpReply& reply, const char* localName)
{
    return findElement(reply.xml(), QLatin1String(localName)).text();
}

const QString kDeviceInfo = QStringLiteral("<tds:GetDeviceInformation></tds:GetDeviceInformation>");

QString streamUriBody(const QString& token)
{
    return QStringLiteral(
        "<trt:GetStreamUri><trt:StreamSetup><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport>"
        "<tt:Protocol>RTSP</tt:Protocol></tt:Transport></trt:StreamSetup><trt:ProfileToken>%1"
        "</trt:ProfileToken></trt:GetStreamUri>")
        .arg(token);
}

} // namespace

class TestSimCamera : public QObject
{
    Q_OBJECT

private slots:
    void authentication_data();
    void authentication();
    void digestByIndependentFormula();
    void replayedNonceRefused();
    void faultModes_data();
    void faultModes();
    void faultCountSkipAndWildcard();
    void keepAliveAndConnectionClose();
    void requestLogKeepsWireText();
    void stopEndsLongPullAndDelay();
    void configFromJson();
    void quirkReplies_data();
    void quirkReplies();
    void quirkLockoutCountsDown();
    void quirkHttpDigest();
    void quirkPtzStopIgnored();
    void media2AndImaging();
    void refusesNonLoopbackHost();
};

void TestSimCamera::authentication_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<qint64>("cameraOffsetMs");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("why");
    auto row = [](const char* tag, const QByteArray& request, qint64 offset, int status, const char* why) {
        QTest::newRow(tag) << request << offset << status << QString::fromLatin1(why);
    };
    const QString admin = QStringLiteral("admin");
    row("good", signedEnvelope(kDeviceInfo), 0, 200, "ok");
    row("wrong password", signedEnvelope(kDeviceInfo, admin, "wrong"), 0, 400, "wrong password digest");
    row("unknown user", signedEnvelope(kDeviceInfo, "intruder", admin), 0, 400, "unknown user");
    row("no token", plainEnvelope(kDeviceInfo), 0, 400, "no UsernameToken");
    const char* skew = "Created outside the allowed clock skew";
    row("client 4 min ahead", signedEnvelope(kDeviceInfo, admin, admin, 4 * 60000), 0, 200, "ok");
    row("client 6 min ahead", signedEnvelope(kDeviceInfo, admin, admin, 6 * 60000), 0, 400, skew);
    row("client 6 min behind", signedEnvelope(kDeviceInfo, admin, admin, -6 * 60000), 0, 400, skew);
    row("camera an hour ahead", signedEnvelope(kDeviceInfo), 3600000, 400, skew);
    row("both an hour ahead", signedEnvelope(kDeviceInfo, admin, admin, 3600000), 3600000, 200, "ok");
    // The time query is open to everyone, as ONVIF requires for clock synchronisation.
    row("time query", plainEnvelope("<tds:GetSystemDateAndTime/>"), 0, 200, "");
}

void TestSimCamera::authentication()
{
    QFETCH(QByteArray, request);
    QFETCH(qint64, cameraOffsetMs);
    QFETCH(int, status);
    QFETCH(QString, why);
    CameraConfig config = CameraConfig::defaultCamera();
    config.clockOffsetMs = cameraOffsetMs;
    auto camera = startCamera(config);
    const HttpReply reply = post(camera->port(), request);
    QCOMPARE(reply.status, status);
    if (!why.isEmpty())
        QCOMPARE(camera->requestLog().last().authResult, why);
    if (status == 400)
        QCOMPARE(faultSummary(reply), QStringLiteral("Sender|ter:NotAuthorized"));
    else if (why == QLatin1String("ok"))
        QCOMPARE(text(reply, "Manufacturer") + ' ' + text(reply, "SerialNumber"),
            QStringLiteral("SimCam SIM0000001"));
    else
        QCOMPARE(text(reply, "Year").toInt(), QDateTime::currentDateTimeUtc().date().year());
}

void TestSimCamera::digestByIndependentFormula()
{
    auto camera = startCamera();
    const QByteArray nonce = QByteArray::fromHex("00112233445566778899aabbccddeeff");
    const QString created = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
    auto header = [&](const QByteArray& digestInput) {
        const QString digest
            = QString::fromLatin1(QCryptographicHash::hash(digestInput, QCryptographicHash::Sha1).toBase64());
        return QStringLiteral(
            "<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-"
            "wssecurity-secext-1.0.xsd\" xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/oasis-"
            "200401-wss-wssecurity-utility-1.0.xsd\"><wsse:UsernameToken><wsse:Username>admin"
            "</wsse:Username><wsse:Password Type=\"http://docs.oasis-open.org/wss/2004/01/oasis-"
            "200401-wss-username-token-profile-1.0#PasswordDigest\">%1</wsse:Password><wsse:Nonce>%2"
            "</wsse:Nonce><wsu:Created>%3</wsu:Created></wsse:UsernameToken></wsse:Security>")
            .arg(digest, QString::fromLatin1(nonce.toBase64()), created);
    };
    // Order nonce, created, password is the one that must pass; any other must not.
    QCOMPARE(
        post(camera->port(), plainEnvelope(kDeviceInfo, header(created.toUtf8() + nonce + "admin"))).status,
        400);
    QCOMPARE(
        post(camera->port(), plainEnvelope(kDeviceInfo, header(nonce + created.toUtf8() + "admin"))).status,
        200);

    // Another user and status, with characters that need escaping; and no authentication at all.
    CameraConfig strict = CameraConfig::defaultCamera();
    strict.authFailureStatus = 401;
    strict.user = QStringLiteral("operator");
    strict.password = QStringLiteral("s3cr3t&<");
    auto second = startCamera(strict);
    QCOMPARE(post(second->port(), signedEnvelope(kDeviceInfo)).status, 401);
    QCOMPARE(post(second->port(), signedEnvelope(kDeviceInfo, strict.user, strict.password)).status, 200);
    CameraConfig open = CameraConfig::defaultCamera();
    open.requireAuth = false;
    QCOMPARE(post(startCamera(open)->port(), plainEnvelope(kDeviceInfo)).status, 200);
}

void TestSimCamera::replayedNonceRefused()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.applyQuirk(QStringLiteral("nonce-replay"));
    auto camera = startCamera(config);
    const QByteArray request = signedEnvelope(kDeviceInfo);
    QCOMPARE(post(camera->port(), request).status, 200);
    const HttpReply replay = post(camera->port(), request);
    QCOMPARE(replay.status, 400);
    QCOMPARE(faultSummary(replay), QStringLiteral("Sender|ter:NotAuthorized"));
    QVERIFY(replay.body.contains("nonce used before"));
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 200);

    CameraConfig lenient = CameraConfig::defaultCamera();
    lenient.rejectReplayedNonce = false;
    auto other = startCamera(lenient);
    QCOMPARE(post(other->port(), request).status, 200);
    QCOMPARE(post(other->port(), request).status, 200);
}

void TestSimCamera::faultModes_data()
{
    QTest::addColumn<FaultMode>("mode");
    QTest::addColumn<int>("status"); // 0: no status line at all
    QTest::addColumn<bool>("complete");
    QTest::addColumn<bool>("wellFormed");
    QTest::newRow("soapFault") << FaultMode::SoapFault << 503 << true << true;
    QTest::newRow("http500") << FaultMode::Http500 << 500 << true << false;
    QTest::newRow("drop") << FaultMode::Drop << 0 << false << false;
    QTest::newRow("truncate") << FaultMode::Truncate << 200 << false << false;
    QTest::newRow("malformed") << FaultMode::Malformed << 200 << true << false;
    QTest::newRow("emptyUri") << FaultMode::EmptyUri << 200 << true << true;
    QTest::newRow("huge") << FaultMode::Huge << 200 << true << true;
}

void TestSimCamera::faultModes()
{
    QFETCH(FaultMode, mode);
    QFETCH(int, status);
    QFETCH(bool, complete);
    QFETCH(bool, wellFormed);
    auto camera = startCamera();
    const bool emptyUri = mode == FaultMode::EmptyUri;
    const QString op = emptyUri ? QStringLiteral("GetStreamUri") : QStringLiteral("GetDeviceInformation");
    const QString body = emptyUri ? streamUriBody(QStringLiteral("prof_main")) : kDeviceInfo;
    FaultSpec spec = faultOf(mode);
    spec.httpStatus = 503;
    spec.subcode = QStringLiteral("ter:Action/ter:Busy");
    spec.reason = QStringLiteral("Busy now");
    spec.hugeBytes = 3 * 1024 * 1024;
    camera->setFault(op, spec);

    const HttpReply reply = post(camera->port(), signedEnvelope(body));
    bool parsed = false;
    reply.xml(&parsed);
    QCOMPARE(camera->requestLog().last().operation, op);
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.complete, complete);
    QCOMPARE(parsed, wellFormed);
    QCOMPARE(reply.body.isEmpty(), status == 500 || status == 0);
    if (mode == FaultMode::SoapFault) {
        QCOMPARE(faultSummary(reply), QStringLiteral("Receiver|ter:Action"));
        QCOMPARE(text(reply, "Text"), QStringLiteral("Busy now"));
        QCOMPARE(findElements(reply.xml(), QStringLiteral("Subcode")).size(), 2);
    } else if (mode == FaultMode::Truncate) {
        QVERIFY(reply.body.size() > 0 && reply.body.size() < reply.announcedLength);
    } else if (mode == FaultMode::Malformed) {
        QVERIFY(reply.body.contains("GetDeviceInformationResponse"));
    } else if (mode == FaultMode::Huge) {
        QCOMPARE(reply.body.size(), spec.hugeBytes);
    }
    if (emptyUri) {
        QVERIFY(!findElement(reply.xml(), QStringLiteral("Uri")).isNull());
        QCOMPARE(text(reply, "Uri"), QString());
        // Other operations are untouched by an empty-URI fault.
        QCOMPARE(text(post(camera->port(), signedEnvelope(kDeviceInfo)), "Model"), QStringLiteral("SC-1000"));
    } else if (parsed && mode != FaultMode::SoapFault) {
        QCOMPARE(text(reply, "Manufacturer"), QStringLiteral("SimCam"));
    }
    camera->clearFaults();
    QCOMPARE(post(camera->port(), signedEnvelope(body)).status, 200);
}

void TestSimCamera::faultCountSkipAndWildcard()
{
    auto camera = startCamera();
    const quint16 port = camera->port();
    FaultSpec third = faultOf(FaultMode::Http500, 2);
    third.skip = 1;
    QString error;
    camera->setFault(QStringLiteral("GetDeviceInformation"), FaultSpec::fromJson(third.toJson(), &error));
    QVERIFY(error.isEmpty());
    for (int status : { 200, 500, 500, 200 })
        QCOMPARE(post(port, signedEnvelope(kDeviceInfo)).status, status);
    QVERIFY(camera->faults().isEmpty());

    camera->setFault(QStringLiteral("*"), faultOf(FaultMode::SoapFault));
    // A specific entry wins over the wildcard.
    camera->setFault(QStringLiteral("GetProfiles"), faultOf(FaultMode::Http500));
    QCOMPARE(faultSummary(post(port, signedEnvelope(kDeviceInfo))), QStringLiteral("Receiver|ter:Action"));
    const HttpReply profiles = post(port, signedEnvelope(QStringLiteral("<trt:GetProfiles/>")));
    QCOMPARE(profiles.status, 500);
    QVERIFY(profiles.body.isEmpty());
}

void TestSimCamera::keepAliveAndConnectionClose()
{
    auto camera = startCamera();
    HttpConnection keep(camera->port());
    for (int i = 0; i < 3; ++i) {
        const HttpReply reply = keep.request("POST", "/onvif/device_service", signedEnvelope(kDeviceInfo));
        QCOMPARE(reply.status, 200);
        QVERIFY(!reply.closed && keep.isOpen());
    }
    // The option is case-insensitive: "Close", as ONVIF clients send it, ends the connection too.
    for (const QByteArray& token : { QByteArray("close"), QByteArray("Close"), QByteArray("CLOSE") }) {
        HttpConnection once(camera->port());
        HttpConnection& connection = token == "close" ? keep : once;
        const HttpReply reply = connection.request("POST", "/onvif/media_service",
            signedEnvelope(QStringLiteral("<trt:GetProfiles/>")), "Content-Type: application/soap+xml\r\n",
            true, 5000, token);
        QCOMPARE(reply.status, 200);
        QVERIFY2(reply.closed, token.constData());
        QCOMPARE(reply.header("Connection"), QByteArray("close"));
    }
    QCOMPARE(camera->requestCount(), 6);

    // An idle kept-alive connection is let go after the configured timeout.
    CameraConfig quick = CameraConfig::defaultCamera();
    quick.keepAliveTimeoutSec = 1;
    auto other = startCamera(quick);
    HttpConnection idle(other->port());
    QCOMPARE(idle.request("POST", "/x", signedEnvelope(kDeviceInfo)).status, 200);
    QVERIFY(idle.waitForClose(4000));
}

void TestSimCamera::requestLogKeepsWireText()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.logLimit = 3;
    auto camera = startCamera(config);
    const QByteArray request = signedEnvelope(QStringLiteral("<trt:GetProfiles/>"));
    HttpConnection connection(camera->port());
    QCOMPARE(connection
                 .request("POST", "/onvif/media_service?x=1", request,
                     "Content-Type: application/soap+xml; action=\"y\"\r\n")
                 .status,
        200);
    const RequestRecord r = camera->requestLog().last();
    QCOMPARE(r.method + ' ' + r.path + ' ' + r.operation + ' ' + r.authResult,
        QStringLiteral("POST /onvif/media_service GetProfiles ok"));
    QCOMPARE(r.body, request);
    QCOMPARE(r.header("content-type"), QByteArray("application/soap+xml; action=\"y\""));
    QCOMPARE(r.status, 200);
    QCOMPARE(camera->requestsFor(QStringLiteral("GetProfiles")).size(), 1);

    for (int i = 0; i < 4; ++i)
        post(camera->port(), signedEnvelope(kDeviceInfo));
    QCOMPARE(camera->requestLog().size(), 3); // capped, oldest dropped
    QCOMPARE(camera->requestsFor(QStringLiteral("GetProfiles")).size(), 0);
    QCOMPARE(camera->requestCount(), 5);
    camera->clearRequestLog();
    QVERIFY(camera->requestLog().isEmpty());
}

void TestSimCamera::stopEndsLongPullAndDelay()
{
    auto camera = startCamera();
    const quint16 port = camera->port();
    const HttpReply created
        = post(port, signedEnvelope(QStringLiteral("<tev:CreatePullPointSubscription/>")));
    const QByteArray path = QUrl(text(created, "Address")).path().toUtf8();
    FaultSpec slow;
    slow.delayMs = 20000;
    camera->setFault(QStringLiteral("GetProfiles"), slow);
    auto longPull = std::async(std::launch::async, [port, path] {
        return post(port,
            signedEnvelope(QStringLiteral("<tev:PullMessages><tev:Timeout>PT20S</tev:Timeout>"
                                          "<tev:MessageLimit>1</tev:MessageLimit></tev:PullMessages>")),
            path, "application/soap+xml", 25000);
    });
    auto delayed = std::async(std::launch::async, [port] {
        return post(
            port, signedEnvelope(QStringLiteral("<trt:GetProfiles/>")), "/", "application/soap+xml", 25000);
    });
    // Generous: under load the two client threads may take seconds to connect.
    QTRY_COMPARE(camera->requestCount(), 3);
    camera->stop();
    // Both would otherwise hang for 20 s.
    QVERIFY(longPull.wait_for(std::chrono::seconds(10)) == std::future_status::ready);
    QVERIFY(delayed.wait_for(std::chrono::seconds(10)) == std::future_status::ready);
    QVERIFY(!delayed.get().answered);
    longPull.get();
}

void TestSimCamera::configFromJson()
{
    // Defaults apply to every camera, repeated ones get serial suffixes; the executable's tests
    // see a configured camera answer.
    const QByteArray json = R"({"defaults": {"capabilities": {"ptz": false}},
        "cameras": [{"repeat": 3, "faults": {"GetProfiles": {"mode": "truncate", "count": 2}}}, {}]})";
    QVector<CameraConfig> cameras;
    QString error;
    QVERIFY2(parseConfig(json, cameras, &error), qPrintable(error));
    QCOMPARE(cameras.size(), 4);
    QCOMPARE(cameras[2].serialNumber, QStringLiteral("SIM0000001-0003"));
    QVERIFY(!cameras[3].ptzCapability);
    QCOMPARE(cameras[1].faults.value(QStringLiteral("GetProfiles")).count, 2);
    QVERIFY(!parseConfig(R"({"profiles": [{"token": "p", "videoEncoder": "ghost"}]})", cameras, &error));
    QVERIFY(error.contains(QStringLiteral("ghost")));
    for (const char* bad : { R"({"faults": {"GetProfiles": {"mode": "explode"}}})", "[1, 2]", "{ not json" })
        QVERIFY2(!parseConfig(bad, cameras, &error), bad);
}

namespace {

CameraConfig withQuirks(const QStringList& quirks)
{
    CameraConfig config = CameraConfig::defaultCamera();
    for (const QString& quirk : quirks) {
        if (!config.applyQuirk(quirk))
            qFatal("unknown quirk %s", qPrintable(quirk));
    }
    return config;
}

// The RFC 2617 answer to a challenge, qop=auth with MD5, computed here independently of the camera.
QByteArray digestAuthorization(const QByteArray& challenge, const QByteArray& method, const QByteArray& uri,
    const QByteArray& password = "admin")
{
    auto param = [&](const char* name) {
        const QRegularExpression re(QStringLiteral("%1=\"([^\"]*)\"").arg(QLatin1String(name)));
        return re.match(QString::fromLatin1(challenge)).captured(1).toLatin1();
    };
    auto md5
        = [](const QByteArray& v) { return QCryptographicHash::hash(v, QCryptographicHash::Md5).toHex(); };
    const QByteArray realm = param("realm"), nonce = param("nonce");
    const QByteArray response = md5(md5("admin:" + realm + ':' + password) + ':' + nonce
        + ":00000001:0a4f113b:auth:" + md5(method + ':' + uri));
    return "Digest username=\"admin\", realm=\"" + realm + "\", nonce=\"" + nonce + "\", uri=\"" + uri
        + "\", qop=auth, nc=00000001, cnonce=\"0a4f113b\", response=\"" + response + "\"";
}

} // namespace

void TestSimCamera::quirkReplies_data()
{
    QTest::addColumn<QStringList>("quirks");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("present");
    QTest::addColumn<QByteArray>("absent");
    auto row = [](const char* tag, const char* quirk, const QByteArray& request, int status,
                   const char* present, const char* absent = "\x01") {
        QTest::newRow(tag) << QString::fromLatin1(quirk).split(QLatin1Char(' ')) << request << status
                           << QByteArray(present) << QByteArray(absent);
    };
    const QString admin = QStringLiteral("admin");
    // clock-skew, digest-only, no-getservices and nat: tst_camera sees each one's effect.
    row("prefixed sender fault", "prefixed-faults", signedEnvelope(kDeviceInfo, admin, "wrong"), 400,
        "vnd:NotAuthorized", "ter:");
    row("prefixed receiver fault", "prefixed-faults", signedEnvelope("<tds:Frobnicate/>"), 500,
        "vnd:ActionNotSupported", "ter:");
    row("undeclared prefix", "undeclared-prefix", signedEnvelope("<trt:GetProfiles/>"), 200, "<tt:Name>",
        "xmlns:tt=");
    row("crlf and SOAP-ENV", "crlf-odd-prefixes", signedEnvelope(kDeviceInfo), 200,
        "\r\n<SOAP-ENV:Body>\r\n<tds:GetDeviceInformationResponse>", "<env:");
    row("jpeg without RateControl", "jpeg-no-ratecontrol",
        signedEnvelope("<trt:GetProfile><trt:ProfileToken>prof_jpeg</trt:ProfileToken></trt:GetProfile>"),
        200, "<tt:Encoding>JPEG", "RateControl");
    row("jpeg with RateControl by default", "",
        signedEnvelope("<trt:GetProfile><trt:ProfileToken>prof_jpeg</trt:ProfileToken></trt:GetProfile>"),
        200, "<tt:RateControl>");
    row("media2-only refuses Media1", "media2-only", signedEnvelope("<trt:GetProfiles/>"), 500,
        "ter:ActionNotSupported");
    // The plain camera: how it refuses what it does not serve.
    row("no snapshot without video", "",
        signedEnvelope(
            "<trt:GetSnapshotUri><trt:ProfileToken>prof_audio</trt:ProfileToken></trt:GetSnapshotUri>"),
        500, "ter:ActionNotSupported");
    row("unsupported PTZ operation", "", signedEnvelope("<tptz:GetPresetTour/>"), 500,
        "<env:Value>env:Receiver</env:Value><env:Subcode><env:Value>ter:ActionNotSupported");
}

void TestSimCamera::quirkReplies()
{
    QFETCH(QStringList, quirks);
    QFETCH(QByteArray, request);
    QFETCH(int, status);
    QFETCH(QByteArray, present);
    QFETCH(QByteArray, absent);
    quirks.removeAll(QString());
    auto camera = startCamera(withQuirks(quirks));
    const HttpReply reply = post(camera->port(), request);
    QCOMPARE(reply.status, status);
    QVERIFY2(reply.body.contains(present), reply.body.constData());
    QVERIFY2(!reply.body.contains(absent), reply.body.constData());
}

void TestSimCamera::quirkLockoutCountsDown()
{
    CameraConfig config = withQuirks({ QStringLiteral("lockout") });
    config.lockoutAttempts = 3;
    config.lockoutMs = 60000;
    auto camera = startCamera(config);
    const QByteArray wrong = signedEnvelope(kDeviceInfo, QStringLiteral("admin"), QStringLiteral("bad"));
    QVERIFY(post(camera->port(), wrong).body.contains("You still have 2 attempts"));
    QVERIFY(post(camera->port(), wrong).body.contains("You still have 1 attempts"));
    QVERIFY(post(camera->port(), wrong).body.contains("Account locked. Try again in 60 seconds"));
    // Locked: even the right password is refused, and only as a locked refusal.
    const HttpReply locked = post(camera->port(), signedEnvelope(kDeviceInfo));
    QCOMPARE(faultSummary(locked), QStringLiteral("Sender|ter:NotAuthorized"));
    QCOMPARE(camera->stats().failedLogins, 3);
    QCOMPARE(camera->stats().lockedRefusals, 1);
    const HttpReply stats = get(camera->port(), "/sim/stats");
    QVERIFY2(stats.body.contains("\"failedLogins\": 3"), stats.body.constData());
    QCOMPARE(get(camera->port(), "/sim/reboot").status, 404); // a reboot is a POST
    QCOMPARE(post(camera->port(), "{}", "/sim/reboot", "application/json").status, 200);
    QCOMPARE(camera->stats().reboots, 1);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 200);
}

void TestSimCamera::quirkHttpDigest()
{
    for (const char* quirk : { "digest-only", "snapshot-digest" }) {
        auto camera = startCamera(withQuirks({ QLatin1String(quirk) }));
        const QByteArray path = "/snapshot/prof_main.jpg";
        const HttpReply challenge = get(camera->port(), path);
        QCOMPARE(challenge.status, 401);
        const QByteArray www = challenge.header("WWW-Authenticate");
        QVERIFY2(www.startsWith("Digest ") && www.contains("qop=\"auth\"") && www.contains("MD5"),
            www.constData());
        const HttpReply image = get(camera->port(), path, digestAuthorization(www, "GET", path));
        QCOMPARE(image.status, 200);
        QVERIFY(image.body.startsWith("\xff\xd8"));
        QCOMPARE(get(camera->port(), path, digestAuthorization(www, "GET", path, "bad")).status, 401);
        QCOMPARE(camera->stats().failedLogins, 1);
    }
}

void TestSimCamera::quirkPtzStopIgnored()
{
    auto camera = startCamera(withQuirks({ QStringLiteral("ptz-stop-ignored") }));
    auto ptz = [&](const char* op, const char* inner = "") {
        return post(camera->port(),
            signedEnvelope(
                QStringLiteral("<tptz:%1><tptz:ProfileToken>prof_main</tptz:ProfileToken>%2</tptz:%1>")
                    .arg(QLatin1String(op), QLatin1String(inner))))
            .status;
    };
    auto at = [&] { return camera->ptzPosition(QStringLiteral("ptz_node_0")); };
    QCOMPARE(ptz("ContinuousMove", "<tptz:Velocity><tt:PanTilt x=\"0.5\" y=\"0\"/></tptz:Velocity>"), 200);
    QCOMPARE(ptz("Stop"), 200);
    QVERIFY(at().moving); // ignored: only a zero velocity stops the head
    QCOMPARE(ptz("ContinuousMove", "<tptz:Velocity><tt:PanTilt x=\"0\" y=\"0\"/></tptz:Velocity>"), 200);
    QVERIFY(!at().moving);
    QCOMPARE(ptz("AbsoluteMove", "<tptz:Position><tt:PanTilt x=\"0.5\" y=\"-0.5\"/></tptz:Position>"), 200);
    QCOMPARE(ptz("RelativeMove", "<tptz:Translation><tt:PanTilt x=\"0.25\" y=\"-0.75\"/></tptz:Translation>"),
        200);
    QCOMPARE(QPointF(at().pan, at().tilt), QPointF(0.75, -1.0)); // the tilt stops at the edge
}

void TestSimCamera::media2AndImaging()
{
    auto camera = startCamera();
    const quint16 port = camera->port();
    auto call = [port](const QString& body) { return post(port, signedEnvelope(body)); };
    // The library's envelope does not declare tr2 and timg, so the bodies do.
    auto tr2 = [](const char* op, const QString& inner = QString()) {
        return QStringLiteral("<tr2:%1 xmlns:tr2=\"http://www.onvif.org/ver20/media/wsdl\">%2</tr2:%1>")
            .arg(QLatin1String(op), inner);
    };
    auto timg = [](const char* op, const QString& inner = QString()) {
        return QStringLiteral("<timg:%1 xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\"><timg:"
                              "VideoSourceToken>vsrc_0</timg:VideoSourceToken>%2</timg:%1>")
            .arg(QLatin1String(op), inner);
    };
    const QString profilesAll
        = tr2("GetProfiles", "<tr2:Token>prof_main</tr2:Token><tr2:Type>All</tr2:Type>");

    // In order on one camera: the status and a fragment each reply must carry. What the session
    // reads from the answers (H.265 profile, tunnel URI, focus moves) is tst_mediaImaging's.
    const struct
    {
        QString body;
        int status;
        QString expect;
    } steps[] = {
        // Media1 cannot express the H.265 profile and must not show it.
        { streamUriBody("profile_h265"), 400, "ter:NoProfile" },
        { "<trt:GetProfile><trt:ProfileToken>profile_h265</trt:ProfileToken></trt:GetProfile>", 400,
            "ter:NoProfile" },
        { tr2("GetProfiles", "<tr2:Token>nope</tr2:Token>"), 400, "ter:NoProfile" },
        { tr2("GetStreamUri",
              "<tr2:Protocol>RtspMulticast</tr2:Protocol><tr2:ProfileToken>prof_main"
              "</tr2:ProfileToken>"),
            400, "ter:InvalidStreamSetup" },
        { tr2("CreateProfile", "<tr2:Name>x</tr2:Name>"), 500, "ter:ActionNotSupported" },
        // A refused setting changes nothing, not even the valid ones beside it.
        { timg("SetImagingSettings",
              "<timg:ImagingSettings><tt:Brightness>70</tt:Brightness><tt:Sharpness>20"
              "</tt:Sharpness></timg:ImagingSettings>"),
            400, "Sharpness 20 outside 0..15" },
        { timg("SetImagingSettings",
              "<timg:ImagingSettings><tt:IrCutFilter>FOO</tt:IrCutFilter>"
              "</timg:ImagingSettings>"),
            400, "ter:SettingsInvalid" },
        { timg("GetImagingSettings"), 200, "<tt:Brightness>50</tt:Brightness>" },
        { timg("SetImagingSettings",
              "<timg:ImagingSettings><tt:Exposure><tt:Mode>MANUAL</tt:Mode><tt:Gain>"
              "12.5</tt:Gain></tt:Exposure><tt:IrCutFilter>OFF</tt:IrCutFilter>"
              "<tt:Sharpness>15</tt:Sharpness></timg:ImagingSettings>"),
            200, "" },
        { timg("GetImagingSettings"), 200, "<tt:Gain>12.5</tt:Gain></tt:Exposure>" },
    };
    for (const auto& step : steps) {
        const HttpReply reply = call(step.body);
        QVERIFY2(reply.status == step.status && reply.body.contains(step.expect.toUtf8()),
            qPrintable(step.body + QStringLiteral("\n") + QString::fromUtf8(reply.body)));
    }
    // Children in the schemas' sequence order.
    const struct
    {
        QString body;
        const char* element;
        const char* children;
    } shapes[] = {
        { profilesAll, "Configurations", "VideoSource AudioSource VideoEncoder AudioEncoder PTZ" },
        { profilesAll, "VideoEncoder", "Name UseCount Encoding Resolution RateControl Multicast Quality" },
        { profilesAll, "AudioEncoder", "Name UseCount Encoding Multicast Bitrate SampleRate" },
        { tr2("GetVideoEncoderConfigurationOptions"), "Options",
            "Encoding QualityRange ResolutionsAvailable ResolutionsAvailable ResolutionsAvailable "
            "ResolutionsAvailable BitrateRange" },
        { timg("GetImagingSettings"), "ImagingSettings",
            "BacklightCompensation Brightness ColorSaturation Contrast Exposure Focus IrCutFilter Sharpness "
            "WideDynamicRange WhiteBalance" },
        { timg("GetImagingSettings"), "Exposure",
            "Mode MinExposureTime MaxExposureTime MinGain MaxGain ExposureTime Gain" },
        { timg("GetImagingSettings"), "Focus", "AutoFocusMode DefaultSpeed NearLimit FarLimit" },
        { timg("GetOptions"), "ImagingOptions",
            "BacklightCompensation Brightness ColorSaturation Contrast Exposure Focus IrCutFilterModes "
            "IrCutFilterModes IrCutFilterModes Sharpness WideDynamicRange WhiteBalance" },
        { timg("GetOptions"), "WhiteBalance", "Mode Mode YrGain YbGain" },
        { timg("GetStatus"), "FocusStatus20", "Position MoveStatus Error" },
    };
    for (const auto& shape : shapes) {
        QStringList names;
        const QDomElement parent = findElement(call(shape.body).xml(), QLatin1String(shape.element));
        for (QDomElement e = parent.firstChildElement(); !e.isNull(); e = e.nextSiblingElement())
            names << e.localName();
        QCOMPARE(names.join(' '), QLatin1String(shape.children));
    }

    // Configurations only when asked by type; Media1 lists none of the H.265 profile's.
    QVERIFY(!call(tr2("GetProfiles")).body.contains("Configurations"));
    QVERIFY(!call(QStringLiteral("<trt:GetVideoEncoderConfigurations/>")).body.contains("venc_h265"));
}

void TestSimCamera::refusesNonLoopbackHost()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.host = QStringLiteral("0.0.0.0");
    Camera camera(config);
    QString error;
    QVERIFY(!camera.start(&error) && !camera.isRunning());
    QVERIFY(error.contains(QStringLiteral("127.0.0.0/8")));
    // A second camera on the same fixed port must fail rather than share it.
    auto first = startCamera();
    CameraConfig clash = CameraConfig::defaultCamera();
    clash.port = first->port();
    QVERIFY(!Camera(clash).start(&error));
}

QTEST_GUILESS_MAIN(TestSimCamera)
#include "tst_simcamera.moc"
