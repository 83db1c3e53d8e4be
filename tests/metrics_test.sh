#!/usr/bin/env bash
# usage: metrics_test.sh FOLDER-OF-THE-PROGRAMS FOLDER-OF-THE-BOARD FOLDER-OF-THE-PACKAGING
# The metrics of a daemon at work as Prometheus reads them, in both formats, and the rules and the dashboard that are
# made of them. Exits with 77 where promtool is missing.
set -euo pipefail
programs=$(realpath "$1") board=$(realpath "$2") packaging=$(realpath "$3")
for tool in promtool curl; do
    command -v $tool >/dev/null || { echo "skipped: no $tool here; ./test.sh --web installs it"; exit 77; }
done

root=$(mktemp -d)
export PORTISOLATE_ROOT=$root
daemon='' web=''
cleanup() {
    [ -z "$web" ] || kill "$web" || true
    [ -z "$daemon" ] || kill "$daemon" || true
    rm -rf "$root"
}
trap cleanup EXIT
mkdir -p "$root/tmp" "$root/etc/portisolate"
cp "$board"/*.conf "$root/etc/portisolate/"
"$programs/portisolate" 2>"$root/daemon.log" &
daemon=$!
"$programs/portisolate-web" --socket "$root/web.socket" >"$root/web.log" &
web=$!

metrics() { curl -s --unix-socket "$root/web.socket" "$@"; }
# await PATTERN: the metrics once they have such a line.
await() {
    local tries
    for tries in $(seq 100); do
        metrics http://localhost/metrics >"$root/plain" || true
        if grep -q "$1" "$root/plain"; then return; fi
        sleep 0.1
    done
    echo "no metric $1"
    exit 1
}
await '^portisolate_monitor_connected 1'
await "^portisolate_clients 1"
"$programs/portisolatectl" group add 5 ge1/1 ge1/2
"$programs/portisolatectl" board unplug ge1/2
"$programs/portisolatectl" pair add ge1/1 ge1/1 2>/dev/null || true
await '^portisolate_requests_total{object="group",operation="activate",result="ok"} 2'
await '^portisolate_events_total{event="gone"} 1'
promtool check metrics <"$root/plain"

# promtool reads OpenMetrics when it makes blocks of it, and wants times.
metrics -H 'Accept: application/openmetrics-text' http://localhost/metrics >"$root/open"
sed -E '/^#/! s/$/ 1700000000/' "$root/open" >"$root/timed"
promtool tsdb create-blocks-from openmetrics "$root/timed" "$root/blocks" >/dev/null
[ "$(tail -1 "$root/open")" = '# EOF' ]

promtool check rules "$packaging/prometheus/portisolate.rules.yml"
promtool test rules "$packaging/prometheus/portisolate.rules.test.yml"
# What they are made of exists.
known=$(sed -nE 's/^# TYPE ([a-z_]+) .*/\1/p' "$root/plain")
for name in $(grep -ohE 'portisolate_[a-z_]+(_total|[a-z])' "$packaging"/prometheus/portisolate.rules.yml \
    "$packaging/grafana/portisolate.json" | sort -u); do
    grep -qx "$name" <<<"$known" || { echo "there is no metric $name"; exit 1; }
done
