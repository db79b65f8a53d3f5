# Sourced by the benchmarks: points HOME, the XDG folders and TMPDIR at a new temporary folder, $home, so
# that no coordinator or file of the user's is touched. The caller removes $home when it is done.
home=$(mktemp -d)
export HOME=$home XDG_DATA_HOME=$home/data XDG_CONFIG_HOME=$home/config XDG_STATE_HOME=$home/state \
    XDG_CACHE_HOME=$home/cache XDG_RUNTIME_DIR=$home/run TMPDIR=$home/tmp
mkdir -p "$XDG_DATA_HOME" "$XDG_CONFIG_HOME" "$XDG_STATE_HOME" "$XDG_CACHE_HOME" "$TMPDIR"
mkdir -m 700 "$XDG_RUNTIME_DIR"
