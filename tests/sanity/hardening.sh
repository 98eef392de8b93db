#!/bin/sh
# hardening.sh library|program FILE [OBJECT...]: how a release binary is protected.
set -eu
kind=$1
file=$2
shift 2
failed=0

# expect WHAT PATTERN: the text on standard input matches.
expect() {
  grep -qE "$2" || {
    echo "$file: no $1" >&2
    failed=1
  }
}

segments=$(readelf -lW "$file")
dynamic=$(readelf -dW "$file")
printf '%s\n' "$segments" | expect "segment that becomes read-only after relocation" '^ *GNU_RELRO'
printf '%s\n' "$segments" | expect "stack without execution" '^ *GNU_STACK .* RW +0x'
printf '%s\n' "$dynamic" | expect "binding of all functions at load" '\(FLAGS_1\).*NOW'
readelf -hW "$file" | expect "position-independent code" 'Type: +DYN'
if printf '%s\n' "$dynamic" | grep -E '\((RPATH|TEXTREL)\)' >&2; then
  echo "$file: a search path of the old kind, or code that is written to at load" >&2
  failed=1
fi

# The linker drops the mark of control-flow protection when the C run-time's own start files lack it, as Debian's do,
# so it is looked for in what was compiled here.
for object in "$@"; do
  case $object in
    *.o) readelf -nW "$object" 2>/dev/null | expect "control-flow protection in $object" 'x86 feature: IBT, SHSTK' ;;
  esac
done

# Only code with arrays on the stack calls the protector; the services have some.
case $kind:$file in
  library:*/libtavutils.so*) readelf --dyn-syms -W "$file" | expect "stack protector" '__stack_chk_fail' ;;
esac
exit $failed
