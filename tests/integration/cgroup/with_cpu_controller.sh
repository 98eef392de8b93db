#!/bin/sh
# Runs a command on a machine with the cgroup v1 cpu controller where the library looks first for it. The mount is seen
# by the command alone, and its root is a cgroup of its own; both are gone afterwards. Needs the right to mount (root);
# exit code 77 if that, or the controller, is missing.
#
#   with_cpu_controller.sh COMMAND [ARGUMENT...]
set -eu

missing() {
    echo "with_cpu_controller.sh: $1" >&2
    exit 77
}

if [ "${1:-}" != --inside ]; then
    unshare -m true 2>/dev/null || missing "a mount namespace needs the right to mount (run it as root)"
    exec unshare -m --propagation private "$0" --inside "$@"
fi
shift
[ $# -gt 0 ] || missing "which command?"

controllers=$(awk -F: '("," $2 ",") ~ /,cpu,/ { print $2 }' /proc/self/cgroup)
[ -n "$controllers" ] || missing "the kernel has no cgroup v1 hierarchy with the cpu controller"

scratch=$(mktemp -d)
mount -t cgroup -o "$controllers" none "$scratch"
cgroup=$scratch/tavutils-run-$$
mkdir "$cgroup"

# What is still in the groups goes back to the root, or they could not be removed.
clean_up() {
    for group in "$cgroup/zell_tp_ods" "$cgroup"; do
        [ -d "$group" ] || continue
        while read -r pid; do
            echo "$pid" >"$scratch/cgroup.procs" || true
        done <"$group/cgroup.procs"
        rmdir "$group"
    done
    umount "$scratch"
    rmdir "$scratch"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

mount -t tmpfs -o mode=755 none /sys/fs/cgroup
mkdir /sys/fs/cgroup/cpu,cpuacct
mount --bind "$cgroup" /sys/fs/cgroup/cpu,cpuacct
"$@"
