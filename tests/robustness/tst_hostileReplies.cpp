// Replies built to hurt a parser: entity expansion, a huge body, deep nesting, broken
// encodings. Each goes through OnvifResponse and the response classes directly, and
// once through a whole request against a loopback server that answers with it.
#include "futureWait.h"
#include "logCapture.h"

#include <onvifTypes/onvifPreview.h>
#include <onvifTypes/onvifRequests.h>
#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/schema/soapenv/Fault.h>
#include <onvifTypes/schema/tds/GetDeviceInformationResponse.h>
#include <onvifTypes/transport/limits.h>
#include <zyrChecker/zyrChecker.h>

#include <QBuffer>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>
#include <QtTest>

#include <zlib.h>

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

// One large entity used many times: no nesting for an expansion limit to catch.
QByteArray wideEntity()
{
    return "<!DOCTYPE s:Envelope [<!ENTITY e \"" + QByteArray(4000, 'x') + "\">]>"
        + deviceInfo(QByteArray("&e;").repeated(200000));
}

QByteArray manyAttributes(int count)
{
    QByteArray tag = "<x";
    for (int i = 0; i < count; ++i)
        tag += " a" + QByteArray::number(i) + "=\"\"";
    return tag + "/>";
}

QByteArray profiles(int count)
{
    QByteArray body = kHead
        + "<trt:GetProfilesResponse xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\" "
          "xmlns:tt=\"http://www.onvif.org/ver10/schema\">";
    for (int i = 0; i < count; ++i) {
        const QByteArray n = QByteArray::number(i);
        body += "<trt:Profiles token=\"p" + n
            + "\"><tt:Name>p</tt:Name><tt:VideoEncoderConfiguration token=\"v" + n
            + "\"><tt:Name>v</tt:Name><tt:Encoding>H264</tt:Encoding><tt:Resolution><tt:Width>640</tt:Width>"
              "<tt:Height>480</tt:Height></tt:Resolution><tt:Quality>5</tt:Quality>"
              "</tt:VideoEncoderConfiguration></trt:Profiles>";
    }
    return body + "</trt:GetProfilesResponse>" + kTail;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kInstrumented = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif
#else
constexpr bool kInstrumented = false;
#endif

qint64 statusKb(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(int(qstrlen(field))).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

// Peak resident memory since the last call, in KiB: the peak is reset after reading.
qint64 peakRssKb()
{
    const qint64 peak = statusKb("VmHWM:");
    QFile reset(QStringLiteral("/proc/self/clear_refs"));
    if (reset.open(QIODevice::WriteOnly))
        reset.write("5");
    return peak;
}

// Answers every request on one loopback port with the same body, then closes. The
// head, when given, replaces the usual one (a Content-Length that lies, say).
class CannedServer : public QTcpServer
{
public:
    explicit CannedServer(const QByteArray& body, const QByteArray& head = QByteArray())
        : m_body(body)
        , m_head(head)
    {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
                    socket->setProperty("request", request);
                    const bool complete = request.startsWith("GET ") ? request.contains("\r\n\r\n")
                                                                     : request.contains("Envelope>");
                    if (!complete || socket->property("answered").toBool())
                        return;
                    socket->setProperty("answered", true);
                    socket->write(m_head.isEmpty()
                            ? "HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\nConnection: close\r\n"
                              "Content-Length: "
                                + QByteArray::number(m_body.size()) + "\r\n\r\n" + m_body
                            : m_head + m_body);
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
    QByteArray m_head;
};

QByteArray png(const QSize& size)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::red);
    image.save(&buffer, "PNG");
    return bytes;
}

// A small PNG whose header declares other dimensions: the pixels a decoder would allocate.
QByteArray pngDeclaring(quint32 width, quint32 height)
{
    QByteArray bytes = png(QSize(2, 2));
    const int ihdr = bytes.indexOf("IHDR");
    qToBigEndian(width, bytes.data() + ihdr + 4);
    qToBigEndian(height, bytes.data() + ihdr + 8);
    const quint32 crc = quint32(crc32(0, reinterpret_cast<const Bytef*>(bytes.constData() + ihdr), 17));
    qToBigEndian(crc, bytes.data() + ihdr + 17);
    return bytes;
}

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
    void snapshots_data();
    void snapshots();
};

