#include "Digest.h"
#include "DigestBase.h"
#include "Exceptions.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

using soapWrap::HashAlgorithm;

namespace {

std::string HexOf(const unsigned char* bytes, unsigned int length) {
    return testsupport::ToHex(bytes, length);
}

std::string DigestHex(HashAlgorithm type, const std::string& data) {
    Digest digest(type);
    digest.Update(data.data(), data.size());
    return HexOf(digest.GetValue(), digest.GetLength());
}

// A digest base of any algorithm, to reach the non-virtual members without
// going through Digest's constructor.
class PlainDigestBase : public DigestBase {
public:
    explicit PlainDigestBase(HashAlgorithm type) : DigestBase(type) {}
    DigestBase* Copy() const override { return new PlainDigestBase(GetType()); }
    void Update(const void*, unsigned long) override {}
    unsigned int GetLength() const override { return 0; }
    bool GetValue(unsigned char*) override { return true; }
    unsigned char* GetValue() override { return nullptr; }
};

template <typename Call> std::string ExceptionText(Call call) {
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "(no exception)";
}

const HashAlgorithm kDigestAlgorithms[] = {soapWrap::SHA1,   soapWrap::MD5,    soapWrap::SHA224,
                                           soapWrap::SHA256, soapWrap::SHA384, soapWrap::SHA512};

const HashAlgorithm kPeHeaderHash = soapWrap::PEHeaderHash;
const HashAlgorithm kBeyondTable = static_cast<HashAlgorithm>(7);

} // namespace

TEST(Digest, EnumerationValues) {
    EXPECT_EQ(soapWrap::SHA1, 0);
    EXPECT_EQ(soapWrap::MD5, 1);
    EXPECT_EQ(soapWrap::SHA224, 2);
    EXPECT_EQ(soapWrap::SHA256, 3);
    EXPECT_EQ(soapWrap::SHA384, 4);
    EXPECT_EQ(soapWrap::SHA512, 5);
    EXPECT_EQ(soapWrap::PEHeaderHash, 6);
    EXPECT_EQ(sizeof(HashAlgorithm), 4u);
}

// The published digests of "abc" and of the empty input, by algorithm.
TEST(Digest, PublishedVectorsOfAbcAndOfEmptyInput) {
    const struct {
        HashAlgorithm algorithm;
        const char* abc;
        const char* empty;
    } vectors[] = {
        {soapWrap::MD5, "900150983cd24fb0d6963f7d28e17f72", "d41d8cd98f00b204e9800998ecf8427e"},
        {soapWrap::SHA1, "a9993e364706816aba3e25717850c26c9cd0d89d",
         "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {soapWrap::SHA224, "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7",
         "d14a028c2a3a2bc9476102bb288234c415a2b01f828ea62ac5b3e42f"},
        {soapWrap::SHA256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
         "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {soapWrap::SHA384,
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
         "8086072ba1e7cc2358baeca134c825a7",
         "38b060a751ac96384cd9327eb1b1e36a21fdb71114be07434c0cc7bf63f6e1da"
         "274edebfe76f65fbd51ad2f14898b95b"},
        {soapWrap::SHA512,
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
         "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f",
         "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
         "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e"},
    };
    for (const auto& vector : vectors) {
        EXPECT_EQ(DigestHex(vector.algorithm, "abc"), vector.abc) << vector.algorithm;
        EXPECT_EQ(DigestHex(vector.algorithm, ""), vector.empty) << vector.algorithm;
    }
}

