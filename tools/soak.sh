#!/usr/bin/env bash
# BUILD_DIR N: load and faults for N seconds against what was built there, the library first, then the collector; exit
# status 1 when an event is unaccounted for.
set -euo pipefail
status=0
"$1/soak/analytics_soak" "$2" || status=1
if [ -x "$1/collector/analytics-collector" ]; then
    python3 soak/collector_load.py "$2" "$1/collector/analytics-collector" "$1/tests/hosts/batch_host" || status=1
fi
exit "$status"
