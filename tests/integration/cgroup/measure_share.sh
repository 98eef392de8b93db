#!/bin/sh
# Measures which share of the machine busy processes get under a limit, on the kernel's own controller, and prints it as
# a Markdown table; with a file, puts the table between the file's two "measured share" marks instead.
#
#   measure_share.sh TAVCTL [SECONDS [FILE]]
#
# Leaves nothing behind; needs the right to mount (root). Exit code 77 if that or the controller is missing, 1 if a share
# was more than 1.15 times its quota.
set -eu

directory=$(dirname "$0")
if [ "${1:-}" != --inside ]; then
    if [ $# -lt 1 ] || [ ! -x "$1" ]; then
        echo "usage: $0 TAVCTL [SECONDS [FILE]]" >&2
        exit 2
    fi
    exec "$directory/with_cpu_controller.sh" "$0" --inside "$@"
fi
tavctl=$2
seconds=${3:-5}
file=${4:-}
group=/sys/fs/cgroup/cpu,cpuacct/zell_tp_ods
ticks=$(getconf CLK_TCK)
processors=$(grep -cw '^processor' /proc/cpuinfo)

# The machine's other work must not take what the limit leaves; it has no say in what the limit takes away.
echo 262144 >/sys/fs/cgroup/cpu,cpuacct/cpu.shares

# Periods so far, and how many of them the group was held back in.
statistics() { awk '{ value[$1] = $2 } END { print value["nr_periods"], value["nr_throttled"] }' "$group/cpu.stat"; }
uptime_seconds() { cut -d' ' -f1 /proc/uptime; }

# Ticks of processor time of these processes; the program's name, which may hold blanks, ends at ")".
used() {
    for pid in "$@"; do
        sed 's/.*) //' "/proc/$pid/stat"
    done | awk '{ sum += $12 + $13 } END { print sum }'
}

# row PERCENT PROCESSES: one line of the table; fails if the quota was exceeded
row() {
    pids=
    for _ in $(seq "$2"); do
        sh -c 'while :; do :; done' &
        pids="$pids $!"
    done
    # shellcheck disable=SC2086 # a list of numbers
    "$tavctl" cpu-limit --percent "$1" $pids >/dev/null
    sleep 0.5
    statistics_before=$(statistics)
    # shellcheck disable=SC2086
    begin=$(uptime_seconds) before=$(used $pids)
    sleep "$seconds"
    # shellcheck disable=SC2086
    after=$(used $pids) end=$(uptime_seconds)
    statistics_after=$(statistics)
    quota=$(cat "$group/cpu.cfs_quota_us") period=$(cat "$group/cpu.cfs_period_us")
    # shellcheck disable=SC2086
    kill -9 $pids
    # shellcheck disable=SC2086
    wait $pids 2>/dev/null || true
    awk -v percent="$1" -v busy="$2" -v quota="$quota" -v period="$period" -v ticks="$((after - before))" \
        -v hertz="$ticks" -v begin="$begin" -v end="$end" -v cpus="$processors" \
        -v before="$statistics_before" -v after="$statistics_after" 'BEGIN {
            split(before, first)
            split(after, last)
            measured = ticks / hertz / (end - begin)
            allowed = quota / period
            printf "| %d %% | %d | %d us | %.2f | %.3f | %.1f %% | %.2f | %d of %d |\n", percent, busy, quota, allowed,
                measured, 100 * measured / cpus, measured / allowed, last[2] - first[2], last[1] - first[1]
            exit measured > 1.15 * allowed
        }'
}

table() {
    echo "Measured on $(date -u +%Y-%m-%d) by \`tests/integration/cgroup/measure_share.sh\`: Linux $(uname -r | cut -d. -f1,2), $processors processors,"
    echo "a period of 100000 us, $seconds s each."
    echo
    echo "| Requested | Busy processes | Quota per period | Processors allowed | Processors used | Share of the machine | Used / allowed | Periods held back |"
    echo "|---:|---:|---:|---:|---:|---:|---:|---:|"
    code=0
    for percent in 5 10 20 50 100; do
        for busy in 1 2 4; do
            row "$percent" "$busy" || code=1
        done
    done
    return $code
}

if [ -z "$file" ]; then
    table
    exit
fi
result=$(mktemp)
trap 'rm -f "$result" "$result.new"' EXIT
table >"$result"
awk -v result="$result" '
    /<!-- measured share: end -->/ { inside = 0 }
    !inside { print }
    /<!-- measured share: begin -->/ { inside = 1; while ((getline line < result) > 0) print line }
' "$file" >"$result.new"
cat "$result.new" >"$file"
