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

// The answer to an exception that does not derive from std::exception and
// so carries no text.
constexpr char kUnknownExceptionText[] = "An exception of unknown type ended the verification";

} // namespace

RPM_RESULT response(RPM_STATUS status, const std::string& text) {
    char* message = static_cast<char*>(std::malloc(text.size() + 1));
    if (message == nullptr) {
        return InternalError();
    }
    std::memcpy(message, text.c_str(), text.size() + 1);
    return RPM_RESULT{status, message};
}

namespace {

// The result of an exception's text, made without std::string so that it
// can still be answered when memory has run out.
RPM_RESULT ErrorResponse(const char* text) noexcept {
    const size_t length = std::strlen(text);
    char* message = static_cast<char*>(std::malloc(length + 1));
    if (message == nullptr) {
        return InternalError();
    }
    std::memcpy(message, text, length + 1);
    return RPM_RESULT{RPM_ERROR, message};
}

// Destroys a file object. Its destructor throws when close() fails, and
// then the failure is the caller's answer; the memory is released either
// way.
void DestroyFile(FileHelper*& file) {
    FileHelper* doomed = file;
    file = nullptr;
    delete doomed;
}

// Owns the package's file object. Whatever ends the verification early, the
// file is destroyed here, and a failing close is not allowed to turn an
// answer that is already on its way into a second exception.
struct PackageFile {
    PackageFile() = default;
    PackageFile(const PackageFile&) = delete;
    PackageFile& operator=(const PackageFile&) = delete;
    ~PackageFile() {
        try {
            DestroyFile(file);
        } catch (...) {
        }
    }
    FileHelper* file = nullptr;
};

RPM_RESULT VerifyPackage(const std::string& packagePath, const std::string& keyPath) {
    PackageFile package;
    try {
        crypto::RequireOpenSsl();
        CertificateManager* store = CertificateManager::Acquire();
        store->SetPgpPublicKeyFilePath(keyPath);
        package.file = new FileHelper(packagePath);
    } catch (const std::exception& error) {
        return response(RPM_ERROR, error.what());
    }

    // A read that fails while the lead is recognised (a FIFO cannot seek,
    // a device cannot be read) reaches the caller of rpm_verify as
    // RPM_ERROR with its text.
    std::unique_ptr<Signer, SignerReclaimer> signer;
    {
        RpmSignerCreator creator;
        if (!creator.IsMe(package.file)) {
            DestroyFile(package.file);
            return response(RPM_ERROR, packagePath + contract::kVerifyNotAnRpmFile);
        }
        signer.reset(creator.GetSigner(0));
    }
    signer->_File = package.file;

    std::string message;
    int verdict = ProcessingError;
    try {
        verdict = signer->Process(true, false, false, message);
    } catch (const std::exception& error) {
        signer.reset();
        return response(RPM_ERROR, contract::kVerifyCouldNotVerify + packagePath + contract::kVerifyWithKey +
                                       keyPath + contract::kVerifyErrorJoint + error.what());
    }
    signer.reset();
    // A package whose file cannot be closed is answered with that failure.
    DestroyFile(package.file);

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

} // namespace

extern "C" RPM_RESULT rpm_verify(const char* file, const char* keyfile) {
    // Nothing may leave this C function: a host written in C has no way to
    // catch it and would end with std::terminate.
    try {
        // A null path is the caller's error; answer it rather than let the
        // string constructor throw.
        if (file == nullptr || keyfile == nullptr) {
            return response(
                RPM_ERROR,
                ArgumentException("rpm_verify needs a package path and a key path, not a null pointer")
                    .what());
        }
        return VerifyPackage(file, keyfile);
    } catch (const std::exception& error) {
        return ErrorResponse(error.what());
    } catch (...) {
        return ErrorResponse(kUnknownExceptionText);
    }
}
