// The RPM signer: lead and signature header parsing, the digests over the
// main header and payload, and the verdict of Process on synthetic packages
// and on the packages made with rpmbuild and rpmsign.
#include "CertificateManager.h"
#include "Digest.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "Fixtures.h"
#include "RpmSignature.h"
#include "RpmSigner.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using rpmtest::Bytes;
using rpmtest::Entry;
using rpmtest::kStructure;
using rpmtest::OwnKey;

// Read system calls made by this process so far.
long ReadCalls() {
    std::ifstream io("/proc/self/io");
    std::string key;
    long value = 0;
    while (io >> key >> value) {
        if (key == "syscr:") {
            return value;
        }
    }
    return -1;
}

class RpmSignerTest : public ::testing::Test {
protected:
    void SetUp() override { UseKey(OwnKey::Get().KeyFile()); }
    void TearDown() override { UseKey(""); }

    static void UseKey(const std::string& path) {
        CertificateManager::Instance()->SetPgpPublicKeyFilePath(path);
    }

    // A signer over the bytes, written to a file of the test's folder.
    std::unique_ptr<RpmSigner> SignerFor(const Bytes& content, const std::string& name = "package.rpm") {
        const std::string path = m_Folder.File(name);
        testsupport::WriteBytes(path, content);
        return SignerForFile(path);
    }
    static std::unique_ptr<RpmSigner> SignerForFile(const std::string& path) {
        auto signer = std::make_unique<RpmSigner>(0);
        signer->_File = new FileHelper(path);
        return signer;
    }

    // Expects ParseSignature to fail with exception E and the text.
    template <class E> void ExpectParseFailure(const Bytes& content, const std::string& text) {
        auto signer = SignerFor(content);
        unsigned long offset = 0;
        try {
            std::unique_ptr<RpmSignature> signature(signer->ParseSignature(offset, false));
            FAIL() << "no exception, expected " << text;
        } catch (const E& error) {
            EXPECT_EQ(text, std::string(error.what()));
        }
    }

    // A signer over the bytes and the signature it parsed, with the offset
    // after the signature header.
    struct ParsedPackage {
        std::unique_ptr<RpmSigner> signer;
        unsigned long offset = 0;
        std::unique_ptr<RpmSignature> signature;
    };
    ParsedPackage Parsed(const Bytes& content) {
        ParsedPackage parsed;
        parsed.signer = SignerFor(content);
        parsed.signature.reset(parsed.signer->ParseSignature(parsed.offset, false));
        return parsed;
    }

    // Parsed, then the digests over the main header and payload passed to
    // the signature.
    ParsedPackage Digested(const Bytes& content) {
        ParsedPackage parsed = Parsed(content);
        parsed.signer->PassDigestsToSignature(parsed.signature.get(), parsed.offset, false);
        return parsed;
    }

    // Expects PassDigestsToSignature to fail with exception E and the text.
    template <class E> static void ExpectDigestFailure(ParsedPackage& parsed, const std::string& text) {
        testsupport::ExpectThrowWithText<E>(
            [&parsed] {
                parsed.signer->PassDigestsToSignature(parsed.signature.get(), parsed.offset, false);
            },
            text);
    }

    // The package signed with the test's own key in the given algorithm.
    static rpmtest::Package Signed(unsigned char hash = rpmtest::kPgpSha256, size_t payload = 5000) {
        rpmtest::Package package;
        package.payload = rpmtest::Payload(payload);
        package.SignWith(OwnKey::Get().Key(), OwnKey::Get().Spec(4, hash));
        return package;
    }

    static Bytes Value(DigestBase* digest) {
        unsigned char* value = digest->GetValue();
        return Bytes(value, value + digest->GetLength());
    }

    int Process(const Bytes& content, std::string& message) {
        auto signer = SignerFor(content);
        return signer->Process(true, false, false, message);
    }

    testsupport::TempDir m_Folder;
};

// ------------------------------------------------------------ the lead

TEST_F(RpmSignerTest, FileOfTheLeadSizeIsTooSmall) {
    const Bytes full = Signed().Build();
    const std::string text = std::string(kStructure) + "File is too small to have RPM format";
    ExpectParseFailure<InvalidFileStructureException>(Bytes(full.begin(), full.begin() + 96), text);
    ExpectParseFailure<InvalidFileStructureException>(Bytes(full.begin(), full.begin() + 10), text);
    ExpectParseFailure<InvalidFileStructureException>(Bytes(), text);
}

