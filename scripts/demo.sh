#!/usr/bin/env bash
# The one-command demo (make demo):
#
#   demo.sh <build dir>
#
# In <build dir>/demo/ it makes a demo signing key and a second key with gpg
# (private GNUPGHOME), builds small packages with rpmbuild, signs them with
# rpmsign --addsign --rpmv3, changes one payload byte of a copy, starts a
# key service on 127.0.0.1 (Python's HTTP file server; the plug-in asks for
# "<signing_url>?id=<update id>" and the server answers the file the path
# names), writes a manifest, and runs `signing-host run` on it: the plug-in
# downloads the key with the real wget or curl and verifies every package.
# Then `signing-host verify` checks single packages. The server is stopped
# at the end, also when a step fails. Everything is made anew on each run.
set -euo pipefail

script_name=demo.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

[ $# -eq 1 ] || die "usage: demo.sh <build dir>"
[ -d "$1" ] || die "build folder '$1' does not exist; run 'make build' first"
build=$(cd "$1" && pwd)
host="$build/signing-host"
plugin="$build/signing.so"
[ -x "$host" ] || die "$host is missing; run 'make build' first"
[ -f "$plugin" ] || die "$plugin is missing; run 'make build' first"
require_tools "run 'make deps'" gpg gpgconf rpmbuild rpmsign rpm python3
command -v wget >/dev/null 2>&1 || command -v curl >/dev/null 2>&1 ||
    die "neither wget nor curl is installed (run 'make deps')"
find_python

demo="$build/demo"
# How the demo folder is shown: relative to where the demo was started.
shown="$demo"
case "$demo" in "$PWD"/*) shown="${demo#"$PWD"/}" ;; esac
update_id="DEMO-UPDATE-1"
server_pid=""

step() {
    printf '\n==> %s\n' "$*"
}

# A key service left behind by an interrupted earlier run.
if [ -f "$demo/keyservice.pid" ]; then
    old_pid=$(cat "$demo/keyservice.pid")
    if [ -n "$old_pid" ] && grep -qs "http.server" "/proc/$old_pid/cmdline"; then
        kill "$old_pid" 2>/dev/null || true
    fi
fi
if [ -d "$demo/gnupg" ]; then
    gpgconf --homedir "$demo/gnupg" --kill all >/dev/null 2>&1 || true
fi
rm -rf "$demo"
mkdir -p "$demo"/{packages,keyservice/keys,tmp,home}
mkdir -m 700 "$demo/gnupg"
log="$demo/demo.log"
: >"$log"

cleanup() {
    local status=$?
    if [ -n "$server_pid" ]; then
        kill "$server_pid" 2>/dev/null || true
        wait "$server_pid" 2>/dev/null || true
        rm -f "$demo/keyservice.pid"
        echo "Key service stopped."
    fi
    gpgconf --homedir "$demo/gnupg" --kill all >/dev/null 2>&1 || true
    if [ $status -ne 0 ]; then
        echo "demo.sh: failed; the last lines of $log:" >&2
        tail -n 40 "$log" >&2 || true
    fi
    exit $status
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Runs a command with its output in the demo log, which is shown on failure.
run() {
    echo "+ $*" >>"$log"
    "$@" </dev/null >>"$log" 2>&1 || die "command failed: $*"
}

export GNUPGHOME="$demo/gnupg"
# rpm reads ~/.rpmmacros; a private HOME keeps the user's macros out.
rpm_env=(env HOME="$demo/home" LC_ALL=C)
gpg_batch=(gpg --homedir "$demo/gnupg" --batch --yes --pinentry-mode loopback --passphrase '')

# ------------------------------------------------------------------- keys
step "Making the demo signing key and a second key with gpg (GNUPGHOME $shown/gnupg)"
declare -A fingerprint
make_key() {
    local name=$1 real=$2
    gpg_key_params 2048 "$real" "$name@demo.invalid" >"$demo/home/$name.params"
    run "${gpg_batch[@]}" --status-file "$demo/home/$name.status" --gen-key "$demo/home/$name.params"
    fingerprint[$name]=$(awk '$2 == "KEY_CREATED" { print $4 }' "$demo/home/$name.status")
    [ ${#fingerprint[$name]} -eq 40 ] || die "gpg made no key for $name"
    echo "  $name: RSA 2048, fingerprint ${fingerprint[$name]}"
}
make_key release "Demo Release Signing Key"
make_key stranger "Someone Else"
"${gpg_batch[@]}" --armor --export "${fingerprint[release]}" >"$demo/keyservice/keys/release.asc" 2>>"$log"
cp "$demo/keyservice/keys/release.asc" "$demo/release.asc"
[ -s "$demo/release.asc" ] || die "gpg exported no public key"

# --------------------------------------------------------------- packages
step "Building packages with rpmbuild"
top="$demo/home/rpmbuild"
mkdir -p "$top"/{SPECS,BUILD,BUILDROOT,RPMS,SRPMS,SOURCES}

# make_package <name> <version> <summary>: a noarch package with a few files.
make_package() {
    local name=$1 version=$2 summary=$3
    cat >"$top/SPECS/$name.spec" <<EOF
Name:           $name
Version:        $version
Release:        1
Summary:        $summary
License:        MIT
BuildArch:      noarch

%description
$summary. Made by the signing.so demo.

%install
mkdir -p %{buildroot}/usr/share/$name
echo "$summary" > %{buildroot}/usr/share/$name/README
seq 1 2000 > %{buildroot}/usr/share/$name/numbers.txt

%files
/usr/share/$name

%changelog
* Thu Jan 01 2015 Demo <demo@demo.invalid> - $version-1
- Demo package
EOF
    run "${rpm_env[@]}" rpmbuild --quiet -bb \
        --define "_topdir $top" \
        --define "_tmppath $demo/home/tmp" \
        --define "_binary_payload w9.gzdio" \
        --define "debug_package %{nil}" \
        --define "__os_install_post %{nil}" \
        --define "_build_id_links none" \
        "$top/SPECS/$name.spec"
    [ -f "$top/RPMS/noarch/$name-$version-1.noarch.rpm" ] || die "rpmbuild made no package $name"
}
make_package hello 1.0 "Prints a friendly greeting"
make_package tools 2.1 "Small command line tools"
make_package extras 0.9 "Optional extras"
hello="$top/RPMS/noarch/hello-1.0-1.noarch.rpm"
tools="$top/RPMS/noarch/tools-2.1-1.noarch.rpm"
extras="$top/RPMS/noarch/extras-0.9-1.noarch.rpm"

# sign <key name> <digest> <package>
sign() {
    local name=$1 digest=$2 package=$3
    run "${rpm_env[@]}" rpmsign --addsign --rpmv3 \
        --define "__gpg $(command -v gpg)" \
        --define "_gpg_path $demo/gnupg" \
        --define "_gpg_name ${fingerprint[$name]}!" \
        --define "_gpg_digest_algo $digest" \
        --define "_gpg_sign_cmd_extra_args --batch --pinentry-mode loopback --passphrase ''" \
        "$package"
}

step "Signing with rpmsign --addsign --rpmv3, then breaking copies on purpose"
packages="$demo/packages"
cp "$hello" "$packages/hello-1.0-1.noarch.rpm"
sign release sha256 "$packages/hello-1.0-1.noarch.rpm"
cp "$tools" "$packages/tools-2.1-1.noarch.rpm"
sign release sha512 "$packages/tools-2.1-1.noarch.rpm"
cp "$hello" "$packages/hello-stranger-1.0-1.noarch.rpm"
sign stranger sha256 "$packages/hello-stranger-1.0-1.noarch.rpm"
cp "$extras" "$packages/extras-0.9-1.noarch.rpm"

# A signed package with one byte of its payload changed afterwards.
cp "$packages/hello-1.0-1.noarch.rpm" "$packages/hello-tampered-1.0-1.noarch.rpm"
"$python" - "$packages/hello-tampered-1.0-1.noarch.rpm" <<'EOF' >>"$log" 2>&1 || die "cannot change the payload"
import struct, sys
path = sys.argv[1]
data = bytearray(open(path, "rb").read())
def header_end(offset):
    if data[offset:offset + 3] != b"\x8e\xad\xe8":
        raise SystemExit("no header structure at %d" % offset)
    count, size = struct.unpack(">II", data[offset + 8:offset + 16])
    return offset + 16 + 16 * count + size
signature_end = header_end(96)
main = (signature_end + 7) // 8 * 8
payload = header_end(main)
if payload >= len(data):
    raise SystemExit("no payload")
position = payload + (len(data) - payload) // 2
data[position] ^= 0x01
open(path, "wb").write(bytes(data))
print("changed payload byte at offset", position)
EOF
printf 'This is a text file, not an RPM package.\n' >"$packages/notes-1.0-1.noarch.rpm"
printf 'Release notes of the demo suite.\n' >"$packages/RELEASE-NOTES.txt"
for package in "$packages"/*; do
    echo "  packages/$(basename "$package")"
done

# ------------------------------------------------------------ key service
step "Starting the key service on 127.0.0.1"
free_port() {
    "$python" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1]); s.close()'
}
port=""
for attempt in 1 2 3 4 5; do
    candidate=$(free_port)
    "$python" -u -m http.server --bind 127.0.0.1 --directory "$demo/keyservice" "$candidate" \
        </dev/null >"$demo/keyservice.log" 2>&1 &
    server_pid=$!
    echo "$server_pid" >"$demo/keyservice.pid"
    for _ in $(seq 1 100); do
        if ! kill -0 "$server_pid" 2>/dev/null; then
            break
        fi
        if "$python" -c 'import socket, sys; socket.create_connection(("127.0.0.1", int(sys.argv[1])), 1).close()' \
            "$candidate" 2>/dev/null; then
            port=$candidate
            break
        fi
        sleep 0.1
    done
    [ -n "$port" ] && break
    kill "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
    server_pid=""
done
[ -n "$port" ] || die "the key service did not start"
signing_url="http://127.0.0.1:$port/keys/release.asc"
echo "  serving $shown/keyservice at http://127.0.0.1:$port/ (process $server_pid)"
echo "  the plug-in will ask for $signing_url?id=$update_id"

# --------------------------------------------------------------- manifest
cat >"$demo/manifest.json" <<EOF
{
  "description": "The signing.so demo: six packages, one key service on the loopback interface.",
  "session": {
    "SIGNING_DEFAULT_URL": "http://127.0.0.1:9/unused-default",
    "signing_url": "$signing_url",
    "TEMP_FOLDER": "tmp",
    "SIGNIFICANCE": "",
    "SHORT_DESC": "",
    "FULL_DESC": ""
  },
  "variables": {
    "PACKAGES": "packages"
  },
  "products": [
    {
      "name": "Demo Suite",
      "environment": { "phonehome": { "VokUpdateId": "$update_id" } },
      "components": [
        { "name": "hello", "type": "rpm", "packageFolder": "\${PACKAGES}", "packageFile": "hello-1.0-1.noarch.rpm" },
        { "name": "tools", "type": "rpm", "packageFolder": "\${PACKAGES}", "packageFile": "tools-2.1-1.noarch.rpm" },
        { "name": "hello-tampered", "type": "rpm", "packageFolder": "\${PACKAGES}", "packageFile": "hello-tampered-1.0-1.noarch.rpm" },
        { "name": "extras-unsigned", "type": "rpm", "packageFolder": "\${PACKAGES}", "packageFile": "extras-0.9-1.noarch.rpm" },
        { "name": "hello-stranger", "type": "rpm", "packageFolder": "\${PACKAGES}", "packageFile": "hello-stranger-1.0-1.noarch.rpm" },
        { "name": "notes", "type": "rpm", "packageFolder": "\${PACKAGES}", "packageFile": "notes-1.0-1.noarch.rpm" }
      ]
    },
    {
      "name": "Documentation",
      "components": [
        { "name": "release-notes", "type": "txt", "packageFolder": "\${PACKAGES}", "packageFile": "RELEASE-NOTES.txt" }
      ]
    }
  ]
}
EOF

# ------------------------------------------------------------------ run
# The download goes straight to the loopback server.
unset http_proxy HTTP_PROXY https_proxy HTTPS_PROXY all_proxy ALL_PROXY
cd "$demo"
step "Running: signing-host run --log run.log manifest.json   (in $shown)"
set +e
"$host" run --log run.log manifest.json | tee summary.txt
run_status=${PIPESTATUS[0]}
set -e
echo "signing-host exited with $run_status"

step "Checking single packages: signing-host verify --key release.asc packages/*.rpm"
set +e
"$host" verify --key release.asc packages/*.rpm | tee verify.txt
verify_status=${PIPESTATUS[0]}
set -e
echo "signing-host exited with $verify_status"

# ----------------------------------------------------------------- checks
step "What the demo showed"
expect() {
    grep -qF -- "$1" "$2" || die "expected '$1' in $2"
}
grep -qF "\"GET /keys/release.asc?id=$update_id HTTP/1.1\" 200" keyservice.log ||
    die "the key service was not asked for the key"
expect "public key obtained successfully [tmp/PUBLIC_KEY.PUB]" run.log
expect "PASS  Demo Suite/hello: RPM_SIGNED (0)" summary.txt
expect "PASS  Demo Suite/tools: RPM_SIGNED (0)" summary.txt
expect "FAIL  Demo Suite/hello-tampered: RPM_INVALID_HASH (3)" summary.txt
expect "FAIL  Demo Suite/extras-unsigned: RPM_ERROR (5)" summary.txt
expect "FAIL  Demo Suite/hello-stranger: RPM_INVALID_SIGNATURE (2)" summary.txt
expect "FAIL  Demo Suite/notes: RPM_ERROR (5) packages/notes-1.0-1.noarch.rpm is not an RPM file." summary.txt
expect "SKIP  Documentation/release-notes" summary.txt
expect "[SIGNING_prereq_err_signing_check_short_desc]" summary.txt
[ "$run_status" -eq 1 ] || die "signing-host run exited with $run_status instead of 1"
[ "$verify_status" -eq 1 ] || die "signing-host verify exited with $verify_status instead of 1"
echo "  The key was downloaded from the key service (see $shown/keyservice.log)."
echo "  2 packages passed; 4 failed as they should; 1 component was not an rpm."
echo "  signing-host exited with 1 because a package failed: the demo worked."
echo "  Files: $shown (manifest.json, run.log, summary.txt, verify.txt)"
