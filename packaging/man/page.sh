#!/bin/sh
# page.sh PAGE VERSION PROGRAM [SUBCOMMAND...]: writes the man page of a program, or of one of its subcommands, from what
# it tells of itself.
set -eu
page=$1
version=$2
program=$3
shift 3

parent=
name=$(basename "$program")
if [ $# -gt 0 ]; then
  parent=$name
  name=$name-$(printf '%s-' "$@" | sed 's/-$//')
fi
"$program" "$@" --help |
  awk -v name="$name" -v version="$version" -v date="$(date -u -d "@${SOURCE_DATE_EPOCH:-$(date +%s)}" +%Y-%m-%d)" \
    -v parent="$parent" -f "$(dirname "$0")/page.awk" >"$page"
