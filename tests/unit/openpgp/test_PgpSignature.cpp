// One OpenPGP signature: the hash trailer, the quick check, the issuer check
// and the RSA check against the store's key, with real gpg keys and
// signatures and with keys and packets made by OpenSSL in the test.
#include "CertificateManager.h"
#include "Digest.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "Fixtures.h"
#include "PgpMessage.h"
#include "PgpSignature.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

using testsupport::ExpectThrowWithText;

namespace {

using rpmtest::Bytes;

const char kQuickCheckFailure[] = " Digest does not correspond to the signature";
const char kOtherKey[] = " The file was signed with a different PGP certificate";
const char kRsaFailure[] = "basic_string::_S_construct NULL not valid";

std::unique_ptr<Digest> DigestOf(soapWrap::HashAlgorithm algorithm, const Bytes& data) {
    auto digest = std::make_unique<Digest>(algorithm);
    digest->Update(data.data(), data.size());
    return digest;
}

// A parsed signature packet with the message that owns it, and the digest
// lent to it.
struct ParsedSignature {
    Bytes bytes;
    std::unique_ptr<PgpMessage> message;
    std::unique_ptr<PgpSignature> signature;
    std::unique_ptr<Digest> digest;

    // Lends the signature a digest over the data, as the RPM signer does.
    Digest* LendDigest(soapWrap::HashAlgorithm algorithm, const Bytes& data) {
        digest = DigestOf(algorithm, data);
        signature->SetDigest(0, digest.get());
        return digest.get();
    }
};

std::unique_ptr<ParsedSignature> Parse(const Bytes& packet) {
    auto parsed = std::make_unique<ParsedSignature>();
    parsed->bytes = packet;
    parsed->message = std::make_unique<PgpMessage>(reinterpret_cast<char*>(parsed->bytes.data()),
                                                   static_cast<unsigned int>(parsed->bytes.size()));
    if (parsed->message->GetSignature() == nullptr) {
        throw std::runtime_error("no signature packet");
    }
    parsed->signature = std::make_unique<PgpSignature>(parsed->message->GetSignature());
    return parsed;
}

void UseKey(const std::string& path) {
    CertificateManager::Instance()->SetPgpPublicKeyFilePath(path);
}

soapWrap::HashAlgorithm AlgorithmOfName(const std::string& name) {
    if (name == "sha1") {
        return soapWrap::SHA1;
    }
    if (name == "sha256") {
        return soapWrap::SHA256;
    }
    return soapWrap::SHA512;
}

using rpmtest::OwnKey;

rpmtest::SignatureSpec OwnSpec(int version, unsigned char hash) {
    return OwnKey::Get().Spec(version, hash);
}

// The packet that Sign lays out around an RSA value, with Sign's result and
// message; Sign allocates the packet, which is copied and freed here.
struct SignedPacket {
    ProcessingResult result;
    std::string message;
    Bytes bytes;
};

SignedPacket SignPacket(PgpSignature& signer, Bytes value) {
    soapWrap::Binary signatureValue{value.data(), static_cast<uint32_t>(value.size())};
    soapWrap::Binary packet{nullptr, 0};
    SignedPacket out;
    out.result = signer.Sign(&packet, &signatureValue, out.message);
    std::unique_ptr<unsigned char[]> owned(packet.data);
    out.bytes.assign(packet.data, packet.data + packet.size);
    return out;
}

// ------------------------------------------------------------ mappings

TEST(PgpSignatureHash, OctetsMapToAlgorithms) {
    EXPECT_EQ(soapWrap::MD5, PgpSignature::ToHashAlgorithm(1));
    EXPECT_EQ(soapWrap::SHA1, PgpSignature::ToHashAlgorithm(2));
    EXPECT_EQ(soapWrap::SHA256, PgpSignature::ToHashAlgorithm(8));
    EXPECT_EQ(soapWrap::SHA384, PgpSignature::ToHashAlgorithm(9));
    EXPECT_EQ(soapWrap::SHA512, PgpSignature::ToHashAlgorithm(10));
    EXPECT_EQ(soapWrap::SHA224, PgpSignature::ToHashAlgorithm(11));
}

TEST(PgpSignatureHash, AlgorithmsMapToOctets) {
    EXPECT_EQ(2, PgpSignature::GetPgpHashAlgorithm(soapWrap::SHA1));
    EXPECT_EQ(1, PgpSignature::GetPgpHashAlgorithm(soapWrap::MD5));
    EXPECT_EQ(11, PgpSignature::GetPgpHashAlgorithm(soapWrap::SHA224));
    EXPECT_EQ(8, PgpSignature::GetPgpHashAlgorithm(soapWrap::SHA256));
    EXPECT_EQ(9, PgpSignature::GetPgpHashAlgorithm(soapWrap::SHA384));
    EXPECT_EQ(10, PgpSignature::GetPgpHashAlgorithm(soapWrap::SHA512));
}

TEST(PgpSignatureHash, UnknownAlgorithmsAreRefused) {
    ExpectThrowWithText<NotSupportedException>(
        [&] { PgpSignature::GetPgpHashAlgorithm(soapWrap::PEHeaderHash); },
        "Not supported hash algorithm in PGP signature");
    ExpectThrowWithText<NotSupportedException>([&] { PgpSignature::ToHashAlgorithm(3); },
                                               "Not supported hash algorithm in PGP signature");
}

TEST(PgpSignatureHash, RipemdPacketHasNoAlgorithm) {
    // Octet 3 (RIPEMD-160) in a parsed packet.
    rpmtest::SignatureSpec spec;
    spec.hashAlgorithm = 3;
    const unsigned char left[2] = {0, 0};
    auto parsed = Parse(rpmtest::SignaturePacket(spec, left, Bytes(256, 0x5A)));
    ExpectThrowWithText<NotSupportedException>([&] { parsed->signature->GetHashAlgorithm(); },
                                               "Not supported hash algorithm in PGP signature");
}

TEST(PgpSignatureHash, PacketAlgorithmOfEachFixtureSignature) {
    for (const auto& fixture : fixtures::DetachedSignatures()) {
        REQUIRE_FIXTURE(fixture.signature);
        auto parsed = Parse(testsupport::ReadBytes(fixture.signature));
        EXPECT_EQ(AlgorithmOfName(fixture.digest), parsed->signature->GetHashAlgorithm())
            << fixture.signature;
    }
}

// ----------------------------------------------------------------- sizes

TEST(PgpSignatureSize, StaticSizes) {
    EXPECT_EQ(287u, PgpSignature::GetSize(PgpSignatureVersion4, 2048));
    EXPECT_EQ(280u, PgpSignature::GetSize(PgpSignatureVersion3, 2048));
    EXPECT_EQ(543u, PgpSignature::GetSize(PgpSignatureVersion4, 4096));
    ExpectThrowWithText<NotImplementedException>(
        [&] { PgpSignature::GetSize(static_cast<PgpSignatureVersion>(5), 2048); },
        "Not implemented: Cannot get size of PGP signature.");
}

TEST(PgpSignatureSize, SizeOfParsedPackets) {
    const Bytes data = rpmtest::FromText("sized data");
    auto v4 = Parse(OwnKey::Get().Key().Sign(OwnSpec(4, rpmtest::kPgpSha256), data));
    const PgpSignatureData* packet = v4->signature->GetSignatureData();
    EXPECT_EQ(packet->GetSignatureSize() / 8u + packet->GetHashedLength() + packet->GetUnhashedLength() + 15u,
              v4->signature->GetSize());
    EXPECT_EQ(6u, packet->GetHashedLength());
    EXPECT_EQ(10u, packet->GetUnhashedLength());

    auto v3 = Parse(OwnKey::Get().Key().Sign(OwnSpec(3, rpmtest::kPgpSha1), data));
    EXPECT_EQ(v3->signature->GetSignatureData()->GetSignatureSize() / 8u + 24u, v3->signature->GetSize());
}

TEST(PgpSignatureSize, SizeOfBuiltPacket) {
    const char issuer[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    PgpSignatureData v4(PgpSignatureVersion4, issuer, 2048, PgpSignatureBinary, PgpHashSha256);
    PgpSignature signature4(&v4);
    EXPECT_EQ(287u, signature4.GetSize());
    PgpSignatureData v3(PgpSignatureVersion3, issuer, 2048, PgpSignatureBinary, PgpHashSha256);
    PgpSignature signature3(&v3);
    EXPECT_EQ(280u, signature3.GetSize());
}

TEST(PgpSignatureSize, SignedSizeIsNotImplemented) {
    const char issuer[8] = {};
    PgpSignatureData data(PgpSignatureVersion4, issuer, 2048, PgpSignatureBinary, PgpHashSha1);
    PgpSignature signature(&data);
    ExpectThrowWithText<NotImplementedException>(
        [&] { signature.GetSignedSize(); },
        "Not implemented: PgpSignature::GetSignedSize() is not implemented");
}

TEST(PgpSignatureConstruction, NullPacketIsRefused) {
    EXPECT_THROW(PgpSignature signature(nullptr), ArgumentException);
}

// ------------------------------------------------------------ trailers

TEST(PgpSignatureTrailer, VersionFourWithFourHashedBytes) {
    rpmtest::SignatureSpec spec;
    spec.type = 0x00;
    spec.hashAlgorithm = rpmtest::kPgpSha256;
    spec.hashed = {0x03, 0x0B, 0x01, 0x02};
    const unsigned char left[2] = {0xAB, 0xCD};
    auto parsed = Parse(rpmtest::SignaturePacket(spec, left, Bytes(256, 0x42)));
    ASSERT_EQ(4u, parsed->signature->GetSignatureData()->GetHashedLength());

    const Bytes data = rpmtest::FromText("the package data");
    parsed->LendDigest(soapWrap::SHA256, data);
    std::unique_ptr<DigestBase> trailed(parsed->signature->UpdateHash());

    const Bytes trailer = {0x04, 0x00, 0x01, 0x08, 0x00, 0x04, 0x03, 0x0B,
                           0x01, 0x02, 0x04, 0xFF, 0x00, 0x00, 0x00, 0x0A};
    const Bytes expected = rpmtest::Hash(EVP_sha256(), rpmtest::Concat(data, trailer));
    EXPECT_EQ(soapWrap::SHA256, trailed->GetType());
    EXPECT_EQ(expected, Bytes(trailed->GetValue(), trailed->GetValue() + trailed->GetLength()));
}

TEST(PgpSignatureTrailer, VersionThreeHashesItsFiveBytes) {
    rpmtest::SignatureSpec spec;
    spec.version = 3;
    spec.hashAlgorithm = rpmtest::kPgpSha1;
    spec.hashed = {0x00, 0x5F, 0x01, 0x02, 0x03};
    const unsigned char left[2] = {0, 0};
    auto parsed = Parse(rpmtest::SignaturePacket(spec, left, Bytes(128, 0x42)));

    const Bytes data = rpmtest::FromText("version three data");
    parsed->LendDigest(soapWrap::SHA1, data);
    std::unique_ptr<DigestBase> trailed(parsed->signature->UpdateHash());
    const Bytes expected = rpmtest::Hash(EVP_sha1(), rpmtest::Concat(data, {0x00, 0x5F, 0x01, 0x02, 0x03}));
    EXPECT_EQ(expected, Bytes(trailed->GetValue(), trailed->GetValue() + trailed->GetLength()));
}

TEST(PgpSignatureTrailer, ContainerDigestStaysOpen) {
    auto parsed = Parse(OwnKey::Get().Key().Sign(OwnSpec(4, rpmtest::kPgpSha256), rpmtest::FromText("x")));
    const Bytes data = rpmtest::FromText("first part ");
    Digest* digest = parsed->LendDigest(soapWrap::SHA256, data);
    std::unique_ptr<DigestBase> trailed(parsed->signature->UpdateHash());
    trailed->GetValue();
    // The lent digest can still be fed and gives the digest of the data alone.
    digest->Update("second", 6);
    const Bytes expected = rpmtest::Hash(EVP_sha256(), rpmtest::FromText("first part second"));
    EXPECT_EQ(expected, Bytes(digest->GetValue(), digest->GetValue() + digest->GetLength()));
}

TEST(PgpSignatureTrailer, NoDigestToFinish) {
    auto parsed = Parse(OwnKey::Get().Key().Sign(OwnSpec(4, rpmtest::kPgpSha256), rpmtest::FromText("x")));
    EXPECT_THROW(parsed->signature->UpdateHash(), NotDefinedException);
}

// ------------------------------------------------- real keys and signatures

class PgpSignatureFixtures : public ::testing::Test {
protected:
    void TearDown() override { UseKey(""); }

    // Verifies the detached signature that key made with digest over
    // data/data.bin, with the data byte at changed by mask, against the key
    // file keyFile; message holds the text before and after.
    static ProcessingResult VerifyChangedData(size_t at, unsigned char mask, const std::string& keyFile,
                                              const std::string& key, const std::string& digest,
                                              std::string& message) {
        Bytes data = testsupport::ReadBytes(fixtures::DataFile());
        data[at] ^= mask;
        UseKey(keyFile);
        auto parsed = Parse(testsupport::ReadBytes(fixtures::DetachedSignature(key, digest)));
        parsed->LendDigest(AlgorithmOfName(digest), data);
        return parsed->signature->Verify(message);
    }
};

TEST_F(PgpSignatureFixtures, DetachedSignaturesVerify) {
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    for (const auto& fixture : fixtures::DetachedSignatures()) {
        REQUIRE_FIXTURE(fixture.signature);
        UseKey(fixtures::KeyArmored(fixture.key));
        auto parsed = Parse(testsupport::ReadBytes(fixture.signature));
        Digest* digest = parsed->LendDigest(AlgorithmOfName(fixture.digest), data);
        std::string message;
        EXPECT_EQ(Valid, parsed->signature->Verify(message)) << fixture.signature;
        EXPECT_EQ("", message);
        // Borrowed: the digest is still ours.
        EXPECT_EQ(digest, parsed->signature->GetDigest(0));
    }
}

TEST_F(PgpSignatureFixtures, BinaryAndCrlfKeysVerifyToo) {
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    for (const std::string& key : {fixtures::KeyBinary("rsa3072"), fixtures::KeyArmoredCrlf("rsa3072")}) {
        REQUIRE_FIXTURE(key);
        UseKey(key);
        auto parsed = Parse(testsupport::ReadBytes(fixtures::DetachedSignature("rsa3072", "sha256")));
        parsed->LendDigest(soapWrap::SHA256, data);
        std::string message;
        EXPECT_EQ(Valid, parsed->signature->Verify(message)) << key;
    }
}

TEST_F(PgpSignatureFixtures, LeadingZeroSignatureVerifies) {
    REQUIRE_FIXTURE(fixtures::LeadingZeroSignature());
    const Bytes signatureBytes = testsupport::ReadBytes(fixtures::LeadingZeroSignature());
    ASSERT_LE(fixtures::SignatureMpiBits(signatureBytes), 2040);
    UseKey(fixtures::KeyArmored("rsa2048"));
    auto parsed = Parse(signatureBytes);
    EXPECT_LT(parsed->signature->GetSignatureData()->GetSignatureValue()->GetLengthInBytes(), 256u);
    parsed->LendDigest(soapWrap::SHA256, testsupport::ReadBytes(fixtures::LeadingZeroData()));
    std::string message;
    EXPECT_EQ(Valid, parsed->signature->Verify(message));
}

TEST_F(PgpSignatureFixtures, ChangedDataFailsTheQuickCheck) {
    Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    data[data.size() / 2] ^= 0x01;
    for (const auto& fixture : fixtures::DetachedSignatures()) {
        UseKey(fixtures::KeyArmored(fixture.key));
        auto parsed = Parse(testsupport::ReadBytes(fixture.signature));
        parsed->LendDigest(AlgorithmOfName(fixture.digest), data);
        // The quick check must really differ for this data (it does for these fixtures).
        std::unique_ptr<DigestBase> trailed(parsed->signature->UpdateHash());
        const unsigned char* left = parsed->signature->GetSignatureData()->GetLeft16Bits();
        ASSERT_TRUE(left[0] != trailed->GetValue()[0] || left[1] != trailed->GetValue()[1]);

        std::string message;
        EXPECT_EQ(InvalidSignature, parsed->signature->Verify(message)) << fixture.signature;
        EXPECT_EQ(kQuickCheckFailure, message);
    }
}

// The stored quick-check bytes sit just before the signature MPI (two bytes
// of bit count, then the value), outside the hashed data: changing one of
// them leaves the RSA signature valid, so only the quick check can refuse it.
TEST_F(PgpSignatureFixtures, EitherQuickCheckByteWrongFailsTheQuickCheck) {
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    for (const auto& fixture : fixtures::DetachedSignatures()) {
        SCOPED_TRACE(fixture.signature);
        UseKey(fixtures::KeyArmored(fixture.key));
        const Bytes original = testsupport::ReadBytes(fixture.signature);
        const size_t valueBytes =
            Parse(original)->signature->GetSignatureData()->GetSignatureValue()->GetLengthInBytes();
        const size_t at = original.size() - valueBytes - 2 - 2;
        for (size_t wrong : {0, 1}) {
            Bytes changed = original;
            changed[at + wrong] ^= 0x01;
            auto parsed = Parse(changed);
            const unsigned char* left = parsed->signature->GetSignatureData()->GetLeft16Bits();
            // The change reached the stored bytes, and only the one byte.
            ASSERT_EQ(original[at + 1 - wrong], left[1 - wrong]);
            ASSERT_EQ(static_cast<unsigned char>(original[at + wrong] ^ 0x01), left[wrong]);
            parsed->LendDigest(AlgorithmOfName(fixture.digest), data);
            std::string message;
            EXPECT_EQ(InvalidSignature, parsed->signature->Verify(message)) << "byte " << wrong;
            EXPECT_EQ(kQuickCheckFailure, message) << "byte " << wrong;
        }
        // Unchanged, the same signature verifies.
        auto parsed = Parse(original);
        parsed->LendDigest(AlgorithmOfName(fixture.digest), data);
        std::string message;
        EXPECT_EQ(Valid, parsed->signature->Verify(message));
    }
}

// Every single-byte change of a real signature packet, checked against the
// data it signs with its own key: the packet is refused or the check fails.
// The unhashed subpacket area (its length and content) is not covered by the
// signature, and neither is the low byte of the signature MPI's bit count as
// long as the MPI keeps its byte length (rpmkeys accepts those too), so only
// changes outside those must never verify.
TEST_F(PgpSignatureFixtures, EveryByteChangeOfARealSignatureIsNeverValid) {
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    UseKey(fixtures::KeyArmored("rsa2048"));
    const Bytes original = testsupport::ReadBytes(fixtures::DetachedSignature("rsa2048", "sha256"));
    {
        auto parsed = Parse(original);
        parsed->LendDigest(soapWrap::SHA256, data);
        std::string message;
        ASSERT_EQ(Valid, parsed->signature->Verify(message));
    }
    // An old-format packet with a two-byte length: version, type, key and
    // hash algorithms, then the hashed area's length and content, then the
    // unhashed area's.
    ASSERT_EQ(0x89, original[0]);
    const size_t unhashedAt = 9 + (size_t(original[7]) << 8 | original[8]);
    const size_t unhashedEnd =
        unhashedAt + 2 + (size_t(original[unhashedAt]) << 8 | original[unhashedAt + 1]);
    // After the unhashed area: the hash's left 16 bits, then the MPI's bit count.
    const size_t bitCountAt = unhashedEnd + 2;
    ASSERT_LT(bitCountAt + 1, original.size());
    const size_t mpiBytes = ((size_t(original[bitCountAt]) << 8 | original[bitCountAt + 1]) + 7) / 8;
    auto keepsMpiLength = [&](size_t at, unsigned char value) {
        return at == bitCountAt + 1 && ((size_t(original[bitCountAt]) << 8 | value) + 7) / 8 == mpiBytes;
    };
    size_t refused = 0;
    size_t failed = 0;
    size_t unhashedValid = 0;
    size_t bitCountValid = 0;
    for (size_t at = 0; at < original.size(); ++at) {
        for (unsigned char value : {0x00, 0x01, 0x09, 0x10, 0x7F, 0x80, 0xFF}) {
            if (original[at] == value) {
                continue;
            }
            Bytes changed = original;
            changed[at] = value;
            std::unique_ptr<ParsedSignature> parsed;
            try {
                parsed = Parse(changed);
            } catch (const std::exception&) {
                ++refused;
                continue;
            }
            parsed->LendDigest(soapWrap::SHA256, data);
            std::string message;
            ProcessingResult result = InvalidSignature;
            try {
                result = parsed->signature->Verify(message);
            } catch (const std::exception&) {
            }
            if (result != Valid) {
                ++failed;
            } else if (at >= unhashedAt && at < unhashedEnd) {
                ++unhashedValid;
            } else if (keepsMpiLength(at, value)) {
                ++bitCountValid;
            } else {
                ADD_FAILURE() << "byte " << at << " set to " << int(value) << " still verifies";
            }
        }
    }
    std::printf("signature byte changes: %zu refused when parsed, %zu failed the check, %zu in the unhashed "
                "area and %zu in the MPI bit count verify\n",
                refused, failed, unhashedValid, bitCountValid);
    EXPECT_GT(refused, 0u);
    EXPECT_GT(failed, 0u);
}

TEST_F(PgpSignatureFixtures, MessagesAreAppended) {
    std::string message = "before.";
    EXPECT_EQ(InvalidSignature,
              VerifyChangedData(0, 0x80, fixtures::KeyArmored("rsa2048"), "rsa2048", "sha256", message));
    EXPECT_EQ(std::string("before.") + kQuickCheckFailure, message);
}

TEST_F(PgpSignatureFixtures, AnotherKeyFailsTheKeyCheck) {
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    UseKey(fixtures::KeyArmored("other2048"));
    for (const auto& fixture : fixtures::DetachedSignatures()) {
        auto parsed = Parse(testsupport::ReadBytes(fixture.signature));
        parsed->LendDigest(AlgorithmOfName(fixture.digest), data);
        std::string message = "x";
        EXPECT_EQ(InvalidSignature, parsed->signature->Verify(message)) << fixture.signature;
        EXPECT_EQ(std::string("x") + kOtherKey, message);
    }
}

TEST_F(PgpSignatureFixtures, QuickCheckComesBeforeKeyCheck) {
    std::string message;
    EXPECT_EQ(InvalidSignature,
              VerifyChangedData(1, 0x10, fixtures::KeyArmored("other2048"), "rsa2048", "sha1", message));
    EXPECT_EQ(kQuickCheckFailure, message);
}

TEST_F(PgpSignatureFixtures, KeyWithSigningSubkeyCannotBeLoaded) {
    REQUIRE_FIXTURE(fixtures::SubkeySignature());
    UseKey(fixtures::KeyArmored("signsub"));
    auto parsed = Parse(testsupport::ReadBytes(fixtures::SubkeySignature()));
    parsed->LendDigest(soapWrap::SHA256, testsupport::ReadBytes(fixtures::DataFile()));
    std::string message;
    // The signing subkey's binding signature carries its back-signature in an
    // unhashed subpacket with a two-byte length, which the key parser does
    // not understand: the key block is refused when the key is loaded.
    ExpectThrowWithText<DataFormatException>(
        [&] { parsed->signature->Verify(message); },
        "Invalid format of data: Size of the multi-precision integers is greater than the buffer length");
    EXPECT_EQ("", message);
}

TEST_F(PgpSignatureFixtures, FailedRsaCheckIsTheLogicError) {
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    for (const auto& fixture : fixtures::DetachedSignatures()) {
        UseKey(fixtures::KeyArmored(fixture.key));
        Bytes signatureBytes = testsupport::ReadBytes(fixture.signature);
        // The last byte belongs to the signature MPI: quick check and issuer stay.
        signatureBytes.back() ^= 0x01;
        auto parsed = Parse(signatureBytes);
        parsed->LendDigest(AlgorithmOfName(fixture.digest), data);
        std::string message = "kept";
        SCOPED_TRACE(fixture.signature);
        ExpectThrowWithText<std::logic_error>([&] { parsed->signature->Verify(message); }, kRsaFailure);
        EXPECT_EQ("kept", message);
    }
}

TEST_F(PgpSignatureFixtures, MissingKeyFilePassesThrough) {
    testsupport::TempDir folder;
    const std::string missing = folder.File("missing.asc");
    UseKey(missing);
    auto parsed = Parse(testsupport::ReadBytes(fixtures::DetachedSignature("rsa2048", "sha256")));
    parsed->LendDigest(soapWrap::SHA256, testsupport::ReadBytes(fixtures::DataFile()));
    std::string message;
    ExpectThrowWithText<FileNotFoundException>(
        [&] { parsed->signature->Verify(message); },
        "File operation error: File not found: Cannot get status for '" + missing +
            "': No such file or directory");
}

TEST_F(PgpSignatureFixtures, KeyFileIsReadForEveryCheck) {
    testsupport::TempDir folder;
    const std::string key = folder.File("key.asc");
    const Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    auto parsed = Parse(testsupport::ReadBytes(fixtures::DetachedSignature("rsa2048", "sha512")));
    parsed->LendDigest(soapWrap::SHA512, data);
    UseKey(key);

    testsupport::WriteFile(key, testsupport::ReadFile(fixtures::KeyArmored("rsa2048")));
    std::string message;
    EXPECT_EQ(Valid, parsed->signature->Verify(message));
    testsupport::WriteFile(key, testsupport::ReadFile(fixtures::KeyArmored("other2048")));
    EXPECT_EQ(InvalidSignature, parsed->signature->Verify(message));
    EXPECT_EQ(kOtherKey, message);
    testsupport::WriteFile(key, testsupport::ReadFile(fixtures::KeyArmored("rsa2048")));
    message.clear();
    EXPECT_EQ(Valid, parsed->signature->Verify(message));
}

// ---------------------------------------------- keys made by the test

class PgpSignatureOwnKey : public ::testing::Test {
protected:
    void SetUp() override { UseKey(OwnKey::Get().KeyFile()); }
    void TearDown() override { UseKey(""); }
};

TEST_F(PgpSignatureOwnKey, EveryHashAlgorithmInBothVersions) {
    const Bytes data = rpmtest::Payload(5000);
    const std::pair<unsigned char, soapWrap::HashAlgorithm> algorithms[] = {
        {rpmtest::kPgpMd5, soapWrap::MD5},       {rpmtest::kPgpSha1, soapWrap::SHA1},
        {rpmtest::kPgpSha224, soapWrap::SHA224}, {rpmtest::kPgpSha256, soapWrap::SHA256},
        {rpmtest::kPgpSha384, soapWrap::SHA384}, {rpmtest::kPgpSha512, soapWrap::SHA512}};
    for (int version : {3, 4}) {
        for (const auto& algorithm : algorithms) {
            auto parsed = Parse(OwnKey::Get().Key().Sign(OwnSpec(version, algorithm.first), data));
            EXPECT_EQ(algorithm.second, parsed->signature->GetHashAlgorithm());
            parsed->LendDigest(algorithm.second, data);
            std::string message;
            EXPECT_EQ(Valid, parsed->signature->Verify(message)) << version << " " << int(algorithm.first);
            EXPECT_EQ("", message);
        }
    }
}

TEST_F(PgpSignatureOwnKey, WrongSignatureWithRightQuickCheckIsTheLogicError) {
    const Bytes data = rpmtest::FromText("signed by nobody");
    rpmtest::SignatureSpec spec = OwnSpec(4, rpmtest::kPgpSha256);
    const Bytes hash = rpmtest::Hash(EVP_sha256(), rpmtest::Concat(data, rpmtest::Trailer(spec)));
    Bytes garbage(256, 0x33);
    auto parsed = Parse(rpmtest::SignaturePacket(spec, hash.data(), garbage));
    parsed->LendDigest(soapWrap::SHA256, data);
    std::string message;
    ExpectThrowWithText<std::logic_error>([&] { parsed->signature->Verify(message); }, kRsaFailure);
}

TEST_F(PgpSignatureOwnKey, SignatureOfTheWrongDigestAlgorithmFailsTheRsaCheck) {
    // The packet says SHA-256, the value was made over a SHA-512 DigestInfo
    // of another hash: the quick check passes, RSA fails.
    const Bytes data = rpmtest::FromText("mixed algorithms");
    rpmtest::SignatureSpec spec = OwnSpec(4, rpmtest::kPgpSha256);
    const Bytes hash = rpmtest::Hash(EVP_sha256(), rpmtest::Concat(data, rpmtest::Trailer(spec)));
    const Bytes wrong = OwnKey::Get().Key().SignDigest(EVP_sha512(), rpmtest::Hash(EVP_sha512(), data));
    auto parsed = Parse(rpmtest::SignaturePacket(spec, hash.data(), wrong));
    parsed->LendDigest(soapWrap::SHA256, data);
    std::string message;
    EXPECT_THROW(parsed->signature->Verify(message), std::logic_error);
}

TEST_F(PgpSignatureOwnKey, QuickCheckFailureMakesNoRsaOperation) {
    // A key file that names the right issuer but holds another modulus: any
    // RSA check against it fails, and a failed RSA check throws.
    testsupport::TempDir folder;
    const std::string impostor = folder.File("impostor.gpg");
    rpmtest::TestKey other;
    testsupport::WriteBytes(impostor, other.KeyFile(OwnKey::Get().KeyId()));
    UseKey(impostor);

    const Bytes data = rpmtest::FromText("checked against the impostor");
    auto parsed = Parse(OwnKey::Get().Key().Sign(OwnSpec(4, rpmtest::kPgpSha256), data));
    auto changed = DigestOf(soapWrap::SHA256, rpmtest::FromText("something else"));
    parsed->signature->SetDigest(0, changed.get());
    std::string message;
    EXPECT_EQ(InvalidSignature, parsed->signature->Verify(message));
    EXPECT_EQ(kQuickCheckFailure, message);

    // With the right data the quick and key checks pass and the RSA check runs.
    auto again = Parse(parsed->bytes);
    auto right = DigestOf(soapWrap::SHA256, data);
    again->signature->SetDigest(0, right.get());
    EXPECT_THROW(again->signature->Verify(message), std::logic_error);
}

TEST_F(PgpSignatureOwnKey, OtherIssuerIsAnotherCertificate) {
    const Bytes data = rpmtest::FromText("issuer");
    rpmtest::SignatureSpec spec = OwnSpec(3, rpmtest::kPgpSha256);
    spec.issuer[7] ^= 1;
    auto parsed = Parse(OwnKey::Get().Key().Sign(spec, data));
    parsed->LendDigest(soapWrap::SHA256, data);
    std::string message;
    EXPECT_EQ(InvalidSignature, parsed->signature->Verify(message));
    EXPECT_EQ(kOtherKey, message);
}

// ------------------------------------------------------------- signing

// Expects each run of bytes at its offset in packet.
void ExpectRunsAt(const Bytes& packet, std::initializer_list<std::pair<size_t, Bytes>> runs) {
    for (const auto& [offset, run] : runs) {
        ASSERT_LE(offset + run.size(), packet.size()) << "at offset " << offset;
        EXPECT_EQ(run, Bytes(packet.begin() + static_cast<long>(offset),
                             packet.begin() + static_cast<long>(offset + run.size())))
            << "at offset " << offset;
    }
}

TEST_F(PgpSignatureOwnKey, SignLaysOutAVersionFourPacketThatVerifies) {
    const Bytes data = rpmtest::Payload(777);
    const Bytes& keyId = OwnKey::Get().KeyId();
    PgpSignatureData fields(PgpSignatureVersion4, reinterpret_cast<const char*>(keyId.data()), 2048,
                            PgpSignatureBinary, PgpHashSha256);
    ASSERT_EQ(6u, fields.GetHashedLength());

    // The value to sign: the data digest finished with this packet's trailer.
    auto dataDigest = DigestOf(soapWrap::SHA256, data);
    PgpSignature hasher(&fields);
    hasher.SetDigest(0, dataDigest.get());
    std::unique_ptr<DigestBase> trailed(hasher.UpdateHash());
    const Bytes hash(trailed->GetValue(), trailed->GetValue() + trailed->GetLength());
    const Bytes value = OwnKey::Get().Key().SignDigest(EVP_sha256(), hash);

    PgpSignature signer(&fields);
    signer.SetDigest(0, trailed.get());
    SignedPacket packet = SignPacket(signer, value);
    EXPECT_EQ(Valid, packet.result);
    ASSERT_EQ(287u, packet.bytes.size());

    const Bytes& bytes = packet.bytes;
    ExpectRunsAt(bytes, {{0, {0x89, 0x01, 0x1C}}, // old format, 2-byte length 287 - 3
                         {3, {4, 0x00, 1, 8, 0, 6}},
                         {9, Bytes(fields.GetHashedData(), fields.GetHashedData() + 6)},
                         {15, {0, 10, 9, 16}},
                         {19, keyId},
                         {27, {hash[0], hash[1], 0x08, 0x00}},
                         {31, value}});

    // The packet parses and verifies against the key.
    auto parsed = Parse(bytes);
    parsed->LendDigest(soapWrap::SHA256, data);
    EXPECT_EQ(Valid, parsed->signature->Verify(packet.message));
}

TEST_F(PgpSignatureOwnKey, SignLaysOutAVersionThreePacket) {
    const Bytes& keyId = OwnKey::Get().KeyId();
    PgpSignatureData fields(PgpSignatureVersion3, reinterpret_cast<const char*>(keyId.data()), 2048,
                            PgpSignatureBinary, PgpHashSha1);
    auto digest = DigestOf(soapWrap::SHA1, rpmtest::FromText("v3"));
    const Bytes hash = rpmtest::Hash(EVP_sha1(), rpmtest::FromText("v3"));
    PgpSignature signer(&fields);
    signer.SetDigest(0, digest.get());
    const Bytes value(256, 0x77);
    SignedPacket packet = SignPacket(signer, value);
    EXPECT_EQ(Valid, packet.result);
    ASSERT_EQ(280u, packet.bytes.size());
    ExpectRunsAt(packet.bytes, {{0, {0x89, 0x01, 0x15}}, // old format, 2-byte length 280 - 3
                                {3, {3, 5}},
                                {5, Bytes(fields.GetHashedData(), fields.GetHashedData() + 5)},
                                {5, {0}},
                                {10, keyId},
                                {18, {1, 2, hash[0], hash[1], 0x08, 0x00}},
                                {24, value}});
}

TEST_F(PgpSignatureOwnKey, SignNeverWritesPastTheBuffer) {
    const char issuer[8] = {};
    PgpSignatureData fields(PgpSignatureVersion4, issuer, 2048, PgpSignatureBinary, PgpHashSha256);
    auto digest = DigestOf(soapWrap::SHA256, rpmtest::FromText("small"));
    PgpSignature signer(&fields);
    signer.SetDigest(0, digest.get());
    Bytes value(256, 1);
    soapWrap::Binary signatureValue{value.data(), 256};
    Bytes small(100, 0);
    soapWrap::Binary packet{small.data(), 100};
    std::string message;
    EXPECT_THROW(signer.Sign(&packet, &signatureValue, message), ArgumentException);
}

} // namespace
