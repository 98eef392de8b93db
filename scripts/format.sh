# shellcheck shell=sh
# ./dev format [--check]. Sourced by ./dev.

need format
case ${1:-} in
  '') own_sources | xargs clang-format -i ;;
  --check)
    own_sources | xargs clang-format --dry-run -Werror || die "./dev format mends the layout"
    ;;
  *) die "usage: ./dev format [--check]" ;;
esac
say "Layout: as .clang-format has it"
