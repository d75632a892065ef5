// Discovery, exercised only inside a network namespace that this test makes for itself:
// the probe is a broadcast and must never reach the machine's real networks.

#include "logCapture.h"
#include "privateNetwork.h"

#include <discoveryResponder.h>
#include <fleet.h>

#include <onvifTypes/discovery.h>

#include <QNetworkInterface>
#include <QRegularExpression>
#include <QUdpSocket>
#include <QtTest>

using namespace CameraSim;

namespace {

QString g_namespaceProblem; // empty when the test runs in a network namespace of its own

CameraConfig named(const QString& manufacturer, const QString& model)
{
    CameraConfig config = CameraConfig::defaultCamera();
    config.manufacturer = manufacturer;
    config.model = model;
    config.serialNumber = model + QStringLiteral("-SN");
    return config;
}

DiscoveryEntry entryFor(const Camera& camera, const QString& xaddrs, const QStringList& scopes)
{
    DiscoveryEntry entry;
    entry.endpoint = camera.endpointReference();
    entry.xaddrs = xaddrs;
    entry.scopes = scopes;
    return entry;
}

bool allAnswered(const QVector<Onvif::DeviceInfo>& devices)
{
    return std::all_of(devices.cbegin(), devices.cend(),
        [](const Onvif::DeviceInfo& info) { return !info.model.isEmpty(); });
}

// Sends datagrams to the discovery's loopback socket, as a camera's answers would come.
struct Injector
{
    explicit Injector(Discovery& discovery)
    {
        for (QUdpSocket* socket : discovery.findChildren<QUdpSocket*>()) {
            if (socket->localAddress() == QHostAddress(QHostAddress::LocalHost))
                target = socket;
        }
        sender.bind(QHostAddress(QHostAddress::LocalHost), 0);
    }
    void send(const QByteArray& datagram)
    {
        sender.writeDatagram(datagram, QHostAddress::LocalHost, target->localPort());
    }
    QUdpSocket* target = nullptr;
    QUdpSocket sender;
};

QByteArray answer(const QString& xaddrs, const QByteArray& relatesTo)
{
    return "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\" "
           "xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
           "xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\"><e:Header>"
        + relatesTo + "</e:Header><e:Body><d:ProbeMatches><d:ProbeMatch><d:XAddrs>" + xaddrs.toLatin1()
        + "</d:XAddrs></d:ProbeMatch></d:ProbeMatches></e:Body></e:Envelope>";
}

int countMessages(const LogCapture& log, const QString& text)
{
    int count = 0;
    for (const auto& record : log.records()) {
        if (record.clsName == QLatin1String("Discovery") && record.message.contains(text))
            ++count;
    }
    return count;
}

} // namespace

class TestDiscovery : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void probeOnTheWire();
    void manyCamerasAnswer();
    void nameScopeUntilTheDeviceAnswers();
    void addressForms();
    void newSearchDropsOldResults();
    void malformedDatagrams();
    void unrelatedAnswers_data();
    void unrelatedAnswers();
    void capsOnRecordsAndRequests();
};

void TestDiscovery::init()
{
    if (!g_namespaceProblem.isEmpty())
        QSKIP(qPrintable(QStringLiteral("WS-Discovery is only tested in a private network namespace: ")
            + g_namespaceProblem));
}

