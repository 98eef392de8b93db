#!/bin/sh
# Shows queries through a proxy that asks for Kerberos tickets: sh examples/demo-kerberos.sh BUILD_DIR
#
# Starts a KDC with a realm of its own, a squid that lets nobody pass without a ticket, and behind it the reputation
# server; then tavctl and endpoint_scan try to get through, with and without a ticket. Every claim that it prints has
# been checked; if one does not hold, it says so and fails. Everything listens on this machine's loopback only, lives in
# a temporary directory, and is stopped and removed at the end, however it ends. If a program is missing that it needs,
# it says which, and ends with 77.
set -eu

fail() {
  printf 'demo: %s\n' "$*" >&2
  exit 1
}
skip() {
  printf 'demo: SKIPPED: %s\n' "$*" >&2
  exit 77
}

[ $# -eq 1 ] || { printf 'usage: %s BUILD_DIR\n' "$0" >&2; exit 2; }
build=$(cd "$1" && pwd)
scanner=$build/examples/endpoint_scan/endpoint_scan
reputation=$build/examples/reputation_server/reputation_server
tavctl=$build/tools/tavctl/tavctl
for program in "$scanner" "$reputation" "$tavctl"; do
  [ -x "$program" ] || fail "there is no program $program: build the target ${program##*/} first"
done
PATH=$PATH:/usr/sbin:/sbin
helper=/usr/lib/squid/negotiate_kerberos_auth
for program in krb5kdc kdb5_util kadmin.local squid setpriv "$helper" /opt/Brenlow/zel/tav/bin/7za; do
  command -v "$program" >/dev/null 2>&1 || skip "there is no $program ('./dev setup test' installs it)"
done
is_root=$([ "$(id -u)" -eq 0 ] && echo yes || echo no)
[ "$is_root" = no ] || id proxy >/dev/null 2>&1 || skip "squid does not work as root, and no user is called proxy"

umask 022
work=$(mktemp -d "${TMPDIR:-/tmp}/kerberos-demo.XXXXXX")
servers=
shared_memory=tavdemo$$
# Killed, for squid would take four seconds to end by itself.
stop_servers() {
  for server in $servers; do kill -9 "$server" 2>/dev/null || :; done
  for server in $servers; do wait "$server" 2>/dev/null || :; done
  servers=
  rm -f "/dev/shm/$shared_memory"-cf__*.shm
}
trap 'stop_servers; rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP
cd "$work"
chmod 711 . # squid is another user, and has a directory in it

realm=DEMO.EXAMPLE
unset https_proxy HTTPS_PROXY all_proxy ALL_PROXY no_proxy NO_PROXY KRB5CCNAME KRB5_CLIENT_KTNAME KRB5_KTNAME
export KRB5_CONFIG="$work/krb5.conf" KRB5_KDC_PROFILE="$work/kdc.conf"

# On a terminal that has colours, and whose user wants them.
bold='' red='' yellow='' green='' plain=''
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && [ "${TERM:-dumb}" != dumb ]; then
  bold=$(printf '\033[1m') red=$(printf '\033[1;31m') yellow=$(printf '\033[33m') green=$(printf '\033[32m')
  plain=$(printf '\033[0m')
fi

say() { printf '%s\n' "$*"; }
step() { printf '\n%s== %s%s\n\n' "$bold" "$*" "$plain"; }
show() {
  sed -E -e "s/^( *)(QUARANTINED)/\1$red\2$plain/" -e "s/^( *)(UNKNOWN)/\1$yellow\2$plain/" \
    -e "s/TCP_DENIED/$yellow&$plain/" -e "s/TCP_TUNNEL/$green&$plain/"
}
indent() { sed "s|$work/||g; s/^/  /" | show; }

# expect CODE COMMAND...: runs a command and insists on its exit code.
expect() {
  code=$1
  shift
  status=0
  "$@" || status=$?
  [ "$status" -eq "$code" ] || fail "expected exit code $code, got $status, from: $*"
}

# eventually COMMAND...: until it succeeds; no longer than half a minute.
eventually() {
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ "$tries" -lt 600 ] || return 1
    sleep 0.05
  done
}

