#!/usr/bin/env bash
# PRESET [ctest arguments]: runs the tests of a built preset and lists what was skipped, each with its reason.
set -uo pipefail
preset=$1
shift
log=build/$preset/ctest.log
jobs=$(nproc)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:atexit_sleep_ms=100:suppressions=$PWD/tools/tsan.supp}
# An ordinary user's PATH lacks where squid and ip stand.
export PATH=$PATH:/usr/sbin:/sbin
echo "running every test of 'build/$preset', which takes minutes; only what does not pass is shown"
ctest --test-dir "build/$preset" -j "$jobs" --output-on-failure --no-tests=error -O "$log" "$@" | grep -vE '^ *[0-9]+/[0-9]+ Test.* Passed |^ +Start '
status=${PIPESTATUS[0]}
last=build/$preset/Testing/Temporary/LastTest.log
echo
if grep -qE ': Skipped$' "$last" 2>/dev/null; then
    echo "Skipped, with the reason each test gave:"
    awk '/: Skipped$/ { why = ""; reading = 1; next }
         reading && /^\[  SKIPPED \]/ { sub(/ \([0-9]+ ms\)$/, ""); print "  " substr($0, 14) ": " why; reading = 0 }
         reading { why = why (why == "" ? "" : " ") $0 }' "$last" | sort -u
else
    echo "Nothing was skipped."
fi
grep -E '^([0-9]+% tests passed|Total Test time)' "$log"
exit "$status"
