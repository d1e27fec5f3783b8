// Forged packages made at test time from a package that rpmbuild built and
// rpmsign signed (.fixtures/rpm/signed-rsa2048-sha256.rpm, version-4
// signatures by rsa2048), and from the same package signed again with
// version-3 signatures by the test's own key. Each forgery keeps every
// signature it started from and only moves bytes around; every one of them
// must end anywhere but RPM_SIGNED.
//
// Every forgery tried, and what it gets (status of rpm_verify, its text, and
// the message of RpmSigner::Process behind it):
//
//  1. (a) Payload stripping, version 4: payload removed, the tag-1002 blob
//     replaced by the tag-268 blob, MD5 (1004) and size (1000) recomputed.
//     RPM_ERROR "Internal error occured while verifying <file>";
//     "Invalid format of data: Signature section: the header-and-payload
//     signature (tag 1002) is a copy of the header-only signature (tag 268)."
//     rpmkeys --checksig: not OK. (Before: RPM_SIGNED.)
//  2. (a) Payload stripping, version 3: the same on the version-3 package.
//     The same status and texts. (Before: RPM_SIGNED.)
//  3. Payload stripping with an equivalent blob, version 4: as 1, but the
//     tag-1002 blob is the tag-268 packet followed by an empty user-ID
//     packet, so the bytes differ while the signature is the same.
//     RPM_ERROR "Internal error occured while verifying <file>";
//     "File operation error: Invalid structure of the file: The package has
//     no payload: its header-and-payload signature covers no payload byte."
//     rpmkeys --checksig: not OK. (Before: RPM_SIGNED.)
//  4. Cut package, MD5 left as it was: payload removed, nothing recomputed.
//     RPM_INVALID_HASH "<file> has invalid hash."; "Invalid value of MD5
//     hash". (Before: the same.)
//  5. Cut package with the tag-268 blob copied into tag 1002, MD5 left as it
//     was. RPM_INVALID_HASH "<file> has invalid hash."; "Invalid value of MD5
//     hash". (Before: the same.)
//  6. (b) Version 3, hashed length 0: the tag-1002 packet loses its 5 hashed
//     bytes (type and creation time of the tag-268 signature, whose RSA value
//     it carries), and those 5 bytes become the payload; 5 bytes after the
//     signature value keep the packet's length; MD5 and size recomputed. RPM_ERROR "Internal error occured
//     while verifying <file>"; "Invalid format of data: OpenPGP signature packet: a version 3 signature
//     hashes exactly 5 bytes, not 0". (Before: RPM_SIGNED.)
//  7. (c) Version 3, hashed length 69: the last 64 payload bytes move into
//     the tag-1002 packet's hashed data in front of its 5 bytes; MD5 and size
//     recomputed. RPM_ERROR "Internal error occured while verifying <file>";
//     "Invalid format of data: OpenPGP signature packet: a version 3
//     signature hashes exactly 5 bytes, not 69". (Before: RPM_SIGNED.)
//  8. (d) Version 4, the move of 6: hashed subpacket area emptied and
//     appended to the payload. RPM_INVALID_SIGNATURE "<file> has invalid
//     signature."; "PGP signature is not valid: RSA signature is not valid.
//     Digest does not correspond to the signature" (the trailer binds the
//     hashed length). rpmkeys --checksig: not OK. (Before: the same.)
//  9. (d) Version 4, the move of 7: the last 64 payload bytes put in front of
//     the hashed subpacket area. RPM_INVALID_SIGNATURE, the same texts as 8.
//     rpmkeys --checksig: not OK. (Before: the same.)
// The packages they start from pass: RPM_SIGNED "<file> is signed." for both.
#include "CertificateManager.h"
#include "FileHelper.h"
#include "Fixtures.h"
#include "RpmSigner.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"
#include "rpmutil.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using rpmtest::Bytes;
using rpmtest::kTagHeaderSignature;
using rpmtest::kTagMd5;
using rpmtest::kTagPayloadSignature;
using rpmtest::kTagRegion;
using rpmtest::kTagSize;

