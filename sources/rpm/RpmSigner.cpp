#include "RpmSigner.h"

#include "ByteReader.h"
#include "ContractTexts.h"
#include "Digest.h"
#include "DigestSlot.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "RpmSignature.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace {

// The lead: 96 bytes, with the signature type at offset 78; 5 is the
// header-style signature.
constexpr unsigned long kLeadSize = 96;
constexpr unsigned int kSignatureTypeOffset = 78;
constexpr uint16_t kHeaderStyleSignature = 5;

// A header structure: its 16-byte record (magic, reserved, index count,
// data size), 16-byte index entries, then the data store.
constexpr unsigned char kHeaderMagic[4] = {0x8E, 0xAD, 0xE8, 0x01};
constexpr unsigned long kHeaderRecordSize = 16;
constexpr uint64_t kIndexEntrySize = 16;
constexpr unsigned long kSignatureHeaderOffset = kLeadSize;
constexpr unsigned long kSignatureIndexOffset = kSignatureHeaderOffset + kHeaderRecordSize;
// The main header starts on the next multiple of 8 after the signature header.
constexpr uint64_t kMainHeaderAlignment = 8;
// The first signature-header entry must be the header-signatures region (tag 62).
constexpr unsigned char kFirstSignatureTag[4] = {0x00, 0x00, 0x00, 0x3E};

// Reads up to length bytes at position, retrying short reads until the end
// of the file; answers the count read.
uint64_t ReadFully(const FileHelper& file, unsigned long position, unsigned char* buffer, uint64_t length) {
    uint64_t total = 0;
    while (total < length) {
        const long count =
            file.ReadAt(reinterpret_cast<char*>(buffer + total), position + total, length - total);
        if (count < 0) {
            throw FileIoException("Cannot read file " + file.GetPath());
        }
        if (count == 0) {
            break;
        }
        total += static_cast<uint64_t>(count);
    }
    return total;
}

// Reads a header record; bytes past the end of the file read as zero.
void ReadHeaderRecord(const FileHelper& file, unsigned long position,
                      unsigned char (&record)[kHeaderRecordSize]) {
    std::memset(record, 0, sizeof(record));
    ReadFully(file, position, record, sizeof(record));
}

// The file's size: the one found when it was opened, else asked anew.
unsigned long SizeOf(const FileHelper& file) {
    unsigned long size = 0;
    return file.GetOpenedSize(size) ? size : FileHelper::GetSize(file.GetPath());
}

// The lead, the signature header's record and, in most packages, the whole
// signature header are taken with this one read.
constexpr unsigned long kFirstReadSize = 4096;

// The chunk buffer of the digest pass, kept by each thread that verifies, so
// that a package costs no allocation for it.
char* ChunkBuffer(unsigned long size) {
    thread_local std::unique_ptr<char[]> buffer;
    thread_local unsigned long capacity = 0;
    if (capacity < size) {
        buffer.reset(new char[size]);
        capacity = size;
    }
    return buffer.get();
}

} // namespace

RpmSigner::RpmSigner(unsigned int mode) : _SignatureHeader(nullptr), _EntryCount(0), _Flag(1) {
    _Setting1 = 1;
    _Mode = mode;
    _Setting2 = 1;
}

RpmSigner::~RpmSigner() {
    delete[] _SignatureHeader;
    _SignatureHeader = nullptr;
}

void RpmSigner::BuildContentInfo(bool) {
    throw NotImplementedException(contract::kRpmSignerBuildContentInfo);
}

int RpmSigner::Process(bool, bool copy, bool, std::string& message) {
    try {
        unsigned long mainHeaderOffset = 0;
        std::unique_ptr<RpmSignature> signature(ParseSignature(mainHeaderOffset, copy));
        PassDigestsToSignature(signature.get(), mainHeaderOffset, copy);
        return signature->Verify(message);
    } catch (const std::exception& error) {
        message = error.what();
        return ProcessingError;
    }
}

