// Tests of the simulated camera itself: every later test trusts its judgement.

#include "simClient.h"

#include <camera.h>
#include <cameraConfig.h>

#include <QBuffer>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QImage>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QtTest>

#include <future>

using namespace CameraSim;

Q_DECLARE_METATYPE(CameraSim::FaultMode)

namespace {

std::unique_ptr<Camera> startCamera(const CameraConfig& config = CameraConfig::defaultCamera())
{
    auto camera = std::make_unique<Camera>(config);
    QString error;
    if (!camera->start(&error))
        qWarning("camera did not start: %s", qPrintable(error));
    return camera;
}

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

QString ptz(const char* op, const QString& inner)
{
    return QStringLiteral("<tptz:%1>%2</tptz:%1>").arg(QLatin1String(op), inner);
}

QString profileToken(const char* token)
{
    return QStringLiteral("<tptz:ProfileToken>%1</tptz:ProfileToken>").arg(QLatin1String(token));
}

} // namespace

class TestSimCamera : public QObject
{
    Q_OBJECT

private slots:
    void digestAcceptedAndRefused();
    void digestByIndependentFormula();
    void clockSkew_data();
    void clockSkew();
    void replayedNonceRefused();
    void faultModes_data();
    void faultModes();
    void faultCountAndWildcardAndRuntimeControl();
    void faultSkipsTheFirstRequests();
    void keepAliveAndConnectionClose();
    void badRequests_data();
    void badRequests();
    void capabilitiesPointAtOwnPorts();
    void defaultProfilesAndUris();
    void requestLogKeepsWireText();
    void ptzPresetsAndPositions();
    void ptzRefusals();
    void eventSubscriptionRound();
    void stopEndsLongPullAndDelay();
    void snapshotIsJpeg();
    void configFromJson();
    void refusesNonLoopbackHost();
    void qtNetworkClient();
};

void TestSimCamera::digestAcceptedAndRefused()
{
    auto camera = startCamera();
    QVERIFY(camera->isRunning());
    const quint16 port = camera->port();

    HttpReply ok = post(port, signedEnvelope(kDeviceInfo));
    QCOMPARE(ok.status, 200);
    QVERIFY(ok.header("Content-Type").startsWith("application/soap+xml"));
    QCOMPARE(text(ok, "Manufacturer"), QStringLiteral("SimCam"));
    QCOMPARE(text(ok, "SerialNumber"), QStringLiteral("SIM0000001"));

    const struct
    {
        QByteArray request;
        QString why;
    } refused[] = {
        { signedEnvelope(kDeviceInfo, QStringLiteral("admin"), QStringLiteral("wrong")),
            QStringLiteral("wrong password digest") },
        { signedEnvelope(kDeviceInfo, QStringLiteral("intruder"), QStringLiteral("admin")),
            QStringLiteral("unknown user") },
        { plainEnvelope(kDeviceInfo), QStringLiteral("no UsernameToken") },
    };
    for (const auto& r : refused) {
        const HttpReply reply = post(port, r.request);
        QCOMPARE(reply.status, 400);
        QCOMPARE(faultSummary(reply), QStringLiteral("Sender|ter:NotAuthorized"));
        QCOMPARE(camera->requestLog().last().authResult, r.why);
    }

    // The time query is open to everyone, as ONVIF requires for clock synchronisation.
    const HttpReply time = post(port, plainEnvelope(QStringLiteral("<tds:GetSystemDateAndTime/>")));
    QCOMPARE(time.status, 200);
    QCOMPARE(text(time, "Year").toInt(), QDateTime::currentDateTimeUtc().date().year());

    CameraConfig strict = CameraConfig::defaultCamera();
    strict.authFailureStatus = 401;
    strict.user = QStringLiteral("operator");
    strict.password = QStringLiteral("s3cr3t&<");
    auto second = startCamera(strict);
    QCOMPARE(post(second->port(), signedEnvelope(kDeviceInfo)).status, 401);
    QCOMPARE(post(second->port(), signedEnvelope(kDeviceInfo, strict.user, strict.password)).status, 200);

    CameraConfig open = CameraConfig::defaultCamera();
    open.requireAuth = false;
    auto third = startCamera(open);
    QCOMPARE(post(third->port(), plainEnvelope(kDeviceInfo)).status, 200);
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
}

void TestSimCamera::clockSkew_data()
{
    QTest::addColumn<qint64>("cameraOffsetMs");
    QTest::addColumn<qint64>("clientShiftMs");
    QTest::addColumn<int>("status");
    QTest::newRow("in step") << qint64(0) << qint64(0) << 200;
    QTest::newRow("client 4 min ahead") << qint64(0) << qint64(4 * 60000) << 200;
    QTest::newRow("client 6 min ahead") << qint64(0) << qint64(6 * 60000) << 400;
    QTest::newRow("client 6 min behind") << qint64(0) << qint64(-6 * 60000) << 400;
    QTest::newRow("camera an hour ahead, client unaware") << qint64(3600000) << qint64(0) << 400;
    QTest::newRow("camera an hour ahead, client shifted") << qint64(3600000) << qint64(3600000) << 200;
}

