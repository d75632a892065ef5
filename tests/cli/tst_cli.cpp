#include <camera.h>

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSemaphore>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QThread>

#include <QtTest>
#include <algorithm>
#include <csignal>

using CameraSim::Camera;

namespace {

struct Run
{
    int exitCode = -1;
    QString out;
    QString err;
};

// The tool runs as a separate process against a camera served by this one.
Run cli(const QStringList& args, int timeoutMs = 30000,
    const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(QStringLiteral(ONVIF_CLI), args);
    Run run;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        run.err = QStringLiteral("timed out");
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

// An https front for the simulated camera, in a thread of its own (the tool's runs block this
// one): TLS ends here and the bytes go on to the camera's plain port.
class TlsFront : public QThread
{
public:
    explicit TlsFront(quint16 target)
        : m_target(target)
    { }
    quint16 port() const { return m_port; }
    void begin()
    {
        start();
        m_ready.acquire();
    }

protected:
    void run() override
    {
        QFile pem(QStringLiteral(TLS_DIR "/camera.pem")), key(QStringLiteral(TLS_DIR "/camera.key"));
        pem.open(QIODevice::ReadOnly);
        key.open(QIODevice::ReadOnly);
        Server server(QSslCertificate(&pem), QSslKey(&key, QSsl::Rsa), m_target);
        server.listen(QHostAddress::LocalHost);
        m_port = server.serverPort();
        m_ready.release();
        exec();
    }

private:
    class Server : public QTcpServer
    {
    public:
        Server(const QSslCertificate& certificate, const QSslKey& key, quint16 target)
            : m_certificate(certificate)
            , m_key(key)
            , m_target(target)
        { }

    protected:
        void incomingConnection(qintptr descriptor) override
        {
            auto* tls = new QSslSocket(this);
            tls->setSocketDescriptor(descriptor);
            tls->setLocalCertificate(m_certificate);
            tls->setPrivateKey(m_key);
            auto* plain = new QTcpSocket(tls);
            plain->connectToHost(QHostAddress::LocalHost, m_target);
            connect(tls, &QSslSocket::readyRead, plain, [tls, plain] { plain->write(tls->readAll()); });
            connect(plain, &QTcpSocket::readyRead, tls, [tls, plain] { tls->write(plain->readAll()); });
            connect(plain, &QTcpSocket::disconnected, tls, [tls] { tls->disconnectFromHost(); });
            connect(tls, &QSslSocket::disconnected, tls, &QObject::deleteLater);
            tls->startServerEncryption();
        }

    private:
        QSslCertificate m_certificate;
        QSslKey m_key;
        quint16 m_target;
    };

    quint16 m_target;
    quint16 m_port = 0;
    QSemaphore m_ready;
};

QJsonObject jsonOf(const Run& run)
{
    return QJsonDocument::fromJson(run.out.toUtf8()).object();
}

} // namespace

class TestCli : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void info();
    void credentialsFromEnvironment();
    void profilesWithStreamUris();
    void imaging();
    void snapshot();
    void httpsCamera();
    void errorExits_data();
    void errorExits();
    void progressWhileWaiting();
    void ptzPresetsAndMoves();
    void ptzErrors();
    void events();
    void dialog();
    void demo();

private:
    std::unique_ptr<Camera> m_camera;
    QString m_url;
};

void TestCli::initTestCase()
{
    m_camera = std::make_unique<Camera>();
    QVERIFY(m_camera->start());
    m_url = m_camera->deviceUrl();
}