// One signature-header entry with its own data bytes.
struct SignatureItem {
    uint32_t tag;
    uint32_t type;
    uint32_t count;
    Bytes data;
};

// A package taken apart: lead, signature-header entries, main header, payload.
struct Dissected {
    Bytes lead;
    std::vector<SignatureItem> entries;
    Bytes mainHeader;
    Bytes payload;

    SignatureItem& Entry(uint32_t tag) {
        for (SignatureItem& item : entries) {
            if (item.tag == tag) {
                return item;
            }
        }
        throw std::runtime_error("no signature entry with tag " + std::to_string(tag));
    }

    // MD5 and size of main header and payload, as anyone can recompute them.
    void RecomputeDigests() {
        Entry(kTagMd5).data = rpmtest::Hash(EVP_md5(), rpmtest::Concat(mainHeader, payload));
        Bytes size;
        rpmtest::PutBe32(size, static_cast<uint32_t>(mainHeader.size() + payload.size()));
        Entry(kTagSize).data = size;
    }

    // The data store laid out in index order with each type's alignment;
    // the region trailer goes last, as rpm lays it out.
    Bytes Build() const {
        Bytes index;
        Bytes store;
        auto place = [&](const SignatureItem& item) {
            size_t align = item.type == 3 ? 2 : item.type == 4 ? 4 : item.type == 5 ? 8 : 1;
            store.resize((store.size() + align - 1) / align * align, 0);
            rpmtest::PutBe32(index, item.tag);
            rpmtest::PutBe32(index, item.type);
            rpmtest::PutBe32(index, static_cast<uint32_t>(store.size()));
            uint32_t count = item.type == 7 ? static_cast<uint32_t>(item.data.size()) : item.count;
            rpmtest::PutBe32(index, count);
            rpmtest::Append(store, item.data);
        };
        for (const SignatureItem& item : entries) {
            if (item.tag != kTagRegion) {
                place(item);
            }
        }
        Bytes regionIndex;
        for (const SignatureItem& item : entries) {
            if (item.tag == kTagRegion) {
                Bytes saved;
                saved.swap(index);
                place(item);
                regionIndex.swap(index);
                index.swap(saved);
            }
        }
        Bytes out(lead);
        const unsigned char magic[] = {0x8E, 0xAD, 0xE8, 0x01, 0, 0, 0, 0};
        out.insert(out.end(), magic, magic + sizeof(magic));
        rpmtest::PutBe32(out, static_cast<uint32_t>(entries.size()));
        rpmtest::PutBe32(out, static_cast<uint32_t>(store.size()));
        rpmtest::Append(out, regionIndex);
        rpmtest::Append(out, index);
        rpmtest::Append(out, store);
        out.resize((out.size() + 7) / 8 * 8, 0);
        rpmtest::Append(out, mainHeader);
        rpmtest::Append(out, payload);
        return out;
    }
};

size_t DataLength(uint32_t type, const unsigned char* data, size_t available, uint32_t count) {
    switch (type) {
    case 3:
        return 2u * count;
    case 4:
        return 4u * count;
    case 5:
        return 8u * count;
    case 6:
    case 8:
    case 9: {
        size_t length = 0;
        for (uint32_t i = 0; i < count; ++i) {
            length += std::strlen(reinterpret_cast<const char*>(data + length)) + 1;
        }
        EXPECT_LE(length, available);
        return length;
    }
    default:
        return count;
    }
}

