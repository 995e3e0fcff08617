#!/usr/bin/env bash
# BUILD_DIR: starts the receiving server, runs the example host against it and shows what arrived. Exit status 0 only
# when every event that the host logged arrived exactly once.
set -euo pipefail
build=$1
folder=$(mktemp -d "${TMPDIR:-/tmp}/analytics-demo-XXXXXX")
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

"$build/examples/collector" --strict --url-file "$folder/url" --events "$folder/arrived" --idle 300 >"$folder/table" 2>&1 &
collector=$!
for _ in $(seq 1000); do
    [ -s "$folder/url" ] || ! kill -0 "$collector" 2>/dev/null || { sleep 0.01 && continue; }
    break
done
[ -s "$folder/url" ] || fail "the receiving server did not start: $(cat "$folder/table")"
url=$(cat "$folder/url")

mode=
if ! "$build/examples/collector" --is-online; then
    mode=offline
    echo "This machine has no route to any network, so the library counts it as offline and gives up queued uploads."
    echo "Both uploads of this demo therefore wait for their outcome."
fi

echo "== the host: build/release/examples/host $url FOLDER $mode"
host_status=0
timeout 150 "$build/examples/host" "$url" "$folder" $mode >"$folder/host" || host_status=$?
# The host's oddest event holds raw control bytes, which are no business of a terminal.
LC_ALL=C sed -z 's/\a/\\x07/g; s/\x1b/\\x1b/g; s/\xff/\\xff/g' "$folder/host"

kill -TERM "$collector" 2>/dev/null || true
server_status=0
wait "$collector" || server_status=$?
collector=
echo
echo "== the receiving server"
cat "$folder/table"

sed -n 's/^logged //p' "$folder/host" | sort >"$folder/logged"
sort -o "$folder/arrived" "$folder/arrived"
[ "$host_status" -eq 0 ] || fail "the host ended with status $host_status"
[ "$server_status" -eq 0 ] || fail "the receiving server ended with status $server_status"
[ -s "$folder/logged" ] || fail "the host logged nothing"
diff "$folder/logged" "$folder/arrived" >&2 || fail "what arrived (>) is not what was logged (<)"
[ ! -e "$folder/events.log" ] || fail "the event log file is still there"
echo
echo "All $(wc -l <"$folder/logged") events arrived, each exactly once."
