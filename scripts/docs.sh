# shellcheck shell=sh
# ./dev docs: one site of the pages of docs/ and the reference of the public headers, to be read without a network.
# Sourced by ./dev.

need docs
rm -rf build/docs # nothing of an older build may hide what is missing in this one
mkdir -p build/docs
doxygen docs/Doxyfile || die "doxygen found something to complain about (see above)"
python3 scripts/check_site.py build/docs/html || die "the site has links that lead nowhere, or is not complete (see above)"
say "To be read: build/docs/html/index.html"
