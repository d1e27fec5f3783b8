#!/usr/bin/env bash
# Installs the Debian packages that building, testing, the demo, the
# benchmarks and the fuzzers need, when they are missing. As root it runs
# apt-get itself; otherwise it prints the exact command to run.
set -euo pipefail

packages=(
    g++ clang clang-format make cmake pkg-config
    libssl-dev openssl
    libgtest-dev libgmock-dev libbenchmark-dev
    libclang-rt-14-dev
    nlohmann-json3-dev
    rpm gnupg wget curl python3 attr
    fiu-utils
    time python3-matplotlib
    strace
    parallel tmux
    lintian
    fiu-utils
    clang-tidy
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

command=(apt-get install -y --no-install-recommends "${missing[@]}")
if [ "$(id -u)" -ne 0 ]; then
    echo "Missing packages. Run as root:" >&2
    echo "  apt-get update && ${command[*]}" >&2
    exit 1
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
"${command[@]}"
