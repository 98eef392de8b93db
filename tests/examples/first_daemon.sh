#!/bin/sh
# first_daemon.sh BUILD-DIR PAGE COMPILER: does what the page tells a newcomer to do, word for word.
#
# Installs the build into a directory of its own. Then it goes through the page: what is quoted from a file is written
# into a file of that name, or appended where only a part is quoted; the commands of the blocks "console" are run. What
# they print must be what the page shows, where a line "..." stands for any number of lines. Blocks "sh" are not run.
set -eu
build=$1
page=$2
compiler=$3

work=$(mktemp -d)
reader=
trap '[ -z "$reader" ] || kill -KILL -"$reader" 2>/dev/null || :; rm -rf "$work"' EXIT
mkdir "$work/you"
cmake --install "$build" --prefix "$work/installed" >"$work/install.log"

awk -v expected="$work/expected" '
  function refuse(why) { printf "%s:%d: %s\n", FILENAME, NR, why >"/dev/stderr"; refused = 1; exit 1 }
  /^<!-- quoted from .* -->$/ {
    quoted = $0
    sub(/^<!-- quoted from /, "", quoted); sub(/ -->$/, "", quoted)
    arrow = quoted ~ /: / ? ">>" : ">"
    sub(/: .*/, "", quoted); sub(/.*\//, "", quoted)
    next
  }
  /^```/ && kind == "" {
    kind = substr($0, 4)
    if (quoted != "") { kind = "file"; printf "cat %s%s <<\"END OF BLOCK\"\n", arrow, quoted }
    else if (kind != "console" && kind != "sh") refuse("a block that nobody runs")
    next
  }
  /^```/ {
    if (kind == "file") print "END OF BLOCK"
    kind = quoted = ""
    next
  }
  kind == "file" { print }
  kind == "console" { print >expected }
  kind == "console" && /^\$ / { printf "cat <<\"END OF BLOCK\"\n%s\nEND OF BLOCK\n%s\n", $0, substr($0, 3) }
  END { if (kind != "" && !refused) refuse("a block without an end") }
' "$page" >"$work/commands"

# timeout makes a process group of them, so that a daemon which was not stopped goes with the rest.
cd "$work/you"
export HOME="$work/you" CXX="$compiler" CXXFLAGS="-Wall -Wextra -Werror"
export CMAKE_PREFIX_PATH="$work/installed" CMAKE_GENERATOR=Ninja
timeout 100 sh "$work/commands" >"$work/transcript" 2>&1 </dev/null &
reader=$!
wait "$reader" || echo "the last command failed" >>"$work/transcript"
sed -i "s|$work/you|/home/you|g" "$work/transcript"

awk '
  FNR == NR { shown[++wanted] = $0; next }
  { came[++got] = $0 }
  END {
    at = 1
    for (i = 1; i <= wanted; ++i) {
      if (shown[i] == "...") {
        while (at <= got && (i == wanted || came[at] != shown[i + 1])) ++at
      } else if (at > got || came[at] != shown[i]) {
        printf "the page shows:\n  %s\nand this came:\n  %s\n", shown[i], (at > got ? "(the end)" : came[at])
        exit 1
      } else ++at
    }
    if (at <= got) { printf "the page does not show:\n  %s\n", came[at]; exit 1 }
    if (wanted < 20) { print "the page has no commands"; exit 1 }
  }
' "$work/expected" "$work/transcript" || {
  echo "all of it:"
  cat "$work/transcript"
  exit 1
}
echo "$(grep -c '^\$ ' "$work/expected") commands did what the page shows"
