// The RPM signature header as a container: walking the index, the entries
// it keeps, the bounds it checks, the verdict over digests computed in the
// test, and the entry-encoding helpers of the writing side.
#include "CertificateManager.h"
#include "Digest.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "RpmSignature.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using rpmtest::Bytes;
using rpmtest::Entry;
using rpmtest::kStructure;
using rpmtest::OwnKey;

// A signature header's index and data store with the container built over it.
struct Container {
    Bytes buffer;
    HeaderStructureHeader header{};
    std::unique_ptr<RpmSignature> signature;
};

HeaderStructureHeader RecordOf(const Bytes& structure) {
    HeaderStructureHeader header;
    std::memcpy(&header.magic, structure.data(), 4);
    std::memcpy(&header.reserved, structure.data() + 4, 4);
    header.indexCount = (uint32_t(structure[8]) << 24) | (uint32_t(structure[9]) << 16) |
                        (uint32_t(structure[10]) << 8) | structure[11];
    header.dataSize = (uint32_t(structure[12]) << 24) | (uint32_t(structure[13]) << 16) |
                      (uint32_t(structure[14]) << 8) | structure[15];
    return header;
}

std::unique_ptr<Container> Prepare(const std::vector<Entry>& entries) {
    auto container = std::make_unique<Container>();
    Bytes structure = rpmtest::HeaderStructure(entries);
    container->header = RecordOf(structure);
    container->buffer.assign(structure.begin() + 16, structure.end());
    return container;
}

std::unique_ptr<Container> Build(const std::vector<Entry>& entries) {
    auto container = Prepare(entries);
    container->signature = std::make_unique<RpmSignature>(container->buffer.data(), container->header);
    return container;
}

// Expects the constructor to refuse the entries with an exception of type E and the given text.
template <class E> void ExpectRefused(const std::vector<Entry>& entries, const std::string& text) {
    auto container = Prepare(entries);
    try {
        RpmSignature signature(container->buffer.data(), container->header);
        FAIL() << "no exception, expected " << text;
    } catch (const E& error) {
        EXPECT_EQ(text, std::string(error.what()));
    }
}

Bytes Text(const std::string& text) {
    Bytes bytes = rpmtest::FromText(text);
    bytes.push_back(0);
    return bytes;
}

// The digests RpmSigner hands over, computed here directly.
void Feed(RpmSignature& signature, const Bytes& header, const Bytes& payload,
          soapWrap::HashAlgorithm algorithm) {
    const Bytes all = rpmtest::Concat(header, payload);
    auto make = [](soapWrap::HashAlgorithm type, const Bytes& data) {
        auto* digest = new Digest(type);
        digest->Update(data.data(), data.size());
        return digest;
    };
    const bool spare = algorithm != soapWrap::SHA1;
    signature.SetDigest(0, make(soapWrap::SHA1, header));
    signature.SetDigest(1, make(algorithm, header));
    signature.SetDigest(2, spare ? make(soapWrap::SHA1, header) : nullptr);
    signature.SetDigest(3, make(soapWrap::MD5, all));
    signature.SetDigest(4, make(algorithm, all));
    signature.SetDigest(5, spare ? make(soapWrap::SHA1, all) : nullptr);
}

// A verdict with the message that Verify left.
struct Outcome {
    Outcome() = default;
    Outcome(ProcessingResult v, std::string m) : verdict(v), message(std::move(m)) {}
    bool operator==(const Outcome& other) const {
        return verdict == other.verdict && message == other.message;
    }
    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
        return out << "verdict " << static_cast<int>(outcome.verdict) << ", message \"" << outcome.message
                   << '"';
    }

    ProcessingResult verdict = Valid;
    std::string message;
};

class RpmSignatureVerify : public ::testing::Test {
protected:
    void SetUp() override {
        CertificateManager::Instance()->SetPgpPublicKeyFilePath(OwnKey::Get().KeyFile());
    }
    void TearDown() override { CertificateManager::Instance()->SetPgpPublicKeyFilePath(""); }

