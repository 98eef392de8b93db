# shellcheck shell=sh
# What each command of ./dev needs, and how it gets onto the machine. Sourced by ./dev.

ARCHIVER=/opt/Brenlow/zel/tav/bin/7za
ARCHIVER_PROGRAM=/usr/lib/p7zip/7za

# packages_of GROUP: the Debian packages of one group.
packages_of() {
  case $1 in
    build) echo "g++ cmake ninja-build pkg-config libssl-dev libcurl4-openssl-dev libmagic-dev libkrb5-dev libboost-dev" ;;
    programs) echo "libcli11-dev libspdlog-dev nlohmann-json3-dev libcpp-httplib-dev p7zip-full" ;;
    test) echo "libgtest-dev libgmock-dev p7zip-full file binutils dpkg-dev groff-base openssl nginx libnginx-mod-http-echo squid krb5-kdc krb5-admin-server valgrind python3" ;;
    bench) echo "libbenchmark-dev libglib2.0-dev libpoco-dev librhash-dev libboost-filesystem-dev libcpp-httplib-dev" ;;
    clang) echo "clang libclang-rt-dev" ;;
    coverage) echo "gcovr" ;;
    format) echo "clang-format" ;;
    lint) echo "clang-tidy clang-format shellcheck" ;;
    docs) echo "doxygen doxygen-awesome-css python3" ;;
    abi) echo "abigail-tools" ;;
    package) echo "debhelper dpkg-dev lintian debootstrap util-linux" ;;
    *) die "no package group is called '$1'" ;;
  esac
}

CI_GROUPS="build programs test bench clang coverage lint docs abi"
# shellcheck disable=SC2034 # read by ./dev
ALL_GROUPS="$CI_GROUPS package"

# need GROUP...: installs what is missing of these groups, and says what and where. Touches no network if nothing is.
need() {
  wanted=$(for group in "$@"; do packages_of "$group"; done | tr ' ' '\n' | sort -u)
  if ! command -v dpkg-query >/dev/null 2>&1 || ! command -v apt-get >/dev/null 2>&1; then
    need_without_apt "$wanted"
    return
  fi
  missing=$(missing_packages "$wanted")
  if [ -n "$missing" ]; then
    install_packages "$missing"
  fi
  case " $* " in
    *" programs "* | *" test "*) link_archiver ;;
  esac
}

# missing_packages NAMES: those that dpkg does not know as installed.
missing_packages() {
  # shellcheck disable=SC2086 # a list of names
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Abbrev}\n' $1 2>/dev/null | sed -n 's/ ii *$//p')
  for package in $1; do
    printf '%s\n' "$installed" | grep -qxF -- "$package" || printf '%s ' "$package"
  done
}

# require_root COMMAND-LINE: stops here if nothing can be run as root, with what an administrator has to run instead.
require_root() {
  if [ "$(id -u)" -eq 0 ]; then
    return
  fi
  if command -v sudo >/dev/null 2>&1 && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
    return
  fi
  die "this needs root, and sudo is not to be had here. Ask an administrator to run
       $1
     and then start this command again."
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  else
    sudo "$@"
  fi
}

install_packages() {
  say "Installing Debian packages, into their usual places under /usr: $1"
  require_root "apt-get update && apt-get install -y --no-install-recommends $1"
  as_root apt-get -o DPkg::Lock::Timeout=300 -q update ||
    die "apt-get update failed: the package lists could not be fetched (see above). Is the network reachable?"
  # shellcheck disable=SC2086 # a list of names
  without_daemons as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 -q \
    install -y --no-install-recommends $1 ||
    die "apt-get could not install the packages (see above)"
  leave_daemons_off "$1"
}

# without_daemons COMMAND...: runs it while no package may start a service. The tests start servers of their own. An
# administrator's rule is left as it is.
without_daemons() (
  policy=/usr/sbin/policy-rc.d
  if [ ! -e "$policy" ]; then
    trap 'as_root rm -f "$policy"' EXIT
    trap 'exit 130' HUP INT TERM
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
    as_root chmod 755 "$policy"
  fi
  "$@"
)

# leave_daemons_off NAMES: of packages just installed, so that the next start of the machine does not start them either.
leave_daemons_off() {
  if ! command -v systemctl >/dev/null 2>&1; then
    return
  fi
  for daemon in nginx squid krb5-kdc krb5-admin-server; do
    case " $1 " in
      *" $daemon "*) as_root systemctl --quiet disable "$daemon" || say "The service $daemon could not be disabled." ;;
    esac
  done
}

# The library runs 7-Zip from this one place, wherever the distribution keeps it.
link_archiver() {
  if [ -x "$ARCHIVER" ]; then
    return
  fi
  say "Linking the 7-Zip tool: $ARCHIVER -> $ARCHIVER_PROGRAM"
  require_root "mkdir -p ${ARCHIVER%/*} && ln -sf $ARCHIVER_PROGRAM $ARCHIVER"
  as_root mkdir -p "${ARCHIVER%/*}"
  as_root ln -sf "$ARCHIVER_PROGRAM" "$ARCHIVER"
}

# On a system without apt the tools may be there all the same; CMake then says which library is not.
need_without_apt() {
  absent=
  for tool in c++ cmake ninja pkg-config; do
    command -v "$tool" >/dev/null 2>&1 || absent="$absent $tool"
  done
  note="This is not a Debian system, so nothing is installed for you. By Debian's names, this command needs
  $(printf '%s' "$1" | tr '\n' ' ')
and the 7-Zip program as $ARCHIVER"
  if [ -n "$absent" ]; then
    die "not found:$absent.
$note"
  fi
  say "$note"
}
