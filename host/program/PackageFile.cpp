#include "PackageFile.h"

#include "BoundedReader.h"
#include "NumberName.h"
#include "OpenSslDigest.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace host {
namespace {

constexpr size_t kLeadSize = 96;
constexpr unsigned char kHeaderMagic[4] = {0x8E, 0xAD, 0xE8, 0x01};
// More index entries or data than any real signature header holds.
constexpr uint32_t kMaxSignatureEntries = 4096;
constexpr uint32_t kMaxSignatureData = 64 * 1024 * 1024;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

bool ReadExactly(std::FILE* file, uint64_t offset, unsigned char* buffer, size_t size) {
    if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) {
        return false;
    }
    return std::fread(buffer, 1, size, file) == size;
}

// Reads the 16-byte record that opens a header at offset: its index entry
// count and data size. False when the file ends first or the magic is missing.
bool ReadHeaderRecord(std::FILE* file, uint64_t offset, uint32_t& entryCount, uint32_t& dataSize) {
    unsigned char record[16];
    if (!ReadExactly(file, offset, record, sizeof(record)) || std::memcmp(record, kHeaderMagic, 4) != 0) {
        return false;
    }
    BoundedReader counts(record + 8, 8);
    entryCount = counts.U32("index count");
    dataSize = counts.U32("data size");
    return true;
}

std::string HexLower(const unsigned char* data, size_t size) {
    std::string text = OpenPgpPackets::Hex(data, size);
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// RSA PKCS #1 v1.5 check of a finished digest with the key's n and e.
bool RsaVerifies(const PgpKeyInfo& key, const EVP_MD* md, const unsigned char* digest, unsigned digestLength,
                 const std::vector<unsigned char>& value) {
    if (key.modulus.empty() || value.size() > key.modulus.size()) {
        return false;
    }
    std::unique_ptr<BIGNUM, decltype(&BN_free)> n(
        BN_bin2bn(key.modulus.data(), static_cast<int>(key.modulus.size()), nullptr), BN_free);
    std::unique_ptr<BIGNUM, decltype(&BN_free)> e(
        BN_bin2bn(key.exponent.data(), static_cast<int>(key.exponent.size()), nullptr), BN_free);
    std::unique_ptr<OSSL_PARAM_BLD, decltype(&OSSL_PARAM_BLD_free)> builder(OSSL_PARAM_BLD_new(),
                                                                            OSSL_PARAM_BLD_free);
    if (!n || !e || !builder || OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get()) != 1) {
        return false;
    }
    std::unique_ptr<OSSL_PARAM, decltype(&OSSL_PARAM_free)> params(OSSL_PARAM_BLD_to_param(builder.get()),
                                                                   OSSL_PARAM_free);
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> context(
        EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr), EVP_PKEY_CTX_free);
    EVP_PKEY* raw = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &raw, EVP_PKEY_PUBLIC_KEY, params.get()) != 1) {
        return false;
    }
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> publicKey(raw, EVP_PKEY_free);
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> verify(
        EVP_PKEY_CTX_new(publicKey.get(), nullptr), EVP_PKEY_CTX_free);
    // An MPI drops leading zero bytes; the check wants the modulus length.
    std::vector<unsigned char> padded(key.modulus.size() - value.size(), 0);
    padded.insert(padded.end(), value.begin(), value.end());
    return verify && EVP_PKEY_verify_init(verify.get()) == 1 &&
           EVP_PKEY_CTX_set_rsa_padding(verify.get(), RSA_PKCS1_PADDING) == 1 &&
           EVP_PKEY_CTX_set_signature_md(verify.get(), md) == 1 &&
           EVP_PKEY_verify(verify.get(), padded.data(), padded.size(), digest, digestLength) == 1;
}

