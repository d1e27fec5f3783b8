#!/usr/bin/env bash
# Lists the tests of the last ctest run in a build folder that GoogleTest
# skipped (GTEST_SKIP), each with the reason it gave, so that a skip stands
# out after "100% tests passed". Prints nothing when no test was skipped.
#   bash scripts/skipped-tests.sh <build dir>
set -euo pipefail

log=${1:?usage: scripts/skipped-tests.sh <build dir>}/Testing/Temporary/LastTest.log
[ -f "$log" ] || exit 0

# GoogleTest writes "<file>:<line>: Skipped", the reason on the lines after
# it, then "[  SKIPPED ] <test>".
awk '
    /^\[ RUN      \] / { reason = ""; inSkip = 0; next }
    /: Skipped$/       { inSkip = 1; next }
    /^\[  SKIPPED \] / {
        if (inSkip) {
            name = $4
            gsub(/\n+$/, "", reason)
            list[++count] = "  " name ": " reason
        }
        inSkip = 0
        next
    }
    inSkip             { reason = reason (reason == "" ? "" : " ") $0 }
    END {
        if (count > 0) {
            printf "\n%d test(s) skipped (not run, not counted as failures):\n", count
            for (i = 1; i <= count; ++i) print list[i]
        }
    }
' "$log"
