# Sourced by the other scripts: installs missing packages and builds a tree.

say() { printf '\n== %s\n' "$*"; }

# need_packages PACKAGE...: installs those that are missing, or says how to.
need_packages() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -q '^installed$' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local install=(apt-get install -y --no-install-recommends "${missing[@]}")
    local root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
            printf 'Packages are missing. As root, run:\n\n    apt-get update && %s\n\n' "${install[*]}" >&2
            exit 1
        fi
        root=(sudo)
    fi
    say "installing ${missing[*]}"
    "${root[@]}" apt-get update -q >/dev/null
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive "${install[@]}" >/dev/null
}

BUILD_PACKAGES=(g++ cmake ninja-build libfmt-dev nlohmann-json3-dev libedit-dev libmnl-dev libnftnl-dev libcpp-httplib-dev)
KERNEL_VM_PACKAGES=(qemu-system-x86 busybox-static cpio kmod)

# build_tree FOLDER [CMAKE OPTION]...: configures and builds there; silent unless it fails.
build_tree() {
    local folder=$1 log
    shift
    log=$(mktemp)
    if ! { cmake -S "$top" -B "$folder" -G Ninja "$@" && cmake --build "$folder"; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}