    const rpmtest::TestKey& Key() { return OwnKey::Get().Key(); }
    rpmtest::SignatureSpec Spec(unsigned char hash = rpmtest::kPgpSha256) {
        return OwnKey::Get().Spec(4, hash);
    }
    Entry Sha1(const std::string& text) { return {rpmtest::kTagSha1, rpmtest::kTypeString, Text(text)}; }
    Entry Md5(const Bytes& md5) { return {rpmtest::kTagMd5, rpmtest::kTypeBinary, md5}; }
    Entry HeaderSignature(const Bytes& packet) {
        return {rpmtest::kTagHeaderSignature, rpmtest::kTypeBinary, packet};
    }
    Entry PayloadSignature(const Bytes& packet) {
        return {rpmtest::kTagPayloadSignature, rpmtest::kTypeBinary, packet};
    }

    // Builds a signature header of entries, gives it the digests of this
    // package's header and payload made with algorithm, and verifies it.
    Outcome VerifyBuilt(const std::vector<Entry>& entries, soapWrap::HashAlgorithm algorithm) {
        auto container = Build(entries);
        Feed(*container->signature, m_Header, m_Payload, algorithm);
        Outcome outcome;
        outcome.verdict = container->signature->Verify(outcome.message);
        return outcome;
    }

    const Bytes m_Header = rpmtest::MainHeader(40);
    const Bytes m_Payload = rpmtest::Payload(3000);
    const Bytes m_All = rpmtest::Concat(m_Header, m_Payload);
    const std::string m_Sha1 = rpmtest::Hex(rpmtest::Hash(EVP_sha1(), m_Header));
    const Bytes m_Md5 = rpmtest::Hash(EVP_md5(), m_All);
};

// ------------------------------------------------------------ the walk

TEST(RpmSignatureParse, EmptyIndex) {
    auto container = Build({});
    RpmSignature& signature = *container->signature;
    EXPECT_EQ(nullptr, signature.GetSha1HeaderHash());
    EXPECT_EQ(nullptr, signature.GetMd5Hash());
    EXPECT_EQ(nullptr, signature.GetHeaderSignature());
    EXPECT_TRUE(signature.GetPgpSignatures().empty());
    EXPECT_EQ(0u, signature.GetHeader().indexCount);
    EXPECT_EQ(reinterpret_cast<const SignatureEntry*>(container->buffer.data()), signature.GetEntries());
    testsupport::ExpectThrowWithText<NotDefinedException>([&] { signature.GetHashAlgorithm(); },
                                                          "There are no PGP signatures.");
}

TEST(RpmSignatureParse, EntriesAreConvertedInPlace) {
    Entry odd{0x0000ABCD, 0x01020307, Bytes(5, 0xEE)};
    auto container = Build({rpmtest::RegionEntry(), odd});
    const SignatureEntry* entries = container->signature->GetEntries();
    // The tag keeps its file byte order.
    const unsigned char regionTag[4] = {0, 0, 0, 62};
    EXPECT_EQ(0, std::memcmp(&entries[0].tag, regionTag, 4));
    EXPECT_EQ(7u, entries[0].type);
    EXPECT_EQ(0u, entries[0].offset);
    EXPECT_EQ(16u, entries[0].count);
    const unsigned char oddTag[4] = {0, 0, 0xAB, 0xCD};
    EXPECT_EQ(0, std::memcmp(&entries[1].tag, oddTag, 4));
    // Only the type's last byte is used.
    EXPECT_EQ(7u, entries[1].type);
    EXPECT_EQ(16u, entries[1].offset);
    EXPECT_EQ(5u, entries[1].count);
    EXPECT_EQ(2u, container->signature->GetHeader().indexCount);
    EXPECT_EQ(21u, container->signature->GetHeader().dataSize);
    const unsigned char magic[4] = {0x8E, 0xAD, 0xE8, 0x01};
    EXPECT_EQ(0, std::memcmp(&container->signature->GetHeader().magic, magic, 4));
}

