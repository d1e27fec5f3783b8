#!/usr/bin/env bash
# Checks a built or installed plug-in with readelf and nm:
#
#   check-hardening.sh PLUGIN DEBUG_FILE [PROGRAM...]
#
# PLUGIN is the stripped plug-in, DEBUG_FILE its split-off debug
# information, PROGRAM any further stripped executable (signing-host). Each
# file must have
#   - full RELRO: a GNU_RELRO segment and immediate binding (BIND_NOW, NOW);
#   - stack protection: a reference to __stack_chk_fail;
#   - source fortification: a reference to a fortified __*_chk function;
#   - no symbol table and no debug sections, but a .gnu_debuglink;
# the debug file must say that the code was compiled with -O2 and
# -fstack-protector-strong; and the plug-in's calls into the host's session
# functions must be weak references, so that immediate binding still lets a
# host without them load it.
set -euo pipefail

fail() {
    echo "check-hardening.sh: $*" >&2
    exit 1
}

[ $# -ge 2 ] || fail "usage: check-hardening.sh PLUGIN DEBUG_FILE [PROGRAM...]"
plugin=$1
debug_file=$2
shift 2

check_binary() {
    local file=$1
    [ -f "$file" ] || fail "$file does not exist"
    local dynamic segments sections symbols
    dynamic=$(readelf -dW "$file")
    segments=$(readelf -lW "$file")
    sections=$(readelf -SW "$file")
    symbols=$(nm -D "$file")
    grep -q 'GNU_RELRO' <<<"$segments" || fail "$file: no GNU_RELRO segment (RELRO)"
    grep -Eq '\(FLAGS\) +BIND_NOW' <<<"$dynamic" || fail "$file: no BIND_NOW flag (-z now)"
    grep -Eq '\(FLAGS_1\) +Flags: .*NOW' <<<"$dynamic" || fail "$file: no NOW in FLAGS_1 (-z now)"
    grep -q ' U __stack_chk_fail@' <<<"$symbols" || fail "$file: no __stack_chk_fail (-fstack-protector-strong)"
    grep -Eq ' U __[a-z_]+_chk@' <<<"$symbols" || fail "$file: no fortified __*_chk call (-D_FORTIFY_SOURCE=2)"
    ! grep -Eq '\] \.(symtab|debug_[a-z]+|zdebug_[a-z]+) ' <<<"$sections" ||
        fail "$file: not stripped (has a symbol table or debug sections)"
    grep -q '\] \.gnu_debuglink ' <<<"$sections" || fail "$file: no .gnu_debuglink to its debug file"
    echo "$file: full RELRO, BIND_NOW, stack protector, fortified, stripped, debug link"
}

check_binary "$plugin"
for program in "$@"; do
    check_binary "$program"
done

[ -f "$debug_file" ] || fail "$debug_file does not exist"
producers=$(readelf --debug-dump=info "$debug_file" 2>/dev/null | grep DW_AT_producer | sort -u)
[ -n "$producers" ] || fail "$debug_file: no debug information"
while IFS= read -r producer; do
    grep -q -- ' -O2' <<<"$producer" || fail "$debug_file: a unit not compiled with -O2: $producer"
    grep -q -- ' -fstack-protector-strong' <<<"$producer" ||
        fail "$debug_file: a unit not compiled with -fstack-protector-strong: $producer"
done <<<"$producers"
echo "$debug_file: every unit compiled with -O2 and -fstack-protector-strong"

# Undefined symbols without a version are the host's session functions.
strong=$(nm -D "$plugin" | awk '$1 == "U" && $2 !~ /@/ { print $2 }')
[ -z "$strong" ] || fail "$plugin: host symbols bound strongly, dlopen fails without them: $strong"
echo "$plugin: the host's session functions are weak references"
