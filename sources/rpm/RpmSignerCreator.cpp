#include "RpmSignerCreator.h"

#include "ContractTexts.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "RpmSigner.h"

#include <cstring>

namespace {
// The lead of an RPM package begins with this magic, followed by the major
// and minor version of the format; only 3.0 is accepted.
constexpr unsigned char kLeadMagic[4] = {0xED, 0xAB, 0xEE, 0xDB};
constexpr unsigned char kLeadVersion[2] = {3, 0};
constexpr unsigned long kVersionOffset = 4;
} // namespace

const char* RpmSignerCreator::_FileExtensions = contract::kRpmFileExtensions;

RpmSignerCreator::~RpmSignerCreator() = default;

bool RpmSignerCreator::IsMe(FileHelper* file) {
    if (file == nullptr) {
        throw ArgumentException(exception_text::NullArgument("RpmSignerCreator::IsMe"));
    }
    if (file->IsFolder()) {
        return false;
    }
    // Magic and version with one read; should it come back short, the two
    // integer readers answer as they always did.
    unsigned char lead[sizeof(kLeadMagic) + sizeof(kLeadVersion)];
    if (file->ReadAt(reinterpret_cast<char*>(lead), 0, sizeof(lead)) == static_cast<long>(sizeof(lead))) {
        return std::memcmp(lead, kLeadMagic, sizeof(kLeadMagic)) == 0 &&
               std::memcmp(lead + kVersionOffset, kLeadVersion, sizeof(kLeadVersion)) == 0;
    }
    // The readers give the bytes as they lie in the file.
    const uint32_t magic = file->GetUInt32(0);
    if (std::memcmp(&magic, kLeadMagic, sizeof(kLeadMagic)) != 0) {
        return false;
    }
    const uint16_t version = file->GetUInt16(kVersionOffset);
    return std::memcmp(&version, kLeadVersion, sizeof(kLeadVersion)) == 0;
}

const char* RpmSignerCreator::GetFileExtensions() {
    return _FileExtensions;
}

Signer* RpmSignerCreator::GetSigner(unsigned int mode) {
    return new RpmSigner(mode);
}
