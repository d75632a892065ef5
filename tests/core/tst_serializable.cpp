#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/schema/trt/SetVideoEncoderConfiguration.h>
#include <onvifTypes/serializable.h>

#include <QDomDocument>
#include <QtTest>

#include <limits>

namespace {

// An application's header block, written to the base class's interface as it stands
// (word for word as applications write it, unused parameter included).
QT_WARNING_PUSH
QT_WARNING_DISABLE_GCC("-Wunused-parameter")
class MyHeader : public Serializable
{
public:
    QString serialize(QString tagName) override
    {
        ++calls;
        return QStringLiteral("<x:H xmlns:x=\"urn:x\"/>");
    }
    void deserialize(QDomNode& node) override { Q_UNUSED(node); }
    int calls = 0;
};
QT_WARNING_POP

// Application classes that refine generated ones: the library must reach the overrides
// both for the message itself and for a member deep inside it.
class MarkedResolution : public tt::VideoResolution
{
public:
    QString serialize(QString tagName) override
    {
        ++writes;
        return tt::VideoResolution::serialize(tagName) + QStringLiteral("<!--resolution-->");
    }
    void deserialize(QDomNode& node) override
    {
        ++reads;
        tt::VideoResolution::deserialize(node);
    }
    int writes = 0;
    int reads = 0;
};

class MarkedRequest : public trt::SetVideoEncoderConfiguration
{
public:
    QString serialize(QString tagName) override
    {
        ++writes;
        return QStringLiteral("<!--request-->") + trt::SetVideoEncoderConfiguration::serialize(tagName);
    }
    void deserialize(QDomNode& node) override
    {
        ++reads;
        trt::SetVideoEncoderConfiguration::deserialize(node);
    }
    int writes = 0;
    int reads = 0;
};

} // namespace

class TestSerializable : public QObject
{
    Q_OBJECT

private slots:
    void intText_data();
    void intText();
    void floatText_data();
    void floatText();
    void boolParse_data();
    void boolParse();
    void simpleElement();
    void readsElementAttributeAndNullNode();
    void prefixRemoval();
    void applicationHeaderInRequest();
    void overridesOfGeneratedClasses();
};

void TestSerializable::intText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value");
    QTest::newRow("plain") << "42" << 42;
    QTest::newRow("negative") << "-5" << -5;
    QTest::newRow("max") << "2147483647" << std::numeric_limits<int>::max();
    QTest::newRow("min") << "-2147483648" << std::numeric_limits<int>::min();
    QTest::newRow("empty") << "" << 0;
    QTest::newRow("leading blank") << " 7" << 0;
    QTest::newRow("trailing letters") << "7px" << 0;
    QTest::newRow("overflow") << "2147483648" << 0;
    QTest::newRow("float text") << "1.5" << 0;
    QTest::newRow("hex") << "0x10" << 0;
}

void TestSerializable::intText()
{
    QFETCH(QString, text);
    QFETCH(int, value);
    QCOMPARE(TypeConvertor::convertFromString<int>(text), value);
    if (value != 0 || text == QLatin1String("0"))
        QCOMPARE(TypeConvertor::convertToString<int>(value), text);
}

void TestSerializable::floatText_data()
{
    QTest::addColumn<float>("value");
    QTest::addColumn<QString>("text");
    QTest::newRow("half") << 0.5f << "0.5";
    QTest::newRow("tenth") << 0.1f << "0.1";
    QTest::newRow("zero") << 0.0f << "0";
    QTest::newRow("one ten-millionth") << 1e-7f << "1e-07";
    QTest::newRow("hundred million") << 1e8f << "1e+08";
    QTest::newRow("123456789") << 123456789.0f << "1.23457e+08";
    QTest::newRow("negative") << -0.25f << "-0.25";
    QTest::newRow("below 1e6") << 999999.0f << "999999";
}

void TestSerializable::floatText()
{
    QFETCH(float, value);
    QFETCH(QString, text);
    QCOMPARE(TypeConvertor::convertToString<float>(value), text);
    QCOMPARE(TypeConvertor::convertFromString<float>(text), value);
    for (const char* bad : { "abc", "", "0.5 " })
        QCOMPARE(TypeConvertor::convertFromString<float>(QLatin1String(bad)), 0.0f);
}

void TestSerializable::boolParse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("value");
    QTest::newRow("false") << "false" << false;
    QTest::newRow("FALSE") << "FALSE" << false;
    QTest::newRow("true") << "true" << true;
    // Only the word false counts as false: devices answering 0 or no read as true.
    QTest::newRow("0") << "0" << true;
    QTest::newRow("no") << "no" << true;
    QTest::newRow("empty") << "" << true;
    QTest::newRow("padded false") << " false" << true;
}

void TestSerializable::boolParse()
{
    QFETCH(QString, text);
    QFETCH(bool, value);
    QCOMPARE(TypeConvertor::convertFromString<bool>(text), value);
    QCOMPARE(TypeConvertor::convertToString<bool>(value),
        value ? QStringLiteral("true") : QStringLiteral("false"));
}

