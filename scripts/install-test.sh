#!/usr/bin/env bash
# The installed layout, checked the way a packager and an installer
# developer use it (make install-test):
#
#   install-test.sh BUILD_DIR
#
# BUILD_DIR is a configured and built tree with the prefix /usr whose
# packages `cpack` has made (make package does both). In a throw-away folder
# the script
#   1. installs into a DESTDIR and checks the installed plug-in and
#      signing-host with readelf (hardened, stripped, debug file beside);
#   2. builds the C host of docs/examples against <signing/rpm_verify.h>
#      with pkg-config, and the C++ host with find_package(signing), both
#      outside the source and build trees, and runs each on a signed and a
#      tampered package;
#   3. runs the installed signing-host without --plugin;
#   4. checks the .deb files' dependencies (make package ran lintian), installs them
#      with dpkg --root into an empty root and verifies a package with the
#      signing-host found there;
#   5. checks that the examples are those of docs/integrating.md and that
#      the signing.so(7) page is rendered from its current text.
# The fixtures (keys and packages made by gpg, rpmbuild and rpmsign) are
# made first when the checkout has none.
set -euo pipefail

script_name=install-test.sh
source "$(dirname "$0")/lib.sh"

step() {
    printf '==> %s\n' "$*"
}

[ $# -eq 1 ] || die "usage: install-test.sh BUILD_DIR"
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "$1" && pwd)
[ -f "$build/CMakeCache.txt" ] || die "$build is not a configured build folder"
prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
[ "$prefix" = /usr ] || die "$build has the prefix '$prefix'; the packages need /usr"

fixtures="$source_dir/.fixtures"
if [ ! -f "$fixtures/rpm/tampered-payload.rpm" ]; then
    step "Making the fixtures"
    bash "$source_dir/tests/fixtures/make-fixtures.sh" "$fixtures" >/dev/null
fi
key="$fixtures/keys/rsa2048.asc"
other_key="$fixtures/keys/other2048.asc"
signed="$fixtures/rpm/signed-rsa2048-sha256.rpm"
tampered="$fixtures/rpm/tampered-payload.rpm"

work=$(mktemp -d "${TMPDIR:-/tmp}/signing-install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
root="$work/root"
usr="$root/usr"

# expect_run <expected exit status> <output file> <command...>
expect_run() {
    local expected=$1 output=$2 status=0
    shift 2
    "$@" >"$output" 2>"$output.err" || status=$?
    if [ "$status" -ne "$expected" ]; then
        cat "$output" "$output.err" >&2
        die "'$*' exited with $status instead of $expected"
    fi
}
expect_line() {
    grep -qxF -- "$1" "$2" || {
        cat "$2" >&2
        die "expected the line '$1' in $2"
    }
}
expect_text() {
    grep -qF -- "$1" "$2" || {
        cat "$2" >&2
        die "expected '$1' in $2"
    }
}

# expect_host_verdicts <signing-host> <output prefix>: the program passes
# the signed package and finds the tampered one's hash invalid.
expect_host_verdicts() {
    local program=$1 out=$2
    expect_run 0 "$out-signed.out" "$program" verify --key "$key" "$signed"
    expect_text "$signed: RPM_SIGNED (0) $signed is signed." "$out-signed.out"
    expect_run 1 "$out-tampered.out" "$program" verify --key "$key" "$tampered"
    expect_text "$tampered: RPM_INVALID_HASH (3) $tampered has invalid hash." "$out-tampered.out"
}

# ------------------------------------------------------------------ install
step "Installing into a DESTDIR"
DESTDIR="$root" cmake --install "$build" >"$work/install.log"
libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:PATH=//p' "$build/CMakeCache.txt")
[ -n "$libdir" ] || libdir=lib
plugin="$usr/$libdir/kmrt_stuff/signing.so"
for file in "$plugin" "$usr/bin/signing-host" "$usr/include/signing/rpm_verify.h" \
    "$usr/include/signing/session.h" "$usr/$libdir/pkgconfig/signing.pc" \
    "$usr/$libdir/cmake/signing/signingConfig.cmake" "$usr/share/man/man1/signing-host.1.gz" \
    "$usr/share/man/man7/signing.so.7.gz" "$usr/share/doc/signing/copyright" "$usr/share/doc/signing/README.md"; do
    [ -f "$file" ] || die "${file#"$root"} was not installed"
done
[ "$(stat -c %a "$plugin")" = 644 ] || die "the plug-in is installed with mode $(stat -c %a "$plugin")"
bash "$source_dir/scripts/check-hardening.sh" "$plugin" "$root/usr/lib/debug$prefix/$libdir/kmrt_stuff/signing.so.debug" \
    "$usr/bin/signing-host" >"$work/hardening.log" || {
    cat "$work/hardening.log" >&2
    die "the installed files are not hardened and stripped"
}

# --------------------------------------------------------------- C host
step "Building the C host with pkg-config and running it"
mkdir -p "$work/c"
cp "$source_dir/docs/examples/verify-package.c" "$work/c/"
export PKG_CONFIG_PATH="$usr/$libdir/pkgconfig"
pc=(pkg-config --define-variable=prefix="$usr")
[ "$("${pc[@]}" --variable=plugin signing)" = "$plugin" ] || die "signing.pc names another plug-in"
(
    cd "$work/c"
    # shellcheck disable=SC2046
    cc -std=c99 -Wall -Wextra -Werror $("${pc[@]}" --cflags signing) \
        -DSIGNING_PLUGIN="\"$("${pc[@]}" --variable=plugin signing)\"" \
        verify-package.c -o verify-package $("${pc[@]}" --libs signing)
)
expect_run 0 "$work/c/signed.out" "$work/c/verify-package" "$key" "$signed"
expect_line "0 $signed is signed." "$work/c/signed.out"
expect_run 1 "$work/c/tampered.out" "$work/c/verify-package" "$key" "$tampered"
expect_line "3 $tampered has invalid hash." "$work/c/tampered.out"
expect_run 1 "$work/c/other.out" "$work/c/verify-package" "$other_key" "$signed"
expect_line "2 $signed has invalid signature." "$work/c/other.out"

# ------------------------------------------------------------- C++ host
step "Building the C++ host with find_package(signing) and running it"
mkdir -p "$work/cxx"
cp "$source_dir/docs/examples/minimal-host.cpp" "$source_dir/docs/examples/CMakeLists.txt" "$work/cxx/"
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
cmake -S "$work/cxx" -B "$work/cxx/build" "${generator[@]}" -DCMAKE_PREFIX_PATH="$usr" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" >"$work/cxx/configure.log" 2>&1 || {
    cat "$work/cxx/configure.log" >&2
    die "find_package(signing) failed"
}
cmake --build "$work/cxx/build" >"$work/cxx/build.log" 2>&1 || {
    cat "$work/cxx/build.log" >&2
    die "the C++ host does not build"
}
host="$work/cxx/build/minimal-host"
expect_run 0 "$work/cxx/signed.out" "$host" "$key" "$signed"
expect_line 'result 0 SIGNIFICANCE "" SHORT_DESC ""' "$work/cxx/signed.out"
expect_line "_signing_validate_file: signing validation result 0 (0 is success) for $signed package [$signed is signed.]" \
    "$work/cxx/signed.out.err"
