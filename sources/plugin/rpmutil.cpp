#include "rpmutil.h"

#include "CertificateManager.h"
#include "ContractTexts.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "OpenSsl.h"
#include "RpmSignerCreator.h"
#include "Signature.h"
#include "Signer.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

namespace {

// Set aside at load time, so that even when memory has run out the message
// of an allocation failure is still one the caller may free.
char* g_ReserveMessage = static_cast<char*>(std::malloc(sizeof(contract::kVerifyOutOfMemory)));

RPM_RESULT InternalError() {
    char* message = static_cast<char*>(std::malloc(sizeof(contract::kVerifyOutOfMemory)));
    if (message == nullptr) {
        message = g_ReserveMessage;
        g_ReserveMessage = nullptr;
    }
    // With no memory at all and the reserve used up the message is null,
    // which free() accepts.
    if (message != nullptr) {
        std::memcpy(message, contract::kVerifyOutOfMemory, sizeof(contract::kVerifyOutOfMemory));
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
    // A null path is the caller's error; answer it rather than let the string
    // constructor throw out of an exported C function.
    if (file == nullptr || keyfile == nullptr) {
        return response(
            RPM_ERROR,
            ArgumentException("rpm_verify needs a package path and a key path, not a null pointer").what());
    }
    const std::string packagePath(file);
    const std::string keyPath(keyfile);

    std::unique_ptr<FileHelper> package;
    try {
        crypto::RequireOpenSsl();
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
            return response(RPM_ERROR, packagePath + contract::kVerifyNotAnRpmFile);
        }
        signer.reset(creator.GetSigner(0));
    }
    signer->_File = package.get();

    std::string message;
    int verdict = ProcessingError;
    try {
        verdict = signer->Process(true, false, false, message);
    } catch (const std::exception& error) {
        signer.reset();
        package.reset();
        return response(RPM_ERROR, contract::kVerifyCouldNotVerify + packagePath + contract::kVerifyWithKey +
                                       keyPath + contract::kVerifyErrorJoint + error.what());
    }
    signer.reset();
    package.reset();

    // Process answers 0 for an unsigned package and 1 for a signed one; the
    // statuses have them the other way round. The message Process wrote is
    // not passed on.
    switch (static_cast<uint32_t>(verdict)) {
    case Unsigned:
        return response(RPM_NOT_SIGNED, packagePath + contract::kVerifyNotSigned);
    case Valid:
        return response(RPM_SIGNED, packagePath + contract::kVerifySigned);
    case InvalidSignature:
        return response(RPM_INVALID_SIGNATURE, packagePath + contract::kVerifyInvalidSignature);
    case InvalidHash:
        return response(RPM_INVALID_HASH, packagePath + contract::kVerifyInvalidHash);
    case InvalidStructure:
        return response(RPM_INVALID_STRUCTURE, packagePath + contract::kVerifyInvalidStructure);
    case ProcessingError:
        return response(RPM_ERROR, contract::kVerifyInternalError + packagePath);
    default:
        return response(RPM_ERROR, contract::kVerifyUnknownError);
    }
}
