# shellcheck shell=sh
# ./dev docs: one site of the pages of docs/ and the reference of the public headers, to be read without a network.
# Sourced by ./dev.

take_no_arguments docs "$@"

need docs
rm -rf build/docs # nothing of an older build may hide what is missing in this one
mkdir -p build/docs/strict
doxygen docs/Doxyfile || die "doxygen found something to complain about (see above)"
{
  cat docs/Doxyfile
  printf '%s\n' 'INPUT = include/tav' 'EXCLUDE = include/tav/testing' 'WARN_NO_PARAMDOC = YES' \
    'OUTPUT_DIRECTORY = build/docs/strict' # it looks only while it writes
} | doxygen - || die "a comment leaves out what a parameter or a result is (see above)"
rm -rf build/docs/strict
python3 scripts/check_site.py build/docs/html || die "the site has links that lead nowhere, or is not complete (see above)"
say "To be read: build/docs/html/index.html"
