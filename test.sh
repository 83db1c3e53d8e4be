#!/usr/bin/env bash
# Builds everything and runs the tests. Needs only Debian; ends with "N passed, N failed".
set -uo pipefail
top=$(cd "$(dirname "$0")" && pwd)
. "$top/scripts/build.sh"

usage() {
    cat <<TEXT
usage: ./test.sh [--sanitize] [--cross] [--fuzz] [--lint] [--demo] [--kernel] [--makers]
                 [--span] [--web] [--selftests] [--all] [--mutants N]

Installs missing packages, builds, and runs all tests. The options add to this:
  --sanitize  all tests with the address and undefined-behaviour sanitizers, and with the thread sanitizer
  --cross     the unit tests for other word sizes and byte orders: powerpc (32-bit, big-endian), s390x (64-bit,
              big-endian) and aarch64 under emulation, and i386
  --fuzz      every fuzz target for a minute
  --lint      format and static analysis; builds the benchmarks, too
  --demo      the demonstrations
  --kernel    bonds, teams and VLANs of a bridge, under Debian's own kernel in a virtual machine, and under that of the
              release after Debian 12, which has tables of one's own
  --makers    ports that CNI, QEMU, libvirt and systemd-networkd make
  --span      two machines whose groups span, with FRR's bgpd and Ansible's playbook
  --web       with the page in a browser and the metrics read by promtool, for which chromium and prometheus are
              installed
  --all       all of the above
  --selftests the kernel's own tests of its bridge, with the daemon beside them (downloads the kernel's source; an hour)
  --mutants N plants N small faults, one at a time, and shows those that no test notices
TEXT
}

sanitize=no cross=no fuzz=no lint=no demo=no kernel=no makers=no span=no web=no selftests=no mutants=0
while [ $# -gt 0 ]; do
    case $1 in
        --sanitize) sanitize=yes ;;
        --cross) cross=yes ;;
        --fuzz) fuzz=yes ;;
        --lint) lint=yes ;;
        --demo) demo=yes ;;
        --kernel) kernel=yes ;;
        --makers) makers=yes ;;
        --span) span=yes ;;
        --web) web=yes ;;
        --selftests) selftests=yes ;;
        --all) sanitize=yes cross=yes fuzz=yes lint=yes demo=yes kernel=yes makers=yes span=yes web=yes ;;
        --mutants) mutants=${2-} && shift ;;
        -h | --help) usage; exit 0 ;;
        *) printf 'test.sh: unknown argument "%s"\n' "$1" >&2; usage >&2; exit 2 ;;
    esac
    shift
done
if ! [[ $mutants =~ ^[0-9]+$ ]]; then
    printf 'test.sh: --mutants needs a number\n' >&2
    exit 2
fi

packages=("${BUILD_PACKAGES[@]}" libgtest-dev dpkg-dev devscripts file lintian mandoc curl iproute2 nftables spin pkgconf
    python3)
[ $lint = no ] || packages+=(clang-format clang-tidy libbenchmark-dev)
[ $cross = no ] || packages+=(g++-{powerpc,s390x,aarch64}-linux-gnu qemu-user googletest)
[ $kernel$selftests = nono ] || packages+=(libteam-utils systemd "${KERNEL_VM_PACKAGES[@]}")
[ $web = no ] || packages+=(python3 chromium chromium-driver prometheus)
[ $makers = no ] || packages+=(containernetworking-plugins iputils-ping jq libvirt-{clients,daemon,daemon-driver-qemu}
    qemu-system-x86 systemd udev)
[ $span = no ] || packages+=(frr ansible-core iputils-ping)
[ "$mutants" -eq 0 ] || packages+=(python3)
need_packages "${packages[@]}"
# The package of the 32-bit compiler is named after the version of the installed compiler.
[ $cross = no ] || need_packages "g++-$(g++ -dumpversion | cut -d. -f1)-multilib"

passed=0 failed=0 recap=$(mktemp)
trap 'rm -f "$recap"' EXIT

# shown LOG WHAT: the output of what failed, and what matters of it once more at the end of all.
shown() {
    cat "$1"
    printf -- '-- %s\n' "$2" >>"$recap"
    grep -E -B12 -A12 'Failure$|\*\*\*|FAILED|rror:|ERROR|WARNING|runtime error' "$1" | tail -n 80 >>"$recap" || tail -n 30 "$1" >>"$recap"
}

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
        shown "$log" "$what"
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
        shown "$log" "$1"
        failed=$((failed + 1))
    else
        bad=$(sed -E 's/.* ([0-9]+) tests failed.*/\1/' <<<"$summary")
        total=$(sed -E 's/.* out of ([0-9]+)/\1/' <<<"$summary")
        [ "$bad" -eq 0 ] || shown "$log" "$1"
        skipped=$(grep -c '(Skipped)$' "$log")
        passed=$((passed + total - bad - skipped)) failed=$((failed + bad))
        printf '%s\n' "$summary"
        if [ "$skipped" -gt 0 ]; then
            printf '%d of them were skipped:\n' "$skipped"
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

# Files that this build leaves out have no command of their own there, and get a plain one.
lint_tidy() {
    local all built status=0
    all=$(find "$top"/{daemon,common,host,lib,ctl,web} -name '*.cpp' | sort)
    built=$(sed -n 's/^ *"file": "\(.*\)"$/\1/p' "$top/build-test/compile_commands.json" | sort -u)
    comm -12 <(echo "$all") <(echo "$built") | xargs -d '\n' -n 4 -P 2 clang-tidy --quiet -p "$top/build-test" || status=1
    comm -23 <(echo "$all") <(echo "$built") | xargs -r -d '\n' -I FILE clang-tidy --quiet FILE -- -std=c++20 -I"$top" ||
        status=1
    return $status
}

