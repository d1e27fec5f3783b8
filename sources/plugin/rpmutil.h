// Verification of one package file against one public key file, exported
// under its plain symbol name.
#ifndef SIGNING_RPMUTIL_H
#define SIGNING_RPMUTIL_H

// RPM_STATUS, RPM_RESULT and rpm_verify itself are the public header's.
#include <signing/rpm_verify.h>

#include <string>

// The status with a malloc'ed copy of text. When the copy cannot be made the
// result is RPM_ERROR with "Internal error.", still a text that may be freed
// whenever memory allows.
RPM_RESULT response(RPM_STATUS status, const std::string& text);

#endif
