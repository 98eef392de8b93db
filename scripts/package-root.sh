#!/bin/sh
# package-root.sh FOLDER: installs the packages that lie in FOLDER into a clean Debian root, and uses them there.
#
# ./dev package runs it as root, in mount and process name spaces of its own.
set -eu
umask 022
folder=$1
base=$folder/base
root=$folder/root
archives=$folder/archives
tree=$(cd -- "$(dirname -- "$0")/.." && pwd)

say() { printf '==> %s\n' "$*"; }
die() {
  printf 'package: %s\n' "$*" >&2
  exit 1
}

# sources: what apt of this machine knows of its own release: URI, suite and section, one a line.
sources() {
  # shellcheck disable=SC2016 # the names are apt's
  apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
    awk -v release="$release" '$2 == release || index($2, release "-") == 1' | sort -u
}

# A clean root of this machine's own release, from where this machine gets its packages.
make_base() {
  say "Making a clean root of $release (kept for the next time)"
  mirror=$(sources | awk -v release="$release" '$2 == release && $3 == "main" { print $1; exit }')
  [ -n "$mirror" ] || die "apt of this machine knows no source of $release; is apt-get update needed?"
  rm -rf --one-file-system "$base.part"
  certificates=
  case $mirror in
    https:*) certificates=--include=ca-certificates ;;
  esac
  debootstrap --variant=minbase $certificates "$release" "$base.part" "$mirror" >"$folder/debootstrap.log" 2>&1 || {
    tail -n 20 "$folder/debootstrap.log" >&2
    die "debootstrap could not make a root from $mirror (see above). Is the network reachable?"
  }
  rm -f "$base.part/etc/apt/sources.list"
  sources | sed 's/^/deb /' >"$base.part/etc/apt/sources.list.d/machine.list"
  chroot "$base.part" apt-get -q update >>"$folder/debootstrap.log" 2>&1 ||
    die "the package lists could not be fetched; see $folder/debootstrap.log"
  chroot "$base.part" apt-get clean
  mv "$base.part" "$base"
}

# A copy of it, with this machine's devices and what was downloaded for it before.
enter_root() {
  rm -rf --one-file-system "$root"
  cp -a "$base" "$root"
  echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/quick" # the root is thrown away
  cp /etc/resolv.conf "$root/etc/resolv.conf"
  mkdir -p "$archives/partial" "$root/packages"
  cp "$folder"/*.deb "$root/packages"
  cp -r "$tree/tests/consumer" "$tree/packaging/try.sh" "$root/packages"
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  mount --bind "$archives" "$root/var/cache/apt/archives"
}

# shellcheck source=/dev/null # a file of the machine
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
mkdir -p "$archives"
[ -d "$base" ] || make_base
enter_root
env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 ${http_proxy:+http_proxy="$http_proxy"} \
  chroot "$root" sh /packages/try.sh
rm -rf --one-file-system "$root/packages"