TEST(RpmSignatureParse, HashEntriesPointIntoTheDataStore) {
    const Bytes md5(16, 0x5A);
    auto container =
        Build({rpmtest::RegionEntry(),
               {rpmtest::kTagSha1, rpmtest::kTypeString, Text("0123456789abcdef0123456789abcdef01234567")},
               {rpmtest::kTagMd5, rpmtest::kTypeBinary, md5}});
    const unsigned char* store = container->buffer.data() + 3 * 16;
    EXPECT_EQ(reinterpret_cast<const char*>(store + 16), container->signature->GetSha1HeaderHash());
    EXPECT_STREQ("0123456789abcdef0123456789abcdef01234567", container->signature->GetSha1HeaderHash());
    EXPECT_EQ(store + 16 + 41, container->signature->GetMd5Hash());
}

TEST(RpmSignatureParse, OtherTagsAreSkipped) {
    // DSA (267) and GPG (1005) signatures, sizes, and anything else.
    auto container = Build({rpmtest::RegionEntry(),
                            {267, rpmtest::kTypeBinary, Bytes(20, 0xC2)},
                            {1005, rpmtest::kTypeBinary, Bytes(30, 0xFF)},
                            {1000, rpmtest::kTypeInt32, Bytes(4, 1)},
                            {4242, 99, Bytes(3, 0)}});
    EXPECT_EQ(nullptr, container->signature->GetHeaderSignature());
    EXPECT_TRUE(container->signature->GetPgpSignatures().empty());
    EXPECT_EQ(nullptr, container->signature->GetSha1HeaderHash());
}

// An entry holding a signature over "d" by the test key, of the given
// version and hash algorithm.
Entry SignedEntry(uint32_t tag, int version, unsigned char hash) {
    return {tag, rpmtest::kTypeBinary,
            OwnKey::Get().Key().Sign(OwnKey::Get().Spec(version, hash), rpmtest::FromText("d"))};
}

TEST(RpmSignatureParse, TwoPayloadSignaturesInIndexOrder) {
    auto container =
        Build({rpmtest::RegionEntry(), SignedEntry(rpmtest::kTagPayloadSignature, 4, rpmtest::kPgpSha1),
               SignedEntry(rpmtest::kTagHeaderSignature, 4, rpmtest::kPgpSha384),
               SignedEntry(rpmtest::kTagPayloadSignature, 3, rpmtest::kPgpSha512)});
    const auto& payload = container->signature->GetPgpSignatures();
    ASSERT_EQ(2u, payload.size());
    EXPECT_EQ(soapWrap::SHA1, payload[0]->GetHashAlgorithm());
    EXPECT_EQ(soapWrap::SHA512, payload[1]->GetHashAlgorithm());
    ASSERT_NE(nullptr, container->signature->GetHeaderSignature());
    EXPECT_EQ(soapWrap::SHA384, container->signature->GetHashAlgorithm());
}

TEST(RpmSignatureParse, LaterHeaderSignatureReplacesTheEarlierOne) {
    auto container =
        Build({rpmtest::RegionEntry(), SignedEntry(rpmtest::kTagHeaderSignature, 4, rpmtest::kPgpSha1),
               SignedEntry(rpmtest::kTagHeaderSignature, 4, rpmtest::kPgpSha224)});
    EXPECT_EQ(soapWrap::SHA224, container->signature->GetHashAlgorithm());
}

TEST(RpmSignatureParse, AtMost255Entries) {
    std::vector<Entry> entries(255, Entry{1000, rpmtest::kTypeInt32, Bytes(4, 0)});
    entries[0] = rpmtest::RegionEntry();
    entries[254] = {rpmtest::kTagMd5, rpmtest::kTypeBinary, Bytes(16, 0x77)};
    auto container = Build(entries);
    // The last entry is reached.
    ASSERT_NE(nullptr, container->signature->GetMd5Hash());
    EXPECT_EQ(0x77, container->signature->GetMd5Hash()[0]);

    entries.push_back(Entry{1000, rpmtest::kTypeInt32, Bytes(4, 0)});
    ExpectRefused<InvalidFileStructureException>(
        entries,
        std::string(kStructure) +
            "Signature section: the signature header has 256 index entries; at most 255 are supported.");
    entries.resize(1000, Entry{1000, rpmtest::kTypeInt32, Bytes(4, 0)});
    ExpectRefused<InvalidFileStructureException>(
        entries,
        std::string(kStructure) +
            "Signature section: the signature header has 1000 index entries; at most 255 are supported.");
}

