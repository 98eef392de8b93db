#!/bin/sh
# check_libdir.sh SOURCE-DIR COMPILER: a library directory that lies outside the prefix is named as it is.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S "$1" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$2" -DCMAKE_INSTALL_PREFIX="$work/prefix" \
  -DCMAKE_INSTALL_LIBDIR="$work/elsewhere/lib" -DTAVUTILS_BUILD_TESTS=OFF -DTAVUTILS_BUILD_TOOLS=OFF \
  -DTAVUTILS_BUILD_EXAMPLES=OFF >"$work/configure.log"

failed=0
for name in tavutils tavsystemutils; do
  PKG_CONFIG_PATH=$work/build
  export PKG_CONFIG_PATH
  options=" $(pkg-config --cflags --libs "$name") "
  for option in "-I$work/prefix/include" "-L$work/elsewhere/lib" "-l$name"; do
    case $options in
      *" $option "*) ;;
      *)
        echo "$name.pc gives$options, without $option" >&2
        failed=1
        ;;
    esac
  done
done
exit $failed
