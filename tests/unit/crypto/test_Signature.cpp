// The digest-holding base of signature containers: which digests it owns,
// how keys are looked up, the additional-info store and the signed-hash size.
#include "Digest.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "Signature.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

using testsupport::ExpectThrowWithText;

namespace {

// Counts how many digests of this kind have been destroyed.
class CountingDigest : public Digest {
public:
    explicit CountingDigest(soapWrap::HashAlgorithm type = soapWrap::SHA1) : Digest(type) {}
    ~CountingDigest() override { ++Destroyed; }
    static int Destroyed;
};
int CountingDigest::Destroyed = 0;

// The smallest concrete container: the base's rules with trivial checks.
class PlainSignature : public Signature {
public:
    ProcessingResult Verify(std::string&) const override { return Valid; }
    ProcessingResult Sign(soapWrap::Binary*, const soapWrap::Binary*, std::string&) override { return Valid; }
    soapWrap::HashAlgorithm GetHashAlgorithm() override { return soapWrap::SHA1; }
};

// A container whose public-key algorithm is not RSA.
class NonRsaSignature : public PlainSignature {
public:
    uint32_t GetPublicKeyAlgorithm() const override { return 17; }
};

class SignatureTest : public ::testing::Test {
protected:
    void SetUp() override { CountingDigest::Destroyed = 0; }
};

TEST_F(SignatureTest, VerdictNumbersAreFixed) {
    EXPECT_EQ(0, static_cast<int>(Unsigned));
    EXPECT_EQ(1, static_cast<int>(Valid));
    EXPECT_EQ(2, static_cast<int>(InvalidSignature));
    EXPECT_EQ(3, static_cast<int>(InvalidHash));
    EXPECT_EQ(8, static_cast<int>(NoPayloadSignature));
    EXPECT_EQ(4u, sizeof(ProcessingResult));
}

TEST_F(SignatureTest, EmptyContainerHasNoDigest) {
    PlainSignature signature;
    EXPECT_EQ(nullptr, signature.GetDigest(0));
    EXPECT_EQ(nullptr, signature.GetDigest(5));
}

TEST_F(SignatureTest, SingleDigestIsFoundOnlyUnderItsKey) {
    CountingDigest digest;
    PlainSignature signature;
    signature.SetDigest(4, &digest);
    EXPECT_EQ(&digest, signature.GetDigest(4));
    EXPECT_EQ(nullptr, signature.GetDigest(0));
    EXPECT_EQ(nullptr, signature.GetDigest(5));
}

TEST_F(SignatureTest, SingleDigestIsBorrowed) {
    auto digest = std::make_unique<CountingDigest>();
    {
        PlainSignature signature;
        signature.SetDigest(0, digest.get());
    }
    // The container did not release it: the lender still can use it.
    EXPECT_EQ(0, CountingDigest::Destroyed);
    digest->Update("abc", 3);
    EXPECT_EQ(20u, digest->GetLength());
    digest.reset();
    EXPECT_EQ(1, CountingDigest::Destroyed);
}

TEST_F(SignatureTest, MappedDigestsAreOwned) {
    {
        PlainSignature signature;
        signature.SetDigest(1, new CountingDigest());
        signature.SetDigest(2, new CountingDigest());
        signature.SetDigest(3, new CountingDigest());
        EXPECT_EQ(0, CountingDigest::Destroyed);
    }
    // The first one moved from the single slot into the map and is owned too.
    EXPECT_EQ(3, CountingDigest::Destroyed);
}

TEST_F(SignatureTest, SecondDigestUnderSameKeyReplacesTheFirst) {
    auto first = std::make_unique<CountingDigest>();
    {
        PlainSignature signature;
        auto* second = new CountingDigest();
        signature.SetDigest(1, first.get());
        signature.SetDigest(1, second);
        EXPECT_EQ(second, signature.GetDigest(1));
        // The replaced digest was dropped, not released.
        EXPECT_EQ(0, CountingDigest::Destroyed);
    }
    // Only the one in the map went with the container.
    EXPECT_EQ(1, CountingDigest::Destroyed);
    first.reset();
    EXPECT_EQ(2, CountingDigest::Destroyed);
}

namespace {

// Stores each digest (or null) under its key, then expects every key to give
// back what was stored under it.
void ExpectStoredAndFound(PlainSignature& signature,
                          std::initializer_list<std::pair<int, DigestBase*>> stored) {
    for (const auto& [key, digest] : stored) {
        signature.SetDigest(key, digest);
    }
    for (const auto& [key, digest] : stored) {
        EXPECT_EQ(digest, signature.GetDigest(key)) << "key " << key;
    }
}

} // namespace

TEST_F(SignatureTest, TwoKeysAreBothFound) {
    PlainSignature signature;
    ExpectStoredAndFound(signature,
                         {{1, new CountingDigest(soapWrap::SHA1)}, {2, new CountingDigest(soapWrap::MD5)}});
    EXPECT_EQ(nullptr, signature.GetDigest(0));
}

TEST_F(SignatureTest, NullDigestMayBeStored) {
    PlainSignature signature;
    ExpectStoredAndFound(signature, {{0, new CountingDigest()}, {1, new CountingDigest()}, {2, nullptr}});
}

TEST_F(SignatureTest, SixDigestsAsTheRpmContainerHoldsThem) {
    {
        PlainSignature signature;
        for (int key = 0; key < 6; ++key) {
            signature.SetDigest(key, key == 2 || key == 5 ? nullptr : new CountingDigest());
        }
        for (int key = 0; key < 6; ++key) {
            EXPECT_EQ(key == 2 || key == 5, signature.GetDigest(key) == nullptr) << key;
        }
    }
    EXPECT_EQ(4, CountingDigest::Destroyed);
}

TEST_F(SignatureTest, AdditionalInfoIsKeyedAndNotReleased) {
    unsigned char bytesA[] = {1, 2, 3};
    unsigned char bytesB[] = {4};
    soapWrap::Binary a{bytesA, 3};
    soapWrap::Binary b{bytesB, 1};
    {
        PlainSignature signature;
        EXPECT_EQ(nullptr, signature.GetAdditionalInfo(7));
        signature.SetAdditionalInfo(7, &a);
        EXPECT_EQ(&a, signature.GetAdditionalInfo(7));
        signature.SetAdditionalInfo(7, &b);
        EXPECT_EQ(&b, signature.GetAdditionalInfo(7));
        signature.SetAdditionalInfo(8, &a);
        EXPECT_EQ(&a, signature.GetAdditionalInfo(8));
        EXPECT_EQ(nullptr, signature.GetAdditionalInfo(9));
    }
    // Stack records: had the container released them the sanitizers would say so.
    EXPECT_EQ(3u, a.size);
    EXPECT_EQ(1u, b.size);
}

TEST_F(SignatureTest, RsaIsThePublicKeyAlgorithm) {
    PlainSignature signature;
    EXPECT_EQ(1u, signature.GetPublicKeyAlgorithm());
    EXPECT_EQ(256u, signature.GetSignedHashSize());
}

TEST_F(SignatureTest, SignedHashSizeOfAnotherAlgorithmIsNotImplemented) {
    NonRsaSignature signature;
    ExpectThrowWithText<NotImplementedException>([&] { signature.GetSignedHashSize(); }, "Not implemented: ");
}

TEST_F(SignatureTest, UpdateDigestsOfTheBaseDoesNothing) {
    PlainSignature signature;
    auto* digest = new CountingDigest();
    signature.SetDigest(0, digest);
    signature.SetDigest(1, new CountingDigest());
    signature.UpdateDigests();
    EXPECT_EQ(digest, signature.GetDigest(0));
    EXPECT_EQ(0, CountingDigest::Destroyed);
}

} // namespace
