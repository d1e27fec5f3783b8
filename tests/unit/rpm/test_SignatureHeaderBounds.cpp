// Bounds of the signature header: its data store is capped, entries whose
// data regions overlap are refused, and the work of parsing many entries
// stays proportional to the store.
#include "CertificateManager.h"
#include "FileHelper.h"
#include "RpmSigner.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

namespace {

using rpmtest::Bytes;
using rpmtest::Entry;
using rpmtest::kStructure;
using rpmtest::OwnKey;

class SignatureHeaderBounds : public ::testing::Test {
protected:
    void SetUp() override { CertificateManager::Acquire()->SetPgpPublicKeyFilePath(OwnKey::Get().KeyFile()); }

    struct Outcome {
        int verdict;
        std::string message;
    };
    Outcome Process(const Bytes& content) {
        const std::string path = m_Folder.File("package.rpm");
        testsupport::WriteBytes(path, content);
        RpmSigner signer(0);
        signer._File = new FileHelper(path);
        Outcome outcome{0, std::string()};
        outcome.verdict = signer.Process(true, false, false, outcome.message);
        return outcome;
    }

    static rpmtest::Package Signed() {
        rpmtest::Package package;
        package.payload = rpmtest::Payload(5000);
        package.SignWith(OwnKey::Get().Key(), OwnKey::Get().Spec(4, rpmtest::kPgpSha256));
        return package;
    }

    testsupport::TempDir m_Folder;
};

TEST_F(SignatureHeaderBounds, WellFormedPackagePasses) {
    Outcome outcome = Process(Signed().Build());
    EXPECT_EQ(1, outcome.verdict) << outcome.message;
}

TEST_F(SignatureHeaderBounds, EntriesSharingTheirDataAreRefused) {
    rpmtest::Package package = Signed();
    // A second header-and-payload entry over the bytes of the first (index 3).
    Entry copy = package.signatureEntries[3];
    size_t offset = 0;
    for (size_t i = 0; i < 3; ++i) {
        offset += package.signatureEntries[i].data.size();
    }
    const uint32_t length = static_cast<uint32_t>(copy.data.size());
    copy.data.clear();
    copy.offset = static_cast<int64_t>(offset);
    copy.count = length;
    package.signatureEntries.push_back(copy);
    Outcome outcome = Process(package.Build());
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ(std::string(kStructure) + "Signature section: the data of tag 1002 (offset " +
                  std::to_string(offset) + ") overlaps the data of tag 1002 (offset " +
                  std::to_string(offset) + ", " + std::to_string(length) + " bytes).",
              outcome.message);
}

TEST_F(SignatureHeaderBounds, StringRunningIntoTheNextEntryIsRefused) {
    rpmtest::Package package = Signed();
    // The SHA-1 text (index 2) loses its NUL and runs into the next entry.
    Bytes& text = package.signatureEntries[2].data;
    ASSERT_EQ(0, text.back());
    text.back() = 'x';
    size_t offset = 0;
    for (size_t i = 0; i < 2; ++i) {
        offset += package.signatureEntries[i].data.size();
    }
    Outcome outcome = Process(package.Build());
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ(std::string(kStructure) + "Signature section: the data of tag 1002 (offset " +
                  std::to_string(offset + text.size()) + ") overlaps the data of tag 269 (offset " +
                  std::to_string(offset) + ", " + std::to_string(text.size() + 1) + " bytes).",
              outcome.message);
}

// An armored blob of about `size` bytes that parses in full: the signature
// packet, then user-ID packets (skipped by the parser) as filler.
Bytes ArmoredBlob(const Bytes& signaturePacket, size_t size) {
    Bytes binary = signaturePacket;
    while (binary.size() < size / 4 * 3) {
        binary.push_back(0x80 | (13 << 2) | 1);
        rpmtest::PutBe16(binary, 0xFFFF);
        binary.resize(binary.size() + 0xFFFF, 'u');
    }
    std::string encoded(4 * ((binary.size() + 2) / 3) + 1, '\0');
    encoded.resize(static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&encoded[0]),
                                                       binary.data(), static_cast<int>(binary.size()))));
    std::string text = "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\n";
    for (size_t at = 0; at < encoded.size(); at += 64) {
        text += encoded.substr(at, 64) + "\n";
    }
    text += "=AAAA\n-----END PGP PUBLIC KEY BLOCK-----\n";
    return rpmtest::FromText(text);
}

TEST_F(SignatureHeaderBounds, ManyEntriesOverOneLargeBlobAreRefusedAtOnce) {
    // 254 header-and-payload entries that all cover one armored blob of
    // 10 MiB; parsed one by one, each of them would decode all of it.
    rpmtest::Package package = Signed();
    std::vector<Entry> entries = package.signatureEntries;
    size_t store = 0;
    for (const Entry& entry : entries) {
        store += entry.data.size();
    }
    const Bytes blob = ArmoredBlob(package.signatureEntries[3].data, 10u * 1024 * 1024);
    const uint32_t blobSize = static_cast<uint32_t>(blob.size());
    entries.push_back(Entry{rpmtest::kTagPayloadSignature, rpmtest::kTypeBinary, blob});
    for (int i = 0; i < 249; ++i) {
        entries.push_back(Entry{rpmtest::kTagPayloadSignature, rpmtest::kTypeBinary, Bytes(),
                                static_cast<int64_t>(blobSize), static_cast<int64_t>(store)});
    }
    ASSERT_EQ(255u, entries.size());
    package.signatureEntries = entries;
    const auto start = std::chrono::steady_clock::now();
    Outcome outcome = Process(package.Build());
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ(0u, outcome.message.find(std::string(kStructure) +
                                       "Signature section: the data of tag 1002 (offset " +
                                       std::to_string(store) + ") overlaps"))
        << outcome.message;
    EXPECT_LT(seconds, 2.0);
}

TEST_F(SignatureHeaderBounds, DataStoreIsCappedAt64MiB) {
    rpmtest::Package package = Signed();
    const Bytes good = package.Build();
    const uint32_t store =
        (static_cast<uint32_t>(good[108]) << 24) | (good[109] << 16) | (good[110] << 8) | good[111];
    // The store claims 64 MiB + 1 bytes and the file is long enough to hold them.
    Bytes content = good;
    const uint32_t claimed = 64u * 1024 * 1024 + 1;
    content[108] = static_cast<unsigned char>(claimed >> 24);
    content[109] = static_cast<unsigned char>(claimed >> 16);
    content[110] = static_cast<unsigned char>(claimed >> 8);
    content[111] = static_cast<unsigned char>(claimed);
    content.resize(content.size() + claimed - store, 0);
    Outcome outcome = Process(content);
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ(
        std::string(kStructure) +
            "Signature section: the signature header claims 67108865 bytes of data; at most 67108864 (64 "
            "MiB) are accepted.",
        outcome.message);
}

} // namespace
