// Replies built to hurt a parser: entity expansion, a huge body, deep nesting, broken
// encodings. Each goes through OnvifResponse and the response classes directly, and
// once through a whole request against a loopback server that answers with it.
#include "futureWait.h"

#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/schema/soapenv/Fault.h>
#include <onvifTypes/schema/tds/GetDeviceInformationResponse.h>
#include <zyrChecker/zyrChecker.h>

#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

// deserialize() takes the node by reference, as applications' overrides do; tests hand it a copy.
template <typename T> void readNode(T& object, QDomNode node)
{
    object.deserialize(node);
}

namespace {

const QByteArray kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                         "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
                         "xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\"><s:Body>";
const QByteArray kTail = "</s:Body></s:Envelope>";

QByteArray deviceInfo(const QByteArray& manufacturer, const QByteArray& extra = QByteArray())
{
    return kHead + "<tds:GetDeviceInformationResponse><tds:Manufacturer>" + manufacturer
        + "</tds:Manufacturer><tds:Model>M</tds:Model>" + extra + "</tds:GetDeviceInformationResponse>"
        + kTail;
}

QByteArray nested(const QByteArray& open, const QByteArray& close, int depth)
{
    return open.repeated(depth) + close.repeated(depth);
}

QByteArray billionLaughs()
{
    QByteArray dtd = "<?xml version=\"1.0\"?><!DOCTYPE s:Envelope [<!ENTITY l0 \"lol\">";
    for (int i = 1; i < 10; ++i)
        dtd += QByteArray("<!ENTITY l") + QByteArray::number(i) + " \""
            + QByteArray("&l").append(QByteArray::number(i - 1)).append(';').repeated(10) + "\">";
    dtd += "]>";
    return dtd + deviceInfo("&l9;").mid(int(qstrlen("<?xml version=\"1.0\" encoding=\"UTF-8\"?>")));
}

qint64 peakRssKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

// Answers every request on one loopback port with the same body, then closes.
class CannedServer : public QTcpServer
{
public:
    explicit CannedServer(const QByteArray& body)
        : m_body(body)
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    if (!socket->readAll().contains("Envelope>") || socket->property("answered").toBool())
                        return;
                    socket->setProperty("answered", true);
                    socket->write(
                        "HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\nConnection: close\r\n"
                        "Content-Length: "
                        + QByteArray::number(m_body.size()) + "\r\n\r\n" + m_body);
                    socket->disconnectFromHost();
                });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }
    QString url() const
    {
        return QStringLiteral("http://127.0.0.1:%1/onvif/device_service").arg(serverPort());
    }

private:
    QByteArray m_body;
};

} // namespace

class TestHostileReplies : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { ZYRChecker::setKnownTexts({}); }
    void replies_data();
    void replies();
    void throughRequest_data() { replies_data(); }
    void throughRequest();
};

void TestHostileReplies::replies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("manufacturer"); // what a reader sees; null: not checked

    const int deep = 100000;
    QTest::newRow("billion laughs") << billionLaughs() << QString();
    QTest::newRow("50 MB value") << deviceInfo(QByteArray(50 * 1024 * 1024, 'x'))
                                 << QString(50 * 1024 * 1024, 'x');
    // Too deep to be read at all: the whole reply counts as unparsable.
    QTest::newRow("deep unknown child") << deviceInfo("A", nested("<x>", "</x>", deep)) << "";
    QTest::newRow("deep known child") << deviceInfo("A", nested("<tds:Model>", "</tds:Model>", deep)) << "";
    QTest::newRow("nesting within bounds") << deviceInfo("A", nested("<x>", "</x>", 400)) << "A";
    QTest::newRow("deep body") << kHead + nested("<a>", "</a>", deep) + kTail << QString();
    QTest::newRow("deep unclosed") << kHead + QByteArray("<a>").repeated(deep) << QString();
    QTest::newRow("deep fault subcodes") << kHead + "<s:Fault><s:Code><s:Value>s:Sender</s:Value>"
            + nested("<s:Subcode><s:Value>ter:NotAuthorized</s:Value>", "</s:Subcode>", deep)
            + "</s:Code></s:Fault>"
            + kTail << QString();
    QTest::newRow("deep fault detail")
        << kHead + "<s:Fault><s:Detail>" + nested("<d>", "</d>", deep) + "</s:Detail></s:Fault>" + kTail
        << QString();
    QTest::newRow("invalid UTF-8") << deviceInfo("\xff\xfe\xc3\x28\xed\xa0\x80") << QString();
    QTest::newRow("NUL inside") << deviceInfo(QByteArray("Ac\0me", 5)) << QString();
    QTest::newRow("NUL first") << QByteArray(1, '\0') + deviceInfo("A") << QString();
}

void TestHostileReplies::replies()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, manufacturer);
    // Time is bounded by the test's own limit (a hang or blow-up fails it), not measured here.
    const qint64 rssBefore = peakRssKb();
    {
        // The request layer hands over the text up to the first NUL byte.
        const OnvifResponse response(
            QString::fromUtf8(body.constData(), int(qstrnlen(body.constData(), uint(body.size())))));
        const bool fault = response.isFault();
        QCOMPARE(response.isAuthFault(), fault && body.contains("NotAuthorized"));
        QVERIFY(response.getFaultText().startsWith(QLatin1String("Fault detail: ")));
        tds::GetDeviceInformationResponse info;
        QDomNode node = response.getNodeByTag(QStringLiteral("GetDeviceInformationResponse"));
        readNode(info, node);
        if (!manufacturer.isNull())
            QCOMPARE(info.Manufacturer->value(), manufacturer);
        // Walks of the whole tree: the class reads anything as unknown content.
        soapenv::Fault any;
        readNode(any, response.document().documentElement());
    }
    const qint64 grownMb = (peakRssKb() - rssBefore) / 1024;
    QVERIFY2(grownMb < 1500, qPrintable(QStringLiteral("%1 MB").arg(grownMb)));
}

void TestHostileReplies::throughRequest()
{
    QFETCH(QByteArray, body);
    CannedServer server(body);
    QVERIFY(server.isListening());
    Onvif::Requests requests(QStringLiteral("admin"), QStringLiteral("pw"), server.url(), false);
    const QFuture<Onvif::DeviceInfo> future = requests.deviceInfo();
    QVERIFY(waitForFuture(future, 120000));
}

QTEST_GUILESS_MAIN(TestHostileReplies)
#include "tst_hostileReplies.moc"
