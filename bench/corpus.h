#ifndef ONVIFTYPES_BENCH_CORPUS_H
#define ONVIFTYPES_BENCH_CORPUS_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

namespace Bench {

// One reply as it comes off the wire, with the generated class that reads it.
struct Reply
{
    QString name; // shown in the benchmark name
    QString operation; // e.g. "GetProfiles"; the library looks up operation + "Response"
    QString className; // e.g. "trt::GetProfilesResponse"
    QByteArray bytes;
};

// Replies of a simulated camera: device information, capabilities (every section),
// four full media profiles, a stream URI, a PTZ node and 32 presets.
QVector<Reply> simulatedReplies(QString* error);

// Every reply below dir whose body holds an operation response with a generated
// class; the rest (faults, discovery, not well-formed) is named in skipped.
QVector<Reply> fixtureReplies(const QString& dir, QStringList* skipped);

// The fixtures folder: $ONVIFTYPES_FIXTURES, else ../shared/fixtures seen from the
// source tree; empty when neither exists.
QString fixturesDir();

} // namespace Bench

#endif // ONVIFTYPES_BENCH_CORPUS_H
