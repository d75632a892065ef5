#include "logCapture.h"

#include <boost/log/attributes/current_thread_id.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>

#include <boost/make_shared.hpp>

#include <mutex>

namespace logging = boost::log;

struct LogCapture::Sink : logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding>
{
    void consume(const logging::record_view& rec)
    {
        Record r;
        if (auto sev = logging::extract<unsigned int>("Severity", rec))
            r.severity = *sev;
        if (auto cls = logging::extract<std::string>("ClsName", rec))
            r.clsName = QString::fromStdString(*cls);
        if (auto msg = logging::extract<std::string>("Message", rec))
            r.message = QString::fromStdString(*msg);
        if (auto tag = logging::extract<bool>("Tag", rec)) {
            r.hasTag = true;
            r.tag = *tag;
        }
        r.hasThreadId
            = bool(logging::extract<logging::attributes::current_thread_id::value_type>("ThreadID", rec));
        std::lock_guard<std::mutex> lock(mutex);
        captured.append(r);
    }

    mutable std::mutex mutex;
    QVector<Record> captured;
};

namespace {
using Frontend = logging::sinks::synchronous_sink<LogCapture::Sink>;
}

LogCapture::LogCapture()
    : m_sink(boost::make_shared<Sink>())
{
    const auto frontend = boost::make_shared<Frontend>(m_sink);
    logging::core::get()->add_sink(frontend);
    m_frontend = frontend;
}

LogCapture::~LogCapture()
{
    logging::core::get()->remove_sink(boost::static_pointer_cast<Frontend>(m_frontend));
}

QVector<LogCapture::Record> LogCapture::records() const
{
    std::lock_guard<std::mutex> lock(m_sink->mutex);
    return m_sink->captured;
}

QVector<LogCapture::Record> LogCapture::withSeverity(unsigned int severity) const
{
    QVector<Record> result;
    for (const Record& r : records()) {
        if (r.severity == severity)
            result.append(r);
    }
    return result;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> lock(m_sink->mutex);
    m_sink->captured.clear();
}