TEST_F(RpmSignerTest, FileOneByteLongerFailsLater) {
    const Bytes full = Signed().Build();
    ExpectParseFailure<InvalidFileStructureException>(
        Bytes(full.begin(), full.begin() + 97),
        std::string(kStructure) + "Signature section: RPM header magic number is not found.");
}

TEST_F(RpmSignerTest, SignatureTypeMustBeHeaderStyle) {
    for (uint16_t type : {0, 1, 4, 6, 0x0500}) {
        rpmtest::Package package = Signed();
        package.signatureType = type;
        ExpectParseFailure<InvalidFileStructureException>(package.Build(), std::string(kStructure) +
                                                                               "Unsupported signature type");
    }
}

TEST_F(RpmSignerTest, SignatureHeaderMagic) {
    for (size_t at : {96u, 97u, 98u, 99u}) {
        Bytes content = Signed().Build();
        content[at] ^= 0x01;
        ExpectParseFailure<InvalidFileStructureException>(
            content, std::string(kStructure) + "Signature section: RPM header magic number is not found.");
    }
}

TEST_F(RpmSignerTest, FirstEntryMustBeTheRegionTag) {
    rpmtest::Package package = Signed();
    std::swap(package.signatureEntries[0], package.signatureEntries[2]);
    ExpectParseFailure<DataFormatException>(
        package.Build(), "Invalid format of data: RPM signature is expected to be the first header");
}

TEST_F(RpmSignerTest, EmptyIndexComparesTheDataStore) {
    // With no index entries the data store's first bytes stand where the
    // first tag would be.
    auto withStore = [](const Bytes& store) {
        rpmtest::Package package = Signed();
        Bytes header = {0x8E, 0xAD, 0xE8, 0x01, 0, 0, 0, 0, 0, 0, 0, 0};
        rpmtest::PutBe32(header, static_cast<uint32_t>(store.size()));
        rpmtest::Append(header, store);
        package.signatureHeaderBytes = header;
        return package.Build();
    };
    auto signer = SignerFor(withStore({0x00, 0x00, 0x00, 0x3E, 1, 2, 3, 4}));
    unsigned long offset = 0;
    std::unique_ptr<RpmSignature> signature(signer->ParseSignature(offset, false));
    EXPECT_EQ(0u, signer->GetEntryCount());
    EXPECT_EQ(nullptr, signature->GetHeaderSignature());
    EXPECT_EQ(nullptr, signature->GetSha1HeaderHash());
    EXPECT_EQ(120u, offset); // 112 + 8

    ExpectParseFailure<DataFormatException>(
        withStore({0x00, 0x00, 0x00, 0x3F, 1, 2, 3, 4}),
        "Invalid format of data: RPM signature is expected to be the first header");
    // Fewer than four bytes to compare.
    ExpectParseFailure<DataFormatException>(
        withStore({0x00, 0x00, 0x00}),
        "Invalid format of data: RPM signature is expected to be the first header");
    ExpectParseFailure<DataFormatException>(
        withStore({}), "Invalid format of data: RPM signature is expected to be the first header");
}

TEST_F(RpmSignerTest, MainHeaderOffsetIsRoundedUpToEight) {
    // Index count 7 and data size 1234: 112 + 112 + 1234 = 1458, rounded to 1464.
    rpmtest::Package package;
    package.signatureEntries = {rpmtest::RegionEntry()};
    for (int i = 0; i < 5; ++i) {
        package.signatureEntries.push_back(Entry{2000u + i, rpmtest::kTypeBinary, Bytes(200, 0)});
    }
    package.signatureEntries.push_back(Entry{3000, rpmtest::kTypeBinary, Bytes(1234 - 16 - 1000, 0)});
    ASSERT_EQ(1234u + 7 * 16 + 16, package.SignatureHeader().size());
    auto signer = SignerFor(package.Build());
    unsigned long offset = 0;
    std::unique_ptr<RpmSignature> signature(signer->ParseSignature(offset, false));
    EXPECT_EQ(1464u, offset);
    EXPECT_EQ(7u, signer->GetEntryCount());

    // 112 + 32 + 8 = 152 is already a multiple of 8.
    package.signatureEntries = {rpmtest::RegionEntry(), Entry{3000, rpmtest::kTypeBinary, {}}};
    package.dataSizeOverride = 8;
    Bytes content = package.Build();
    auto aligned = SignerFor(content);
    std::unique_ptr<RpmSignature> second(aligned->ParseSignature(offset, false));
    EXPECT_EQ(152u, offset);
}

