# shellcheck shell=sh
# ./dev abi [--check|--update]: the binary interface of the release build against packaging/abi/. Sourced by ./dev.
#
# The snapshots are made from debug information: they hold every exported function, every slot of the virtual tables and
# the layout of every record that programs can reach.

ABI_LIBRARIES="libtavutils libtavsystemutils"
ABI_SNAPSHOTS=packaging/abi/$(uname -m)
ABI_CURRENT=build/release/abi

# take_snapshots FOLDER: without paths and line numbers, which differ from machine to machine.
take_snapshots() {
  mkdir -p "$1"
  for library in $ABI_LIBRARIES; do
    abidw --headers-dir include --drop-private-types --exported-interfaces-only --drop-undefined-syms \
      --suppressions packaging/abi/foreign.suppr --no-corpus-path --no-comp-dir-path --no-show-locs \
      --no-parameter-names --no-write-default-sizes --type-id-style hash --out-file "$1/$library.abi" \
      "build/release/src/$library.so" || die "the binary interface of $library could not be read (see above)"
    sed -i "s|path='$PWD/|path='|" "$1/$library.abi"
  done
  require_interfaces "$1/libtavutils.abi"
}

# require_interfaces SNAPSHOT: a class that is only declared there would compare as equal to anything.
require_interfaces() {
  # shellcheck disable=SC2013 # names without blanks
  for interface in $(sed -n 's/^class TAV_EXPORT \(I[A-Za-z]*\)$/\1/p' include/tav/I*.h); do
    grep -q "<class-decl name='$interface' size-in-bits=" "$1" ||
      die "the debug information lacks the virtual table of $interface (see the compile options in src/CMakeLists.txt)"
  done
}

check_snapshots() {
  take_snapshots "$ABI_CURRENT"
  changed=
  for library in $ABI_LIBRARIES; do
    [ -e "$ABI_SNAPSHOTS/$library.abi" ] ||
      die "there is no snapshot of $library for $(uname -m) yet; ./dev abi --update takes one"
    abidiff "$ABI_SNAPSHOTS/$library.abi" "$ABI_CURRENT/$library.abi" || changed="$changed $library"
  done
  [ -z "$changed" ] || die "the binary interface differs from the snapshot:$changed (see above).
     Programs are linked against it. docs/packages.md says when it may change, and how."
  say "Binary interface: as in $ABI_SNAPSHOTS"
}

need build bench abi
build_preset release --target tavutils tavsystemutils
case ${1:---check} in
  --check) check_snapshots ;;
  --update)
    take_snapshots "$ABI_SNAPSHOTS"
    say "Snapshots: $ABI_SNAPSHOTS"
    ;;
  *) die "usage: ./dev abi [--check|--update]" ;;
esac
