#!/bin/sh
# components.sh BUILD-DIR: the components of the installation hold each file once, and in the right one.
set -eu
build=$1
failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

complain() {
  printf '%s\n' "$*" >&2
  failed=1
}

# listing FOLDER: each file and link in it, by its path.
listing() (
  cd "$1"
  find . ! -type d | sort
)

cmake --install "$build" --prefix "$work/all" >"$work/log"
for component in Runtime System Development Tools; do
  mkdir "$work/$component"
  cmake --install "$build" --prefix "$work/$component" --component "$component" >"$work/log"
  listing "$work/$component"
done | sort >"$work/parts"
listing "$work/all" | diff - "$work/parts" >&2 ||
  complain "< no component holds it (say COMPONENT where it is installed)   > installed by a component more than it is at all"

# expect COMPONENT PATTERN: each of its files is of this kind.
expect() {
  wrong=$(listing "$work/$1" | grep -vE "$2" || true)
  [ -z "$wrong" ] || complain "the component $1 holds" "$wrong"
}
expect Runtime '/libtavutils\.so\.[0-9.]+$'
expect System '/libtavsystemutils\.so\.[0-9.]+$'
expect Development '^\./include/|/libtav(system)?utils\.so$|/cmake/tavutils/|/pkgconfig/'
expect Tools '^\./bin/|^\./share/'
exit $failed
