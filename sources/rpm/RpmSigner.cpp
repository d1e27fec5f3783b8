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
#include <mutex>
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

// The signature header holds a few digests and signatures, a few KiB in a
// real package. Its data store is capped as rpm caps it (64 MiB), and its
// index at what the container walks (255 entries), so that a file claiming
// a huge header (a sparse file of GBs needs only KBs of disk) cannot make
// the parser allocate more.
constexpr uint32_t kMaxSignatureDataSize = 64u * 1024 * 1024;
constexpr uint32_t kMaxSignatureIndexCount = 255;

// Reads up to length bytes at position, retrying short reads until the end
// of the file; answers the count read.
uint64_t ReadFully(const FileHelper& file, unsigned long position, unsigned char* buffer, uint64_t length) {
    const long count = file.ReadFullyAt(reinterpret_cast<char*>(buffer), position, length);
    if (count < 0) {
        throw FileIoException("Cannot read file " + file.GetPath());
    }
    return static_cast<uint64_t>(count);
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
// signature header are taken with this one read: rpmsign reserves about 4 KiB
// of padding in the signature header, and the digests and two RSA-4096
// signatures add about 1.5 KiB to it.
constexpr unsigned long kFirstReadSize = 8192;

// The chunk buffer of the digest pass is kept between packages, so that a
// package costs no allocation for it. One buffer is kept for the process
// (no thread-local storage, which would make the plug-in need the dynamic
// loader's TLS support); a pass borrows it and gives it back, and a pass
// running while another holds it gets a buffer of its own.
struct ChunkDeleter {
    void operator()(char* chunk) const { delete[] chunk; }
};
using ChunkPointer = std::unique_ptr<char[], ChunkDeleter>;

struct KeptChunk {
    std::mutex lock;
    ChunkPointer buffer;
    unsigned long capacity = 0;
};

// Never destroyed: a pass may end after static destruction began.
KeptChunk& Kept() {
    static auto* kept = new KeptChunk();
    return *kept;
}

class ChunkLease {
public:
    explicit ChunkLease(unsigned long size) {
        {
            KeptChunk& kept = Kept();
            std::lock_guard<std::mutex> guard(kept.lock);
            if (kept.buffer && kept.capacity >= size) {
                m_Buffer = std::move(kept.buffer);
                m_Capacity = kept.capacity;
            }
        }
        if (!m_Buffer) {
            m_Buffer.reset(new char[size]);
            m_Capacity = size;
        }
    }
    ChunkLease(const ChunkLease&) = delete;
    ChunkLease& operator=(const ChunkLease&) = delete;
    ~ChunkLease() {
        KeptChunk& kept = Kept();
        std::lock_guard<std::mutex> guard(kept.lock);
        if (!kept.buffer || kept.capacity < m_Capacity) {
            kept.buffer = std::move(m_Buffer);
            kept.capacity = m_Capacity;
        }
    }
    char* Get() const { return m_Buffer.get(); }

private:
    ChunkPointer m_Buffer;
    unsigned long m_Capacity = 0;
};

// The verdict of a package whose every check passed.
constexpr int kProcessingValid = 1;

// Signature-header tags of the two OpenPGP signatures.
constexpr uint32_t kTagHeaderSignature = 268;
constexpr uint32_t kTagPayloadSignature = 1002;

// A valid header-and-payload signature proves something about the payload
// only when it covers payload bytes. Two forgeries pass every signature
// check without that: a payload-less package whose tag-1002 blob is a copy
// of the header-only signature (both then sign the main header alone), and
// any package without a payload at all. Both are refused here, after every
// other check has had its say.
// The entries are in host order by now (the tag stays in file order), and
// each signature blob lies inside the data store: the container checked it.
void RequirePayloadCoverage(const FileHelper& file, uint64_t mainHeaderEnd, const unsigned char* index,
                            uint32_t indexCount) {
    const unsigned char* store = index + kIndexEntrySize * indexCount;
    const unsigned char* headerBlob = nullptr;
    uint32_t headerBlobLength = 0;
    std::vector<std::pair<const unsigned char*, uint32_t>> payloadBlobs;
    for (uint32_t i = 0; i < indexCount; ++i) {
        SignatureEntry entry;
        std::memcpy(&entry, index + kIndexEntrySize * i, sizeof(entry));
        const uint32_t tag = LoadBigEndian32(reinterpret_cast<const unsigned char*>(&entry.tag));
        if (tag == kTagHeaderSignature) {
            headerBlob = store + entry.offset;
            headerBlobLength = entry.count;
        } else if (tag == kTagPayloadSignature) {
            payloadBlobs.emplace_back(store + entry.offset, entry.count);
        }
    }
    for (const auto& blob : payloadBlobs) {
        if (headerBlob != nullptr && blob.second == headerBlobLength &&
            std::memcmp(blob.first, headerBlob, headerBlobLength) == 0) {
            throw DataFormatException("Signature section: the header-and-payload signature (tag 1002) is a "
                                      "copy of the header-only signature (tag 268).");
        }
    }

    if (SizeOf(file) <= mainHeaderEnd) {
        throw InvalidFileStructureException("The package has no payload: its header-and-payload signature "
                                            "covers no payload byte.");
    }
}

// The container owns a digest once it is set; until then the caller does.
void HandOver(RpmSignature* signature, DigestSlot slot, std::unique_ptr<DigestBase>& digest) {
    signature->SetDigest(slot, digest.get());
    static_cast<void>(digest.release());
}

// One pass over the file from the main header to its end, in chunks of the
// file's buffer size, starting at the main header: the first chunk also gives
// the main header's record and, for most packages, the whole main header, so
// no byte is read twice. The header-only digests take the main header's
// bytes, MD5 takes every byte, and the header-and-payload digests of the
// signature's algorithm and of SHA-1 start as copies of the header's digests
// once the header is complete (the same values as hashing the main header a
// second time) and take every byte after it. A full chunk is followed by one
// more read, so a region of an exact multiple of the chunk size ends with an
// empty read; a short read is not the end of the file (network and FUSE file
// systems answer with less than asked): the pass goes on until it reaches the
// file's size or a read gives nothing. Answers where the main header ends.
uint64_t StreamDigests(const FileHelper& file, FileHelper* output, RpmSignature* signature,
                       uint64_t mainHeaderOffset) {
    const unsigned long chunkSize = file.GetBufferSize();
    // Filled by each read before it is used, so it is not zeroed first.
    const ChunkLease lease(chunkSize);
    char* chunk = lease.Get();
    long count = file.ReadAt(chunk, mainHeaderOffset, chunkSize);
    if (count < 0) {
        throw FileIoException("Cannot read file " + file.GetPath());
    }
    unsigned char record[kHeaderRecordSize];
    if (static_cast<unsigned long>(count) >= kHeaderRecordSize) {
        std::memcpy(record, chunk, sizeof(record));
    } else {
        ReadHeaderRecord(file, mainHeaderOffset, record);
    }
    if (std::memcmp(record, kHeaderMagic, sizeof(kHeaderMagic)) != 0) {
        throw InvalidFileStructureException(contract::kRpmMainHeaderMagic);
    }
    const uint32_t indexCount = LoadBigEndian32(record + 8);
    const uint32_t dataSize = LoadBigEndian32(record + 12);

    const soapWrap::HashAlgorithm algorithm = signature->GetHashAlgorithm();
    const bool spareSha1 = algorithm != soapWrap::SHA1;

    const uint64_t headerSize = kHeaderRecordSize + kIndexEntrySize * indexCount + dataSize;
    const unsigned long fileSize = SizeOf(file);
    if (mainHeaderOffset > fileSize || headerSize > fileSize - mainHeaderOffset) {
        throw InvalidFileStructureException(
            "Header section: the main header claims " + std::to_string(indexCount) + " index entries and " +
            std::to_string(dataSize) + " bytes of data, more than the file holds.");
    }

    std::unique_ptr<DigestBase> headerSha1(new Digest(soapWrap::SHA1));
    std::unique_ptr<DigestBase> headerDigest(new Digest(algorithm));
    std::unique_ptr<DigestBase> packageMd5(new Digest(soapWrap::MD5));
    std::unique_ptr<DigestBase> packageDigest;
    std::unique_ptr<DigestBase> packageSpare;
    uint64_t headerLeft = headerSize;
    uint64_t offset = mainHeaderOffset;
    while (true) {
        const unsigned long length = static_cast<unsigned long>(count);
        const unsigned long inHeader = static_cast<unsigned long>(std::min<uint64_t>(headerLeft, length));
        if (inHeader > 0) {
            headerSha1->Update(chunk, inHeader);
            headerDigest->Update(chunk, inHeader);
            headerLeft -= inHeader;
        }
        if (headerLeft == 0 && !packageDigest) {
            // The header is complete: the container owns its digests from
            // here on; the spare SHA-1 of the header equals the first and is
            // copied, not hashed again.
            packageDigest.reset(headerDigest->Copy());
            if (spareSha1) {
                packageSpare.reset(headerSha1->Copy());
            }
            std::unique_ptr<DigestBase> headerSpare(spareSha1 ? headerSha1->Copy() : nullptr);
            HandOver(signature, kSlotHeaderSha1, headerSha1);
            HandOver(signature, kSlotHeaderSignature, headerDigest);
            HandOver(signature, kSlotHeaderSpareSha1, headerSpare);
        }
        packageMd5->Update(chunk, length);
        if (inHeader < length) {
            packageDigest->Update(chunk + inHeader, length - inHeader);
            if (packageSpare) {
                packageSpare->Update(chunk + inHeader, length - inHeader);
            }
        }
        if (output != nullptr) {
            output->WriteBlock(chunk, length);
        }
        offset += static_cast<uint64_t>(count);
        if (!(length == chunkSize || (count != 0 && offset < fileSize))) {
            break;
        }
        count = file.ReadAt(chunk, offset, chunkSize);
        if (count < 0) {
            throw FileIoException("Cannot read file " + file.GetPath());
        }
    }
    if (headerLeft != 0) {
        throw InvalidFileStructureException("Header section: the file ends inside the main header.");
    }

    HandOver(signature, kSlotPackageMd5, packageMd5);
    HandOver(signature, kSlotPackageSignature, packageDigest);
    HandOver(signature, kSlotPackageSpareSha1, packageSpare);
    return mainHeaderOffset + headerSize;
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
        // ParseSignature has made sure that a copy has its output file.
        const uint64_t mainHeaderEnd =
            StreamDigests(*_File, copy ? _OutputFile : nullptr, signature.get(), mainHeaderOffset);
        const int verdict = signature->Verify(message);
        if (verdict == kProcessingValid) {
            RequirePayloadCoverage(*_File, mainHeaderEnd, _SignatureHeader, _EntryCount);
        }
        return verdict;
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

    if (header.indexCount > kMaxSignatureIndexCount) {
        throw InvalidFileStructureException("Signature section: the signature header has " +
                                            std::to_string(header.indexCount) +
                                            " index entries; at most 255 are supported.");
    }
    if (header.dataSize > kMaxSignatureDataSize) {
        throw InvalidFileStructureException("Signature section: the signature header claims " +
                                            std::to_string(header.dataSize) +
                                            " bytes of data; at most 67108864 (64 MiB) are accepted.");
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
    StreamDigests(*_File, copy ? _OutputFile : nullptr, signature, mainHeaderOffset);
    return signature;
}
