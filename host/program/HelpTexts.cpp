// The help texts of signing-host.
#include "Commands.h"

#ifndef SIGNING_HOST_VERSION
#define SIGNING_HOST_VERSION "0"
#endif

namespace host {

const char kProgramHelp[] =
    R"(Usage: signing-host COMMAND [OPTIONS] ARGUMENTS...

The reference host of the signing.so plug-in. It provides the installer's
session interface, loads the plug-in with dlopen as an installer does, and
calls its entry points.

Commands:
  run MANIFEST              build a session from a JSON manifest and call
                            signing_validate_package_list on it
  verify --key KEY PACKAGE...
                            call rpm_verify on each package file
  explain --key KEY PACKAGE...
                            verify -v: each check of each package in
                            plain words, with advice for each failure
  key KEYFILE               what a public key file holds and whether the
                            plug-in can use it

Options of every command:
  --plugin PATH   the plug-in to load (default: signing.so beside this
                  program or in the folder above it, else the installed
                  plug-in)
  --log FILE      also append the plug-in's log lines to FILE
  --json          print the results as JSON on standard output
  --quiet         keep the plug-in's log lines off standard error
  --help          show the command's help
  --version       show the version

Exit codes:
  0  every package is signed (key: the plug-in can use the key)
  1  a package failed its signature or hash check
  2  usage error, unreadable manifest, plug-in that does not load: nothing
     was run
  3  something could not be checked: a missing or unreadable package, a
     key that is missing or unusable, an error answer of the plug-in, or
     (run --strict) a component of type rpm that was not verified
  1 wins over 3 when both happen.

Run 'signing-host COMMAND --help' for details.
)";

const char kRunHelp[] =
    R"(Usage: signing-host run [--key KEY] [--strict] [--plugin PATH] [--log FILE]
                        [--json | --json-lines] [--quiet] MANIFEST

Builds the installer's session from MANIFEST, calls the plug-in's
signing_validate_package_list, and streams the plug-in's log to standard
error, with a progress bar driven by the plug-in's "operation_progress"
when standard error is a terminal (plain "progress:" lines otherwise).
Then it prints a summary on standard output: one line per component, and
the prerequisite outcome read back from SIGNIFICANCE, SHORT_DESC and
FULL_DESC with the host's sentence for each message identifier.

MANIFEST is a JSON file:
  {
    "session": {
      "signing_url": "http://127.0.0.1:8080/keys/release.asc",
      "SIGNING_LOCAL_PUBLIC_KEY": "${MANIFEST_DIR}/release.asc"
    },
    "variables": { "PACKAGES": "/srv/packages" },
    "products": [
      {
        "name": "Suite",
        "environment": { "phonehome": { "VokUpdateId": "UPD-1" } },
        "components": [
          { "name": "core", "type": "rpm",
            "packageFolder": "${PACKAGES}", "packageFile": "core-1.0-1.noarch.rpm" }
        ]
      }
    ]
  }
"products" is required, and each product's "name" and each component's
"name", "type", "packageFolder" and "packageFile". "session" and
"variables" are optional texts (both become session values; "${NAME}" in
operands expands to them, once). "${MANIFEST_DIR}" is the manifest's own
folder; it is also expanded in the "signature" session value. Environments are optional; an object inside one is a nested
environment (as "phonehome" is). Without "TEMP_FOLDER" the host makes a
private temporary folder for the run (mkdtemp, mode 0700) and removes it
afterwards: leave it out rather than name a shared folder such as /tmp.

A component whose type is almost "rpm" ("RPM", "rpm ") or whose package
folder uses a ${NAME} that is not set is named in a warning before the run:
the plug-in does not verify it.

Options:
  --key KEY       the public key file: sets the "signature" session value
                  (no download happens), overriding the manifest
  --strict        every component of type rpm (or a near miss of it) must
                  have been verified: a missing file, an unset variable or
                  an odd type spelling fails the run (exit code 3)
  --plugin PATH   the plug-in to load (default: signing.so beside this
                  program, else the installed plug-in)
  --log FILE      also append the plug-in's log lines to FILE (a new file
                  gets mode 0600; a symbolic link is refused)
  --json          print the session values, the component results and the
                  prerequisite outcome as JSON instead of the summary
  --quiet         keep the plug-in's log lines off standard error (--log
                  FILE still gets them)
  --json-lines    one JSON object per component as soon as the plug-in
                  has moved past it, then a summary object
                  (docs/json-schema.md, schema 1)