TEST(Digest, NoUpdateAtAllIsTheEmptyDigest) {
    Digest digest(soapWrap::SHA256);
    EXPECT_EQ(HexOf(digest.GetValue(), 32),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Digest, StreamedUpdatesMatchTheOpensslCommand) {
    // One MiB of random data, hashed in uneven pieces and by the openssl tool.
    std::vector<unsigned char> data(1 << 20);
    std::mt19937 random(42);
    for (unsigned char& byte : data) {
        byte = static_cast<unsigned char>(random());
    }
    testsupport::TempDir dir;
    testsupport::WriteBytes(dir.File("data.bin"), data);

    const char* commands[] = {"sha1", "md5", "sha224", "sha256", "sha384", "sha512"};
    for (unsigned int i = 0; i < 6; ++i) {
        Digest digest(kDigestAlgorithms[i]);
        size_t offset = 0;
        size_t piece = 1;
        while (offset < data.size()) {
            size_t count = std::min(piece, data.size() - offset);
            digest.Update(data.data() + offset, count);
            offset += count;
            piece = piece * 3 + 7;
        }
        digest.Update(data.data(), 0);
        auto expected =
            testsupport::Run(std::string("openssl dgst -") + commands[i] + " -r " + dir.File("data.bin"));
        ASSERT_EQ(expected.exitCode, 0);
        EXPECT_EQ(HexOf(digest.GetValue(), digest.GetLength()),
                  expected.output.substr(0, digest.GetLength() * 2))
            << commands[i];
    }
}

TEST(Digest, TableOfLengthsNidsDigestsNamesAndIdentifiers) {
    const unsigned int lengths[] = {20, 16, 28, 32, 48, 64};
    const int nids[] = {64, 4, 675, 672, 673, 674};
    const char* names[] = {"SHA1", "MD5", "SHA224", "SHA256", "SHA384", "SHA512"};
    const char* oids[] = {"1.3.14.3.2.26",          "1.2.840.113549.2.5",     "2.16.840.1.101.3.4.2.4",
                          "2.16.840.1.101.3.4.2.1", "2.16.840.1.101.3.4.2.2", "2.16.840.1.101.3.4.2.3"};
    for (unsigned int i = 0; i < 6; ++i) {
        HashAlgorithm type = kDigestAlgorithms[i];
        EXPECT_EQ(Digest::GetLength(type), lengths[i]);
        EXPECT_EQ(Digest::GetNID(type), nids[i]);
        ASSERT_NE(Digest::GetMd(type), nullptr);
        EXPECT_EQ(EVP_MD_get_type(Digest::GetMd(type)), nids[i]);
        EXPECT_EQ(static_cast<unsigned int>(EVP_MD_get_size(Digest::GetMd(type))), lengths[i]);

        Digest digest(type);
        EXPECT_EQ(digest.GetType(), type);
        EXPECT_EQ(digest.GetLength(), lengths[i]);
        EXPECT_EQ(digest.GetTypeName(), names[i]);
        EXPECT_STREQ(digest.GetAlgorithmIdentifier(), oids[i]);
        // OpenSSL agrees on the dotted form.
        char text[64];
        OBJ_obj2txt(text, sizeof(text), OBJ_nid2obj(nids[i]), 1);
        EXPECT_STREQ(text, oids[i]);
    }
}

TEST(Digest, ObjectIdentifierConstantsAreTheDerContentOfEachIdentifier) {
    const unsigned char* constants[] = {
        ASN_OBJECT_IDENTIFIER_BYTES_SHA1,   ASN_OBJECT_IDENTIFIER_BYTES_MD5,
        ASN_OBJECT_IDENTIFIER_BYTES_SHA224, ASN_OBJECT_IDENTIFIER_BYTES_SHA256,
        ASN_OBJECT_IDENTIFIER_BYTES_SHA384, ASN_OBJECT_IDENTIFIER_BYTES_SHA512};
    const size_t sizes[] = {
        sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA1),   sizeof(ASN_OBJECT_IDENTIFIER_BYTES_MD5),
        sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA224), sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA256),
        sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA384), sizeof(ASN_OBJECT_IDENTIFIER_BYTES_SHA512)};
    const size_t expectedSizes[] = {5, 8, 9, 9, 9, 9};
    EXPECT_EQ(testsupport::ToHex(ASN_OBJECT_IDENTIFIER_BYTES_SHA1, 5), "2b0e03021a");
    EXPECT_EQ(testsupport::ToHex(ASN_OBJECT_IDENTIFIER_BYTES_MD5, 8), "2a864886f70d0205");
    EXPECT_EQ(testsupport::ToHex(ASN_OBJECT_IDENTIFIER_BYTES_SHA256, 9), "608648016503040201");
    EXPECT_EQ(testsupport::ToHex(ASN_OBJECT_IDENTIFIER_BYTES_SHA384, 9), "608648016503040202");
    EXPECT_EQ(testsupport::ToHex(ASN_OBJECT_IDENTIFIER_BYTES_SHA512, 9), "608648016503040203");
    EXPECT_EQ(testsupport::ToHex(ASN_OBJECT_IDENTIFIER_BYTES_SHA224, 9), "608648016503040204");
    for (unsigned int i = 0; i < 6; ++i) {
        ASSERT_EQ(sizes[i], expectedSizes[i]);
        // Compare with OpenSSL's encoding of the same object.
        const ASN1_OBJECT* object = OBJ_nid2obj(Digest::GetNID(kDigestAlgorithms[i]));
        ASSERT_EQ(static_cast<size_t>(OBJ_length(object)), sizes[i]);
        EXPECT_EQ(0, std::memcmp(OBJ_get0_data(object), constants[i], sizes[i]));

        soapWrap::Binary oid{const_cast<unsigned char*>(constants[i]), static_cast<uint32_t>(sizes[i])};
        EXPECT_EQ(Digest::GetTypeByOid(&oid), kDigestAlgorithms[i]);
    }
}

