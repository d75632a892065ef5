#include "onvifTypes/onvifLog.h"

#include <boost/log/attributes/constant.hpp>
#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/make_shared.hpp>

#include <atomic>
#include <cstdio>
#include <mutex>

namespace OnvifLog {

Logger makeLogger(const QString& clsName)
{
    Logger logger;
    setClsName(logger, clsName);
    return logger;
}

void setClsName(Logger& logger, const QString& clsName)
{
    logger.add_attribute("ClsName", boost::log::attributes::constant<std::string>(clsName.toStdString()));
}

void prepareRecord(Logger& logger)
{
    logger.add_attribute("Tag", boost::log::attributes::constant<bool>(true));
    logger.add_attribute("ThreadID", boost::log::attributes::current_thread_id());
}

QString severityName(unsigned int severity)
{
    switch (severity) {
    case Trace:
        return QStringLiteral("trace");
    case Info:
        return QStringLiteral("info");
    case Error:
        return QStringLiteral("error");
    default:
        return QString::number(severity);
    }
}

namespace {

namespace logging = boost::log;

struct ConsoleBackend : logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding>
{
    std::atomic<unsigned int> minimum { Error };

    void consume(const logging::record_view& record)
    {
        // Records of other sources (the host's own) carry no ClsName and are not ours to print.
        const auto cls = logging::extract<std::string>("ClsName", record);
        const auto severity = logging::extract<unsigned int>("Severity", record);
        if (!cls || !severity || *severity < minimum)
            return;
        const auto message = logging::extract<std::string>("Message", record);
        const QByteArray line = severityName(*severity).toUtf8() + ' ' + QByteArray::fromStdString(*cls) + ':'
            + QByteArray::fromStdString(message ? *message : std::string()) + '\n';
        std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    }
};

using ConsoleSink = logging::sinks::synchronous_sink<ConsoleBackend>;

std::mutex consoleMutex;
boost::shared_ptr<ConsoleSink> consoleSink;

} // namespace

void logToConsole(bool on, unsigned int minimumSeverity)
{
    std::lock_guard<std::mutex> lock(consoleMutex);
    if (on && !consoleSink) {
        consoleSink = boost::make_shared<ConsoleSink>();
        logging::core::get()->add_sink(consoleSink);
    } else if (!on && consoleSink) {
        logging::core::get()->remove_sink(consoleSink);
        consoleSink.reset();
    }
    if (consoleSink)
        consoleSink->locked_backend()->minimum = minimumSeverity;
}

} // namespace OnvifLog
