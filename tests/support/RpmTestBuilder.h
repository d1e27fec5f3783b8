// Test-side builders for OpenPGP and RPM data: an RSA key made with OpenSSL
// in the test (with its OpenPGP key file), version-3 and version-4 signature
// packets made with it, and synthetic RPM packages (lead, signature header,
// main header, payload) whose entries a test chooses byte by byte.
#ifndef SIGNING_RPM_TEST_BUILDER_H
#define SIGNING_RPM_TEST_BUILDER_H

#include "TestSupport.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace rpmtest {

using Bytes = std::vector<unsigned char>;

inline void PutBe16(Bytes& out, uint32_t value) {
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}
inline void PutBe32(Bytes& out, uint32_t value) {
    out.push_back(static_cast<unsigned char>(value >> 24));
    out.push_back(static_cast<unsigned char>(value >> 16));
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}
inline void Append(Bytes& out, const Bytes& more) {
    out.insert(out.end(), more.begin(), more.end());
}
inline Bytes Concat(const Bytes& a, const Bytes& b) {
    Bytes out(a);
    Append(out, b);
    return out;
}
inline Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        Append(out, part);
    }
    return out;
}
inline Bytes Be16(size_t value) {
    Bytes out;
    PutBe16(out, static_cast<uint32_t>(value));
    return out;
}
inline Bytes FromText(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// The start of every text of an InvalidFileStructureException.
constexpr char kStructure[] = "File operation error: Invalid structure of the file: ";

// OpenPGP hash-algorithm octets used by the tests.
constexpr unsigned char kPgpMd5 = 1;
constexpr unsigned char kPgpSha1 = 2;
constexpr unsigned char kPgpSha256 = 8;
constexpr unsigned char kPgpSha384 = 9;
constexpr unsigned char kPgpSha512 = 10;
constexpr unsigned char kPgpSha224 = 11;

// The OpenSSL digest of an OpenPGP hash-algorithm octet.
inline const EVP_MD* MdOfPgpOctet(unsigned char octet) {
    struct OctetDigest {
        unsigned char octet;
        const EVP_MD* (*md)();
    };
    static const OctetDigest kDigests[] = {{kPgpMd5, EVP_md5},       {kPgpSha1, EVP_sha1},
                                           {kPgpSha256, EVP_sha256}, {kPgpSha384, EVP_sha384},
                                           {kPgpSha512, EVP_sha512}, {kPgpSha224, EVP_sha224}};
    for (const OctetDigest& digest : kDigests) {
        if (digest.octet == octet) {
            return digest.md();
        }
    }
    throw std::invalid_argument("hash octet");
}

// A digest computed directly with OpenSSL, as the reference value.
inline Bytes Hash(const EVP_MD* md, const Bytes& data) {
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), value, &length, md, nullptr) != 1) {
        throw std::runtime_error("EVP_Digest failed");
    }
    return Bytes(value, value + length);
}

inline std::string Hex(const Bytes& data, bool upper = false) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text;
    for (unsigned char byte : data) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 15]);
    }
    return text;
}

// An OpenPGP multi-precision integer of big-endian bytes (leading zero bytes dropped).
inline Bytes Mpi(const Bytes& value) {
    size_t start = 0;
    while (start < value.size() && value[start] == 0) {
        ++start;
    }
    Bytes out;
    uint32_t bits = 0;
    if (start < value.size()) {
        unsigned char top = value[start];
        int topBits = 0;
        while (top != 0) {
            ++topBits;
            top >>= 1;
        }
        bits = static_cast<uint32_t>((value.size() - start - 1) * 8 + topBits);
    }
    PutBe16(out, bits);
    out.insert(out.end(), value.begin() + static_cast<long>(start), value.end());
    return out;
}

// An old-format packet with a 2-byte length (tag byte 0x80 | tag << 2 | 1).
inline Bytes OldPacket(int tag, const Bytes& body) {
    Bytes out;
    out.push_back(static_cast<unsigned char>(0x80 | (tag << 2) | 1));
    PutBe16(out, static_cast<uint32_t>(body.size()));
    Append(out, body);
    return out;
}

