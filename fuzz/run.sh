#!/usr/bin/env bash
# Runs every fuzz target for some seconds with the address and undefined-behaviour sanitizers.
# usage: fuzz/run.sh [SECONDS [TARGET...]]     (default: 60 seconds, all targets)
# What is found stays in build-fuzz/found. Debian: clang, libgtest-dev.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
. "$top/scripts/build.sh"
seconds=${1:-60}
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || set -- datagram requests descriptions apply

need_packages "${BUILD_PACKAGES[@]}" clang libgtest-dev
build_tree "$top/build-fuzz" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1 -DCMAKE_CXX_COMPILER=clang++ -DPORTISOLATE_FUZZ=ON \
    -DPORTISOLATE_TESTS=OFF -DPORTISOLATE_SANITIZE=address,undefined
mkdir -p "$top/build-fuzz/found"

# fuzz TARGET: the daemon's own texts are left out of what the run prints.
fuzz() {
    local target=$1 log=$top/build-fuzz/$1.log
    mkdir -p "$top/build-fuzz/corpus/$target"
    if ! "$top/build-fuzz/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 -max_len=4096 -close_fd_mask=3 \
        -print_final_stats=1 -artifact_prefix="$top/build-fuzz/found/$target-" \
        "$top/build-fuzz/corpus/$target" "$top/fuzz/corpus/$target" >"$log" 2>&1; then
        tail -n 100 "$log" >&2
        return 1
    fi
    printf '%s: clean after %s seconds, %s inputs\n' "$target" "$seconds" \
        "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
}

# Two at a time: each target keeps one core busy.
status=0
while [ $# -gt 0 ]; do
    fuzz "$1" &
    first=$!
    shift
    if [ $# -gt 0 ]; then
        fuzz "$1" || status=1
        shift
    fi
    wait "$first" || status=1
done
exit $status
