#include "Signer.h"

#include "ContractTexts.h"
#include "Exceptions.h"
#include "FileHelper.h"

namespace {
// The file-type code of the signers of this library.
constexpr uint32_t kFileType = 4;
} // namespace

Signer::Signer() : _File(nullptr), _OutputFile(nullptr), _Setting1(1), _Mode(0), _Setting2(1) {}

Signer::~Signer() {
    // An output copy is only kept when the caller has taken it away.
    if (_OutputFile != nullptr) {
        try {
            _OutputFile->Remove();
        } catch (const std::exception&) {
            // Nothing sensible to report from a destructor.
        }
        try {
            delete _OutputFile;
        } catch (const std::exception&) {
        }
        _OutputFile = nullptr;
    }
    try {
        delete _File;
    } catch (const std::exception&) {
    }
    _File = nullptr;
}

void Signer::BuildContentInfo(soapWrap::HashAlgorithm, bool) {
    throw NotImplementedException(contract::kSignerBuildContentInfoWithHash);
}

bool Signer::IsCatSpecificContentInfo() {
    return false;
}

DigestBase* Signer::GetDigest() {
    return nullptr;
}

uint32_t Signer::GetFileType() {
    return kFileType;
}
