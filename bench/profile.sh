#!/usr/bin/env bash
# Instruction counts of the client side of the Requests path and of the bare baseline
# client over a fleet of simulated cameras: callgrind counts only this process (the
# cameras run in another one), and counts repeat even when the machine is loaded.
#   bench/profile.sh [rounds] [cameras]      (after bench/run.sh has built the tools)
set -eu

here=$(cd "$(dirname "$0")/.." && pwd)
build=${ONVIFTYPES_BENCH_BUILD_DIR:-$here/build-bench}
rounds=${1:-2}
cameras=${2:-20}
out=$build/bench-results
mkdir -p "$out"

# The library's and Qt's entry points that tell where a request's instructions go.
key='readReply|OnvifResponse::OnvifResponse|parseDocument|TreeBuilder|QDomDocument::setContent|ComplexType::deserialize|nodeToText|QTextCodec::canEncode|postSoap|OnvifRequest::OnvifRequest|OnvifSecurity::serialize|QNetworkAccessManager::post|QObject::connect\(QObject const\*, char|bareReply|malloc.c:(malloc|free)'

for what in Requests Bare; do
    file=$out/callgrind.$what.out
    valgrind --tool=callgrind --callgrind-out-file="$file" --toggle-collect="*profiled${what}Rounds*" \
        "$build/bench/bench_e2e" --simulator "$build/tools/simulator/onvif-camera-sim" \
        --profile "$rounds" --fleets "$cameras" 2>"$out/callgrind.$what.log" | grep -v '^E2E '
    echo "== $what path: total and key functions, inclusive =="
    callgrind_annotate --auto=no --inclusive=yes "$file" 2>/dev/null | grep -E "PROGRAM TOTALS|$key" | grep -v "'2 " \
        | head -30 | cut -c1-160
    echo "== $what path: top self costs =="
    callgrind_annotate --auto=no "$file" 2>/dev/null | sed -n '/file:function/,$p' | sed -n '3,22p' | cut -c1-160
done
