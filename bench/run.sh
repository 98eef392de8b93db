#!/bin/sh
# Runs the benchmarks and prints one table of CPU-time ratios, with date and machine.
#
#   bench/run.sh BUILD_DIR [--write FILE] [option of Google Benchmark...]
#
# --write also puts the table into FILE, between its lines <!-- bench:begin --> and <!-- bench:end -->.
# A part: bench/run.sh build/release --benchmark_filter=base64
set -eu

usage()
{
    sed -n '2,7s/^# \{0,1\}//p' "$0" >&2
    exit 2
}

[ $# -ge 1 ] || usage
program=$1/bench/tav_bench
shift
page=
if [ "${1:-}" = --write ]; then
    [ $# -ge 2 ] || usage
    page=$2
    shift 2
    for marker in begin end; do
        grep -q "^<!-- bench:$marker -->\$" "$page" || {
            echo "$0: $page has no line <!-- bench:$marker -->" >&2
            exit 1
        }
    done
fi
[ -x "$program" ] || {
    echo "$0: $program is missing: build the release preset first" >&2
    exit 1
}

machine()
{
    processor=$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)
    memory=$(awk '/^MemTotal:/ { printf "%.0f", $2 / 1048576 }' /proc/meminfo)
    # shellcheck source=/dev/null
    system=$(. /etc/os-release && echo "$PRETTY_NAME")
    echo "$(date +%Y-%m-%d), ${processor:-$(uname -m)}, $(nproc) CPUs, $memory GB, $system, Linux $(uname -r)"
}

result=$(mktemp)
trap 'rm -f "$result"' EXIT
machine >"$result"
echo >>"$result"
"$program" "$@" >>"$result"
cat "$result"

if [ -n "$page" ]; then
    awk -v table="$result" '
        /^<!-- bench:end -->$/ { inside = 0 }
        !inside { print }
        /^<!-- bench:begin -->$/ { inside = 1; print ""; while ((getline line < table) > 0) print line; print "" }
    ' "$page" >"$result.page"
    cat "$result.page" >"$page"
    rm -f "$result.page"
fi
