#include "schemaTestUtil.h"

#include <onvifTypes/schema/schemaRegistry.h>

#include <QtTest>

// deserialize() takes the node by reference, as applications' overrides do; tests hand it a copy.
template <typename T> void readNode(T& object, QDomNode node)
{
    object.deserialize(node);
}

// Every generated class, reached through the registry, against input that a
// broken or hostile device could send, and against its own output.
class SchemaRobustnessTest : public QObject
{
    Q_OBJECT

private slots:
    void registryCoversEveryClass();
    void hostileInput_data();
    void hostileInput();
    void ownOutputReadsBackUnchanged();
};

void SchemaRobustnessTest::registryCoversEveryClass()
{
    const QStringList names = SchemaRegistry::classNames();
    // 555 in tt (62 enumerations), 183 in tds, 163 in trt, 57 in tptz, 107 in tr2, 24 in timg.
    QCOMPARE(names.size(), 1089);
    for (const QString& name : names)
        QVERIFY2(SchemaRegistry::create(name), qPrintable(name));
    QVERIFY(SchemaRegistry::create(QStringLiteral("tt::NoSuchType")).isNull());
    QVERIFY(SchemaRegistry::create(QStringLiteral("zz::Last")).isNull());
    QVERIFY(SchemaRegistry::create(QString()).isNull());
}

namespace {

// Elements nested depth deep, cycling through names that many classes know
// (so that the walk follows members) and names that none knows.
QString deepChain(int depth)
{
    static const char* names[]
        = { "tt:Extension", "Tunnel", "tt:Name", "ns1:Unknown", "Profiles", "tt:Capabilities" };
    QString open;
    QString close;
    for (int i = 0; i < depth; ++i) {
        const QString name = QLatin1String(names[i % 6]);
        open += QLatin1Char('<') + name + QStringLiteral(" token=\"") + QString::number(i)
            + QStringLiteral("\">");
        close.prepend(QStringLiteral("</") + name + QLatin1Char('>'));
    }
    return open + close;
}

} // namespace

void SchemaRobustnessTest::hostileInput_data()
{
    QTest::addColumn<QString>("body");
    QTest::newRow("null node") << QString();
    QTest::newRow("empty element") << QStringLiteral("<x/>");
    QTest::newRow("attributes only") << QStringLiteral(
        "<x token=\"\" x=\"nan\" y=\"1e999\" fixed=\"\" ns1:odd=\"&lt;&amp;\" Critical=\"maybe\"/>");
    QTest::newRow("unknown children and text")
        << QStringLiteral("<x>text<!-- c --><ns1:Unknown a=\"1\"><Deeper/></ns1:Unknown><?pi x?>"
                          "<tt:Name><tt:Name>nested</tt:Name></tt:Name><Extension>junk</Extension></x>");
    QTest::newRow("deep nesting") << QStringLiteral("<x>") + deepChain(400) + QStringLiteral("</x>");
}

void SchemaRobustnessTest::hostileInput()
{
    QFETCH(QString, body);
    QDomDocument document;
    const QDomNode node = body.isEmpty() ? QDomNode() : QDomNode(SchemaTest::parse(document, body));
    QVERIFY(body.isEmpty() || !node.isNull());
    for (const QString& name : SchemaRegistry::classNames()) {
        const QSharedPointer<Serializable> object = SchemaRegistry::create(name);
        readNode(*object, node);
        readNode(*object, node); // twice: members made by the first read are reused
        QVERIFY2(!object->serialize(QStringLiteral("tt:Probe")).isEmpty(), qPrintable(name));
    }
}

void SchemaRobustnessTest::ownOutputReadsBackUnchanged()
{
    // Each class's default output is well-formed XML (prefixes, attribute names
    // such as "TLS1.2", embedded base content) that a fresh object reads and
    // writes again identically.
    for (const QString& name : SchemaRegistry::classNames()) {
        const QString text = SchemaRegistry::create(name)->serialize(QStringLiteral("tt:Probe"));
        QDomDocument document;
        const QDomElement element = SchemaTest::parse(document, text);
        QVERIFY2(!element.isNull(), qPrintable(name + QLatin1Char(' ') + text));
        const QSharedPointer<Serializable> copy = SchemaRegistry::create(name);
        readNode(*copy, element);
        QVERIFY2(
            copy->serialize(QStringLiteral("tt:Probe")) == text, qPrintable(name + QLatin1Char(' ') + text));
    }
}

QTEST_GUILESS_MAIN(SchemaRobustnessTest)
#include "tst_schemaRobustness.moc"
