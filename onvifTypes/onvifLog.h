#ifndef ONVIFTYPES_ONVIFLOG_H
#define ONVIFTYPES_ONVIFLOG_H

#include <onvifTypes/onvifTypesGlobal.h>

#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>

#include <QString>

#include <string>

// The library's records go to the host's Boost.Log core: a severity logger with
// unsigned severities, a constant "ClsName" naming the object, and "Tag" and
// "ThreadID" added when a record is opened. Sinks and formatting are the host's.
namespace OnvifLog {

using Logger = boost::log::sources::severity_logger<unsigned int>;

enum Severity : unsigned int {
    Trace = 0, // operation traces
    Info = 2, // state and full message traces
    Error = 4, // network errors and SOAP faults
};

ONVIFTYPES_EXPORT Logger makeLogger(const QString& clsName);
ONVIFTYPES_EXPORT void setClsName(Logger& logger, const QString& clsName);
// Adds "Tag" and "ThreadID" to the logger (once; later calls find them there).
ONVIFTYPES_EXPORT void prepareRecord(Logger& logger);

// For programs without a Boost.Log sink of their own: Boost's fallback output cannot read
// unsigned severities and shows every record as "info". This adds one sink that writes the
// library's records at or above minimumSeverity to stderr, as
// "<severity name> <ClsName>:<text>" ("error Onvif: operator(): Network error. ..."); a second
// call changes the threshold, and logToConsole(false) removes the sink. Thread-safe.
ONVIFTYPES_EXPORT void logToConsole(bool on = true, unsigned int minimumSeverity = Error);
// "trace", "info", "error", or the number for other severities.
ONVIFTYPES_EXPORT QString severityName(unsigned int severity);

inline std::string text(const QString& message)
{
    return message.toStdString();
}
inline const char* text(const char* message)
{
    return message;
}

} // namespace OnvifLog

// Record text: " <function>: <message> (<file>:<line>)".
#define ONVIF_LOG_AS(logger, severity, function, message)                                                    \
    do {                                                                                                     \
        OnvifLog::prepareRecord(logger);                                                                     \
        BOOST_LOG_SEV(logger, static_cast<unsigned int>(severity))                                           \
            << ' ' << function << ": " << OnvifLog::text(message) << " (" << __FILE__ << ':' << __LINE__     \
            << ')';                                                                                          \
    } while (false)

#define ONVIF_LOG(logger, severity, message) ONVIF_LOG_AS(logger, severity, __func__, message)

#endif // ONVIFTYPES_ONVIFLOG_H
