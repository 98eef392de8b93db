#!/bin/bash
# completion.bash FILE TAVCTL: what the completion offers for some beginnings of a command line.
set -u
# shellcheck source=packaging/completion/tavutils.bash
. "$1"
tavctl=$2
failures=0

# offers WANTED WORD...: completes the last word.
offers() {
  local wanted=$1
  shift
  COMP_WORDS=("$tavctl" "$@")
  COMP_CWORD=$#
  _tavutils
  if [ "${COMPREPLY[*]}" != "$wanted" ]; then
    echo "$*: offers '${COMPREPLY[*]}' instead of '$wanted'" >&2
    failures=$((failures + 1))
  fi
}

offers "mime" m
offers "checksum capture cpu-limit" c
offers "--json" --j
offers "create extract" archive ""
offers "encode" base64 e
offers "--password-file --password-env --password-prompt" archive create --pass
offers "--percent" cpu-limit --pe
offers "--status" --json cpu-limit --st
offers "--json" mime --j
offers "--verbose" krb renew --ver
offers "" run -- --ke
offers "" mime ""
exit $((failures != 0))
