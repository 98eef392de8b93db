# shellcheck shell=sh
# ./dev lint [FOLDER...]: shellcheck, the layout and clang-tidy, which looks at all folders or at those. Sourced by ./dev.

need build programs test bench lint

[ $# -gt 0 ] || set -- src tools examples tests docs bench
folders=$(echo "$*" | tr ' ' '|')

say "shellcheck"
own_scripts | xargs shellcheck -x

say "clang-format"
own_sources | xargs clang-format --dry-run -Werror || die "./dev format mends the layout"

# The compile commands are those of the everyday build, benchmarks included; clang understands all its flags.
say "clang-tidy"
configure_preset dev -B build/lint -DTAVUTILS_BUILD_BENCH=ON
for folder in "$@"; do
  grep -qF "\"file\": \"$PWD/$folder/" build/lint/compile_commands.json || die "there is nothing to lint in '$folder'"
done
run-clang-tidy -quiet -j "$JOBS" -p build/lint "^$PWD/($folders)/" \
  >build/clang-tidy.log 2>build/clang-tidy.err || {
  grep -E -A 8 '(warning|error):' build/clang-tidy.log >&2 || cat build/clang-tidy.err >&2
  die "clang-tidy found something (see above; all of it is in build/clang-tidy.log)"
}
say "Lint: clean"
