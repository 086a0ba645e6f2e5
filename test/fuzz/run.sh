#!/usr/bin/env bash
# Builds the fuzz preset and runs every fuzz target in turn.
#
#   test/fuzz/run.sh [SECONDS]   each target for SECONDS (default 30)
#   test/fuzz/run.sh --long      each target until 10 million executions, the
#                                documented long run (hours: see
#                                docs/reliability.md)
#   test/fuzz/run.sh 0           only replays the committed seeds
#   FUZZ_TARGETS="frame_fuzzer" test/fuzz/run.sh 1800
#                                only the named targets
#
# The working corpus grows in build/fuzz/corpus/<target> (the committed seeds
# in test/fuzz/corpus/<target> are read, never written); findings land in
# build/fuzz/findings/<target>/. Inputs are capped at 50 kB and one input
# may take at most 1 s before it counts as a hang. The goal is tighter: no
# input slower than 100 ms. libFuzzer's -report_slow_units counts whole
# seconds, so after each run the script times every corpus input itself;
# one over 100 ms is replayed, and if it is slow again it is a finding too.
# Prints the executions per target and the slowest input; exits non-zero
# when any target found anything.
set -u

LONG_RUNS=10000000
SLOW_MS=100
MAX_LEN=51200
read -r -a TARGETS <<<"${FUZZ_TARGETS:-parcel_fuzzer record_fuzzer reply_fuzzer stub_fuzzer frame_fuzzer}"

seconds=30
long=0
case "${1:-}" in
    --long) long=1 ;;
    -h | --help)
        sed -n '2,20p' "$0"
        exit 0
        ;;
    "") ;;
    *[!0-9]*)
        echo "usage: $0 [SECONDS | --long]" >&2
        exit 2
        ;;
    *) seconds=$1 ;;
esac

source_dir=$(cd "$(dirname "$0")/../.." && pwd)
build_dir=$source_dir/build/fuzz
cd "$source_dir" || exit 2

echo "== building the fuzz preset"
if ! cmake --preset fuzz >/dev/null || ! cmake --build --preset fuzz -j2; then
    echo "build failed" >&2
    exit 2
fi

# Times every input of the given directories once: "MS FILE" lines, slowest
# last.
time_inputs()
{
    local binary=$1
    shift
    find "$@" -type f -print0 | xargs -0 -r -n 400 "$binary" 2>&1 |
        sed -n 's/^Executed \(.*\) in \([0-9]*\) ms$/\2 \1/p' | sort -n
}

# A slow input counts only when it is slow again on its own: a busy machine
# can stall any single run. Prints the best of three runs in ms.
best_of_three()
{
    "$1" -runs=3 "$2" 2>&1 | sed -n 's/^Executed .* in \([0-9]*\) ms$/\1/p' | sort -n | head -1
}

findings=0
summary=()
for target in "${TARGETS[@]}"; do
    binary=$build_dir/bin/$target
    seeds=$source_dir/test/fuzz/corpus/$target
    corpus=$build_dir/corpus/$target
    artifacts=$build_dir/findings/$target
    log=$build_dir/findings/$target.log
    mkdir -p "$corpus" "$artifacts"

    if [ "$long" -eq 1 ]; then
        echo "== $target: $LONG_RUNS executions"
        limit=(-runs=$LONG_RUNS)
    elif [ "$seconds" -eq 0 ]; then
        echo "== $target: replaying the seeds"
        limit=(-runs=0)
    else
        echo "== $target: ${seconds} s"
        limit=(-max_total_time="$seconds")
    fi
    started=$(date +%s)
    "$binary" "${limit[@]}" -max_len=$MAX_LEN -timeout=1 -print_final_stats=1 \
        -artifact_prefix="$artifacts/" "$corpus" "$seeds" >"$log" 2>&1
    status=$?
    took=$(($(date +%s) - started))

    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
    result=ok
    slowest_ms=?
    if [ "$status" -ne 0 ]; then
        result="FINDING (exit $status, see $log and $artifacts)"
        findings=$((findings + 1))
        grep -E "invariant broken|ERROR: |SUMMARY: " "$log" | head -5
    else
        timings=$(time_inputs "$binary" "$corpus" "$seeds")
        slowest_ms=$(tail -1 <<<"$timings" | cut -d' ' -f1)
        while read -r ms file; do
            [ -n "$ms" ] && [ "$ms" -gt "$SLOW_MS" ] || continue
            again=$(best_of_three "$binary" "$file")
            if [ -n "$again" ] && [ "$again" -gt "$SLOW_MS" ]; then
                cp "$file" "$artifacts/"
                result="FINDING (input takes ${again} ms: $file)"
                findings=$((findings + 1))
                break
            fi
            echo "   $file: ${ms} ms once, ${again:-?} ms on replay (machine load)"
        done <<<"$timings"
    fi
    line=$(printf '%-14s %10s executions in %5s s %7s exec/s  slowest input %s ms  %s' "$target" "${runs:-?}" \
        "$took" "${rate:-?}" "${slowest_ms:-?}" "$result")
    echo "$line"
    summary+=("$line")
done

if [ "$long" -eq 1 ]; then
    echo "== summary ($LONG_RUNS executions per target)"
else
    echo "== summary (${seconds} s per target)"
fi
printf '%s\n' "${summary[@]}"
if [ "$findings" -ne 0 ]; then
    echo "$findings target(s) with findings"
    exit 1
fi
echo "no findings"
