#!/bin/sh
# initializers.sh LIBRARY SOURCE...: only these sources have something to construct when the library is loaded.
set -eu
library=$1
shift

# An optimising compiler cuts off the part of a function that hardly ever runs, as another one with this ending.
found=$(nm "$library" | sed -n 's/.* _GLOBAL__sub_I_//p' | grep -v '\.cold$' | sort)
wanted=$(for source in "$@"; do echo "$source"; done | sort)
if [ "$found" != "$wanted" ]; then
  printf '%s constructs something at load for:\n%s\ninstead of only for:\n%s\n' "$library" "$found" "$wanted" >&2
  exit 1
fi

# One entry is the compiler's own.
size=$(readelf -SW "$library" | sed -n 's/.* \.init_array *INIT_ARRAY *[0-9a-f]* *[0-9a-f]* *\([0-9a-f]*\) .*/\1/p')
if [ $((0x$size)) -ne $((8 * ($# + 1))) ]; then
  echo "$library has 0x$size bytes of load-time functions instead of $((8 * ($# + 1)))" >&2
  exit 1
fi