// Reads the signature of one tag and checks it over [from, to) of the file.
void CheckSignature(std::FILE* file, const std::vector<unsigned char>& store, const SignatureTag& tag,
                    uint64_t from, uint64_t to, const KeyFile* key, PackageSignature& out) {
    out.tag = tag.tag;
    if (tag.offset > store.size() || tag.count > store.size() - tag.offset || tag.count == 0) {
        out.state = CheckState::Bad;
        out.parseError = "the signature lies outside the signature header's data";
        return;
    }
    std::vector<unsigned char> blob(store.begin() + tag.offset, store.begin() + tag.offset + tag.count);
    try {
        std::vector<PgpPacketView> packets = OpenPgpPackets::Split(blob);
        if (packets.empty() || packets[0].tag != 2) {
            throw ReadError("it holds no OpenPGP signature packet");
        }
        out.info = OpenPgpPackets::ReadSignature(packets[0]);
    } catch (const ReadError& error) {
        out.state = CheckState::Bad;
        out.parseError = error.what();
        return;
    }
    out.state = CheckState::NotChecked;
    if (!OpenPgpPackets::IsRsa(out.info.keyAlgorithm)) {
        out.note = OpenPgpPackets::AlgorithmName(out.info.keyAlgorithm) + " signature: only RSA is checked";
        return;
    }
    const EVP_MD* md = DigestOf(out.info.hashAlgorithm);
    if (md == nullptr) {
        out.note = "unknown hash algorithm";
        return;
    }
    const PgpKeyInfo* signer = key != nullptr ? key->FindKey(out.info.issuerKeyId) : nullptr;
    if (signer == nullptr) {
        out.note = "the key file has no key " + out.info.issuerKeyId;
        return;
    }
    out.bySubkey = key->BlockOfSubkey(out.info.issuerKeyId) != nullptr;
    DigestContext context(EVP_MD_CTX_new());
    EVP_DigestInit_ex(context.get(), md, nullptr);
    std::vector<unsigned char> chunk(1 << 16);
    if (fseeko(file, static_cast<off_t>(from), SEEK_SET) != 0) {
        out.note = "the package cannot be read";
        return;
    }
    for (uint64_t at = from; at < to;) {
        const size_t want = static_cast<size_t>(std::min<uint64_t>(chunk.size(), to - at));
        const size_t got = std::fread(chunk.data(), 1, want, file);
        if (got == 0) {
            break;
        }
        EVP_DigestUpdate(context.get(), chunk.data(), got);
        at += got;
    }
    EVP_DigestUpdate(context.get(), out.info.hashedPart.data(), out.info.hashedPart.size());
    if (out.info.version == 4) {
        const uint32_t length = static_cast<uint32_t>(out.info.hashedPart.size());
        const unsigned char trailer[6] = {4,
                                          0xFF,
                                          static_cast<unsigned char>(length >> 24),
                                          static_cast<unsigned char>(length >> 16),
                                          static_cast<unsigned char>(length >> 8),
                                          static_cast<unsigned char>(length)};
        EVP_DigestUpdate(context.get(), trailer, sizeof(trailer));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    EVP_DigestFinal_ex(context.get(), digest, &digestLength);
    const bool good = std::memcmp(digest, out.info.left16, 2) == 0 &&
                      RsaVerifies(*signer, md, digest, digestLength, out.info.value);
    out.state = good ? CheckState::Ok : CheckState::Bad;
    out.note = "checked with key " + signer->keyId + (out.bySubkey ? " (a subkey)" : "");
}

} // namespace