// Each attack from a hostile camera is refused at once, within a memory ceiling.
void TestHostileReplies::replies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("manufacturer"); // what a reader sees; null: not checked
    QTest::addColumn<QString>("refusal"); // a word of the reason; empty: read; null: not checked

    const Onvif::Limits limits = Onvif::Limits::defaults();
    const int deep = 100000;
    const auto row
        = [](const char* name, const QByteArray& body, const QString& manufacturer, const char* refusal) {
              QTest::newRow(name) << body << manufacturer << QString::fromLatin1(refusal);
          };
    row("billion laughs", billionLaughs(), "", "document type");
    row("one entity 200,000 times", wideEntity(), "", "document type");
    row("100,000 attributes", deviceInfo("A", manyAttributes(100000)), "", "maxXmlAttributesPerElement");
    row("2 million empty elements", deviceInfo("A", QByteArray("<x/>").repeated(2000000)), "",
        "maxXmlElements");
    row("fault with 200,000 reasons",
        kHead + "<s:Fault><s:Code><s:Value>s:Sender</s:Value></s:Code><s:Reason>"
            + QByteArray("<s:Text>r</s:Text>").repeated(200000) + "</s:Reason></s:Fault>" + kTail,
        "", "maxXmlElements");
    row("20,000 profiles", profiles(20000), "", "maxXmlElements");
    row("value past the reply size", deviceInfo(QByteArray(int(limits.maxReplyBytes), 'x')), "",
        "maxReplyBytes");
    row("value within it", deviceInfo(QByteArray(1024 * 1024, 'x')), QString(1024 * 1024, 'x'), "");
    row("deep unknown child", deviceInfo("A", nested("<x>", "</x>", deep)), "", "maxXmlDepth");
    row("deep known child", deviceInfo("A", nested("<tds:Model>", "</tds:Model>", deep)), "", "maxXmlDepth");
    row("nesting within bounds", deviceInfo("A", nested("<x>", "</x>", limits.maxXmlDepth - 5)), "A", "");
    row("deep unclosed", kHead + QByteArray("<a>").repeated(deep), "", "maxXmlDepth");
    row("deep fault subcodes",
        kHead + "<s:Fault><s:Code><s:Value>s:Sender</s:Value>"
            + nested("<s:Subcode><s:Value>ter:NotAuthorized</s:Value>", "</s:Subcode>", deep)
            + "</s:Code></s:Fault>" + kTail,
        "", "maxXmlDepth");
    row("invalid UTF-8", deviceInfo("\xff\xfe\xc3\x28\xed\xa0\x80"), QString(), "");
    row("NUL inside", deviceInfo(QByteArray("Ac\0me", 5)), "", "not well-formed");
    row("NUL first", QByteArray(1, '\0') + deviceInfo("A"), "", "empty");
}

void TestHostileReplies::replies()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, manufacturer);
    QFETCH(QString, refusal);
    const int ceilingMb = kInstrumented ? 400 : 100;
    const int deadlineMs = kInstrumented ? 60000 : 10000;
    peakRssKb();
    const qint64 before = statusKb("VmRSS:");
    QElapsedTimer clock;
    clock.start();
    {
        // The request layer hands over the text up to the first NUL byte.
        const OnvifResponse response(
            QString::fromUtf8(body.constData(), int(qstrnlen(body.constData(), uint(body.size())))));
        QVERIFY2(response.parseError().contains(refusal), qPrintable(response.parseError()));
        QCOMPARE(response.isReadable(), refusal.isEmpty());
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
    const qint64 grownMb = (peakRssKb() - before) / 1024;
    QVERIFY2(grownMb < ceilingMb, qPrintable(QStringLiteral("%1 MB").arg(grownMb)));
    QVERIFY2(clock.elapsed() < deadlineMs, qPrintable(QStringLiteral("%1 ms").arg(clock.elapsed())));
}