TEST(RpmSignatureParse, SignatureBlobsMustLieInsideTheDataStore) {
    const Bytes packet = OwnKey::Get().Key().Sign(OwnKey::Get().Spec(4, rpmtest::kPgpSha256), {1});
    for (uint32_t tag : {rpmtest::kTagHeaderSignature, rpmtest::kTagPayloadSignature}) {
        const std::string text = std::string(kStructure) +
                                 "Signature section: the OpenPGP signature of tag " + std::to_string(tag) +
                                 " lies outside the data store.";
        Entry tooLong{tag, rpmtest::kTypeBinary, packet};
        tooLong.count = static_cast<int64_t>(packet.size() + 1);
        ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), tooLong}, text);
        Entry beyond{tag, rpmtest::kTypeBinary, packet};
        beyond.offset = 0x7FFFFFFF;
        ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), beyond}, text);
        Entry wrapping{tag, rpmtest::kTypeBinary, packet};
        wrapping.offset = 16;
        wrapping.count = 0xFFFFFFFF;
        ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), wrapping}, text);
        Entry empty{tag, rpmtest::kTypeBinary, {}};
        ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), empty}, text);
    }
}

TEST(RpmSignatureParse, Sha1TextMustEndInsideTheDataStore) {
    const std::string text = std::string(kStructure) +
                             "Signature section: the SHA1 header hash (tag 269) is not a NUL-terminated text "
                             "inside the data store.";
    // No NUL before the end of the store.
    ExpectRefused<InvalidFileStructureException>(
        {rpmtest::RegionEntry(), {rpmtest::kTagSha1, rpmtest::kTypeString, rpmtest::FromText("abcdef")}},
        text);
    Entry atEnd{rpmtest::kTagSha1, rpmtest::kTypeString, {}};
    atEnd.offset = 16;
    ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), atEnd}, text);
    Entry beyond{rpmtest::kTagSha1, rpmtest::kTypeString, Text("abc")};
    beyond.offset = 1000;
    ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), beyond}, text);
    // The empty text is a text.
    auto container = Build({rpmtest::RegionEntry(), {rpmtest::kTagSha1, rpmtest::kTypeString, Text("")}});
    EXPECT_STREQ("", container->signature->GetSha1HeaderHash());
}

TEST(RpmSignatureParse, Md5NeedsSixteenBytes) {
    const std::string text =
        std::string(kStructure) + "Signature section: the MD5 hash (tag 1004) lies outside the data store.";
    ExpectRefused<InvalidFileStructureException>(
        {rpmtest::RegionEntry(), {rpmtest::kTagMd5, rpmtest::kTypeBinary, Bytes(15, 1)}}, text);
    Entry beyond{rpmtest::kTagMd5, rpmtest::kTypeBinary, Bytes(16, 1)};
    beyond.offset = 17;
    ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), beyond}, text);
    Entry huge{rpmtest::kTagMd5, rpmtest::kTypeBinary, Bytes(16, 1)};
    huge.offset = 0xFFFFFFF8u;
    ExpectRefused<InvalidFileStructureException>({rpmtest::RegionEntry(), huge}, text);
}

TEST(RpmSignatureParse, BlobThatIsNotASignature) {
    // A public-key packet where a signature should be.
    const Bytes key = OwnKey::Get().Key().KeyFile(OwnKey::Get().KeyId());
    const Bytes publicKeyOnly(key.begin(), key.begin() + 3 + ((key[1] << 8) | key[2]));
    ExpectRefused<DataFormatException>(
        {rpmtest::RegionEntry(), {rpmtest::kTagPayloadSignature, rpmtest::kTypeBinary, publicKeyOnly}},
        "Invalid format of data: Signature section: the entry of tag 1002 holds no OpenPGP signature packet");
    // A new-format packet.
    Bytes packet = OwnKey::Get().Key().Sign(OwnKey::Get().Spec(4, rpmtest::kPgpSha256), {1});
    packet[0] = 0xC2;
    ExpectRefused<DataFormatException>(
        {rpmtest::RegionEntry(), {rpmtest::kTagHeaderSignature, rpmtest::kTypeBinary, packet}},
        "Invalid format of data: New OpenPGP packet format is not supported");
}