Dissected Dissect(const Bytes& package) {
    fixtures::RpmRegions regions;
    if (!fixtures::ParseRpmRegions(package, regions)) {
        throw std::runtime_error("not a well-formed package");
    }
    Dissected out;
    out.lead.assign(package.begin(), package.begin() + 96);
    const size_t store = 112 + 16 * size_t(regions.signatureIndexCount);
    for (const fixtures::HeaderEntry& entry : fixtures::HeaderEntries(package, 96)) {
        const unsigned char* data = package.data() + store + entry.offset;
        size_t length = DataLength(entry.type, data, regions.signatureDataSize - entry.offset, entry.count);
        out.entries.push_back({entry.tag, entry.type, entry.count, Bytes(data, data + length)});
    }
    out.mainHeader.assign(package.begin() + static_cast<long>(regions.mainHeader),
                          package.begin() + static_cast<long>(regions.payload));
    out.payload.assign(package.begin() + static_cast<long>(regions.payload), package.end());
    return out;
}

// A version-3 signature packet with a 2-byte length header, taken apart.
struct Version3Packet {
    Bytes hashed;
    Bytes rest; // issuer, algorithms, left 16 bits, MPI

    explicit Version3Packet(const Bytes& packet) {
        EXPECT_EQ(0x89, packet.at(0));
        EXPECT_EQ(3, packet.at(3));
        const size_t hashedLength = packet.at(4);
        hashed.assign(packet.begin() + 5, packet.begin() + 5 + static_cast<long>(hashedLength));
        rest.assign(packet.begin() + 5 + static_cast<long>(hashedLength), packet.end());
    }
    Bytes Build() const {
        Bytes body = {3, static_cast<unsigned char>(hashed.size())};
        rpmtest::Append(body, hashed);
        rpmtest::Append(body, rest);
        return rpmtest::OldPacket(2, body);
    }
};

// A version-4 signature packet with a 2-byte length header, taken apart.
struct Version4Packet {
    Bytes head; // version, type, algorithms
    Bytes hashed;
    Bytes rest; // unhashed length and area, left 16 bits, MPI

    explicit Version4Packet(const Bytes& packet) {
        EXPECT_EQ(0x89, packet.at(0));
        EXPECT_EQ(4, packet.at(3));
        head.assign(packet.begin() + 3, packet.begin() + 7);
        const size_t hashedLength = (size_t(packet.at(7)) << 8) | packet.at(8);
        hashed.assign(packet.begin() + 9, packet.begin() + 9 + static_cast<long>(hashedLength));
        rest.assign(packet.begin() + 9 + static_cast<long>(hashedLength), packet.end());
    }
    Bytes Build() const {
        Bytes body(head);
        rpmtest::PutBe16(body, static_cast<uint32_t>(hashed.size()));
        rpmtest::Append(body, hashed);
        rpmtest::Append(body, rest);
        return rpmtest::OldPacket(2, body);
    }
};

struct Outcome {
    int status;
    std::string text;
    int verdict;
    std::string detail;
};

class Forgeries : public ::testing::Test {
protected:
    static std::string Original() { return fixtures::Package("signed-rsa2048-sha256.rpm"); }
    static std::string OriginalKey() { return fixtures::KeyArmored("rsa2048"); }

    std::string Write(const Bytes& content, const std::string& name) {
        const std::string path = m_Folder.File(name);
        testsupport::WriteBytes(path, content);
        return path;
    }

    // What rpm_verify answers, and what RpmSigner::Process said behind it.
    static Outcome Check(const std::string& path, const std::string& key) {
        Outcome outcome;
        RPM_RESULT result = rpm_verify(path.c_str(), key.c_str());
        outcome.status = result.status;
        outcome.text = result.message != nullptr ? result.message : "<null>";
        std::free(result.message);

        CertificateManager::Acquire()->SetPgpPublicKeyFilePath(key);
        RpmSigner signer(0);
        signer._File = new FileHelper(path);
        outcome.verdict = signer.Process(true, false, false, outcome.detail);
        return outcome;
    }

