#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/session/nonces.h>

#include <QCryptographicHash>
#include <QDomDocument>
#include <QRegularExpression>
#include <QtTest>

namespace {

struct Literal : Serializable
{
    explicit Literal(const QString& text)
        : text(text)
    { }
    QString serialize(QString) override
    {
        ++calls;
        order.append(text);
        return text;
    }
    void deserialize(QDomNode&) override { }
    QString text;
    mutable int calls = 0;
    static QStringList order;
};
QStringList Literal::order;

struct HeaderParts
{
    QString user, password, nonce, created;
};

// Reads the UsernameToken back the way a device does: by namespace and name.
HeaderParts readHeader(const QString& header)
{
    QDomDocument doc;
    const QString wrapped = QStringLiteral("<s:Header xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">")
        + header + QStringLiteral("</s:Header>");
    if (!doc.setContent(wrapped, true))
        return {};
    const QString secext
        = QStringLiteral("http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd");
    const QString utility = QStringLiteral(
        "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd");
    auto text = [&](const QString& ns, const QString& name) {
        return doc.elementsByTagNameNS(ns, name).item(0).toElement().text();
    };
    return { text(secext, "Username"), text(secext, "Password"), text(secext, "Nonce"),
        text(utility, "Created") };
}

QDateTime parseCreated(const QString& created)
{
    QDateTime t = QDateTime::fromString(created, QStringLiteral("yyyy-MM-ddThh:mm:ss.zzzZ"));
    t.setTimeSpec(Qt::UTC);
    return t;
}

} // namespace

class TestSoapMessage : public QObject
{
    Q_OBJECT

private slots:
    void emptyEnvelope();
    void placeholdersInContentStayLiteral();
    void bodyAskedBeforeHeader();
    void prefixesOfBodiesAreDeclared();
    void digestValidates();
    void headersDifferPerCall();
    void timeShiftAndDeviceTime();
    void userWrittenAsGivenPasswordNeverSent();
    void hostSeedDecidesNonces();
};

void TestSoapMessage::emptyEnvelope()
{
    EmptyOnvifType header, body;
    const QString message = OnvifRequest(header, body).getMessage();
    QCOMPARE(message.size(), 698);
    QVERIFY(message.startsWith(QLatin1String("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<s:Envelope ")));
    QVERIFY(message.endsWith(
        QLatin1String("<s:Header></s:Header><s:Body xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
                      "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"></s:Body></s:Envelope>")));
}

void TestSoapMessage::placeholdersInContentStayLiteral()
{
    Literal header("<h>%1</h>"), body("<b>%0 %1 %2</b>");
    const QString message = OnvifRequest(header, body).getMessage();
    QVERIFY(message.contains(QLatin1String("<s:Header><h>%1</h></s:Header>")));
    QVERIFY(message.contains(QLatin1String("<b>%0 %1 %2</b></s:Body>")));
}

void TestSoapMessage::bodyAskedBeforeHeader()
{
    Literal::order.clear();
    Literal header("H");
    Literal body("B");
    OnvifRequest request(header, body);
    QCOMPARE(Literal::order, QStringList({ "B", "H" }));
    QCOMPARE(header.calls, 1);
    QCOMPARE(request.getMessage(), request.getMessage()); // computed once
    QCOMPARE(body.calls, 1);
}

void TestSoapMessage::prefixesOfBodiesAreDeclared()
{
    // Every prefix the generated types write resolves to its namespace.
    const QMap<QString, QString> expected { { "tt", "http://www.onvif.org/ver10/schema" },
        { "tds", "http://www.onvif.org/ver10/device/wsdl" },
        { "tev", "http://www.onvif.org/ver10/events/wsdl" },
        { "trt", "http://www.onvif.org/ver10/media/wsdl" }, { "wsnt", "http://docs.oasis-open.org/wsn/b-2" },
        { "a", "http://www.w3.org/2005/08/addressing" }, { "wsa5", "http://www.w3.org/2005/08/addressing" },
        { "tptz", "http://www.onvif.org/ver20/ptz/wsdl" },
        { "tan", "http://www.onvif.org/ver20/analytics/wsdl" }, { "xsd", "http://www.w3.org/2001/XMLSchema" },
        { "xsi", "http://www.w3.org/2001/XMLSchema-instance" } };
    QString body;
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        body += QStringLiteral("<%1:x/>").arg(it.key());
    QDomDocument doc;
    EmptyOnvifType noHeader;
    Literal bodyText(body);
    QVERIFY(doc.setContent(OnvifRequest(noHeader, bodyText).getMessage(), true));
    const QDomElement bodyElement = doc.documentElement().lastChildElement();
    int seen = 0;
    for (QDomElement e = bodyElement.firstChildElement(); !e.isNull(); e = e.nextSiblingElement(), ++seen)
        QCOMPARE(e.namespaceURI(), expected.value(e.prefix()));
    QCOMPARE(seen, expected.size());
}

void TestSoapMessage::digestValidates()
{
    OnvifSecurity security("operator", "S3cr\u00e9t", 0LL);
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const QString header = security.serialize(QStringLiteral("ignored"));
    const QDateTime after = QDateTime::currentDateTimeUtc();
    QCOMPARE(header.size(), 553 - 8 + 8 + 28 + 44 + 24);

    const HeaderParts parts = readHeader(header);
    QCOMPARE(parts.user, QStringLiteral("operator"));
    const QByteArray nonce
        = QByteArray::fromBase64(parts.nonce.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    QCOMPARE(nonce.size(), 32);
    QCOMPARE(parts.nonce.size(), 44);
    QVERIFY(QRegularExpression("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z$")
                .match(parts.created)
                .hasMatch());
    const QDateTime created = parseCreated(parts.created);
    QVERIFY(created >= before.addMSecs(-1) && created <= after.addMSecs(1));

    // What a device computes: Base64(SHA-1(nonce bytes + created + password as Latin-1)).
    QByteArray input = nonce + parts.created.toLatin1() + QByteArray("S3cr\xe9t");
    QCOMPARE(parts.password,
        QString::fromLatin1(QCryptographicHash::hash(input, QCryptographicHash::Sha1).toBase64()));
    QCOMPARE(parts.password.size(), 28);
}

void TestSoapMessage::headersDifferPerCall()
{
    OnvifSecurity security("u", "p", 0LL);
    const HeaderParts first = readHeader(security.serialize(QString()));
    QTest::qWait(5);
    const HeaderParts second = readHeader(security.serialize(QString()));
    QVERIFY(first.nonce != second.nonce);
    QVERIFY(first.password != second.password);
    QVERIFY(parseCreated(second.created) > parseCreated(first.created));
}

void TestSoapMessage::timeShiftAndDeviceTime()
{
    const qint64 hour = 3600 * 1000;
    OnvifSecurity ahead("u", "p", hour);
    QCOMPARE(ahead.timeShift(), hour);
    const qint64 diff
        = QDateTime::currentDateTimeUtc().msecsTo(parseCreated(readHeader(ahead.serialize({})).created));
    QVERIFY2(qAbs(diff - hour) < 2000, qPrintable(QString::number(diff)));

    // A device clock given in local time is still a point in time.
    const QDateTime deviceLocal = QDateTime::currentDateTime().addSecs(-600);
    OnvifSecurity behind("u", "p", deviceLocal);
    QVERIFY2(qAbs(behind.timeShift() + 600 * 1000) < 2000, qPrintable(QString::number(behind.timeShift())));
    const QDateTime deviceUtcPlusTwo
        = QDateTime::currentDateTimeUtc().addSecs(7200).toOffsetFromUtc(2 * 3600);
    QVERIFY(qAbs(OnvifSecurity("u", "p", deviceUtcPlusTwo).timeShift() - 2 * hour) < 2000);

    // false as the third argument is a zero shift, as the device objects pass it.
    QCOMPARE(OnvifSecurity("u", "p", false).timeShift(), 0LL);
}

void TestSoapMessage::userWrittenAsGivenPasswordNeverSent()
{
    OnvifSecurity security("R&D <ops>", "hunter2", 0LL);
    const QString header = security.serialize(QString());
    QVERIFY(header.contains(QLatin1String("<Username>R&D <ops></Username>")));
    QVERIFY(!header.contains(QLatin1String("hunter2")));
    QVERIFY(header.endsWith(QLatin1String("</UsernameToken></Security>")));
}

void TestSoapMessage::hostSeedDecidesNonces()
{
    OnvifSecurity security("u", "p", 0LL);
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    qsrand(1234);
    const QString first = readHeader(security.serialize(QString())).nonce;
    qsrand(1234);
    const QString again = readHeader(security.serialize(QString())).nonce;
    // Opted in, the same seed no longer repeats a nonce; opting out restores the sequence.
    Onvif::useStrongNonces();
    qsrand(1234);
    const QString strong = readHeader(security.serialize(QString())).nonce;
    qsrand(1234);
    const QString strongAgain = readHeader(security.serialize(QString())).nonce;
    Onvif::useStrongNonces(false);
    qsrand(1234);
    const QString back = readHeader(security.serialize(QString())).nonce;
    QT_WARNING_POP
    QCOMPARE(first, again);
    QVERIFY(strong != first && strong != strongAgain);
    QCOMPARE(QByteArray::fromBase64(strong.toLatin1()).size(), 32);
    QCOMPARE(back, first);
}

QTEST_GUILESS_MAIN(TestSoapMessage)
#include "tst_soapmessage.moc"