// What a signature says about itself. For version 3, hashed holds the 5
// bytes type and creation time; for version 4 the hashed subpacket area.
struct SignatureSpec {
    SignatureSpec() {
        // One signature creation time subpacket.
        static const unsigned char creationTime[] = {0x05, 0x02, 0x60, 0x00, 0x00, 0x00};
        static const unsigned char someIssuer[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
        hashed.assign(creationTime, creationTime + sizeof(creationTime));
        issuer.assign(someIssuer, someIssuer + sizeof(someIssuer));
    }
    int version = 4;
    unsigned char type = 0x00;
    unsigned char publicKeyAlgorithm = 1;
    unsigned char hashAlgorithm = kPgpSha256;
    Bytes hashed;
    Bytes issuer;
};

// A version 4 signature's body up to the end of its hashed subpackets:
// version, type, algorithms and the hashed subpacket area.
inline Bytes Version4HashedPart(const SignatureSpec& spec) {
    Bytes out{4, spec.type, spec.publicKeyAlgorithm, spec.hashAlgorithm};
    PutBe16(out, static_cast<uint32_t>(spec.hashed.size()));
    Append(out, spec.hashed);
    return out;
}

// The bytes hashed after the signed data.
inline Bytes Trailer(const SignatureSpec& spec) {
    if (spec.version == 3) {
        return spec.hashed;
    }
    Bytes out = Version4HashedPart(spec);
    out.push_back(4);
    out.push_back(0xFF);
    PutBe32(out, static_cast<uint32_t>(spec.hashed.size() + 6));
    return out;
}

// A version-4 signature's fields as a spec (its hashed subpacket area copied).
inline SignatureSpec Version4Spec(unsigned char type, unsigned char publicKeyAlgorithm,
                                  unsigned char hashAlgorithm, const unsigned char* hashed,
                                  size_t hashedLength) {
    SignatureSpec spec;
    spec.type = type;
    spec.publicKeyAlgorithm = publicKeyAlgorithm;
    spec.hashAlgorithm = hashAlgorithm;
    spec.hashed.assign(hashed, hashed + hashedLength);
    return spec;
}

// The digest that a signature of spec over data signs: the data, then the trailer.
inline Bytes SignedHash(const SignatureSpec& spec, const Bytes& data) {
    return Hash(MdOfPgpOctet(spec.hashAlgorithm), Concat(data, Trailer(spec)));
}

// Lays out a signature packet around the given quick-check bytes and signature value.
inline Bytes SignaturePacket(const SignatureSpec& spec, const unsigned char left16[2],
                             const Bytes& signature) {
    Bytes body;
    if (spec.version == 3) {
        body.push_back(3);
        body.push_back(static_cast<unsigned char>(spec.hashed.size()));
        Append(body, spec.hashed);
        Append(body, spec.issuer);
        body.push_back(spec.publicKeyAlgorithm);
        body.push_back(spec.hashAlgorithm);
    } else {
        body = Version4HashedPart(spec);
        // The unhashed area: one issuer subpacket (length 9, type 16).
        PutBe16(body, 10);
        body.push_back(9);
        body.push_back(16);
        Append(body, spec.issuer);
    }
    body.push_back(left16[0]);
    body.push_back(left16[1]);
    Append(body, Mpi(signature));
    return OldPacket(2, body);
}

// An RSA key made for the test run, with OpenPGP packets of its own.
class TestKey {
public:
    explicit TestKey(unsigned int bits = 2048) {
        m_Key.reset(EVP_RSA_gen(bits));
        if (!m_Key) {
            throw std::runtime_error("EVP_RSA_gen failed");
        }
    }

    Bytes Modulus() const { return Number("n"); }
    Bytes Exponent() const { return Number("e"); }

    // PKCS #1 v1.5 signature over a digest value (DigestInfo of md).
    Bytes SignDigest(const EVP_MD* md, const Bytes& digest) const {
        std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
            EVP_PKEY_CTX_new(m_Key.get(), nullptr), EVP_PKEY_CTX_free);
        size_t length = 0;
        if (!context || EVP_PKEY_sign_init(context.get()) != 1 ||
            EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
            EVP_PKEY_CTX_set_signature_md(context.get(), md) != 1 ||
            EVP_PKEY_sign(context.get(), nullptr, &length, digest.data(), digest.size()) != 1) {
            throw std::runtime_error("EVP_PKEY_sign setup failed");
        }
        Bytes signature(length);
        if (EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size()) != 1) {
            throw std::runtime_error("EVP_PKEY_sign failed");
        }
        signature.resize(length);
        return signature;
    }

    // A signature packet over data made with this key.
    Bytes Sign(const SignatureSpec& spec, const Bytes& data) const {
        const Bytes digest = SignedHash(spec, data);
        return SignaturePacket(spec, digest.data(), SignDigest(MdOfPgpOctet(spec.hashAlgorithm), digest));
    }

    // A binary key file: the version-4 RSA public key, a user ID and a
    // self-signature whose issuer is keyId (not checked by anyone).
    Bytes KeyFile(const Bytes& keyId) const {
        Bytes key;
        key.push_back(4);
        PutBe32(key, 0x60000000);
        key.push_back(1);
        Append(key, Mpi(Modulus()));
        Append(key, Mpi(Exponent()));
        Bytes out = OldPacket(6, key);
        Bytes user = FromText("Test Key <test@example.org>");
        out.push_back(static_cast<unsigned char>(0x80 | (13 << 2)));
        out.push_back(static_cast<unsigned char>(user.size()));
        Append(out, user);
        SignatureSpec self;
        self.type = 0x13;
        self.issuer = keyId;
        Append(out, Sign(self, Modulus()));
        return out;
    }