void TestSimCamera::clockSkew()
{
    QFETCH(qint64, cameraOffsetMs);
    QFETCH(qint64, clientShiftMs);
    QFETCH(int, status);
    CameraConfig config = CameraConfig::defaultCamera();
    config.clockOffsetMs = cameraOffsetMs;
    auto camera = startCamera(config);
    const HttpReply reply = post(camera->port(),
        signedEnvelope(kDeviceInfo, QStringLiteral("admin"), QStringLiteral("admin"), clientShiftMs));
    QCOMPARE(reply.status, status);
    if (status != 200)
        QCOMPARE(
            camera->requestLog().last().authResult, QStringLiteral("Created outside the allowed clock skew"));
}

void TestSimCamera::replayedNonceRefused()
{
    auto camera = startCamera();
    const QByteArray request = signedEnvelope(kDeviceInfo);
    QCOMPARE(post(camera->port(), request).status, 200);
    const HttpReply replay = post(camera->port(), request);
    QCOMPARE(replay.status, 400);
    QCOMPARE(faultSummary(replay), QStringLiteral("Sender|ter:NotAuthorized"));
    QCOMPARE(camera->requestLog().last().authResult, QStringLiteral("nonce used before"));
    // A fresh header is fine again.
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
    QTest::addColumn<QString>("body");
    QTest::newRow("soapFault") << FaultMode::SoapFault << kDeviceInfo;
    QTest::newRow("http500") << FaultMode::Http500 << kDeviceInfo;
    QTest::newRow("drop") << FaultMode::Drop << kDeviceInfo;
    QTest::newRow("truncate") << FaultMode::Truncate << kDeviceInfo;
    QTest::newRow("malformed") << FaultMode::Malformed << kDeviceInfo;
    QTest::newRow("emptyUri") << FaultMode::EmptyUri << streamUriBody(QStringLiteral("prof_main"));
    QTest::newRow("huge") << FaultMode::Huge << kDeviceInfo;
    QTest::newRow("delay only") << FaultMode::None << kDeviceInfo;
}

void TestSimCamera::faultModes()
{
    QFETCH(FaultMode, mode);
    QFETCH(QString, body);
    auto camera = startCamera();
    const QString op = QRegularExpression(QStringLiteral("^<\\w+:(\\w+)")).match(body).captured(1);
    FaultSpec spec;
    spec.mode = mode;
    spec.httpStatus = 503;
    spec.subcode = QStringLiteral("ter:Action/ter:Busy");
    spec.reason = QStringLiteral("Busy now");
    spec.hugeBytes = 3 * 1024 * 1024;
    spec.delayMs = mode == FaultMode::None ? 400 : 0;
    camera->setFault(op, spec);

    QElapsedTimer timer;
    timer.start();
    const HttpReply reply = post(camera->port(), signedEnvelope(body));
    const qint64 elapsed = timer.elapsed();
    bool wellFormed = false;
    reply.xml(&wellFormed);

    QCOMPARE(camera->requestLog().last().operation, op);
    switch (mode) {
    case FaultMode::SoapFault:
        QCOMPARE(reply.status, 503);
        QCOMPARE(faultSummary(reply), QStringLiteral("Receiver|ter:Action"));
        QCOMPARE(text(reply, "Text"), QStringLiteral("Busy now"));
        QCOMPARE(findElements(reply.xml(), QStringLiteral("Subcode")).size(), 2);
        break;
    case FaultMode::Http500:
        QCOMPARE(reply.status, 500);
        QVERIFY(reply.body.isEmpty());
        break;
    case FaultMode::Drop:
        QVERIFY(!reply.answered);
        QVERIFY(reply.closed);
        QCOMPARE(camera->requestLog().last().status, 0);
        break;
    case FaultMode::Truncate:
        QCOMPARE(reply.status, 200);
        QVERIFY(!reply.complete);
        QVERIFY(reply.closed);
        QVERIFY(reply.body.size() > 0 && reply.body.size() < reply.announcedLength);
        break;
    case FaultMode::Malformed:
        QCOMPARE(reply.status, 200);
        QVERIFY(reply.complete);
        QVERIFY(!wellFormed);
        QVERIFY(reply.body.contains("GetDeviceInformationResponse"));
        break;
    case FaultMode::EmptyUri:
        QCOMPARE(reply.status, 200);
        QVERIFY(!findElement(reply.xml(), QStringLiteral("Uri")).isNull());
        QCOMPARE(text(reply, "Uri"), QString());
        // Other operations are untouched by an empty-URI fault.
        QCOMPARE(text(post(camera->port(), signedEnvelope(kDeviceInfo)), "Model"), QStringLiteral("SC-1000"));
        break;
    case FaultMode::Huge:
        QCOMPARE(reply.status, 200);
        QVERIFY(reply.complete);
        QCOMPARE(reply.body.size(), spec.hugeBytes);
        QVERIFY(wellFormed);
        QCOMPARE(text(reply, "Manufacturer"), QStringLiteral("SimCam"));
        break;
    case FaultMode::None:
        QCOMPARE(reply.status, 200);
        QVERIFY2(elapsed >= 400, qPrintable(QString::number(elapsed)));
        QCOMPARE(text(reply, "Manufacturer"), QStringLiteral("SimCam"));
        break;
    }
    camera->clearFaults();
    QCOMPARE(post(camera->port(), signedEnvelope(body)).status, 200);
}