TEST(RpmSignatureParse, FailureAfterSignaturesWereMadeReleasesThem) {
    // The sanitizer build reports a leak if the signatures made before the
    // failing entry stayed behind.
    const Bytes packet = OwnKey::Get().Key().Sign(OwnKey::Get().Spec(4, rpmtest::kPgpSha256), {1});
    ExpectRefused<InvalidFileStructureException>(
        {rpmtest::RegionEntry(),
         {rpmtest::kTagHeaderSignature, rpmtest::kTypeBinary, packet},
         {rpmtest::kTagPayloadSignature, rpmtest::kTypeBinary, packet},
         {rpmtest::kTagMd5, rpmtest::kTypeBinary, Bytes(3, 1)}},
        std::string(kStructure) + "Signature section: the MD5 hash (tag 1004) lies outside the data store.");
}

// ----------------------------------------------------------- the verdict

TEST_F(RpmSignatureVerify, SignedPackageIsValid) {
    for (unsigned char hash : {rpmtest::kPgpSha1, rpmtest::kPgpSha256, rpmtest::kPgpSha512}) {
        auto container = Build({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(hash), m_Header)),
                                Sha1(m_Sha1), PayloadSignature(Key().Sign(Spec(hash), m_All)), Md5(m_Md5)});
        Feed(*container->signature, m_Header, m_Payload, container->signature->GetHashAlgorithm());
        std::string message;
        EXPECT_EQ(Valid, container->signature->Verify(message)) << int(hash);
        EXPECT_EQ("", message);
    }
}

TEST_F(RpmSignatureVerify, UpperCaseSha1TextFails) {
    std::string upper = m_Sha1;
    for (char& c : upper) {
        c = static_cast<char>(toupper(c));
    }
    ASSERT_NE(upper, m_Sha1);
    EXPECT_EQ(Outcome(InvalidHash, "Invalid value of SHA1 header hash"),
              VerifyBuilt({rpmtest::RegionEntry(), Sha1(upper), Md5(m_Md5)}, soapWrap::SHA1));
}

TEST_F(RpmSignatureVerify, Sha1CheckLeavesTheStoredDigestOpen) {
    auto container = Build({rpmtest::RegionEntry(), Sha1(m_Sha1), Md5(m_Md5)});
    Feed(*container->signature, m_Header, m_Payload, soapWrap::SHA1);
    std::string message;
    EXPECT_EQ(Unsigned, container->signature->Verify(message));
    // Digest 0 was checked through a copy: it still takes data.
    DigestBase* digest = container->signature->GetDigest(0);
    digest->Update("more", 4);
    EXPECT_EQ(rpmtest::Hash(EVP_sha1(), rpmtest::Concat(m_Header, rpmtest::FromText("more"))),
              Bytes(digest->GetValue(), digest->GetValue() + 20));
}

TEST_F(RpmSignatureVerify, MissingOrWrongHashesAreInvalidHash) {
    const Outcome sha1Invalid(InvalidHash, "Invalid value of SHA1 header hash");
    EXPECT_EQ(sha1Invalid, VerifyBuilt({rpmtest::RegionEntry(), Md5(m_Md5)}, soapWrap::SHA1));
    EXPECT_EQ(sha1Invalid,
              VerifyBuilt({rpmtest::RegionEntry(), Sha1(m_Sha1 + "0"), Md5(m_Md5)}, soapWrap::SHA1));

    const Outcome md5Invalid(InvalidHash, "Invalid value of MD5 hash");
    EXPECT_EQ(md5Invalid, VerifyBuilt({rpmtest::RegionEntry(), Sha1(m_Sha1)}, soapWrap::SHA1));
    Bytes wrongMd5 = m_Md5;
    wrongMd5[15] ^= 1;
    EXPECT_EQ(md5Invalid, VerifyBuilt({rpmtest::RegionEntry(), Sha1(m_Sha1), Md5(wrongMd5)}, soapWrap::SHA1));
}

