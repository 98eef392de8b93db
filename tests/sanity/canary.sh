#!/bin/sh
# canary.sh PROGRAM FAULT TEXT: a program with this planted fault must die, and say so in these words.
set -eu
status=0
output=$("$1" "$2" 2>&1) || status=$?
if [ "$status" -eq 0 ]; then
  echo "the planted fault '$2' went unnoticed: exit status 0" >&2
  exit 1
fi
if ! printf '%s\n' "$output" | grep -qF -- "$3"; then
  printf "the planted fault '%s' ended with status %d, but without the words '%s':\n%s\n" "$2" "$status" "$3" "$output" >&2
  exit 1
fi
