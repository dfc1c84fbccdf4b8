#!/usr/bin/env bash
# Runs every libFuzzer target of a LINKHOP_FUZZ build side by side for a fixed time, each from a
# copy of its corpus, so that fuzz/corpus/ stays as committed. An input that crashes, leaks or
# hangs a target is copied to fuzz/regressions/<target>/, and the run fails.
#   scripts/fuzz.sh <fuzz build folder> [seconds for each target, default 60]
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 1 ]; then
    echo "usage: scripts/fuzz.sh <fuzz build folder> [seconds]" >&2
    exit 2
fi
build=$1
seconds=${2:-60}

work=$(mktemp -d "${TMPDIR:-/tmp}/linkhop-fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT
export LSAN_OPTIONS="suppressions=$PWD/cmake/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS=print_stacktrace=1
export QT_QPA_PLATFORM=offscreen

targets=()
for program in "$build"/bin/fuzz_*; do
    if [ -x "$program" ]; then targets+=("$(basename "$program")"); fi
done
if [ ${#targets[@]} -eq 0 ]; then
    echo "no fuzz targets in $build/bin" >&2
    exit 1
fi

pids=()
for target in "${targets[@]}"; do
    mkdir -p "$work/$target/corpus" "$work/$target/artifacts"
    cp fuzz/corpus/"$target"/* "$work/$target/corpus/"
    options=(-max_total_time="$seconds" -timeout=10 -print_final_stats=1
             -artifact_prefix="$work/$target/artifacts/")
    if [ -f "fuzz/$target.dict" ]; then options+=(-dict="fuzz/$target.dict"); fi
    "$build/bin/$target" "${options[@]}" "$work/$target/corpus" > "$work/$target.log" 2>&1 &
    pids+=($!)
done

failed=()
for i in "${!targets[@]}"; do
    target=${targets[$i]}
    log=$work/$target.log
    status=0
    wait "${pids[$i]}" || status=$?
    runs=$(awk '/^stat::number_of_executed_units:/ { print $2 }' "$log")
    done_line=$(sed -En 's/^#[0-9]+[[:space:]]+DONE[[:space:]]+//p' "$log" | tail -n 1)
    echo "$target: ${runs:-?} runs in ${seconds} s; ${done_line:-no summary}"
    [ "$status" -eq 0 ] && continue

    failed+=("$target")
    echo "---- $target failed (exit $status); the end of its log:"
    tail -n 60 "$log"
    mkdir -p "fuzz/regressions/$target"
    for input in "$work/$target/artifacts"/{crash,leak,timeout,oom}-*; do
        [ -e "$input" ] || continue
        cp "$input" "fuzz/regressions/$target/"
        echo "saved fuzz/regressions/$target/$(basename "$input")"
    done
done

if [ ${#failed[@]} -gt 0 ]; then
    cat >&2 <<MESSAGE

Fuzzing failed: ${failed[*]}.
The failing inputs are now in fuzz/regressions/<target>/ of this tree. Fix the fault, check it
with the replay test of the normal build (ctest -R <target>), and commit the input together with
the fix, so that it is replayed as a test from then on.
MESSAGE
    exit 1
fi