TEST_F(RpmSignerTest, SignatureHeaderIsKeptBySigner) {
    rpmtest::Package package = Signed();
    auto signer = SignerFor(package.Build());
    unsigned long offset = 0;
    std::unique_ptr<RpmSignature> signature(signer->ParseSignature(offset, false));
    EXPECT_EQ(5u, signer->GetEntryCount());
    EXPECT_EQ(package.MainHeaderOffset(), offset);
    EXPECT_EQ(reinterpret_cast<const SignatureEntry*>(signer->GetSignatureHeader()), signature->GetEntries());
    EXPECT_STREQ(package.Sha1Hex().c_str(), signature->GetSha1HeaderHash());
    EXPECT_EQ(0, std::memcmp(package.Md5().data(), signature->GetMd5Hash(), 16));
    EXPECT_EQ(1u, signature->GetPgpSignatures().size());
    EXPECT_EQ(soapWrap::SHA256, signature->GetHashAlgorithm());
}

TEST_F(RpmSignerTest, SignatureHeaderBiggerThanTheFileIsRefused) {
    rpmtest::Package package = Signed();
    const std::string prefix = std::string(kStructure) + "Signature section: the signature header claims ";
    package.indexCountOverride = 0x10000000;
    ExpectParseFailure<InvalidFileStructureException>(
        package.Build(), prefix + "268435456 index entries and " +
                             std::to_string(package.SignatureHeader().size() - 16 - 5 * 16) +
                             " bytes of data, more than the file holds.");
    package.indexCountOverride = -1;
    package.dataSizeOverride = 0xFFFFFFFF;
    ExpectParseFailure<InvalidFileStructureException>(
        package.Build(), prefix + "5 index entries and 4294967295 bytes of data, more than the file holds.");

    // A file cut inside the data store.
    package.dataSizeOverride = -1;
    Bytes content = package.Build();
    const size_t end = 96 + package.SignatureHeader().size();
    content.resize(end - 1);
    ExpectParseFailure<InvalidFileStructureException>(
        content, prefix + "5 index entries and " + std::to_string(package.SignatureHeader().size() - 96) +
                     " bytes of data, more than the file holds.");
    // Cut inside the header record itself: the missing bytes read as zero.
    Bytes shortRecord(content.begin(), content.begin() + 104);
    ExpectParseFailure<InvalidFileStructureException>(
        shortRecord, prefix + "0 index entries and 0 bytes of data, more than the file holds.");
}

TEST_F(RpmSignerTest, NoFileToParse) {
    RpmSigner signer(0);
    unsigned long offset = 0;
    EXPECT_THROW(signer.ParseSignature(offset, false), ArgumentException);
}

// ------------------------------------------------------------- digests

TEST_F(RpmSignerTest, DigestsWithSha1Signatures) {
    rpmtest::Package package = Signed(rpmtest::kPgpSha1);
    auto signer = SignerFor(package.Build());
    unsigned long offset = 0;
    std::unique_ptr<RpmSignature> signature(signer->ParseSignature(offset, false));
    EXPECT_EQ(signature.get(), signer->PassDigestsToSignature(signature.get(), offset, false));
    EXPECT_EQ(soapWrap::SHA1, signature->GetDigest(0)->GetType());
    EXPECT_EQ(soapWrap::SHA1, signature->GetDigest(1)->GetType());
    EXPECT_EQ(nullptr, signature->GetDigest(2));
    EXPECT_EQ(soapWrap::MD5, signature->GetDigest(3)->GetType());
    EXPECT_EQ(soapWrap::SHA1, signature->GetDigest(4)->GetType());
    EXPECT_EQ(nullptr, signature->GetDigest(5));
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.mainHeader), Value(signature->GetDigest(0)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.mainHeader), Value(signature->GetDigest(1)));
    EXPECT_EQ(package.Md5(), Value(signature->GetDigest(3)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.HeaderAndPayload()), Value(signature->GetDigest(4)));
}

