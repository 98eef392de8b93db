#!/bin/sh
# Shows the sample daemon at work: sh examples/demo.sh BUILD_DIR
#
# Collects files of many kinds from this machine, puts a few of them on a deny list, lets endpoint_scan move those into
# its quarantine, and restores them; then the same with a reputation server in place of the list, which it starts and
# stops. Every claim that it prints has been checked; if one does not hold, it says so and fails. It works in a temporary
# directory, which it removes, talks to nobody but this machine, and changes nothing else.
set -eu

fail() {
  printf 'demo: %s\n' "$*" >&2
  exit 1
}

[ $# -eq 1 ] || { printf 'usage: %s BUILD_DIR\n' "$0" >&2; exit 2; }
build=$(cd "$1" && pwd)
scanner=$build/examples/endpoint_scan/endpoint_scan
reputation=$build/examples/reputation_server/reputation_server
tavctl=$build/tools/tavctl/tavctl
for program in "$scanner" "$reputation" "$tavctl"; do
  [ -x "$program" ] || fail "there is no program $program: build the target ${program##*/} first"
done
tool=/opt/Brenlow/zel/tav/bin/7za
[ -x "$tool" ] || fail "there is no archive tool $tool: './dev setup' puts it there"

umask 022
work=$(mktemp -d "${TMPDIR:-/tmp}/endpoint_scan-demo.XXXXXX")
server=
stop_server() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || :
  [ -z "$server" ] || wait "$server" || :
  server=
}
trap 'stop_server; rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
cd "$work"
mkdir files truth

# On a terminal that has colours, and whose user wants them.
bold='' red='' yellow='' plain=''
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && [ "${TERM:-dumb}" != dumb ]; then
  bold=$(printf '\033[1m') red=$(printf '\033[1;31m') yellow=$(printf '\033[33m') plain=$(printf '\033[0m')
fi

say() { printf '%s\n' "$*"; }
step() { printf '\n%s== %s%s\n\n' "$bold" "$*" "$plain"; }
show() { sed -E -e "s/^( *)(QUARANTINED)/\1$red\2$plain/" -e "s/^( *)(UNKNOWN)/\1$yellow\2$plain/" -e "s/ON THE DENY LIST/$red&$plain/"; }

# take FILE NAME: copies a file of the machine, if it is there, and says so.
take() {
  [ -f "$1" ] && [ -r "$1" ] || return 1
  mkdir -p "files/$(dirname "$2")"
  cp -L "$1" "files/$2"
  say "  $2  (a copy of $1)"
}

# first NAME...: the first regular file of a modest size below /usr/share that fits one of the patterns.
first() {
  for pattern in "$@"; do
    find /usr/share -xdev -type f -name "$pattern" -size -2000k -readable 2>/dev/null | LC_ALL=C sort | head -n 1
  done | head -n 1
}

# made NAME HOW: says what the demo made itself.
made() { say "  $1  ($2)"; }

collect_programs() {
  take /bin/ls "programs/ls" || fail "there is no /bin/ls"
  take /usr/bin/env "programs/a program with blanks in its name"
  chmod 750 "files/programs/a program with blanks in its name"
  take /bin/sh "programs/-rf" || fail "there is no /bin/sh"
  library=$(find /lib /usr/lib -name 'libc.so.6' 2>/dev/null | head -n 1)
  [ -z "$library" ] || take "$library" "libraries/libc.so.6"
}

collect_scripts() {
  printf '#!/bin/sh\necho "hello from a script"\n' >files/scripts/hello.sh
  chmod 755 files/scripts/hello.sh
  made scripts/hello.sh "made here"
  take /usr/bin/ldd scripts/ldd || say "  (this machine has no /usr/bin/ldd to copy)"
}

# The smallest picture there is, for machines without one: one white dot.
small_png() {
  printf '\211PNG\r\n\032\n\000\000\000\rIHDR\000\000\000\001\000\000\000\001\010\000\000\000\000:~\233U'
  printf '\000\000\000\nIDATx\234c\370\017\000\001\001\001\000\033\266\356V\000\000\000\000IEND\256B`\202'
}