void TestCli::info()
{
    const Run human = cli({ "-u", "admin", "-p", "admin", "info", m_url });
    QCOMPARE(human.exitCode, 0);
    QVERIFY2(human.out.contains(QLatin1String("Manufacturer:"))
            && human.out.contains(m_camera->config().manufacturer),
        qPrintable(human.out));
    QVERIFY(human.out.contains(QLatin1String("Device type:")));

    const Run json = cli({ "-u", "admin", "-p", "admin", "--json", "info", m_url });
    QCOMPARE(json.exitCode, 0);
    const QJsonObject o = jsonOf(json);
    QCOMPARE(o.value("serialNumber").toString(), m_camera->config().serialNumber);
    QCOMPARE(o.value("model").toString(), m_camera->config().model);
    QCOMPARE(o.value("type").toString(), QStringLiteral("Unknown"));
    // A bare host:port is what people type.
    const QUrl url(m_url);
    QCOMPARE(cli({ "-u", "admin", "-p", "admin", "--json", "info",
                     QStringLiteral("127.0.0.1:%1").arg(url.port()) })
                 .exitCode,
        0);
    // Help for one command is that command's.
    const Run help = cli({ "ptz", "--help" });
    QVERIFY2(help.exitCode == 0 && help.out.contains(QLatin1String("absolute PAN TILT"))
            && !help.out.contains(QLatin1String("discover")),
        qPrintable(help.out));
    QCOMPARE(cli({ "--help-all" }).exitCode, 0);

    // --verbose traces each exchange, with the password digest and its nonce masked.
    const Run traced = cli({ "-u", "admin", "-p", "admin", "--verbose", "info", m_url });
    QCOMPARE(traced.exitCode, 0);
    QVERIFY(traced.err.contains(QLatin1String("<tds:GetDeviceInformation")));
    QVERIFY(traced.err.contains(QLatin1String("GetDeviceInformationResponse>")));
    QVERIFY2(traced.err.contains(QLatin1String("PasswordDigest\">***</Password>"))
            && traced.err.contains(QLatin1String("Base64Binary\">***</Nonce>")),
        qPrintable(traced.err));
    QVERIFY2(traced.err.contains(QLatin1String("[http] POST ") + m_url + QLatin1String(" -> 200 OK, ")),
        qPrintable(traced.err));
    // Camera logs see which client asked.
    const auto headers = m_camera->requestsFor("GetDeviceInformation").last().headers;
    QVERIFY(std::any_of(headers.begin(), headers.end(), [](const QPair<QByteArray, QByteArray>& h) {
        return h.first.compare("User-Agent", Qt::CaseInsensitive) == 0 && h.second.startsWith("OnvifTypes/");
    }));
}

void TestCli::credentialsFromEnvironment()
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("ONVIF_USER", "admin");
    env.insert("ONVIF_PASSWORD", "admin");
    QCOMPARE(cli({ "info", m_url }, 30000, env).exitCode, 0);
    env.insert("ONVIF_PASSWORD", "wrong");
    QCOMPARE(cli({ "info", m_url }, 30000, env).exitCode, 4);
    // The option wins over the environment, and so does a password file.
    QCOMPARE(cli({ "-p", "admin", "info", m_url }, 30000, env).exitCode, 0);
    QTemporaryDir dir;
    QFile file(dir.filePath("password"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("admin\n") == 6);
    file.close();
    QCOMPARE(cli({ "--password-file", file.fileName(), "info", m_url }, 30000, env).exitCode, 0);
    QCOMPARE(cli({ "--password-file", dir.filePath("none"), "info", m_url }, 30000, env).exitCode, 2);
}

