// The hash algorithms the system knows, the facts about each of them, and
// the abstract digest that signature containers hold.
#ifndef SIGNING_DIGESTBASE_H
#define SIGNING_DIGESTBASE_H

#include "ContractTexts.h"

#include <openssl/evp.h>

#include <memory>
#include <string>

namespace soapWrap {

// The numbers are stored and compared elsewhere and index the table below.
enum HashAlgorithm : int {
    SHA1 = 0,
    MD5 = 1,
    SHA224 = 2,
    SHA256 = 3,
    SHA384 = 4,
    SHA512 = 5,
    // Known by name only: no digest of this type can be created.
    PEHeaderHash = 6
};

} // namespace soapWrap

// Content bytes of the DER OBJECT IDENTIFIER of each algorithm (no tag, no length).
inline constexpr unsigned char ASN_OBJECT_IDENTIFIER_BYTES_SHA1[] = {0x2B, 0x0E, 0x03, 0x02, 0x1A};
inline constexpr unsigned char ASN_OBJECT_IDENTIFIER_BYTES_MD5[] = {0x2A, 0x86, 0x48, 0x86,
                                                                    0xF7, 0x0D, 0x02, 0x05};
inline constexpr unsigned char ASN_OBJECT_IDENTIFIER_BYTES_SHA256[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                                                                       0x03, 0x04, 0x02, 0x01};
inline constexpr unsigned char ASN_OBJECT_IDENTIFIER_BYTES_SHA384[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                                                                       0x03, 0x04, 0x02, 0x02};
inline constexpr unsigned char ASN_OBJECT_IDENTIFIER_BYTES_SHA512[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                                                                       0x03, 0x04, 0x02, 0x03};
inline constexpr unsigned char ASN_OBJECT_IDENTIFIER_BYTES_SHA224[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                                                                       0x03, 0x04, 0x02, 0x04};

namespace soapWrap {

// Everything the library needs to know about one hash algorithm.
struct HashAlgorithmInfo {
    const char* Name;              // display name
    unsigned int Length;           // digest length in bytes
    int Nid;                       // OpenSSL NID of the digest
    int RsaSignatureNid;           // OpenSSL NID of "<digest>WithRSAEncryption"
    const EVP_MD* (*Md)();         // OpenSSL digest getter
    const char* Oid;               // dotted object identifier
    const unsigned char* OidBytes; // DER object identifier content
    unsigned int OidLength;
};

// Indexed by HashAlgorithm. Only the display name reaches PEHeaderHash; every
// other fact stops at SHA512.
inline constexpr HashAlgorithmInfo HASH_ALGORITHMS[] = {
    {contract::kDigestNameSha1, 20, NID_sha1, NID_sha1WithRSAEncryption, EVP_sha1, contract::kDigestOidSha1,
     ASN_OBJECT_IDENTIFIER_BYTES_SHA1, sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA1)},
    {contract::kDigestNameMd5, 16, NID_md5, NID_md5WithRSAEncryption, EVP_md5, contract::kDigestOidMd5,
     ASN_OBJECT_IDENTIFIER_BYTES_MD5, sizeof(ASN_OBJECT_IDENTIFIER_BYTES_MD5)},
    {contract::kDigestNameSha224, 28, NID_sha224, NID_sha224WithRSAEncryption, EVP_sha224,
     contract::kDigestOidSha224, ASN_OBJECT_IDENTIFIER_BYTES_SHA224,
     sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA224)},
    {contract::kDigestNameSha256, 32, NID_sha256, NID_sha256WithRSAEncryption, EVP_sha256,
     contract::kDigestOidSha256, ASN_OBJECT_IDENTIFIER_BYTES_SHA256,
     sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA256)},
    {contract::kDigestNameSha384, 48, NID_sha384, NID_sha384WithRSAEncryption, EVP_sha384,
     contract::kDigestOidSha384, ASN_OBJECT_IDENTIFIER_BYTES_SHA384,
     sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA384)},
    {contract::kDigestNameSha512, 64, NID_sha512, NID_sha512WithRSAEncryption, EVP_sha512,
     contract::kDigestOidSha512, ASN_OBJECT_IDENTIFIER_BYTES_SHA512,
     sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA512)},
    {contract::kDigestNamePeHeaderHash, 0, NID_undef, NID_undef, nullptr, nullptr, nullptr, 0},
};

// Algorithms for which a digest can be made (SHA1 .. SHA512).
inline constexpr unsigned int DIGEST_ALGORITHM_COUNT = 6;
// Algorithms that have a display name (SHA1 .. PEHeaderHash).
inline constexpr unsigned int NAMED_ALGORITHM_COUNT = sizeof(HASH_ALGORITHMS) / sizeof(HASH_ALGORITHMS[0]);

} // namespace soapWrap

// The abstract digest: an algorithm fixed at construction and the value
// cached by the first GetValue().
class DigestBase {
public:
    virtual ~DigestBase();

    // A new digest (caller owns) carrying the running state, not the cached value.
    virtual DigestBase* Copy() const = 0;
    virtual void Update(const void* data, unsigned long length) = 0;
    virtual unsigned int GetLength() const = 0;
    // Finalises the digest into out, which holds GetLength() bytes.
    virtual bool GetValue(unsigned char* out) = 0;
    // Finalises once and caches; the digest owns the returned bytes.
    virtual unsigned char* GetValue() = 0;

    soapWrap::HashAlgorithm GetType() const { return _Type; }
    std::string GetTypeName() const;
    const char* GetAlgorithmIdentifier() const;

    DigestBase(const DigestBase&) = delete;
    DigestBase& operator=(const DigestBase&) = delete;

protected:
    explicit DigestBase(soapWrap::HashAlgorithm type);

    soapWrap::HashAlgorithm _Type;
    std::unique_ptr<unsigned char[]> _Value;
};

#endif
