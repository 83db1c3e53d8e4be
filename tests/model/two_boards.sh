#!/usr/bin/env bash
# Searches every state of the model of two boards, check by check; those of the second list have to find something.
# Bounded: a check that needs more than MEMORY megabytes or SECONDS fails. Needs spin and a C compiler.
set -uo pipefail
model=$(cd "$(dirname "$0")" && pwd)/two_boards.pml
MEMORY=512 SECONDS_MAX=50

if ! command -v spin >/dev/null; then
    echo "skipped: there is no spin (Debian's package of that name)"
    exit 77
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1

# search OPTION...: what the search says. A search that was not complete is none.
search() {
    rm -f pan ./*.trail
    spin -a "$@" "$model" && ${CC:-cc} -O1 -w -DSAFETY -DCOLLAPSE -DMEMLIM=$MEMORY -o pan pan.c &&
        timeout $SECONDS_MAX ./pan -m100000
}

failed=0
# check EXPECTED OPTION...: EXPECTED is what the first error has to be, empty for none.
check() {
    local expected=$1 said found
    shift
    said=$(search "$@" 2>&1)
    found=$(sed -n 's/^pan:1: \(assertion violated\|invalid end state\).*/\1/p' <<<"$said")
    if grep -q 'errors: [01]$' <<<"$said" && ! grep -Eq 'max search depth too small|MEMLIM|out of memory' <<<"$said" &&
        [ "$found" = "$expected" ]; then
        printf 'ok      %-40s %s\n' "$*" "${found:-$(sed -n 's/^ *\([0-9.e+]*\) states, stored.*/\1 states/p' <<<"$said")}"
    else
        printf '%s\nFAILED  %s: expected %s\n' "$said" "$*" "${expected:-no error}"
        failed=1
    fi
}

check "" -DLINK -DCHANGES=2
check "" -DRESYNC
check "" -DQUIET -DCHANGES=2
check "" -DTELLS -DCHANGES=2
check "assertion violated" -DCROSSED
check "invalid end state" -DLINK -DCHANGES=2 -DFAULT_WAITS
check "assertion violated" -DRESYNC -DFAULT_FIRST
check "assertion violated" -DQUIET -DFAULT_KEEPS
check "assertion violated" -DTELLS -DCHANGES=2 -DFAULT_DEAF
exit $failed