void TestCli::profilesWithStreamUris()
{
    // Media2 by default: its H.265 profile, the largest, comes first.
    const QJsonObject media2 = jsonOf(cli({ "-u", "admin", "-p", "admin", "--json", "profiles", m_url }));
    QCOMPARE(media2.value("mediaService").toString(), m_camera->serviceUrl(CameraSim::Service::Media2));
    const QJsonObject h265 = media2.value("profiles").toArray().at(0).toObject();
    QCOMPARE(
        h265.value("token").toString() + ' ' + h265.value("video").toObject().value("encoding").toString(),
        QStringLiteral("profile_h265 H265"));
    QVERIFY(cli({ "-u", "admin", "-p", "admin", "profiles", m_url })
                .out.contains(QLatin1String("video: H265 2560x1440, 25 fps, 6144 kbps, Main, GOP 50")));

    const Run run = cli({ "-u", "admin", "-p", "admin", "--json", "--media", "1", "profiles", m_url });
    QCOMPARE(run.exitCode, 0);
    const QJsonObject o = jsonOf(run);
    QCOMPARE(o.value("mediaService").toString(), m_camera->serviceUrl(CameraSim::Service::Media));
    const QJsonArray profiles = o.value("profiles").toArray();
    QCOMPARE(profiles.size(), 3);
    QCOMPARE(profiles[0].toObject().value("token").toString(), QStringLiteral("prof_main"));
    QCOMPARE(
        profiles[0].toObject().value("uri").toString(), QStringLiteral("rtsp://127.0.0.1:554/prof_main"));
    QCOMPARE(profiles[2].toObject().value("video").toObject().value("width").toInt(), 640);
    QVERIFY(profiles[0].toObject().contains("audio"));
    QVERIFY(!profiles[2].toObject().contains("audio"));

    const Run human = cli({ "-u", "admin", "-p", "admin", "profiles", m_url });
    QCOMPARE(human.exitCode, 0);
    QVERIFY(human.out.contains(QLatin1String("rtsp://127.0.0.1:554/prof_jpeg")));

    // --all: every profile the device lists, in its order, named, audio-only included; units named.
    const QJsonArray all = jsonOf(cli({ "-u", "admin", "-p", "admin", "--json", "profiles", "--all", m_url }))
                               .value("profiles")
                               .toArray();
    const auto& configured = m_camera->config().profiles;
    QCOMPARE(all.size(), configured.size());
    for (int i = 0; i < all.size(); ++i) {
        QCOMPARE(all[i].toObject().value("token").toString(), configured[i].token);
        QCOMPARE(all[i].toObject().value("name").toString(), configured[i].name);
    }
    const QJsonObject audioOnly = all.last().toObject();
    QVERIFY(!audioOnly.contains("video") && audioOnly.value("audio").toObject().contains("sampleRateKHz"));
    QCOMPARE(all[0].toObject().value("video").toObject().value("bitrateKbps").toInt(), 4096);
    QCOMPARE(cli({ "--all", "info", m_url }).exitCode, 2);
}

void TestCli::imaging()
{
    const QStringList login { "-u", "admin", "-p", "admin" };
    // Sharpness past the device's 15 is clamped; with --strict nothing is sent.
    const Run set
        = cli(login + QStringList { "imaging", m_url, "set", "sharpness=40", "ircut=off", "brightness=35" });
    QCOMPARE(set.exitCode, 0);
    QVERIFY2(set.out.contains(QRegularExpression("sharpness: +15\\n"))
            && set.out.contains(QRegularExpression("ircut: +OFF")),
        qPrintable(set.out));
    const Run strict = cli(login + QStringList { "--strict", "imaging", m_url, "set", "sharpness=16" });
    QCOMPARE(strict.exitCode, 2);
    QVERIFY2(
        strict.err.contains("sharpness 16 is outside the device's range 0 to 15"), qPrintable(strict.err));
    const QJsonObject shown = jsonOf(cli(login + QStringList { "--json", "imaging", m_url }));
    QCOMPARE(shown.value("settings").toObject().value("brightness").toDouble(), 35.0);
    QCOMPARE(cli(login + QStringList { "imaging", m_url, "focus", "absolute", "0.5" }).exitCode, 0);
    QVERIFY(cli(login + QStringList { "imaging", m_url, "focus", "status" })
                .out.startsWith("focus at 0.5, IDLE"));
    QCOMPARE(cli(login + QStringList { "imaging", m_url, "set", "hue=3" }).exitCode, 2);
}

