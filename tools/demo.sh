#!/usr/bin/env bash
# BUILD_DIR [--stay]: starts the collector, runs the example host against it and shows the events as they lie in the
# store. Exit status 0 only when every event that the host logged is there exactly once. With --stay the collector and
# its page stay until this is ended.
set -euo pipefail
build=$1
stay=${2:-}
program=$build/collector/analytics-collector
folder=$(mktemp -d "${TMPDIR:-/tmp}/analytics-demo-XXXXXX")
store=$folder/events.db
collector=

clean_up() {
    [ -z "$collector" ] || kill "$collector" 2>/dev/null || true
    rm -rf "$folder"
}
trap clean_up EXIT

fail() {
    echo "demo: $*" >&2
    exit 1
}

case "$stay" in "" | --stay) ;; *) fail "the only word that it takes is --stay" ;; esac

"$program" serve --store "$store" --listen 127.0.0.1:0 --disk-reserve 0 >"$folder/addresses" 2>"$folder/log" &
collector=$!
for _ in $(seq 1000); do
    grep -q '^page at' "$folder/addresses" || ! kill -0 "$collector" 2>/dev/null || { sleep 0.01 && continue; }
    break
done
grep -q '^page at' "$folder/addresses" || fail "the collector did not start: $(cat "$folder/log")"
url=$(sed -n 's/^uploads at //p' "$folder/addresses")

# Connecting a datagram socket sends nothing: it asks the routes, as the library does.
mode=
if ! { : >/dev/udp/192.0.2.1/9; } 2>/dev/null && ! { : >/dev/udp/2001:db8::1/9; } 2>/dev/null; then
    mode=offline
    echo "This machine has no route to any network, so the library counts it as offline and gives up queued uploads."
    echo "Both uploads of this demo therefore wait for their outcome."
fi

echo "== the host: build/release/examples/host $url FOLDER $mode"
host_status=0
timeout 150 "$build/examples/host" "$url" "$folder" $mode >"$folder/host" || host_status=$?
# The host's oddest event holds raw control bytes, which are no business of a terminal.
LC_ALL=C sed -z 's/\a/\\x07/g; s/\x1b/\\x1b/g; s/\xff/\\xff/g' "$folder/host"
[ "$host_status" -eq 0 ] || fail "the host ended with status $host_status"

echo
echo "== the store, as analytics-collector export shows it"
"$program" export --store "$store" | tee "$folder/export"
echo
"$program" report --store "$store"

# What was logged goes through a store of its own, as a log file: then both are written by the same rules.
LC_ALL=C sed -n 's/^logged \(.*\)$/[ 3, "2026-01-01 00:00:00", "a", "1", "i", "n", \1 ]/p' "$folder/host" >"$folder/logged.log"
[ -s "$folder/logged.log" ] || fail "the host logged nothing"
"$program" import "$folder/logged.log" --store "$folder/logged.db" >"$folder/import"
events() { # FILE: the members of each event, sorted
    LC_ALL=C sed 's/^.*,"line":[0-9]*,"event"://' "$1" | LC_ALL=C sort
}
"$program" export --store "$folder/logged.db" >"$folder/logged"
diff <(events "$folder/logged") <(events "$folder/export") >&2 || fail "what arrived (>) is not what was logged (<)"
[ ! -e "$folder/events.log" ] || fail "the event log file is still there"
echo
echo "All $(wc -l <"$folder/export") events arrived, each exactly once."
if [ -n "$stay" ]; then
    echo "The page stays at $(sed -n 's/^page at //p' "$folder/addresses") until you end this (Ctrl-C)."
    wait "$collector"
fi