void TestHostileReplies::throughRequest()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, refusal);
    CannedServer server(body);
    QVERIFY(server.isListening());
    Onvif::Requests requests(QStringLiteral("admin"), QStringLiteral("pw"), server.url(), false);
    const QFuture<Onvif::DeviceInfo> future = requests.deviceInfo();
    QVERIFY(waitForFuture(future, 120000));
    // An unreadable answer still completes, with defaults, and is told apart; one past the
    // transport's own limits fails as a network error instead.
    if (!future.isCanceled() && !refusal.isNull()) {
        QCOMPARE(requests.isUnreadableAnswer(), !refusal.isEmpty());
        QVERIFY2(requests.readError().contains(refusal), qPrintable(requests.readError()));
    }
}

// A snapshot URI is the camera's word: only http and https are fetched, and a picture
// is decoded only when its size and its declared dimensions are within the limits.
void TestHostileReplies::snapshots_data()
{
    QTest::addColumn<QString>("uri"); // %1: the loopback server's port
    QTest::addColumn<QByteArray>("head"); // empty: a plain 200 with the body's length
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("refusal"); // a word of the log; empty: the picture arrives

    const Onvif::Limits limits = Onvif::Limits::defaults();
    const QByteArray picture = png(QSize(4, 3));
    // A picture of the host's own that a camera might name.
    static QTemporaryFile local;
    QVERIFY(local.open());
    local.write(picture);
    local.flush();
    const QString http = QStringLiteral("http://127.0.0.1:%1/snapshot.png");
    const auto row = [](const char* name, const QString& uri, const QByteArray& body, const char* refusal,
                         const QByteArray& head = QByteArray()) {
        QTest::newRow(name) << uri << head << body << QString::fromLatin1(refusal);
    };
    row("plain picture", http, picture, "");
    row("local file", QUrl::fromLocalFile(local.fileName()).toString(), QByteArray(), "only http");
    row("inline data", QString::fromLatin1("data:image/png;base64," + picture.toBase64()), QByteArray(),
        "only http");
    row("resource", "qrc:/snapshot.png", QByteArray(), "only http");
    row("ftp", "ftp://127.0.0.1:%1/snapshot.png", QByteArray(), "only http");
    row("no host", "http:///snapshot.png", QByteArray(), "only http");
    row("20000 x 20000 declared", http, pngDeclaring(20000, 20000), "maxImagePixels");
    row("one row past the limit", http, pngDeclaring(4096, quint32(limits.maxImagePixels / 4096 + 1)),
        "maxImagePixels");
    row("declared body past the limit", http, picture, "maxImageBytes",
        "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: "
            + QByteArray::number(limits.maxImageBytes + 1) + "\r\n\r\n");
}

void TestHostileReplies::snapshots()
{
    QFETCH(QString, uri);
    QFETCH(QByteArray, head);
    QFETCH(QByteArray, body);
    QFETCH(QString, refusal);
    CannedServer server(body, head);
    QVERIFY(server.isListening());
    LogCapture log;
    Onvif::OnvifPreview preview { QString(), QString(), QString() };
    QSignalSpy images(&preview, &Onvif::OnvifPreview::image);
    preview.downloadImage(uri.contains(QLatin1String("%1")) ? uri.arg(server.serverPort()) : uri);
    QTRY_VERIFY_WITH_TIMEOUT(!images.isEmpty() || !log.withSeverity(4).isEmpty(), 10000);
    if (refusal.isEmpty()) {
        QCOMPARE(images.size(), 1);
        QCOMPARE(images.at(0).at(0).value<QImage>().size(), QSize(4, 3));
        return;
    }
    QCOMPARE(images.size(), 0);
    QStringList errors;
    for (const auto& record : log.withSeverity(4))
        errors << record.message;
    QVERIFY2(errors.join('\n').contains(refusal), qPrintable(errors.join('\n')));
}

QTEST_GUILESS_MAIN(TestHostileReplies)
#include "tst_hostileReplies.moc"