namespace {

const std::string kUndefinedDigest = "Digest calculation error: Undefined type of digest";

// Digest's constructor and its static lookups refuse a type outside its table.
void ExpectOutsideTheTable(HashAlgorithm type) {
    SCOPED_TRACE("type " + std::to_string(static_cast<int>(type)));
    EXPECT_EQ(ExceptionText([&] { Digest digest(type); }), kUndefinedDigest);
    EXPECT_THROW(Digest digest(type), DigestException);
    EXPECT_EQ(ExceptionText([&] { Digest::GetMd(type); }), kUndefinedDigest);
    EXPECT_EQ(ExceptionText([&] { Digest::GetLength(type); }), kUndefinedDigest);
    EXPECT_THROW(Digest::GetLength(type), DigestException);
    EXPECT_EQ(
        ExceptionText([&] { Digest::GetNID(type); }),
        "File operation error: File format is not supported: The signature is built on a digest calculated "
        "with not supported hash algorithm");
    EXPECT_THROW(Digest::GetNID(type), NotSupportedFileFormatException);
}

} // namespace

TEST(Digest, PeHeaderHashExistsOnlyAsAName) {
    ExpectOutsideTheTable(kPeHeaderHash);

    PlainDigestBase base(kPeHeaderHash);
    EXPECT_EQ(base.GetType(), kPeHeaderHash);
    EXPECT_EQ(base.GetTypeName(), "PE Header Hash");
    EXPECT_EQ(ExceptionText([&] { base.GetAlgorithmIdentifier(); }),
              "Error during processing PKCS7 structure: unknown hash algorithm");
    EXPECT_THROW(base.GetAlgorithmIdentifier(), Pkcs7InnerException);
}

TEST(Digest, ValuesBeyondTheTableAreRejected) {
    ExpectOutsideTheTable(kBeyondTable);
    PlainDigestBase base(kBeyondTable);
    EXPECT_EQ(ExceptionText([&] { base.GetTypeName(); }), kUndefinedDigest);
    EXPECT_EQ(ExceptionText([&] { base.GetAlgorithmIdentifier(); }),
              "Error during processing PKCS7 structure: unknown hash algorithm");
    // Negative values are as far outside the table as large ones.
    ExpectOutsideTheTable(static_cast<HashAlgorithm>(-1));
    PlainDigestBase negative(static_cast<HashAlgorithm>(-1));
    EXPECT_EQ(ExceptionText([&] { negative.GetTypeName(); }), kUndefinedDigest);
}

TEST(Digest, TypeByNidAcceptsDigestAndRsaSignatureNids) {
    // Each algorithm with the NID of its digest and of its RSA signature.
    struct Case {
        HashAlgorithm type;
        unsigned int digestNid;
        unsigned int signatureNid;
    };
    for (const Case& c : {Case{soapWrap::SHA1, 64, 65}, Case{soapWrap::MD5, 4, 8},
                          Case{soapWrap::SHA256, 668, 672}, Case{soapWrap::SHA384, 669, 673},
                          Case{soapWrap::SHA512, 670, 674}, Case{soapWrap::SHA224, 671, 675}}) {
        EXPECT_EQ(Digest::GetTypeByNid(c.digestNid), c.type);
        EXPECT_EQ(Digest::GetTypeByNid(c.signatureNid), c.type);
    }
}

TEST(Digest, TypeByNidRejectsOtherNids) {
    const std::string text = "File operation error: File format is not supported: Unknown object Numerical "
                             "Identifier (NID) for hash algorithm";
    for (unsigned int nid :
         {3u /* MD2 */, 0u, 6u /* rsaEncryption */, 117u /* ripemd160 */, 676u, 0xFFFFFFFFu}) {
        EXPECT_EQ(ExceptionText([nid] { Digest::GetTypeByNid(nid); }), text) << nid;
    }
    EXPECT_THROW(Digest::GetTypeByNid(3), NotSupportedFileFormatException);
}

TEST(Digest, TypeByOidMatchesLengthFirst) {
    const std::string text =
        "Error during processing PKCS7 structure: Unknown object identifier for hash algorithm";
    // A 9-byte identifier of the same family but ending in 05 (SHA-512/224) is unknown.
    unsigned char nineEndingIn05[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x05};
    soapWrap::Binary unknownNine{nineEndingIn05, 9};
    EXPECT_EQ(ExceptionText([&] { Digest::GetTypeByOid(&unknownNine); }), text);
    EXPECT_THROW(Digest::GetTypeByOid(&unknownNine), Pkcs7InnerException);

    // The SHA1 bytes followed by one more byte: the length decides, so no match.
    unsigned char sixBytes[] = {0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x00};
    soapWrap::Binary six{sixBytes, 6};
    EXPECT_EQ(ExceptionText([&] { Digest::GetTypeByOid(&six); }), text);

    // The first five bytes of that buffer alone are SHA1.
    soapWrap::Binary five{sixBytes, 5};
    EXPECT_EQ(Digest::GetTypeByOid(&five), soapWrap::SHA1);

    // The MD5 bytes cut to 5 bytes are compared with SHA1 only.
    unsigned char md5Prefix[] = {0x2A, 0x86, 0x48, 0x86, 0xF7};
    soapWrap::Binary shortMd5{md5Prefix, 5};
    EXPECT_EQ(ExceptionText([&] { Digest::GetTypeByOid(&shortMd5); }), text);

    soapWrap::Binary empty{nullptr, 0};
    EXPECT_EQ(ExceptionText([&] { Digest::GetTypeByOid(&empty); }), text);
    EXPECT_EQ(ExceptionText([] { Digest::GetTypeByOid(nullptr); }), text);
}