expect_run 1 "$work/cxx/tampered.out" "$host" "$key" "$tampered"
expect_line 'result 1 SIGNIFICANCE ";1" SHORT_DESC ";SIGNING_prereq_err_signing_check_short_desc"' \
    "$work/cxx/tampered.out"
expect_line "_signing_validate_file: signing validation result 3 (0 is success) for $tampered package [$tampered has invalid hash.]" \
    "$work/cxx/tampered.out.err"

# ------------------------------------------------- installed signing-host
step "Running the installed signing-host without --plugin"
expect_host_verdicts "$usr/bin/signing-host" "$work/host"

# ------------------------------------------------------------ .deb files
step "Checking the Debian packages and installing them into an empty root"
shopt -s nullglob
debs=("$build"/packages/signing_*.deb "$build"/packages/signing-dev_*.deb "$build"/packages/signing-dbg_*.deb)
shopt -u nullglob
[ ${#debs[@]} -eq 3 ] || die "expected the three packages in $build/packages; run make package"
runtime_deb=${debs[0]}
depends=$(dpkg-deb -f "$runtime_deb" Depends)
grep -Eq '(^|, )libssl3( |,|$)' <<<"$depends" || die "signing does not depend on libssl3: $depends"
grep -Eq '(^|, )wget \| curl(,|$)' <<<"$depends" || die "signing does not depend on wget | curl: $depends"
# dpkg with its own empty database. The dependencies (libc6, libssl3, wget
# or curl) are the running system's: the root is not a system to chroot
# into, only a place to install into.
deb_root="$work/deb-root"
mkdir -p "$deb_root/var/lib/dpkg/info" "$deb_root/var/lib/dpkg/updates" "$deb_root/var/lib/dpkg/triggers"
: >"$deb_root/var/lib/dpkg/status"
dpkg --root="$deb_root" --force-depends --force-not-root --log=/dev/null -i "${debs[@]}" \
    >"$work/dpkg.log" 2>&1 || {
    cat "$work/dpkg.log" >&2
    die "dpkg -i into $deb_root failed"
}
dpkg --root="$deb_root" -L signing | grep -qx "$prefix/$libdir/kmrt_stuff/signing.so" ||
    die "dpkg does not list the plug-in as part of signing"
expect_host_verdicts "$deb_root/usr/bin/signing-host" "$work/deb"

# ------------------------------------------------------------- documents
step "Checking the documents"
for example in verify-package.c minimal-host.cpp CMakeLists.txt; do
    python3 - "$source_dir/docs/examples/$example" "$source_dir/docs/integrating.md" <<'PYTHON' ||
import sys
example, page = (open(path).read() for path in sys.argv[1:])
sys.exit(0 if example in page else 1)
PYTHON
        die "docs/integrating.md does not show docs/examples/$example as it is"
done
[ "$(wc -l <"$source_dir/docs/examples/minimal-host.cpp")" -lt 100 ] || die "the minimal host has 100 lines or more"
python3 "$source_dir/scripts/md2man.py" "$source_dir/docs/integrating.md" | cmp -s - "$source_dir/docs/man/signing.so.7" ||
    die "docs/man/signing.so.7 is not rendered from docs/integrating.md; run scripts/md2man.py"

echo "install-test.sh: the installed files, both hosts and the packages work"
