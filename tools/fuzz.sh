#!/usr/bin/env bash
# N [FUZZER...]: runs every fuzzer of the fuzz preset (or those named) for N seconds, or for as many runs as FUZZ_RUNS
# says, whichever is the longer. One line per fuzzer; exit status 1 when one of them found something.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
seconds=$1
shift
build=$PWD/build/fuzz/fuzz
work=$PWD/build/fuzz/found
mkdir -p "$work"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:detect_stack_use_after_return=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

if [ $# -eq 0 ]; then
    set -- $(cd "$build" && find . -maxdepth 1 -type f -name 'fuzz_*' -executable -printf '%f\n' | sort)
fi

run_one() { # FUZZER: prints its line; fails when it found something
    local fuzzer=$1 name=${1%_fast} seeds log status=0 limits=(-max_total_time="$seconds")
    seeds=$PWD/fuzz/corpus/$name
    log=$work/$fuzzer.log
    mkdir -p "$work/$fuzzer" "$seeds"
    local options=(-print_final_stats=1 -timeout=30 -rss_limit_mb=3000 -artifact_prefix="$work/$fuzzer-")
    [ ! -f "$PWD/fuzz/$name.dict" ] || options+=(-dict="$PWD/fuzz/$name.dict")
    [ ! -f "fuzz/$name.options" ] || options+=($(cat "fuzz/$name.options"))
    "$build/$fuzzer" "${options[@]}" "${limits[@]}" "$work/$fuzzer" "$seeds" >"$log" 2>&1 || status=$?
    local runs more
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    # Enough seconds, and still fewer runs than asked for: the rest.
    if [ "$status" -eq 0 ] && [ "${FUZZ_RUNS:-0}" -gt "${runs:-0}" ]; then
        more=$((FUZZ_RUNS - runs))
        "$build/$fuzzer" "${options[@]}" -runs="$more" "$work/$fuzzer" "$seeds" >"$log.more" 2>&1 || status=$?
        cat "$log.more" >>"$log"
        runs=$((runs + $(sed -n 's/^stat::number_of_executed_units: *//p' "$log.more")))
    fi
    local first last
    first=$(grep -oE 'INITED cov: [0-9]+' "$log" | head -n 1 | grep -oE '[0-9]+$' || echo 0)
    last=$(grep -oE 'cov: [0-9]+' "$log" | tail -n 1 | grep -oE '[0-9]+$' || echo 0)
    printf '%-24s %10s runs   %4d new of %5d edges   ' "$fuzzer" "${runs:-0}" $((last - first)) "$last"
    if [ "$status" -eq 0 ]; then
        echo "no finding"
    else
        echo "$(grep -m 1 -a -E 'FINDING|ERROR: |runtime error' "$log" || echo "exit status $status"); see $log"
        return 1
    fi
}

# As many at once as there are processors; each line comes whole, when its fuzzer ends.
failed=$work/failed
rm -f "$failed"
for fuzzer; do
    while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do wait -n || true; done
    { line=$(run_one "$fuzzer") || touch "$failed"; echo "$line"; } &
done
wait
[ ! -e "$failed" ]