PackageFile PackageFile::Read(const std::string& path, const KeyFile* key) {
    PackageFile package;
    package.path = path;
    File file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        package.readError = std::strerror(errno);
        return package;
    }
    unsigned char lead[kLeadSize] = {};
    if (!ReadExactly(file.get(), 0, lead, sizeof(lead))) {
        package.structureError = "the file is shorter than the 96-byte lead";
        package.isRpm = false;
        return package;
    }
    static const unsigned char kLeadMagic[4] = {0xED, 0xAB, 0xEE, 0xDB};
    package.isRpm = std::memcmp(lead, kLeadMagic, 4) == 0;
    if (!package.isRpm) {
        return package;
    }
    package.major = lead[4];
    package.minor = lead[5];
    package.leadType = (lead[6] << 8) | lead[7];
    package.leadName.assign(reinterpret_cast<const char*>(lead + 10),
                            strnlen(reinterpret_cast<const char*>(lead + 10), 66));
    package.signatureType = (lead[78] << 8) | lead[79];

    uint32_t entryCount = 0;
    uint32_t dataSize = 0;
    if (!ReadHeaderRecord(file.get(), kLeadSize, entryCount, dataSize)) {
        package.structureError = "no signature header after the lead";
        return package;
    }
    if (entryCount > kMaxSignatureEntries || dataSize > kMaxSignatureData) {
        package.structureError = "the signature header claims " + std::to_string(entryCount) +
                                 " entries and " + std::to_string(dataSize) + " bytes";
        return package;
    }
    std::vector<unsigned char> index(static_cast<size_t>(entryCount) * 16);
    std::vector<unsigned char> store(dataSize);
    if (!ReadExactly(file.get(), kLeadSize + 16, index.data(), index.size()) ||
        !ReadExactly(file.get(), kLeadSize + 16 + index.size(), store.data(), store.size())) {
        package.structureError = "the file ends inside the signature header";
        return package;
    }
    BoundedReader entries(index.data(), index.size());
    for (uint32_t i = 0; i < entryCount; ++i) {
        SignatureTag tag;
        tag.tag = entries.U32("tag");
        tag.type = entries.U32("type");
        tag.offset = entries.U32("offset");
        tag.count = entries.U32("count");
        package.tags.push_back(tag);
    }
    const uint64_t signatureEnd = kLeadSize + 16 + index.size() + store.size();
    package.mainHeaderOffset = (signatureEnd + 7) / 8 * 8;
    uint32_t mainEntries = 0;
    uint32_t mainData = 0;
    if (!ReadHeaderRecord(file.get(), package.mainHeaderOffset, mainEntries, mainData)) {
        package.structureError = "no main header after the signature header";
        return package;
    }
    package.mainHeaderSize = 16 + 16 * uint64_t(mainEntries) + mainData;
    if (fseeko(file.get(), 0, SEEK_END) != 0) {
        package.readError = std::strerror(errno);
        return package;
    }
    const uint64_t fileSize = static_cast<uint64_t>(ftello(file.get()));
    if (package.mainHeaderOffset + package.mainHeaderSize > fileSize) {
        package.structureError = "the file ends inside the main header";
        return package;
    }
    package.payloadSize = fileSize - package.mainHeaderOffset - package.mainHeaderSize;
    const uint64_t headerEnd = package.mainHeaderOffset + package.mainHeaderSize;

    for (const SignatureTag& tag : package.tags) {
        switch (tag.tag) {
        case 269: {
            if (tag.offset < store.size()) {
                package.sha1Stored.assign(reinterpret_cast<const char*>(store.data() + tag.offset),
                                          strnlen(reinterpret_cast<const char*>(store.data() + tag.offset),
                                                  store.size() - tag.offset));
            }
            std::vector<unsigned char> header(package.mainHeaderSize);
            ReadExactly(file.get(), package.mainHeaderOffset, header.data(), header.size());
            unsigned char digest[EVP_MAX_MD_SIZE];
            unsigned int length = 0;
            EVP_Digest(header.data(), header.size(), digest, &length, EVP_sha1(), nullptr);
            package.sha1Computed = HexLower(digest, length);
            package.sha1 = package.sha1Computed == package.sha1Stored ? CheckState::Ok : CheckState::Bad;
            break;
        }
        case 1004: {
            if (tag.offset <= store.size() && store.size() - tag.offset >= 16) {
                package.md5Stored = HexLower(store.data() + tag.offset, 16);
            }
            DigestContext context(EVP_MD_CTX_new());
            EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr);
            std::vector<unsigned char> chunk(1 << 16);
            fseeko(file.get(), static_cast<off_t>(package.mainHeaderOffset), SEEK_SET);
            for (size_t got; (got = std::fread(chunk.data(), 1, chunk.size(), file.get())) > 0;) {
                EVP_DigestUpdate(context.get(), chunk.data(), got);
            }
            unsigned char digest[EVP_MAX_MD_SIZE];
            unsigned int length = 0;
            EVP_DigestFinal_ex(context.get(), digest, &length);
            package.md5Computed = HexLower(digest, length);
            package.md5 = package.md5Computed == package.md5Stored ? CheckState::Ok : CheckState::Bad;
            break;
        }
        case 268:
            CheckSignature(file.get(), store, tag, package.mainHeaderOffset, headerEnd, key, package.header);
            break;
        case 1002:
            if (package.payloadSignatures++ == 0) {
                CheckSignature(file.get(), store, tag, package.mainHeaderOffset, fileSize, key,
                               package.payload);
            }
            break;
        case 267:
        case 1005:
            package.hasDsaTags = true;
            break;
        default:
            break;
        }
    }
    return package;
}

std::string PackageFile::TagName(uint32_t tag) {
    static const NumberName kTags[] = {{62, "header signatures region"},
                                       {267, "DSA/EdDSA header signature"},
                                       {268, "RSA header signature"},
                                       {269, "header SHA-1"},
                                       {270, "long size"},
                                       {271, "long archive size"},
                                       {273, "header SHA-256"},
                                       {274, "file signatures"},
                                       {275, "file signature length"},
                                       {276, "verity signatures"},
                                       {277, "verity signature algorithm"},
                                       {278, "header SHA3-256"},
                                       {1000, "size"},
                                       {1002, "header+payload PGP signature"},
                                       {1004, "header+payload MD5"},
                                       {1005, "header+payload GPG signature (DSA/EdDSA)"},
                                       {1007, "payload size"},
                                       {1008, "reserved space"}};
    return NameOf(kTags, tag, "tag ");
}

} // namespace host
