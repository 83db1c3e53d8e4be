#!/usr/bin/env bash
# Makes the Debian packages, unpacks them beside the system and uses what they bring; then the same for an installation
# below a prefix of its own. What the machine lacks a tool for is told and left out.
# usage: package_test.sh BUILD-FOLDER
set -eu
export LC_ALL=C

build=$(realpath "$1")
work=$(mktemp -d)
daemon=
finish() {
    if [ -n "$daemon" ]; then
        kill "$daemon" || true
        wait "$daemon" || true
    fi
    rm -rf "$work"
}
trap finish EXIT
fail() { printf 'FAILED: %s\n' "$*"; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
mkdir "$work/tree" "$work/packages"
for package in portisolate libportisolate0 libportisolate-dev portisolate-web; do
    dpkg-deb -x "$work/out/$package"_*.deb "$work/packages/$package"
    cp -a "$work/packages/$package/." "$work/tree"
done
dpkg-deb -e "$work"/out/portisolate_*.deb "$work/control"
dpkg-deb -e "$work"/out/portisolate-web_*.deb "$work/web-control"
folder=$(dirname "$(cd "$work/tree" && echo usr/lib/*/libportisolate.so.0)")

(cd "$work/packages" && find . ! -type d ! -path '*/doc/*' | sort) >"$work/files"
diff - "$work/files" <<END || fail 'the packages do not hold what they should'
./libportisolate-dev/usr/include/portisolate.h
./libportisolate-dev/$folder/libportisolate.so
./libportisolate-dev/$folder/pkgconfig/libportisolate.pc
./libportisolate0/$folder/libportisolate.so.0
./libportisolate0/$folder/libportisolate.so.0.1.0
./libportisolate0/usr/share/lintian/overrides/libportisolate0
./portisolate-web/usr/bin/portisolate-web
./portisolate-web/usr/lib/systemd/system/portisolate-web.service
./portisolate-web/usr/share/man/man8/portisolate-web.8.gz
./portisolate-web/usr/share/portisolate-web/grafana/portisolate.json
./portisolate-web/usr/share/portisolate-web/prometheus/portisolate.rules.test.yml
./portisolate-web/usr/share/portisolate-web/prometheus/portisolate.rules.yml
./portisolate/usr/bin/portisolatectl
./portisolate/usr/lib/systemd/system/portisolate-keep.service
./portisolate/usr/lib/systemd/system/portisolate.service
./portisolate/usr/sbin/portisolate
./portisolate/usr/share/bash-completion/completions/portisolatectl
./portisolate/usr/share/lintian/overrides/portisolate
./portisolate/usr/share/man/man5/portisolate-board.conf.5.gz
./portisolate/usr/share/man/man5/portisolate.conf.5.gz
./portisolate/usr/share/man/man8/portisolate.8.gz
./portisolate/usr/share/man/man8/portisolatectl.8.gz
./portisolate/usr/share/zsh/vendor-completions/_portisolatectl
END
version=$(dpkg-deb -f "$work"/out/portisolate_*.deb Version)
for package in portisolate libportisolate-dev portisolate-web; do
    dpkg-deb -f "$work/out/$package"_*.deb Depends | grep -qF "libportisolate0 (= $version)" || fail "$package: Depends"
done
! readelf -d "$work"/tree/usr/{bin,sbin}/portisolate* | grep -E 'R(UN)?PATH' || fail 'a path of the build is left'
export LD_LIBRARY_PATH=$work/tree/$folder
# What the documents say is there.
paths=$(grep -rhoE '/usr/share/doc/[a-z0-9/._-]*[a-z0-9]' "$work"/tree/usr/share/doc | sort -u)
[ -n "$paths" ] || fail 'the documents name no path'
for path in $paths; do [ -e "$work/tree$path" ] || fail "$path is not in the packages"; done
for script in postinst prerm postrm; do sh -n "$work/control/$script" && sh -n "$work/web-control/$script"; done
grep -q '^ExecStart=/usr/sbin/portisolate$' "$work/tree/usr/lib/systemd/system/portisolate.service" || fail 'unit'

# Hardened as it was built; sanitizers bring checks of their own.
where_there_is() { command -v "$1" >/dev/null || { echo "no $1: left out: $*"; return; }; "$@" || fail "$*"; }
if grep -q '^PORTISOLATE_SANITIZE:[A-Z]*=.' "$build/CMakeCache.txt"; then
    echo 'a build with sanitizers: left out: hardening-check, lintian'
else
    # The parts of the C++ library that are linked in have no control flow protection.
    where_there_is hardening-check --nocfprotection "$work"/tree/usr/{sbin/portisolate,bin/portisolatectl,bin/portisolate-web} \
        "$work/tree/$folder/libportisolate.so.0"
    # Which licence there is to be, the owner decides.
    where_there_is lintian --fail-on error,warning --suppress-tags no-copyright-file "$work"/out/*.deb
fi

# The daemon as packaged, on the example as packaged.
export PORTISOLATE_ROOT=$work/tree
mkdir -p "$work/tree/etc/portisolate"
cp "$work"/tree/usr/share/doc/portisolate/examples/demo/*.conf "$work/tree/etc/portisolate/"
PATH=$work/tree/usr/bin:$PATH
mkdir "$work/tree/tmp"
"$work/tree/usr/sbin/portisolate" 2>"$work/daemon.log" &
daemon=$!
until portisolatectl group add 12 ge1/1 2>/dev/null; do
    kill -0 "$daemon" || { cat "$work/daemon.log"; fail 'the daemon did not start'; }
    sleep 0.01
done

"$work/tree/usr/bin/portisolate-web" --socket "$work/web.socket" >"$work/web.log" &
web=$!
until [ -S "$work/web.socket" ]; do kill -0 $web || fail 'portisolate-web did not start'; sleep 0.01; done
curl -s --unix-socket "$work/web.socket" http://localhost/api/v1/groups | grep -q '"interface":"ge1/1"' || fail 'portisolate-web'
kill $web

# shellcheck source=/dev/null
. "$work/tree/usr/share/bash-completion/completions/portisolatectl"
completes() { # completes EXPECTED WORD...
    COMP_WORDS=(portisolatectl "${@:2}") COMP_CWORD=$(($# - 1))
    _portisolatectl portisolatectl
    [ "${COMPREPLY[*]}" = "$1" ] || fail "completion of '${*:2}' gave '${COMPREPLY[*]}', not '$1'"
}
completes 'pon2/1 pon2/2 pon2/3 pon2/4' group add 12 ge1/1 pon
completes '10 20' vlan-group add 7 ge1/1 --vlan ''
completes '--svg' matrix --s

# The examples, with what the packages bring.
examples=$work/tree/usr/share/doc/libportisolate-dev/examples
compiles() {
    # shellcheck disable=SC2046
    cc -std=c99 -Wall -Wextra -Wpedantic -Werror -o "$work/follow" "$examples/follow.c" \
        $(PKG_CONFIG_PATH=$work/tree/$folder/pkgconfig pkg-config --cflags --libs libportisolate)
}
follows() { # what one program sets is told by the other
    "$work/follow" 4 >"$work/followed" &
    local follower=$!
    until [ -s "$work/followed" ]; do kill -0 $follower || return; sleep 0.01; done
    python3 "$examples/isolate.py" 12 ge1/2 pon2/1 && wait $follower
    diff - "$work/followed" <<'END'
group 12: ge1/1
group 12, ge1/2: create
group 12, pon2/1: create
group 12, ge1/2: activate
group 12, pon2/1: activate
END
}
if grep -q '^PORTISOLATE_SANITIZE:[A-Z]*=.' "$build/CMakeCache.txt"; then
    echo 'a build with sanitizers: left out: the examples of the library'
elif command -v pkg-config >/dev/null && command -v python3 >/dev/null; then
    compiles || fail 'follow.c is not compiled'
    follows || fail 'follow.c and isolate.py'
else
    echo 'no pkg-config or python3: left out: the examples of the library'
fi

# Below a prefix of its own nothing outside it is touched, and what is configured stays.
cmake --install "$build" --prefix "$work/own" >/dev/null
echo '# mine' >"$work/own/etc/portisolate/board.conf"
cmake --install "$build" --prefix "$work/own" >/dev/null
grep -q mine "$work/own/etc/portisolate/board.conf" || fail 'a configuration was overwritten'
(unset LD_LIBRARY_PATH && "$work/own/bin/portisolatectl" --version >/dev/null) || fail 'the library is not found'
where_there_is systemd-analyze verify --man=no "$work"/own/lib/systemd/system/portisolate{,-keep,-web}.service
gunzip "$work"/own/share/man/man?/*.gz
where_there_is mandoc -Tlint -Wwarning "$work"/own/share/man/man?/*
echo 'packaged, unpacked and used'