TEST_F(RpmSignerTest, DigestsWithSha256Signatures) {
    rpmtest::Package package = Signed(rpmtest::kPgpSha256, 200000);
    const ParsedPackage parsed = Digested(package.Build());
    RpmSignature* signature = parsed.signature.get();
    EXPECT_EQ(soapWrap::SHA1, signature->GetDigest(0)->GetType());
    EXPECT_EQ(soapWrap::SHA256, signature->GetDigest(1)->GetType());
    EXPECT_EQ(soapWrap::SHA1, signature->GetDigest(2)->GetType());
    EXPECT_EQ(soapWrap::MD5, signature->GetDigest(3)->GetType());
    EXPECT_EQ(soapWrap::SHA256, signature->GetDigest(4)->GetType());
    EXPECT_EQ(soapWrap::SHA1, signature->GetDigest(5)->GetType());
    const Bytes all = package.HeaderAndPayload();
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.mainHeader), Value(signature->GetDigest(0)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha256(), package.mainHeader), Value(signature->GetDigest(1)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.mainHeader), Value(signature->GetDigest(2)));
    EXPECT_EQ(rpmtest::Hash(EVP_md5(), all), Value(signature->GetDigest(3)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha256(), all), Value(signature->GetDigest(4)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), all), Value(signature->GetDigest(5)));
}

TEST_F(RpmSignerTest, DigestsWithSha512Signatures) {
    rpmtest::Package package = Signed(rpmtest::kPgpSha512, 65536);
    const ParsedPackage parsed = Digested(package.Build());
    RpmSignature* signature = parsed.signature.get();
    EXPECT_EQ(rpmtest::Hash(EVP_sha512(), package.mainHeader), Value(signature->GetDigest(1)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha512(), package.HeaderAndPayload()), Value(signature->GetDigest(4)));
}

TEST_F(RpmSignerTest, MainHeaderEndingAtTheEndOfTheFile) {
    rpmtest::Package package = Signed(rpmtest::kPgpSha256, 0);
    ASSERT_TRUE(package.payload.empty());
    const ParsedPackage parsed = Digested(package.Build());
    RpmSignature* signature = parsed.signature.get();
    std::string message;
    EXPECT_EQ(Valid, signature->Verify(message)) << message;
    EXPECT_EQ(rpmtest::Hash(EVP_md5(), package.mainHeader), Value(signature->GetDigest(3)));
    EXPECT_EQ(rpmtest::Hash(EVP_sha256(), package.mainHeader), Value(signature->GetDigest(4)));
}

TEST_F(RpmSignerTest, RegionFromTheMainHeaderIsReadInChunks) {
    // From M: 131071, 131072 and 131073 bytes. The chunks are the only
    // reads: the first one also gives the main header's record and header.
    for (const auto& length :
         {std::pair<size_t, long>{131071, 2}, {131072, 3}, {131073, 3}, {65536, 2}, {100, 1}}) {
        rpmtest::Package package = Signed(rpmtest::kPgpSha1, 0);
        package.payload = rpmtest::Payload(length.first - package.mainHeader.size());
        auto signer = SignerFor(package.Build());
        unsigned long offset = 0;
        std::unique_ptr<RpmSignature> signature(signer->ParseSignature(offset, false));
        // Reading the counter costs reads of its own; measure them first.
        const long first = ReadCalls();
        const long idle = ReadCalls() - first;
        const long before = ReadCalls();
        signer->PassDigestsToSignature(signature.get(), offset, false);
        const long reads = ReadCalls() - before - idle;
        EXPECT_EQ(length.second, reads) << length.first;
        EXPECT_EQ(package.Md5(), Value(signature->GetDigest(3))) << length.first;
    }
}

