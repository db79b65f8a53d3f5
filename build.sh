#!/usr/bin/env bash
# One entry point for a fresh Debian machine:
#   ./build.sh run [switches...]   build, then start the coordinator with the given switches
#   ./build.sh test [preset]       build, then run every test; preset "default" (the default) or "asan"
#   ./build.sh bench               build, then run the benchmarks against the peer languages
#   ./build.sh bench transport     time the pipes between coordinators against a plain socket
#   ./build.sh bench coordinators  time eval and sendData between coordinators against a socket and Python
set -euo pipefail
cd "$(dirname "$0")"

packages=(cmake ninja-build g++ libgtest-dev)

ensure_packages() {
    local missing=()
    for package in "${packages[@]}"; do
        dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -eq 0 ]; then
        apt-get update -qq
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
    elif command -v sudo >/dev/null 2>&1; then
        sudo apt-get update -qq
        sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"
    else
        echo "missing Debian packages: ${missing[*]}" >&2
        echo "install them with: apt-get install ${missing[*]}" >&2
        exit 1
    fi
}

# build PRESET [TARGET]: configures and builds everything, or only TARGET.
build() {
    local preset="$1"
    ensure_packages
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" ${2:+--target "$2"}
}

command="${1:-run}"
shift || true
case "$command" in
run)
    build default braidwell
    exec ./build/default/braidwell "$@"
    ;;
test)
    preset="${1:-default}"
    build "$preset"
    ctest --preset "$preset"
    ;;
bench)
    if [ "${1:-}" = transport ]; then
        ensure_packages
        exec ./bench/transport.sh
    fi
    if [ "${1:-}" = coordinators ]; then
        ensure_packages
        exec ./bench/coordinators.sh
    fi
    build default braidwell
    exec ./bench/run.sh "$@"
    ;;
*)
    echo "usage: ./build.sh run [switches...] | test [default|asan] | bench [transport|coordinators]" >&2
    exit 2
    ;;
esac
