# shellcheck shell=sh
# ./dev docs: the reference from the public headers and the pages of docs/. Sourced by ./dev.

need docs
mkdir -p build/docs
doxygen docs/Doxyfile || die "doxygen found something to complain about (see above)"
say "Reference: build/docs/html/index.html"
