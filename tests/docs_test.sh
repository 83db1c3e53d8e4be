#!/usr/bin/env bash
# Runs the console sessions of documents and compares what they print.
# usage: docs_test.sh [--bridge] FOLDER-OF-THE-PROGRAMS FOLDER-OF-THE-BOARD DOCUMENT...
#
# In a block fenced as ```console a line "$ COMMAND" is run, lines "> ..." continue it, and the lines below it are what
# it must print on both channels. The commands of a document share one shell, one daemon on a fresh copy of the board,
# and a temporary root that is their folder too; the daemon's own texts are in daemon.log there. What varies from run to
# run stands as <time>, <address> or <root>. Blanks at the ends of lines do not count.
# With --bridge all of this takes place in a network namespace with a bridge br0 of the ports eth1 to eth3; what the
# plane remarks about this kernel is left out. Exits with 77 where there are no namespaces.
# A picture that a document shows must be what its session drew, where it drew one of that name.
set -u

if [ "$1" = --bridge ]; then
    shift
    unshare -n true 2>/dev/null || { echo "no network namespaces here, or no right to them"; exit 77; }
    if grep -qs '^span' "$2/board.conf" && ! unshare -n ip link add vx0 type vxlan id 100 dstport 4789 gbp; then
        echo "no VXLAN here"
        exit 77
    fi
    exec unshare -n env BRIDGE=br0 "$0" "$@"
fi
programs=$(realpath "$1") board=$(realpath "$2")
shift 2
documents=()
for document in "$@"; do documents+=("$(realpath "$document")"); done
PATH=$programs:$PATH
export NO_COLOR=1 LC_ALL=C TZ=UTC
unset JOURNAL_STREAM NOTIFY_SOCKET
root='' daemon='' commands=0 failures=0

stop_daemon() {
    if [ -n "$daemon" ]; then
        kill "$daemon" 2>/dev/null
        wait "$daemon" 2>/dev/null
    fi
    cd /
    rm -rf "$root"
    daemon='' root=''
}
trap stop_daemon EXIT

# Its ports' numbers are the kernel's, counted up from 1, which is lo.
make_bridge() {
    local port
    ip link add "$BRIDGE" type bridge
    for port in 1 2 3; do
        ip link add "eth$port" type veth peer name "host$port"
        ip link set "eth$port" master "$BRIDGE"
    done
}
[ -z "${BRIDGE:-}" ] || make_bridge

start_daemon() {
    root=$(mktemp -d)
    export PORTISOLATE_ROOT=$root
    mkdir -p "$root/tmp" "$root/etc/portisolate"
    cp "$board"/*.conf "$root/etc/portisolate/"
    cd "$root" || exit 1
    portisolate 2>daemon.log &
    daemon=$!
    until portisolatectl debug >/dev/null 2>&1; do
        kill -0 "$daemon" 2>/dev/null || { cat daemon.log; exit 1; }
        sleep 0.01
    done
}

normalised() {
    sed -E -e '/^note: this kernel/d' -e "s|$root|<root>|g" -e 's/uid [0-9]+, pid [0-9]+/uid <uid>, pid <pid>/' -e 's/0x[0-9a-f]{9,}/<address>/g' \
        -e 's/[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\.[0-9]{3}/<time>/g' -e 's/\r//g' -e 's/[[:space:]]+$//'
}

# Runs what has been gathered and compares.
command='' expected='' place='' status=0
check() {
    [ -n "$command" ] || return 0
    commands=$((commands + 1))
    (exit "$status")
    eval "$command" >"$root/.printed" 2>&1 </dev/null
    status=$?
    if ! diff -u --label "$place says" --label 'printed' <(printf '%s' "$expected" | normalised) \
        <(normalised <"$root/.printed"); then
        printf 'of the command: %s\n\n' "$command"
        failures=$((failures + 1))
    fi
    command='' expected=''
}

run_document() {
    local line picture drawn number=0 inside=no
    command='' expected='' status=0
    while IFS= read -r line <&3; do
        number=$((number + 1))
        case $inside:$line in
            no:'```console') inside=yes ;;
            no:*) ;;
            yes:'```') check; inside=no ;;
            yes:'$ '*) check; command=${line#'$ '} place=${1##*/}:$number ;;
            yes:'> '*) command+=$'\n'${line#'> '} ;;
            *) expected+=$line$'\n' ;;
        esac
    done 3<"$1"
    while IFS= read -r picture; do
        drawn=$root/${picture##*/}
        if [ -e "$drawn" ] && ! cmp "$(dirname "$1")/$picture" "$drawn"; then failures=$((failures + 1)); fi
    done < <(sed -nE 's/.*!\[.*\]\((.*)\).*/\1/p' "$1")
    [ "$inside" = no ] || { printf '%s: a session has no end\n' "$1"; failures=$((failures + 1)); }
}

for document in "${documents[@]}"; do
    start_daemon
    run_document "$document"
    stop_daemon
done
printf '%d commands, %d differ from what the documents say\n' "$commands" "$failures"
[ "$failures" -eq 0 ] && [ "$commands" -gt 0 ]
