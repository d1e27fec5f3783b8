#!/usr/bin/env bash
# The verification benchmark (make bench):
#
#   BENCH_QUICK=<empty|1> bash bench/run.sh <build dir>
#
# Builds the benchmark programs, makes the corpus once under
# <build dir>/bench/corpus (cached), measures signing-host verify against
# rpmkeys --checksig, the limit program and the floor program (and under
# strace -c, and with --jobs 1 and 2), and writes
# <build dir>/bench/report.md and report.png, then prints the table.
# BENCH_QUICK=1 runs a reduced version: the 1 MiB and 64 MiB packages, 100
# small packages and fewer runs.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
script_name=bench/run.sh
source "$root/scripts/lib.sh"

[ $# -eq 1 ] || die "usage: bench/run.sh <build dir>"
build=$(realpath -m -- "$1")
[ -f "$build/CMakeCache.txt" ] || die "$build is not a configured build folder (run make build)"

quick=${BENCH_QUICK:-}
if [ -n "$quick" ] && [ "$quick" != 0 ]; then
    sizes=1,64
    small=100
    quick_flag=(--quick)
else
    sizes=1,64,512
    small=1000
    quick_flag=()
fi

find_python
require_tools "see scripts/deps.sh" rpmkeys /usr/bin/time
"$python" -c 'import matplotlib' 2>/dev/null || die "python3-matplotlib is missing (see scripts/deps.sh)"

cmake --build "$build" -j "$(nproc)" --target signing signing-host bench_programs >/dev/null ||
    die "building the benchmark programs failed"
host="$build/signing-host"
[ -x "$host" ] || die "$host was not built"

out="$build/bench"
mkdir -p "$out"
bash "$root/bench/make-corpus.sh" "$out/corpus" "$sizes" "$small"

"$python" "$root/bench/measure.py" --build "$build" --corpus "$out/corpus" --host "$host" --out "$out" \
    --sizes "$sizes" --small "$small" "${quick_flag[@]}"
echo "Report: $out/report.md and $out/report.png"
