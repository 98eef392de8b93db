#!/bin/sh
# dependencies.sh ROOT: each folder of src/ includes the public headers, src/frame and itself, and nothing else of ours.
set -eu
cd "$1"
failed=0

for folder in src/*/; do
  own=$(basename "$folder")
  wrong=$(grep -nE '^ *# *include "' "$folder"*.h "$folder"*.cpp /dev/null 2>/dev/null |
    grep -vE "include \"(tav|frame|$own)/[A-Za-z0-9]+\\.h\"" || true)
  if [ -n "$wrong" ]; then
    printf '%s\n' "$wrong" >&2
    failed=1
  fi
done

# A public header includes public headers only.
if grep -rnE '^ *# *include "' include/tav | grep -vE 'include "tav/[A-Za-z0-9/]+\.h"' >&2; then
  failed=1
fi
exit $failed