TEST_F(RpmSignatureVerify, WithoutHeaderSignatureOnlyTheDigestsCount) {
    auto container = Build({rpmtest::RegionEntry(), Sha1(m_Sha1), Md5(m_Md5),
                            PayloadSignature(Key().Sign(Spec(), rpmtest::FromText("whatever")))});
    Feed(*container->signature, m_Header, m_Payload, soapWrap::SHA1);
    std::string message = "untouched";
    EXPECT_EQ(Unsigned, container->signature->Verify(message));
    EXPECT_EQ("untouched", message);
}

TEST_F(RpmSignatureVerify, HeaderSignatureWithoutPayloadSignature) {
    EXPECT_EQ(Outcome(NoPayloadSignature,
                      "The package does not contain PGP signature over its header and payload."),
              VerifyBuilt({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)),
                           Sha1(m_Sha1), Md5(m_Md5)},
                          soapWrap::SHA256));
}

TEST_F(RpmSignatureVerify, InvalidHeaderSignature) {
    EXPECT_EQ(
        Outcome(InvalidSignature, "RSA signature is not valid.  Digest does not correspond to the signature"),
        VerifyBuilt({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_All)), Sha1(m_Sha1),
                     PayloadSignature(Key().Sign(Spec(), m_All)), Md5(m_Md5)},
                    soapWrap::SHA256));
}

TEST_F(RpmSignatureVerify, OnlyTheSecondPayloadSignatureIsValid) {
    // The failed first check left its text.
    EXPECT_EQ(Outcome(Valid, "RSA signature is not valid.  Digest does not correspond to the signature"),
              VerifyBuilt({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)),
                           Sha1(m_Sha1), PayloadSignature(Key().Sign(Spec(), m_Header)),
                           PayloadSignature(Key().Sign(Spec(), m_All)), Md5(m_Md5)},
                          soapWrap::SHA256));
}

TEST_F(RpmSignatureVerify, OnlyTheFirstPayloadSignatureIsValid) {
    rpmtest::SignatureSpec stranger = Spec();
    stranger.issuer[0] ^= 0xFF;
    // Every payload signature is checked, even after a valid one.
    EXPECT_EQ(
        Outcome(Valid, "RSA signature is not valid.  The file was signed with a different PGP certificate"),
        VerifyBuilt({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)), Sha1(m_Sha1),
                     PayloadSignature(Key().Sign(Spec(), m_All)),
                     PayloadSignature(Key().Sign(stranger, m_All)), Md5(m_Md5)},
                    soapWrap::SHA256));
}

TEST_F(RpmSignatureVerify, BothPayloadSignaturesInvalid) {
    rpmtest::SignatureSpec stranger = Spec();
    stranger.issuer[0] ^= 0xFF;
    EXPECT_EQ(Outcome(InvalidSignature,
                      "PGP signature is not valid: RSA signature is not valid. RSA signature is "
                      "not valid.  Digest does not correspond to the signature The file was "
                      "signed with a different PGP certificate"),
              VerifyBuilt({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)),
                           Sha1(m_Sha1), PayloadSignature(Key().Sign(Spec(), m_Header)),
                           PayloadSignature(Key().Sign(stranger, m_All)), Md5(m_Md5)},
                          soapWrap::SHA256));
}

TEST_F(RpmSignatureVerify, FailedRsaCheckLeavesVerifyAtOnce) {
    const Bytes hash = rpmtest::Hash(EVP_sha256(), rpmtest::Concat(m_Header, rpmtest::Trailer(Spec())));
    const Bytes forged = rpmtest::SignaturePacket(Spec(), hash.data(), Bytes(256, 0x42));
    auto container = Build({rpmtest::RegionEntry(), HeaderSignature(forged), Sha1(m_Sha1),
                            PayloadSignature(Key().Sign(Spec(), m_All)), Md5(m_Md5)});
    Feed(*container->signature, m_Header, m_Payload, soapWrap::SHA256);
    std::string message;
    testsupport::ExpectThrowWithText<std::logic_error>([&] { container->signature->Verify(message); },
                                                       "basic_string::_S_construct NULL not valid");
    EXPECT_EQ("", message);
}