RpmSignature* RpmSigner::ParseSignature(unsigned long& mainHeaderOffset, bool copy) {
    if (_File == nullptr) {
        throw ArgumentException("RpmSigner has no package file to parse");
    }
    const FileHelper& file = *_File;
    const unsigned long fileSize = SizeOf(file);
    if (fileSize <= kLeadSize) {
        throw InvalidFileStructureException(contract::kRpmFileTooSmall);
    }

    // One read for the lead, the record and as much of the signature header
    // as it holds; bytes past the end of the file read as zero.
    unsigned char first[kFirstReadSize] = {};
    const uint64_t firstCount =
        ReadFully(file, 0, first, std::min<uint64_t>(fileSize, static_cast<uint64_t>(kFirstReadSize)));
    const unsigned char* lead = first;
    if (LoadBigEndian16(lead + kSignatureTypeOffset) != kHeaderStyleSignature) {
        throw InvalidFileStructureException(contract::kRpmUnsupportedSignatureType);
    }

    const unsigned char* record = first + kSignatureHeaderOffset;
    if (std::memcmp(record, kHeaderMagic, sizeof(kHeaderMagic)) != 0) {
        throw InvalidFileStructureException(contract::kRpmSignatureHeaderMagic);
    }
    HeaderStructureHeader header;
    std::memcpy(&header.magic, record, sizeof(header.magic));
    std::memcpy(&header.reserved, record + 4, sizeof(header.reserved));
    header.indexCount = LoadBigEndian32(record + 8);
    header.dataSize = LoadBigEndian32(record + 12);

    if (copy) {
        if (_OutputFile == nullptr) {
            throw ArgumentException("RpmSigner has no output file to copy the package into");
        }
        _File->CopyData(_OutputFile, 0, kLeadSize);
    }

    // Index and data store must lie inside the file before anything is allocated for them.
    const uint64_t headerSize = kIndexEntrySize * header.indexCount + header.dataSize;
    if (fileSize < kSignatureIndexOffset || headerSize > fileSize - kSignatureIndexOffset) {
        throw InvalidFileStructureException("Signature section: the signature header claims " +
                                            std::to_string(header.indexCount) + " index entries and " +
                                            std::to_string(header.dataSize) +
                                            " bytes of data, more than the file holds.");
    }

    _EntryCount = header.indexCount;
    delete[] _SignatureHeader;
    _SignatureHeader = nullptr;
    _SignatureHeader = new unsigned char[headerSize]();
    if (kSignatureIndexOffset + headerSize <= firstCount) {
        std::memcpy(_SignatureHeader, first + kSignatureIndexOffset, headerSize);
    } else if (ReadFully(file, kSignatureIndexOffset, _SignatureHeader, headerSize) != headerSize) {
        throw InvalidFileStructureException("Signature section: the file ends inside the signature header.");
    }

    if (headerSize < sizeof(kFirstSignatureTag) ||
        std::memcmp(_SignatureHeader, kFirstSignatureTag, sizeof(kFirstSignatureTag)) != 0) {
        throw DataFormatException(contract::kRpmSignatureNotFirst);
    }

    auto* signature = new RpmSignature(_SignatureHeader, header);
    const uint64_t end = kSignatureIndexOffset + headerSize;
    mainHeaderOffset = static_cast<unsigned long>((end + kMainHeaderAlignment - 1) / kMainHeaderAlignment *
                                                  kMainHeaderAlignment);
    return signature;
}

