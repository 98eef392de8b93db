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
programs="$1/bench/tav_bench_told_limit $1/bench/tav_bench"
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
for program in $programs; do
    [ -x "$program" ] || {
        echo "$0: $program is missing: build the release preset first" >&2
        exit 1
    }
done

machine()
{
    processor=$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)
    memory=$(awk '/^MemTotal:/ { printf "%.0f", $2 / 1048576 }' /proc/meminfo)
    # shellcheck source=/dev/null
    system=$(. /etc/os-release && echo "$PRETTY_NAME")
    echo "$(date +%Y-%m-%d), ${processor:-$(uname -m)}, $(nproc) CPUs, $memory GB, $system, Linux $(uname -r)"
}

# Aligns rows of cells separated by tabs as a Markdown table and counts the targets.
table()
{
    awk -F '\t' '
        { rows = NR; for (i = 1; i <= 7; ++i) { cell[NR, i] = $i; if (length($i) > width[i]) width[i] = length($i) } }
        $7 != "" && NR > 1 { ++targets; reached += $7 == "yes" }
        END {
            for (row = 1; row <= rows; ++row) {
                for (i = 1; i <= 7; ++i) printf "| %-*s ", width[i], cell[row, i]
                print "|"
                if (row > 1) continue
                for (i = 1; i <= 7; ++i) { rule = sprintf("%*s", width[i], ""); gsub(/ /, "-", rule); printf "| %s ", rule }
                print "|"
            }
            printf "\n%d of %d targets reached.\n", reached, targets
        }'
}

result=$(mktemp -d)
trap 'rm -rf "$result"' EXIT
printf 'case\tpeer\tlibrary\tpeer'"'"'s\tratio\ttarget\treached\n' >"$result/rows"
for program in $programs; do
    # With a part of the cases, a program may have none.
    { "$program" "$@" 2>"$result/errors" || touch "$result/failed"; } | tee -a "$result/rows" >&2
    grep -v 'Failed to match any benchmarks' "$result/errors" >&2 || true
done
{
    machine
    echo
    table <"$result/rows"
} >"$result/table"
cat "$result/table"
[ ! -e "$result/failed" ] || exit 1

if [ -n "$page" ]; then
    awk -v table="$result/table" '
        /^<!-- bench:end -->$/ { inside = 0 }
        !inside { print }
        /^<!-- bench:begin -->$/ { inside = 1; print ""; while ((getline line < table) > 0) print line; print "" }
    ' "$page" >"$result/page"
    cat "$result/page" >"$page"
fi