// A main header larger than one chunk is hashed across chunk boundaries:
// the header-only digests stop where it ends, and the header-and-payload
// digests go on from there.
TEST_F(RpmSignerTest, MainHeaderSpanningSeveralChunks) {
    for (size_t filler : {65536 - 200, 65536 * 2 + 5, 200000}) {
        rpmtest::Package package;
        package.mainHeader = rpmtest::MainHeader(filler);
        package.payload = rpmtest::Payload(70000);
        package.SignWith(OwnKey::Get().Key(), OwnKey::Get().Spec(4, rpmtest::kPgpSha256));
        const ParsedPackage parsed = Digested(package.Build());
        RpmSignature* signature = parsed.signature.get();
        // Verified first: reading a digest's value finalises it.
        std::string message;
        EXPECT_EQ(Valid, signature->Verify(message)) << filler << ": " << message;
        const Bytes all = package.HeaderAndPayload();
        EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.mainHeader), Value(signature->GetDigest(0))) << filler;
        EXPECT_EQ(rpmtest::Hash(EVP_sha256(), package.mainHeader), Value(signature->GetDigest(1))) << filler;
        EXPECT_EQ(rpmtest::Hash(EVP_sha1(), package.mainHeader), Value(signature->GetDigest(2))) << filler;
        EXPECT_EQ(rpmtest::Hash(EVP_md5(), all), Value(signature->GetDigest(3))) << filler;
        EXPECT_EQ(rpmtest::Hash(EVP_sha256(), all), Value(signature->GetDigest(4))) << filler;
        EXPECT_EQ(rpmtest::Hash(EVP_sha1(), all), Value(signature->GetDigest(5))) << filler;
    }
}

TEST_F(RpmSignerTest, WrongMainHeaderMagicComesBeforeAnyDigest) {
    rpmtest::Package package = Signed();
    Bytes content = package.Build();
    content[package.MainHeaderOffset() + 3] = 0x02;
    ParsedPackage parsed = Parsed(content);
    ExpectDigestFailure<InvalidFileStructureException>(
        parsed, std::string(kStructure) + "Header section: RPM header magic number is not found.");
    EXPECT_EQ(nullptr, parsed.signature->GetDigest(0));
}

TEST_F(RpmSignerTest, FileEndingAfterTheSignatureHeader) {
    rpmtest::Package package = Signed();
    Bytes content = package.Build();
    content.resize(package.MainHeaderOffset());
    ParsedPackage parsed = Parsed(content);
    ExpectDigestFailure<InvalidFileStructureException>(
        parsed, std::string(kStructure) + "Header section: RPM header magic number is not found.");
}

TEST_F(RpmSignerTest, NoHeaderSignatureStopsBeforeTheDigests) {
    rpmtest::Package package = Signed();
    package.signatureEntries.erase(package.signatureEntries.begin() + 1);
    ParsedPackage parsed = Parsed(package.Build());
    ExpectDigestFailure<NotDefinedException>(parsed, "There are no PGP signatures.");
    EXPECT_EQ(nullptr, parsed.signature->GetDigest(0));
}

TEST_F(RpmSignerTest, MainHeaderBiggerThanTheFileIsRefused) {
    rpmtest::Package package = Signed();
    // Index count of the main header: 0x00100000 entries.
    package.mainHeader[8] = 0x00;
    package.mainHeader[9] = 0x10;
    ParsedPackage parsed = Parsed(package.Build());
    const uint32_t dataSize = fixtures::Be32(package.mainHeader, 12);
    ExpectDigestFailure<InvalidFileStructureException>(
        parsed, std::string(kStructure) +
                    "Header section: the main header claims 1048580 index entries and " +
                    std::to_string(dataSize) + " bytes of data, more than the file holds.");
    EXPECT_EQ(nullptr, parsed.signature->GetDigest(0));
}

// ------------------------------------------------------------- Process

TEST_F(RpmSignerTest, ProcessSignedPackages) {
    for (unsigned char hash : {rpmtest::kPgpSha1, rpmtest::kPgpSha224, rpmtest::kPgpSha256,
                               rpmtest::kPgpSha384, rpmtest::kPgpSha512}) {
        std::string message;
        EXPECT_EQ(1, Process(Signed(hash).Build(), message)) << int(hash);
        EXPECT_EQ("", message);
    }
}

