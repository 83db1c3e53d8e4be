#!/usr/bin/env bash
# Shows the daemon at work, on simulated boards and on a bridge of the kernel. Needs only Debian, and ends by itself.
set -euo pipefail
top=$(cd "$(dirname "$0")" && pwd)
. "$top/scripts/build.sh"

usage() {
    cat <<TEXT
usage: ./demo.sh [--stay] [two-boards|linux|span]

Installs missing packages, builds, and runs the daemon on boards/demo in a temporary folder: isolates two ports and a
trunk, shows what the hardware was told and which interface can still reach which, and dissolves the group again.
  --stay      leaves the daemon running at the end and prints commands to try
  two-boards  shows an active and a standby control board instead: how one mirrors the other, and a switch-over
  linux       isolates the ports of a bridge of the kernel instead, with four hosts that ping each other; needs root
  span        isolates ports of two machines, which a VXLAN joins, from one another; needs root
TEXT
}

stay=no what=one-board
for argument in "$@"; do
    case $argument in
        --stay) stay=yes ;;
        two-boards | linux | span) what=$argument ;;
        -h | --help) usage; exit 0 ;;
        *) printf 'demo.sh: unknown argument "%s"\n' "$argument" >&2; usage >&2; exit 2 ;;
    esac
done

packages=("${BUILD_PACKAGES[@]}")
[[ $what != @(linux|span) ]] || packages+=(iproute2 iputils-ping nftables)
need_packages "${packages[@]}"
say "building"
build_tree "$top/build" -DPORTISOLATE_TESTS=OFF
PATH=$top/build:$PATH

root=$(mktemp -d)
declare -a daemons=()  # those that run, by process id
finish() {
    trap '' PIPE  # whoever reads the output may have gone
    local process
    for process in "${!daemons[@]}"; do
        kill "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    rm -rf "$root"
}
trap finish EXIT
trap 'exit 141' PIPE
trap 'exit 130' INT TERM HUP

# end_daemon PROCESS SIGNAL
end_daemon() {
    unset "daemons[$1]"
    kill -"$2" "$1"
    wait "$1" 2>/dev/null || true
}

# start_daemon ROOT [COMMAND...]: starts a daemon there, by the command, and waits until it serves requests; its process
# id is then in `started`.
start_daemon() {
    local i
    rm -f "$1/tmp/portisolatecmd.socket"
    PORTISOLATE_ROOT=$1 "${@:2}" portisolate 2>>"$1/log" &
    started=$!
    daemons[started]=$1
    for ((i = 0; i < 500; i++)); do
        [ ! -S "$1/tmp/portisolatecmd.socket" ] || return 0
        kill -0 "$started" 2>/dev/null || break
        sleep 0.01
    done
    cat "$1/log" >&2
    return 1
}

if [ $what = two-boards ]; then
    . "$top/boards/two/demo.sh"
    demo_two_boards "$root" "$top/boards/two"
    exit
fi
if [ $what = linux ]; then
    . "$top/boards/linux/demo.sh"
    demo_linux "$root" "$top/boards/linux"
    exit
fi
if [ $what = span ]; then
    . "$top/boards/span/demo.sh"
    demo_span "$root"
    exit
fi

mkdir -p "$root/tmp" "$root/etc/portisolate"
cp "$top"/boards/demo/*.conf "$root/etc/portisolate/"
printf 'journal /journal\n' >>"$root/etc/portisolate/board.conf"
export PORTISOLATE_ROOT=$root

say "starting the daemon on boards/demo, with its files below $root"
start_daemon "$root"
daemon=$started

run() {
    printf '\n$ portisolatectl %s\n' "$*"
    portisolatectl "$@"
}

# What the hardware has been told since the last call of this function, from the journal of hardware calls.
shown=0
hardware() {
    printf '\nWhat the forwarding hardware was told:\n'
    tail -n +"$((shown + 1))" "$root/journal" | grep -E '"call":"dax(IfSync|HwilCmdSet)Api"' || echo '  nothing'
    shown=$(wc -l <"$root/journal")
}

run board list
say "every interface can reach every other"
run matrix
shown=$(wc -l <"$root/journal")

say "isolating ge1/1, pon2/1 and the trunk lag1 (member ports ge1/3 and ge1/4) from one another: two requests each"
for member in ge1/1 pon2/1 lag1; do
    run group create 5 "$member"
    run group activate 5 "$member"
done
hardware
run board hardware
run group list
run matrix

say "dissolving the group"
run group del 5
hardware
run matrix
if ! portisolatectl board hardware | grep -q '^counters bi=0 uni=0 '; then
    echo "demo.sh: something is still isolated" >&2
    exit 1
fi

if [ $stay = yes ]; then
    trap - EXIT
    cat <<TEXT

The daemon keeps running (process $daemon). To try it:

    export PORTISOLATE_ROOT=$root
    export PATH=$top/build:\$PATH
    portisolatectl group add 7 ge1/1-2 lag1
    portisolatectl matrix
    portisolatectl board join lag1 ge1/1
    portisolatectl --help

To end it: kill $daemon; rm -r $root
TEXT
    exit 0
fi
say "nothing is isolated any more; the daemon ends"
