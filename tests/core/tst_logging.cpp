#include "logCapture.h"

#include <onvifTypes/onvifLog.h>

#include <QRegularExpression>
#include <QTemporaryFile>
#include <QtTest>

#include <unistd.h>

class TestLogging : public QObject
{
    Q_OBJECT

private slots:
    void recordFormatAndAttributes();
    void consoleSinkNamesSeverities();
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
}

void TestLogging::consoleSinkNamesSeverities()
{
    LogCapture capture; // a sink of the host's: Boost's fallback output stays off
    QTemporaryFile file;
    QVERIFY(file.open());
    fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(file.handle(), STDERR_FILENO);
    OnvifLog::Logger logger = OnvifLog::makeLogger(QStringLiteral("PTZ:1"));
    OnvifLog::logToConsole(true, OnvifLog::Info);
    ONVIF_LOG(logger, OnvifLog::Error, "lost");
    ONVIF_LOG(logger, OnvifLog::Trace, "below the threshold");
    ONVIF_LOG(logger, OnvifLog::Info, "state");
    OnvifLog::Logger host; // the host's own records are not the library's to print
    BOOST_LOG_SEV(host, 4u) << "host record";
    OnvifLog::logToConsole(false);
    ONVIF_LOG(logger, OnvifLog::Error, "after removal");
    fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);

    QFile written(file.fileName());
    QVERIFY(written.open(QIODevice::ReadOnly));
    const QStringList lines
        = QString::fromUtf8(written.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].startsWith(QLatin1String("error PTZ:1: consoleSinkNamesSeverities: lost (")),
        qPrintable(lines[0]));
    QVERIFY2(lines[1].startsWith(QLatin1String("info PTZ:1: consoleSinkNamesSeverities: state (")),
        qPrintable(lines[1]));
    QCOMPARE(capture.records().size(), 5); // the console sink took nothing from other sinks
}

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
