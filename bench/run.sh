#!/usr/bin/env bash
# Builds the benchmarks in Release and prints every figure with its ratio to the
# baseline measured in the same run, the targets, and the machine load around it.
#   bench/run.sh                      everything (about 10 minutes on 2 idle cores)
#   ONVIFTYPES_BENCH_QUICK=1 bench/run.sh   short runs, for checking the tools
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
build=${ONVIFTYPES_BENCH_BUILD_DIR:-$here/build-bench}
jobs=${ONVIFTYPES_JOBS:-2}
out=$build/bench-results
quick=${ONVIFTYPES_BENCH_QUICK:-0}

echo "load at start: $(uptime)"
# -g changes no code; it gives the profiler its names.
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-g \
    -DONVIFTYPES_BUILD_BENCH=ON >/dev/null
cmake --build "$build" -j "$jobs" -t OnvifTypes onvif-camera-sim bench_replies bench_requests bench_e2e
mkdir -p "$out"

if [ "$quick" = 1 ]; then
    gb=(--benchmark_min_time=0.01)
    e2e=(--fleets 20,40 --rounds 2 --sequential 3)
else
    gb=(--benchmark_min_time=0.2 --benchmark_repetitions=3 --benchmark_report_aggregates_only=true)
    e2e=(--fleets 20,200 --rounds 10 --sequential 20)
fi

"$build/bench/bench_replies" "${gb[@]}" --benchmark_out="$out/replies.json" --benchmark_out_format=json \
    >"$out/replies.txt"
"$build/bench/bench_requests" "${gb[@]}" --benchmark_out="$out/requests.json" --benchmark_out_format=json \
    >"$out/requests.txt"
"$build/bench/bench_e2e" --simulator "$build/tools/simulator/onvif-camera-sim" "${e2e[@]}" | tee "$out/e2e.txt" \
    | grep -v '^E2E '

stripped=$out/libOnvifTypes.stripped.so
strip -o "$stripped" "$(readlink -f "$build/onvifTypes/libOnvifTypes.so")"
text=$(size -A "$stripped" | awk '$1 == ".text" { print $2 }')

python3 "$here/bench/report.py" "$out/replies.json" "$out/requests.json" "$out/e2e.txt" "$text"
echo
echo "load at end: $(uptime)"