    // The fixture package with version-3 signatures of the test's own key
    // in place of its own (SHA-256, as rpmsign --rpmv3 made them with v3 keys).
    static Dissected Version3Package() {
        Dissected package = Dissect(testsupport::ReadBytes(Original()));
        const auto& own = rpmtest::OwnKey::Get();
        const rpmtest::SignatureSpec spec = own.Spec(3, rpmtest::kPgpSha256);
        package.Entry(kTagHeaderSignature).data = own.Key().Sign(spec, package.mainHeader);
        package.Entry(kTagPayloadSignature).data =
            own.Key().Sign(spec, rpmtest::Concat(package.mainHeader, package.payload));
        return package;
    }

    static void StripPayload(Dissected& package) { package.payload.clear(); }

    // Writes the package with its MD5 and size entries recomputed, as
    // anyone who changed it can.
    std::string WriteForged(Dissected& package, const std::string& name) {
        package.RecomputeDigests();
        return Write(package.Build(), name);
    }

    // Checks the package with the key and expects it refused with detail.
    static void ExpectRefused(const std::string& path, const std::string& key, const std::string& detail) {
        Outcome outcome = Check(path, key);
        EXPECT_EQ(RPM_ERROR, outcome.status);
        EXPECT_EQ("Internal error occured while verifying " + path, outcome.text);
        EXPECT_EQ(5, outcome.verdict);
        EXPECT_EQ(detail, outcome.detail);
    }

    testsupport::TempDir m_Folder;
};

const char kCopyDetail[] =
    "Invalid format of data: Signature section: the header-and-payload signature (tag 1002) "
    "is a copy of the header-only signature (tag 268).";
const char kVersion3HashedLengthDetail[] =
    "Invalid format of data: OpenPGP signature packet: a version 3 signature hashes exactly 5 bytes, not ";
const char kNoPayloadDetail[] = "File operation error: Invalid structure of the file: The package has no "
                                "payload: its header-and-payload signature covers no payload byte.";

TEST_F(Forgeries, TheStartingPackagesPass) {
    // Rebuilding the signature header from its parts changes nothing.
    const std::string same = Write(Dissect(testsupport::ReadBytes(Original())).Build(), "same.rpm");
    Outcome outcome = Check(same, OriginalKey());
    EXPECT_EQ(RPM_SIGNED, outcome.status);
    EXPECT_EQ(same + " is signed.", outcome.text);
    EXPECT_TRUE(fixtures::RpmkeysAccepts(same)) << fixtures::RpmkeysReport(same);

    const std::string v3 = Write(Version3Package().Build(), "v3.rpm");
    outcome = Check(v3, rpmtest::OwnKey::Get().KeyFile());
    EXPECT_EQ(RPM_SIGNED, outcome.status);
    EXPECT_EQ(v3 + " is signed.", outcome.text);
    EXPECT_EQ(1, outcome.verdict);
}

TEST_F(Forgeries, PayloadStrippingVersion4) {
    Dissected package = Dissect(testsupport::ReadBytes(Original()));
    StripPayload(package);
    package.Entry(kTagPayloadSignature).data = package.Entry(kTagHeaderSignature).data;
    const std::string path = WriteForged(package, "stripped-v4.rpm");
    ExpectRefused(path, OriginalKey(), kCopyDetail);
    EXPECT_FALSE(fixtures::RpmkeysAccepts(path));
}

TEST_F(Forgeries, PayloadStrippingVersion3) {
    Dissected package = Version3Package();
    StripPayload(package);
    package.Entry(kTagPayloadSignature).data = package.Entry(kTagHeaderSignature).data;
    const std::string path = WriteForged(package, "stripped-v3.rpm");
    ExpectRefused(path, rpmtest::OwnKey::Get().KeyFile(), kCopyDetail);
}

TEST_F(Forgeries, PayloadStrippingWithAnEquivalentBlob) {
    Dissected package = Dissect(testsupport::ReadBytes(Original()));
    StripPayload(package);
    // An empty user-ID packet after the signature packet: other bytes, the same signature.
    package.Entry(kTagPayloadSignature).data =
        rpmtest::Concat(package.Entry(kTagHeaderSignature).data, Bytes{0xB4, 0x00});
    const std::string path = WriteForged(package, "stripped-equivalent.rpm");
    ExpectRefused(path, OriginalKey(), kNoPayloadDetail);
    EXPECT_FALSE(fixtures::RpmkeysAccepts(path));
}

