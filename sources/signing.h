// The plug-in's host-facing entry points and the internal operations behind
// them: finding the public key (a user's key file or a download from the key
// service with wget or curl) and the plausibility test of a key file.
#ifndef SIGNING_SIGNING_H
#define SIGNING_SIGNING_H

#include "session.h"

#include <string>

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
