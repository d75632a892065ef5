#include <onvifTypes/serializable.h>

#include <QDirIterator>
#include <QDomDocument>
#include <QTextStream>
#include <QXmlStreamReader>
#include <QtTest>

// Utilites::nodeToText writes common nodes itself instead of through QDom; whatever
// it writes must equal what QDomNode::save gives for the same node.
class NodeTextTest : public QObject
{
    Q_OBJECT

private slots:
    void matchesQDom_data();
    void matchesQDom();
    void matchesQDomOnRealReplies();
};

namespace {

QString savedByQDom(const QDomNode& node)
{
    QByteArray bytes;
    QTextStream stream(&bytes);
    node.save(stream, 0);
    stream.flush();
    stream.seek(0);
    return stream.readAll();
}

// Every element and attribute below `root`, compared; returns how many.
int compareAll(const QDomNode& root)
{
    int compared = 0;
    QList<QDomNode> pending { root };
    while (!pending.isEmpty()) {
        const QDomNode node = pending.takeLast();
        if (node.isElement() || node.isText()) {
            [&] { QCOMPARE(Utilites::nodeToText(node), savedByQDom(node)); }();
            ++compared;
        }
        const QDomNamedNodeMap attributes = node.attributes();
        for (int i = 0; i < attributes.size(); ++i) {
            [&] { QCOMPARE(Utilites::nodeToText(attributes.item(i)), savedByQDom(attributes.item(i))); }();
            ++compared;
        }
        for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
            pending.append(child);
    }
    return compared;
}

enum Parser { Bytes, Stream, NoNamespaces };

QDomDocument parsed(const QByteArray& xml, Parser parser)
{
    QDomDocument document;
    if (parser == Stream) {
        QXmlStreamReader reader(xml);
        document.setContent(&reader, true);
    } else {
        document.setContent(xml, parser == Bytes);
    }
    return document;
}

} // namespace

void NodeTextTest::matchesQDom_data()
{
    QTest::addColumn<QByteArray>("xml");
    const auto row = [](const char* name, const char* xml) { QTest::newRow(name) << QByteArray(xml); };
    row("prefixed, nested, empty", "<a:r xmlns:a=\"urn:a\"><a:x>1</a:x><a:e/><a:e></a:e></a:r>");
    row("default namespace", "<r xmlns=\"urn:d\"><x k=\"v\">t</x><y/></r>");
    row("no namespace", "<r><x>t</x>tail<y a=\"1\" b=\"2\" c=\"3\"/>mid<z/></r>");
    row("attribute of another prefix",
        "<a:r xmlns:a=\"urn:a\" xmlns:b=\"urn:b\"><a:x b:k=\"1\" b:l=\"2\" a:m=\"3\">v</a:x></a:r>");
    row("escapes in text", "<r>a &lt; b &amp;&amp; c &gt; d \"q\" 'q' ]]&gt; x]&gt;</r>");
    row("escapes in attributes", "<r k=\"a&lt;b&amp;c&quot;d'e&gt;\" t=\"1&#9;2&#10;3&#13;4\" s='\"'/>");
    row("returns and tabs in text", "<r>a&#13;b\tc\nd</r>");
    row("mixed content", "<r>x<a>y</a>z<b/><c>w</c></r>");
    row("non-ASCII text and names", "<r n=\"\xc3\xa9t\xc3\xa9\">caf\xc3\xa9 \xe6\x97\xa5<\xc3\xa9l/></r>");
    row("CDATA, comment, instruction", "<r><![CDATA[a<b]]><!-- c --><?pi x?><e>t</e></r>");
    row("characters outside the BMP", "<r>\xf0\x9d\x84\x9e</r>");
}

void NodeTextTest::matchesQDom()
{
    QFETCH(QByteArray, xml);
    for (const Parser parser : { Bytes, Stream, NoNamespaces }) {
        const QDomDocument document = parsed(xml, parser);
        QVERIFY2(!document.documentElement().isNull(), xml.constData());
        QVERIFY(compareAll(document.documentElement()) > 0);
        if (QTest::currentTestFailed())
            qWarning() << "parser" << parser;
    }

    // Trees built by hand, with and without namespaces, and nodes without an owner.
    QDomDocument document;
    QDomElement root = document.createElementNS(QStringLiteral("urn:a"), QStringLiteral("a:r"));
    document.appendChild(root);
    root.setAttributeNS(QStringLiteral("urn:b"), QStringLiteral("b:k"), QStringLiteral("v"));
    root.setAttribute(QStringLiteral("plain"), QStringLiteral("p"));
    QDomElement legacy = document.createElement(QStringLiteral("x:legacy"));
    legacy.appendChild(document.createTextNode(QStringLiteral("a\"b\rc")));
    root.appendChild(legacy);
    root.appendChild(document.createElementNS(QString(), QStringLiteral("bare")));
    QVERIFY(compareAll(root) >= 6);
    const QDomAttr loose = document.createAttributeNS(QStringLiteral("urn:c"), QStringLiteral("c:x"));
    QCOMPARE(Utilites::nodeToText(loose), savedByQDom(loose));
    QCOMPARE(Utilites::nodeToText(document.createTextNode(QStringLiteral("\"a\""))),
        savedByQDom(document.createTextNode(QStringLiteral("\"a\""))));
}

void NodeTextTest::matchesQDomOnRealReplies()
{
    const QString root = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real");
    if (!QDir(root).exists())
        QSKIP("no captured replies: ../shared/fixtures/real is absent next to the repository");
    int files = 0;
    for (QDirIterator it(root, { QStringLiteral("*.xml") }, QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        QFile file(it.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray xml = file.readAll();
        for (const Parser parser : { Bytes, Stream }) {
            const QDomDocument document = parsed(xml, parser);
            if (!document.documentElement().isNull())
                compareAll(document.documentElement());
            if (QTest::currentTestFailed())
                QFAIL(qPrintable(file.fileName()));
        }
        ++files;
    }
    QVERIFY(files > 50);
}

QTEST_GUILESS_MAIN(NodeTextTest)
#include "tst_nodeText.moc"
