// The RPM signature header as a signature container: the records of the
// header structure, the entries that verification needs, and the verdict
// over the digests of the main header and payload.
#ifndef SIGNING_RPM_SIGNATURE_H
#define SIGNING_RPM_SIGNATURE_H

#include "PgpMessage.h"
#include "PgpSignature.h"
#include "Signature.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The 16 bytes that open a header: magic in file byte order, then the index
// count and the data size in host order.
struct HeaderStructureHeader {
    uint32_t magic;
    uint32_t reserved;
    uint32_t indexCount;
    uint32_t dataSize;
};

// One 16-byte index entry.
struct SignatureEntry {
    uint32_t tag;
    uint32_t type;
    uint32_t offset;
    uint32_t count;
};

enum RpmDataType : uint32_t {
    RPM_NULL_TYPE = 0,
    RPM_CHAR_TYPE = 1,
    RPM_INT8_TYPE = 2,
    RPM_INT16_TYPE = 3,
    RPM_INT32_TYPE = 4,
    RPM_INT64_TYPE = 5,
    RPM_STRING_TYPE = 6,
    RPM_BIN_TYPE = 7,
    RPM_STRING_ARRAY_TYPE = 8,
    RPM_I18NSTRING_TYPE = 9,
};

class RpmSignature : public Signature {
public:
    // entries: the signature header's index followed by its data store
    // (16 x indexCount + dataSize bytes), owned by the caller and outliving
    // the container. The entries are converted to host order in place.
    RpmSignature(void* entries, const HeaderStructureHeader& header);
    ~RpmSignature() override;

    ProcessingResult Verify(std::string& message) const override;
    // Reached by no entry point (Sign, UpdateDigests, CreatePgpSignatures and the entry
    // helpers below): the writing side of the format; nothing signs a package.
    ProcessingResult Sign(soapWrap::Binary* out, const soapWrap::Binary* in, std::string& message) override;
    // The header-only signature's algorithm.
    soapWrap::HashAlgorithm GetHashAlgorithm() override;
    // The writing side's refresh; not used while verifying.
    void UpdateDigests() override;

    // Lends digest to signature and checks it.
    void VerifyPgpSignature(PgpSignature* signature, DigestBase* digest, ProcessingResult& result,
                            std::string& message) const;
    void CleanUpPgpSignatures();
    void CreatePgpSignatures();

    static unsigned int GetEntryStorageSize(RpmDataType type, unsigned char* data, unsigned int count);
    static void BoundaryAlign(RpmDataType type, unsigned int& offset);
    static void CreateStorage(RpmDataType type, unsigned char* destination, unsigned char* source,
                              unsigned int& size);
    // tag is stored as given (already in file byte order); type, offset and
    // count are encoded big-endian.
    static void CreateHeaderEntry(SignatureEntry* entry, unsigned int tag, unsigned int type,
                                  unsigned int offset, unsigned int count);

    const HeaderStructureHeader& GetHeader() const { return _Header; }
    const SignatureEntry* GetEntries() const { return _Entries; }
    const char* GetSha1HeaderHash() const { return _Sha1HeaderHash; }
    const unsigned char* GetMd5Hash() const { return _Md5Hash; }
    PgpSignature* GetHeaderSignature() const { return _HeaderSignature; }
    const std::vector<PgpSignature*>& GetPgpSignatures() const { return _PgpSignatures; }

private:
    // Parses the OpenPGP signature blob of an entry into a new PgpSignature.
    PgpSignature* MakePgpSignature(unsigned char* blob, uint32_t length, uint32_t tag);

protected:
    HeaderStructureHeader _Header;
    SignatureEntry* _Entries;
    const char* _Sha1HeaderHash;
    const unsigned char* _Md5Hash;
    PgpSignature* _HeaderSignature;
    std::vector<PgpSignature*> _PgpSignatures;
    uint32_t _Unused1;
    uint32_t _Unused2;
    uint32_t _Unused3;
    // The messages that parsed the signature blobs; they own the packets the
    // PgpSignature objects read.
    std::vector<std::unique_ptr<PgpMessage>> _PgpMessages;
};

#endif
