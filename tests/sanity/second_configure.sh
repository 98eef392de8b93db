#!/bin/sh
# second_configure.sh SOURCE COMPILER: configuring again changes no command, so that nothing is built a second time.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
configure() {
  cmake -S "$1" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$2" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
    -DTAVUTILS_BUILD_TESTS=OFF >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    exit 1
  }
}
configure "$@"
mv "$work/build/compile_commands.json" "$work/first.json"
configure "$@"
diff -u "$work/first.json" "$work/build/compile_commands.json" | head -n 20 >"$work/difference"
[ ! -s "$work/difference" ] || {
  cat "$work/difference" >&2
  exit 1
}
