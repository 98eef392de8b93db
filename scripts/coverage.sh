# shellcheck shell=sh
# ./dev coverage: what the tests run of src/, and which lines they do not. Sourced by ./dev.

take_no_arguments coverage "$@"

need coverage
cmd_build coverage
find build/coverage -name '*.gcda' -delete
run_tests coverage

# Branches that only an exception of the standard library takes are not counted.
say "Coverage of src/"
gcovr --root . --filter src/ --exclude-throw-branches --object-directory build/coverage build/coverage \
  --txt --print-summary --fail-under-line 95 || die "less than 95 % of the lines of src/ are covered"