private:
    Bytes Number(const char* name) const {
        BIGNUM* number = nullptr;
        if (EVP_PKEY_get_bn_param(m_Key.get(), name, &number) != 1) {
            throw std::runtime_error("EVP_PKEY_get_bn_param failed");
        }
        Bytes out(static_cast<size_t>(BN_num_bytes(number)));
        BN_bn2bin(number, out.data());
        BN_free(number);
        return out;
    }

    struct KeyDeleter {
        void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    };
    std::unique_ptr<EVP_PKEY, KeyDeleter> m_Key;
};

// A key made once per test program, with its binary key file (whose
// self-signature names KeyId() as issuer) in a temporary folder.
class OwnKey {
public:
    static OwnKey& Get() {
        static OwnKey key;
        return key;
    }
    const TestKey& Key() const { return m_Key; }
    const Bytes& KeyId() const { return m_KeyId; }
    const std::string& KeyFile() const { return m_KeyFile; }

    // A signature spec naming this key as issuer.
    SignatureSpec Spec(int version, unsigned char hash) const {
        SignatureSpec spec;
        spec.version = version;
        spec.hashAlgorithm = hash;
        spec.issuer = m_KeyId;
        if (version == 3) {
            spec.hashed = {0x00, 0x61, 0x00, 0x00, 0x01};
        }
        return spec;
    }

private:
    OwnKey() : m_KeyId{0xA1, 0xB2, 0xC3, 0xD4, 0xE5, 0xF6, 0x07, 0x18} {
        m_KeyFile = m_Folder.File("own.gpg");
        testsupport::WriteBytes(m_KeyFile, m_Key.KeyFile(m_KeyId));
    }
    testsupport::TempDir m_Folder;
    TestKey m_Key;
    Bytes m_KeyId;
    std::string m_KeyFile;
};

// RPM header-structure entry types.
constexpr uint32_t kTypeInt32 = 4;
constexpr uint32_t kTypeString = 6;
constexpr uint32_t kTypeBinary = 7;

// RPM signature-header tags.
constexpr uint32_t kTagRegion = 62;
constexpr uint32_t kTagHeaderSignature = 268;
constexpr uint32_t kTagSha1 = 269;
constexpr uint32_t kTagSize = 1000;
constexpr uint32_t kTagPayloadSignature = 1002;
constexpr uint32_t kTagMd5 = 1004;

// One index entry and its bytes in the data store. By default the count is
// the byte count (1 for a string) and the offset where the bytes land.
struct Entry {
    uint32_t tag;
    uint32_t type;
    Bytes data;
    int64_t count = -1;
    int64_t offset = -1;
};

// A header structure (record, index, data store) from entries, in order.
inline Bytes HeaderStructure(const std::vector<Entry>& entries, int64_t indexCountOverride = -1,
                             int64_t dataSizeOverride = -1) {
    Bytes index;
    Bytes store;
    for (const Entry& entry : entries) {
        uint32_t offset =
            entry.offset >= 0 ? static_cast<uint32_t>(entry.offset) : static_cast<uint32_t>(store.size());
        uint32_t count = entry.count >= 0
                             ? static_cast<uint32_t>(entry.count)
                             : (entry.type == kTypeString ? 1u : static_cast<uint32_t>(entry.data.size()));
        PutBe32(index, entry.tag);
        PutBe32(index, entry.type);
        PutBe32(index, offset);
        PutBe32(index, count);
        Append(store, entry.data);
    }
    Bytes out = {0x8E, 0xAD, 0xE8, 0x01, 0, 0, 0, 0};
    PutBe32(out, indexCountOverride >= 0 ? static_cast<uint32_t>(indexCountOverride)
                                         : static_cast<uint32_t>(entries.size()));
    PutBe32(out, dataSizeOverride >= 0 ? static_cast<uint32_t>(dataSizeOverride)
                                       : static_cast<uint32_t>(store.size()));
    Append(out, index);
    Append(out, store);
    return out;
}

