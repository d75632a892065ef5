// Request building: OnvifRequest with an OnvifSecurity header, against one bare
// template fill that does the same work (nonce, creation time, SHA-1 digest, Base64)
// and yields the same text.
//
// Names: lib/<operation> and bare/<operation> (the baseline).

#include "bareSoap.h"

#include <onvifTypes/onvifSecurity.h>
#include <onvifTypes/onvifrequest.h>
#include <onvifTypes/schema/trt/GetProfiles.h>
#include <onvifTypes/schema/trt/GetStreamUri.h>

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

const QString kUser = QStringLiteral("admin");
const QString kPassword = QStringLiteral("admin");
const QString kToken = QStringLiteral("prof_main");

QString libraryGetProfiles(OnvifSecurity& security)
{
    trt::GetProfiles body;
    return OnvifRequest(security, body).getMessage();
}

QString libraryGetStreamUri(OnvifSecurity& security)
{
    trt::GetStreamUri body;
    body.ProfileToken->setValue(kToken);
    body.StreamSetup->Stream->setIndex(tt::StreamType::RTP_Unicast);
    body.StreamSetup->Transport->Protocol->setIndex(tt::TransportProtocol::RTSP);
    return OnvifRequest(security, body).getMessage();
}

void libGetProfiles(benchmark::State& state)
{
    OnvifSecurity security(kUser, kPassword, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(libraryGetProfiles(security));
}

void libGetStreamUri(benchmark::State& state)
{
    OnvifSecurity security(kUser, kPassword, 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(libraryGetStreamUri(security));
}

void bareGetProfiles(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Bench::bareEnvelope(kUser, kPassword, Bench::getProfilesBody()));
}

void bareGetStreamUri(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Bench::bareEnvelope(kUser, kPassword, Bench::getStreamUriBody(kToken)));
}

// The comparison is only fair while both sides produce the same text.
bool sameText(const char* what, const QString& library, const QString& bare)
{
    if (Bench::withoutSecrets(library) == Bench::withoutSecrets(bare))
        return true;
    std::fprintf(stderr, "%s: the bare text differs from the library's\nlibrary: %s\nbare:    %s\n", what,
        qPrintable(Bench::withoutSecrets(library)), qPrintable(Bench::withoutSecrets(bare)));
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);

    OnvifSecurity security(kUser, kPassword, 0);
    const bool same = sameText("GetProfiles", libraryGetProfiles(security),
                          Bench::bareEnvelope(kUser, kPassword, Bench::getProfilesBody()))
        & sameText("GetStreamUri", libraryGetStreamUri(security),
            Bench::bareEnvelope(kUser, kPassword, Bench::getStreamUriBody(kToken)));
    if (!same)
        return 1;

    benchmark::RegisterBenchmark("lib/GetProfiles", libGetProfiles);
    benchmark::RegisterBenchmark("bare/GetProfiles", bareGetProfiles);
    benchmark::RegisterBenchmark("lib/GetStreamUri", libGetStreamUri);
    benchmark::RegisterBenchmark("bare/GetStreamUri", bareGetStreamUri);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