collect_pictures() {
  small_png >files/pictures/dot.png
  made pictures/dot.png "made here"
  printf 'GIF89a\001\000\001\000\200\000\000\377\377\377\000\000\000!\371\004\001\000\000\000\000,\000\000\000\000\001\000\001\000\000\002\002D\001\000;' \
    >"files/pictures/Grüße aus Łódź.gif"
  made "pictures/Grüße aus Łódź.gif" "made here"
  for kind in png jpg gif svg; do
    found=$(first "*.$kind")
    if [ -n "$found" ]; then take "$found" "pictures/from-this-machine.$kind"
    else say "  (this machine has no .$kind picture to copy)"; fi
  done
}

collect_texts() {
  take /etc/os-release texts/os-release || true
  take /usr/share/common-licenses/GPL-3 texts/license.txt || true
  printf '<?xml version="1.0"?>\n<note>hello</note>\n' >files/texts/note.xml
  printf '{"hello": ["world", 1, 2, 3]}\n' >files/texts/data.json
  printf 'denied by its content, wherever it lies\n' >files/texts/@list.txt
  : >files/texts/empty
  for name in note.xml data.json @list.txt empty; do made "texts/$name" "made here"; done
  found=$(first '*.pdf')
  if [ -n "$found" ]; then take "$found" texts/document.pdf
  else
    printf '%%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n2 0 obj<</Type/Pages/Kids[]/Count 0>>endobj\ntrailer<</Root 1 0 R>>\n%%%%EOF\n' \
      >files/texts/document.pdf
    made texts/document.pdf "made here: this machine has no PDF to copy"
  fi
}

# pack PROGRAM NAME COMMAND...: makes an archive where the machine has the program for it.
pack() {
  program=$1 name=$2
  shift 2
  if command -v "$program" >/dev/null 2>&1; then
    "$@" >/dev/null
    made "archives/$name" "made with $program"
  else
    say "  (this machine has no $program to make archives/$name with)"
  fi
}

collect_archives() {
  pack tar texts.tar tar -cf files/archives/texts.tar files/texts
  pack gzip os-release.gz sh -c 'gzip -c /etc/os-release >files/archives/os-release.gz'
  pack bzip2 os-release.bz2 sh -c 'bzip2 -c /etc/os-release >files/archives/os-release.bz2'
  pack xz os-release.xz sh -c 'xz -c /etc/os-release >files/archives/os-release.xz'
  pack zip texts.zip zip -q -r files/archives/texts.zip files/texts
  "$tool" a files/archives/texts.7z ./files/texts >/dev/null || fail "the archive tool cannot make an archive"
  made archives/texts.7z "made with the archive tool"
}

collect_oddities() {
  ln -s ../programs/ls files/odd/link-to-a-program
  made odd/link-to-a-program "a symbolic link"
  mkfifo files/odd/pipe
  made odd/pipe "a named pipe; a program that reads it waits for ever"
}

# deny FILE WHY: puts the digest of a file on the deny list, and the file on the demo's own list.
deny() {
  say "  $1  ($2)"
  sum=$(sha256sum <"files/$1")
  printf '%s  # %s\n' "${sum%% *}" "$2" >>deny.txt
  printf '%s\n' "$1" >>denied
}

