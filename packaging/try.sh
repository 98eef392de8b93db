#!/bin/sh
# try.sh: run in a clean root with the packages beside it: installs them, one purpose after the other, and uses them.
set -eu
cd /packages

say() { printf '  -> %s\n' "$*"; }
die() {
  printf 'try: %s\n' "$*" >&2
  exit 1
}

# install WHAT...: packages by name, or the files beside this script by the name before the version.
install() {
  files=
  for package in "$@"; do
    file=$(find . -name "${package}_*.deb")
    files="$files ${file:-$package}"
  done
  # shellcheck disable=SC2086 # a list of names
  DEBIAN_FRONTEND=noninteractive apt-get -q -o Dpkg::Use-Pty=0 install -y --no-install-recommends $files >install.log 2>&1 || {
    tail -n 20 install.log >&2
    die "could not install:$files. Without a network, only what was downloaded before is there;
     with one, ./dev package --fresh starts from a new root."
  }
}

# expect TEXT COMMAND...: its output holds this text, and it succeeds.
expect() {
  text=$1
  shift
  output=$("$@" 2>&1) || die "'$*' failed: $output"
  case $output in
    *"$text"*) ;;
    *) die "'$*' printed '$output' instead of '$text'" ;;
  esac
}

say "programs"
install libtavutils1 libtavsystemutils1 tavutils-tools
! dpkg -s libtavutils-dev >/dev/null 2>&1 || die "the programs brought the development files along"
version=$(dpkg-query -W -f '${Version}' tavutils-tools | sed 's/-[^-]*$//')
expect "tavctl $version" tavctl --version
expect "endpoint_scan $version" endpoint_scan --version
expect "reputation_server $version" reputation_server --version
printf abc >abc
expect ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad tavctl checksum abc
expect text/plain tavctl mime abc
expect "" tavctl run -- /bin/true
expect hello tavctl capture -- /bin/echo hello

say "7-Zip, linked as README.Debian has it"
install p7zip-full
sed -n 's/^    \(mkdir\|ln\) /\1 /p' /usr/share/doc/tavutils-tools/README.Debian >link.sh
sh -e link.sh
expect "" tavctl archive create "$PWD/it.7z" "$PWD/abc"
[ ! -e abc ] || die "the archive's input is still there"
expect "" tavctl archive extract --to "$PWD/out" "$PWD/it.7z"
expect abc cat out/abc

say "development files"
install libtavutils-dev g++ cmake ninja-build
for way in package-system pkg-config-system; do
  sh consumer/check.sh "$way" - consumer c++
done

say "debug symbols"
install libtavutils1-dbgsym
id=$(readelf -n /usr/lib/*/libtavutils.so.1 | sed -n 's/.*Build ID: \(..\)/\1\//p')
[ -s "/usr/lib/debug/.build-id/$id.debug" ] || die "there are no symbols for the build $id of libtavutils.so.1"

say "removal"
apt-get -q -o Dpkg::Use-Pty=0 purge -y '*tav*utils*' >install.log 2>&1
left=$(find /etc /usr /var -xdev \( -name '*tav*utils*' -o -name tavctl -o -name endpoint_scan -o -name tav \) -not -path '/var/cache/*')
[ -z "$left" ] || die "removing the packages left $left"
