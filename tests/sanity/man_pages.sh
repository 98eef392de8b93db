#!/bin/sh
# man_pages.sh DIRECTORY PROGRAM...: every command of the programs has a man page that groff takes without a word.
set -eu
pages=$1
shift
command -v groff >/dev/null || {
  echo "skipped: groff is not installed"
  exit 77
}

# check PROGRAM [SUBCOMMAND...]: its page, and those of its subcommands.
check() {
  page=$pages/$(basename "$1")$(shift && printf -- '-%s' "$@" | sed 's/^-$//').1
  [ -f "$page" ] || {
    echo "there is no $page" >&2
    exit 1
  }
  warnings=$(groff -mandoc -Tutf8 -ww -z "$page" 2>&1)
  if [ -n "$warnings" ]; then
    printf '%s:\n%s\n' "$page" "$warnings" >&2
    exit 1
  fi
  grep -q '^\.SH "SYNOPSIS"' "$page"
  grep -q '^\.SH "OPTIONS"' "$page"
  grep -q '^\.SH "EXAMPLES"' "$page"
  for subcommand in $("$@" --help | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z][a-z0-9-]*) .*/\1/p'); do
    (check "$@" "$subcommand")
  done
}

for program in "$@"; do
  check "$program"
done
