#!/usr/bin/env bash
# Makes the benchmark corpus with the real tools: an RSA-3072 key from gpg,
# rpmbuild packages with an uncompressed payload of random bytes, and many
# small packages, all signed by rpmsign (--rpmv3, SHA-256), and a private
# rpm database holding the key for rpmkeys.
#
#   make-corpus.sh <corpus dir> <big sizes in MiB, comma separated> <small count>
#
# Layout of <corpus dir>:
#   key.asc, keyid, gnupg/, rpmdb/           the signing key and its databases
#   data.bin, data.sig                       a detached SHA-256 signature by the key
#   big/big-<N>M.rpm                         one package per size
#   small-<count>/small-<i>.rpm              <count> packages of about 4 KiB
#
# Every item is made once and remembered by a stamp (a hash of this script
# and the tool versions); a stamp that no longer matches the key throws the
# whole corpus away.
set -euo pipefail

script_name=make-corpus.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

[ $# -eq 3 ] || die "usage: make-corpus.sh <corpus dir> <sizes MiB,...> <small count>"
corpus=$(realpath -m -- "$1")
IFS=',' read -r -a sizes <<<"$2"
small_count=$3

require_tools "see scripts/deps.sh" gpg gpgconf rpm rpmbuild rpmsign rpmkeys sha256sum flock
gpg_bin=$(command -v gpg)

stamp=$(tool_stamp "${BASH_SOURCE[0]}")

mkdir -p "$corpus"
exec 9>"$corpus/.lock"
flock 9

if [ "$(cat "$corpus/.stamp" 2>/dev/null || true)" != "$stamp" ]; then
    gpgconf --homedir "$corpus/gnupg" --kill all >/dev/null 2>&1 || true
    find "$corpus" -mindepth 1 -maxdepth 1 ! -name .lock -exec rm -rf {} +
fi

log="$corpus/make-corpus.log"
: >"$log"
work="$corpus/work"
rm -rf "$work"
mkdir -p "$work/home"

cleanup() {
    local status=$?
    gpgconf --homedir "$corpus/gnupg" --kill all >/dev/null 2>&1 || true
    rm -rf "$work"
    if [ $status -ne 0 ]; then
        echo "make-corpus.sh: failed; the last lines of $log:" >&2
        tail -n 40 "$log" >&2
    fi
}
trap cleanup EXIT

run() {
    echo "+ $*" >>"$log"
    "$@" </dev/null >>"$log" 2>&1 9>&- || die "command failed ($?): $*"
}

# rpm reads ~/.rpmmacros: a private HOME keeps the user's macros out.
rpm_env=(env HOME="$work/home" LC_ALL=C)
gpg_batch=(gpg --homedir "$corpus/gnupg" --batch --yes --pinentry-mode loopback --passphrase '')

# ------------------------------------------------------------------- key
if [ ! -s "$corpus/key.asc" ] || [ ! -s "$corpus/rpmdb/.done" ]; then
    echo "make-corpus.sh: making the RSA-3072 key" >&2
    rm -rf "$corpus/gnupg" "$corpus/rpmdb" "$corpus/key.asc" "$corpus/keyid"
    mkdir -m 700 "$corpus/gnupg"
    cat >"$work/key.params" <<EOF
%no-protection
Key-Type: RSA
Key-Length: 3072
Key-Usage: sign,cert
Subkey-Type: RSA
Subkey-Length: 3072
Subkey-Usage: encrypt
Name-Real: Signing Benchmark
Name-Email: bench@bench.invalid
Expire-Date: 0
%commit
EOF
    run "${gpg_batch[@]}" --status-file "$work/key.status" --gen-key "$work/key.params"
    fpr=$(awk '$2 == "KEY_CREATED" { print $4 }' "$work/key.status")
    [ ${#fpr} -eq 40 ] || die "gpg made no key"
    "${gpg_batch[@]}" --armor --export "$fpr" >"$corpus/key.asc" 2>>"$log" || die "gpg --export failed"
    printf '%s\n' "$fpr" >"$corpus/fingerprint"
    printf '%s\n' "${fpr:24:16}" | tr 'A-F' 'a-f' >"$corpus/keyid"
    mkdir -p "$corpus/rpmdb"
    run "${rpm_env[@]}" rpmkeys --dbpath "$corpus/rpmdb" --import "$corpus/key.asc"
    # A detached SHA-256 signature for the micro-benchmarks.
    head -c 70000 /dev/urandom >"$corpus/data.bin"
    run "${gpg_batch[@]}" -u "$fpr!" --digest-algo SHA256 -o "$corpus/data.sig" --detach-sign "$corpus/data.bin"
    echo done >"$corpus/rpmdb/.done"
fi
fpr=$(cat "$corpus/fingerprint")
printf '%s\n' "$stamp" >"$corpus/.stamp"

top="$work/rpmbuild"
rpmbuild_opts=(
    --define "_topdir $top"
    --define "_tmppath $work/tmp"
    --define "_buildhost bench.invalid"
    --define "_binary_payload w.ufdio"
    --define "debug_package %{nil}"
    --define "__os_install_post %{nil}"
    --define "_build_id_links none"
    --define "_binary_filedigest_algorithm 8"
    # No space kept for signatures: small packages stay near 4 KiB.
    --define "__gpg_reserved_space 0"
)
rpmsign_opts=(
    --define "__gpg $gpg_bin"
    --define "_gpg_path $corpus/gnupg"
    --define "_gpg_name $fpr!"
    --define "_gpg_digest_algo sha256"
    --define "_gpg_sign_cmd_extra_args --batch --pinentry-mode loopback --passphrase ''"
)

# Both signatures must be RSA/SHA256 by the corpus key.
check_signed() {
    local tag got
    for tag in RSAHEADER SIGPGP; do
        got=$("${rpm_env[@]}" rpm -qp --qf "%{$tag:pgpsig}" "$1" 2>>"$log")
        [[ "$got" == "RSA/SHA256, "*"Key ID $(cat "$corpus/keyid")" ]] || die "$1: unexpected $tag signature: $got"
    done
}

fresh_topdir() {
    rm -rf "$top" "$work/tmp"
    mkdir -p "$top"/{SOURCES,SPECS,BUILD,BUILDROOT,RPMS,SRPMS} "$work/tmp"
}

# ------------------------------------------------------- big packages
mkdir -p "$corpus/big"
for size in "${sizes[@]}"; do
    [ -n "$size" ] || continue
    target="$corpus/big/big-${size}M.rpm"
    [ -s "$target" ] && [ -e "$target.done" ] && continue
    echo "make-corpus.sh: making a ${size} MiB package" >&2
    fresh_topdir
    cat >"$top/SPECS/big.spec" <<EOF
Name:           bench-big-${size}m
Version:        1.0
Release:        1
Summary:        Benchmark package with ${size} MiB of random bytes
License:        MIT
BuildArch:      noarch
AutoReqProv:    no

%description
Random bytes that no compressor can shrink, stored uncompressed.

%install
mkdir -p %{buildroot}/usr/share/bench
head -c $((size * 1048576)) /dev/urandom > %{buildroot}/usr/share/bench/data.bin

%files
%defattr(0644,root,root,0755)
/usr/share/bench/data.bin
EOF
    run "${rpm_env[@]}" rpmbuild --quiet -bb "${rpmbuild_opts[@]}" "$top/SPECS/big.spec"
    built=$(find "$top/RPMS" -name '*.rpm' | head -n 1)
    [ -n "$built" ] || die "rpmbuild made no package of ${size} MiB"
    mv "$built" "$target.tmp"
    run "${rpm_env[@]}" rpmsign --addsign --rpmv3 "${rpmsign_opts[@]}" "$target.tmp"
    check_signed "$target.tmp"
    mv "$target.tmp" "$target"
    touch "$target.done"
done

# ------------------------------------------------------ small packages
if [ "$small_count" -gt 0 ]; then
    dir="$corpus/small-$small_count"
    if [ ! -e "$dir/.done" ]; then
        echo "make-corpus.sh: making $small_count small packages" >&2
        rm -rf "$dir"
        fresh_topdir
        # One spec with one subpackage per package: a single rpmbuild run.
        spec="$top/SPECS/small.spec"
        {
            cat <<EOF
Name:           bench-small
Version:        1.0
Release:        1
Summary:        Small benchmark packages
License:        MIT
BuildArch:      noarch
AutoReqProv:    no

%description
Small packages for the benchmark.

%install
mkdir -p %{buildroot}/usr/share/bench-small
for i in \$(seq -w 1 $small_count); do
    head -c 1024 /dev/urandom > %{buildroot}/usr/share/bench-small/\$i.bin
done
EOF
            for i in $(seq -w 1 "$small_count"); do
                cat <<EOF

%package -n bench-small-$i
Summary:        Small benchmark package $i
AutoReqProv:    no

%description -n bench-small-$i
Small package $i.

%files -n bench-small-$i
%defattr(0644,root,root,0755)
/usr/share/bench-small/$i.bin
EOF
            done
        } >"$spec"
        run "${rpm_env[@]}" rpmbuild --quiet -bb "${rpmbuild_opts[@]}" "$spec"
        mkdir -p "$dir.tmp"
        find "$top/RPMS" -name 'bench-small-*.rpm' -exec mv -t "$dir.tmp" {} +
        count=$(find "$dir.tmp" -name '*.rpm' | wc -l)
        [ "$count" -eq "$small_count" ] || die "rpmbuild made $count small packages, not $small_count"
        # rpmsign takes many packages in one call.
        run "${rpm_env[@]}" rpmsign --addsign --rpmv3 "${rpmsign_opts[@]}" "$dir.tmp"/*.rpm
        check_signed "$(find "$dir.tmp" -name '*.rpm' | head -n 1)"
        rm -rf "$dir"
        mv "$dir.tmp" "$dir"
        touch "$dir/.done"
    fi
fi

# ------------------------------------------------------------- check
# rpmkeys must accept every package, or the comparison means nothing.
check=()
for size in "${sizes[@]}"; do
    [ -n "$size" ] && check+=("$corpus/big/big-${size}M.rpm")
done
[ "$small_count" -gt 0 ] && check+=("$corpus/small-$small_count"/*.rpm)
[ ${#check[@]} -eq 0 ] || run "${rpm_env[@]}" rpmkeys --dbpath "$corpus/rpmdb" --checksig "${check[@]}"
exit 0