# The table of endpoint_scan, line by line, as sentences.
explain() {
  awk -F '  +' '
    function kind(type) {
      if (type ~ /executable|sharedlib/) return "a program or library"
      if (type ~ /^image\//) return "a picture"
      if (type ~ /shellscript|x-.*script|perl|python/) return "a script"
      if (type ~ /pdf/) return "a PDF document"
      if (type ~ /empty/) return "an empty file"
      if (type ~ /gzip|bzip|x-xz|zip|tar|7z/) return "an archive or compressed file"
      if (type ~ /^text\/|json|xml/) return "a text"
      return "a file"
    }
    NR == 1 { next }
    $0 == "" { exit }
    $1 == "clean"       { print "  " $7 "\n      is " kind($5) " (" $5 "), not on the deny list: left alone" }
    $1 == "QUARANTINED" { print "  " $7 "\n      is " kind($5) " (" $5 ") ON THE DENY LIST: moved into the quarantine" }
    $1 == "skipped"     { gsub(/[()]/, "", $8); print "  " $7 "\n      is not a regular file but a " $8 ": skipped, not opened" }
    $1 ~ /DENIED|NOT/   { print "  " $7 "\n      WENT WRONG: " $1 }
  ' "$1"
}

# expect CODE COMMAND...: runs a command and insists on its exit code.
expect() {
  code=$1
  shift
  status=0
  "$@" || status=$?
  [ "$status" -eq "$code" ] || fail "expected exit code $code, got $status, from: $*"
}

check_others_untouched() {
  (cd truth && find . -type f) >all
  while IFS= read -r file; do
    name=${file#./}
    if grep -Fqx -e "$name" denied; then
      [ ! -e "files/$name" ] || fail "$name is denied and still there"
    else
      cmp -s "files/$name" "truth/$name" || fail "$name was changed"
    fi
  done <all
}

# As many files in the quarantine as are on the list, and each one equal to what it was.
check_restored() {
  while IFS= read -r name; do
    cmp "back/$name" "truth/$name" || fail "$name came back with other bytes"
    [ "$(stat -c '%a %Y' "back/$name")" = "$(stat -c '%a %Y' "truth/$name")" ] ||
      fail "$name came back with other permissions or another time"
    say "  $name"
    say "      has the same bytes, permissions $(stat -c %a "back/$name"), time $(stat -c %y "back/$name" | cut -c 1-19)"
  done <denied
  [ "$(find back -type f | wc -l)" -eq "$(wc -l <denied)" ] || fail "more came back than was denied"
}

# start_server: leaves its process in $server, its port in $port, and its authority in ca.pem.
start_server() {
  TMPDIR=$work "$reputation" --list deny.txt --ready-file ready 2>server.log &
  server=$!
  tries=0
  until [ -s ready ]; do
    kill -0 "$server" 2>/dev/null || fail "the reputation server does not start: $(cat server.log)"
    tries=$((tries + 1))
    [ "$tries" -lt 600 ] || fail "the reputation server does not listen"
    sleep 0.05
  done
  read -r port ca <ready
  cp "$ca" ca.pem # the server takes its own away with it
}

# count PATTERN: the lines of the table whose first columns fit.
count() { grep -c -E "^$1" table || :; }

say "endpoint_scan is a small daemon made of the library's services. This shows it at work on copies of files of this"
say "machine, in $work. It takes some seconds. What is claimed on the way has been checked: if"
say "something does not hold, the demo says so and fails."

step "1. Files of many kinds, collected from this machine"
mkdir -p files/programs files/libraries files/scripts files/pictures files/texts files/archives files/odd
collect_programs
collect_scripts
collect_pictures
collect_texts
collect_archives
collect_oddities
touch -d '2020-02-29 12:34:56' files/programs/ls
cp -a files/. truth/

step "2. A few of them go on the deny list, by the SHA-256 of their content"
printf '# What must not be on this machine\n' >deny.txt
: >denied
deny "programs/ls" "a program"
deny "programs/a program with blanks in its name" "another one"
deny "programs/-rf" "a name that careless tools take for an option"
deny "pictures/Grüße aus Łódź.gif" "a picture with a name in other scripts"
deny "texts/@list.txt" "a name that the archive tool takes for a list of files"
say
say "The deny list is a plain text:"
sed 's/^/  /' deny.txt
od -An -N16 -tx1 /dev/urandom | tr -d ' \n' >password
chmod 600 password

step "3. endpoint_scan examines every file and moves the denied ones into the quarantine"
say "  \$ endpoint_scan scan files --deny-list deny.txt --quarantine quarantine --password-file password --json report.json"
say
expect 1 "$scanner" scan files --deny-list deny.txt --quarantine quarantine --password-file password --json report.json \
  >table
show <table
say
say "(its exit code is 1: denied files were found, and all of them are in the quarantine now)"

step "4. What that means, file by file"
explain table | show
[ "$(grep -c '^QUARANTINED ' table)" -eq "$(wc -l <denied)" ] || fail "not every denied file was quarantined"
[ "$(explain table | grep -c 'WENT WRONG')" -eq 0 ] || fail "some files were not dealt with"
[ "$(explain table | grep -c '^      ')" -eq "$(find truth ! -type d | wc -l)" ] || fail "some files are not in the table"
check_others_untouched
say
say "Checked: the denied files are gone from their places, and not one byte of the others has changed."

step "5. The quarantine: one archive with a password, and its record of what came from where"
say "  \$ endpoint_scan list --quarantine quarantine"
say
expect 0 "$scanner" list --quarantine quarantine
say
say "The record begins so (it lies in the archive, too):"
for record in quarantine/*.json; do head -n 23 "$record" | sed 's/^/  /'; done
say "  ..."
say
printf 'wrong' >guess
expect 4 "$scanner" restore --quarantine quarantine --to nothing --password-file guess >table 2>complaint
[ ! -d nothing ] || fail "a wrong password gave files"
say "With a wrong password it gives nothing back:"
sed 's/^/  /' complaint

step "6. Restoring the archive into a directory"
say "  \$ endpoint_scan restore --quarantine quarantine --to back --password-file password"
say
expect 0 "$scanner" restore --quarantine quarantine --to back --password-file password
say
say "Compared with the originals, byte by byte:"
check_restored

step "7. Once more over the same files: nothing is left to find"
expect 0 "$scanner" scan files --deny-list deny.txt --quarantine quarantine --password-file password >table
tail -n 1 table | sed 's/^/  /'

step "8. Instead of a list, a server: whoever runs it knows more than fits on one machine"
say "  \$ reputation_server --list deny.txt --ready-file ready"
say
start_server
say "It answers by HTTPS on port $port, to this machine only. It has made a certificate authority of its own; who has"
say "that file can be sure to talk to this very server. One question, by hand:"
say
digest=$(sha256sum <truth/programs/ls | cut -c 1-64)
say "  \$ tavctl query --server localhost:$port --ca ca.pem --data '{\"sha256\": \"$(echo "$digest" | cut -c 1-12)...\"}'"
say
expect 0 "$tavctl" query --server "localhost:$port" --ca ca.pem --data "{\"sha256\": \"$digest\"}" >answer
sed 's/^/  /' answer
grep -q '"verdict":"malicious"' answer || fail "the server does not know a digest of its list"
say
say "It says nothing but \"malicious\" or \"clean\". The time in \"tls\" went into finding out that it is the right server."

step "9. endpoint_scan asks the server about the same files, as they were at the beginning"
say "  \$ endpoint_scan scan again --server localhost:$port --ca ca.pem --threads 2 --quarantine quarantine2 ..."
say
mkdir again
cp -a truth/. again/
expect 1 "$scanner" scan again --server "localhost:$port" --ca ca.pem --threads 2 --quarantine quarantine2 \
  --password-file password >table
show <table
[ "$(count 'QUARANTINED +server ')" -eq "$(wc -l <denied)" ] || fail "the server's verdicts differ from the list's"
while IFS= read -r name; do
  [ ! -e "again/$name" ] || fail "$name is malicious and still there"
done <denied
say
say "MS is how long each question took, in thousandths of a second; TLS MS is the part until the server had proved who it"
say "is. Of $(count '[A-Za-z]+ +server ') questions $(count '[A-Za-z]+ +server +[0-9]+ +[1-9]') needed that: each of the two threads kept its connection for the next one."

step "10. The server goes away"
stop_server
say "Its last words: $(cat server.log)"
say
expect 6 "$scanner" scan again --server "localhost:$port" --ca ca.pem --quarantine quarantine2 \
  --password-file password >table
grep '^UNKNOWN ' table | head -n 3 | sed 's/^/  /' | show
say "  ..."
tail -n 1 table | sed 's/^/  /'
[ "$(count 'UNKNOWN ')" -eq $(($(find truth -type f | wc -l) - $(wc -l <denied))) ] || fail "somebody made verdicts up"
say
say "Nobody could be asked, so nothing is known, nothing is touched, and no file is left out: each stands there with the"
say "reason, and the exit code 6 tells a script that there is something to ask again."
say
say "Everything happened as announced. The demo's directory is removed now."