void TestCli::snapshot()
{
    QTemporaryDir dir;
    const QString file = dir.filePath("shot.jpg");
    const Run run = cli({ "-u", "admin", "-p", "admin", "snapshot", m_url, file });
    QCOMPARE(run.exitCode, 0);
    QImage picture(file);
    QVERIFY2(!picture.isNull(), qPrintable(run.out + run.err));
    QVERIFY(run.out.contains(file));
    QVERIFY(
        m_camera->requestsFor("Snapshot").last().path.contains(QLatin1String("profile_h265"))); // the largest

    // The camera's bytes as they are, whatever the file name says; "-" is standard output.
    QFile saved(file);
    QVERIFY(saved.open(QIODevice::ReadOnly));
    const QByteArray jpeg = saved.readAll();
    QVERIFY(jpeg.startsWith("\xff\xd8\xff"));
    QProcess process;
    process.start(QStringLiteral(ONVIF_CLI), { "-u", "admin", "-p", "admin", "snapshot", m_url, "-" });
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardOutput(), jpeg);

    // --profile chooses the picture's profile, and names only profiles the device has.
    QCOMPARE(
        cli({ "-u", "admin", "-p", "admin", "--profile", "prof_sub", "snapshot", m_url, file }).exitCode, 0);
    QVERIFY(m_camera->requestsFor("Snapshot").last().path.contains(QLatin1String("prof_sub")));
    QCOMPARE(cli({ "-u", "admin", "-p", "admin", "--profile", "nope", "snapshot", m_url, file }).exitCode, 2);
    QCOMPARE(cli({ "-u", "admin", "-p", "admin", "--profile", "prof_sub", "info", m_url }).exitCode, 2);

    // A picture behind HTTP Digest, a camera hours off: the session answers both.
    CameraSim::CameraConfig digest = CameraSim::CameraConfig::defaultCamera();
    QVERIFY(digest.applyQuirk(QStringLiteral("snapshot-digest"))
        && digest.applyQuirk(QStringLiteral("clock-skew")));
    Camera camera(digest);
    QVERIFY(camera.start());
    QVERIFY(QFile::remove(file));
    QCOMPARE(cli({ "-u", "admin", "-p", "admin", "snapshot", camera.deviceUrl(), file }).exitCode, 0);
    QVERIFY(!QImage(file).isNull());
    QCOMPARE(cli({ "-u", "admin", "-p", "wrong", "snapshot", camera.deviceUrl(), file }).exitCode, 4);
    const QJsonObject clock = jsonOf(cli({ "--json", "time", camera.deviceUrl() }));
    QVERIFY2(qAbs(clock.value("offsetMs").toDouble() - digest.clockOffsetMs) < 3000,
        qPrintable(QJsonDocument(clock).toJson()));
}

void TestCli::httpsCamera()
{
    TlsFront front(quint16(QUrl(m_url).port()));
    front.begin();
    const QString url = QStringLiteral("https://127.0.0.1:%1/onvif/device_service").arg(front.port());
    const QStringList info { "-u", "admin", "-p", "admin", "info", url };
    // A self-signed certificate is refused unless trusted or verification is turned off.
    const Run untrusted = cli(info);
    const Run trusted = cli(QStringList { "--cacert", TLS_DIR "/camera.pem" } + info);
    const Run someoneElse = cli(QStringList { "--cacert", TLS_DIR "/other-ca.pem" } + info);
    const Run insecure = cli(QStringList { "--insecure" } + info);
    const Run noCertificate = cli(QStringList { "--cacert", QStringLiteral(TLS_DIR) } + info);
    front.quit();
    front.wait();
    QCOMPARE(untrusted.exitCode, 3);
    QVERIFY2(untrusted.err.contains(QLatin1String("SSL"), Qt::CaseInsensitive), qPrintable(untrusted.err));
    QVERIFY2(trusted.exitCode == 0 && trusted.out.contains(m_camera->config().manufacturer),
        qPrintable(trusted.err));
    QCOMPARE(someoneElse.exitCode, 3);
    QVERIFY2(insecure.exitCode == 0, qPrintable(insecure.err));
    QCOMPARE(noCertificate.exitCode, 2);
}

