# shellcheck shell=sh
# ./dev package [--build-only|--fresh]: Debian packages, built, checked, and used in a clean Debian root. Sourced by ./dev.
#
# All of it happens in build/package/: source/ is the copy that is built, base/ the clean root, kept for the next time,
# root/ the copy of it that the packages are installed into, archives/ what was downloaded for it.

PACKAGE_DIR=$PWD/build/package

# The tree as it stands, with packaging/debian where dpkg expects it.
copy_source() {
  rm -rf "$PACKAGE_DIR/source"
  mkdir -p "$PACKAGE_DIR/source"
  tar -c --exclude=./build --exclude=./.git --exclude=./.cache . | tar -x -C "$PACKAGE_DIR/source"
  mv "$PACKAGE_DIR/source/packaging/debian" "$PACKAGE_DIR/source/debian"
}

build_packages() {
  find "$PACKAGE_DIR" -maxdepth 1 -type f -delete
  log=$PACKAGE_DIR/build.log
  if command -v ccache >/dev/null 2>&1; then
    # The build has a home directory of its own, where ccache would begin with nothing each time.
    CCACHE_DIR=${CCACHE_DIR:-$(ccache --get-config cache_dir)}
    CMAKE_CXX_COMPILER_LAUNCHER=ccache
    export CCACHE_DIR CMAKE_CXX_COMPILER_LAUNCHER
  fi
  say "Building the packages ($log)"
  (
    cd "$PACKAGE_DIR/source" || exit
    DEB_BUILD_OPTIONS="parallel=$JOBS nocheck" dpkg-buildpackage -us -uc -b >"$log" 2>&1
  ) || {
    tail -n 60 "$log" >&2
    die "the packages could not be built (see above; all of it is in $log)"
  }
}

check_packages() {
  say "lintian"
  # The one left out asks for the bug that announces a package to Debian; these are not part of it.
  lintian --allow-root --no-cfg --fail-on error,warning --info --suppress-tags initial-upload-closes-no-bugs \
    "$PACKAGE_DIR"/*.changes ||
    die "lintian found something (see above)"
}

list_packages() {
  say "Packages, in $PACKAGE_DIR:"
  for file in "$PACKAGE_DIR"/*.deb; do
    printf '  %7d KiB  %s\n' $((($(wc -c <"$file") + 1023) / 1024)) "${file##*/}"
  done
}

# use_packages: all that needs root, in name spaces of its own, so that no mount and no process is left behind.
use_packages() {
  say "Using the packages in a clean root"
  # shellcheck disable=SC2046 # a proxy that apt has been told of, as name=value
  as_root env $(proxy_of_apt) unshare --mount --propagation private --pid --fork --kill-child \
    sh scripts/package-root.sh "$PACKAGE_DIR" || die "the packages did not work in a clean root (see above)"
  say "The packages work in a clean root."
}

proxy_of_apt() {
  PROXY=
  eval "$(apt-config shell PROXY Acquire::http::Proxy)"
  [ -z "$PROXY" ] || echo "http_proxy=$PROXY"
}

package_mode=${1:-}
case $package_mode in
  '' | --build-only | --fresh) ;;
  *) die "usage: ./dev package [--build-only|--fresh]" ;;
esac
need build programs package
if [ "$package_mode" != --build-only ]; then
  (require_root "./dev package" 2>/dev/null) ||
    die "using the packages in a clean root needs root, and sudo is not to be had here.
     ./dev package --build-only builds and checks them; ask an administrator to run ./dev package."
fi
if [ "$package_mode" = --fresh ]; then
  as_root rm -rf --one-file-system "$PACKAGE_DIR"
fi
copy_source
build_packages
check_packages
list_packages
[ "$package_mode" = --build-only ] || use_packages
