#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one for a given time.
#   fuzz/run.sh [seconds per target] [target...]
# Seeds are made afresh in the build directory from the captured camera replies in
# ../shared/fixtures (read in place) and from the replies of the simulated camera.
# Environment: ONVIFTYPES_FUZZ_BUILD (build dir), ONVIFTYPES_JOBS, ONVIFTYPES_FUZZ_NO_BUILD=1
# (run the targets and seeds already in the build dir, e.g. for more rounds).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${ONVIFTYPES_FUZZ_BUILD:-$here/build-fuzz}
seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_response fuzz_xmltree fuzz_schema fuzz_stringenum fuzz_discovery fuzz_http)

seeds=$build/fuzz-seeds
if [ "${ONVIFTYPES_FUZZ_NO_BUILD:-0}" != 1 ]; then
    # -O1 with line tables only: the instrumented schema classes build much faster so.
    CC=clang-14 CXX=clang++-14 cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -gline-tables-only" -DONVIFTYPES_FUZZ=ON -DONVIFTYPES_BUILD_TESTS=OFF \
        -DONVIFTYPES_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build "$build" -j "${ONVIFTYPES_JOBS:-$(nproc)}" --target "${targets[@]}" onvif-camera-sim
    "$here/fuzz/makeSeeds.sh" "$build/tools/simulator/onvif-camera-sim" "$seeds"
fi

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$here/fuzz/lsan.supp
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
for target in "${targets[@]}"; do
    corpus=$build/fuzz-corpus/$target
    mkdir -p "$corpus" "$build/fuzz-crashes/$target"
    seed=$seeds/xml
    dict=(-dict="$here/fuzz/xml.dict")
    case $target in
    fuzz_discovery) seed=$seeds/discovery ;;
    fuzz_stringenum) seed=$seeds/text dict=() ;;
    fuzz_http) seed=$seeds/http dict=(-dict="$here/fuzz/http.dict") ;;
    esac
    echo "== $target: $seconds s"
    "$build/fuzz/$target" "$corpus" "$seed" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 \
        -max_len=65536 "${dict[@]}" -print_final_stats=1 -artifact_prefix="$build/fuzz-crashes/$target/" \
        2>&1 | tee "$build/fuzz-$target.log" | grep -E '^(#[0-9]+ *DONE|stat::number_of_executed_units|==[0-9]+==ERROR)' || true
done