TEST_F(Forgeries, CutPackagesWithTheirOldMd5StayInvalidHash) {
    for (bool copyBlob : {false, true}) {
        Dissected package = Dissect(testsupport::ReadBytes(Original()));
        StripPayload(package);
        if (copyBlob) {
            package.Entry(kTagPayloadSignature).data = package.Entry(kTagHeaderSignature).data;
        }
        const std::string path = Write(package.Build(), copyBlob ? "cut-copied.rpm" : "cut.rpm");
        Outcome outcome = Check(path, OriginalKey());
        EXPECT_EQ(RPM_INVALID_HASH, outcome.status);
        EXPECT_EQ(path + " has invalid hash.", outcome.text);
        EXPECT_EQ(3, outcome.verdict);
        EXPECT_EQ("Invalid value of MD5 hash", outcome.detail);
    }
}

TEST_F(Forgeries, Version3HashedLengthZero) {
    Dissected package = Version3Package();
    // The header-only signature's packet, without its hashed bytes; those
    // bytes become the whole payload.
    Version3Packet packet(package.Entry(kTagHeaderSignature).data);
    package.payload = packet.hashed;
    packet.hashed.clear();
    // The reader takes the signature's size from the packet's length as if
    // 5 bytes were hashed; 5 bytes after the signature value keep it right.
    rpmtest::Append(packet.rest, Bytes(5, 0));
    package.Entry(kTagPayloadSignature).data = packet.Build();
    const std::string path = WriteForged(package, "v3-hashed-0.rpm");
    ExpectRefused(path, rpmtest::OwnKey::Get().KeyFile(), kVersion3HashedLengthDetail + std::string("0"));
}

TEST_F(Forgeries, Version3HashedLength69) {
    Dissected package = Version3Package();
    Version3Packet packet(package.Entry(kTagPayloadSignature).data);
    ASSERT_GT(package.payload.size(), 64u);
    Bytes moved(package.payload.end() - 64, package.payload.end());
    package.payload.resize(package.payload.size() - 64);
    packet.hashed = rpmtest::Concat(moved, packet.hashed);
    package.Entry(kTagPayloadSignature).data = packet.Build();
    const std::string path = WriteForged(package, "v3-hashed-69.rpm");
    ExpectRefused(path, rpmtest::OwnKey::Get().KeyFile(), kVersion3HashedLengthDetail + std::string("69"));
}

TEST_F(Forgeries, Version4IsImmuneToMovedHashedBytes) {
    const std::string expectedDetail =
        "PGP signature is not valid: RSA signature is not valid.  Digest does not "
        "correspond to the signature";
    for (int variant = 0; variant < 2; ++variant) {
        Dissected package = Dissect(testsupport::ReadBytes(Original()));
        Version4Packet packet(package.Entry(kTagPayloadSignature).data);
        if (variant == 0) {
            rpmtest::Append(package.payload, packet.hashed);
            packet.hashed.clear();
        } else {
            Bytes moved(package.payload.end() - 64, package.payload.end());
            package.payload.resize(package.payload.size() - 64);
            packet.hashed = rpmtest::Concat(moved, packet.hashed);
        }
        package.Entry(kTagPayloadSignature).data = packet.Build();
        const std::string path = WriteForged(package, "v4-moved-" + std::to_string(variant) + ".rpm");
        Outcome outcome = Check(path, OriginalKey());
        EXPECT_EQ(RPM_INVALID_SIGNATURE, outcome.status) << variant;
        EXPECT_EQ(path + " has invalid signature.", outcome.text);
        EXPECT_EQ(2, outcome.verdict);
        EXPECT_EQ(expectedDetail, outcome.detail);
        EXPECT_FALSE(fixtures::RpmkeysAccepts(path));
    }
}

} // namespace
