#!/usr/bin/env bash
# One entry point for a fresh Debian 12 machine:
#   ./quickstart.sh demo   installs what is missing, builds, runs the demo against a simulated camera
#   ./quickstart.sh test   installs what is missing, builds, runs the whole test suite
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
build=${ONVIFTYPES_BUILD_DIR:-$here/build}
jobs=${ONVIFTYPES_JOBS:-$(nproc)}

packages=(
    build-essential cmake ninja-build ccache pkg-config python3
    qtbase5-dev zlib1g-dev libboost-log-dev libasyncfuture-dev libcpp-httplib-dev libbenchmark-dev
)

install_missing() {
    local missing=()
    for p in "${packages[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

configure_and_build() {
    cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
    cmake --build "$build" -j "$jobs"
}

case "${1:-}" in
demo)
    install_missing
    configure_and_build
    "$build/tools/cli/onvif-cli" demo "$build"
    ;;
test)
    install_missing
    configure_and_build
    ctest --test-dir "$build" --output-on-failure -j "$jobs"
    ;;
*)
    echo "usage: $0 demo|test" >&2
    exit 2
    ;;
esac
