// Reply handling: the library's path from reply bytes to a filled response class,
// against bare QDom parsing of the same bytes, per corpus reply.
//
// Names: lib/<reply>, dom/<reply> (the baseline, setContent(QByteArray, true)) and
// domxsr/<reply> (setContent(QXmlStreamReader*, true), a reference only).

#include "corpus.h"

#include <onvifTypes/onvifResponse.h>
#include <onvifTypes/schema/schemaRegistry.h>

#include <QCoreApplication>
#include <QDomDocument>
#include <QXmlStreamReader>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

namespace {

// As the request client decodes a body: UTF-8 up to the first NUL.
QString replyText(const QByteArray& body)
{
    return QString::fromUtf8(body.constData(), int(::strnlen(body.constData(), size_t(body.size()))));
}

void libraryPath(benchmark::State& state, const Bench::Reply& reply)
{
    const QString tag = reply.operation + QStringLiteral("Response");
    for (auto _ : state) {
        const OnvifResponse response(replyText(reply.bytes));
        const QSharedPointer<Serializable> object = SchemaRegistry::create(reply.className);
        QDomNode node = response.getNodeByTag(tag);
        object->deserialize(node);
        benchmark::DoNotOptimize(object.data());
    }
    state.SetBytesProcessed(state.iterations() * reply.bytes.size());
}

void domBaseline(benchmark::State& state, const QByteArray& bytes)
{
    for (auto _ : state) {
        QDomDocument document;
        benchmark::DoNotOptimize(document.setContent(bytes, true));
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

void domStreamReader(benchmark::State& state, const QByteArray& bytes)
{
    for (auto _ : state) {
        QDomDocument document;
        QXmlStreamReader reader(bytes);
        benchmark::DoNotOptimize(document.setContent(&reader, true));
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

// A reply the library cannot find its response in would measure nothing useful.
bool readable(const Bench::Reply& reply)
{
    const OnvifResponse response(replyText(reply.bytes));
    return !response.getNodeByTag(reply.operation + QStringLiteral("Response")).isNull()
        && SchemaRegistry::create(reply.className);
}

void registerReply(const Bench::Reply& reply, const QString& group)
{
    if (!readable(reply)) {
        std::fprintf(stderr, "skipped %s: the library finds no %sResponse in it\n", qPrintable(reply.name),
            qPrintable(reply.operation));
        return;
    }
    const std::string name = (group + reply.name).toStdString();
    benchmark::RegisterBenchmark(("lib/" + name).c_str(), libraryPath, reply);
    benchmark::RegisterBenchmark(("dom/" + name).c_str(), domBaseline, reply.bytes);
    benchmark::RegisterBenchmark(("domxsr/" + name).c_str(), domStreamReader, reply.bytes);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);

    QString error;
    const QVector<Bench::Reply> simulated = Bench::simulatedReplies(&error);
    if (simulated.isEmpty()) {
        std::fprintf(stderr, "no simulated replies: %s\n", qPrintable(error));
        return 1;
    }
    for (const Bench::Reply& reply : simulated)
        registerReply(reply, QStringLiteral("sim/"));

    const QString fixtures = Bench::fixturesDir();
    if (fixtures.isEmpty()) {
        std::fprintf(stderr, "no captured replies: ../shared/fixtures is absent; simulated replies only\n");
    } else {
        QStringList skipped;
        const QVector<Bench::Reply> real = Bench::fixtureReplies(fixtures, &skipped);
        for (const Bench::Reply& reply : real)
            registerReply(reply, QString());
        std::fprintf(stderr,
            "%d captured replies measured, %d files skipped (faults, discovery, requests, "
            "not well-formed)\n",
            int(real.size()), int(skipped.size()));
    }

    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