void TestSerializable::simpleElement()
{
    universalSimpleType<int> level(-5);
    QCOMPARE(level.serialize(QStringLiteral("tt:Level")), QStringLiteral("<tt:Level>-5</tt:Level>"));
    QCOMPARE(level.serialize(QString()), QStringLiteral("-5"));

    // No escaping at this layer: the caller owns it.
    universalSimpleType<QString> raw(QStringLiteral("a<b&\"c\""));
    QCOMPARE(raw.serialize(QStringLiteral("tt:Name")), QStringLiteral("<tt:Name>a<b&\"c\"</tt:Name>"));

    // A value that looks like a placeholder must not be substituted again.
    universalSimpleType<QString> percent(QStringLiteral("%1 and %0"));
    QCOMPARE(percent.serialize(QStringLiteral("x")), QStringLiteral("<x>%1 and %0</x>"));

    QCOMPARE(universalSimpleType<QString>().serialize(QStringLiteral("tt:Name")),
        QStringLiteral("<tt:Name></tt:Name>"));
}

void TestSerializable::readsElementAttributeAndNullNode()
{
    QDomDocument doc;
    QVERIFY(doc.setContent(
        QStringLiteral("<tt:Width xmlns:tt=\"urn:x\" count=\"12\">1920<!-- c --><b>0</b></tt:Width>"), true));
    QDomElement element = doc.documentElement();

    universalSimpleType<QString> text;
    text.deserialize(element);
    QCOMPARE(text.value(), QStringLiteral("19200")); // all text below the element, concatenated

    universalSimpleType<int> count(99);
    QDomNode attribute = element.attributeNode(QStringLiteral("count"));
    count.deserialize(attribute);
    QCOMPARE(count.value(), 12);

    // A null node reads as the empty text: the old value never survives.
    QDomNode null;
    count.deserialize(null);
    QCOMPARE(count.value(), 0);
    universalSimpleType<bool> flag(false);
    flag.deserialize(null);
    QCOMPARE(flag.value(), true);
}

void TestSerializable::prefixRemoval()
{
    const char* rows[][2] = { { "s:Envelope", "Envelope" }, { "Envelope", "Envelope" }, { "a:b:c", "b:c" },
        { ":x", "x" }, { "", "" } };
    for (const auto& row : rows)
        QCOMPARE(Utilites::delNameSpacePrefix(QString::fromLatin1(row[0])), QString::fromLatin1(row[1]));
}

void TestSerializable::applicationHeaderInRequest()
{
    OnvifSecurity security(QStringLiteral("admin"), QStringLiteral("secret"), 0LL);
    MyHeader mine;
    SerializableContainer header;
    header.append(security);
    header.append(mine);
    trt::SetVideoEncoderConfiguration body;
    const QString message = OnvifRequest(header, body).getMessage();

    QCOMPARE(mine.calls, 1);
    const int start = message.indexOf(QLatin1String("<s:Header>"));
    const int end = message.indexOf(QLatin1String("</s:Header>"));
    QVERIFY(start > 0 && end > start);
    const QString headerText = message.mid(start, end - start);
    QVERIFY(headerText.contains(QLatin1String("<Username>admin</Username>")));
    QVERIFY(headerText.endsWith(QLatin1String("</Security><x:H xmlns:x=\"urn:x\"/>")));
}

void TestSerializable::overridesOfGeneratedClasses()
{
    MarkedRequest body;
    auto resolution = QSharedPointer<MarkedResolution>::create();
    resolution->Width->setValue(1280);
    body.Configuration->Resolution = resolution;
    EmptyOnvifType header;
    const QString message = OnvifRequest(header, body).getMessage();

    QCOMPARE(body.writes, 1);
    QCOMPARE(resolution->writes, 1);
    QVERIFY(message.contains(QLatin1String("<s:Body xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" "
                                           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">"
                                           "<!--request--><trt:SetVideoEncoderConfiguration >")));
    QVERIFY(message.contains(
        QLatin1String("<tt:Resolution ><tt:Width>1280</tt:Width><tt:Height>0</tt:Height></tt:Resolution>"
                      "<!--resolution--><tt:Quality>")));

    // Reading goes through the overrides too, down to the member the application placed.
    QDomDocument doc;
    QVERIFY(doc.setContent(message, true));
    QDomNode node = doc.elementsByTagNameNS(QStringLiteral("http://www.onvif.org/ver10/media/wsdl"),
                           QStringLiteral("SetVideoEncoderConfiguration"))
                        .at(0);
    resolution->Width->setValue(0);
    body.deserialize(node);
    QCOMPARE(body.reads, 1);
    QCOMPARE(resolution->reads, 1);
    QCOMPARE(body.Configuration->Resolution, resolution);
    QCOMPARE(resolution->Width->value(), 1280);
}

QTEST_GUILESS_MAIN(TestSerializable)
#include "tst_serializable.moc"
