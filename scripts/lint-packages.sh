#!/usr/bin/env bash
# Runs lintian on the Debian packages (make package) and fails on any error.
# The warnings and notes that remain are explained in docs/packaging.md.
#
#   lint-packages.sh PACKAGE.deb...
set -euo pipefail

[ $# -gt 0 ] || {
    echo "usage: lint-packages.sh PACKAGE.deb..." >&2
    exit 2
}
command -v lintian >/dev/null 2>&1 || {
    echo "lint-packages.sh: lintian is not installed (run 'make deps')" >&2
    exit 1
}
report=$(lintian --tag-display-limit 0 --display-info "$@" 2>&1 | grep -v '^running with root privileges' || true)
[ -z "$report" ] || printf '%s\n' "$report"
if grep -q '^E: ' <<<"$report"; then
    echo "lint-packages.sh: lintian reports errors" >&2
    exit 1
fi
echo "lint-packages.sh: lintian reports no errors in: $*"
