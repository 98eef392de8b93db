#!/bin/sh
# versions.sh ROOT VERSION PROGRAM...: whatever states the version states this one.
set -eu
root=$1
version=$2
shift 2
failed=0

# expect PLACE FOUND
expect() {
  [ "$2" = "$version" ] || {
    echo "$1 says '$2' instead of '$version'" >&2
    failed=1
  }
}

expect CHANGELOG.md "$(sed -n 's/^## \[\([0-9.]*\)\].*/\1/p' "$root/CHANGELOG.md" | head -n 1)"
expect packaging/debian/changelog "$(sed -n '1s/^tavutils (\([0-9.]*\)-[0-9]*) .*/\1/p' "$root/packaging/debian/changelog")"
expect "./dev --version" "$("$root/dev" --version | sed -n 's/^tavutils //p')"
for program in "$@"; do
  name=$(basename "$program")
  expect "$name --version" "$("$program" --version | sed -n "s/^$name //p")"
done
exit $failed