# A demonstration whose reader goes away leaves neither a daemon nor a folder. The daemons know their folder from their
# environment.
demo_cut_short() {
    local folder left process
    folder=$(mktemp -d)
    TMPDIR=$folder "$top/demo.sh" two-boards 2>&1 | sed '/group list/q'
    left=$(ls -A "$folder")
    for process in $(grep -lsz "^PORTISOLATE_ROOT=$folder" /proc/[0-9]*/environ | cut -d/ -f3); do
        left+=" process $process"
        kill "$process"
    done
    rm -rf "$folder"
    [ -z "$left" ] || { echo "left behind: $left"; return 1; }
}

# The tests under a kernel, that of this release of Debian or another's: with an option of scripts/kernel_vm.sh or none.
kernel_tests() {
    PORTISOLATE_TESTS_UNSKIPPED=1 "$top/scripts/kernel_vm.sh" "$@" "$top/build-test/tests/linux_test"
}

# The daemon's package, and what it needs, on a machine that boots by systemd.
boot_package() {
    local packages=("$top"/build-test/package/{libportisolate0,portisolate,portisolate-web}_*.deb)
    "$top/scripts/kernel_vm.sh" "$@" -b "$top/tests/boot_test.sh prepare ${packages[*]}" \
        "$top/tests/boot_test.sh" check "${packages[@]}"
}

make_package() {
    local folder=$top/build-test/package
    rm -rf "$folder"
    cpack --config "$top/build-test/CPackConfig.cmake" -G DEB -B "$folder"
}

# check_kernels WHAT COMMAND: under both kernels at a time, since a virtual machine keeps one core busy.
check_kernels() {
    local said other
    said=$(mktemp)
    "$2" -k trixie >"$said" 2>&1 &
    other=$!
    check "$1" "$2"
    finished() {
        wait "$other" && return 0
        cat "$said"
        return 1
    }
    check "$1, under the kernel of trixie" finished
    rm -f "$said"
}

say "building and testing"
bench=OFF
[ $lint = no ] || bench=ON
tests_of "$top/build-test" -DCMAKE_BUILD_TYPE=Debug -DPORTISOLATE_BENCH=$bench

# Line numbers are all that is needed of what is for debuggers; a quarter less time to compile.
quick=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1)
if [ $sanitize = yes ]; then
    say "with the address and undefined-behaviour sanitizers"
    tests_of "$top/build-asan" "${quick[@]}" -DPORTISOLATE_SANITIZE=address,undefined
    say "with the thread sanitizer"
    tests_of "$top/build-tsan" "${quick[@]}" -DPORTISOLATE_SANITIZE=thread
fi
if [ $cross = yes ]; then
    for machine in powerpc s390x aarch64 i386; do
        say "the unit tests for $machine"
        tests_of "$top/build-$machine" "${quick[@]}" -DCMAKE_TOOLCHAIN_FILE="$top/tests/$machine.cmake"
    done
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
    check_kernels "bridges, bonds, teams and VLANs" kernel_tests
    check "the packages" make_package
    check_kernels "boot, restart, upgrade, removal of the package" boot_package
fi
if [ $makers = yes ]; then
    say "makers of ports"
    if unshare --net --mount --pid --fork --mount-proc true 2>/dev/null; then
        check "makers of ports" env PORTISOLATE_TESTS_UNSKIPPED=1 "$top/tests/makers_test.sh" "$top/build-test"
    else
        check "makers of ports" env PORTISOLATE_TESTS_UNSKIPPED=1 "$top/scripts/kernel_vm.sh" "$top/tests/makers_test.sh" \
            "$top/build-test"
    fi
fi
if [ $span = yes ]; then
    say "groups that span machines"
    if missing=$(. "$top/boards/span/demo.sh" && span_missing); then
        check "two machines" env PORTISOLATE_TESTS_UNSKIPPED=1 "$top/tests/span_test.sh" "$top/build-test"
    else
        check "two machines" env PORTISOLATE_TESTS_UNSKIPPED=1 "$top/scripts/kernel_vm.sh" "$top/tests/span_test.sh" \
            "$top/build-test"
    fi
fi
if [ $selftests = yes ]; then
    say "the kernel's own tests"
    check "the kernel's own tests" "$top/scripts/selftests.sh"
fi
if [ $demo = yes ]; then
    say "demonstrations"
    check "demo.sh" "$top/demo.sh"
    check "demo.sh two-boards" "$top/demo.sh" two-boards
    check "demo.sh two-boards, cut short" demo_cut_short
    if missing=$(. "$top/boards/linux/demo.sh" && namespaces_missing); then
        check "demo.sh linux" "$top/demo.sh" linux
    else
        printf 'skipped demo.sh linux: no network namespaces: %s\n' "$missing"
    fi
    if missing=$(. "$top/boards/span/demo.sh" && span_missing); then
        check "demo.sh span" "$top/demo.sh" span
    else
        printf 'skipped demo.sh span: %s\n' "$missing"
    fi
fi
if [ "$mutants" -gt 0 ]; then
    say "$mutants faults, one at a time"
    "$top/scripts/mutants" "$mutants" || failed=$((failed + 1))
fi

if [ -s "$recap" ]; then
    say "what failed, in short"
    cat "$recap"
fi
printf '\n%d passed, %d failed\n' "$passed" "$failed"
[ "$failed" -eq 0 ]
