#!/bin/sh
# check.sh package|pkg-config|package-moved|pkg-config-moved BUILD-DIR CONSUMER-DIR COMPILER [SANITIZERS]
#
# Installs the build into a directory of its own, where asked moves that directory elsewhere, builds the consumer
# against it in the given way, and runs it.
set -eu
way=$1
build=$2
consumer=$3
compiler=$4
sanitizers=${5:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

prefix=$work/installed
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
case $way in
  *-moved)
    mv "$prefix" "$work/moved"
    prefix=$work/moved
    ;;
esac
libraries=$(dirname "$(find "$prefix" -name libtavutils.so)")

flags="-Wall -Wextra -Werror ${sanitizers:+-fsanitize=$sanitizers}"
case $way in
  package*)
    cmake -S "$consumer" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
      -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log" || {
      cat "$work/configure.log" >&2
      exit 1
    }
    cmake --build "$work/build"
    program=$work/build/consumer
    ;;
  pkg-config*)
    PKG_CONFIG_PATH=$libraries/pkgconfig
    export PKG_CONFIG_PATH
    program=$work/consumer
    # shellcheck disable=SC2046,SC2086 # lists of options
    "$compiler" -std=c++17 $flags "$consumer/main.cpp" $(pkg-config --cflags --libs tavutils tavsystemutils) -o "$program"
    LD_LIBRARY_PATH=$libraries
    export LD_LIBRARY_PATH
    ;;
esac

# It must be the installed library that runs, not one that happens to lie around.
real=$(readlink -f "$libraries/libtavutils.so.1")
found=$(ldd "$program" | sed -n 's/.*libtavutils\.so\.1 => \(.*\) (0x.*/\1/p')
if [ "$(readlink -f "$found")" != "$real" ]; then
  echo "the consumer runs with '$found' instead of '$real'" >&2
  exit 1
fi
"$program"
