#!/usr/bin/env bash
# usage: floors_test.sh FOLDER-OF-THE-SOURCES
# Every folder is a floor: its files include one another and those of the floors below, never of one above or beside,
# and no circle of modules leads back to where it began (a module is a source with its header).
set -euo pipefail
cd "$1"

# One house a line, from its roof down to the ground.
houses='daemon/start daemon/show daemon/api daemon/rules daemon/hw daemon/tables daemon/base platform wire
host/start host/linux host/board host/planes host/sockets host/services common platform wire
web/start web/routes web/upstream web/http lib/answers lib/configuration lib/link lib/text lib/interface common platform wire
ctl/commands ctl/text lib/answers lib/configuration lib/link lib/text lib/interface common platform wire'

includes=$(grep -rHo '^ *# *include *"[^"]*"' daemon host ctl web lib common platform wire \
    --include=*.cpp --include=*.h |
    sed -E 's/: *# *include *"/ /; s/"$//')
[ -n "$includes" ] || { echo "no includes found"; exit 2; }

status=0
awk -v houses="$houses" '
    BEGIN {
        lines = split(houses, house, "\n")
        for (i = 1; i <= lines; i++) {
            count = split(house[i], floor, " ")
            for (a = 1; a <= count; a++) for (b = a; b <= count; b++) allowed[floor[a], floor[b]]
        }
    }
    { from = $1; to = $2; sub(/\/[^\/]*$/, "", from); sub(/\/[^\/]*$/, "", to) }
    !((from, to) in allowed) { print $1 " includes " $2 ", which is not below it"; bad = 1 }
    $2 ~ /^lib\/interface\// && $1 !~ /^lib\/interface\// && $2 != "lib/interface/portisolate.h" {
        print $1 " includes " $2 ", which is not the interface of the library"; bad = 1
    }
    END { exit bad }' <<<"$includes" || status=1
if ! circles=$(sed -E 's/\.(cpp|h)( |$)/\2/g' <<<"$includes" | tsort 2>&1 >/dev/null); then
    printf '%s\n' "$circles"
    status=1
fi
exit $status
