# shellcheck shell=sh
# ./dev ci: everything that a change must pass, the quickest to fail first. Sourced by ./dev.
#
# g++ builds everything for every day, and clang for the address sanitizer, which it compiles in much less time. The rest
# is of what it is about: clang-tidy looks at the libraries, the release build is of that and of the checks on it, and
# the thread sanitizer watches the tests that have threads. ./dev lint and ./dev tsan look at everything.

take_no_arguments ci "$@"

CI=true
export CI
started=$(date +%s)

# step TITLE COMMAND...
step() {
  title=$1
  shift
  printf '\n######## %s\n' "$title"
  step_started=$(date +%s)
  "$@"
  now=$(date +%s)
  printf '######## %s: %d s (%d s so far)\n' "$title" $((now - step_started)) $((now - started))
}

install_everything() {
  # shellcheck disable=SC2086 # a list of names
  need $CI_GROUPS
}

# A subshell each: these are scripts, which may set what they like.
check_format() (. scripts/format.sh)
check_docs() (. scripts/docs.sh)
check_lint() (
  set -- src
  . scripts/lint.sh
)
check_abi() (. scripts/abi.sh)

release_tests() {
  build_preset release --target tav_sanity_subjects tav_bench
  run_tests release -L sanity
  check_abi --check
}

threaded_tests() {
  build_preset clang-tsan --target tav_threaded_tests
  run_tests clang-tsan -L threads
}

# Adds up what the test runner noted for each build.
count_results() {
  cat build/dev/junit.xml build/release/junit.xml build/clang-asan/junit.xml build/clang-tsan/junit.xml |
    awk -F'"' '
      /^\ttests="/ { tests += $2 } /^\tfailures="/ { failed += $2 } /^\t(disabled|skipped)="/ { skipped += $2 }
      END { printf "%d passed, %d failed, %d skipped\n", tests - failed - skipped, failed, skipped }'
}

step "packages" install_everything
step "layout" check_format --check
step "build and tests" cmd_test
step "reference documentation" check_docs
step "lint of the libraries" check_lint
step "release build: hardening, exports, installation, binary interface" release_tests
step "clang, with the address, leak and undefined-behaviour sanitizers" cmd_asan --clang
step "clang, with the thread sanitizer: the tests that have threads" threaded_tests

printf '\nAll steps passed in %d s. Tests of all builds together:\n' $(($(date +%s) - started))
count_results
