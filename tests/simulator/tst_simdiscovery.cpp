// The WS-Discovery responder, exercised only inside a network namespace made by this test.

#include "privateNetwork.h"
#include "simClient.h"

#include <fleet.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QUdpSocket>
#include <QUuid>
#include <QtTest>

using namespace CameraSim;

namespace {

QString g_namespaceProblem; // empty when the test runs in its own network namespace

// The probe exactly as the library's discovery sends it, undeclared "a:" prefix included.
QByteArray probe(const QString& id, const QString& types = QStringLiteral("dn:NetworkVideoTransmitter"))
{
    return QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><e:Envelope "
        "xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\" "
        "xmlns:w=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
        "xmlns:d=\"http://schemas.xmlsoap.org/ws/"
        "2005/04/discovery\" "
        "xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\"><e:Header><w:MessageID>uuid:%1"
        "</w:MessageID><w:To e:mustUnderstand=\"true\">urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>"
        "<w:Action a:mustUnderstand=\"true\">http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action>"
        "</e:Header><e:Body><d:Probe><d:Types>%2</d:Types></d:Probe></e:Body></e:Envelope>")
        .arg(id, types)
        .toUtf8();
}

QList<QDomDocument> exchange(const QHostAddress& to, const QByteArray& datagram, int expected, int timeoutMs)
{
    QUdpSocket socket;
    socket.bind(QHostAddress(QStringLiteral("127.0.0.1")), 0);
    socket.writeDatagram(datagram, to, 3702);
    QList<QDomDocument> answers;
    QElapsedTimer timer;
    timer.start();
    while (answers.size() < expected && timer.elapsed() < timeoutMs) {
        if (!socket.hasPendingDatagrams() && !socket.waitForReadyRead(100))
            continue;
        QByteArray data(int(socket.pendingDatagramSize()), Qt::Uninitialized);
        socket.readDatagram(data.data(), data.size());
        QDomDocument doc;
        if (doc.setContent(data, true))
            answers << doc;
    }
    return answers;
}

} // namespace

class TestSimDiscovery : public QObject
{
    Q_OBJECT

private slots:
    void probes();
};

void TestSimDiscovery::probes()
{
    if (!g_namespaceProblem.isEmpty())
        QSKIP(qPrintable(QStringLiteral("WS-Discovery is only tested in a private network namespace: ")
            + g_namespaceProblem));
    Fleet fleet;
    QVERIFY(fleet.start(3));
    QString error;
    QVERIFY2(fleet.startDiscovery(QStringLiteral("127.0.0.1"), 3702, QString(), &error), qPrintable(error));
    const QHostAddress unicast(QStringLiteral("127.0.0.1"));
    // Unicast to the address it was given and multicast to the group, as standard clients probe; an
    // empty Types asks for every kind of device. What the library reads from the matches is
    // tst_discovery's, through its broadcast.
    const QPair<QHostAddress, QString> asked[] = { { unicast, QStringLiteral("dn:NetworkVideoTransmitter") },
        { QHostAddress(QStringLiteral("239.255.255.250")), QStringLiteral("dn:NetworkVideoTransmitter") },
        { unicast, QString() } };
    for (const auto& a : asked) {
        const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        const QList<QDomDocument> answers = exchange(a.first, probe(id, a.second), 3, 3000);
        QCOMPARE(answers.size(), 3);
        QSet<QString> endpoints;
        for (const QDomDocument& doc : answers) {
            QCOMPARE(findElement(doc, QStringLiteral("RelatesTo")).text(), QStringLiteral("uuid:") + id);
            QCOMPARE(findElement(doc, QStringLiteral("Action")).text(),
                QStringLiteral("http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches"));
            endpoints << findElement(doc, QStringLiteral("Address")).text();
        }
        QCOMPARE(endpoints.size(), 3);
    }
    // Not for us: another kind of device, no SOAP at all, another WS-Discovery message.
    for (const QByteArray& other : { probe(QStringLiteral("1"), QStringLiteral("dn:Printer")),
             QByteArray("not a probe at all"), probe(QStringLiteral("2")).replace("d:Probe>", "d:Resolve>") })
        QCOMPARE(exchange(unicast, other, 1, 400).size(), 0);
    QCOMPARE(fleet.discovery()->probesAnswered(), 3);
}

int main(int argc, char** argv)
{
    g_namespaceProblem = enterOwnNetworkNamespace();
    QCoreApplication app(argc, argv);
    TestSimDiscovery test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_simdiscovery.moc"