TEST_F(RpmSignatureVerify, PayloadSignatureInAnotherAlgorithmCannotVerify) {
    // Digest 4 is made in the header signature's algorithm.
    const rpmtest::SignatureSpec sha1 = Spec(rpmtest::kPgpSha1);
    const Bytes trailed = rpmtest::Hash(EVP_sha256(), rpmtest::Concat(m_All, rpmtest::Trailer(sha1)));
    const Bytes packet = Key().Sign(sha1, m_All);
    const Bytes left = rpmtest::Hash(EVP_sha1(), rpmtest::Concat(m_All, rpmtest::Trailer(sha1)));
    ASSERT_TRUE(left[0] != trailed[0] || left[1] != trailed[1]);
    auto container = Build({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)),
                            Sha1(m_Sha1), PayloadSignature(packet), Md5(m_Md5)});
    Feed(*container->signature, m_Header, m_Payload, soapWrap::SHA256);
    std::string message;
    EXPECT_EQ(InvalidSignature, container->signature->Verify(message));
    EXPECT_EQ("PGP signature is not valid: RSA signature is not valid.  Digest does not correspond to the "
              "signature",
              message);
}

TEST_F(RpmSignatureVerify, VerifyingTwiceGivesTheSameVerdict) {
    auto container = Build({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)),
                            Sha1(m_Sha1), PayloadSignature(Key().Sign(Spec(), m_All)), Md5(m_Md5)});
    Feed(*container->signature, m_Header, m_Payload, soapWrap::SHA256);
    std::string message;
    EXPECT_EQ(Valid, container->signature->Verify(message));
    EXPECT_EQ(Valid, container->signature->Verify(message));
    // The digests stay lent to the PGP signatures, not handed to them.
    EXPECT_EQ(container->signature->GetDigest(1), container->signature->GetHeaderSignature()->GetDigest(0));
    EXPECT_EQ(container->signature->GetDigest(4), container->signature->GetPgpSignatures()[0]->GetDigest(0));
}

TEST_F(RpmSignatureVerify, VerifyPgpSignaturePrefixesOnlyFailures) {
    auto container = Build({rpmtest::RegionEntry(), PayloadSignature(Key().Sign(Spec(), m_All))});
    PgpSignature* signature = container->signature->GetPgpSignatures()[0];
    Digest good(soapWrap::SHA256);
    good.Update(m_All.data(), m_All.size());
    ProcessingResult result = Unsigned;
    std::string message = "m";
    container->signature->VerifyPgpSignature(signature, &good, result, message);
    EXPECT_EQ(Valid, result);
    EXPECT_EQ("m", message);
    EXPECT_EQ(&good, signature->GetDigest(0));

    auto other = Build({rpmtest::RegionEntry(), PayloadSignature(Key().Sign(Spec(), m_All))});
    Digest bad(soapWrap::SHA256);
    bad.Update(m_Header.data(), m_Header.size());
    other->signature->VerifyPgpSignature(other->signature->GetPgpSignatures()[0], &bad, result, message);
    EXPECT_EQ(InvalidSignature, result);
    EXPECT_EQ("RSA signature is not valid. m Digest does not correspond to the signature", message);
}

TEST_F(RpmSignatureVerify, SignAndCleanUp) {
    auto container = Build({rpmtest::RegionEntry(), HeaderSignature(Key().Sign(Spec(), m_Header)),
                            PayloadSignature(Key().Sign(Spec(), m_All))});
    std::string message;
    EXPECT_EQ(Valid, container->signature->Sign(nullptr, nullptr, message));
    EXPECT_EQ(1u, container->signature->GetPublicKeyAlgorithm());
    container->signature->CreatePgpSignatures();
    EXPECT_NE(nullptr, container->signature->GetHeaderSignature());
    container->signature->CleanUpPgpSignatures();
    EXPECT_EQ(nullptr, container->signature->GetHeaderSignature());
    EXPECT_TRUE(container->signature->GetPgpSignatures().empty());
    container->signature->CleanUpPgpSignatures();
    EXPECT_THROW(container->signature->GetHashAlgorithm(), NotDefinedException);
}

