#!/usr/bin/env bash
# LIBRARY [--write]: compares the library's binary interface with the recorded one (tools/analytics.abi.xz).
#
# --write records today's interface: for a release that changes SOVERSION, or for additions, which break nobody.
# abidiff's exit status: 4 = the interface changed, 8 = it changed so that hosts built earlier would break.
set -uo pipefail
library=$1
baseline=tools/analytics.abi.xz
work=build/check
mkdir -p "$work"
# Only what headers under inc/ define is ours to promise; where a type stands in them is not.
describe() {
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --drop-private-types --headers-dir inc "$library"
}

if [ "${2:-}" = --write ]; then
    describe | xz -9e >"$baseline"
    echo "recorded $(stat -c %s "$baseline") bytes in $baseline"
    exit
fi
xz -dc "$baseline" >"$work/baseline.abi" || exit 1
# The record holds no private type, so none is compared; told of the headers here, abidiff would filter out changes of
# classes as well.
abidiff --no-show-locs --leaf-changes-only "$work/baseline.abi" "$library"
status=$?
if [ $status -ne 0 ]; then
    echo "the binary interface is not the recorded one; if that is meant: tools/check_abi.sh $library --write"
    exit 1
fi
echo "the binary interface is the recorded one"
