#!/usr/bin/env bash
# Times the same small programs in Braidwell, Lua 5.4, Tcl 8.6 and Python 3, side by side.
#
#   bench/run.sh [-n RUNS] [-t SECONDS] [-b BINARY] [PROGRAM...]
#
# Each program in bench/programs/ runs once unmeasured (it must exit with status 0 within the time
# limit), then RUNS times measured; the table shows the median wall time of a whole process, start-up
# included, and the ratio Braidwell/peer. Raw times go to bench/results/<date-time>/.
#
# The environment can set the same: BENCH_RUNS, BENCH_TIMEOUT, BRAIDWELL, and BENCH_TIMER
# ("hyperfine" or "loop"; the default is hyperfine when it is installed).

# No -e: a program that fails must show as "fail" in the table, not end the run.
set -uo pipefail

bench_dir=$(cd "$(dirname "$0")" && pwd)
repo_dir=$(dirname "$bench_dir")

runs=${BENCH_RUNS:-7}
timeout_seconds=${BENCH_TIMEOUT:-120}
braidwell=${BRAIDWELL:-$repo_dir/build/default/braidwell}
timer=${BENCH_TIMER:-}

all_programs=(startup fib loop append map)
peers=(lua tcl python)
declare -A extension=([braidwell]=bwq [lua]=lua [tcl]=tcl [python]=py)
declare -A peer_command=([lua]=lua5.4 [tcl]=tclsh8.6 [python]=python3)
declare -A peer_package=([lua]=lua5.4 [tcl]=tcl8.6 [python]=python3)
declare -A interpreter=() # language -> the executable that runs its programs

usage() {
    echo "usage: bench/run.sh [-n RUNS] [-t SECONDS] [-b BINARY] [PROGRAM...]" >&2
    echo "programs: ${all_programs[*]}" >&2
    exit 2
}

is_count() { [[ $1 =~ ^[1-9][0-9]*$ ]]; }

parse_arguments() {
    while getopts "n:t:b:h" option; do
        case $option in
        n) runs=$OPTARG ;;
        t) timeout_seconds=$OPTARG ;;
        b) braidwell=$OPTARG ;;
        *) usage ;;
        esac
    done
    shift $((OPTIND - 1))
    is_count "$runs" || usage
    is_count "$timeout_seconds" || usage
    programs=("$@")
    [ ${#programs[@]} -eq 0 ] && programs=("${all_programs[@]}")
    local program
    for program in "${programs[@]}"; do
        [ -f "$bench_dir/programs/$program.bwq" ] || { echo "unknown program: $program" >&2; usage; }
    done
    case $timer in
    "") command -v hyperfine >/dev/null 2>&1 && timer=hyperfine || timer=loop ;;
    hyperfine | loop) ;;
    *) echo "BENCH_TIMER must be hyperfine or loop" >&2; exit 2 ;;
    esac
}

# Finds each peer's interpreter, preferring the Debian package's own, which a root run installs when
# it is absent; a peer found nowhere is named and left out of the run.
find_peers() {
    local lang missing=()
    for lang in "${peers[@]}"; do
        [ -x "/usr/bin/${peer_command[$lang]}" ] || missing+=("${peer_package[$lang]}")
    done
    if [ ${#missing[@]} -gt 0 ] && [ "$(id -u)" -eq 0 ]; then
        echo "installing ${missing[*]}" >&2
        local log
        log=$({ apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}"; } 2>&1) ||
            echo "$log" >&2
    fi
    for lang in "${peers[@]}"; do
        local path="/usr/bin/${peer_command[$lang]}"
        if [ ! -x "$path" ] && ! path=$(command -v "${peer_command[$lang]}"); then
            echo "skipping $lang: ${peer_command[$lang]} not found (apt-get install ${peer_package[$lang]})" >&2
            continue
        fi
        interpreter[$lang]=$path
    done
    # A python3 found on the PATH may be the shell shim of a version manager: time the real
    # interpreter, so that the shim's own start-up is not counted.
    if [ -n "${interpreter[python]:-}" ]; then
        local real
        real=$("${interpreter[python]}" -c 'import sys; print(sys.executable)' 2>/dev/null) &&
            [ -x "$real" ] && interpreter[python]=$real
    fi
    interpreter[braidwell]=$braidwell
}

version_of() {
    case $1 in
    braidwell) [ -x "$braidwell" ] && timeout 10 "$braidwell" -v 2>&1 | head -n 1 || echo "not built" ;;
    lua) "${interpreter[lua]}" -v 2>&1 ;;
    tcl) echo "Tcl $(echo 'puts [info patchlevel]' | "${interpreter[tcl]}")" ;;
    python) "${interpreter[python]}" --version 2>&1 ;;
    esac
}

# Fills the array `cmdline` with the command line that runs program $2 in language $1.
command_for() {
    local lang=$1 file="$bench_dir/programs/$2.${extension[$1]}"
    case $lang in
    # A grace time of 0 makes the coordinator stop as soon as the script has run.
    braidwell) cmdline=("${interpreter[braidwell]}" -w 0 -f "$file") ;;
    *) cmdline=("${interpreter[$lang]}" "$file") ;;
    esac
}