TEST_F(RpmSignerTest, ProcessTurnsExceptionsIntoFive) {
    std::string message;
    const Bytes full = Signed().Build();
    EXPECT_EQ(5, Process(Bytes(full.begin(), full.begin() + 96), message));
    EXPECT_EQ(std::string(kStructure) + "File is too small to have RPM format", message);

    rpmtest::Package unsupported = Signed();
    unsupported.signatureType = 1;
    EXPECT_EQ(5, Process(unsupported.Build(), message));
    EXPECT_EQ(std::string(kStructure) + "Unsupported signature type", message);

    rpmtest::Package noHeaderSignature = Signed();
    noHeaderSignature.signatureEntries.erase(noHeaderSignature.signatureEntries.begin() + 1);
    EXPECT_EQ(5, Process(noHeaderSignature.Build(), message));
    EXPECT_EQ("There are no PGP signatures.", message);

    RpmSigner withoutFile(0);
    EXPECT_EQ(5, withoutFile.Process(true, false, false, message));
    EXPECT_EQ("Invalid argument: RpmSigner has no package file to parse", message);
}

TEST_F(RpmSignerTest, ProcessVerdicts) {
    std::string message;
    rpmtest::Package noPayload = Signed();
    noPayload.signatureEntries.erase(noPayload.signatureEntries.begin() + 3);
    EXPECT_EQ(8, Process(noPayload.Build(), message));
    EXPECT_EQ("The package does not contain PGP signature over its header and payload.", message);

    rpmtest::Package tampered = Signed();
    Bytes content = tampered.Build();
    content.back() ^= 0x01;
    EXPECT_EQ(3, Process(content, message));
    EXPECT_EQ("Invalid value of MD5 hash", message);

    content = tampered.Build();
    content[tampered.MainHeaderOffset() + 20] ^= 0x01;
    EXPECT_EQ(3, Process(content, message));
    EXPECT_EQ("Invalid value of SHA1 header hash", message);

    rpmtest::Package stranger = Signed();
    rpmtest::SignatureSpec spec = OwnKey::Get().Spec(4, rpmtest::kPgpSha256);
    spec.issuer[3] ^= 0x40;
    stranger.SignWith(OwnKey::Get().Key(), spec);
    message.clear();
    EXPECT_EQ(2, Process(stranger.Build(), message));
    EXPECT_EQ("RSA signature is not valid.  The file was signed with a different PGP certificate", message);

    rpmtest::Package unsignedPackage = Signed();
    unsignedPackage.signatureEntries = {rpmtest::RegionEntry(), unsignedPackage.signatureEntries[2],
                                        unsignedPackage.signatureEntries[4]};
    // Without a header-only signature the hash algorithm cannot be chosen.
    EXPECT_EQ(5, Process(unsignedPackage.Build(), message));
    EXPECT_EQ("There are no PGP signatures.", message);
}

TEST_F(RpmSignerTest, ProcessWithFailedRsaCheck) {
    rpmtest::Package package = Signed();
    rpmtest::SignatureSpec spec = OwnKey::Get().Spec(4, rpmtest::kPgpSha256);
    const Bytes hash =
        rpmtest::Hash(EVP_sha256(), rpmtest::Concat(package.mainHeader, rpmtest::Trailer(spec)));
    package.signatureEntries[1].data = rpmtest::SignaturePacket(spec, hash.data(), Bytes(256, 0x24));
    std::string message;
    EXPECT_EQ(5, Process(package.Build(), message));
    EXPECT_EQ("basic_string::_S_construct NULL not valid", message);
}

TEST_F(RpmSignerTest, ProcessCopiesLeadAndMainHeaderAndPayload) {
    rpmtest::Package package = Signed(rpmtest::kPgpSha256, 70000);
    const Bytes content = package.Build();
    auto signer = SignerFor(content);
    const std::string output = m_Folder.File("copy.rpm");
    signer->_OutputFile = new FileHelper(m_Folder.Path() + "/", "copy.rpm", false);
    std::string message;
    EXPECT_EQ(1, signer->Process(true, true, false, message));
    Bytes expected(content.begin(), content.begin() + 96);
    expected.insert(expected.end(), content.begin() + static_cast<long>(package.MainHeaderOffset()),
                    content.end());
    EXPECT_EQ(expected, testsupport::ReadBytes(output));
    // The signer removes an output copy that nobody took away.
    signer.reset();
    EXPECT_FALSE(testsupport::PathExists(output));
}