void TestSimCamera::faultCountAndWildcardAndRuntimeControl()
{
    auto camera = startCamera();
    FaultSpec twice;
    twice.mode = FaultMode::Http500;
    twice.count = 2;
    camera->setFault(QStringLiteral("GetDeviceInformation"), twice);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 500);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 500);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 200);
    QVERIFY(camera->faults().isEmpty());

    FaultSpec all;
    all.mode = FaultMode::SoapFault;
    camera->setFault(QStringLiteral("*"), all);
    FaultSpec specific; // a specific entry wins over the wildcard
    specific.mode = FaultMode::Http500;
    camera->setFault(QStringLiteral("GetProfiles"), specific);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 500);
    QCOMPARE(faultSummary(post(camera->port(), signedEnvelope(kDeviceInfo))),
        QStringLiteral("Receiver|ter:Action"));
    QCOMPARE(post(camera->port(), signedEnvelope(QStringLiteral("<trt:GetProfiles/>"))).status, 500);
    QVERIFY(post(camera->port(), signedEnvelope(QStringLiteral("<trt:GetProfiles/>"))).body.isEmpty());

    // The same control from outside the process.
    HttpConnection control(camera->port());
    QCOMPARE(control.request("DELETE", "/sim/faults", QByteArray(), QByteArray()).status, 200);
    QVERIFY(camera->faults().isEmpty());
    QCOMPARE(control
                 .request("POST", "/sim/faults",
                     R"({"GetDeviceInformation": {"mode": "http500", "count": 1}})", "application/json")
                 .status,
        200);
    QCOMPARE(
        control.request("POST", "/sim/faults", R"({"GetProfiles": {"mode": "bogus"}})", "application/json")
            .status,
        400);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 500);
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 200);
    const HttpReply log = control.request("GET", "/sim/log", QByteArray(), QByteArray());
    QCOMPARE(log.status, 200);
    QVERIFY(log.body.contains("\"operation\": \"GetDeviceInformation\""));
}

void TestSimCamera::faultSkipsTheFirstRequests()
{
    auto camera = startCamera();
    FaultSpec third;
    third.mode = FaultMode::Http500;
    third.skip = 2;
    third.count = 1;
    camera->setFault(QStringLiteral("GetDeviceInformation"), third);
    const QVector<int> expected { 200, 200, 500, 200 };
    for (int status : expected)
        QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, status);
    QVERIFY(camera->faults().isEmpty());

    QString error;
    const FaultSpec parsed = FaultSpec::fromJson(third.toJson(), &error);
    QVERIFY(error.isEmpty());
    QCOMPARE(parsed.skip, 2);
}

void TestSimCamera::keepAliveAndConnectionClose()
{
    auto camera = startCamera();
    HttpConnection keep(camera->port());
    for (int i = 0; i < 3; ++i) {
        const HttpReply reply = keep.request("POST", "/onvif/device_service", signedEnvelope(kDeviceInfo));
        QCOMPARE(reply.status, 200);
        QVERIFY(!reply.closed);
        QVERIFY(keep.isOpen());
    }
    const HttpReply last = keep.request("POST", "/onvif/media_service",
        signedEnvelope(QStringLiteral("<trt:GetProfiles/>")), "application/soap+xml", true);
    QCOMPARE(last.status, 200);
    QVERIFY(last.closed);
    QCOMPARE(last.header("Connection"), QByteArray("close"));
    QCOMPARE(camera->requestCount(), 4);

    // The option is case-insensitive: "Close", as ONVIF clients send it, ends the connection too.
    for (const QByteArray& token : { QByteArray("Close"), QByteArray("CLOSE") }) {
        HttpConnection once(camera->port());
        const HttpReply reply = once.request("POST", "/onvif/device_service", signedEnvelope(kDeviceInfo),
            "application/soap+xml", true, 5000, token);
        QCOMPARE(reply.status, 200);
        QVERIFY2(reply.closed, token.constData());
        QCOMPARE(reply.header("Connection"), QByteArray("close"));
    }

    // An idle kept-alive connection is let go after the configured timeout.
    CameraConfig quick = CameraConfig::defaultCamera();
    quick.keepAliveTimeoutSec = 1;
    auto other = startCamera(quick);
    HttpConnection idle(other->port());
    QCOMPARE(idle.request("POST", "/x", signedEnvelope(kDeviceInfo)).status, 200);
    QVERIFY(idle.waitForClose(4000));
}

void TestSimCamera::badRequests_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("fault");
    const QByteArray soap = "application/soap+xml";
    QTest::newRow("not XML") << QByteArray("POST") << QByteArray("this is no XML <") << soap << 400
                             << QStringLiteral("Sender|ter:WellFormed");
    QTest::newRow("empty body") << QByteArray("POST") << QByteArray() << soap << 400
                                << QStringLiteral("Sender|ter:WellFormed");
    QTest::newRow("wrong content type")
        << QByteArray("POST") << signedEnvelope(kDeviceInfo) << QByteArray("text/plain") << 400
        << QStringLiteral("Sender|ter:InvalidArgs");
    QTest::newRow("unknown operation")
        << QByteArray("POST") << signedEnvelope(QStringLiteral("<tds:FlyToTheMoon/>")) << soap << 400
        << QStringLiteral("Receiver|ter:ActionNotSupported");
    QTest::newRow("empty SOAP body") << QByteArray("POST") << signedEnvelope(QString()) << soap << 400
                                     << QStringLiteral("Sender|ter:InvalidArgs");
    QTest::newRow("SOAP 1.1 envelope")
        << QByteArray("POST")
        << QByteArray("<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body>"
                      "<GetDeviceInformation "
                      "xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/></e:Body></e:Envelope>")
        << QByteArray("text/xml") << 400 << QStringLiteral("VersionMismatch");
    QTest::newRow("XML but no envelope") << QByteArray("POST") << QByteArray("<a><b/></a>") << soap << 400
                                         << QStringLiteral("Sender|ter:WellFormed");
    QTest::newRow("GET on a service")
        << QByteArray("GET") << QByteArray() << QByteArray() << 404 << QString();
}

