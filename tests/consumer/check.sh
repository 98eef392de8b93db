#!/bin/sh
# check.sh package|pkg-config|package-moved|pkg-config-moved BUILD-DIR CONSUMER-DIR COMPILER [SANITIZERS]
# check.sh package-system|pkg-config-system - CONSUMER-DIR COMPILER
#
# Installs the build into a directory of its own, where asked moves that directory elsewhere, builds the consumer
# against it in the given way, and runs it. Or takes what is installed on the system already.
set -eu
way=$1
build=$2
consumer=$3
compiler=$4
sanitizers=${5:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

prefix=$work/installed
case $way in
  *-system) prefix=/usr ;;
  *) cmake --install "$build" --prefix "$prefix" >"$work/install.log" ;;
esac
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
    parts=$work/build
    ;;
  pkg-config*)
    if [ "$prefix" != /usr ]; then
      PKG_CONFIG_PATH=$libraries/pkgconfig
      LD_LIBRARY_PATH=$libraries
      export PKG_CONFIG_PATH LD_LIBRARY_PATH
    fi
    program=$work/consumer
    # shellcheck disable=SC2046,SC2086 # lists of options
    "$compiler" -std=c++17 $flags "$consumer/main.cpp" $(pkg-config --cflags --libs tavutils tavsystemutils) -o "$program"
    parts=$work
    if pkg-config --exists tavlogging; then
      spdlog=
      if pkg-config --exists spdlog; then
        spdlog="-DWITH_SPDLOG $(pkg-config --cflags --libs spdlog)"
      fi
      # shellcheck disable=SC2046,SC2086 # lists of options
      "$compiler" -std=c++17 $flags "$consumer/logging.cpp" $(pkg-config --cflags --libs tavlogging) $spdlog -o "$work/consumer_logging"
    fi
    if pkg-config --exists tavtesting; then
      # shellcheck disable=SC2046,SC2086 # lists of options
      "$compiler" -std=c++17 $flags "$consumer/testing.cpp" $(pkg-config --cflags --libs tavtesting) -o "$work/consumer_testing"
      if pkg-config --exists gmock gtest_main; then
        # shellcheck disable=SC2046,SC2086 # lists of options
        "$compiler" -std=c++17 $flags "$consumer/mock.cpp" $(pkg-config --cflags --libs tavtesting gmock gtest_main) -o "$work/consumer_mock"
      fi
    fi
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

# The loggers are an option. Where their headers were installed, they must have been found, and need no library of ours.
if [ -e "$prefix/include/tav/logging" ]; then
  if ldd "$parts/consumer_logging" | grep libtav; then
    echo "the loggers need a library that they must do without" >&2
    exit 1
  fi
  "$parts/consumer_logging"
fi

# So are the test doubles; their mocks are built only where there is GoogleMock.
if [ -e "$prefix/include/tav/testing" ]; then
  "$parts/consumer_testing"
  [ ! -e "$parts/consumer_mock" ] || "$parts/consumer_mock" --gtest_brief=1
fi
