#!/bin/sh
# instrumented.sh LIBRARY SYMBOL...: the sanitizer stands in the library itself, not only in the tests.
set -eu
library=$1
shift
for symbol in "$@"; do
  nm -D --undefined-only "$library" | grep -q " $symbol" || {
    echo "$library does not call $symbol" >&2
    exit 1
  }
done
