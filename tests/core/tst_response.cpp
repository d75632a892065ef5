#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/schema/soapenv/Fault.h>

#include <QDirIterator>
#include <QFile>
#include <QtTest>

namespace {

const QString kFixtures = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real");

QString readFixture(const QString& relative)
{
    QFile file(kFixtures + QLatin1Char('/') + relative);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

QString fault(const QString& prefix, const QString& inner)
{
    const QString p = prefix.isEmpty() ? QString() : prefix + QLatin1Char(':');
    const QString decl = prefix.isEmpty() ? QStringLiteral("xmlns") : QStringLiteral("xmlns:") + prefix;
    return QStringLiteral(
        "<%1Envelope %2=\"http://www.w3.org/2003/05/soap-envelope\" "
        "xmlns:ter=\"http://www.onvif.org/ver10/error\"><%1Body><%1Fault>%3</%1Fault></%1Body>"
        "</%1Envelope>")
        .arg(p, decl, QString(inner).replace(QLatin1String("P:"), p));
}

} // namespace

class TestResponse : public QObject
{
    Q_OBJECT

private slots:
    void faultWhateverThePrefix_data();
    void faultWhateverThePrefix();
    void faultText();
    void codeOutsideTableAndNestedSubcodes();
    void faultElementInsideNormalBody();
    void findsElementByLocalName();
    void unparsableReply_data();
    void unparsableReply();
    void capturedFaults();
    void capturedReplies();
};

void TestResponse::faultWhateverThePrefix_data()
{
    QTest::addColumn<QString>("prefix");
    QTest::newRow("env") << "env";
    QTest::newRow("SOAP-ENV") << "SOAP-ENV";
    QTest::newRow("s") << "s";
    QTest::newRow("default namespace") << "";
}

void TestResponse::faultWhateverThePrefix()
{
    QFETCH(QString, prefix);
    const OnvifResponse auth(fault(prefix,
        "<P:Code><P:Value>Sender</P:Value><P:Subcode><P:Value>ter:NotAuthorized</P:Value></P:Subcode></"
        "P:Code>"
        "<P:Reason><P:Text xml:lang=\"en\">Sender not authorized</P:Text></P:Reason>"));
    QVERIFY(auth.isFault() && auth.isAuthFault());
    QCOMPARE(auth.getFaultNode().localName(), QStringLiteral("Fault"));
    QCOMPARE(auth.getFaultText(),
        QStringLiteral(
            "Fault detail:  Code: Sender; Subcode: ter:NotAuthorized; Reason: Sender not authorized"));

    const OnvifResponse other(fault(prefix,
        "<P:Code><P:Value>Receiver</P:Value><P:Subcode><P:Value>ter:ActionNotSupported</P:Value></P:Subcode>"
        "</P:Code><P:Reason><P:Text>no</P:Text></P:Reason>"));
    QVERIFY(other.isFault() && !other.isAuthFault());

    // Unprefixed and lower-case forms of the word still mean an authentication fault.
    const OnvifResponse lower(fault(prefix,
        "<P:Code><P:Value>Sender</P:Value><P:Subcode><P:Value>notauthorized</P:Value></P:Subcode></P:Code>"));
    QVERIFY(lower.isAuthFault());
    // Without a subcode there is nothing to tell it by.
    const OnvifResponse noSubcode(fault(prefix,
        "<P:Code><P:Value>Sender</P:Value></P:Code>"
        "<P:Reason><P:Text>NotAuthorized</P:Text></P:Reason>"));
    QVERIFY(noSubcode.isFault() && !noSubcode.isAuthFault());
}

void TestResponse::faultText()
{
    const OnvifResponse response(fault("env",
        "<env:Code><env:Value>Receiver</env:Value><env:Subcode><env:Value>ter:Action</env:Value></"
        "env:Subcode>"
        "</env:Code><env:Reason><env:Text xml:lang=\"en\">first</env:Text><env:Text "
        "xml:lang=\"de\">zweite</env:Text>"
        "</env:Reason><env:Node>http://cam/node</env:Node><env:Role>urn:role</env:Role>"
        "<env:Detail><env:Text>never shown</env:Text></env:Detail>"));
    QCOMPARE(response.getFaultText(),
        QStringLiteral("Fault detail:  Code: Receiver; Subcode: ter:Action; Reason: first; Reason: zweite; "
                       "Node: http://cam/node; Role: urn:role"));
    QCOMPARE(response.fault().toString(), QStringLiteral("ter:Action (Receiver): first; zweite"));
    QCOMPARE(response.fault().node, QStringLiteral("http://cam/node"));
    QVERIFY(OnvifResponse(QStringLiteral("<a><b/></a>")).fault().isNull());
    // SOAP 1.1, as some older firmware still answers.
    const Onvif::SoapFault old = OnvifResponse(
        QStringLiteral("<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><s:Fault>"
                       "<faultcode>s:Client</faultcode><faultstring>bad "
                       "token</faultstring></s:Fault></s:Body></s:Envelope>"))
                                     .fault();
    QCOMPARE(old.toString(), QStringLiteral("Client: bad token"));
}

void TestResponse::codeOutsideTableAndNestedSubcodes()
{
    // Deeper subcodes are not looked at; a prefixed or unknown code reads as empty.
    const OnvifResponse response(fault("s",
        "<s:Code><s:Value>s:Sender</s:Value><s:Subcode><s:Value>ter:InvalidArgVal</s:Value>"
        "<s:Subcode><s:Value>ter:NotAuthorized</s:Value></s:Subcode></s:Subcode></s:Code>"));
    QVERIFY(!response.isAuthFault());
    QCOMPARE(response.getFaultText(), QStringLiteral("Fault detail:  Code: ; Subcode: ter:InvalidArgVal"));
    // The structured fault reads the code as written and the whole subcode chain.
    const Onvif::SoapFault structured = response.fault();
    QCOMPARE(structured.code, QStringLiteral("Sender"));
    QCOMPARE(structured.subcodes, QStringList({ "ter:InvalidArgVal", "ter:NotAuthorized" }));
    QVERIFY(structured.isAuthFault());
    QCOMPARE(structured.toString(), QStringLiteral("ter:NotAuthorized (Sender)"));

    soapenv::Fault parsed;
    QDomNode faultNode = response.getFaultNode();
    parsed.deserialize(faultNode);
    QVERIFY(parsed.Code->Subcode->Subcode);
    QCOMPARE(parsed.Code->Subcode->Subcode->Value->value(), QStringLiteral("ter:NotAuthorized"));
}

void TestResponse::faultElementInsideNormalBody()
{
    const OnvifResponse response(QStringLiteral(
        "<e:Envelope xmlns:e=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:v=\"urn:vendor\"><e:Body>"
        "<v:GetStatusResponse><v:Fault>lamp</v:Fault></v:GetStatusResponse></e:Body></e:Envelope>"));
    QVERIFY(response.isFault() && !response.isAuthFault());
    QCOMPARE(response.getFaultText(), QStringLiteral("Fault detail:  Code: "));
}

void TestResponse::findsElementByLocalName()
{
    // Built from its text by copy-initialisation, as applications may write it.
    const OnvifResponse response = QStringLiteral(
        "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" "
        "xmlns:x=\"http://www.onvif.org/ver10/device/wsdl\"><SOAP-ENV:Header><a/></"
        "SOAP-ENV:Header><SOAP-ENV:Body>"
        "<x:GetDeviceInformationResponse><x:Model>M1</x:Model></x:GetDeviceInformationResponse>"
        "<x:GetDeviceInformationResponse><x:Model>M2</x:Model></x:GetDeviceInformationResponse>"
        "</SOAP-ENV:Body></SOAP-ENV:Envelope>");
    QVERIFY(!response.isFault());
    const QDomElement first = response.getNodeByTag(QStringLiteral("GetDeviceInformationResponse"));
    QCOMPARE(first.text(), QStringLiteral("M1"));
    QCOMPARE(response.getNodeByTag(QStringLiteral("Model")).text(), QStringLiteral("M1"));
    QVERIFY(response.getNodeByTag(QStringLiteral("model")).isNull()); // case-sensitive
    QVERIFY(response.getNodeByTag(QStringLiteral("Envelope")).isNull()); // descendants only
    QVERIFY(!response.getNodeByTag(QStringLiteral("a")).isNull());
}

void TestResponse::unparsableReply_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("null") << QString();
    QTest::newRow("html") << "<html><body>401 Unauthorized</body>";
    QTest::newRow("truncated fault") << "<s:Envelope xmlns:s=\"x\"><s:Body><s:Fault><s:Code>";
    QTest::newRow("two roots") << "<a/><b><Fault/></b>";
    QTest::newRow("nul byte") << QString::fromLatin1("<a>\0</a>", 8);
}