TEST_F(RpmSignerTest, CopyWithoutOutputFileIsAnError) {
    auto signer = SignerFor(Signed().Build());
    std::string message;
    EXPECT_EQ(5, signer->Process(true, true, false, message));
    EXPECT_EQ("Invalid argument: RpmSigner has no output file to copy the package into", message);
}

TEST_F(RpmSignerTest, ProcessTwiceOnOneSigner) {
    auto signer = SignerFor(Signed().Build());
    std::string message;
    EXPECT_EQ(1, signer->Process(true, false, false, message));
    EXPECT_EQ(1, signer->Process(false, false, true, message));
}

TEST_F(RpmSignerTest, FixturePackages) {
    // Verdict and message by package; every intact package signed by the
    // key it is checked with verifies.
    const std::map<std::string, std::pair<int, std::string>> expected = {
        {"unsigned.rpm", {5, "There are no PGP signatures."}},
        {"headeronly-rsa2048-sha256.rpm",
         {8, "The package does not contain PGP signature over its header and payload."}},
        {"tampered-payload.rpm", {3, "Invalid value of MD5 hash"}},
        {"tampered-header.rpm", {3, "Invalid value of SHA1 header hash"}},
        {"badsig-header.rpm", {5, "basic_string::_S_construct NULL not valid"}},
        {"badsig-payload.rpm", {5, "basic_string::_S_construct NULL not valid"}},
        {"signed-other2048-sha256.rpm",
         {2, "RSA signature is not valid.  The file was signed with a different PGP certificate"}},
    };
    for (const auto& package : fixtures::Packages()) {
        REQUIRE_FIXTURE(package.path);
        UseKey(fixtures::KeyArmored(package.key.empty() || package.key == "other2048" ? "rsa2048"
                                                                                      : package.key));
        auto signer = SignerForFile(package.path);
        std::string message;
        const int verdict = signer->Process(true, false, false, message);
        auto found = expected.find(package.name);
        if (found != expected.end()) {
            EXPECT_EQ(found->second.first, verdict) << package.name;
            EXPECT_EQ(found->second.second, message) << package.name;
        } else if (package.intact && package.signatures == fixtures::PackageSignatures::HeaderAndPayload) {
            EXPECT_EQ(1, verdict) << package.name << ": " << message;
            EXPECT_EQ("", message) << package.name;
        } else {
            ADD_FAILURE() << "no expected verdict for " << package.name << " (got " << verdict << ", "
                          << message << ")";
        }
    }
}

TEST_F(RpmSignerTest, FixturePackageAgainstItsOwnOtherKey) {
    UseKey(fixtures::KeyArmored("other2048"));
    auto signer = SignerForFile(fixtures::Package("signed-other2048-sha256.rpm"));
    std::string message;
    EXPECT_EQ(1, signer->Process(true, false, false, message));
}

// -------------------------------------------------------- Signer base

TEST(Signer, NotImplementedOperations) {
    RpmSigner signer(3);
    Signer& base = signer;
    testsupport::ExpectThrowWithText<NotImplementedException>(
        [&] { base.BuildContentInfo(soapWrap::SHA256, true); },
        "Not implemented: BuildContentInfo method with hash algorithm specification");
    testsupport::ExpectThrowWithText<NotImplementedException>(
        [&] { base.BuildContentInfo(false); },
        "Not implemented: RpmSigner::BuildContentInfo() is not implemented");
    EXPECT_FALSE(base.IsCatSpecificContentInfo());
    EXPECT_EQ(nullptr, base.GetDigest());
    EXPECT_EQ(4u, base.GetFileType());
    EXPECT_EQ(3u, signer._Mode);
}

TEST(Signer, DestructorReleasesBothFiles) {
    testsupport::TempDir folder;
    testsupport::WriteFile(folder.File("in.rpm"), "input");
    {
        RpmSigner signer(0);
        signer._File = new FileHelper(folder.File("in.rpm"));
        signer._OutputFile = new FileHelper(folder.Path() + "/", "out.rpm", false);
        EXPECT_TRUE(testsupport::PathExists(folder.File("out.rpm")));
    }
    EXPECT_FALSE(testsupport::PathExists(folder.File("out.rpm")));
    EXPECT_TRUE(testsupport::PathExists(folder.File("in.rpm")));
}

} // namespace
