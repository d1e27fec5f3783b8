// One rpm_verify call as plain values, for the tests that judge its status
// and message: the message is copied and released here.
#ifndef SIGNING_TEST_RPM_VERIFY_CALL_H
#define SIGNING_TEST_RPM_VERIFY_CALL_H

#include "rpmutil.h"

#include <cstdlib>
#include <string>

namespace testsupport {

struct VerifyResult {
    int status;
    std::string message;
};

// rpm_verify's answer for the package and key paths; "<null>" stands for
// a null message.
inline VerifyResult Verify(const std::string& file, const std::string& key) {
    RPM_RESULT result = rpm_verify(file.c_str(), key.c_str());
    VerifyResult copy{result.status, result.message != nullptr ? result.message : "<null>"};
    std::free(result.message);
    return copy;
}

} // namespace testsupport

#endif
