#include <onvifTypes/stringEnumBase.h>

#include <QDomDocument>
#include <QtTest>

namespace {

// Shaped like a generated enumeration, with a duplicate to check first-wins.
class Mode : public StringEnumBase
{
public:
    enum tMode { Off, On, Auto, OnAgain };
    Mode(tMode v = Off)
        : StringEnumBase(
            v, { QStringLiteral("OFF"), QStringLiteral("ON"), QStringLiteral("AUTO"), QStringLiteral("ON") })
    { }
    explicit Mode(const QString& s)
        : Mode(Off)
    {
        setValue(s);
    }
};

} // namespace

class TestStringEnum : public QObject
{
    Q_OBJECT

private slots:
    void indexDrivesOutputValueTracksInput();
    void unknownTextChangesNothing();
    void outOfRange();
    void readsAttributeAndElement();
};

void TestStringEnum::indexDrivesOutputValueTracksInput()
{
    Mode mode(Mode::Auto);
    QCOMPARE(mode.serialize(QString()), QStringLiteral("AUTO"));
    QCOMPARE(mode.serialize(QStringLiteral("tt:Mode")), QStringLiteral("<tt:Mode>AUTO</tt:Mode>"));
    QVERIFY(mode.value().isEmpty());

    mode.setValue(QStringLiteral("OFF"));
    QCOMPARE(mode.index(), 0u);
    QCOMPARE(mode.value(), QStringLiteral("OFF"));

    // A duplicate text selects the first entry.
    mode.setIndex(3);
    mode.setValue(QStringLiteral("ON"));
    QCOMPARE(mode.index(), 1u);
}

void TestStringEnum::unknownTextChangesNothing()
{
    Mode mode(Mode::Auto);
    mode.setValue(QStringLiteral("on")); // case matters
    QCOMPARE(mode.index(), 2u);
    QVERIFY(mode.value().isEmpty());

    mode.setValue(QStringLiteral("ON"));
    mode.setValue(QStringLiteral("bogus"));
    QCOMPARE(mode.index(), 1u);
    QCOMPARE(mode.value(), QStringLiteral("ON"));

    // From an unknown text: first entry for output, nothing read.
    Mode fromText(QStringLiteral("sideways"));
    QCOMPARE(fromText.serialize(QString()), QStringLiteral("OFF"));
    QVERIFY(fromText.value().isEmpty());
}

void TestStringEnum::outOfRange()
{
    Mode mode;
    mode.setIndex(4);
    QTest::ignoreMessage(QtDebugMsg, "--- StringEnumBase::toXML out of range.");
    QCOMPARE(mode.serialize(QStringLiteral("tt:Mode")), QStringLiteral("out of range"));

    StringEnumBase empty(0, {});
    QTest::ignoreMessage(QtDebugMsg, "--- StringEnumBase::toXML out of range.");
    QCOMPARE(empty.serialize(QString()), QStringLiteral("out of range"));
    empty.setValue(QString()); // nothing to find, nothing to break
    QCOMPARE(empty.index(), 0u);
}

void TestStringEnum::readsAttributeAndElement()
{
    QDomDocument doc;
    QVERIFY(doc.setContent(QStringLiteral("<m mode=\"AUTO\">ON</m>")));
    Mode mode;
    QDomNode attribute = doc.documentElement().attributeNode(QStringLiteral("mode"));
    mode.deserialize(attribute);
    QCOMPARE(mode.index(), 2u);
    QDomNode element = doc.documentElement();
    mode.deserialize(element);
    QCOMPARE(mode.index(), 1u);
    QDomNode null;
    mode.deserialize(null); // empty text is unknown: no change
    QCOMPARE(mode.index(), 1u);
    QCOMPARE(mode.value(), QStringLiteral("ON"));
}

QTEST_GUILESS_MAIN(TestStringEnum)
#include "tst_stringenum.moc"
