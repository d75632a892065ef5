#include "logCapture.h"

#include <onvifTypes/onvifLog.h>

#include <QRegularExpression>
#include <QtTest>

class TestLogging : public QObject
{
    Q_OBJECT

private slots:
    void recordFormatAndAttributes();
};

void TestLogging::recordFormatAndAttributes()
{
    LogCapture capture;
    OnvifLog::Logger logger = OnvifLog::makeLogger(QStringLiteral("Onvif"));
    ONVIF_LOG(logger, OnvifLog::Error, QStringLiteral("Network error. Code:") + QString::number(1));
    const int line = __LINE__ - 1;
    ONVIF_LOG(logger, OnvifLog::Trace, "plain text");

    const auto records = capture.records();
    QCOMPARE(records.size(), 2);
    QCOMPARE(records[0].severity, 4u);
    QCOMPARE(records[0].clsName, QStringLiteral("Onvif"));
    QVERIFY(records[0].hasTag && records[0].tag);
    QVERIFY(records[0].hasThreadId);
    QCOMPARE(records[0].message,
        QStringLiteral(" recordFormatAndAttributes: Network error. Code:1 (%1:%2)")
            .arg(QStringLiteral(__FILE__))
            .arg(line));
    // The source file is named from the source root: nothing of the build machine's paths.
    QVERIFY2(records[0].message.contains(QLatin1String("(tests/core/tst_logging.cpp:")),
        qPrintable(records[0].message));
    QCOMPARE(records[1].severity, 0u);
    QVERIFY(records[1].message.startsWith(QLatin1String(" recordFormatAndAttributes: plain text (")));

    // Inside a lambda the function name is the call operator's.
    [&logger] { ONVIF_LOG(logger, OnvifLog::Info, "from a handler"); }();
    QVERIFY(capture.records().last().message.startsWith(QLatin1String(" operator(): from a handler (")));
}

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
