#!/bin/sh
# hardening.sh library|program FILE [OBJECT...]: how a release binary is protected.
set -eu
kind=$1
file=$2
shift 2
failed=0

# expect WHAT PATTERN TEXT: a line of the text matches.
expect() {
  printf '%s\n' "$3" | grep -qE "$2" || {
    echo "$file: no $1" >&2
    failed=1
  }
}

segments=$(readelf -lW "$file")
dynamic=$(readelf -dW "$file")
expect "segment that becomes read-only after relocation" '^ *GNU_RELRO' "$segments"
expect "stack without execution" '^ *GNU_STACK .* RW +0x' "$segments"
expect "binding of all functions at load" '\(FLAGS_1\).*NOW' "$dynamic"
expect "position-independent code" 'Type: +DYN' "$(readelf -hW "$file")"
if printf '%s\n' "$dynamic" | grep -E '\((RPATH|TEXTREL)\)' >&2; then
  echo "$file: a search path of the old kind, or code that is written to at load" >&2
  failed=1
fi

# The linker drops the mark of control-flow protection when the C run-time's own start files lack it, as Debian's do,
# so it is looked for in what was compiled here.
for object in "$@"; do
  expect "control-flow protection in $object" 'x86 feature: IBT, SHSTK' "$(readelf -nW "$object")"
done

# Only code with arrays on the stack calls the protector; the services have some.
case $kind:$file in
  library:*/libtavutils.so*)
    expect "stack protector" '__stack_chk_fail' "$(readelf --dyn-syms -W "$file")"
    ;;
esac
exit $failed