void TestDiscovery::probeOnTheWire()
{
    QUdpSocket listener;
    QVERIFY(listener.bind(QHostAddress::AnyIPv4, 3702, QUdpSocket::ShareAddress));
    Discovery discovery(nullptr);
    // One socket per address entry, none left out.
    int entries = 0;
    for (const QNetworkInterface& networkInterface : QNetworkInterface::allInterfaces())
        entries += networkInterface.addressEntries().size();
    QCOMPARE(discovery.findChildren<QUdpSocket*>().size(), entries);

    const QString head
        = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?><e:Envelope "
                         "xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\" "
                         "xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
                         "xmlns:d=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
                         "xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\"><e:Header><w:MessageID>uuid:");
    const QString tail = QStringLiteral(
        "</w:MessageID><w:To e:mustUnderstand=\"true\">urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>"
        "<w:Action a:mustUnderstand=\"true\">http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action>"
        "</e:Header><e:Body><d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe></e:Body>"
        "</e:Envelope>");
    const QRegularExpression probe(QLatin1Char('^') + QRegularExpression::escape(head)
        + QStringLiteral("([0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12})") + QRegularExpression::escape(tail)
        + QLatin1Char('$'));
    QStringList ids;
    for (int round = 0; round < 2; ++round) {
        discovery.search(QString(), QString());
        QTRY_VERIFY(listener.hasPendingDatagrams());
        QTest::qWait(100);
        QHostAddress from;
        QByteArray datagram(int(listener.pendingDatagramSize()), Qt::Uninitialized);
        listener.readDatagram(datagram.data(), datagram.size(), &from);
        QVERIFY(!listener.hasPendingDatagrams()); // once, from the one IPv4 address
        QCOMPARE(from.toIPv4Address(), QHostAddress(QHostAddress::LocalHost).toIPv4Address());
        const auto match = probe.match(QString::fromUtf8(datagram));
        QVERIFY2(match.hasMatch(), datagram.constData());
        ids << match.captured(1);
    }
    QVERIFY(ids[0] != ids[1]);
}