void TestCli::errorExits_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("fault"); // operation to spoil in the camera, if any
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    const QString closed = QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(probe.serverPort());
    probe.close();

    QTest::newRow("unreachable") << QStringList { "-u", "admin", "-p", "admin", "info", closed } << "" << 3
                                 << "cannot reach";
    QTest::newRow("wrong password") << QStringList { "-u", "admin", "-p", "nope", "info", "URL" } << "" << 4
                                    << "refused the user name or password";
    QTest::newRow("fault") << QStringList { "-u", "admin", "-p", "admin", "profiles", "URL" } << "GetProfiles"
                           << 1 << "profiles: device fault ter:Action (Receiver): Simulated fault";
    QTest::newRow("unreadable answer")
        << QStringList { "-u", "admin", "-p", "admin", "info", "URL" } << "malformed:GetDeviceInformation"
        << 1 << "sent an unreadable answer";
    QTest::newRow("unreadable snapshot URI") << QStringList {
        "-u", "admin", "-p", "admin", "snapshot", "URL", QDir::temp().filePath("tst_cli_unreadable.jpg")
    } << "malformed:GetSnapshotUri" << 1 << "sent an unreadable answer";
    QTest::newRow("silent device") << QStringList { "-u", "admin", "-p", "admin", "--timeout", "0.3", "info",
        "URL" } << "delay:GetDeviceInformation"
                                   << 3 << "no answer";
    QTest::newRow("bad url") << QStringList { "info", "ftp://camera-7" } << "" << 2 << "not an http(s) URL";
    QTest::newRow("no url") << QStringList { "info" } << "" << 2 << "wrong number of arguments";
    QTest::newRow("unknown command") << QStringList { "reboot", "URL" } << "" << 2 << "unknown command";
    QTest::newRow("bad option") << QStringList { "--frobnicate", "info", "URL" } << "" << 2 << "frobnicate";
    QTest::newRow("bad timeout") << QStringList { "--timeout", "soon", "info", "URL" } << "" << 2
                                 << "--timeout";
    QTest::newRow("no command") << QStringList {} << "" << 2 << "a command is needed";
}

void TestCli::errorExits()
{
    QFETCH(QStringList, args);
    QFETCH(QString, fault);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    args.replaceInStrings(QStringLiteral("URL"), m_url);
    m_camera->clearFaults();
    if (fault.startsWith(QLatin1String("delay:"))) {
        CameraSim::FaultSpec slow;
        slow.delayMs = 2000;
        m_camera->setFault(fault.mid(6), slow);
    } else if (fault.startsWith(QLatin1String("malformed:"))) {
        CameraSim::FaultSpec spec;
        spec.mode = CameraSim::FaultMode::Malformed;
        m_camera->setFault(fault.mid(10), spec);
    } else if (!fault.isEmpty()) {
        CameraSim::FaultSpec spec;
        spec.mode = CameraSim::FaultMode::SoapFault;
        m_camera->setFault(fault, spec);
    }
    const Run run = cli(args);
    // With --json the same failure is an object on stdout.
    const Run json = cli(QStringList { "--json" } + args);
    m_camera->clearFaults();
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(run.err.contains(message), qPrintable(run.err));
    QVERIFY(run.out.isEmpty());
    QCOMPARE(json.exitCode, exitCode);
    const QJsonObject o = jsonOf(json);
    QCOMPARE(o.value("exitCode").toInt(), exitCode);
    QVERIFY2(o.value("error").toString().contains(message), qPrintable(json.out));
}

