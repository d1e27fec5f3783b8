#include "rpmutil.h"

#include "CertificateManager.h"
#include "FileHelper.h"
#include "RpmSignerCreator.h"
#include "Signer.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

namespace {

constexpr char kInternalError[] = "Internal error.";

// Set aside at load time, so that even when memory has run out the message
// of an allocation failure is still one the caller may free.
char* g_ReserveMessage = static_cast<char*>(std::malloc(sizeof(kInternalError)));

RPM_RESULT InternalError() {
    char* message = static_cast<char*>(std::malloc(sizeof(kInternalError)));
    if (message == nullptr) {
        message = g_ReserveMessage;
        g_ReserveMessage = nullptr;
    }
    // With no memory at all and the reserve used up the message is null,
    // which free() accepts.
    if (message != nullptr) {
        std::memcpy(message, kInternalError, sizeof(kInternalError));
    }
    return RPM_RESULT{RPM_ERROR, message};
}

// A signer destroys the file it was handed; the caller keeps ownership of
// the file, so it is taken back before the signer goes.
struct SignerReclaimer {
    void operator()(Signer* signer) const {
        signer->_File = nullptr;
        delete signer;
    }
};

// The verdicts of RpmSigner::Process.
enum Verdict : unsigned int {
    kVerdictNotSigned = 0,
    kVerdictSigned = 1,
    kVerdictInvalidSignature = 2,
    kVerdictInvalidHash = 3,
    kVerdictInvalidStructure = 4,
    kVerdictError = 5,
};

} // namespace

RPM_RESULT response(RPM_STATUS status, const std::string& text) {
    char* message = static_cast<char*>(std::malloc(text.size() + 1));
    if (message == nullptr) {
        return InternalError();
    }
    std::memcpy(message, text.c_str(), text.size() + 1);
    return RPM_RESULT{status, message};
}

extern "C" RPM_RESULT rpm_verify(const char* file, const char* keyfile) {
    const std::string packagePath(file);
    const std::string keyPath(keyfile);

    std::unique_ptr<FileHelper> package;
    try {
        CertificateManager* store = CertificateManager::Acquire();
        store->SetPgpPublicKeyFilePath(keyPath);
        package.reset(new FileHelper(packagePath));
    } catch (const std::exception& error) {
        return response(RPM_ERROR, error.what());
    }

    std::unique_ptr<Signer, SignerReclaimer> signer;
    {
        RpmSignerCreator creator;
        if (!creator.IsMe(package.get())) {
            package.reset();
            return response(RPM_ERROR, packagePath + " is not an RPM file.");
        }
        signer.reset(creator.GetSigner(0));
    }
    signer->_File = package.get();

    std::string message;
    int verdict = kVerdictError;
    try {
        verdict = signer->Process(true, false, false, message);
    } catch (const std::exception& error) {
        signer.reset();
        package.reset();
        return response(RPM_ERROR,
                        "Could not verify " + packagePath + " with key " + keyPath + " - " + error.what());
    }
    signer.reset();
    package.reset();

    // Process answers 0 for an unsigned package and 1 for a signed one; the
    // statuses have them the other way round. The message Process wrote is
    // not passed on.
    switch (static_cast<unsigned int>(verdict)) {
    case kVerdictNotSigned:
        return response(RPM_NOT_SIGNED, packagePath + " is not signed.");
    case kVerdictSigned:
        return response(RPM_SIGNED, packagePath + " is signed.");
    case kVerdictInvalidSignature:
        return response(RPM_INVALID_SIGNATURE, packagePath + " has invalid signature.");
    case kVerdictInvalidHash:
        return response(RPM_INVALID_HASH, packagePath + " has invalid hash.");
    case kVerdictInvalidStructure:
        return response(RPM_INVALID_STRUCTURE, packagePath + " has invalid structure.");
    case kVerdictError:
        return response(RPM_ERROR, "Internal error occured while verifying " + packagePath);
    default:
        return response(RPM_ERROR, "Unknown error");
    }
}
