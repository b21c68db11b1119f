# shellcheck shell=bash
# What the scripts have in common: stopping at the first failure with one clear line, installing missing Debian
# packages, a private Wine prefix. Sourced, never run. Nothing is written outside build/ and dist/.
set -Eeuo pipefail
trap 'fail "stopped at line $LINENO: $BASH_COMMAND"' ERR
trap 'trap - ERR; if [ "$first_script" = $$ ]; then printf "\n%s: interrupted\n" "$0" >&2; fi; exit 130' INT
export first_script=${first_script:-$$} # of scripts that start each other, the one that says it was interrupted

cd "$(dirname "${BASH_SOURCE[0]}")/.."
top=$PWD
mkdir -p build
export TMPDIR=$top/build # not for Wine: see scripts/wine
export LC_ALL=C.UTF-8 # one language and one code page, whatever the user's are

# The comment at the script's beginning is its help; the indented lines in it are its usage.
help() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/${0##*/}"; }

usage() {
    help | sed -n 's/^    \(scripts\/.*\)/usage: \1/p' >&2
    exit 2
}

case ${1-} in
-h | --help)
    help
    exit
    ;;
esac

bold='' plain=''
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ]; then bold=$'\e[1m' plain=$'\e[0m'; fi

say() { printf '%s%s%s\n' "$bold" "$*" "$plain"; }

fail() {
    trap - ERR
    printf '%s: %s\n' "$0" "$*" >&2
    exit 1
}

# quietly <log name> <command>...: runs it, its output in build/<log name>.log; the end of that only if it fails.
quietly() {
    local log=build/$1.log
    shift
    if ! "$@" </dev/null >"$log" 2>&1; then
        tail -n 30 "$log" >&2
        fail "failed: $* (all of its output is in $log)"
    fi
}

tool_packages=(wine64 g++-mingw-w64-x86-64-posix g++ cmake ninja-build googletest)

# shellcheck disable=SC2120 # without an argument: just these
# need_packages [<package>...]: installs what is missing of these and of what builds and runs the programs.
need_packages() {
    local package missing=() as_root=()
    command -v apt-get >/dev/null || fail "needs Debian 12 or 13: there is no apt-get here"
    for package in "${tool_packages[@]}" "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then return; fi
    say "Installing ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "packages are missing and there is no sudo; as root: apt-get install ${missing[*]}"
        as_root=(sudo)
        sudo -v || fail "packages are missing; as root: apt-get install ${missing[*]}"
    fi
    quietly packages "${as_root[@]}" apt-get update -q
    quietly packages "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# start_wine <directory>: makes the Wine prefix there, unless it is there already, and keeps its server until the script
# ends, so that every later start of a program is cheap.
start_wine() {
    export WINEPREFIX=$top/$1
    mkdir -p "$WINEPREFIX"
    trap stop_wine EXIT
    # The status tells of a server that is there already: as good.
    scripts/wine wineserver -p </dev/null >build/wineserver.log 2>&1 || true
    quietly wineboot first_start
}

# A new prefix's first start has been seen to fail once; a second try costs nothing.
first_start() { scripts/wine wineboot -i || scripts/wine wineboot -i; }

# Ends every program in the prefix and its server.
stop_wine() {
    "$top/scripts/wine" wineserver -k 2>/dev/null || true # there is none any more
    "$top/scripts/wine" wineserver -w
}
