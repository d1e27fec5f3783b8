#!/usr/bin/env bash
# Builds the libFuzzer programs of fuzz/ with clang and runs each target for
# FUZZ_SECONDS seconds (default 60) over a corpus seeded from the fixture
# keys and packages. Prints, per target, the executions run and the coverage
# reached. Any finding (crash, sanitizer report, timeout, memory limit, leak)
# fails the run: its input is minimised and kept under
# tests/fuzz-regressions/<target>/, where the regression test replays it.
#
# Settings (environment):
#   FUZZ_SECONDS    seconds per target (default 60)
#   FUZZ_TARGETS    blank-separated subset of targets (default: all)
#   FUZZ_JOBS       targets run at the same time (default 1)
#   FUZZ_BUILD_DIR  build folder (default build-fuzz in the checkout)
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${FUZZ_BUILD_DIR:-$root/build-fuzz}
seconds=${FUZZ_SECONDS:-60}
jobs=${FUZZ_JOBS:-1}
fixtures=$root/.fixtures
upstream=$root/../shared/rpm-upstream
regressions=$root/tests/fuzz-regressions

cd "$root"

if [ -f tests/fixtures/make-fixtures.sh ]; then
    bash tests/fixtures/make-fixtures.sh "$fixtures"
fi

cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DSIGNING_FIXTURES_DIR="$fixtures" >/dev/null
cmake --build "$build" -j "$(nproc)"

targets=${FUZZ_TARGETS:-$("$build/fuzz_make_seeds" --list)}
upstream_arg=()
if [ -d "$upstream" ]; then
    upstream_arg=("$(cd "$upstream" && pwd)")
fi

# One target: seeds, the run, and on a finding the minimised input.
run_target() {
    local target=$1
    local corpus=$build/corpus/$target
    local artifacts=$build/artifacts/$target
    local log=$build/logs/$target.log
    rm -rf "$artifacts"
    mkdir -p "$corpus" "$artifacts" "$build/logs"
    "$build/fuzz_make_seeds" "$target" "$corpus" "$fixtures" "${upstream_arg[@]}" >/dev/null

    local status=0
    ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1} \
    UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1} \
        "$build/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" >"$log" 2>&1 || status=$?

    local finding
    for finding in "$artifacts"/*; do
        [ -f "$finding" ] || continue
        local kind
        kind=$(basename "$finding" | cut -d- -f1)
        local minimised=$artifacts/minimised-$(basename "$finding")
        "$build/fuzz_$target" -minimize_crash=1 -max_total_time=60 -timeout=10 -rss_limit_mb=2048 \
            -exact_artifact_path="$minimised" "$finding" >>"$build/logs/$target.minimise.log" 2>&1 || true
        [ -s "$minimised" ] || cp "$finding" "$minimised"
        mkdir -p "$regressions/$target"
        local kept
        kept=$regressions/$target/$kind-$(sha1sum "$minimised" | cut -c1-16)
        cp "$minimised" "$kept"
        echo "$target: $kind kept as ${kept#"$root"/}" >>"$build/logs/$target.findings"
    done
    echo "$status" >"$build/logs/$target.status"
}

rm -f "$build"/logs/*.status "$build"/logs/*.findings "$build"/logs/*.minimise.log
running=0
for target in $targets; do
    if [ ! -x "$build/fuzz_$target" ]; then
        echo "unknown fuzz target: $target" >&2
        exit 2
    fi
    echo "fuzzing $target for $seconds s"
    run_target "$target" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait -n || true
        running=$((running - 1))
    fi
done
wait || true

# libFuzzer's final statistics: "Done N runs" and the last "cov: ... ft: ..."
# status line.
failed=0
printf '%-12s %12s %8s %8s %8s  %s\n' target executions cov ft corpus result
for target in $targets; do
    log=$build/logs/$target.log
    status=$(cat "$build/logs/$target.status" 2>/dev/null || echo 1)
    runs=$(sed -n 's/^Done \([0-9]*\) runs.*/\1/p' "$log" | tail -1)
    if [ -z "$runs" ]; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *\([0-9]*\).*/\1/p' "$log" | tail -1)
    fi
    stats=$(grep -E '^#[0-9]+.*cov: ' "$log" | tail -1 || true)
    cov=$(sed -n 's/.*cov: \([0-9]*\).*/\1/p' <<<"$stats")
    ft=$(sed -n 's/.*ft: \([0-9]*\).*/\1/p' <<<"$stats")
    corp=$(sed -n 's/.*corp: \([0-9]*\).*/\1/p' <<<"$stats")
    result=ok
    if [ "$status" != 0 ] || [ -s "$build/logs/$target.findings" ]; then
        result="FINDING (exit $status, log ${log#"$root"/})"
        failed=1
    fi
    printf '%-12s %12s %8s %8s %8s  %s\n' "$target" "${runs:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$result"
done
for target in $targets; do
    if [ -s "$build/logs/$target.findings" ]; then
        cat "$build/logs/$target.findings"
        grep -m1 -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error|fuzz target invariant)' "$build/logs/$target.log" || true
    fi
done
if [ "$failed" != 0 ]; then
    echo "fuzzing found defects; the inputs are kept under tests/fuzz-regressions/ (commit them with the fix)" >&2
    exit 1
fi
echo "fuzzing: no findings"
