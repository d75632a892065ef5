#ifndef ONVIFTYPES_TESTS_LOGCAPTURE_H
#define ONVIFTYPES_TESTS_LOGCAPTURE_H

#include <QString>
#include <QVector>

#include <boost/shared_ptr.hpp>

// Collects the library's Boost.Log records while it lives, the way a host's sink
// would see them.
class LogCapture
{
public:
    struct Record
    {
        unsigned int severity = 0;
        QString clsName;
        QString message;
        bool hasTag = false;
        bool tag = false;
        bool hasThreadId = false;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QVector<Record> records() const;
    QVector<Record> withSeverity(unsigned int severity) const;
    void clear();

    struct Sink;

private:
    boost::shared_ptr<Sink> m_sink;
    boost::shared_ptr<void> m_frontend;
};

#endif
