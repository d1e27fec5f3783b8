#!/usr/bin/env bash
# Runs clang-tidy with the repository's .clang-tidy over every C++ source of
# the library (sources/) and the reference host (host/), with the compile
# commands of a build folder, several files at a time. Any finding fails.
#
#   scripts/tidy.sh [BUILD_DIR] [JOBS]
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=${1:-build}
jobs=${2:-$(nproc)}

if ! command -v run-clang-tidy >/dev/null || ! command -v clang-tidy >/dev/null; then
    echo "tidy: clang-tidy is missing; run 'make deps' (Debian package clang-tidy)" >&2
    exit 1
fi
if [ ! -f "$build_dir/compile_commands.json" ]; then
    echo "tidy: $build_dir/compile_commands.json is missing; configure the build first (make build)" >&2
    exit 1
fi

# The files come from the compile commands; this pattern picks those of the
# library and the host, not the tests, benchmarks or fuzz targets. FileHelper's
# four files are compiled as one unity file in the build folder; its findings
# are reported against the four files, which the header filter admits.
root=$(pwd)
started=$(date +%s)
status=0
# Colour codes are taken out, so that the findings can be counted.
run-clang-tidy -quiet -p "$build_dir" -j "$jobs" "(^$root/(sources|host)/|/signing_core\.dir/Unity/)" 2>&1 |
    sed 's/\x1b\[[0-9;]*m//g' >"$build_dir/tidy.log" || status=$?
# run-clang-tidy prints each file's command line; only the findings matter.
# A header's finding is reported once for each file that includes it.
findings=$(grep -E "^/.*(warning|error):" "$build_dir/tidy.log" | sort -u || true)
count=0
if [ -n "$findings" ]; then
    echo "$findings"
    count=$(echo "$findings" | wc -l)
    status=1
fi
echo "tidy: $count finding(s) in $(($(date +%s) - started)) s (full output: $build_dir/tidy.log)"
exit $status
