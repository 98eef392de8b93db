#!/bin/sh
# exports.sh LIBRARY SONAME VERSION HEADERS: what a shared library shows of itself.
set -eu
library=$1
soname=$2
version=$3
headers=$4
failed=0

complain() {
  printf '%s\n' "$*" >&2
  failed=1
}

# Its names: all of them lie in namespace TAV, and each part of each stands in a public header.
words=$(cat "$headers"/*.h | tr -c 'A-Za-z0-9_' '\n' | sort -u)
names=$(nm -D --defined-only -C "$library" | cut -d ' ' -f 3- | grep -vx 'TAVUTILS_[0-9]*' |
  sed -E 's/^(typeinfo|typeinfo name|vtable) for //; s/\[abi:[a-z0-9]*\]//; s/[(@].*//' | sort -u)
[ -n "$names" ] || complain "$library exports nothing"
for name in $names; do
  case $name in
    TAV::*) ;;
    *) complain "$library exports $name, which is not in namespace TAV" ;;
  esac
  for part in $(printf '%s' "$name" | sed 's/::~\{0,1\}/ /g'); do
    printf '%s\n' "$words" | grep -qx "$part" || complain "$library exports $name, but no public header names $part"
  done
done

# Its own name and version.
found=$(readelf -dW "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$found" = "$soname" ] || complain "$library has the SONAME '$found' instead of '$soname'"
case $(readlink -f "$library") in
  */"${soname%.so.*}.so.$version") ;;
  *) complain "$library is not a link to ${soname%.so.*}.so.$version" ;;
esac

# No stream of the standard library is set up by loading it, and the services do not need the system-call library.
if nm -D --undefined-only -C "$library" | grep -F 'std::ios_base::Init'; then
  complain "$library sets the standard streams up at load time"
fi
if readelf -dW "$library" | grep -E 'NEEDED.*(libtav|libboost)'; then
  complain "$library needs a library that it must do without"
fi
exit $failed