// --------------------------------------------------- entry-encoding helpers

TEST(RpmSignatureHelpers, StorageSizes) {
    unsigned char text[] = "abc";
    EXPECT_EQ(4u, RpmSignature::GetEntryStorageSize(RPM_INT32_TYPE, text, 10));
    EXPECT_EQ(8u, RpmSignature::GetEntryStorageSize(RPM_INT64_TYPE, text, 10));
    EXPECT_EQ(4u, RpmSignature::GetEntryStorageSize(RPM_STRING_TYPE, text, 1));
    EXPECT_EQ(10u, RpmSignature::GetEntryStorageSize(RPM_BIN_TYPE, text, 10));
    for (unsigned int type : {0u, 1u, 2u, 3u, 8u, 9u, 10u}) {
        try {
            RpmSignature::GetEntryStorageSize(static_cast<RpmDataType>(type), text, 1);
            FAIL() << "no exception for " << type;
        } catch (const NotImplementedException& error) {
            EXPECT_EQ("Not implemented: GetEntryStorageSize() is not implemented for data type = " +
                          std::to_string(type),
                      std::string(error.what()));
        }
    }
}

TEST(RpmSignatureHelpers, BoundaryAlignment) {
    auto align = [](unsigned int type, unsigned int offset) {
        RpmSignature::BoundaryAlign(static_cast<RpmDataType>(type), offset);
        return offset;
    };
    EXPECT_EQ(6u, align(3, 5));
    EXPECT_EQ(6u, align(3, 6));
    EXPECT_EQ(8u, align(4, 5));
    EXPECT_EQ(8u, align(4, 8));
    EXPECT_EQ(16u, align(5, 9));
    EXPECT_EQ(5u, align(6, 5));
    EXPECT_EQ(5u, align(7, 5));
    EXPECT_EQ(5u, align(1, 5));
    EXPECT_EQ(5u, align(2, 5));
}

TEST(RpmSignatureHelpers, CreateStorage) {
    unsigned char text[] = "abc";
    unsigned char number[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    // Each type with the size given in, the size it sets and the bytes it
    // stores at the start of an area filled with fill; the rest stays as it was.
    struct Case {
        RpmDataType type;
        unsigned char* source;
        unsigned int sizeIn;
        unsigned char fill;
        unsigned int size;
        Bytes stored;
    };
    for (const Case& c : {Case{RPM_STRING_TYPE, text, 99, 0xEE, 4, {'a', 'b', 'c', 0}},
                          Case{RPM_INT32_TYPE, number, 0, 0, 4, {1, 2, 3, 4}},
                          Case{RPM_INT64_TYPE, number, 0, 0, 8, {1, 2, 3, 4, 5, 6, 7, 8}},
                          Case{RPM_BIN_TYPE, number, 3, 0, 3, {1, 2, 3}}}) {
        SCOPED_TRACE("type " + std::to_string(c.type));
        Bytes destination(16, c.fill);
        unsigned int size = c.sizeIn;
        RpmSignature::CreateStorage(c.type, destination.data(), c.source, size);
        EXPECT_EQ(c.size, size);
        Bytes expected = c.stored;
        expected.resize(destination.size(), c.fill);
        EXPECT_EQ(expected, destination);
    }
}

TEST(RpmSignatureHelpers, CreateHeaderEntry) {
    SignatureEntry entry;
    // The tag is stored as given: here already in file byte order.
    uint32_t tag;
    const unsigned char tagBytes[4] = {0, 0, 0x03, 0xEA};
    std::memcpy(&tag, tagBytes, 4);
    RpmSignature::CreateHeaderEntry(&entry, tag, 7, 0x010203, 0x0A0B);
    unsigned char bytes[16];
    std::memcpy(bytes, &entry, 16);
    const unsigned char expected[16] = {0, 0, 0x03, 0xEA, 0, 0, 0, 7, 0, 1, 2, 3, 0, 0, 0x0A, 0x0B};
    EXPECT_EQ(0, std::memcmp(expected, bytes, 16));
}

} // namespace
