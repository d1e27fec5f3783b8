// Asks the plug-in itself whether it can use a key file. The host writes a
// tiny package into its private folder whose digests are right and whose
// header signature names a chosen issuer but carries no valid RSA value,
// and calls rpm_verify on it:
//   - a key the plug-in cannot load ends in its error answer whatever the
//     issuer is;
//   - a loaded key answers "invalid signature" for an issuer that is not
//     the key's, and the error answer (the RSA check failed) for the issuer
//     it checks against.
// So two calls tell whether the key loads and which key ID it is compared
// with, without any knowledge of how the plug-in reads keys.
#ifndef HOST_PROGRAM_KEYPROBE_H
#define HOST_PROGRAM_KEYPROBE_H

#include "rpmutil.h"

#include <string>

namespace host {

using VerifyFunction = RPM_RESULT (*)(const char*, const char*);

class KeyProbe {
public:
    // folder: a private folder of the host where the probe package is
    // written.
    KeyProbe(VerifyFunction verify, const std::string& folder) : m_Verify(verify), m_Folder(folder) {}

    // True when the plug-in loads the key file. avoidKeyId (16 hex digits)
    // is not used as the issuer that must not match.
    bool Loads(const std::string& keyPath, const std::string& avoidKeyId = std::string());

    // True when the plug-in compares signatures with this key ID (16 hex
    // digits) and would go on to the RSA check; meaningful once Loads.
    bool ChecksKeyId(const std::string& keyPath, const std::string& keyId);

private:
    // rpm_verify's status for a probe package whose signature names issuer.
    int StatusFor(const std::string& keyPath, const std::string& issuer);

    VerifyFunction m_Verify;
    std::string m_Folder;
};

} // namespace host

#endif
