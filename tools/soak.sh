#!/usr/bin/env bash
# BUILD_DIR N: load and faults for N seconds against what was built there; exit status 1 when an event is unaccounted for.
set -euo pipefail
exec "$1/soak/analytics_soak" "$2"