Exit code: 0 every verified package is signed; 1 a package failed its
signature or hash check; 3 nothing failed but something could not be
checked (no valid public key, an unusable key, an error answer, or with
--strict a component that was not verified); 2 when the manifest or the
plug-in cannot be used, nothing being run. The private temporary folder is
removed also when the run is ended by SIGINT, SIGTERM or SIGHUP.
)";

const char kVerifyHelp[] =
    R"(Usage: signing-host verify --key KEY [OPTIONS] [PACKAGE...]

Calls the plug-in's rpm_verify for each PACKAGE with the armored OpenPGP
public key file KEY, and prints one line per package, in input order:
  PATH: STATUS_NAME (STATUS) MESSAGE
STATUS_NAME is one of RPM_SIGNED (0), RPM_NOT_SIGNED (1),
RPM_INVALID_SIGNATURE (2), RPM_INVALID_HASH (3), RPM_INVALID_STRUCTURE (4),
RPM_ERROR (5). Control characters and bytes that are not UTF-8 in PATH and
MESSAGE are escaped as \n, \t, \xHH (and \\ for a backslash).

When a package fails, a line of advice per known cause follows on standard
error ("PATH: no signature: the package is unsigned; ...").

Options:
  --key KEY           the public key file (required)
  -v, --verbose       show what the key file holds and whether the plug-in
                      can use it, then under each package every check in
                      plain words: lead and format, the signature header's
                      tags, the header SHA-1 (tag 269) and MD5 (tag 1004),
                      the header (268) and header+payload (1002) signatures
                      with version, hash, key ID and creation time, each OK,
                      BAD or MISSING, and the advice ("explain" is the same
                      command); text output only
  --files-from FILE   also check the packages listed in FILE ("-": standard
                      input), one per line (NUL-separated with -0)
  --recursive DIR     also check every *.rpm under DIR, sorted by path
  --jobs N            worker processes (default: the number of processors);
                      the output is the same for every N
  -0                  NUL-separated input list and output records; the
                      path is then written exactly as it is
  --json-lines        one JSON object per package as soon as it is done,
                      then a summary object (docs/json-schema.md, schema 1)
  --json              the same objects as one JSON document at the end
  --quiet             keep the plug-in's log lines off standard error
  --plugin PATH       the plug-in to load (default: signing.so beside this
                      program, else the installed plug-in)
  --log FILE          also append the plug-in's log lines to FILE

Packages named as arguments come first, then those of --files-from, then
those of --recursive. On a terminal, standard error shows a progress bar
that fits its width: done/total, elapsed time and time left. The verdict
shown is always the plug-in's; the explanation only adds detail.

Exit code: 0 every package is RPM_SIGNED; 1 a package failed its signature
or hash check (RPM_NOT_SIGNED, RPM_INVALID_SIGNATURE, RPM_INVALID_HASH,
RPM_INVALID_STRUCTURE, or RPM_ERROR for a package that is unsigned, lacks
the header+payload signature, or whose signature value does not verify); 3
nothing failed but something could not be checked (a missing or unreadable
package, a file that is not a package, a key file that is missing or that
the plug-in cannot use, another RPM_ERROR); 2 usage errors (no key, no
package, a package list that cannot be read, a plug-in that does not load).
)";

const char kKeyHelp[] =
    R"(Usage: signing-host key [--plugin PATH] [--log FILE] [--json] KEYFILE

Shows what the public key file KEYFILE holds (its form, each key's
fingerprint, key ID, algorithm, size, user IDs and subkeys) and whether the
plug-in can use it, with advice for each known problem: text before the
armor, several keys or armor blocks in one file, a binary keyring, a GnuPG
keybox, a signing subkey, a key that is not RSA, an empty file or an RPM
package given as the key.

Whether the plug-in can use the key is asked of the plug-in itself: the host
writes a small probe package into a private temporary folder and calls
rpm_verify on it with KEYFILE, which also tells the key ID the plug-in
compares signatures with.

Options:
  --plugin PATH   the plug-in to load (default: signing.so beside this program)
  --log FILE      append the plug-in's log lines of the probes to FILE
  --json          print the result as JSON instead

Exit code: 0 the plug-in can use the key; 3 it cannot; 2 usage errors.
)";

std::string VersionText() {
    return std::string("signing-host ") + SIGNING_HOST_VERSION;
}

} // namespace host
