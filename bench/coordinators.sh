#!/usr/bin/env bash
# Whole coordinators, in one run: eval from a script on main to a running sibling (10,000 round trips),
# one after both sides rested for a second, sendData one way, and the first eval that has to start the
# sibling; beside them the plain Unix socket of the transport benchmark and Python's
# multiprocessing.connection doing the same small job. Run from anywhere: bench/coordinators.sh (or
# ./build.sh bench coordinators). It works in a temporary home of its own.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/default
cmake --preset default >/dev/null
cmake --build "$build" --target brw_coordinator_bench braidwell >/dev/null
cc -O2 -o "$build/raw_socket_bench" bench/transport/raw_socket_bench.c

source bench/isolated_home.sh
cleanup() {
    pkill -KILL -f "braidwell -s -F $home" 2>/dev/null || true
    rm -rf "$home"
}
trap cleanup EXIT

echo "timing coordinators, the plain socket and the Python peer (about a minute)..." >&2
ours=$("$build/bench/coordinators/brw_coordinator_bench")
raw=$("$build/raw_socket_bench")
python=$(python3 bench/coordinators/python_peer.py)

value() { awk -v key="$2" '$1 == key { print $2 }' <<<"$1"; }
echo
echo "| Figure | Braidwell | Plain socket | Python peer | Braidwell against socket / Python |"
echo "| --- | --- | --- | --- | --- |"
row() { # name, our key, socket key
    awk -v name="$1" -v b="$(value "$ours" "$2")" -v r="$(value "$raw" "$3")" -v p="$(value "$python" "$2")" \
        'BEGIN { printf "| %s | %s µs | %s µs | %s µs | %.1fx / %.2fx |\n", name, b, r, p, b / r, b / p }'
}
row "eval(\"1\") round trip, median of 10,000" eval_median_us round_trip_median_us
row "eval(\"1\") round trip, 99th percentile" eval_p99_us round_trip_p99_us
row "eval(\"1\") after 1 s at rest" eval_rested_us rested_round_trip_us
echo "| sendData one way (noWait), handled by the sibling | $(value "$ours" send_data_per_s) /s | | | target 20,000/s |"
echo "| first eval to a sibling that isn't running, launch included | $(value "$ours" launch_to_answer_ms) ms | | | target 100 ms |"
