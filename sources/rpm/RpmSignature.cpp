#include "RpmSignature.h"

#include "ByteReader.h"
#include "ContractTexts.h"
#include "DigestSlot.h"
#include "Exceptions.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sstream>
#include <vector>

namespace {

// Signature-header tags that verification reads.
constexpr uint32_t kTagHeaderSignature = 268;   // OpenPGP signature over the main header
constexpr uint32_t kTagSha1HeaderHash = 269;    // SHA-1 of the main header, 40 hex digits
constexpr uint32_t kTagPayloadSignature = 1002; // OpenPGP signature over main header and payload
constexpr uint32_t kTagMd5Hash = 1004;          // MD5 of main header and payload, 16 bytes

constexpr unsigned int kMd5Length = 16;
constexpr unsigned int kEntrySize = sizeof(SignatureEntry);
// The index is walked with an 8-bit counter, so no more entries than it can count.
constexpr uint32_t kMaxIndexCount = 255;

// Position of the entry's type byte: the last byte of the big-endian type field.
constexpr unsigned int kTypeByteOffset = 7;

std::string TagText(uint32_t tag) {
    return std::to_string(tag);
}

// Refuses a signature header whose entries that verification reads (the
// signatures 268 and 1002, the SHA-1 text 269, the MD5 value 1004) share
// data bytes. Shared bytes let one blob be parsed again and again (254
// signature entries over one large blob cost 254 parses of it); with
// separate regions the parse work of all entries together is bounded by the
// store's size. The SHA-1 text is looked for only up to the next region, so
// this check is linear too. The data of other entries is never read, and
// their regions are not looked at, nor are regions that leave the store.
// Entries are still in file byte order.
void RequireSeparateRegions(const unsigned char* index, uint32_t indexCount, const unsigned char* store,
                            uint32_t storeSize) {
    struct Region {
        uint64_t begin;
        uint64_t end;
        uint32_t tag;
    };
    std::vector<Region> regions;
    regions.reserve(indexCount);
    for (uint32_t i = 0; i < indexCount; ++i) {
        const unsigned char* raw = index + static_cast<size_t>(i) * kEntrySize;
        Region region{LoadBigEndian32(raw + 8), 0, LoadBigEndian32(raw)};
        switch (region.tag) {
        case kTagHeaderSignature:
        case kTagPayloadSignature:
            region.end = region.begin + LoadBigEndian32(raw + 12);
            break;
        case kTagMd5Hash:
            region.end = region.begin + kMd5Length;
            break;
        case kTagSha1HeaderHash:
            region.end = region.begin + 1; // measured below
            break;
        default:
            continue;
        }
        // Data outside the store is refused by the walk itself, with its own text.
        if (region.end > region.begin && region.end <= storeSize) {
            regions.push_back(region);
        }
    }
    std::sort(regions.begin(), regions.end(),
              [](const Region& a, const Region& b) { return a.begin < b.begin; });
    uint64_t reached = 0;
    const Region* reachedBy = nullptr;
    for (size_t i = 0; i < regions.size(); ++i) {
        Region& region = regions[i];
        if (region.tag == kTagSha1HeaderHash) {
            // The text ends at its NUL, which must come before the next region.
            const uint64_t limit =
                std::min<uint64_t>(i + 1 < regions.size() ? regions[i + 1].begin : storeSize, storeSize);
            const void* nul = limit > region.begin
                                  ? std::memchr(store + region.begin, '\0', limit - region.begin)
                                  : nullptr;
            // An unterminated text runs into the next region (or to the store's end).
            region.end = nul != nullptr
                             ? static_cast<uint64_t>(static_cast<const unsigned char*>(nul) - store) + 1
                             : limit + (limit < storeSize ? 1 : 0);
            region.end = std::max(region.end, region.begin + 1);
        }
        if (reachedBy != nullptr && region.begin < reached) {
            throw InvalidFileStructureException(
                "Signature section: the data of tag " + TagText(region.tag) + " (offset " +
                std::to_string(region.begin) + ") overlaps the data of tag " + TagText(reachedBy->tag) +
                " (offset " + std::to_string(reachedBy->begin) + ", " +
                std::to_string(reachedBy->end - reachedBy->begin) + " bytes).");
        }
        if (region.end > reached) {
            reached = region.end;
            reachedBy = &region;
        }
    }
}

} // namespace