// The region entry that opens a signature header, with its 16 trailer bytes.
inline Entry RegionEntry() {
    Bytes trailer;
    PutBe32(trailer, kTagRegion);
    PutBe32(trailer, kTypeBinary);
    PutBe32(trailer, 0xFFFFFFB0u);
    PutBe32(trailer, 16);
    return Entry{kTagRegion, kTypeBinary, trailer};
}

// A main header with a few real-looking entries (name, version, size) and
// extra filler bytes in its data store.
inline Bytes MainHeader(size_t filler = 0, unsigned char seed = 1) {
    Bytes name = FromText("testpkg");
    name.push_back(0);
    Bytes version = FromText("1.0");
    version.push_back(0);
    Bytes size;
    PutBe32(size, 12345);
    Bytes fill(filler);
    for (size_t i = 0; i < filler; ++i) {
        fill[i] = static_cast<unsigned char>(seed + i * 7);
    }
    return HeaderStructure({{1000, kTypeString, name},
                            {1001, kTypeString, version},
                            {1009, kTypeInt32, size},
                            {5000, kTypeBinary, fill}});
}

inline Bytes Payload(size_t length, unsigned char seed = 3) {
    Bytes out(length);
    uint32_t state = 0x12345678u + seed;
    for (size_t i = 0; i < length; ++i) {
        state = state * 1103515245u + 12345u;
        out[i] = static_cast<unsigned char>(state >> 16);
    }
    return out;
}

// A whole package: lead, signature header (entries as given), padding to
// 8, main header and payload.
struct Package {
    Bytes mainHeader = MainHeader();
    Bytes payload = Payload(1000);
    std::vector<Entry> signatureEntries;
    uint16_t signatureType = 5;
    unsigned char major = 3;
    unsigned char minor = 0;
    int64_t indexCountOverride = -1;
    int64_t dataSizeOverride = -1;
    // When not empty, the signature header exactly as given.
    Bytes signatureHeaderBytes;

    Bytes SignatureHeader() const {
        if (!signatureHeaderBytes.empty()) {
            return signatureHeaderBytes;
        }
        return HeaderStructure(signatureEntries, indexCountOverride, dataSizeOverride);
    }

    // Offset of the main header: after lead and signature header, rounded up to 8.
    size_t MainHeaderOffset() const {
        size_t end = 96 + SignatureHeader().size();
        return (end + 7) / 8 * 8;
    }

    Bytes Build() const {
        Bytes out(96, 0);
        const unsigned char magic[] = {0xED, 0xAB, 0xEE, 0xDB};
        std::memcpy(out.data(), magic, 4);
        out[4] = major;
        out[5] = minor;
        out[7] = 1; // binary package
        std::memcpy(out.data() + 10, "testpkg-1.0-1", 13);
        out[78] = static_cast<unsigned char>(signatureType >> 8);
        out[79] = static_cast<unsigned char>(signatureType);
        Append(out, SignatureHeader());
        out.resize((out.size() + 7) / 8 * 8, 0);
        Append(out, mainHeader);
        Append(out, payload);
        return out;
    }

    Bytes HeaderAndPayload() const { return Concat(mainHeader, payload); }
    std::string Sha1Hex() const { return Hex(Hash(EVP_sha1(), mainHeader)); }
    Bytes Md5() const { return Hash(EVP_md5(), HeaderAndPayload()); }

    // The usual signature header: region, header-only signature, SHA-1 text,
    // header-and-payload signature, MD5.
    void SignWith(const TestKey& key, const SignatureSpec& spec) {
        Bytes sha1 = FromText(Sha1Hex());
        sha1.push_back(0);
        signatureEntries = {RegionEntry(),
                            {kTagHeaderSignature, kTypeBinary, key.Sign(spec, mainHeader)},
                            {kTagSha1, kTypeString, sha1},
                            {kTagPayloadSignature, kTypeBinary, key.Sign(spec, HeaderAndPayload())},
                            {kTagMd5, kTypeBinary, Md5()}};
    }
};

} // namespace rpmtest

#endif
