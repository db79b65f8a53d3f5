#!/usr/bin/env bash
# The transport's benchmark, in one run: the pipes between two processes against a plain Unix domain
# socket between two processes, and a coordinator at rest. Run from anywhere: bench/transport.sh
# (or ./build.sh bench transport). It builds the default preset's pieces it needs, and works in a
# temporary home of its own, so that no coordinator of the user's is touched.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/default
rest_seconds=10
cmake --preset default >/dev/null
cmake --build "$build" --target brw_pipe_bench braidwell >/dev/null
cc -O2 -o "$build/raw_socket_bench" bench/transport/raw_socket_bench.c

source bench/isolated_home.sh
server=
cleanup() {
    [ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null
    rm -rf "$home"
}
trap cleanup EXIT

echo "timing the pipes and the plain socket (about 20 seconds)..." >&2
pipes=$("$build/bench/transport/brw_pipe_bench" bench)
raw=$("$build/raw_socket_bench")

# CPU ticks (user and system) of a process so far.
ticks() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
echo "measuring a coordinator at rest for $rest_seconds seconds..." >&2
"$build/braidwell" -s -n net.braidwell.coordinator.benchrest >/dev/null 2>&1 &
server=$!
sleep 2
before=$(ticks "$server")
sleep "$rest_seconds"
after=$(ticks "$server")
rss_kb=$(awk '/^VmRSS/ { print $2 }' "/proc/$server/status")
hz=$(getconf CLK_TCK)

value() { awk -v key="$2" '$1 == key { print $2 }' <<<"$1"; }
row() { # name, key, unit, direction: "lower" when less is better
    local p r
    p=$(value "$pipes" "$2")
    r=$(value "$raw" "$2")
    awk -v name="$1" -v p="$p" -v r="$r" -v unit="$3" -v dir="$4" 'BEGIN {
        ratio = dir == "lower" ? p / r : r / p
        printf "| %s | %s %s | %s %s | %.2fx |\n", name, p, unit, r, unit, ratio }'
}
echo
echo "| Figure | Pipes | Plain socket | Pipes against the socket |"
echo "| --- | --- | --- | --- |"
row "round trip of 64 bytes, median of 10,000" round_trip_median_us "µs" lower
row "round trip of 64 bytes, 99th percentile" round_trip_p99_us "µs" lower
row "round trip after 1 s at rest, median of 5" rested_round_trip_us "µs" lower
row "one way, strings of 64 bytes" small_strings_per_s "/s" higher
row "one way, strings of 64 KB" large_mb_per_s "MB/s" higher
awk -v t=$((after - before)) -v hz="$hz" -v s="$rest_seconds" -v rss="$rss_kb" 'BEGIN {
    printf "| coordinator at rest (braidwell -s): CPU | %.2f%% of a core | | |\n", 100 * t / hz / s
    printf "| coordinator at rest (braidwell -s): resident memory | %.1f MB | | |\n", rss / 1024 }'