void TestSimCamera::badRequests()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, contentType);
    QFETCH(int, status);
    QFETCH(QString, fault);
    auto camera = startCamera();
    HttpConnection connection(camera->port());
    const HttpReply reply
        = connection.request(method, "/onvif/device_service", body, contentType, true, 3000);
    QCOMPARE(reply.status, status);
    QCOMPARE(faultSummary(reply), fault);
    // Still serving afterwards.
    QCOMPARE(post(camera->port(), signedEnvelope(kDeviceInfo)).status, 200);
}

void TestSimCamera::capabilitiesPointAtOwnPorts()
{
    auto camera = startCamera();
    const QString base = camera->baseUrl();
    HttpReply all = post(camera->port(),
        signedEnvelope(QStringLiteral("<tds:GetCapabilities><tds:Category>All"
                                      "</tds:Category></tds:GetCapabilities>")));
    QCOMPARE(all.status, 200);
    const QDomDocument doc = all.xml();
    const QStringList expected = { base + "/onvif/device_service", base + "/onvif/event_service",
        base + "/onvif/imaging_service", base + "/onvif/media_service", base + "/onvif/ptz_service" };
    QStringList xaddrs;
    for (const QDomElement& e : findElements(doc, QStringLiteral("XAddr")))
        xaddrs << e.text();
    QCOMPARE(xaddrs, expected);

    CameraConfig noPtz = CameraConfig::defaultCamera();
    noPtz.ptzCapability = false;
    noPtz.imagingCapability = false;
    auto other = startCamera(noPtz);
    const HttpReply reduced = post(other->port(), signedEnvelope(QStringLiteral("<tds:GetCapabilities/>")));
    QVERIFY(findElement(reduced.xml(), QStringLiteral("PTZ")).isNull());
    QVERIFY(findElement(reduced.xml(), QStringLiteral("Imaging")).isNull());
    QVERIFY(!findElement(reduced.xml(), QStringLiteral("Media")).isNull());
    const HttpReply ptzOnly = post(other->port(),
        signedEnvelope(QStringLiteral("<tds:GetCapabilities><tds:Category>PTZ"
                                      "</tds:Category></tds:GetCapabilities>")));
    QCOMPARE(faultSummary(ptzOnly), QStringLiteral("Receiver|ter:ActionNotSupported"));
    QCOMPARE(faultSummary(post(other->port(), signedEnvelope(ptz("GetNodes", QString())))),
        QStringLiteral("Receiver|ter:ActionNotSupported"));

    const HttpReply services = post(camera->port(),
        signedEnvelope(QStringLiteral("<tds:GetServices><tds:IncludeCapability>true"
                                      "</tds:IncludeCapability></tds:GetServices>")));
    QCOMPARE(findElements(services.xml(), QStringLiteral("Service")).size(), 5);
    QVERIFY(!findElement(services.xml(), QStringLiteral("Capabilities")).isNull());
    QCOMPARE(findElements(post(other->port(), signedEnvelope(QStringLiteral("<tds:GetServices/>"))).xml(),
                 QStringLiteral("Service"))
                 .size(),
        3);
}

void TestSimCamera::defaultProfilesAndUris()
{
    auto camera = startCamera();
    const HttpReply reply
        = post(camera->port(), signedEnvelope(QStringLiteral("<trt:GetProfiles/>")), "/onvif/media_service");
    QCOMPARE(reply.status, 200);
    const QList<QDomElement> profiles = findElements(reply.xml(), QStringLiteral("Profiles"));
    QCOMPARE(profiles.size(), 5);
    QStringList encoderTokens, encodings, tokens;
    int withAudio = 0, withPtz = 0, withoutVideo = 0;
    QSet<QString> resolutions;
    for (const QDomElement& p : profiles) {
        tokens << p.attribute(QStringLiteral("token"));
        const QDomElement venc = p.firstChildElement(QStringLiteral("VideoEncoderConfiguration"));
        if (venc.isNull()) {
            ++withoutVideo;
        } else {
            encoderTokens << venc.attribute(QStringLiteral("token"));
            encodings << venc.firstChildElement(QStringLiteral("Encoding")).text();
            const QDomElement res = venc.firstChildElement(QStringLiteral("Resolution"));
            resolutions << res.firstChildElement(QStringLiteral("Width")).text() + "x"
                    + res.firstChildElement(QStringLiteral("Height")).text();
        }
        withAudio += !p.firstChildElement(QStringLiteral("AudioEncoderConfiguration")).isNull();
        withPtz += !p.firstChildElement(QStringLiteral("PTZConfiguration")).isNull();
    }
    QCOMPARE(withoutVideo, 1);
    QCOMPARE(encoderTokens.count(QStringLiteral("venc_main")), 2);
    QVERIFY(encodings.contains(QStringLiteral("H264")) && encodings.contains(QStringLiteral("JPEG")));
    QVERIFY(withAudio > 0 && withAudio < profiles.size());
    QVERIFY(withPtz > 0 && withPtz < profiles.size());
    QCOMPARE(resolutions.size(), 3);

    QSet<QString> uris;
    for (const QString& token : tokens) {
        const HttpReply uri
            = post(camera->port(), signedEnvelope(streamUriBody(token)), "/onvif/media_service");
        QCOMPARE(text(uri, "Uri"), QStringLiteral("rtsp://127.0.0.1:554/") + token);
        uris << text(uri, "Uri");
    }
    QCOMPARE(uris.size(), tokens.size());
    QCOMPARE(faultSummary(post(camera->port(), signedEnvelope(streamUriBody(QStringLiteral("nope"))))),
        QStringLiteral("Sender|ter:InvalidArgVal"));
}

