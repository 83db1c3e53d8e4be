# Sourced by demo.sh, which provides `say` and `start_daemon` and has the programs in PATH. Two machines, each with a
# bridge, a daemon and two hosts, all in network namespaces that end with the demonstration. A VXLAN joins the bridges.

# Prints why two machines cannot be made here, or nothing when they can be.
span_missing() {
    unshare --net --mount bash -c 'ip link add vx0 type vxlan id 100 dstport 4789 gbp && nft add table bridge probe' 2>&1
}

# make_machine NAME NUMBER: its bridge br0, and the device underlay with the address 192.0.2.NUMBER.
make_machine() {
    ip netns add "$1"
    ip -n "$1" link set lo up
    ip -n "$1" link add br0 type bridge
    ip -n "$1" link set br0 up
    ip link set "underlay-$1" netns "$1" name underlay
    ip -n "$1" address add "192.0.2.$2/24" dev underlay
    ip -n "$1" link set underlay up
}

# make_fabric NAME NUMBER [OPTION...]: the machine's end of the VXLAN. Group policy (gbp) has to be on at both ends.
make_fabric() {
    ip -n "$1" link add vx0 type vxlan id 100 dstport 4789 local "192.0.2.$2" gbp "${@:3}"
    ip -n "$1" link set vx0 master br0 up
}

# make_host MACHINE NUMBER PORT
make_host() {
    ip netns add "h$2"
    ip -n "$1" link add "$3" type veth peer name eth0 netns "h$2"
    ip -n "$1" link set "$3" master br0 up
    ip -n "h$2" address add "10.0.0.$2/24" dev eth0
    ip -n "h$2" link set eth0 up
}

make_machines() {
    mount -t tmpfs names /run  # for the names of the namespaces, visible only here
    ip link add underlay-a type veth peer name underlay-b
    make_machine a 1
    make_machine b 2
    make_host a 1 red-1
    make_host a 2 blue-1
    make_host b 3 red-2
    make_host b 4 blue-2
    ports=(red-1 blue-1 red-2 blue-2)
}

# make_daemon MACHINE FILE...: with these files of configuration.
make_daemon() {
    mkdir -p "$root/$1/tmp" "$root/$1/etc/portisolate"
    cp "${@:2}" "$root/$1/etc/portisolate/"
    start_daemon "$root/$1" ip netns exec "$1"
}

demo_span() {
    local missing
    if ! missing=$(span_missing); then
        echo "demo.sh span: needs root, network namespaces, VXLAN and nf_tables: $missing" >&2
        return 1
    fi
    export -f start_daemon
    unshare --net --mount --pid --fork --mount-proc --kill-child bash -euo pipefail -c \
        '. "$1/scripts/build.sh"; . "$1/boards/linux/demo.sh"; . "$1/boards/span/demo.sh"; span_session "$1" "$2"' \
        demo "$top" "$1"
}

# on MACHINE COMMAND...
on() {
    printf '\n%s$ portisolatectl %s\n' "$1" "${*:2}"
    PORTISOLATE_ROOT=$root/$1 portisolatectl "${@:2}"
}

# Until every host has reached every other: a port begins to forward a moment after it is up.
await_hosts() {
    local i j tries
    for i in 1 2 3; do
        for ((j = i + 1; j <= 4; j++)); do
            for ((tries = 0; tries < 30; tries++)); do
                ! ip netns exec "h$i" ping -q -c 1 -W 1 "10.0.0.$j" >/dev/null || break
            done
        done
    done
}

span_session() {
    trap 'exit 130' INT TERM HUP  # the first process of its namespace heeds no other signals
    top=$1 root=$2
    local other machine isolated='-oxo o-ox xo-o oxo-'

    say "machine a with the ports red-1 and blue-1, machine b with red-2 and blue-2, and a VXLAN between them"
    make_machines
    make_fabric a 1
    make_fabric b 2
    bridge -n a fdb append 00:00:00:00:00:00 dev vx0 dst 192.0.2.2
    bridge -n b fdb append 00:00:00:00:00:00 dev vx0 dst 192.0.2.1
    await_hosts
    make_daemon a "$top"/boards/span/*.conf
    make_daemon b "$top"/boards/span/*.conf
    other=$started
    pings '-ooo o-oo oo-o ooo-'

    say "the same configuration on both: no two red ports may talk, and no two blue ones, wherever they are"
    printf 'group 5 red-*\ngroup 7 blue-*\n' >"$root/isolation.conf"
    cat "$root/isolation.conf"
    for machine in a b; do on $machine apply "$root/isolation.conf"; done
    on a matrix
    pings "$isolated"

    say "what machine b holds, and what it has dropped of frames from machine a"
    on b plane show
    on b why red-2 --remote 5,7

    say "the daemon of machine b is killed: what is isolated stays isolated"
    kill -KILL "$other"
    wait "$other" 2>/dev/null || true
    pings "$isolated"

    say "it starts again, and the same configuration is applied"
    make_daemon b "$top"/boards/span/*.conf
    on b apply "$root/isolation.conf"
    on b plane show
    pings "$isolated"
    say "the machines and all that is in them end with the demonstration"
}
