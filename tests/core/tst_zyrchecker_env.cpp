#include <zyrChecker/zyrChecker.h>

#include <QTemporaryFile>
#include <QtTest>

// The host configures the set before the first check; main() sets the environment.
class TestZyrCheckerEnvironment : public QObject
{
    Q_OBJECT

private slots:
    void setFromEnvironmentAndFile()
    {
        QCOMPARE(ZYRChecker::knownTexts(), QStringList({ "A1", "B 2", "F1", "F2" }));
        QVERIFY(ZYRChecker::check(QStringLiteral("B 2")));
        QVERIFY(ZYRChecker::check(QStringLiteral("F2")));
        QVERIFY(!ZYRChecker::check(QStringLiteral("a1")));
        QVERIFY(!ZYRChecker::check(QString()));
        ZYRChecker::setKnownTexts({ QStringLiteral("C") });
        QVERIFY(!ZYRChecker::check(QStringLiteral("A1")));
        QVERIFY(ZYRChecker::check(QStringLiteral("C")));
    }
};

int main(int argc, char* argv[])
{
    QTemporaryFile file;
    if (!file.open())
        return 1;
    file.write("# own family builds\nF1\n\n  F2  # trailing comment\n");
    file.flush();
    qputenv("ZYRCHECKER_KNOWN_TEXTS", "A1, B 2,,");
    qputenv("ZYRCHECKER_KNOWN_FILE", file.fileName().toLocal8Bit());
    QCoreApplication app(argc, argv);
    TestZyrCheckerEnvironment test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_zyrchecker_env.moc"
