// The plug-in's host-facing entry points and the internal operations behind
// them: validating the host's package list, finding the public key (a user's
// key file or a download from the key service with wget or curl), the
// plausibility test of a key file, and the warnings recorded in the session.
#ifndef SIGNING_SIGNING_H
#define SIGNING_SIGNING_H

#include "session.h"

#include <signing/rpm_verify.h>

#include <string>

// The host's entry point: verifies the package of every "rpm" component of
// every product against the public key and records the outcome in the
// session ("SIGNIFICANCE", "SHORT_DESC", "FULL_DESC"), reporting progress in
// "operation_progress". Returns 0 when every verified package is signed
// (also when none was verified), 1 when no valid key could be obtained or a
// package failed. Exported under its plain symbol name.
extern "C" int signing_validate_package_list(session_t* session);

// Failure categories of an optional-prerequisite warning: the key failed the
// validity test, the key could not be downloaded, the key file.
enum SigningWarningCategory : int {
    kSigningWarningValidate = 3,
    kSigningWarningDownload = 4,
    kSigningWarningFile = 5,
};

// Appends one optional-prerequisite warning of the given category (3, 4 or
// 5) to the session: ";0" to "SIGNIFICANCE" and the category's message
// identifiers to "SHORT_DESC" and "FULL_DESC". Any other category throws
// ArgumentException before anything is written.
void _signing_set_optional_prerequisite_status(session_t* session, int category);

// The path of the public key file: the session's "signature" when the user
// named one, otherwise the file downloaded into the session's "TEMP_FOLDER";
// empty when no key could be obtained. Exported with its C++ signature.
std::string _signing_get_public_key(session_t* session);

// The shell command that downloads url into outFile with wget (preferred) or
// curl, whichever `which` finds; empty when neither is usable.
std::string _signing_get_command(const std::string& url, const std::string& outFile);

// 0 when the key file exists and no line of it contains "http://" (a key
// service error page rather than a key), 1 otherwise.
int _signing_is_valid_key(const std::string& path);

#endif
