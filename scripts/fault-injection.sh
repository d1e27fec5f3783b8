#!/usr/bin/env bash
# Fault-injection run: verifies good and bad packages many times with random
# allocation, read and close failures injected by fiu-run (fiu-utils), and
# checks that the plug-in never crashes its host and never calls a bad
# package signed.
#
#   scripts/fault-injection.sh [BUILD_DIR]      (FAULT_RUNS=N, default 240)
#
# Each run starts build/tests/signing-fault-run-host, which loads signing.so with
# dlopen and calls rpm_verify once per package, under one mix of failure
# probabilities (allocation: malloc, calloc, realloc; read: read and pread,
# failing or delivering only part; close). A run counts as a crash when the
# host dies from a signal; its exit code and the statuses are verdicts. A
# bad package answered with RPM_SIGNED (status 0) is a wrong verdict.
# Prints a summary; exits 1 when there was a crash or a wrong verdict.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath -m -- "${1:-$here/build}")
runs=${FAULT_RUNS:-240}
host="$build/tests/signing-fault-run-host"
plugin="$build/signing.so"
fixtures="$here/.fixtures"

for tool in fiu-run python3; do
    command -v "$tool" >/dev/null 2>&1 || {
        echo "fault-injection.sh: $tool is missing (see scripts/deps.sh)" >&2
        exit 1
    }
done
[ -x "$host" ] && [ -f "$plugin" ] || {
    echo "fault-injection.sh: build $host and $plugin first (make build)" >&2
    exit 1
}
bash "$here/tests/fixtures/make-fixtures.sh" "$fixtures"

work=$(mktemp -d "${TMPDIR:-/tmp}/signing-fault.XXXXXX")
trap 'rm -rf "$work"' EXIT

key="$fixtures/keys/rsa2048.asc"
good=()
for name in signed-rsa2048-sha256.rpm signed-rsa2048-sha1.rpm signed-rsa2048-sha512.rpm; do
    good+=("$fixtures/rpm/$name")
done
bad=()
for name in tampered-payload.rpm tampered-header.rpm badsig-header.rpm badsig-payload.rpm unsigned.rpm \
    signed-other2048-sha256.rpm headeronly-rsa2048-sha256.rpm signed-rsa4096-sha256.rpm notapackage.rpm; do
    bad+=("$fixtures/rpm/$name")
done

# Two more bad packages: one cut inside its payload, and a payload-stripping
# forgery (payload removed, the header-only signature copied over the
# header-and-payload signature, MD5 and size recomputed).
head -c 5000 "$fixtures/rpm/signed-rsa2048-sha256.rpm" >"$work/cut.rpm"
bad+=("$work/cut.rpm")
python3 - "$fixtures/rpm/signed-rsa2048-sha256.rpm" "$work/stripped.rpm" <<'PYTHON'
import hashlib, struct, sys
data = bytearray(open(sys.argv[1], "rb").read())
count, size = struct.unpack(">II", data[104:112])
store = 112 + 16 * count
entries = {}
for i in range(count):
    tag, kind, offset, length = struct.unpack(">IIII", data[112 + 16 * i:128 + 16 * i])
    entries[tag] = (offset, length)
main = (store + size + 7) // 8 * 8
main_count, main_size = struct.unpack(">II", data[main + 8:main + 16])
end = main + 16 + 16 * main_count + main_size
(o268, n268), (o1002, n1002) = entries[268], entries[1002]
assert n268 == n1002, "blobs of different lengths"
data[store + o1002:store + o1002 + n1002] = data[store + o268:store + o268 + n268]
header = bytes(data[main:end])
o1004 = entries[1004][0]
data[store + o1004:store + o1004 + 16] = hashlib.md5(header).digest()
o1000 = entries[1000][0]
data[store + o1000:store + o1000 + 4] = struct.pack(">I", len(header))
open(sys.argv[2], "wb").write(data[:end])
PYTHON
bad+=("$work/stripped.rpm")

# Without faults: every good package is signed, no bad one is.
"$host" "$plugin" "$key" "${good[@]}" "${bad[@]}" >"$work/clean.out"
expected_signed=$(printf '%s\n' "${good[@]}" | sed 's/^/0 /' | sort)
clean_signed=$(grep '^0 ' "$work/clean.out" | sort || true)
if [ "$clean_signed" != "$expected_signed" ]; then
    echo "fault-injection.sh: without faults the verdicts are not as expected:" >&2
    cat "$work/clean.out" >&2
    exit 1
fi

is_bad() {
    local path=$1 candidate
    for candidate in "${bad[@]}"; do
        [ "$candidate" = "$path" ] && return 0
    done
    return 1
}

# Mixes of failure probabilities (allocation, read, close), used in turn.
mixes=("0.0005 0.01 0.2" "0.002 0.02 0.5" "0.01 0.05 0.1" "0.05 0.1 1" "0.001 0 0" "0 0.2 0" "0 0 1"
    "0.2 0.3 0.5")

crashes=0
wrong=0
answers=0
signed_good=0
loaded=0
start=$(date +%s)
for ((run = 1; run <= runs; run++)); do
    read -r alloc io closing <<<"${mixes[$((run % ${#mixes[@]}))]}"
    status=0
    fiu-run -x \
        -c "enable_random name=libc/mm/malloc,probability=$alloc" \
        -c "enable_random name=libc/mm/calloc,probability=$alloc" \
        -c "enable_random name=libc/mm/realloc,probability=$alloc" \
        -c "enable_random name=posix/io/rw/read,probability=$io" \
        -c "enable_random name=posix/io/rw/pread,probability=$io" \
        -c "enable_random name=posix/io/rw/read/reduce,probability=$io" \
        -c "enable_random name=posix/io/rw/pread/reduce,probability=$io" \
        -c "enable_random name=posix/io/oc/close,probability=$closing" \
        "$host" "$plugin" "$key" "${good[@]}" "${bad[@]}" >"$work/run.out" 2>"$work/run.err" || status=$?
    if [ "$status" -ge 128 ]; then
        crashes=$((crashes + 1))
        echo "run $run (allocation $alloc, read $io, close $closing): killed by signal $((status - 128))" >&2
        tail -n 5 "$work/run.err" >&2 || true
    fi
    [ "$status" -ne 3 ] && loaded=$((loaded + 1))
    while read -r verdict path; do
        answers=$((answers + 1))
        if [ "$verdict" = 0 ]; then
            if is_bad "$path"; then
                wrong=$((wrong + 1))
                echo "run $run: bad package $path answered RPM_SIGNED" >&2
            else
                signed_good=$((signed_good + 1))
            fi
        fi
    done <"$work/run.out"
done
seconds=$(($(date +%s) - start))

echo "fault injection: $runs runs in ${seconds}s; plug-in loaded in $loaded runs, $answers package answers"
echo "  good packages signed: $signed_good; crashes: $crashes; bad packages answered RPM_SIGNED: $wrong"
[ "$crashes" -eq 0 ] && [ "$wrong" -eq 0 ]