RpmSignature::RpmSignature(void* entries, const HeaderStructureHeader& header)
    : _Header(header), _Entries(static_cast<SignatureEntry*>(entries)), _Sha1HeaderHash(nullptr),
      _Md5Hash(nullptr), _HeaderSignature(nullptr), _Unused1(0), _Unused2(0), _Unused3(0) {
    const uint32_t indexCount = header.indexCount;
    if (indexCount == 0) {
        return;
    }
    if (indexCount > kMaxIndexCount) {
        throw InvalidFileStructureException("Signature section: the signature header has " +
                                            std::to_string(indexCount) +
                                            " index entries; at most 255 are supported.");
    }
    auto* buffer = static_cast<unsigned char*>(entries);
    unsigned char* store = buffer + static_cast<size_t>(indexCount) * kEntrySize;
    const uint32_t storeSize = header.dataSize;
    RequireSeparateRegions(buffer, indexCount, store, storeSize);

    try {
        for (uint8_t index = 0; index < indexCount; ++index) {
            unsigned char* raw = buffer + static_cast<size_t>(index) * kEntrySize;
            SignatureEntry entry;
            // The tag stays in file byte order; the rest becomes host order.
            std::memcpy(&entry.tag, raw, sizeof(entry.tag));
            entry.type = raw[kTypeByteOffset];
            entry.offset = LoadBigEndian32(raw + 8);
            entry.count = LoadBigEndian32(raw + 12);
            const uint32_t tag = LoadBigEndian32(raw);
            new (raw) SignatureEntry(entry);

            const bool offsetInside = entry.offset <= storeSize;
            switch (tag) {
            case kTagHeaderSignature:
            case kTagPayloadSignature: {
                if (!offsetInside || entry.count == 0 || entry.count > storeSize - entry.offset) {
                    throw InvalidFileStructureException("Signature section: the OpenPGP signature of tag " +
                                                        TagText(tag) + " lies outside the data store.");
                }
                PgpSignature* signature = MakePgpSignature(store + entry.offset, entry.count, tag);
                if (tag == kTagHeaderSignature) {
                    // Only the last header-only signature counts.
                    delete _HeaderSignature;
                    _HeaderSignature = signature;
                } else {
                    try {
                        _PgpSignatures.push_back(signature);
                    } catch (...) {
                        delete signature;
                        throw;
                    }
                }
                break;
            }
            case kTagSha1HeaderHash:
                if (!offsetInside || entry.offset == storeSize ||
                    std::memchr(store + entry.offset, '\0', storeSize - entry.offset) == nullptr) {
                    throw InvalidFileStructureException(
                        "Signature section: the SHA1 header hash (tag 269) is "
                        "not a NUL-terminated text inside the data store.");
                }
                _Sha1HeaderHash = reinterpret_cast<const char*>(store + entry.offset);
                break;
            case kTagMd5Hash:
                if (!offsetInside || kMd5Length > storeSize - entry.offset) {
                    throw InvalidFileStructureException(
                        "Signature section: the MD5 hash (tag 1004) lies outside the data store.");
                }
                _Md5Hash = store + entry.offset;
                break;
            default:
                break;
            }
        }
    } catch (...) {
        // The destructor does not run for a container that was never built.
        CleanUpPgpSignatures();
        throw;
    }
}

RpmSignature::~RpmSignature() {
    CleanUpPgpSignatures();
}

PgpSignature* RpmSignature::MakePgpSignature(unsigned char* blob, uint32_t length, uint32_t tag) {
    _PgpMessages.push_back(std::make_unique<PgpMessage>(reinterpret_cast<char*>(blob), length));
    PgpSignatureData* packet = _PgpMessages.back()->GetSignature();
    if (packet == nullptr) {
        throw DataFormatException("Signature section: the entry of tag " + TagText(tag) +
                                  " holds no OpenPGP signature packet");
    }
    return new PgpSignature(packet);
}

ProcessingResult RpmSignature::Verify(std::string& message) const {
    // SHA-1 of the main header, compared as lower-case hexadecimal text. A
    // copy is finalised so that the stored digest stays open.
    DigestBase* headerDigest = GetDigest(kSlotHeaderSha1);
    if (headerDigest == nullptr) {
        throw NotDefinedException("The SHA1 digest of the main header has not been computed");
    }
    bool sha1Matches = false;
    if (_Sha1HeaderHash != nullptr) {
        std::unique_ptr<DigestBase> copy(headerDigest->Copy());
        const unsigned int length = copy->GetLength();
        const std::string text = Base::DumpBufferToString(copy->GetValue(), length, false);
        sha1Matches = text == _Sha1HeaderHash;
    }
    if (!sha1Matches) {
        message = contract::kVerdictSha1HeaderHash;
        return InvalidHash;
    }

    // MD5 of the main header and payload, compared bytewise.
    DigestBase* packageDigest = GetDigest(kSlotPackageMd5);
    if (packageDigest == nullptr) {
        throw NotDefinedException("The MD5 digest of the main header and payload has not been computed");
    }
    const unsigned int md5Length = packageDigest->GetLength();
    const unsigned char* md5 = packageDigest->GetValue();
    if (_Md5Hash == nullptr || md5Length != kMd5Length || std::memcmp(md5, _Md5Hash, md5Length) != 0) {
        message = contract::kVerdictMd5Hash;
        return InvalidHash;
    }

    if (_HeaderSignature == nullptr) {
        return Unsigned;
    }

    ProcessingResult result = InvalidSignature;
    VerifyPgpSignature(_HeaderSignature, GetDigest(kSlotHeaderSignature), result, message);
    if (result != Valid) {
        return result;
    }

    if (_PgpSignatures.empty()) {
        message = contract::kVerdictNoPayloadSignature;
        return NoPayloadSignature;
    }

    // Every payload signature is checked; one valid signature is enough.
    bool anyValid = false;
    DigestBase* payloadDigest = GetDigest(kSlotPackageSignature);
    for (PgpSignature* signature : _PgpSignatures) {
        VerifyPgpSignature(signature, payloadDigest, result, message);
        anyValid = anyValid || result == Valid;
    }
    if (anyValid) {
        return Valid;
    }
    message = contract::kVerdictPgpSignatureNotValid + message;
    return InvalidSignature;
}