void TestSimCamera::requestLogKeepsWireText()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.logLimit = 3;
    auto camera = startCamera(config);
    const QByteArray request = signedEnvelope(QStringLiteral("<trt:GetProfiles/>"));
    HttpConnection connection(camera->port());
    QCOMPARE(
        connection.request("POST", "/onvif/media_service?x=1", request, "application/soap+xml; action=\"y\"")
            .status,
        200);
    const RequestRecord r = camera->requestLog().last();
    QCOMPARE(r.method, QStringLiteral("POST"));
    QCOMPARE(r.path, QStringLiteral("/onvif/media_service"));
    QCOMPARE(r.body, request);
    QCOMPARE(r.operation, QStringLiteral("GetProfiles"));
    QCOMPARE(r.header("content-type"), QByteArray("application/soap+xml; action=\"y\""));
    QCOMPARE(r.authResult, QStringLiteral("ok"));
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

void TestSimCamera::ptzPresetsAndPositions()
{
    auto camera = startCamera();
    const quint16 port = camera->port();
    auto call
        = [port](const QString& body) { return post(port, signedEnvelope(body), "/onvif/ptz_service"); };
    const QString node = QStringLiteral("ptz_node_0");

    const HttpReply nodeReply
        = call(ptz("GetNode", QStringLiteral("<tptz:NodeToken>ptz_node_0</tptz:NodeToken>")));
    QCOMPARE(text(nodeReply, "MaximumNumberOfPresets"), QStringLiteral("16"));
    QCOMPARE(findElement(nodeReply.xml(), QStringLiteral("PTZNode"))
                 .attribute(QStringLiteral("FixedHomePosition")),
        QStringLiteral("false"));

    // Move right and up for 300 ms at full speed.
    QCOMPARE(call(ptz("ContinuousMove",
                      profileToken("prof_main")
                          + QStringLiteral("<tptz:Velocity><tt:PanTilt x=\"1\" y=\"0.5\"/>"
                                           "</tptz:Velocity><tptz:Timeout>PT0.3S</tptz:Timeout>")))
                 .status,
        200);
    QVERIFY(camera->ptzPosition(node).moving);
    QTest::qWait(500);
    PtzPosition p = camera->ptzPosition(node);
    QVERIFY(!p.moving);
    QVERIFY2(qAbs(p.pan - 0.3) < 0.05, qPrintable(QString::number(p.pan)));
    QVERIFY2(qAbs(p.tilt - 0.15) < 0.03, qPrintable(QString::number(p.tilt)));
    const HttpReply status = call(ptz("GetStatus", profileToken("prof_main")));
    QCOMPARE(findElement(status.xml(), QStringLiteral("MoveStatus")).firstChildElement().text(),
        QStringLiteral("IDLE"));
    QCOMPARE(
        findElement(status.xml(), QStringLiteral("Position")).firstChildElement().attribute("x").toDouble(),
        p.pan);

    const HttpReply set = call(ptz(
        "SetPreset", profileToken("prof_main") + QStringLiteral("<tptz:PresetName>Door</tptz:PresetName>")));
    const QString doorToken = text(set, "PresetToken");
    QVERIFY(!doorToken.isEmpty());
    QCOMPARE(camera->presets(QStringLiteral("prof_main")).size(), 1);
    QVERIFY(camera->presets(QStringLiteral("prof_sub")).isEmpty()); // presets belong to the profile

    // Zoom in and stop it by hand; then save as home and go elsewhere.
    call(ptz("ContinuousMove",
        profileToken("prof_main") + QStringLiteral("<tptz:Velocity><tt:Zoom x=\"1\"/></tptz:Velocity>")));
    QTest::qWait(200);
    QCOMPARE(call(ptz("Stop",
                      profileToken("prof_main")
                          + QStringLiteral("<tptz:PanTilt>true</tptz:PanTilt>"
                                           "<tptz:Zoom>true</tptz:Zoom>")))
                 .status,
        200);
    p = camera->ptzPosition(node);
    QVERIFY(!p.moving);
    QVERIFY(p.zoom > 0.1 && p.zoom < 0.6);
    QCOMPARE(call(ptz("SetHomePosition", profileToken("prof_main"))).status, 200);
    const PtzPosition home = p;

    QCOMPARE(call(ptz("GotoPreset",
                      profileToken("prof_main") + "<tptz:PresetToken>" + doorToken + "</tptz:PresetToken>"))
                 .status,
        200);
    p = camera->ptzPosition(node);
    QCOMPARE(p.zoom, 0.0);
    QVERIFY(qAbs(p.pan - 0.3) < 0.05);
    QCOMPARE(call(ptz("GotoHomePosition", profileToken("prof_main"))).status, 200);
    QCOMPARE(camera->ptzPosition(node).zoom, home.zoom);

    // Renaming in place keeps the token; the list shows the new name and the stored position.
    QCOMPARE(text(call(ptz("SetPreset",
                      profileToken("prof_main") + "<tptz:PresetName>Gate</tptz:PresetName>"
                          + "<tptz:PresetToken>" + doorToken + "</tptz:PresetToken>")),
                 "PresetToken"),
        doorToken);
    const HttpReply list = call(ptz("GetPresets", profileToken("prof_main")));
    QCOMPARE(findElements(list.xml(), QStringLiteral("Preset")).size(), 1);
    QCOMPARE(text(list, "Name"), QStringLiteral("Gate"));
    QCOMPARE(findElement(list.xml(), QStringLiteral("Zoom")).attribute("x").toDouble(), home.zoom);

    QCOMPARE(call(ptz("RemovePreset",
                      profileToken("prof_main") + "<tptz:PresetToken>" + doorToken + "</tptz:PresetToken>"))
                 .status,
        200);
    QVERIFY(camera->presets(QStringLiteral("prof_main")).isEmpty());
    QCOMPARE(faultSummary(call(ptz("GotoPreset",
                 profileToken("prof_main") + "<tptz:PresetToken>" + doorToken + "</tptz:PresetToken>"))),
        QStringLiteral("Sender|ter:InvalidArgVal"));
    QCOMPARE(call(ptz("GetPresetTours", profileToken("prof_main"))).status, 200);
}