RpmSignature* RpmSigner::PassDigestsToSignature(RpmSignature* signature, uint64_t mainHeaderOffset,
                                                bool copy) const {
    if (_File == nullptr || signature == nullptr) {
        throw ArgumentException("RpmSigner has no package file or signature to compute digests for");
    }
    if (copy && _OutputFile == nullptr) {
        throw ArgumentException("RpmSigner has no output file to copy the package into");
    }
    const FileHelper& file = *_File;

    unsigned char record[kHeaderRecordSize];
    ReadHeaderRecord(file, mainHeaderOffset, record);
    if (std::memcmp(record, kHeaderMagic, sizeof(kHeaderMagic)) != 0) {
        throw InvalidFileStructureException(contract::kRpmMainHeaderMagic);
    }
    const uint32_t indexCount = LoadBigEndian32(record + 8);
    const uint32_t dataSize = LoadBigEndian32(record + 12);

    const soapWrap::HashAlgorithm algorithm = signature->GetHashAlgorithm();
    const bool spareSha1 = algorithm != soapWrap::SHA1;

    // The main header by itself, for the header-only digests.
    const uint64_t headerSize = kHeaderRecordSize + kIndexEntrySize * indexCount + dataSize;
    const unsigned long fileSize = SizeOf(file);
    if (mainHeaderOffset > fileSize || headerSize > fileSize - mainHeaderOffset) {
        throw InvalidFileStructureException(
            "Header section: the main header claims " + std::to_string(indexCount) + " index entries and " +
            std::to_string(dataSize) + " bytes of data, more than the file holds.");
    }
    const unsigned long chunkSize = file.GetBufferSize();
    // Filled by each read before it is used, so it is not zeroed first. A
    // main header that fits is read into it too, before the chunks are.
    char* chunk = ChunkBuffer(chunkSize);
    std::unique_ptr<DigestBase> packageDigest;
    std::unique_ptr<DigestBase> packageSpare;
    {
        std::vector<unsigned char> largeHeader;
        unsigned char* mainHeader = reinterpret_cast<unsigned char*>(chunk);
        if (headerSize > chunkSize) {
            largeHeader.resize(headerSize);
            mainHeader = largeHeader.data();
        }
        if (ReadFully(file, mainHeaderOffset, mainHeader, headerSize) != headerSize) {
            throw InvalidFileStructureException("Header section: the file ends inside the main header.");
        }
        std::unique_ptr<DigestBase> headerSha1(new Digest(soapWrap::SHA1));
        std::unique_ptr<DigestBase> headerDigest(new Digest(algorithm));
        headerSha1->Update(mainHeader, headerSize);
        headerDigest->Update(mainHeader, headerSize);
        // The spare SHA-1 of the header equals the first; it is copied, not hashed again.
        std::unique_ptr<DigestBase> headerSpare(spareSha1 ? headerSha1->Copy() : nullptr);
        // The container owns them from here on.
        DigestBase* sha1 = headerSha1.get();
        DigestBase* digest = headerDigest.get();
        signature->SetDigest(kSlotHeaderSha1, headerSha1.get());
        headerSha1.release();
        signature->SetDigest(kSlotHeaderSignature, headerDigest.get());
        headerDigest.release();
        signature->SetDigest(kSlotHeaderSpareSha1, headerSpare.get());
        headerSpare.release();
        // The header-and-payload digests of the signature's algorithm and of
        // SHA-1 begin with the main header: they start as copies of the
        // header's digests and are fed only what follows it, which gives the
        // same values as hashing the main header a second time.
        packageDigest.reset(digest->Copy());
        if (spareSha1) {
            packageSpare.reset(sha1->Copy());
        }
    }

    // The main header and the payload, streamed once; MD5 takes every byte,
    // the copies above every byte after the main header.
    std::unique_ptr<DigestBase> packageMd5(new Digest(soapWrap::MD5));
    uint64_t headerLeft = headerSize;
    uint64_t offset = mainHeaderOffset;
    long count = 0;
    do {
        count = file.ReadAt(chunk, offset, chunkSize);
        if (count < 0) {
            throw FileIoException("Cannot read file " + file.GetPath());
        }
        const unsigned long length = static_cast<unsigned long>(count);
        const unsigned long skip = static_cast<unsigned long>(std::min<uint64_t>(headerLeft, length));
        headerLeft -= skip;
        packageMd5->Update(chunk, length);
        if (skip < length) {
            packageDigest->Update(chunk + skip, length - skip);
            if (packageSpare) {
                packageSpare->Update(chunk + skip, length - skip);
            }
        }
        if (copy) {
            _OutputFile->WriteBlock(chunk, length);
        }
        offset += static_cast<uint64_t>(count);
    } while (static_cast<unsigned long>(count) == chunkSize);

    signature->SetDigest(kSlotPackageMd5, packageMd5.get());
    packageMd5.release();
    signature->SetDigest(kSlotPackageSignature, packageDigest.get());
    packageDigest.release();
    signature->SetDigest(kSlotPackageSpareSha1, packageSpare.get());
    packageSpare.release();
    return signature;
}
