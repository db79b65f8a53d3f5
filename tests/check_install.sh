#!/usr/bin/env bash
# Installs a built tree into a temporary prefix, as a packager would, and checks that the installed
# program runs its self-tests and finds its shipped scripts, and that its man page reads.
#   tests/check_install.sh [build folder]      (default build/default)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/default}"

prefix="$(mktemp -d)"
home="$(mktemp -d)"
trap 'rm -rf "$prefix" "$home"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
for installed in bin/braidwell share/man/man1/braidwell.1 share/braidwell/SampleScripts/mustFail.bwq; do
    [ -e "$prefix/$installed" ] || { echo "not installed: $installed" >&2; exit 1; }
done

# The installed program, away from the source tree and with a home of its own.
output="$(cd "$home" && env HOME="$home" XDG_DATA_HOME="$home/data" XDG_CONFIG_HOME="$home/config" \
    TMPDIR="$home" "$prefix/bin/braidwell" -t y -w 0)"
echo "$output"
echo "$output" | tail -n 1 | grep -Eq '^self-tests: [0-9]+ passed, 0 failed$' || {
    echo "the installed program's self-tests did not all pass" >&2
    exit 1
}

man -l "$prefix/share/man/man1/braidwell.1" 2>/dev/null | grep -Eq "braidwell +- +console +runtime" || {
    echo "the man page does not read" >&2
    exit 1
}
echo "install check: the installed program, its scripts and its man page work"