void TestCli::progressWhileWaiting()
{
    CameraSim::FaultSpec slow;
    slow.delayMs = 1500;
    m_camera->setFault("GetDeviceInformation", slow);
    const Run run = cli({ "-u", "admin", "-p", "admin", "info", m_url });
    m_camera->clearFaults();
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.err.contains(QLatin1String("Waiting for ")) && run.err.contains(QLatin1String("..")),
        qPrintable(run.err));
}

void TestCli::ptzPresetsAndMoves()
{
    const QStringList base { "-u", "admin", "-p", "admin", "--json", "ptz", m_url };
    const auto presetsOf = [&](const QString& profile) {
        const Run run = cli(base + QStringList { "--profile", profile, "presets" });
        return jsonOf(run).value("presets").toArray();
    };
    const int before = presetsOf("prof_main").size();
    const Run saved = cli(base + QStringList { "set-preset", "Gate" });
    QCOMPARE(saved.exitCode, 0);
    const QJsonArray after = presetsOf("prof_main");
    QCOMPARE(after.size(), before + 1);
    const QString gate = after.last().toObject().value("token").toString();
    QCOMPARE(jsonOf(saved).value("token").toString(), gate); // the token the camera chose
    QCOMPARE(after.last().toObject().value("name").toString(), QStringLiteral("Gate"));
    QCOMPARE(m_camera->presets("prof_main").size(), before + 1);

    // A move runs for the given time and ends with a stop that names both axes; negative
    // speeds are arguments, not options.
    const Run move = cli(base + QStringList { "move", "-0.5", "0", "-.25", "0.3" });
    QCOMPARE(move.exitCode, 0);
    const QByteArray moved = m_camera->requestsFor("ContinuousMove").last().body;
    QVERIFY2(moved.contains("PanTilt x=\"-0.5\" y=\"0\"") && moved.contains("Zoom x=\"-0.25\""),
        moved.constData());
    const QByteArray stop = m_camera->requestsFor("Stop").last().body;
    QVERIFY(stop.contains("<tptz:PanTilt>true</tptz:PanTilt><tptz:Zoom>true</tptz:Zoom>"));
    QVERIFY(!m_camera->ptzPosition("ptz_node_0").moving);

    // Ctrl-C during a move still stops the camera.
    QProcess moving;
    moving.start(QStringLiteral(ONVIF_CLI), base + QStringList { "move", "0.2", "0", "0", "30" });
    const int movesBefore = m_camera->requestsFor("ContinuousMove").size();
    QTRY_VERIFY_WITH_TIMEOUT(m_camera->requestsFor("ContinuousMove").size() > movesBefore, 10000);
    QTRY_VERIFY(m_camera->ptzPosition("ptz_node_0").moving);
    const int stopsBefore = m_camera->requestsFor("Stop").size();
    ::kill(pid_t(moving.processId()), SIGINT);
    QVERIFY(moving.waitForFinished(10000));
    QCOMPARE(moving.exitCode(), 130);
    QCOMPARE(m_camera->requestsFor("Stop").size(), stopsBefore + 1);
    QVERIFY(!m_camera->ptzPosition("ptz_node_0").moving);

    // Absolute and relative moves land where the status then says the head is.
    QCOMPARE(cli(base + QStringList { "absolute", "0.5", "-0.25", "0.75" }).exitCode, 0);
    QCOMPARE(cli(base + QStringList { "relative", "0.125", "0.25" }).exitCode, 0);
    const QJsonObject status = jsonOf(cli(base + QStringList { "status" }));
    QCOMPARE(status.value("pan").toDouble(), 0.625);
    QCOMPARE(status.value("tilt").toDouble(), 0.0);
    QCOMPARE(status.value("zoom").toDouble(), 0.75);
    QCOMPARE(status.value("panTiltMove").toString(), QStringLiteral("IDLE"));

    QCOMPARE(cli(base + QStringList { "home" }).exitCode, 0);
    // Presets are named by token or by name.
    QCOMPARE(cli(base + QStringList { "goto", "Gate" }).exitCode, 0);
    QVERIFY(m_camera->requestsFor("GotoPreset").last().body.contains(">" + gate.toUtf8() + "<"));
    QCOMPARE(cli(base + QStringList { "save-home" }).exitCode, 0);
    QCOMPARE(cli(base + QStringList { "stop" }).exitCode, 0);
    QCOMPARE(cli(base + QStringList { "remove-preset", "Gate" }).exitCode, 0);
    QCOMPARE(presetsOf("prof_main").size(), before);

    // The second PTZ profile is reachable by name.
    QCOMPARE(cli(base + QStringList { "--profile", "prof_sub", "stop" }).exitCode, 0);
    QVERIFY(m_camera->requestsFor("Stop").last().body.contains("prof_sub"));
}