void TestSimCamera::ptzRefusals()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.ptzNodes[0].maxPresets = 2;
    config.ptzNodes[0].fixedHomePosition = true;
    auto camera = startCamera(config);
    auto call = [&camera](const QString& body) { return post(camera->port(), signedEnvelope(body)); };
    auto innerSubcode = [](const HttpReply& r) {
        const QList<QDomElement> values = findElements(r.xml(), QStringLiteral("Value"));
        return values.isEmpty() ? QString() : values.last().text();
    };
    QCOMPARE(
        innerSubcode(call(ptz("GetPresets", profileToken("prof_jpeg")))), QStringLiteral("ter:NoPTZProfile"));
    QCOMPARE(innerSubcode(call(ptz("GetPresets", profileToken("missing")))), QStringLiteral("ter:NoProfile"));
    QCOMPARE(innerSubcode(call(ptz("GetNode", QStringLiteral("<tptz:NodeToken>x</tptz:NodeToken>")))),
        QStringLiteral("ter:NoEntity"));
    QCOMPARE(innerSubcode(call(ptz("SetHomePosition", profileToken("prof_main")))),
        QStringLiteral("ter:CannotOverwriteHome"));
    QCOMPARE(
        call(ptz("SetPreset", profileToken("prof_main") + "<tptz:PresetName>A</tptz:PresetName>")).status,
        200);
    QCOMPARE(innerSubcode(
                 call(ptz("SetPreset", profileToken("prof_main") + "<tptz:PresetName>A</tptz:PresetName>"))),
        QStringLiteral("ter:PresetExist"));
    QCOMPARE(call(ptz("SetPreset", profileToken("prof_main"))).status, 200);
    QCOMPARE(innerSubcode(call(ptz("SetPreset", profileToken("prof_main")))),
        QStringLiteral("ter:TooManyPresets"));
    QCOMPARE(camera->presets(QStringLiteral("prof_main")).size(), 2);
}

