# Sourced by demo.sh, which provides `say` and `start_daemon` and has the programs in PATH. Builds a bridge of the
# kernel with four hosts, all in network namespaces that end with the demonstration, and shows what happens to their
# pings when ports are isolated.

# Prints why there can be no namespaces, or nothing when there can be.
namespaces_missing() {
    unshare --net --mount true 2>&1
}

# demo_linux FOLDER DESCRIPTION: FOLDER is empty, and the caller removes it; DESCRIPTION is boards/linux. The kernel
# removes the bridge together with the process that holds its namespaces, however that ends.
demo_linux() {
    local missing
    if ! missing=$(namespaces_missing); then
        echo "demo.sh linux: needs network namespaces, and these need root: $missing" >&2
        return 1
    fi
    export -f start_daemon
    unshare --net --mount --pid --fork --mount-proc --kill-child bash -euo pipefail -c \
        '. "$1/scripts/build.sh"; . "$3/demo.sh"; switch_session "$2" "$3"' demo "$top" "$1" "$2"
}

build_switch() {
    local i tries
    mount -t tmpfs hosts /run  # for the names of the hosts' namespaces, visible only here
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
    # A port begins to forward a moment after it is up.
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

# pings EXPECTED: every host pings every other; o is an answer, x none. EXPECTED has all rows in one line. The hosts'
# ports are in `ports`.
pings() {
    local i j got= pinging=()
    for i in 1 2 3 4; do
        for j in 1 2 3 4; do
            [ $i != $j ] || { echo - >"$root/ping$i$j"; continue; }
            ping_host $i $j &
            pinging+=($!)
        done
    done
    wait "${pinging[@]}"
    printf '\nPings from the row to the column: o an answer, x none\n%8s' ''
    printf '%8s' "${ports[@]}" && printf '\n'
    for i in 1 2 3 4; do
        printf '  %-6s' "${ports[i - 1]}"
        for j in 1 2 3 4; do
            printf '%8s' "$(cat "$root/ping$i$j")"
            got+=$(cat "$root/ping$i$j")
        done
        printf '\n'
        got+=' '
    done
    [ "$got" = "$1 " ] || { printf 'demo.sh: expected %s\n' "$1" >&2; return 1; }
}

run() {
    printf '\n$ portisolatectl %s\n' "$*"
    portisolatectl "$@"
}

switch_session() {
    trap 'exit 130' INT TERM HUP  # the first process of its namespace heeds no other signals
    root=$1 daemon= ports=(p1 p2 p3 p4)
    export PORTISOLATE_ROOT=$root
    local open='-ooo o-oo oo-o ooo-' isolated='-xoo x-oo oo-o ooo-'
    mkdir -p "$root/tmp" "$root/etc/portisolate"
    cp "$2"/*.conf "$root/etc/portisolate/"

    say "a bridge with the ports p1 to p4, a host behind each of them, and the daemon"
    build_switch
    start_daemon "$root"
    daemon=$started
    run board list
    pings "$open"

    say "isolating p1 and p2 from each other"
    run group add 5 p1 p2
    run matrix
    pings "$isolated"

    say "what the kernel holds, and what it has dropped"
    run plane show

    say "the daemon is killed: what it has isolated stays isolated"
    portisolatectl export >"$root/running"
    kill -KILL "$daemon"
    wait "$daemon" 2>/dev/null || true
    pings "$isolated"

    say "it starts again with empty tables, and the saved configuration is applied"
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
    say "nothing is isolated any more; the bridge is removed with the daemon"
}
