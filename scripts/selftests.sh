#!/usr/bin/env bash
# Lets the kernel's own tests of its bridge judge the daemon, under Debian's kernel in a virtual machine: they give the
# same answers with the daemon's table beside them as without, and the test of the bridge's `isolated` flag passes with
# the daemon in the flag's place.
# usage: scripts/selftests.sh [TEST]...
#
# The tests are those of Debian's package of the kernel's source, which is downloaded when wanted, by apt, into
# $XDG_CACHE_HOME/portisolate-kernel or else build-kernel. The daemon is that of build-test.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
ISOLATION_TEST=bridge_port_isolation
TESTS=(bridge_sticky_fdb bridge_locked_port bridge_vlan_aware bridge_vlan_unaware vxlan_bridge_1d vxlan_bridge_1q)

# What follows down to the next line of # runs in the virtual machine, alone there.
cut_answers() { grep -oE 'TEST: .*\[ *(OK|FAIL|SKIP) *\]' | sed -E 's/ +/ /g' || true; }

# start_daemon listed|followed: with a list of ports, two of the test's among them, or with those that the bridge has.
start_daemon() {
    mkdir -p "$PORTISOLATE_ROOT"/{etc/portisolate,tmp}
    printf 'plane linux\nbridge br0\naccess veth1 absent\n' >"$PORTISOLATE_ROOT/etc/portisolate/board.conf"
    if [ "$1" = listed ]; then
        printf 'interface %d %s slot 1\n' 1 veth1 2 veth2 3 absent 4 away \
            >>"$PORTISOLATE_ROOT/etc/portisolate/board.conf"
    fi
    printf 'portisolate.%saggtoport = 0\n' src dst >"$PORTISOLATE_ROOT/etc/portisolate/portisolate.conf"
    "$top/build-test/portisolate" 2>"$PORTISOLATE_ROOT/log" &
    daemon=$!
    until ctl board role >/dev/null 2>&1; do sleep 0.2; done
}
ctl() { "$top/build-test/portisolatectl" "$@"; }

# Every kind of isolation in use, between ports of the test and others that never come: what the test sends passes.
isolate_absent() {
    ctl group add 5 veth1 absent
    ctl pair add veth2 away
    ctl vlan-group add 6 veth2 absent --vlan 10
    ctl pon off 20
    ctl plane show >/tmp/plane
    grep -qE '^[0-9]+ held; ' /tmp/plane || { cat /tmp/plane; exit 1; }
}

stop_daemon() {
    kill "$daemon"
    wait "$daemon" || true
    nft delete table bridge portisolate 2>/dev/null || true
}

# In place of `ip`, which sets the flag: the port joins a group.
make_ip() {
    mkdir -p "$PORTISOLATE_ROOT/bin"
    cat >"$PORTISOLATE_ROOT/bin/ip" <<IP
#!/bin/sh
ctl=$top/build-test/portisolatectl
case "\$*" in
    *bridge_slave*isolated*on) \$ctl board settle && \$ctl group add 5 "\$4" ;;
    *bridge_slave*isolated*off) ;;
    *) exec $(command -v ip) "\$@" ;;
esac
IP
    chmod +x "$PORTISOLATE_ROOT/bin/ip"
}

judge() {
    local status=0 name alone beside
    cd "$1"
    shift
    export PORTISOLATE_ROOT=/tmp/daemon
    make_ip
    for name in "$@"; do
        alone=$(./"$name.sh" 2>&1 | tee /tmp/alone | cut_answers) || true
        if [ "$name" = "$ISOLATION_TEST" ]; then
            start_daemon followed
            beside=$(PATH=$PORTISOLATE_ROOT/bin:$PATH ./"$name.sh" 2>&1 | tee /tmp/beside | cut_answers) || true
        else
            start_daemon listed
            isolate_absent
            beside=$(./"$name.sh" 2>&1 | tee /tmp/beside | cut_answers) || true
        fi
        stop_daemon
        if [ "$alone" = "$beside" ] && grep -q OK <<<"$alone"; then
            printf 'ok      %s: %d answers, the same with the daemon\n' "$name" "$(wc -l <<<"$alone")"
        else
            printf 'FAILED  %s\n== alone\n%s\n== with the daemon\n%s\n' "$name" "$(cat /tmp/alone)" "$(cat /tmp/beside)"
            status=1
        fi
    done
    return $status
}
if [ "${1:-}" = --judge ]; then
    shift
    judge "$@"
    exit
fi
##

. "$top/scripts/build.sh"
need_packages jq netsniff-ng iputils-ping iputils-arping ethtool tcpdump iproute2 nftables xz-utils
cache=${XDG_CACHE_HOME:+$XDG_CACHE_HOME/portisolate-kernel}
cache=${cache:-$top/build-kernel}
mkdir -p "$cache"
if [ ! -d "$cache/selftests" ]; then
    say "downloading the kernel's own tests"
    work=$(mktemp -d "$cache/new.XXXXXX")
    trap 'rm -rf "$work"' EXIT
    package=$(apt-cache depends linux-source | grep -oE 'linux-source-[0-9][^ ]*' | head -n 1)
    (cd "$work" && apt-get download "$package" >/dev/null 2>&1)
    dpkg-deb --fsys-tarfile "$work"/*.deb | tar xO --wildcards "*/$package.tar.xz" |
        tar xJ -C "$work" --strip-components=4 --wildcards '*/tools/testing/selftests/net/*'
    cp "$work/net/forwarding/forwarding.config.sample" "$work/net/forwarding/forwarding.config"
    mv "$work/net" "$cache/selftests"
fi
[ $# -gt 0 ] || set -- "$ISOLATION_TEST" "${TESTS[@]}"
KERNEL_VM_SECONDS=${KERNEL_VM_SECONDS:-5400} "$top/scripts/kernel_vm.sh" "$top/scripts/selftests.sh" --judge \
    "$cache/selftests/forwarding" "$@"