# free_port: one that nobody uses now, and that no outgoing connection gets by itself.
free_port() {
  while :; do
    number=$((20000 + $(od -An -N2 -tu2 /dev/urandom) % 12000))
    cat /proc/net/tcp /proc/net/tcp6 /proc/net/udp /proc/net/udp6 2>/dev/null |
      grep -q "$(printf ':%04X ' "$number")" || break
  done
  echo "$number"
}

# server LOG COMMAND...: starts it; it does not outlive this script, even if that is killed.
as_user=
server() {
  log=$1
  shift
  # In this order: whoever becomes another user forgets to die with its parent.
  # shellcheck disable=SC2086 # a list of words
  $as_user setpriv --pdeathsig KILL "$@" >"$log" 2>&1 &
  servers="$servers $!"
}

# is_up PID LOG TEXT, or it is not there any more.
is_decided() { ! kill -0 "$1" 2>/dev/null || grep -q "$3" "$2"; }

start_kdc() {
  for _ in 1 2 3 4 5; do
    kdc_port=$(free_port)
    cat >krb5.conf <<CONF
[libdefaults]
    default_realm = $realm
    dns_lookup_kdc = false
    dns_lookup_realm = false
    dns_canonicalize_hostname = false
    rdns = false
[realms]
    $realm = {
        kdc = 127.0.0.1:$kdc_port
    }
CONF
    cat >kdc.conf <<CONF
[kdcdefaults]
    kdc_listen = 127.0.0.1:$kdc_port
    kdc_tcp_listen = 127.0.0.1:$kdc_port
[realms]
    $realm = {
        database_name = $work/kdc/principal
        key_stash_file = $work/kdc/stash
        acl_file = $work/kdc/acl
    }
[logging]
    kdc = FILE:$work/kdc/log
CONF
    [ -e kdc/principal ] || kdb5_util create -s -r "$realm" -P master >/dev/null
    : >kdc/log
    server kdc/output krb5kdc -n -r "$realm"
    eventually is_decided $! kdc/log 'commencing operation' || :
    ! grep -q 'commencing operation' kdc/log || return 0
  done
  fail "the KDC does not start: $(cat kdc/output kdc/log)"
}

admin() { kadmin.local -r "$realm" "$@" >/dev/null; }

start_proxy() {
  for _ in 1 2 3 4 5; do
    proxy_port=$(free_port)
    cat >squid/squid.conf <<CONF
http_port 127.0.0.1:$proxy_port
visible_hostname localhost
coredump_dir $work/squid
cache_log $work/squid/cache.log
logformat short %Ss/%03>Hs %rm %ru %un
access_log stdio:$work/squid/access.log short
pid_filename none
cache deny all
cache_mem 0
netdb_filename none
pinger_enable off
max_filedescriptors 1024
auth_param negotiate program $helper -k $work/squid/proxy.keytab -s HTTP/localhost@$realm
auth_param negotiate children 2 startup=1
auth_param negotiate keep_alive on
acl known proxy_auth REQUIRED
http_access allow known
http_access deny all
CONF
    : >squid/cache.log
    if [ "$is_root" = yes ]; then
      chown -R proxy squid
      as_user="setpriv --reuid proxy --regid proxy --init-groups"
    fi
    # The replay cache would be a file of all such proxies of the machine.
    server proxy.output env KRB5RCACHENAME=none: squid -N -n "$shared_memory" -f squid/squid.conf
    as_user=
    eventually is_decided $! squid/cache.log 'Accepting HTTP Socket connections' || :
    # squid has it open by now and needs no names, which it would leave behind when it is killed.
    rm -f "/dev/shm/$shared_memory"-cf__*.shm
    ! grep -q 'Accepting HTTP Socket connections' squid/cache.log || return 0
  done
  fail "the proxy does not start: $(cat proxy.output squid/cache.log)"
}

