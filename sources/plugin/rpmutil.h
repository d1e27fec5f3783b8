// Verification of one package file against one public key file, exported
// under its plain symbol name.
#ifndef SIGNING_RPMUTIL_H
#define SIGNING_RPMUTIL_H

#include <cstdint>
#include <string>

enum RPM_STATUS : int32_t {
    RPM_SIGNED = 0,
    RPM_NOT_SIGNED = 1,
    RPM_INVALID_SIGNATURE = 2,
    RPM_INVALID_HASH = 3,
    RPM_INVALID_STRUCTURE = 4,
    RPM_ERROR = 5,
};

// message is allocated with malloc; the caller releases it with free.
struct RPM_RESULT {
    RPM_STATUS status;
    char* message;
};

extern "C" RPM_RESULT rpm_verify(const char* file, const char* keyfile);

// The status with a malloc'ed copy of text. When the copy cannot be made the
// result is RPM_ERROR with "Internal error.", still a text that may be freed
// whenever memory allows.
RPM_RESULT response(RPM_STATUS status, const std::string& text);

#endif
