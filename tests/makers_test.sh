#!/usr/bin/env bash
# Ports that real makers of ports make: isolated as the saved configuration says without anybody typing a command, and
# when they are gone nothing of them is left. Each maker has network, processes and /run to itself.
# usage: makers_test.sh FOLDER-OF-THE-PROGRAMS [MAKER]; exits with 77 where there are no namespaces
set -u
export LC_ALL=C NO_COLOR=1
MAKERS=(cni qemu libvirt networkd)
top=$(cd "$(dirname "$0")/.." && pwd)
programs=$(realpath "$1")

fail() {
    printf 'FAILED: %s\n' "$*"
    printf '%s\n' "$shown" "$(ip -d link show master br0 2>&1)" "$(tail -n 20 "$PORTISOLATE_ROOT"/*.log "$PORTISOLATE_ROOT"/run/*.log 2>&1)"
    exit 1
}

# until_true COMMAND...: for half a minute.
until_true() {
    local try
    for ((try = 0; try < 300; ++try)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}

shown=''
# matrix_is EXPECTED PORT...: rows in one line, without their names.
matrix_is() {
    shown=$(portisolatectl matrix "${@:2}" 2>&1)
    [ "$(awk 'NR > 1 && NF == 0 { exit } NR > 1 { sub(/^[^ ]+ +/, ""); gsub(/ +/, ""); printf "%s ", $0 }' <<<"$shown")" = "$1 " ]
}
all_held() { shown=$(portisolatectl plane show 2>&1) && ! grep -qE 'MISSING|left over|behind closed' <<<"$shown"; }
nothing_left() {
    shown=$(portisolatectl plane show && portisolatectl group list && portisolatectl pair list && portisolatectl matrix)
    ! grep -qE 'red|blue|veth|vm|two-way' <<<"$shown"
}

# isolated RED RED BLUE: as the policy says, with the uplink.
isolated() {
    until_true matrix_is '-ooo o-ox oo-x oxx-' uplink "$@" || fail 'not isolated by the policy'
    until_true all_held || fail 'not all is held'
    shown=$(portisolatectl why "$1" "$3")
    grep -q 'policy tenants' <<<"$shown" || fail 'why does not know the policy'
}

make_daemon() {
    export PORTISOLATE_ROOT=$1 PATH=$programs:/usr/sbin:/sbin:$PATH
    unset NOTIFY_SOCKET JOURNAL_STREAM
    mkdir -p "$1"/{tmp,run,etc/portisolate}
    printf 'plane linux\nbridge br0\nclosed red-* blue-* veth*\n' >"$1/etc/portisolate/board.conf"
    cp "$top/boards/linux/portisolate.conf" "$1/etc/portisolate/"
    cat >"$1/etc/portisolate/isolation.conf" <<'POLICY'
policy tenants
  promiscuous uplink
  community red red-* alias:red
  community blue blue-* alias:blue
  isolated veth*
POLICY
    portisolate 2>"$1/daemon.log" &
    until_true portisolatectl plane show >/dev/null 2>&1
    portisolatectl keep 2>"$1/keep.log" &
}

make_uplink() {
    ip netns add outside
    ip link add uplink type veth peer name eth0 netns outside
    ip -n outside address add 10.9.0.1/24 dev eth0
    ip -n outside link set eth0 up
    ip link set uplink master br0 up
}

# Pings of containers: real frames, both of what is to pass and of what is not.
reaches() { ip netns exec "$1" ping -q -c 1 -W 1 "$2" >/dev/null; }

# cni ADD|DEL CONTAINER TENANT, as a runtime calls a chain of plugins. An address is the last digit of the container.
cni() {
    local list result
    export CNI_COMMAND=$1 CNI_CONTAINERID=$2 CNI_NETNS=/run/netns/$2 CNI_IFNAME=eth0 CNI_PATH=/usr/lib/cni
    list="{\"cniVersion\": \"1.0.0\", \"name\": \"$3\", \"plugins\": [
        {\"type\": \"bridge\", \"bridge\": \"br0\", \"ipam\": {\"type\": \"static\", \"addresses\": [{\"address\": \"10.9.0.${2#c}/24\"}]}},
        {\"type\": \"cni-tenant\", \"tenant\": \"$3\"}]}"
    result=$(jq '{cniVersion, name} + .plugins[0]' <<<"$list" | /usr/lib/cni/bridge) || fail "bridge: $result"
    [ "$1" = ADD ] || return 0
    result=$(jq --argjson former "$result" '{cniVersion, name, prevResult: $former} + .plugins[1]' <<<"$list" |
        "$top/boards/linux/cni-tenant") || fail "cni-tenant: $result"
    port=$(jq -r '.interfaces[] | select(.name | startswith("veth")).name' <<<"$result")
}

maker_cni() {
    local ports=() container
    for container in c2:red c3:red c4:blue; do
        ip netns add "${container%:*}"
        cni ADD "${container%:*}" "${container#*:}"
        ports+=("$port")
        [ ${#ports[@]} -gt 1 ] || make_uplink
    done
    isolated "${ports[@]}"
    until_true reaches c2 10.9.0.1 && until_true reaches c4 10.9.0.1 && until_true reaches c2 10.9.0.3 || fail 'no pings'
    ! reaches c2 10.9.0.4 && ! reaches c4 10.9.0.3 || fail 'a ping from tenant to tenant'
    for container in c2:red c3:red c4:blue; do cni DEL "${container%:*}" "${container#*:}"; done
}

maker_qemu() {
    local port guests=()
    ip link add br0 type bridge && ip link set br0 up && make_uplink
    printf '#!/bin/sh\nip link set "$1" master br0 up\n' >/run/ifup && chmod +x /run/ifup
    for port in red-1 red-2 blue-1; do
        qemu-system-x86_64 -M none -S -nodefaults -display none \
            -netdev "tap,id=net0,ifname=$port,script=/run/ifup,downscript=no" &
        guests+=($!)
    done
    isolated red-1 red-2 blue-1
    kill "${guests[@]}"
}

maker_libvirt() {
    local port
    export LIBVIRT_DEFAULT_URI=qemu:///system HOME=/run
    printf '%s\n' 'user = "root"' 'group = "root"' 'security_driver = "none"' 'namespaces = []' 'remember_owner = 0' \
        'cgroup_controllers = []' 'stdio_handler = "file"' >/etc/libvirt/qemu.conf
    libvirtd 2>"$PORTISOLATE_ROOT/libvirtd.log" &
    until_true virsh version >/dev/null 2>&1
    virsh net-create /dev/stdin <<<"<network><name>tenants</name><bridge name='br0'/><dns enable='no'/></network>" || fail network
    make_uplink
    for port in red-1 red-2 blue-1; do
        virsh create --paused /dev/stdin <<XML || fail "$port"
<domain type='qemu'><name>$port</name><memory unit='MiB'>16</memory><os><type arch='x86_64' machine='pc'>hvm</type></os>
  <devices><interface type='network'><source network='tenants'/><target dev='$port'/></interface></devices></domain>
XML
    done
    isolated red-1 red-2 blue-1
    for port in red-1 red-2 blue-1; do virsh destroy "$port" || fail "$port"; done
}

# The ports of a tenant are known by their alias here, which udev gives as the .link file says.
maker_networkd() {
    local port folder=/run/systemd/network
    mkdir -p $folder
    install -d -o systemd-network -g systemd-network /run/systemd/netif
    printf '[NetDev]\nName=br0\nKind=bridge\n' >$folder/br0.netdev
    printf '[Match]\nName=br0\n[Network]\nConfigureWithoutCarrier=yes\n' >$folder/br0.network
    printf '[Match]\nName=vm* uplink\n[Network]\nBridge=br0\n' >$folder/ports.network
    printf '[Match]\nOriginalName=vm1 vm2\n[Link]\nAlias=red\n' >$folder/20-red.link
    printf '[Match]\nOriginalName=vm3\n[Link]\nAlias=blue\n' >$folder/20-blue.link
    for port in vm1 vm2 vm3; do
        printf '[NetDev]\nName=%s\nKind=veth\n[Peer]\nName=guest-%s\n' $port $port >$folder/$port.netdev
    done
    mount -o remount,bind,ro /sys  # so it waits for no udev
    /lib/systemd/systemd-networkd 2>"$PORTISOLATE_ROOT/networkd.log" &
    until_true test -e /sys/class/net/br0/brif/vm3
    mount -o remount,bind,rw /sys
    for port in vm1 vm2 vm3; do udevadm test-builtin net_setup_link /sys/class/net/$port >/dev/null 2>&1; done
    make_uplink
    isolated vm1 vm2 vm3
    for port in vm1 vm2 vm3; do ip link delete $port; done
}

# What a maker needs; prints what is missing.
missing() {
    local -A needs=([cni]="/usr/lib/cni/bridge jq" [qemu]=qemu-system-x86_64 [libvirt]="libvirtd virsh qemu-system-x86_64"
        [networkd]="/lib/systemd/systemd-networkd udevadm")
    local program
    for program in ${needs[$1]}; do command -v "$program" >/dev/null || { echo "$program"; return 0; }; done
    case $1 in qemu | libvirt) modprobe tun 2>/dev/null; [ -c /dev/net/tun ] || echo /dev/net/tun ;; esac
}

run_maker() {
    local folder
    for folder in /run /var/lib/libvirt /var/cache/libvirt /var/log/libvirt /etc/libvirt; do
        [ ! -d $folder ] || mount -t tmpfs own $folder || exit 1
    done
    mount -t sysfs sysfs /sys && ip link set lo up || exit 1
    mkdir -p /run/root /run/netns
    make_daemon /run/root
    "maker_$1"
    until_true nothing_left || fail 'something of the ports is left'
}

if [ $# -gt 1 ]; then
    run_maker "$2"
    exit
fi
unshare --net --mount --pid --fork --mount-proc true 2>/dev/null || { echo 'no namespaces here, or no right to them'; exit 77; }
PATH=$PATH:/usr/sbin:/sbin
status=0
for maker in "${MAKERS[@]}"; do
    lacking=$(missing "$maker")
    if [ -n "$lacking" ] && [ -z "${PORTISOLATE_TESTS_UNSKIPPED:-}" ]; then
        printf 'skipped %s: %s is missing\n' "$maker" "$lacking"
    elif log=$(unshare --net --mount --pid --fork --mount-proc --kill-child "$0" "$programs" "$maker" 2>&1); then
        printf 'ok      %s\n' "$maker"
    else
        printf '%s\nFAILED  %s\n' "$log" "$maker"
        status=1
    fi
done
exit $status