void TestSimCamera::eventSubscriptionRound()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.eventIntervalMs = 50;
    auto camera = startCamera(config);
    const quint16 port = camera->port();

    const HttpReply created = post(port,
        signedEnvelope(QStringLiteral("<tev:CreatePullPointSubscription><tev:InitialTerminationTime>PT10S"
                                      "</tev:InitialTerminationTime></tev:CreatePullPointSubscription>")),
        "/onvif/event_service");
    QCOMPARE(created.status, 200);
    const QString address = text(created, "Address");
    QVERIFY(address.startsWith(camera->baseUrl() + "/onvif/subscription/"));
    const QDateTime termination = QDateTime::fromString(text(created, "TerminationTime"), Qt::ISODate);
    QVERIFY(qAbs(QDateTime::currentDateTimeUtc().secsTo(termination) - 10) <= 1);
    QCOMPARE(camera->subscriptionCount(), 1);
    const QByteArray path = QUrl(address).path().toUtf8();

    auto pull = [&](const QByteArray& where) {
        return post(port,
            signedEnvelope(QStringLiteral("<tev:PullMessages><tev:Timeout>PT2S</tev:Timeout>"
                                          "<tev:MessageLimit>100</tev:MessageLimit></tev:PullMessages>")),
            where);
    };
    QList<int> sequence;
    for (int round = 0; round < 2; ++round) {
        QTest::qWait(120);
        const HttpReply pulled = pull(path);
        QCOMPARE(pulled.status, 200);
        const QList<QDomElement> messages = findElements(pulled.xml(), QStringLiteral("Message"));
        int inner = 0;
        for (const QDomElement& m : messages) {
            if (!m.hasAttribute(QStringLiteral("UtcTime")))
                continue;
            ++inner;
            QVERIFY(
                QDateTime::fromString(m.attribute(QStringLiteral("UtcTime")), Qt::ISODateWithMs).isValid());
            QCOMPARE(m.parentNode().toElement().localName(), QStringLiteral("Message"));
            sequence
                << m.firstChildElement(QStringLiteral("Key")).firstChildElement().attribute("Value").toInt();
        }
        QVERIFY(inner >= 1);
    }
    for (int i = 1; i < sequence.size(); ++i)
        QCOMPARE(sequence[i], sequence[i - 1] + 1); // nothing lost, nothing twice

    const HttpReply renewed = post(port,
        signedEnvelope(QStringLiteral("<wsnt:Renew><wsnt:TerminationTime>PT60S"
                                      "</wsnt:TerminationTime></wsnt:Renew>")),
        path);
    QCOMPARE(renewed.status, 200);
    QVERIFY(QDateTime::currentDateTimeUtc().secsTo(
                QDateTime::fromString(text(renewed, "TerminationTime"), Qt::ISODate))
        > 50);

    // Subscription named in the WS-Addressing To header instead of the path.
    const QString toHeader
        = QStringLiteral("<a:To xmlns:a=\"http://www.w3.org/2005/08/addressing\">%1</a:To>").arg(address);
    QByteArray unsubscribe = signedEnvelope(QStringLiteral("<wsnt:Unsubscribe/>"));
    unsubscribe.replace("</s:Header>", toHeader.toUtf8() + "</s:Header>");
    QCOMPARE(post(port, unsubscribe, "/onvif/event_service").status, 200);
    QCOMPARE(camera->subscriptionCount(), 0);
    QCOMPARE(faultSummary(pull(path)), QStringLiteral("Sender|ter:InvalidArgVal"));

    const HttpReply subscribed = post(port,
        signedEnvelope(QStringLiteral("<wsnt:Subscribe><wsnt:ConsumerReference><a:Address>http://127.0.0.1:9/"
                                      "</a:Address></wsnt:ConsumerReference><wsnt:InitialTerminationTime>"
                                      "</wsnt:InitialTerminationTime></wsnt:Subscribe>")));
    QCOMPARE(subscribed.status, 200);
    QVERIFY(text(subscribed, "Address").contains(QStringLiteral("/onvif/subscription/")));
    QCOMPARE(camera->subscriptionCount(), 1);
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
    CameraConfig quiet = CameraConfig::defaultCamera();

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
    QTest::qWait(1300); // the default event interval is 1 s: the pull has seen one event... or waits
    QElapsedTimer timer;
    timer.start();
    camera->stop();
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(longPull.wait_for(std::chrono::seconds(3)) == std::future_status::ready);
    QVERIFY(delayed.wait_for(std::chrono::seconds(3)) == std::future_status::ready);
    QVERIFY(!delayed.get().answered);
    longPull.get();
}

void TestSimCamera::snapshotIsJpeg()
{
    auto camera = startCamera();
    const HttpReply uriReply = post(camera->port(),
        signedEnvelope(QStringLiteral("<trt:GetSnapshotUri><trt:ProfileToken>prof_sub"
                                      "</trt:ProfileToken></trt:GetSnapshotUri>")));
    const QUrl uri(text(uriReply, "Uri"));
    QCOMPARE(uri.port(), int(camera->port()));
    const HttpReply image = get(camera->port(), uri.path().toUtf8());
    QCOMPARE(image.status, 200);
    QCOMPARE(image.header("Content-Type"), QByteArray("image/jpeg"));
    const QImage decoded = QImage::fromData(image.body, "JPEG");
    QVERIFY(!decoded.isNull());
    QCOMPARE(decoded.size(), QSize(640, 360));
    QCOMPARE(QImage::fromData(get(camera->port(), "/snapshot/prof_jpeg.jpg").body).size(), QSize(640, 360));
    QCOMPARE(get(camera->port(), "/snapshot/prof_audio.jpg").status, 404);
    QCOMPARE(get(camera->port(), "/snapshot/unknown.jpg").status, 404);

    FaultSpec broken;
    broken.mode = FaultMode::Malformed;
    camera->setFault(QStringLiteral("Snapshot"), broken);
    const HttpReply bad = get(camera->port(), uri.path().toUtf8());
    QCOMPARE(bad.status, 200);
    QVERIFY(QImage::fromData(bad.body).isNull());
    QCOMPARE(camera->requestsFor(QStringLiteral("Snapshot")).size(), 5);
}