start_reputation_server() {
  server reputation.log env TMPDIR="$work" "$reputation" --list malicious.txt --ready-file ready
  eventually [ -s ready ] || fail "the reputation server does not start: $(cat reputation.log)"
  read -r port ca <ready
  cp "$ca" ca.pem
}

# proxy_notes PATTERN: what the proxy has noted since the last look, and a line like this among it. A connection is noted
# when it ends.
seen=0
proxy_notes() {
  eventually has_noted "$1" || fail "the proxy did not note $1: $(cat squid/access.log)"
  tail -n +$((seen + 1)) squid/access.log >notes
  seen=$((seen + $(wc -l <notes)))
  say "  What the proxy noted (result, method, where to, who):"
  uniq notes | sed 's/^/    /' | show
}
has_noted() { tail -n +$((seen + 1)) squid/access.log | grep -q -E "$1"; }
nothing_noted() { [ "$(wc -l <squid/access.log)" -eq "$seen" ]; }

step "1. A realm, and the KDC that looks after it"
mkdir -m 0700 kdc mine private
mkdir squid
start_kdc
say "  The KDC knows everybody's password and hands out tickets. This one is new: realm $realm, 127.0.0.1:$kdc_port."
rc4=aes256-cts-hmac-sha1-96:normal,arcfour-hmac:normal
admin addprinc -clearpolicy -e "$rc4" -pw 'scan secret' scanner
admin addprinc -clearpolicy -e "$rc4" -pw 'audit secret' auditor
admin addprinc -clearpolicy -randkey HTTP/localhost
admin ktadd -k "$work/squid/proxy.keytab" HTTP/localhost
printf 'scan secret\n' >mine/scanner.pw
printf 'audit secret\n' >mine/auditor.pw
printf 'guessed\n' >mine/wrong.pw
od -An -N16 -tx1 /dev/urandom | tr -d ' \n' >mine/archive.pw
chmod 600 mine/*.pw
say "  It has two accounts, scanner and auditor, each with an RC4 key, and the service HTTP/localhost: the proxy."

step "2. A server that knows malicious files, and a proxy before it"
mkdir files
for name in alpha beta gamma delta epsilon; do printf 'the text of %s\n' "$name" >"files/$name"; done
sum=$(sha256sum <files/gamma)
printf '%s  # gamma\n' "${sum%% *}" >malicious.txt
start_reputation_server
start_proxy
say "  reputation_server answers at localhost:$port. squid at localhost:$proxy_port lets pass whoever shows a ticket for"
say "  HTTP/localhost, and nobody else."

step "3. Without a ticket the proxy refuses"
say "  \$ tavctl query --server localhost:$port --ca ca.pem --proxy localhost:$proxy_port --data ..."
say
expect 3 "$tavctl" query --server "localhost:$port" --ca ca.pem --proxy "localhost:$proxy_port" --data '{}' \
  >answer 2>complaint
head -n 1 answer | indent
proxy_notes '^TCP_DENIED/407 CONNECT .* -$'
say "  407 means: show me who you are. To the client that is no answer at all, for the server has said nothing."

step "4. tavctl makes a keytab from the scanner's password, and the KDC takes it"
say "  \$ tavctl krb renew --principal scanner@$realm --password-file scanner.pw --keytab keytab --cache cache --show"
say
expect 0 "$tavctl" krb renew --principal "scanner@$realm" --password-file mine/scanner.pw --keytab mine/keytab \
  --cache mine/cache --show >answer
indent <answer
grep -q "^entry    scanner@$realm, version 2, arcfour-hmac" answer || fail "the keytab has another entry"
[ "$(stat -c %a mine/keytab)" = 600 ] || fail "others may read the keytab"
say
say "  The keytab stands for the password: it is as secret, and only its owner may read it. Listed again with"
say "  'tavctl krb show --keytab keytab':"
expect 0 "$tavctl" krb show --keytab mine/keytab >answer
indent <answer

step "5. endpoint_scan asks the server through the proxy, with a ticket of its own"
say "  \$ endpoint_scan scan files --server localhost:$port --ca ca.pem --proxy localhost:$proxy_port"
say "      --krb-principal scanner@$realm --krb-password-file scanner.pw --threads 1 --quarantine quarantine ..."
say
# scan PASSWORD_FILE: with temporary files where the demo can look for them.
scan() {
  TMPDIR=$work/private "$scanner" scan files --server "localhost:$port" --ca ca.pem --proxy "localhost:$proxy_port" \
    --threads 1 --krb-principal "scanner@$realm" --krb-password-file "$1" --quarantine quarantine \
    --password-file mine/archive.pw
}
expect 1 scan mine/scanner.pw >table
indent <table
grep -q '^QUARANTINED .*gamma' table || fail "the malicious file was not found"
[ ! -e files/gamma ] || fail "the malicious file is still there"
proxy_notes "^TCP_TUNNEL/200 CONNECT localhost:$port scanner@$realm\$"
say "  The proxy knows who asked. Nobody has told it the password, nor has it crossed the network."
[ -z "$(ls -A private)" ] || fail "endpoint_scan has left something: $(ls -A private)"
say "  endpoint_scan's keytab and tickets were in a private directory, which is gone with it."

step "6. The ticket is renewed"
say "  Each run makes its keytab anew and asks the KDC again: a renewal. The same command once more:"
say
expect 0 scan mine/scanner.pw >table
tail -n 1 table | indent
proxy_notes "^TCP_TUNNEL/200 CONNECT localhost:$port scanner@$realm\$"

step "7. A wrong password"
say "  \$ tavctl query ... --krb-principal scanner@$realm --krb-password-file wrong.pw"
say
expect 1 "$tavctl" query --server "localhost:$port" --ca ca.pem --proxy "localhost:$proxy_port" \
  --krb-principal "scanner@$realm" --krb-password-file mine/wrong.pw >answer 2>complaint
indent <complaint
grep -q 'wrong password' complaint || fail "it does not say that the password is wrong"
nothing_noted || fail "something was sent: $(tail -n 1 squid/access.log)"
say
say "  There was no ticket, so nothing was sent. A scan goes on all the same, and leaves no file out:"
say
expect 6 scan mine/wrong.pw >table 2>complaint
grep '^UNKNOWN ' table | head -n 1 | indent
tail -n 1 table | indent
[ "$(grep -c '^UNKNOWN ' table)" -eq 4 ] || fail "a file was left out, or somebody made a verdict up"
proxy_notes '^TCP_DENIED/407 CONNECT .* -$'
! grep -q TUNNEL notes || fail "the proxy let a wrong password pass"

step "8. Another user, with the right password"
say "  \$ tavctl query ... --krb-principal auditor@$realm --krb-password-file auditor.pw"
say
expect 0 "$tavctl" query --server "localhost:$port" --ca ca.pem --proxy "localhost:$proxy_port" \
  --krb-principal "auditor@$realm" --krb-password-file mine/auditor.pw --data "{\"sha256\": \"${sum%% *}\"}" >answer
indent <answer
grep -q '"verdict":"malicious"' answer || fail "the server gives no verdict"
proxy_notes "^TCP_TUNNEL/200 CONNECT localhost:$port auditor@$realm\$"

step "9. A ticket for any other program, while it runs"
say "  \$ tavctl krb run --principal scanner@$realm --password-file scanner.pw -- sh -c 'ls -l \$KRB5_CLIENT_KTNAME'"
say
# shellcheck disable=SC2016 # the variable is set where the command runs
expect 0 "$tavctl" krb run --principal "scanner@$realm" --password-file mine/scanner.pw -- \
  sh -c 'ls -l "$KRB5_CLIENT_KTNAME"; echo "$KRB5_CLIENT_KTNAME" >where' >answer
indent <answer
[ -s where ] || fail "the program did not run"
[ ! -e "$(cat where)" ] || fail "the keytab outlives the program"
say
say "  Whatever understands Kerberos can pass the proxy so. The keytab went with it."

say
say "Everything happened as announced. The servers are stopped and the demo's directory is removed now."
