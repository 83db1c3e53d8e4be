#!/usr/bin/env bash
# Runs a command under Debian's own kernel in a virtual machine. It has what the kernel of this machine may lack:
# bonds, teams, VLAN devices and VLAN filtering. The machine is emulated, so it needs no support by the processor, but
# it is slow: build first, and run only the test there.
# usage: scripts/kernel_vm.sh [-k SUITE] [-b PREPARATION] COMMAND [ARGUMENT]...
#
# -k takes the kernel of another release of Debian than this one, such as trixie, from the same archive.
# -b boots with systemd, after PREPARATION, a shell command, has run in its place; COMMAND is then a service, the last of
# multi-user.target.
# The command runs as root in the project's folder. It sees the files of this machine; whatever it writes is lost. Its
# output is shown, and its exit status is that of this script. KERNEL_VM_SECONDS is the time limit (900).
# Needs qemu-system-x86, busybox-static, cpio and kmod. The package of the kernel is downloaded once, by apt, into
# $XDG_CACHE_HOME/portisolate-kernel or else build-kernel.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/build.sh"
suite='' preparation=''
while getopts k:b: option; do
    case $option in
        k) suite=$OPTARG ;;
        b) preparation=$OPTARG ;;
        *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[ $# -gt 0 ] || { sed -n '2,10s/^# //p' "$0" >&2; exit 2; }
[ "$(uname -m)" = x86_64 ] || { echo "kernel_vm.sh: runs on amd64 only" >&2; exit 1; }
need_packages "${KERNEL_VM_PACKAGES[@]}"

cache=${XDG_CACHE_HOME:+$XDG_CACHE_HOME/portisolate-kernel}
cache=${cache:-$top/build-kernel}${suite:+/$suite}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What the first steps need before the root is mounted, where the kernel has it as a module; everything else is loaded
# on demand.
BOOT_MODULES=(virtio_ring virtio virtio_pci_modern_dev virtio_pci_legacy_dev virtio_pci netfs fscache 9pnet 9pnet_virtio
    9p overlay)

# Another release gets package lists of its own, from the archive that this machine uses.
apt_options=()
use_suite() {
    local archive lists=$work/apt/lists
    archive=$(awk '/^URIs:/ { print $2; exit } /^deb / { print $2; exit }' \
        /etc/apt/sources.list.d/*.sources /etc/apt/sources.list 2>/dev/null) || true
    mkdir -p "$lists/partial" "$work/apt/archives/partial"
    printf 'deb %s %s main\n' "${archive:?apt knows no archive}" "$suite" >"$work/apt/sources.list"
    apt_options=(-o Dir::Etc::SourceList="$work/apt/sources.list" -o Dir::Etc::SourceParts=- -o Dir::State::Lists="$lists"
        -o Dir::Cache="$work/apt" -o APT::Sandbox::User=root)
    apt-get "${apt_options[@]}" update -q >/dev/null
}

fetch_kernel() {
    local package
    [ -z "$suite" ] || use_suite
    package=$(apt-cache "${apt_options[@]}" depends linux-image-amd64 2>/dev/null |
        grep -oE 'linux-image-[0-9][^ ]*' | head -n 1)
    say "downloading ${package:?apt knows no kernel}"
    mkdir "$work/package"
    (cd "$work/package" && apt-get "${apt_options[@]}" download "$package" >/dev/null 2>&1)
    rm -rf "$cache/kernel.new" "$cache/kernel"
    dpkg -x "$work/package"/*.deb "$cache/kernel.new"
    [ -d "$cache/kernel.new/lib" ] || ln -s usr/lib "$cache/kernel.new/lib"
    depmod -b "$cache/kernel.new" "$(basename "$cache"/kernel.new/lib/modules/*)"
    mv "$cache/kernel.new" "$cache/kernel"
}

# The root of the virtual machine is the root of this one with a layer in memory above it. The project's folder is
# mounted separately, since it may be in a folder that is empty there, such as /tmp.
make_initrd() {
    local module found
    mkdir -p "$work/initrd/bin" "$work/initrd/modules"
    cp "$(command -v busybox)" "$work/initrd/bin/busybox"
    for module in "${BOOT_MODULES[@]}"; do
        found=$(find "$cache/kernel/lib/modules/" -name "$module.ko*" | head -n 1)
        [ -z "$found" ] || cp "$found" "$work/initrd/modules/"
    done
    cat >"$work/initrd/init" <<INIT
#!/bin/busybox sh
/bin/busybox --install -s /bin
PATH=/bin
mkdir -p /proc /sys /dev /root /lower /upper
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
for module in ${BOOT_MODULES[*]}; do [ ! -e /modules/\$module.ko* ] || insmod /modules/\$module.ko*; done
options=trans=virtio,version=9p2000.L,msize=262144
mount -t 9p -o \$options,ro,cache=loose root /lower
mount -t tmpfs upper /upper
mkdir /upper/files /upper/work
mount -t overlay -o lowerdir=/lower,upperdir=/upper/files,workdir=/upper/work overlay /root
for folder in tmp run var/tmp; do mkdir -p /root/\$folder; mount -t tmpfs -o mode=1777 \$folder /root/\$folder; done
mkdir -p /root/lib/modules /root/run/result '/root$top'
mount -t 9p -o \$options,ro,cache=loose modules /root/lib/modules
mount -t 9p -o \$options,ro,cache=loose top '/root$top'
mount -t 9p -o \$options result /root/run/result
for folder in proc sys dev; do mount --move /\$folder /root/\$folder; done
exec switch_root /root /bin/bash /run/result/main
INIT
    chmod +x "$work/initrd/init"
    (cd "$work/initrd" && find . | cpio --quiet -o -H newc | gzip -1) >"$work/initrd.gz"
}

# write_main COMMAND...: writes the script that the machine runs in place of init; it ends by powering the machine off.
write_main() {
    mkdir "$work/result"
    {
        printf 'cd %q\n' "$top"
        printf 'export HOME=/tmp PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n'
        env -0 | while IFS= read -r -d '' variable; do
            case $variable in PORTISOLATE_* | GTEST_* | *SAN_OPTIONS=*) printf 'export %q\n' "$variable" ;; esac
        done
        printf 'mkdir -p /dev/pts /dev/shm; mount -t devpts devpts /dev/pts; mount -t tmpfs shm /dev/shm\n'
        printf 'ip link set lo up\n'
        [ -z "$preparation" ] || write_boot
        printf '(%s) </dev/null >>/run/result/output 2>&1\n' "$(printf '%q ' "$@")"
        printf 'echo $? >/run/result/status\nsync\necho o >/proc/sysrq-trigger\nwhile :; do sleep 1; done\n'
    } >"$work/result/main"
    : >"$work/result/output"
}

# What follows of the script then runs as a service.
write_boot() {
    cat <<BOOT
if [ \$\$ = 1 ]; then
    ($preparation) </dev/null >/run/result/output 2>&1
    cat >/etc/systemd/system/last.service <<'UNIT'
[Unit]
After=multi-user.target
[Service]
ExecStart=/bin/bash /run/result/main
UNIT
    mkdir -p /etc/systemd/system/multi-user.target.wants
    ln -s ../last.service /etc/systemd/system/multi-user.target.wants/
    ln -sf /lib/systemd/system/multi-user.target /etc/systemd/system/default.target
    exec /lib/systemd/systemd
fi
BOOT
}

shared() { printf 'local,path=%s,mount_tag=%s,security_model=none%s' "$1" "$2" "${3:-}"; }

mkdir -p "$cache"
[ -d "$cache/kernel" ] || fetch_kernel
make_initrd
write_main "$@"
version=$(basename "$cache"/kernel/lib/modules/*)
# One thread emulates both processors: with one each, a kernel that patches its code while the other runs it may panic.
timeout "${KERNEL_VM_SECONDS:-900}" qemu-system-x86_64 -accel tcg,thread=single -cpu max -m 1024 -smp 2 \
    -nographic -no-reboot -net none -kernel "$cache/kernel/boot/vmlinuz-$version" -initrd "$work/initrd.gz" \
    -append "console=ttyS0 quiet panic=1" -virtfs "$(shared / root ,readonly=on,multidevs=remap)" \
    -virtfs "$(shared "$cache/kernel/lib/modules" modules ,readonly=on)" \
    -virtfs "$(shared "$top" top ,readonly=on,multidevs=remap)" -virtfs "$(shared "$work/result" result)" \
    </dev/null >"$work/console" 2>&1 || true
cat "$work/result/output"
if [ ! -s "$work/result/status" ]; then
    echo "kernel_vm.sh: the machine ended without a status; its console:" >&2
    tail -n 60 "$work/console" >&2
    exit 1
fi
exit "$(cat "$work/result/status")"