void TestCli::ptzErrors()
{
    const QStringList base { "-u", "admin", "-p", "admin", "ptz", m_url };
    QCOMPARE(cli(base + QStringList { "spin" }).exitCode, 2);
    QCOMPARE(cli(base + QStringList { "move", "2", "0" }).exitCode, 2);
    QCOMPARE(cli(base + QStringList { "move", "0.1" }).exitCode, 2);
    QCOMPARE(cli(base + QStringList { "--profile", "prof_jpeg", "stop" }).exitCode, 2); // no PTZ there
    // The camera refuses an unknown preset.
    const Run missing = cli(base + QStringList { "goto", "no-such-preset" });
    QCOMPARE(missing.exitCode, 1);
    // The device's reason reaches the user, though it came with an HTTP error status.
    QVERIFY2(
        missing.err.contains(QLatin1String("ptz goto: device fault ter:NoToken (Sender): No such preset")),
        qPrintable(missing.err));
    const Run wrong = cli({ "-u", "admin", "-p", "wrong", "ptz", m_url, "stop" });
    QCOMPARE(wrong.exitCode, 4);
    QVERIFY2(wrong.err.contains(QLatin1String("refused the user name or password")), qPrintable(wrong.err));

    CameraSim::CameraConfig fixed = CameraSim::CameraConfig::defaultCamera();
    fixed.ptzCapability = false;
    Camera camera(fixed);
    QVERIFY(camera.start());
    const Run none = cli({ "-u", "admin", "-p", "admin", "ptz", camera.deviceUrl(), "stop" });
    QVERIFY2(none.exitCode == 1, qPrintable(none.err));
}

void TestCli::events()
{
    CameraSim::CameraConfig config = CameraSim::CameraConfig::defaultCamera();
    config.eventIntervalMs = 200;
    Camera camera(config);
    QVERIFY(camera.start());
    // One JSON object per event, each with its topic; only the topics asked for.
    const Run run = cli({ "-u", "admin", "-p", "admin", "--json", "--topic", "tns1:VideoSource//.", "events",
        camera.deviceUrl(), "2" });
    QCOMPARE(run.exitCode, 0);
    const QStringList lines = run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(lines.size() >= 2, qPrintable(run.out));
    for (const QString& line : lines) {
        const QJsonObject e = QJsonDocument::fromJson(line.toUtf8()).object();
        QVERIFY2(e.value("topicPath").toString().startsWith(QLatin1String("VideoSource/")), qPrintable(line));
        QCOMPARE(e.value("topicNamespace").toString(), QStringLiteral("http://www.onvif.org/ver10/topics"));
        QVERIFY(!e.value("utcTime").toString().isEmpty() && !e.value("data").toObject().isEmpty());
    }
    QCOMPARE(camera.subscriptionCount(), 0);
    QCOMPARE(camera.requestsFor("Unsubscribe").size(), 1);

    // Events print as they come, and Ctrl-C cancels the subscription on the camera.
    QProcess watching;
    watching.start(
        QStringLiteral(ONVIF_CLI), { "-u", "admin", "-p", "admin", "events", camera.deviceUrl(), "60" });
    QByteArray seen;
    QTRY_VERIFY2_WITH_TIMEOUT((seen += watching.readAllStandardOutput()).contains("tns1:"),
        qPrintable(seen + watching.readAllStandardError()), 10000);
    QCOMPARE(camera.subscriptionCount(), 1);
    ::kill(pid_t(watching.processId()), SIGINT);
    QVERIFY(watching.waitForFinished(10000));
    QCOMPARE(watching.exitCode(), 130);
    QCOMPARE(camera.subscriptionCount(), 0);

    QCOMPARE(cli({ "-u", "admin", "-p", "admin", "events", camera.deviceUrl(), "-3" }).exitCode, 2);
    config.eventsCapability = false;
    Camera silent(config);
    QVERIFY(silent.start());
    const Run none = cli({ "-u", "admin", "-p", "admin", "events", silent.deviceUrl(), "1" });
    // Cameras either leave the section out or refuse the category with a fault.
    QCOMPARE(none.exitCode, 1);
    QVERIFY2(
        none.err.contains(QLatin1String("no event service")) || none.err.contains(QLatin1String("fault")),
        qPrintable(none.err));
}