void TestSimCamera::configFromJson()
{
    const QByteArray json = R"({
        "defaults": {"manufacturer": "Acme Cam", "password": "pw", "capabilities": {"ptz": false}},
        "cameras": [
            {"model": "A1", "repeat": 3, "faults": {"GetProfiles": {"mode": "truncate", "count": 2}}},
            {"model": "B2", "requireAuth": false,
             "videoEncoders": [{"token": "v", "width": 320, "height": 240}],
             "profiles": [{"token": "only", "videoEncoder": "v", "streamUri": "rtsp://127.0.0.1:8554/x"}]}
        ]})";
    QVector<CameraConfig> cameras;
    QString error;
    QVERIFY2(parseConfig(json, cameras, &error), qPrintable(error));
    QCOMPARE(cameras.size(), 4);
    QCOMPARE(cameras[2].serialNumber, QStringLiteral("SIM0000001-0003"));
    QCOMPARE(cameras[0].manufacturer, QStringLiteral("Acme Cam"));
    QVERIFY(!cameras[0].ptzCapability);
    QCOMPARE(cameras[1].faults.value(QStringLiteral("GetProfiles")).mode, FaultMode::Truncate);
    QCOMPARE(cameras[1].faults.value(QStringLiteral("GetProfiles")).count, 2);
    QCOMPARE(cameras[3].profiles.size(), 1);

    auto camera = startCamera(cameras[3]);
    QCOMPARE(text(post(camera->port(), plainEnvelope(streamUriBody(QStringLiteral("only")))), "Uri"),
        QStringLiteral("rtsp://127.0.0.1:8554/x"));
    QCOMPARE(
        text(post(camera->port(), plainEnvelope(kDeviceInfo)), "Manufacturer"), QStringLiteral("Acme Cam"));

    QVERIFY(!parseConfig(R"({"profiles": [{"token": "p", "videoEncoder": "ghost"}]})", cameras, &error));
    QVERIFY(error.contains(QStringLiteral("ghost")));
    QVERIFY(!parseConfig(R"({"faults": {"GetProfiles": {"mode": "explode"}}})", cameras, &error));
    QVERIFY(!parseConfig("[1, 2]", cameras, &error));
    QVERIFY(!parseConfig("{ not json", cameras, &error));
}

void TestSimCamera::refusesNonLoopbackHost()
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.host = QStringLiteral("0.0.0.0");
    Camera camera(config);
    QString error;
    QVERIFY(!camera.start(&error));
    QVERIFY(!camera.isRunning());
    QVERIFY(error.contains(QStringLiteral("127.0.0.0/8")));

    // A second camera on the same fixed port must fail rather than share it.
    auto first = startCamera();
    CameraConfig clash = CameraConfig::defaultCamera();
    clash.port = first->port();
    Camera second(clash);
    QVERIFY(!second.start(&error));
}

void TestSimCamera::qtNetworkClient()
{
    // The library posts through QNetworkAccessManager; fault modes must reach it as the intended errors.
    auto camera = startCamera();
    QNetworkAccessManager manager;
    auto send = [&](bool close) {
        QNetworkRequest request(QUrl(camera->deviceUrl()));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/soap+xml"));
        if (close)
            request.setRawHeader("Connection", "Close");
        QNetworkReply* reply = manager.post(request, signedEnvelope(kDeviceInfo));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        if (!reply->isFinished())
            finished.wait(5000);
        reply->deleteLater();
        return qMakePair(reply->error(), reply->readAll());
    };
    for (bool close : { true, false, false, false }) {
        const auto result = send(close);
        QCOMPARE(result.first, QNetworkReply::NoError);
        QVERIFY(result.second.contains("<tds:Manufacturer>SimCam</tds:Manufacturer>"));
    }
    const struct
    {
        FaultMode mode;
        QNetworkReply::NetworkError error;
    } cases[] = { { FaultMode::Drop, QNetworkReply::RemoteHostClosedError },
        { FaultMode::Http500, QNetworkReply::InternalServerError },
        { FaultMode::SoapFault, QNetworkReply::InternalServerError } };
    for (const auto& c : cases) {
        FaultSpec spec;
        spec.mode = c.mode;
        camera->setFault(QStringLiteral("GetDeviceInformation"), spec);
        QCOMPARE(send(true).first, c.error);
        camera->clearFaults();
    }
    // Qt resends a request once when a reused connection closes without reply, so a single
    // dropped answer on a kept-alive connection goes unnoticed by the client.
    const int before = camera->requestsFor(QStringLiteral("GetDeviceInformation")).size();
    QCOMPARE(send(false).first, QNetworkReply::NoError);
    FaultSpec once;
    once.mode = FaultMode::Drop;
    once.count = 1;
    camera->setFault(QStringLiteral("GetDeviceInformation"), once);
    QCOMPARE(send(false).first, QNetworkReply::NoError);
    const QVector<RequestRecord> seen = camera->requestsFor(QStringLiteral("GetDeviceInformation"));
    QCOMPARE(seen.size(), before + 3);
    QCOMPARE(seen.last().status, 200);
    QCOMPARE(seen.at(seen.size() - 2).status, 0);
    FaultSpec truncate;
    truncate.mode = FaultMode::Truncate;
    truncate.count = 1;
    camera->setFault(QStringLiteral("GetDeviceInformation"), truncate);
    QVERIFY(send(true).first != QNetworkReply::NoError);
    QCOMPARE(send(true).first, QNetworkReply::NoError);
}

QTEST_GUILESS_MAIN(TestSimCamera)
#include "tst_simcamera.moc"
