#include "domTree.h"

#include <onvifTypes/onvifResponse.h>

#include <QDirIterator>
#include <QtTest>

// Replies are read by the library's own one-pass tree builder where it can; it must
// build exactly the tree Qt's parsers build, and hand every text it does not take to
// them, so that nothing is accepted, refused or read differently because of it.
class ReplyParsingTest : public QObject
{
    Q_OBJECT

private slots:
    void sameTreeAsQt_data();
    void sameTreeAsQt();
    void sameTreeOnRealReplies();
    void depthLimit_data();
    void depthLimit();
};

namespace {

constexpr int kMaxDepth = 512;

QString libraryTree(const QString& text)
{
    return domTree(OnvifResponse(text).document());
}

} // namespace

void ReplyParsingTest::sameTreeAsQt_data()
{
    QTest::addColumn<QString>("text");
    // Whether Qt builds a tree at all: the SAX-based parser forgives much.
    QTest::addColumn<bool>("accepted");

    const auto row = [](const char* name, const QString& text, bool accepted = true) {
        QTest::newRow(name) << text << accepted;
    };
    // The XML declaration becomes an instruction whose text Qt rewrites.
    row("declaration", R"(<?xml version="1.0" encoding="UTF-8"?><r/>)");
    row("declaration, single quotes", "<?xml version='1.0'?><r/>");
    row("declaration, standalone", R"(<?xml version="1.0"  encoding="utf-8"   standalone="yes" ?><r/>)");
    row("declaration, standalone no", R"(<?xml version="1.0" standalone="no"?><r/>)");
    row("declaration, other encoding", R"(<?xml version="1.0" encoding="ISO-8859-1"?><r/>)");
    row("declaration, unknown encoding", R"(<?xml version="1.0" encoding="Apple"?><r a="x&#9;	y"/>)");
    row("declaration, wrong order", R"(<?xml encoding="UTF-8" version="1.0"?><r/>)", false);
    row("declaration, after space", R"( <?xml version="1.0"?><r/>)", false);
    row("declaration, version 2", R"(<?xml version="2.0"?><r/>)");

    row("namespaces", R"(<a:r xmlns:a="urn:a" xmlns="urn:d" x="1" a:y="2"><c/><a:c/></a:r>)");
    row("namespace rebound", R"(<p:r xmlns:p="urn:1"><p:c xmlns:p="urn:2"/><p:d/></p:r>)");
    row("default namespace emptied", R"(<r xmlns="urn:a"><c xmlns=""><d/></c><e/></r>)");
    row("two prefixes, one namespace", R"(<r xmlns="urn:x" xmlns:p="urn:x"><p:b/></r>)");
    row("same attribute by two prefixes", R"(<r xmlns:p="urn:p" xmlns:q="urn:p" p:x="1" q:x="2"/>)");
    row("duplicate attribute", R"(<r b="1" b="2"/>)");
    row("empty values", R"(<r a="" b=''><c xmlns=""/></r>)");
    row("xml prefix", R"(<r xml:lang="en"><xml:c/></r>)");
    row("empty prefixed binding", R"(<r xmlns:p=""/>)");
    // Devices send these; only the SAX-based parser takes them, and its tree keeps
    // line ends and white space in values as sent.
    row("undeclared prefixes", "<r xmlns:a=\"u\"><p:x a:b=\"\r\n\t x\" y:z=\"3\">1\r\n2\r3</p:x></r>");
    row("undeclared prefix, standalone no", R"(<?xml version="1.0" standalone="no"?><r><p:x/></r>)");

    row("references", "<r>x&amp;y&#65;z&#x41;&#00065;&lt;&gt;&quot;&apos;]]&gt;&#x10000;</r>");
    row("line ends", "<r a=\"x\r\ny\tz&#10;&#13;\">x\r\ny\rz&#13;</r>");
    row("white space runs dropped", "<r> <a>&#32;</a><b>\xc2\xa0</b> <c> &#65; </c>\n\t</r>");
    row("text around elements", "<r>x<a/> y <b/>z</r>");
    row("non-ASCII text and names", "<r a=\"\xe4\xb8\xad\">\xe4\xb8\xad\xf0\x9f\x98\x80<\xc3\xbc/></r>");
    row("]]> in text", "<r>]]></r>", false);
    row("unknown entity", "<r>&nbsp;</r>");
    row("upper-case hex reference", "<r>&#X41;</r>", false);
    for (const char* reference : { "&#0;", "&#x1;", "&#xD800;", "&#xFFFE;", "&#x110000;" })
        row(reference, QStringLiteral("<r>%1</r>").arg(QLatin1String(reference)));
    row("&#;", "<r>&#;</r>", false);
    row("control character", QStringLiteral("<r>\x01</r>"));
    row("lone surrogate", QStringLiteral("<r>") + QChar(0xD800) + QStringLiteral("</r>"));
    row("U+FFFF", QStringLiteral("<r a='") + QChar(0xFFFF) + QStringLiteral("'/>"), false);

    row("comments", "<!-- a --><r>x<!--c-->y<!----></r><!--after-->  ");
    row("comment with line end", "<r><!-- x\r\ny --></r>");
    row("-- in comment", "<r><!-- -- --></r>", false);
    row("comment ending in -", "<r><!-- ---></r>", false);
    row("CDATA", "<r><![CDATA[ <x> ]]><![CDATA[ ]]>t</r>");
    row("instruction", "<?pi x?><r><?pi y?></r>");
    row("DOCTYPE", "<!DOCTYPE r [<!ENTITY e \"v\">]><r>&e;</r>");

    row("end tag with space", "<r></r >");
    row("mismatched end tag", "<r></rr>", false);
    row("end tag prefix differs", R"(<p:r xmlns:p="u" xmlns:q="u"></q:r>)", false);
    row("unclosed", "<r><a>", false);
    row("stray end tag", "</r>", false);
    row("two roots", "<r/><r/>", false);
    row("text before root", "x<r/>", false);
    row("text after root", "<r/>x", false);
    row("empty", "", false);
    row("no space between attributes", R"(<r b="1"c="2"/>)");
    row("unquoted attribute", "<r b=1/>", false);
    row("< in attribute", R"(<r b="<"/>)", false);
    row("two colons", R"(<a:b:c xmlns:a="u"/>)");
    row("empty local name", "<a:/>", false);
}

void ReplyParsingTest::sameTreeAsQt()
{
    QFETCH(QString, text);
    QFETCH(bool, accepted);
    const QString expected = parsedByQt(text, kMaxDepth);
    QCOMPARE(!expected.isEmpty(), accepted);
    QCOMPARE(libraryTree(text), expected);
}

void ReplyParsingTest::sameTreeOnRealReplies()
{
    const QString root = QStringLiteral(ONVIFTYPES_SHARED_DIR "/fixtures/real");
    if (!QDir(root).exists())
        QSKIP("no captured replies: ../shared/fixtures/real is absent next to the repository");
    int compared = 0;
    QDirIterator files(root, { QStringLiteral("*.xml") }, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
        const QString expected = parsedByQt(text, kMaxDepth);
        if (libraryTree(text) != expected)
            QFAIL(qPrintable(file.fileName()));
        compared += !expected.isEmpty();
    }
    QVERIFY2(compared > 50, qPrintable(QString::number(compared)));
}

void ReplyParsingTest::depthLimit_data()
{
    QTest::addColumn<int>("open");
    QTest::addColumn<QString>("leaf");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("at the limit") << kMaxDepth << QString() << true;
    QTest::newRow("empty element past it") << kMaxDepth << QStringLiteral("<x/>") << false;
    QTest::newRow("one past it") << kMaxDepth + 1 << QString() << false;
    QTest::newRow("past it, declined text") << kMaxDepth + 1 << QStringLiteral("<![CDATA[x]]>") << false;
    QTest::newRow("past it, undeclared prefix") << kMaxDepth + 1 << QStringLiteral("<p:x/>") << false;
}

void ReplyParsingTest::depthLimit()
{
    QFETCH(int, open);
    QFETCH(QString, leaf);
    QFETCH(bool, accepted);
    const QString text = QStringLiteral("<a>").repeated(open) + leaf + QStringLiteral("</a>").repeated(open);
    QCOMPARE(OnvifResponse(text).document().documentElement().isNull(), !accepted);
}

QTEST_GUILESS_MAIN(ReplyParsingTest)
#include "tst_replyParsing.moc"