void TestCli::dialog()
{
#ifndef ONVIFTYPES_WITH_DIALOG
    QCOMPARE(cli({ "dialog", m_url }).exitCode, 2); // headless: said so, nothing opened
    return;
#endif
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.insert("ONVIF_CLI_DIALOG_EXIT", "filled");
    QTemporaryDir dir;
    env.insert("ONVIF_CLI_DIALOG_GRAB", dir.filePath("dialog.png"));
    // Waits for the dialog to fill, however slowly (sanitizer builds); only a hang ends it.
    const Run run = cli({ "-u", "admin", "-p", "admin", "--timeout", "120", "dialog", m_url }, 150000, env);
    QCOMPARE(run.exitCode, 0);
    const QString base = m_camera->baseUrl();
    for (const QString& shown : { QStringLiteral("\n  Manufacturer: ") + m_camera->config().manufacturer,
             QStringLiteral("\n  Onvif port: %1\n").arg(m_camera->port()), QStringLiteral("\n  prof_main\n"),
             QStringLiteral("\n      Encoding: H265\n"),
             QStringLiteral("\n      RTSP: rtsp://127.0.0.1:554/prof_sub\n"),
             "\nSnapshot uri: " + base + "/snapshot/prof_main.jpg\n", QStringLiteral("\nPreview: ") })
        QVERIFY2(run.out.contains(shown), qPrintable(shown + " not in:\n" + run.out));
    QVERIFY(!run.out.contains(QLatin1String("Preview: 0x0")));
    QVERIFY(!QImage(dir.filePath("dialog.png")).isNull());

    // The dialog itself shows no errors; the tool says that it never filled.
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    const QString closed = QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(probe.serverPort());
    probe.close();
    const Run unreachable = cli({ "--timeout", "1", "dialog", closed }, 30000, env);
    QCOMPARE(unreachable.exitCode, 3);
    QVERIFY2(unreachable.err.contains(QLatin1String("dialog: not filled within 1 s")),
        qPrintable(unreachable.err));
    QCOMPARE(cli({ "dialog" }, 30000, env).exitCode, 2);
}

void TestCli::demo()
{
    QTemporaryDir dir;
    const Run run = cli({ "demo", dir.path() }, 60000);
    QCOMPARE(run.exitCode, 0);
    for (const char* part : { "1. Probe", "connected:", "2. Device information", "3. Media profiles",
             "rtsp://127.0.0.1:554/prof_main", "4. Snapshot", "5. PTZ", "camera at pan 0.20", "Door",
             "6. Events", "Unsubscribed.", "Done:" })
        QVERIFY2(run.out.contains(QLatin1String(part)), part);
    QVERIFY(!QImage(dir.filePath("demo-snapshot.jpg")).isNull());
}

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