TEST(Digest, GetValueTwiceReturnsTheSamePointerAndBytes) {
    Digest digest(soapWrap::SHA1);
    digest.Update("abc", 3);
    unsigned char* first = digest.GetValue();
    std::string firstHex = HexOf(first, 20);
    unsigned char* second = digest.GetValue();
    EXPECT_EQ(first, second);
    EXPECT_EQ(HexOf(second, 20), firstHex);
    EXPECT_EQ(firstHex, "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(Digest, GetValueIntoCallerBuffer) {
    Digest digest(soapWrap::SHA384);
    digest.Update("abc", 3);
    unsigned char out[48];
    EXPECT_TRUE(digest.GetValue(out));
    EXPECT_EQ(HexOf(out, 48), "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
                              "8086072ba1e7cc2358baeca134c825a7");
}

TEST(Digest, ReinitializeKeepsTheCachedValue) {
    Digest digest(soapWrap::SHA256);
    digest.Update("abc", 3);
    unsigned char* cached = digest.GetValue();
    const std::string abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    ASSERT_EQ(HexOf(cached, 32), abc);

    digest.Reinitialize();
    digest.Update("xyz", 3);
    // The cache survives: the first value comes back.
    EXPECT_EQ(digest.GetValue(), cached);
    EXPECT_EQ(HexOf(digest.GetValue(), 32), abc);

    // The context itself did start afresh.
    unsigned char fresh[32];
    digest.GetValue(fresh);
    EXPECT_EQ(HexOf(fresh, 32), "3608bca1e44ea6c4d268eb6db02260269892c0b42b86bbf1e77a6fa16c3c9282");
}

TEST(Digest, ReinitializeBeforeFinishingDiscardsTheData) {
    Digest digest(soapWrap::MD5);
    digest.Update("garbage", 7);
    digest.Reinitialize();
    digest.Update("abc", 3);
    EXPECT_EQ(HexOf(digest.GetValue(), 16), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Digest, CopyCarriesTheRunningStateButNotTheCache) {
    for (HashAlgorithm type : kDigestAlgorithms) {
        Digest digest(type);
        digest.Update("a", 1);
        std::unique_ptr<Digest> copy(digest.Copy());
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->GetType(), type);
        copy->Update("bc", 2);
        digest.Update("bc", 2);
        EXPECT_EQ(HexOf(copy->GetValue(), copy->GetLength()), DigestHex(type, "abc"));
        EXPECT_EQ(HexOf(digest.GetValue(), digest.GetLength()), DigestHex(type, "abc"));
    }

    Digest digest(soapWrap::SHA1);
    digest.Update("abc", 3);
    std::unique_ptr<Digest> copy(digest.Copy());
    unsigned char* original = digest.GetValue();
    unsigned char* copied = copy->GetValue();
    EXPECT_NE(original, copied);
    EXPECT_EQ(HexOf(copied, 20), "a9993e364706816aba3e25717850c26c9cd0d89d");

    // The copy goes its own way.
    Digest other(soapWrap::SHA1);
    other.Update("ab", 2);
    std::unique_ptr<DigestBase> viaBase(static_cast<DigestBase&>(other).Copy());
    viaBase->Update("c", 1);
    other.Update("d", 1);
    EXPECT_EQ(HexOf(viaBase->GetValue(), 20), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(HexOf(other.GetValue(), 20), "cb4cc28df0fdbe0ecf9d9662e294b118092a5735");
}

TEST(Digest, UsedThroughTheBaseInterface) {
    std::unique_ptr<DigestBase> digest(new Digest(soapWrap::SHA512));
    digest->Update("abc", 3);
    EXPECT_EQ(digest->GetLength(), 64u);
    EXPECT_EQ(digest->GetTypeName(), "SHA512");
    EXPECT_STREQ(digest->GetAlgorithmIdentifier(), "2.16.840.1.101.3.4.2.3");
    EXPECT_EQ(HexOf(digest->GetValue(), 64), DigestHex(soapWrap::SHA512, "abc"));
}
