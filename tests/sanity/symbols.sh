#!/bin/sh
# symbols.sh DEBIAN-FOLDER PACKAGE VERSION LIBRARY: the package's list of symbols is the library's, none missing, none new.
set -eu
debian=$1
package=$2
version=$3
library=$4
if ! command -v dpkg-gensymbols >/dev/null 2>&1; then
  echo "skipped: dpkg-gensymbols is missing (package dpkg-dev)"
  exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
ln -s "$debian" "$work/debian"
cd "$work"
# A version above those in the list: symbols of the library's own version could be missing without a complaint.
dpkg-gensymbols -c4 -p"$package" -v"$version-1" -e"$library" -I"debian/$package.symbols" -O"$work/symbols" >"$work/log" || {
  cat "$work/log" >&2
  echo "mend packaging/debian/$package.symbols if this is meant (docs/packages.md says how)" >&2
  exit 1
}
