# Sourced by demo.sh, which offers `say` and `start_daemon`, and the programs in PATH: a switch of the kernel with four
# hosts, all in network namespaces that end with the demonstration, and what becomes of their pings when ports are
# isolated.

# Why there can be no namespaces; nothing when there can.
namespaces_missing() {
    export -f start_daemon
    unshare --net --mount true 2>&1
}

# demo_linux FOLDER DESCRIPTION: the folder is empty and the caller's to remove; DESCRIPTION is boards/linux. The kernel
# takes the switch away with the process that holds its namespaces, however it ends.
demo_linux() {
    local missing
    if ! missing=$(namespaces_missing); then
        echo "demo.sh linux: needs network namespaces, which take root: $missing" >&2
        return 1
    fi
    export -f start_daemon
    unshare --net --mount --pid --fork --mount-proc --kill-child bash -euo pipefail -c \
        '. "$1/scripts/build.sh"; . "$3/demo.sh"; switch_session "$2" "$3"' demo "$top" "$1" "$2"
}

build_switch() {
    local i tries
    mount -t tmpfs hosts /run  # the names of the hosts' namespaces, seen by nobody else
    ip link set lo up
    ip link add br0 type bridge
    ip link set br0 up
    for i in 1 2 3 4; do
        ip netns add "h$i"
        ip link add "p$i" type veth peer name eth0 netns "h$i"
        ip link set "p$i" master br0 up
        ip -n "h$i" address add "10.0.0.$i/24" dev eth0
        ip -n "h$i" link set eth0 up
    done
    # A port forwards a moment after its cable is plugged.
    for i in 2 3 4; do
        for ((tries = 0; tries < 30; tries++)); do
            ! ip netns exec h1 ping -q -c 1 -W 1 "10.0.0.$i" >/dev/null || break
        done
    done
}

ping_host() {
    local answer=x
    ! ip netns exec "h$1" ping -q -c 2 -i 0.2 -W 1 "10.0.0.$2" >/dev/null || answer=o
    echo $answer >"$root/ping$1$2"
}

# pings EXPECTED: every host pings every other; o an answer, x none. EXPECTED has the rows in a line.
pings() {
    local i j got=
    for i in 1 2 3 4; do
        for j in 1 2 3 4; do
            if [ $i = $j ]; then echo - >"$root/ping$i$j"; else ping_host $i $j & fi
        done
    done
    for i in $(jobs -p); do [ "$i" = "$daemon" ] || wait "$i"; done
    printf '\nPings from the row to the column: o an answer, x none\n      p1 p2 p3 p4\n'
    for i in 1 2 3 4; do
        printf '  p%d ' $i
        for j in 1 2 3 4; do
            printf ' %s ' "$(cat "$root/ping$i$j")"
            got+=$(cat "$root/ping$i$j")
        done
        printf '\n'
        got+=' '
    done
    [ "$got" = "$1 " ] || { printf 'demo.sh linux: expected %s\n' "$1" >&2; return 1; }
}

run() {
    printf '\n$ portisolatectl %s\n' "$*"
    portisolatectl "$@"
}

switch_session() {
    trap 'exit 130' INT TERM HUP  # the first process of its namespace heeds no other signals
    root=$1 daemon=
    export PORTISOLATE_ROOT=$root
    local open='-ooo o-oo oo-o ooo-' isolated='-xoo x-oo oo-o ooo-'
    mkdir -p "$root/tmp" "$root/etc/portisolate"
    cp "$2"/*.conf "$root/etc/portisolate/"

    say "a bridge with the ports p1 to p4, a host behind each; the daemon beside it"
    build_switch
    start_daemon "$root"
    daemon=$started
    run board list
    pings "$open"

    say "isolating p1 and p2 from each other"
    run group add 5 p1 p2
    run matrix
    pings "$isolated"

    say "what the kernel holds of it, and what it has dropped"
    run plane show

    say "the daemon is killed: what it isolated stays isolated"
    portisolatectl export >"$root/running"
    kill -KILL "$daemon"
    wait "$daemon" 2>/dev/null || true
    pings "$isolated"

    say "it starts again, knowing nothing, and is given the configuration that ran"
    start_daemon "$root"
    daemon=$started
    run plane show
    printf '\n$ portisolatectl apply running\n'
    portisolatectl apply "$root/running"
    run plane show

    say "dissolving the group"
    run group del 5
    pings "$open"
    kill "$daemon"
    say "all is open again; the switch ends with the daemon"
}
