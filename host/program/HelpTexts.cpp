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

Options of both commands:
  --plugin PATH   the plug-in to load (default: signing.so beside this
                  program, or in the folder above it)
  --log FILE      also append the plug-in's log lines to FILE
  --json          print the results as JSON on standard output
  --quiet         keep the plug-in's log lines off standard error
  --help          show the command's help
  --version       show the version

Exit codes: 0 success; 1 a package failed its check or no valid public key
was obtained; 2 usage error, unreadable manifest, plug-in that does not load.

Run 'signing-host run --help' or 'signing-host verify --help' for details.
)";

const char kRunHelp[] =
    R"(Usage: signing-host run [--plugin PATH] [--log FILE] [--json] MANIFEST

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
      "TEMP_FOLDER": "/tmp/signing-run",
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
folder. Environments are optional; an object inside one is a nested
environment (as "phonehome" is). Without "TEMP_FOLDER" the host makes a
temporary folder for the run and removes it afterwards.

Options:
  --plugin PATH   the plug-in to load (default: signing.so beside this program)
  --log FILE      also append the plug-in's log lines to FILE
  --json          print the session values, the component results and the
                  prerequisite outcome as JSON instead of the summary
  --quiet         keep the plug-in's log lines off standard error (--log
                  FILE still gets them)

Exit code: the entry point's return value (0 every verified package is
signed; 1 a package failed, or no valid public key was obtained); 2 when the
manifest or the plug-in cannot be used, nothing being run.
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

Options:
  --key KEY           the public key file (required)
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
  --plugin PATH       the plug-in to load (default: signing.so beside this program)
  --log FILE          also append the plug-in's log lines to FILE

Packages named as arguments come first, then those of --files-from, then
those of --recursive. On a terminal, standard error shows a progress bar
that fits its width: done/total, elapsed time and time left.

Exit code: 0 when every package is RPM_SIGNED, 1 otherwise, 2 for usage
errors (no key, no package, a key file that does not exist, a package list
that cannot be read, a plug-in that does not load).
)";

std::string VersionText() {
    return std::string("signing-host ") + SIGNING_HOST_VERSION;
}

} // namespace host
