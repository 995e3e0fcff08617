#!/usr/bin/env bash
# PRESET [ctest arguments]: runs the tests of a built preset and lists what was skipped, each with its reason.
set -uo pipefail
preset=$1
shift
log=build/$preset/ctest.log
jobs=$(nproc)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tools/tsan.supp}
ctest --test-dir "build/$preset" -j "$jobs" --output-on-failure --no-tests=error -O "$log" "$@" | grep -vE '^ +[0-9]+/[0-9]+ Test.* Passed |^ +Start '
status=${PIPESTATUS[0]}
last=build/$preset/Testing/Temporary/LastTest.log
echo
if grep -qE ': Skipped$' "$last" 2>/dev/null; then
    echo "Skipped, with the reason each test gave:"
    grep -E ': Skipped$' "$last" | sed -E 's/^.*: ([^ ].*): Skipped$/  \1/' | sort -u
else
    echo "Nothing was skipped."
fi
grep -E '^([0-9]+% tests passed|Total Test time)' "$log"
exit "$status"