// Each answering camera gets a record filled from its own answer, hundreds of them at once.
void TestDiscovery::manyCamerasAnswer()
{
#if defined(__SANITIZE_ADDRESS__)
    // Instrumented, the in-process fleet cannot answer 500 cameras within Discovery's own
    // reply timeout; fewer cameras still take every path.
    const int count = 100;
#else
    const int count = 500;
#endif
    QVector<CameraConfig> configs { named(QStringLiteral("ACME Cam"), QStringLiteral("A-1")),
        named(QStringLiteral("GeoVision"), QStringLiteral("GV-2")),
        named(QStringLiteral("SimCam"), QStringLiteral("S-3")) };
    while (configs.size() < count)
        configs.append(named(QStringLiteral("SimCam"), QStringLiteral("M-%1").arg(configs.size())));
    Fleet fleet;
    QString error;
    QVERIFY2(fleet.start(configs, &error), qPrintable(error));
    QVERIFY2(fleet.startDiscovery(QStringLiteral("0.0.0.0"), 3702, QString(), &error), qPrintable(error));
    fleet.discovery()->addCamera(fleet.camera(1)); // announced twice: both records are kept

    Discovery discovery(nullptr);
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    QTRY_COMPARE_WITH_TIMEOUT(discovery.getDeviceInformation().size(), count + 1, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(allAnswered(discovery.getDeviceInformation()), 20000);
    QTest::qWait(300); // nothing more arrives

    QMap<QString, Onvif::DeviceInfo> byModel;
    QStringList models;
    for (const Onvif::DeviceInfo& info : discovery.getDeviceInformation()) {
        byModel.insert(info.model, info);
        models << info.model;
    }
    QCOMPARE(models.size(), count + 1);
    QCOMPARE(byModel.size(), count);
    QCOMPARE(models.count(QStringLiteral("GV-2")), 2);
    for (int i = 0; i < fleet.size(); ++i) {
        const Camera& camera = fleet.camera(i);
        const Onvif::DeviceInfo info = byModel.value(camera.config().model);
        QCOMPARE(info.ip + ':' + info.port + info.path,
            QStringLiteral("127.0.0.1:%1/onvif/device_service").arg(camera.port()));
        // The answer, no longer the scope.
        QCOMPARE(info.manufacturer + '|' + info.serialNumber + '|' + info.firmwareVersion,
            camera.config().manufacturer + '|' + camera.config().serialNumber + '|'
                + camera.config().firmwareVersion);
        const auto requests = camera.requestsFor(QStringLiteral("GetDeviceInformation"));
        QCOMPARE(requests.size(), i == 1 ? 2 : 1);
        QCOMPARE(requests.first().authResult, QStringLiteral("ok"));
    }
    QCOMPARE(byModel.value(QStringLiteral("GV-2")).type, QStringLiteral("GeoVision"));
    QCOMPARE(byModel.value(QStringLiteral("A-1")).type, QStringLiteral("Unknown"));
}

void TestDiscovery::nameScopeUntilTheDeviceAnswers()
{
    Fleet fleet;
    QVERIFY(fleet.start({ named(QStringLiteral("ACME Cam"), QStringLiteral("A-1")) }));
    Camera& camera = fleet.camera(0);
    FaultSpec slow;
    slow.delayMs = 1000;
    camera.setFault(QStringLiteral("GetDeviceInformation"), slow);
    DiscoveryResponder responder;
    // The scope names another maker than the device will: the type stays the scope's.
    responder.addEntry(entryFor(camera, camera.deviceUrl(),
        { QStringLiteral("onvif://www.onvif.org/type/video_encoder"),
            QStringLiteral("onvif://www.onvif.org/name/GeoVision"),
            QStringLiteral("onvif://www.onvif.org/hardware/A-1") }));
    QString error;
    QVERIFY2(responder.start(QStringLiteral("0.0.0.0"), 3702, &error), qPrintable(error));

    Discovery discovery(nullptr);
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    QTRY_COMPARE(discovery.getDeviceInformation().size(), 1);
    Onvif::DeviceInfo info = discovery.getDeviceInformation().first();
    QCOMPARE(info.manufacturer, QStringLiteral("GeoVision"));
    QCOMPARE(info.type, QStringLiteral("GeoVision"));
    QVERIFY(info.model.isEmpty());

    QTRY_VERIFY(allAnswered(discovery.getDeviceInformation()));
    info = discovery.getDeviceInformation().first();
    QCOMPARE(info.manufacturer, QStringLiteral("ACME Cam"));
    QCOMPARE(info.model, QStringLiteral("A-1"));
    QCOMPARE(info.type, QStringLiteral("GeoVision"));
}

void TestDiscovery::addressForms()
{
    Fleet fleet;
    QVERIFY(fleet.start(1));
    Camera& camera = fleet.camera(0);
    const QString port = QString::number(camera.port());
    DiscoveryResponder responder;
    // No port: 80, where nothing listens in this namespace.
    responder.addEntry(
        entryFor(camera, QStringLiteral("http://127.0.0.1/onvif/device_service"), camera.scopes()));
    // Two addresses: the record keeps the first path, the request goes to the whole text.
    const QString twoAddresses
        = QStringLiteral("http://127.0.0.1:%1/onvif/first http://[::1]:%1/onvif/second").arg(port);
    responder.addEntry(entryFor(camera, twoAddresses, camera.scopes()));
    // A host name only: no record at all.
    responder.addEntry(
        entryFor(camera, QStringLiteral("http://camera.local/onvif/device_service"), camera.scopes()));
    QString error;
    QVERIFY2(responder.start(QStringLiteral("0.0.0.0"), 3702, &error), qPrintable(error));

    LogCapture log;
    Discovery discovery(nullptr);
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    QTRY_COMPARE(discovery.getDeviceInformation().size(), 2);
    QTRY_COMPARE(
        countMessages(log, QStringLiteral("Error while sending GetDeviceInformationRequest:1 (")), 1);
    QTRY_VERIFY(!discovery.getDeviceInformation().value(1).model.isEmpty());
    QTest::qWait(200);

    const auto devices = discovery.getDeviceInformation();
    QCOMPARE(devices.size(), 2);
    QCOMPARE(devices[0].port + devices[0].path, QStringLiteral("80/onvif/device_service"));
    QCOMPARE(devices[0].manufacturer, QStringLiteral("SimCam")); // the scope, kept: no answer
    QVERIFY(devices[0].model.isEmpty());
    QCOMPARE(devices[1].port + devices[1].path, port + "/onvif/first");
    QCOMPARE(devices[1].model, camera.config().model);
    const auto requests = camera.requestsFor(QStringLiteral("GetDeviceInformation"));
    QCOMPARE(requests.size(), 1);
    QVERIFY2(requests.first().path.startsWith(QStringLiteral("/onvif/first"))
            && requests.first().path.endsWith(QStringLiteral("/onvif/second")),
        qPrintable(requests.first().path));
    QCOMPARE(countMessages(log, QStringLiteral("Addr is empty.")), 0);
}

void TestDiscovery::newSearchDropsOldResults()
{
    Fleet fleet;
    QVERIFY(fleet.start({ named(QStringLiteral("BrandA"), QStringLiteral("A-1")),
        named(QStringLiteral("BrandB"), QStringLiteral("B-1")) }));
    FaultSpec slow;
    slow.delayMs = 1000;
    fleet.camera(0).setFault(QStringLiteral("GetDeviceInformation"), slow);
    DiscoveryResponder responder;
    responder.addCamera(fleet.camera(0));
    QString error;
    QVERIFY2(responder.start(QStringLiteral("0.0.0.0"), 3702, &error), qPrintable(error));

    Discovery discovery(nullptr);
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    QTRY_COMPARE(discovery.getDeviceInformation().size(), 1);
    QTRY_COMPARE(fleet.camera(0).requestCount(), 1); // camera A is holding its answer

    responder.clearEntries();
    responder.addCamera(fleet.camera(1));
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    QVERIFY(discovery.getDeviceInformation().isEmpty());
    QTRY_COMPARE(discovery.getDeviceInformation().size(), 1);
    QTRY_VERIFY(allAnswered(discovery.getDeviceInformation()));
    // Past camera A's answer, which must not land in B's record.
    QTRY_COMPARE(fleet.camera(0).requestLog().size(), 1);
    QTest::qWait(100);

    const auto devices = discovery.getDeviceInformation();
    QCOMPARE(devices.size(), 1);
    QCOMPARE(devices[0].manufacturer + '|' + devices[0].model + '|' + devices[0].port,
        QStringLiteral("BrandB|B-1|%1").arg(fleet.camera(1).port()));
}

void TestDiscovery::malformedDatagrams()
{
    LogCapture log;
    Discovery discovery(nullptr);
    Injector inject(discovery);
    QVERIFY(inject.target);

    const QList<QByteArray> broken { QByteArray("not xml at all"), QByteArray(),
        QByteArray("<Envelope><Body/></Envelope>"), QByteArray("<Envelope><XAddrs>  </XAddrs></Envelope>"),
        QByteArray("<Envelope><XAddrs>http://127.0.0.1:1/onvif/device_service</XAddrs>") };
    for (const QByteArray& datagram : broken)
        inject.send(datagram);
    // Well-formed but without an IPv4 address: skipped without a word.
    inject.send("<Envelope><XAddrs>http://camera.local:80/onvif/device_service</XAddrs></Envelope>");
    QTRY_COMPARE(countMessages(log, QStringLiteral("Addr is empty.")), 5);
    // The bytes are read as Latin-1: a UTF-8 name arrives as its two Latin-1 characters.
    inject.send("<Envelope><XAddrs>http://127.0.0.1:1/d</XAddrs>"
                "<Scopes>onvif://www.onvif.org/name/Caf\xc3\xa9 "
                "onvif://www.onvif.org/hardware/X</Scopes></Envelope>");
    // An undeclared prefix is tolerated, as in the probe itself.
    inject.send("<e:Envelope><e:XAddrs>http://127.0.0.1:2/e</e:XAddrs></e:Envelope>");
    QTRY_COMPARE(discovery.getDeviceInformation().size(), 2);
    QTest::qWait(100);
    QCOMPARE(countMessages(log, QStringLiteral("Addr is empty.")), 5);
    QCOMPARE(discovery.getDeviceInformation().last().path, QStringLiteral("/e"));
    QVERIFY(discovery.getDeviceInformation().last().manufacturer.isEmpty());
    const Onvif::DeviceInfo info = discovery.getDeviceInformation().first();
    QCOMPARE(info.ip + ':' + info.port + info.path, QStringLiteral("127.0.0.1:1/d"));
    QCOMPARE(info.manufacturer, QString::fromLatin1("Caf\xc3\xa9"));
    QCOMPARE(info.type, QStringLiteral("Unknown"));
}

// Forged, stale or unsolicited answers: kept by default, as they always were; dropped on
// request before anything (a password digest, say) is sent to the address they name.
void TestDiscovery::unrelatedAnswers_data()
{
    QTest::addColumn<bool>("drop");
    QTest::addColumn<int>("records");
    QTest::newRow("kept by default") << false << 5;
    QTest::newRow("dropped") << true << 1;
}

void TestDiscovery::unrelatedAnswers()
{
    QFETCH(bool, drop);
    QFETCH(int, records);
    Fleet fleet;
    QVERIFY(fleet.start(1));
    Camera& camera = fleet.camera(0);
    DiscoveryResponder responder; // answers with the probe's MessageID
    responder.addCamera(camera);
    QString error;
    QVERIFY2(responder.start(QStringLiteral("0.0.0.0"), 3702, &error), qPrintable(error));

    Discovery discovery(nullptr);
    if (drop)
        discovery.setDropUnrelatedAnswers(true);
    Injector inject(discovery);
    QVERIFY(inject.target);
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    QTRY_COMPARE(discovery.getDeviceInformation().size(), 1);
    for (const QByteArray& relatesTo : { QByteArray(), QByteArray("<w:RelatesTo>uuid:0</w:RelatesTo>"),
             QByteArray("<w:RelatesTo>uuid:00000000-0000-4000-8000-000000000000</w:RelatesTo>"),
             QByteArray("<w:RelatesTo>\n\t</w:RelatesTo>") })
        inject.send(answer(camera.deviceUrl(), relatesTo));
    QTRY_COMPARE(discovery.getDeviceInformation().size(), records);
    QTRY_VERIFY(allAnswered(discovery.getDeviceInformation()));
    QTest::qWait(200); // nothing more arrives
    QCOMPARE(discovery.getDeviceInformation().size(), records);
    QCOMPARE(camera.requestsFor(QStringLiteral("GetDeviceInformation")).size(), records);
}

// A flood of answers costs at most maxRecords records and maxRequestsInFlight
// connections; the requests past the cap wait their turn and none is lost.
void TestDiscovery::capsOnRecordsAndRequests()
{
    Fleet fleet;
    QVERIFY(fleet.start(1));
    Camera& camera = fleet.camera(0);
    FaultSpec slow;
    slow.delayMs = 1500; // holds the first two while the third must wait
    camera.setFault(QStringLiteral("GetDeviceInformation"), slow);
    LogCapture log;
    Discovery discovery(nullptr);
    discovery.setMaxRecords(3);
    discovery.setMaxRequestsInFlight(2);
    Injector inject(discovery);
    QVERIFY(inject.target);
    discovery.search(QStringLiteral("admin"), QStringLiteral("admin"));
    for (int i = 0; i < 6; ++i)
        inject.send(answer(camera.deviceUrl(), QByteArray()));

    QTRY_COMPARE(discovery.getDeviceInformation().size(), 3);
    QTRY_COMPARE(camera.requestCount(), 2);
    QTest::qWait(200);
    QCOMPARE(camera.requestCount(), 2);
    QCOMPARE(countMessages(log, QStringLiteral("(maxDiscoveryRecords)")), 1);
    QTRY_COMPARE_WITH_TIMEOUT(camera.requestCount(), 3, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(allAnswered(discovery.getDeviceInformation()), 5000);
    QCOMPARE(discovery.getDeviceInformation().size(), 3);
}

int main(int argc, char** argv)
{
    g_namespaceProblem = enterOwnNetworkNamespace();
    QCoreApplication app(argc, argv);
    TestDiscovery test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_discovery.moc"
