#!/usr/bin/env bash
# The package on a machine that boots by systemd: not one frame passes between two ports that the saved configuration
# isolates, from the first that the bridge could forward, through restart, crash, upgrade and removal of the package,
# while frames to a third port flow. Runs inside a virtual machine alone; scripts/kernel_vm.sh -b boots it.
# usage: boot_test.sh prepare PACKAGE... | network | check PACKAGE...
set -u
export LC_ALL=C DEBIAN_FRONTEND=noninteractive PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
HOSTS=(h1 h2 h3)  # the first sends, the second is isolated from it, the third is not
SENDER=02:00:00:00:00:01
RATE=1200  # frames a second

fail() { printf 'FAILED: %s\n' "$*"; exit 1; }

# Nothing else of this machine is started.
prepare() {
    rm -rf /usr/sbin/policy-rc.d /etc/systemd/system/*.wants /lib/systemd/system-generators/*
    dpkg --no-triggers -i "$@" || fail 'the packages cannot be installed'
    printf 'plane linux\nbridge br0\n' >/etc/portisolate/board.conf
    printf 'group 5 p1 p2\n' >/etc/portisolate/isolation.conf
    cat >/etc/systemd/system/test-network.service <<UNIT
[Unit]
DefaultDependencies=no
Wants=network.target
After=network-pre.target
Before=network.target
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=$(realpath "$0") network
[Install]
WantedBy=multi-user.target
UNIT
    systemctl enable test-network.service
}

# Frames are on their way before the bridge has ports.
network() {
    local host port device
    ip link add br0 type bridge && ip link set br0 up
    for host in "${HOSTS[@]}"; do
        port=p${host#h}
        ip netns add "$host"
        ip link add "$port" type veth peer name eth0 netns "$host"
        ip netns exec "$host" nft -f - <<NFT
table netdev heard {
    counter frames { }
    chain in { type filter hook ingress device eth0 priority 0; ether saddr $SENDER counter name frames; }
}
NFT
        ip -n "$host" link set eth0 up
        ip link set "$port" up
    done
    modprobe pktgen
    device=/proc/net/pktgen
    ip netns exec h1 bash -c "
        echo 'add_device eth0' >$device/kpktgend_0
        for setting in 'count 0' 'clone_skb 0' 'ratep $RATE' 'src_mac $SENDER' 'dst_mac ff:ff:ff:ff:ff:ff'; do
            echo \"\$setting\" >$device/eth0
        done
        echo start >$device/pgctrl &"
    for port in p2 p3 p1; do ip link set "$port" master br0; done
}

heard() { ip netns exec "$1" nft list counter netdev heard frames | awk '/packets/ { print $2 }'; }

# until_true COMMAND...: for a minute.
until_true() {
    local try
    for ((try = 0; try < 600; ++try)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}

flowed() { [ "$(heard h3)" -ge "$1" ]; }

# step WHAT COMMAND...: and a thousand frames later none has passed.
step() {
    local what=$1
    shift
    "$@" || fail "$what: $*"
    until_true flowed $(($(heard h3) + 1000)) || fail "$what: no frames reach the third host"
    [ "$(heard h2)" -eq 0 ] || fail "$what: $(heard h2) frames have passed"
    printf 'ok      %s, %s frames at the third host\n' "$what" "$(heard h3)"
}

active() { systemctl -q is-active portisolate; }
in_force() { until_true active && portisolatectl status; }
stopped() { systemctl stop portisolate && ! active; }
crashed() { systemctl kill -s KILL portisolate && until_true in_force; }
upgraded() { dpkg --no-triggers -i "$@" && in_force; }
removed() { dpkg --no-triggers -r portisolate && ! active && nft list table bridge portisolate >/dev/null; }
reinstalled() { dpkg --no-triggers -i "$@" && systemctl is-enabled portisolate && in_force; }

# Who serves the page may read and not change.
# The page's user may read the saved configuration, too.
page_answers() {
    curl -sf --max-time 5 http://127.0.0.1:9757/api/v1/groups | grep -q '"interface":"p1"' &&
        curl -sf --max-time 5 http://127.0.0.1:9757/api/v1/status | grep -q '"saved":true,.*"pending":\[\]'
}
page_only_reads() {
    until_true page_answers || return 1
    runuser -u portisolate-web -- portisolatectl group del 5 2>&1 | grep -q 0x03E80008 && in_force
}

check() {
    step boot in_force
    step page page_only_reads
    step stop stopped
    step start systemctl start portisolate
    step crash crashed
    step upgrade upgraded "$@"
    step removal removed
    step reinstallation reinstalled "$@"
    dpkg --no-triggers -P portisolate-web portisolate || fail purge
    ! nft list table bridge portisolate 2>/dev/null || fail 'purge: the table is still there'
    [ -z "$(getent passwd portisolate portisolate-web)" ] || fail 'purge: a user is still there'
    [ -z "$(getent group portisolate portisolate-read)" ] || fail 'purge: a group is still there'
    [ ! -e /etc/portisolate ] || fail "purge: left in /etc/portisolate: $(ls /etc/portisolate)"
    passed() { [ "$(heard h2)" -gt 0 ]; }
    until_true passed || fail 'purge: frames still do not pass'
    printf 'ok      purge\n'
}

case $1 in
    prepare) prepare "${@:2}" ;;
    network) network ;;
    check) check "${@:2}" ;;
esac
