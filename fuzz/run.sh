#!/usr/bin/env bash
# Builds the fuzz preset and runs the libFuzzer targets one after the other; fails when any target
# crashes, leaks or times out on an input. Inputs that broke a target go to build/fuzz/artifacts/.
#
#   fuzz/run.sh [-t SECONDS] [TARGET...] [-- LIBFUZZER-FLAGS...]
#
#   -t SECONDS   how long each target runs (default 30)
#   TARGET       serializer, data, script or address (default: all four)
#   after --     more flags for libFuzzer, such as -runs=10000000 or -seed=1
#
# The corpus that a run grows is kept in build/fuzz/corpus/TARGET; the seeds in fuzz/seeds/TARGET (and the
# script corpus tests/scripts) are read but never written.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=30
targets=()
extra=()
while [ $# -gt 0 ]; do
    case "$1" in
    -t)
        seconds="$2"
        shift 2
        ;;
    --)
        shift
        extra=("$@")
        break
        ;;
    *)
        targets+=("$1")
        shift
        ;;
    esac
done
[ ${#targets[@]} -eq 0 ] && targets=(serializer data script address)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

# The time limit of one input: far above what any input takes, so that only a hang reaches it.
input_timeout_seconds=10
failed=()
for target in "${targets[@]}"; do
    seeds=("fuzz/seeds/$target")
    case "$target" in
    serializer) dictionaries=(fuzz/dictionaries/escapes.dict) ;;
    data) dictionaries=(fuzz/dictionaries/escapes.dict fuzz/dictionaries/types.dict) ;;
    script)
        dictionaries=(fuzz/dictionaries/script.dict)
        seeds+=(tests/scripts)
        ;;
    address) dictionaries=(fuzz/dictionaries/urls.dict) ;;
    *)
        echo "unknown target: $target" >&2
        exit 2
        ;;
    esac
    corpus="build/fuzz/corpus/$target"
    artifacts="build/fuzz/artifacts/$target"
    mkdir -p "$corpus" "$artifacts"
    cat "${dictionaries[@]}" >"build/fuzz/$target.dict"
    echo "== fuzz_$target: $seconds s"
    if ! ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:strict_string_checks=1" \
        UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
        "build/fuzz/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout="$input_timeout_seconds" \
        -rss_limit_mb=2048 -dict="build/fuzz/$target.dict" -artifact_prefix="$artifacts/" \
        -print_final_stats=1 ${extra[@]+"${extra[@]}"} "$corpus" "${seeds[@]}"; then
        failed+=("$target")
    fi
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz targets that failed: ${failed[*]} (inputs in build/fuzz/artifacts/)" >&2
    exit 1
fi
