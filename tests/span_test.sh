#!/usr/bin/env bash
# Groups of two machines over a VXLAN with real neighbours: FRR's zebra and bgpd tell each machine of the other (EVPN), and
# Ansible's playbook from packaging/ brings the configuration, of which a second run changes nothing. Real frames are
# the judges. All of it has network, processes and /run to itself.
# usage: span_test.sh FOLDER-OF-THE-PROGRAMS; exits with 77 where something is missing
set -u
export LC_ALL=C.UTF-8 NO_COLOR=1
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/boards/linux/demo.sh"
. "$top/boards/span/demo.sh"

fail() {
    printf 'FAILED: %s\n' "$*"
    tail -n 30 "$root"/*/log "$root"/played "$root"/frr-*
    for machine in a b; do
        bridge -n "$machine" fdb show dev vx0
        PORTISOLATE_ROOT=$root/$machine portisolatectl plane show
    done
    exit 1
}

# until_true COMMAND...: for half a minute.
until_true() {
    local try
    for ((try = 0; try < 300; ++try)); do
        "$@" >/dev/null 2>&1 && return 0
        sleep 0.1
    done
    return 1
}

start_daemon() {
    PORTISOLATE_ROOT=$1 "${@:2}" portisolate 2>"$1/log" &
    until_true env PORTISOLATE_ROOT="$1" portisolatectl plane show || fail "no daemon in $1"
}

# speak NUMBER PEER: zebra and bgpd of a machine, as docs/spanning.md configures those of 192.0.2.1.
speak() {
    mount -t tmpfs run /run && install -d -o frr -g frr /run/frr || exit 1
    sed -n '/^router bgp/,/^```/{/^```/!p}' "$top/docs/spanning.md" |
        sed "s/192\.0\.2\.1/SELF/; s/192\.0\.2\.2/192.0.2.$2/; s/SELF/192.0.2.$1/" >/run/frr/frr.conf
    /usr/lib/frr/zebra -f /dev/null &
    /usr/lib/frr/bgpd -f /run/frr/frr.conf &
    wait
}
knows_peer() { bridge -n "$1" fdb show dev vx0 | grep -q "00:00:00:00:00:00 dst 192.0.2.$2"; }

# played CHANGED: Ansible runs the playbook, which changes so much on each machine.
played() {
    (cd "$root" && ansible-playbook -i hosts portisolate.yml) >"$root/played" 2>&1 || return 1
    [ "$(grep -c " changed=$1 .*failed=0" "$root/played")" = 2 ]
}

await_pings() { for _ in 1 2 3 4 5; do pings "$1" && return 0; done; return 1; }

session() {
    local name number peer
    root=/run/root
    mount -t sysfs sysfs /sys && make_machines && cp -r "$top/packaging/ansible" $root || fail 'no machines'
    export HOME=$root
    while read -r name number peer; do
        make_fabric "$name" "$number" nolearning
        make_daemon "$name" "$top/packaging/ansible/board.conf"
        ip netns exec "$name" unshare --mount "$0" "$programs" speak "$number" "$peer" >"$root/frr-$name" 2>&1 &
        printf '%s portisolate_root=%s ansible_connection=local ansible_python_interpreter=/usr/bin/python3\n' "$name" \
            "$root/$name" >>$root/hosts
    done <<<$'a 1 2\nb 2 1'
    until_true knows_peer a 2 && until_true knows_peer b 1 || fail 'the machines do not know of one another'
    played 2 || fail 'the playbook'
    played 0 || fail 'a second run of the playbook changes something'
    await_pings '-oxo o-ox xo-o oxo-' || fail 'not isolated by the groups'
    sed -i '/group 7/d' $root/isolation.conf
    played 2 || fail 'a changed configuration'
    await_pings '-oxo o-oo xo-o ooo-' || fail 'not isolated by the changed groups'
    echo 'group 5 and more' >>$root/isolation.conf
    ! played 0 && grep -q 'failed=1' $root/played || fail 'a wrong configuration is taken'
    ! grep -q more $root/[ab]/etc/portisolate/isolation.conf || fail 'a wrong configuration replaces what was there'
}

programs=$(realpath "$1")
PATH=$programs:$PATH:/usr/sbin:/sbin
[ "${2-}" != speak ] || { speak "$3" "$4"; exit; }
[ "${2-}" != session ] || { session; exit; }
lacking=$(span_missing) || lacking=${lacking:-a right}
for program in /usr/lib/frr/bgpd ansible-playbook; do command -v "$program" >/dev/null || lacking+=" $program"; done
if [ -n "$lacking" ]; then
    printf 'lacking: %s\n' "$lacking"
    [ -n "${PORTISOLATE_TESTS_UNSKIPPED:-}" ] || exit 77
fi
unshare --net --mount --pid --fork --mount-proc --kill-child "$0" "$programs" session