# Runs the command once under the time limit and sets `outcome` to ok, fail or timeout; standard
# error goes to $1. No subshell here: the loop timer below measures this call.
run_once() {
    local error_file=$1
    shift
    timeout -k 5 "$timeout_seconds" "$@" </dev/null >/dev/null 2>>"$error_file"
    case $? in
    0) outcome=ok ;;
    124 | 137) outcome=timeout ;;
    *) outcome=fail ;;
    esac
}

# Sets `clock` to the wall time in microseconds. The shell's own clock variable costs no process;
# `date` is the fallback for shells before bash 5.
read_clock() {
    local now=${EPOCHREALTIME:-$(date +%s.%6N)}
    clock=${now//[.,]/}
}

# The timers: each runs the command $runs times, writes one wall time in milliseconds a line to $1,
# and sets `outcome` (ok, fail or timeout). Every run includes the start of `timeout` itself, under a
# millisecond and the same for every language.
time_with_loop() {
    local times_file=$1 error_file=$2
    shift 2
    local i clock start
    for ((i = 0; i < runs; i++)); do
        read_clock
        start=$clock
        run_once "$error_file" "$@"
        read_clock
        [ "$outcome" = ok ] || return
        awk -v us=$((clock - start)) 'BEGIN { printf "%.3f\n", us / 1000 }' >>"$times_file"
    done
}

time_with_hyperfine() {
    local times_file=$1 error_file=$2
    shift 2
    local json="${times_file%.ms}.json" messages
    # Its warnings about very short runs are noise here; its messages matter only when a run failed.
    if ! messages=$(hyperfine -N --style none --runs "$runs" --export-json "$json" \
        -- "$(printf '%q ' timeout -k 5 "$timeout_seconds" "$@")" </dev/null 2>&1 >/dev/null); then
        echo "$messages" >>"$error_file"
        outcome=fail
        return
    fi
    # The export lists each run's time in seconds, one a line, after "times".
    awk '/"times"/ { inside = 1; next } inside && /\]/ { exit }
         inside { gsub(/[ ,]/, ""); printf "%.3f\n", $0 * 1000 }' "$json" >>"$times_file"
    outcome=ok
}

median() {
    sort -n "$1" | awk '{ value[NR] = $1 }
        END { if (NR % 2) printf "%.1f", value[(NR + 1) / 2]
              else printf "%.1f", (value[NR / 2] + value[NR / 2 + 1]) / 2 }'
}

# Measures program $1 in language $2 and prints the cell for the table: the median in milliseconds,
# or fail, timeout or skipped.
measure() {
    local program=$1 lang=$2
    [ -n "${interpreter[$lang]:-}" ] || { echo skipped; return; }
    local base="$results_dir/$program.$lang"
    local cmdline=()
    command_for "$lang" "$program"
    # The first run is a check and warms the file cache; it is not counted.
    local outcome
    run_once "$base.err" "${cmdline[@]}"
    if [ "$outcome" = ok ]; then
        : >"$base.ms"
        "time_with_$timer" "$base.ms" "$base.err" "${cmdline[@]}"
    fi
    [ -s "$base.err" ] || rm -f "$base.err"
    if [ "$outcome" = ok ]; then
        median "$base.ms"
    else
        echo "$outcome"
    fi
}

is_number() { [[ $1 =~ ^[0-9]+(\.[0-9]+)?$ ]]; }

ratio() {
    if is_number "$1" && is_number "$2" && [ "$2" != 0.0 ]; then
        awk -v a="$1" -v b="$2" 'BEGIN { r = a / b; printf(r < 0.1 ? "%.3f" : "%.2f", r) }'
    else
        echo -
    fi
}

print_row() { printf '%-10s %10s %10s %10s %10s %8s %8s %8s\n' "$@"; }

main() {
    parse_arguments "$@"
    find_peers
    results_dir="$bench_dir/results/$(date +%Y%m%d-%H%M%S)"
    mkdir -p "$results_dir" || exit 1
    [ -x "$braidwell" ] || echo "braidwell not found at $braidwell: its column shows fail" >&2

    local lang
    {
        echo "runs: $runs, time limit: ${timeout_seconds}s, timer: $timer"
        for lang in braidwell "${peers[@]}"; do
            [ -n "${interpreter[$lang]:-}" ] && echo "$lang: ${interpreter[$lang]} ($(version_of "$lang"))"
        done
    } | tee "$results_dir/versions.txt"
    echo

    local program
    local -A cell
    print_row program braidwell lua tcl python bw/lua bw/tcl bw/python | tee "$results_dir/table.txt"
    for program in "${programs[@]}"; do
        for lang in braidwell "${peers[@]}"; do
            cell[$lang]=$(measure "$program" "$lang")
        done
        print_row "$program" "${cell[braidwell]}" "${cell[lua]}" "${cell[tcl]}" "${cell[python]}" \
            "$(ratio "${cell[braidwell]}" "${cell[lua]}")" \
            "$(ratio "${cell[braidwell]}" "${cell[tcl]}")" \
            "$(ratio "${cell[braidwell]}" "${cell[python]}")" | tee -a "$results_dir/table.txt"
    done
    echo
    echo "times in ms, median of $runs; a ratio above 1 means Braidwell took longer"
    echo "raw results in ${results_dir#"$repo_dir"/}"
    local errors=("$results_dir"/*.err)
    [ -e "${errors[0]}" ] && echo "standard error kept there: ${errors[*]##*/}"
    return 0
}

main "$@"