void RpmSignature::VerifyPgpSignature(PgpSignature* signature, DigestBase* digest, ProcessingResult& result,
                                      std::string& message) const {
    // The digest is lent: a signature holds a single digest without owning
    // it. Lending the same digest again must not turn it into an owned one.
    if (signature->GetDigest(kSlotSignedData) != digest) {
        signature->SetDigest(kSlotSignedData, digest);
    }
    result = signature->Verify(message);
    if (result == InvalidSignature) {
        message = contract::kVerdictRsaSignatureNotValid + message;
    }
}

ProcessingResult RpmSignature::Sign(soapWrap::Binary* /*out*/, const soapWrap::Binary* /*in*/,
                                    std::string& /*message*/) {
    return Valid;
}

soapWrap::HashAlgorithm RpmSignature::GetHashAlgorithm() {
    if (_HeaderSignature == nullptr) {
        throw NotDefinedException(contract::kVerdictNoPgpSignatures);
    }
    return _HeaderSignature->GetHashAlgorithm();
}

void RpmSignature::UpdateDigests() {
    CleanUpPgpSignatures();
    CreatePgpSignatures();
}

void RpmSignature::CleanUpPgpSignatures() {
    delete _HeaderSignature;
    _HeaderSignature = nullptr;
    for (PgpSignature* signature : _PgpSignatures) {
        delete signature;
    }
    _PgpSignatures.clear();
}

void RpmSignature::CreatePgpSignatures() {}

unsigned int RpmSignature::GetEntryStorageSize(RpmDataType type, unsigned char* data, unsigned int count) {
    switch (type) {
    case RPM_INT32_TYPE:
        return 4;
    case RPM_INT64_TYPE:
        return 8;
    case RPM_STRING_TYPE:
        if (data == nullptr) {
            throw ArgumentException(exception_text::NullArgument("RpmSignature::GetEntryStorageSize"));
        }
        return static_cast<unsigned int>(std::strlen(reinterpret_cast<const char*>(data))) + 1;
    case RPM_BIN_TYPE:
        return count;
    default: {
        std::ostringstream detail;
        detail << contract::kRpmEntryStorageSize << static_cast<unsigned int>(type);
        throw NotImplementedException(detail.str());
    }
    }
}

void RpmSignature::BoundaryAlign(RpmDataType type, unsigned int& offset) {
    switch (type) {
    case RPM_INT16_TYPE:
        offset = Base::AlignUp(offset, 2);
        break;
    case RPM_INT32_TYPE:
        offset = Base::AlignUp(offset, 4);
        break;
    case RPM_INT64_TYPE:
        offset = Base::AlignUp(offset, 8);
        break;
    default:
        break;
    }
}

void RpmSignature::CreateStorage(RpmDataType type, unsigned char* destination, unsigned char* source,
                                 unsigned int& size) {
    switch (type) {
    case RPM_STRING_TYPE: {
        const size_t length = std::strlen(reinterpret_cast<const char*>(source));
        std::memcpy(destination, source, length);
        destination[length] = '\0';
        size = static_cast<unsigned int>(length) + 1;
        break;
    }
    case RPM_INT32_TYPE:
        size = 4;
        std::memcpy(destination, source, size);
        break;
    case RPM_INT64_TYPE:
        size = 8;
        std::memcpy(destination, source, size);
        break;
    default:
        std::memcpy(destination, source, size);
        break;
    }
}

void RpmSignature::CreateHeaderEntry(SignatureEntry* entry, unsigned int tag, unsigned int type,
                                     unsigned int offset, unsigned int count) {
    unsigned char bytes[kEntrySize];
    std::memcpy(bytes, &tag, sizeof(uint32_t));
    // The type takes only the entry's last type byte.
    StoreBigEndian32(bytes + 4, type & 0xFFu);
    StoreBigEndian32(bytes + 8, offset);
    StoreBigEndian32(bytes + 12, count);
    std::memcpy(entry, bytes, sizeof(bytes));
}