void TestResponse::unparsableReply()
{
    QFETCH(QString, text);
    const OnvifResponse response(text);
    QVERIFY(!response.isFault() && !response.isAuthFault() && response.getFaultNode().isNull());
    QVERIFY(response.getNodeByTag(QStringLiteral("Body")).isNull());
    QCOMPARE(response.getFaultText(), QStringLiteral("Fault detail:  Code: "));
}

void TestResponse::capturedFaults()
{
    if (!QFileInfo::exists(kFixtures))
        QSKIP("captured camera replies (../shared/fixtures) are not present");

    struct Case
    {
        const char* file;
        bool auth;
        const char* text;
    };
    const Case cases[] = {
        { "onvif-camera-kotlin/fault_notAuthorized.xml", true,
            "Fault detail:  Code: ; Subcode: ter:NotAuthorized; Reason: Sender not Authorized" },
        { "onvif-nvt/trendnet/core/GetDeviceInformation.Error.xml", true,
            "Fault detail:  Code: ; Subcode: ter:NotAuthorized; Reason: The action requested requires "
            "authorization "
            "and the sender is not authorized" },
        { "onvif-nvt/axis/events/PullMessages.Error.xml", false,
            "Fault detail:  Code: ; Subcode: ter:InvalidArgs; Reason: " },
        { "2bad-onvif/dvc/dcn-bm2220lpr/device.GetSystemDateAndTimeUnauthorizedFault.xml", false, nullptr },
        { "2bad-onvif/ezviz/ds-2de2c400ig-w-w/device.UnknownActionFault.xml", false, nullptr },
        { "onvif-nvt/hikvision/core/GetServices.Error.xml", false, nullptr },
        { "onvif-camera-kotlin/fault_gsoap.xml", false, nullptr },
        { "easy_onvif/SUNBA/device_management/Fault.xml", false, nullptr },
    };
    for (const Case& c : cases) {
        const QString text = readFixture(QString::fromLatin1(c.file));
        QVERIFY2(!text.isEmpty(), c.file);
        const OnvifResponse response(text);
        QVERIFY2(response.isFault(), c.file);
        QVERIFY2(response.isAuthFault() == c.auth, c.file);
        // Real devices prefix the code; the structured fault names it all the same.
        const Onvif::SoapFault structured = response.fault();
        QVERIFY2(!structured.code.isEmpty() && !structured.code.contains(QLatin1Char(':')), c.file);
        QVERIFY2(structured.isAuthFault() == c.auth, c.file);
        if (c.text)
            QCOMPARE(response.getFaultText(), QString::fromUtf8(c.text));
        else
            QVERIFY2(response.getFaultText().contains(QLatin1String("; Reason: ")), c.file);
    }

    // Not well-formed: the reading falls back to "no fault" and never crashes.
    const OnvifResponse broken(readFixture(QStringLiteral("agsh-onvif/Error.xml")));
    QVERIFY(!broken.isFault());
    // HTTP 401 with an HTML page is not SOAP at all.
    const OnvifResponse html(readFixture(QStringLiteral(
        "2bad-onvif/ezviz/ds-2de2c400ig-w-w/device.GetSystemDateAndTimeUnauthorizedFault.xml")));
    QVERIFY(!html.isFault());
}

void TestResponse::capturedReplies()
{
    if (!QFileInfo::exists(kFixtures))
        QSKIP("captured camera replies (../shared/fixtures) are not present");
    // Every well-formed non-fault reply finds its own response element and is no fault.
    int checked = 0;
    QDirIterator it(
        kFixtures, { "*Response*.xml", "*.Response.xml" }, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
        QDomDocument probe;
        if (!probe.setContent(text, true))
            continue; // the few deliberately broken captures
        const OnvifResponse response(text);
        const QString op
            = QFileInfo(path).fileName().section(QLatin1Char('.'), 0, 0).remove(QStringLiteral("Response"));
        QVERIFY2(!response.isFault(), qPrintable(path));
        if (!response.getNodeByTag(op + QStringLiteral("Response")).isNull())
            ++checked;
    }
    QVERIFY2(checked >= 20, qPrintable(QString::number(checked)));
}

QTEST_GUILESS_MAIN(TestResponse)
#include "tst_response.moc"
