# Helpers that the project's bash scripts source. The sourcing script sets
# script_name (the prefix of its error messages) first.

# die MESSAGE...: prints "<script_name>: MESSAGE" on standard error and ends
# the script with status 1.
die() {
    echo "$script_name: $*" >&2
    exit 1
}

# require_tools HINT TOOL...: dies naming the first tool that is not on the
# PATH; HINT says how to install it.
require_tools() {
    local hint=$1 tool
    shift
    for tool in "$@"; do
        command -v "$tool" >/dev/null 2>&1 || die "required tool '$tool' is missing ($hint)"
    done
}

# Sets python to Debian's python3 when there is one: it has the modules that
# scripts/deps.sh installs, which another python3 on the PATH may lack.
find_python() {
    python=python3
    if [ -x /usr/bin/python3 ]; then
        python=/usr/bin/python3
    fi
}

# tool_stamp FILE...: a hash of the files and of the gpg and rpm versions,
# which tells whether what they made is still current.
tool_stamp() {
    {
        cat "$@"
        gpg --version | head -n 1
        rpm --version
    } | sha256sum | cut -d ' ' -f 1
}

# gpg_key_params BITS REAL_NAME EMAIL: the unattended gpg --gen-key input
# for an RSA signing key with an RSA encryption subkey, without passphrase.
gpg_key_params() {
    cat <<PARAMS
%no-protection
Key-Type: RSA
Key-Length: $1
Key-Usage: sign,cert
Subkey-Type: RSA
Subkey-Length: $1
Subkey-Usage: encrypt
Name-Real: $2
Name-Email: $3
Expire-Date: 0
%commit
PARAMS
}
