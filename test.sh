#!/usr/bin/env bash
# Builds everything and runs the tests. Needs nothing but a Debian; ends with "N passed, N failed".
set -uo pipefail
top=$(cd "$(dirname "$0")" && pwd)
. "$top/scripts/build.sh"

usage() {
    cat <<TEXT
usage: ./test.sh [--sanitize] [--cross] [--fuzz] [--lint] [--demo] [--kernel] [--all]

Installs what is missing, builds, and runs all tests.
  --sanitize  again with the address and undefined-behaviour sanitizers, and with the thread sanitizer
  --cross     the unit tests for a 32-bit big-endian board (under emulation) and for 32-bit words here
  --fuzz      every fuzz target for a minute
  --lint      format and static analysis; the benchmarks are built, too
  --demo      the demonstrations, too
  --kernel    under Debian's own kernel, in a virtual machine: bonds, teams and VLANs of a real bridge
  --all       everything that can be switched on
TEXT
}

sanitize=no cross=no fuzz=no lint=no demo=no kernel=no
for argument in "$@"; do
    case $argument in
        --sanitize) sanitize=yes ;;
        --cross) cross=yes ;;
        --fuzz) fuzz=yes ;;
        --lint) lint=yes ;;
        --demo) demo=yes ;;
        --kernel) kernel=yes ;;
        --all) sanitize=yes cross=yes fuzz=yes lint=yes demo=yes kernel=yes ;;
        -h | --help) usage; exit 0 ;;
        *) printf 'test.sh: what is "%s"?\n' "$argument" >&2; usage >&2; exit 2 ;;
    esac
done

packages=("${BUILD_PACKAGES[@]}" libgtest-dev dpkg-dev file mandoc iproute2 nftables)
[ $lint = no ] || packages+=(clang-format clang-tidy libbenchmark-dev)
[ $cross = no ] || packages+=(g++-powerpc-linux-gnu qemu-user googletest)
[ $kernel = no ] || packages+=(libteam-utils "${KERNEL_VM_PACKAGES[@]}")
need_packages "${packages[@]}"
# The compiler for 32-bit words goes by the version of the one at hand.
[ $cross = no ] || need_packages "g++-$(g++ -dumpversion | cut -d. -f1)-multilib"

passed=0 failed=0

# check WHAT COMMAND...: counts one test; shows the output of a failed one.
check() {
    local what=$1 log
    shift
    log=$(mktemp)
    if "$@" >"$log" 2>&1; then
        passed=$((passed + 1))
        printf 'ok      %s\n' "$what"
    else
        failed=$((failed + 1))
        cat "$log"
        printf 'FAILED  %s\n' "$what"
    fi
    rm -f "$log"
}

# run_tests FOLDER: runs the tests of a build and adds up their counts.
run_tests() {
    local log summary total bad skipped
    log=$(mktemp)
    ctest --test-dir "$1" -j2 --output-on-failure --no-tests=error >"$log" 2>&1
    summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+' "$log")
    if [ -z "$summary" ]; then
        cat "$log"
        failed=$((failed + 1))
    else
        bad=$(sed -E 's/.* ([0-9]+) tests failed.*/\1/' <<<"$summary")
        total=$(sed -E 's/.* out of ([0-9]+)/\1/' <<<"$summary")
        [ "$bad" -eq 0 ] || cat "$log"
        skipped=$(grep -c '(Skipped)$' "$log")
        passed=$((passed + total - bad - skipped)) failed=$((failed + bad))
        printf '%s\n' "$summary"
        if [ "$skipped" -gt 0 ]; then
            printf '%d of them skipped:\n' "$skipped"
            awk '/: Skipped$/ { getline; print "  " $0 }' "$1/Testing/Temporary/LastTest.log" | sort -u
        fi
    fi
    rm -f "$log"
}

# tests_of FOLDER [CMAKE OPTION]...
tests_of() {
    local folder=$1
    shift
    if build_tree "$folder" "$@"; then
        run_tests "$folder"
    else
        failed=$((failed + 1))
    fi
}

sources() { find "$top" -path "$top/build*" -prune -o \( -name '*.cpp' -o -name '*.h' \) -print; }

lint_tidy() {
    find "$top"/{daemon,common,host,ctl} -name '*.cpp' -print0 |
        xargs -0 -n 4 -P 2 clang-tidy --quiet -p "$top/build-test"
}

say "building and testing"
bench=OFF
[ $lint = no ] || bench=ON
tests_of "$top/build-test" -DCMAKE_BUILD_TYPE=Debug -DPORTISOLATE_BENCH=$bench

if [ $sanitize = yes ]; then
    say "with the address and undefined-behaviour sanitizers"
    tests_of "$top/build-asan" -DCMAKE_BUILD_TYPE=Debug -DPORTISOLATE_SANITIZE=address,undefined
    say "with the thread sanitizer"
    tests_of "$top/build-tsan" -DCMAKE_BUILD_TYPE=Debug -DPORTISOLATE_SANITIZE=thread
fi
if [ $cross = yes ]; then
    say "for a 32-bit big-endian board"
    tests_of "$top/build-powerpc" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_TOOLCHAIN_FILE="$top/tests/powerpc.cmake"
    say "with 32-bit words"
    tests_of "$top/build-i386" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_TOOLCHAIN_FILE="$top/tests/i386.cmake"
fi
if [ $fuzz = yes ]; then
    say "fuzz targets, a minute each"
    check "fuzz targets" "$top/fuzz/run.sh" 60
fi
if [ $lint = yes ]; then
    say "format and static analysis"
    mapfile -t files < <(sources)
    check "format" clang-format --dry-run -Werror "${files[@]}"
    check "static analysis" lint_tidy
fi
if [ $kernel = yes ]; then
    say "under Debian's own kernel"
    check "bridges, bonds, teams and VLANs" env PORTISOLATE_TESTS_UNSKIPPED=1 \
        "$top/scripts/kernel_vm.sh" "$top/build-test/tests/linux_test"
fi
if [ $demo = yes ]; then
    say "demonstrations"
    check "demo.sh" "$top/demo.sh"
    check "demo.sh two-boards" "$top/demo.sh" two-boards
    if missing=$(. "$top/boards/linux/demo.sh" && namespaces_missing); then
        check "demo.sh linux" "$top/demo.sh" linux
    else
        printf 'skipped demo.sh linux: no network namespaces: %s\n' "$missing"
    fi
fi

printf '\n%d passed, %d failed\n' "$passed" "$failed"
[ "$failed" -eq 0 ]
