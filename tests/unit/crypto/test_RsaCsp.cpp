#include "Csp.h"
#include "Digest.h"
#include "Exceptions.h"
#include "RsaCsp.h"

#include "ExceptionText.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using testsupport::ExpectThrowWithText;

using Bytes = std::vector<unsigned char>;

namespace {

Bytes HexToBytes(const std::string& hex) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

Bytes DigestOf(soapWrap::HashAlgorithm type, const Bytes& data) {
    Digest digest(type);
    digest.Update(data.data(), data.size());
    unsigned char* value = digest.GetValue();
    return Bytes(value, value + digest.GetLength());
}

Bytes WithLeadingZero(const Bytes& bytes) {
    Bytes result(bytes.size() + 1, 0);
    std::copy(bytes.begin(), bytes.end(), result.begin() + 1);
    return result;
}

std::string ErrorText(const RsaCsp& csp) {
    return csp.GetLastError() == nullptr ? "(null)" : csp.GetLastError();
}

struct PkeyDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};
struct BignumDeleter {
    void operator()(BIGNUM* number) const { BN_free(number); }
};
struct MdCtxDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::unique_ptr<EVP_PKEY, PkeyDeleter> ReadPem(const std::string& path, bool isPrivate) {
    std::string text = testsupport::ReadFile(path);
    std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    EVP_PKEY* key = isPrivate ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr)
                              : PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr);
    return std::unique_ptr<EVP_PKEY, PkeyDeleter>(key);
}

} // namespace

// One RSA 2048 key made by the openssl tool, shared by the tests of this file.
class RsaCspTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        m_Dir = new testsupport::TempDir();
        ASSERT_EQ(testsupport::Run("openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out " +
                                   m_Dir->File("key.pem") + " 2>/dev/null")
                      .exitCode,
                  0);
        ASSERT_EQ(testsupport::Run("openssl pkey -in " + m_Dir->File("key.pem") + " -pubout -out " +
                                   m_Dir->File("pub.pem") + " 2>/dev/null")
                      .exitCode,
                  0);
        auto modulus =
            testsupport::Run("openssl rsa -in " + m_Dir->File("key.pem") + " -noout -modulus 2>/dev/null");
        ASSERT_EQ(modulus.exitCode, 0);
        ASSERT_EQ(modulus.output.rfind("Modulus=", 0), 0u);
        m_Modulus = new Bytes(HexToBytes(modulus.output.substr(8, 512)));
        auto text =
            testsupport::Run("openssl rsa -in " + m_Dir->File("key.pem") + " -noout -text 2>/dev/null");
        ASSERT_NE(text.output.find("publicExponent: 65537 (0x10001)"), std::string::npos);
        m_Exponent = new Bytes{0x01, 0x00, 0x01};
        m_Data = new Bytes();
        for (int i = 0; i < 5000; ++i) {
            m_Data->push_back(static_cast<unsigned char>(i * 7 + 3));
        }
        testsupport::WriteBytes(m_Dir->File("data.bin"), *m_Data);
    }

    static void TearDownTestSuite() {
        delete m_Dir;
        delete m_Modulus;
        delete m_Exponent;
        delete m_Data;
    }

    void SetUp() override {
        ASSERT_NE(m_Modulus, nullptr);
        ASSERT_EQ(m_Modulus->size(), 256u);
        ASSERT_NE((*m_Modulus)[0], 0);
    }

    static RsaCsp MakeCsp() {
        return RsaCsp(m_Modulus->data(), static_cast<int>(m_Modulus->size()), m_Exponent->data(),
                      static_cast<int>(m_Exponent->size()));
    }

    // Signs data.bin with the openssl tool.
    static Bytes Sign(const std::string& options) {
        std::string out = m_Dir->File("sig.bin");
        auto result = testsupport::Run("openssl dgst " + options + " -sign " + m_Dir->File("key.pem") +
                                       " -out " + out + " " + m_Dir->File("data.bin") + " 2>/dev/null");
        EXPECT_EQ(result.exitCode, 0) << options;
        return testsupport::ReadBytes(out);
    }

    static testsupport::TempDir* m_Dir;
    static Bytes* m_Modulus;
    static Bytes* m_Exponent;
    static Bytes* m_Data;
};

testsupport::TempDir* RsaCspTest::m_Dir = nullptr;
Bytes* RsaCspTest::m_Modulus = nullptr;
Bytes* RsaCspTest::m_Exponent = nullptr;
Bytes* RsaCspTest::m_Data = nullptr;

// RsaCsp is neither copyable nor movable; return by value relies on guaranteed elision.
static_assert(!std::is_copy_constructible<RsaCsp>::value, "RsaCsp owns raw handles");

TEST_F(RsaCspTest, Pkcs1Sha256SignatureVerifiesWithItsNidOnly) {
    Bytes signature = Sign("-sha256");
    ASSERT_EQ(signature.size(), 256u);
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    RsaCsp csp = MakeCsp();
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, signature.data(), 256), 1);
    EXPECT_EQ(csp.Verify(64, digest.data(), 32, signature.data(), 256), 0);
    // Verify stores no error text, and leaves no error behind in the queue.
    EXPECT_EQ(csp.GetLastError(), nullptr);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(RsaCspTest, Pkcs1SignaturesOfEveryAlgorithm) {
    const soapWrap::HashAlgorithm types[] = {soapWrap::SHA1,   soapWrap::MD5,    soapWrap::SHA224,
                                             soapWrap::SHA256, soapWrap::SHA384, soapWrap::SHA512};
    const char* options[] = {"-sha1", "-md5", "-sha224", "-sha256", "-sha384", "-sha512"};
    RsaCsp csp = MakeCsp();
    Csp& provider = csp;
    for (unsigned int i = 0; i < 6; ++i) {
        Bytes signature = Sign(options[i]);
        Bytes digest = DigestOf(types[i], *m_Data);
        int nid = Digest::GetNID(types[i]);
        EXPECT_EQ(provider.Verify(nid, digest.data(), static_cast<unsigned int>(digest.size()),
                                  signature.data(), static_cast<unsigned int>(signature.size())),
                  1)
            << options[i];
        // The signature algorithm's NID names the same DigestInfo.
        int other = Digest::GetNID(types[(i + 1) % 6]);
        EXPECT_EQ(provider.Verify(other, digest.data(), static_cast<unsigned int>(digest.size()),
                                  signature.data(), static_cast<unsigned int>(signature.size())),
                  0)
            << options[i];
    }
}

TEST_F(RsaCspTest, Pkcs1TamperedSignatureOrDigestFails) {
    Bytes signature = Sign("-sha256");
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    RsaCsp csp = MakeCsp();
    Bytes tampered = signature;
    tampered[100] ^= 0x01;
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, tampered.data(), 256), 0);
    Bytes otherDigest = digest;
    otherDigest[31] ^= 0x80;
    EXPECT_EQ(csp.Verify(672, otherDigest.data(), 32, signature.data(), 256), 0);
    EXPECT_EQ(csp.Verify(672, digest.data(), 31, signature.data(), 256), 0);
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, signature.data(), 0), 0);
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, nullptr, 256), 0);
    EXPECT_EQ(csp.GetLastError(), nullptr);
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, signature.data(), 256), 1);
}

TEST_F(RsaCspTest, SignatureShorterThanTheModulusIsPaddedWithZeros) {
    // Sign varying data until OpenSSL produces a signature whose first byte
    // is zero, as an OpenPGP MPI would then store it one byte short.
    auto privateKey = ReadPem(m_Dir->File("key.pem"), true);
    ASSERT_NE(privateKey, nullptr);
    Bytes data;
    Bytes signature;
    for (int attempt = 0; attempt < 20000; ++attempt) {
        std::string text = "leading zero candidate " + std::to_string(attempt);
        data.assign(text.begin(), text.end());
        std::unique_ptr<EVP_MD_CTX, MdCtxDeleter> context(EVP_MD_CTX_new());
        ASSERT_EQ(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, privateKey.get()), 1);
        size_t length = 0;
        ASSERT_EQ(EVP_DigestSign(context.get(), nullptr, &length, data.data(), data.size()), 1);
        signature.assign(length, 0);
        ASSERT_EQ(EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()), 1);
        ASSERT_EQ(length, 256u);
        if (signature[0] == 0) {
            break;
        }
    }
    ASSERT_EQ(signature.size(), 256u);
    ASSERT_EQ(signature[0], 0) << "no signature with a leading zero byte found";

    // The openssl tool agrees that the full-length signature is valid.
    testsupport::WriteBytes(m_Dir->File("lz.bin"), data);
    testsupport::WriteBytes(m_Dir->File("lz.sig"), signature);
    auto check = testsupport::Run("openssl dgst -sha256 -verify " + m_Dir->File("pub.pem") + " -signature " +
                                  m_Dir->File("lz.sig") + " " + m_Dir->File("lz.bin"));
    EXPECT_EQ(check.exitCode, 0) << check.output;

    Bytes stripped(signature.begin(), signature.end());
    while (!stripped.empty() && stripped[0] == 0) {
        stripped.erase(stripped.begin());
    }
    ASSERT_LT(stripped.size(), 256u);

    Bytes digest = DigestOf(soapWrap::SHA256, data);
    RsaCsp csp = MakeCsp();
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, stripped.data(), static_cast<unsigned int>(stripped.size())),
              1);
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, signature.data(), 256), 1);
    // Shortened and damaged is still refused.
    Bytes damaged = stripped;
    damaged.back() ^= 0x40;
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, damaged.data(), static_cast<unsigned int>(damaged.size())),
              0);
    // Longer than the modulus is refused, even when the extra byte is a zero.
    Bytes longer = WithLeadingZero(signature);
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, longer.data(), 257), 0);
}

TEST_F(RsaCspTest, PssSignatureVerifiesWithAnySaltLength) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    RsaCsp csp = MakeCsp();
    for (const char* salt : {"", " -sigopt rsa_pss_saltlen:digest", " -sigopt rsa_pss_saltlen:max",
                             " -sigopt rsa_pss_saltlen:0", " -sigopt rsa_pss_saltlen:10"}) {
        Bytes signature = Sign(std::string("-sha256 -sigopt rsa_padding_mode:pss") + salt);
        ASSERT_EQ(signature.size(), 256u);
        EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, digest.data(), 32, signature.data(), 256), 1) << salt;
        // A PSS signature is no PKCS #1 v1.5 signature.
        EXPECT_EQ(csp.Verify(672, digest.data(), 32, signature.data(), 256), 0) << salt;
    }
    EXPECT_EQ(csp.GetLastError(), nullptr);

    Bytes sha512 = DigestOf(soapWrap::SHA512, *m_Data);
    Bytes signature = Sign("-sha512 -sigopt rsa_padding_mode:pss");
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA512, sha512.data(), 64, signature.data(), 256), 1);
    EXPECT_EQ(csp.GetLastError(), nullptr);
}

TEST_F(RsaCspTest, PssTamperedSignatureFailsWithAnErrorText) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes signature = Sign("-sha256 -sigopt rsa_padding_mode:pss");
    Bytes tampered = signature;
    tampered[17] ^= 0x04;
    RsaCsp csp = MakeCsp();
    ERR_clear_error();
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, digest.data(), 32, tampered.data(), 256), 0);
    ASSERT_NE(csp.GetLastError(), nullptr);
    std::string first = csp.GetLastError();
    EXPECT_FALSE(first.empty());
    EXPECT_NE(first.find("rsa"), std::string::npos) << first;
    // Printing the errors emptied the queue.
    EXPECT_EQ(ERR_peek_error(), 0u);

    // A second failure replaces the text (the earlier one is released).
    Bytes otherDigest = digest;
    otherDigest[0] ^= 0x01;
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, otherDigest.data(), 32, signature.data(), 256), 0);
    ASSERT_NE(csp.GetLastError(), nullptr);
    EXPECT_FALSE(std::string(csp.GetLastError()).empty());

    // A PKCS #1 v1.5 signature is no PSS signature.
    Bytes pkcs1 = Sign("-sha256");
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, digest.data(), 32, pkcs1.data(), 256), 0);
    EXPECT_FALSE(ErrorText(csp).empty());

    // A success afterwards leaves the stored text alone.
    std::string before = ErrorText(csp);
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, digest.data(), 32, signature.data(), 256), 1);
    EXPECT_EQ(ErrorText(csp), before);
    // So does a failed PKCS #1 v1.5 check.
    EXPECT_EQ(csp.Verify(672, digest.data(), 32, tampered.data(), 256), 0);
    EXPECT_EQ(ErrorText(csp), before);
}

TEST_F(RsaCspTest, PssRefusesBuffersItCannotTrust) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes signature = Sign("-sha256 -sigopt rsa_padding_mode:pss");
    RsaCsp csp = MakeCsp();
    // A digest shorter than the algorithm's length is never read past its end.
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, digest.data(), 20, signature.data(), 256), 0);
    EXPECT_FALSE(ErrorText(csp).empty());
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, nullptr, 0, signature.data(), 256), 0);
    // A signature longer than the modulus.
    Bytes longer = WithLeadingZero(signature);
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA256, digest.data(), 32, longer.data(), 257), 0);
    EXPECT_FALSE(ErrorText(csp).empty());
    // The wrong algorithm for the digest.
    EXPECT_EQ(csp.Verify_PSS(soapWrap::SHA1, digest.data(), 32, signature.data(), 256), 0);
    EXPECT_FALSE(ErrorText(csp).empty());
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(RsaCspTest, PssWithAnAlgorithmWithoutDigestThrows) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes signature = Sign("-sha256 -sigopt rsa_padding_mode:pss");
    RsaCsp csp = MakeCsp();
    ExpectThrowWithText<DigestException>(
        [&] { csp.Verify_PSS(soapWrap::PEHeaderHash, digest.data(), 32, signature.data(), 256); },
        "Digest calculation error: Undefined type of digest");
}

TEST_F(RsaCspTest, LeadingZeroMpiBytesYieldTheSameKey) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes pkcs1 = Sign("-sha256");
    Bytes pss = Sign("-sha256 -sigopt rsa_padding_mode:pss");
    Bytes modulus = WithLeadingZero(*m_Modulus);
    Bytes exponent = WithLeadingZero(*m_Exponent);
    RsaCsp padded(modulus.data(), static_cast<int>(modulus.size()), exponent.data(),
                  static_cast<int>(exponent.size()));
    RsaCsp plain = MakeCsp();
    for (RsaCsp* csp : {&padded, &plain}) {
        EXPECT_EQ(csp->Verify(672, digest.data(), 32, pkcs1.data(), 256), 1);
        EXPECT_EQ(csp->Verify_PSS(soapWrap::SHA256, digest.data(), 32, pss.data(), 256), 1);
        // The modulus is still 256 bytes long: 257 bytes are too many.
        Bytes longer = WithLeadingZero(pkcs1);
        EXPECT_EQ(csp->Verify(672, digest.data(), 32, longer.data(), 257), 0);
    }

    // Compare the keys themselves through the BIGNUM constructor's input.
    std::unique_ptr<BIGNUM, BignumDeleter> a(
        BN_bin2bn(modulus.data(), static_cast<int>(modulus.size()), nullptr));
    std::unique_ptr<BIGNUM, BignumDeleter> b(
        BN_bin2bn(m_Modulus->data(), static_cast<int>(m_Modulus->size()), nullptr));
    EXPECT_EQ(BN_cmp(a.get(), b.get()), 0);
    EXPECT_EQ(BN_num_bytes(a.get()), 256);
}

TEST_F(RsaCspTest, BignumConstructorCopiesTheNumbers) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes signature = Sign("-sha256");
    BIGNUM* n = BN_bin2bn(m_Modulus->data(), static_cast<int>(m_Modulus->size()), nullptr);
    BIGNUM* e = BN_bin2bn(m_Exponent->data(), static_cast<int>(m_Exponent->size()), nullptr);
    std::unique_ptr<RsaCsp> csp(new RsaCsp(n, e));
    // The caller's numbers are untouched and still the caller's to free.
    EXPECT_EQ(BN_get_word(e), 65537u);
    EXPECT_EQ(BN_num_bytes(n), 256);
    BN_free(n);
    BN_free(e);
    EXPECT_EQ(csp->Verify(672, digest.data(), 32, signature.data(), 256), 1);
    EXPECT_EQ(csp->Verify(64, digest.data(), 32, signature.data(), 256), 0);
}

TEST_F(RsaCspTest, RsaKeyConstructorTakesOwnership) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes signature = Sign("-sha256");
    Bytes pss = Sign("-sha256 -sigopt rsa_padding_mode:pss");
    auto publicKey = ReadPem(m_Dir->File("pub.pem"), false);
    ASSERT_NE(publicKey, nullptr);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    RSA* key = EVP_PKEY_get1_RSA(publicKey.get());
#pragma GCC diagnostic pop
    ASSERT_NE(key, nullptr);
    publicKey.reset();
    // Deleted through the abstract provider, as the certificate does.
    std::unique_ptr<Csp> csp(new RsaCsp(key));
    EXPECT_EQ(csp->Verify(672, digest.data(), 32, signature.data(), 256), 1);
    EXPECT_EQ(csp->Verify(673, digest.data(), 32, signature.data(), 256), 0);
    EXPECT_EQ(static_cast<RsaCsp&>(*csp).Verify_PSS(soapWrap::SHA256, digest.data(), 32, pss.data(), 256), 1);
}

TEST_F(RsaCspTest, KeysThatCannotBeBuiltNeverVerify) {
    Bytes digest = DigestOf(soapWrap::SHA256, *m_Data);
    Bytes signature = Sign("-sha256");
    RsaCsp nullKey(static_cast<RSA*>(nullptr));
    EXPECT_EQ(nullKey.Verify(672, digest.data(), 32, signature.data(), 256), 0);
    EXPECT_EQ(nullKey.Verify_PSS(soapWrap::SHA256, digest.data(), 32, signature.data(), 256), 0);
    EXPECT_FALSE(ErrorText(nullKey).empty());

    RsaCsp nullNumbers(static_cast<BIGNUM*>(nullptr), static_cast<BIGNUM*>(nullptr));
    EXPECT_EQ(nullNumbers.Verify(672, digest.data(), 32, signature.data(), 256), 0);

    RsaCsp negativeLength(m_Modulus->data(), -1, m_Exponent->data(), 3);
    EXPECT_EQ(negativeLength.Verify(672, digest.data(), 32, signature.data(), 256), 0);

    RsaCsp emptyModulus(m_Modulus->data(), 0, m_Exponent->data(), 3);
    EXPECT_EQ(emptyModulus.Verify(672, digest.data(), 32, signature.data(), 256), 0);
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST(RsaCsp, ErrorMessageReadsAndEmptiesTheErrorQueue) {
    ERR_clear_error();
    ERR_raise(ERR_LIB_RSA, RSA_R_BAD_SIGNATURE);
    std::unique_ptr<char[]> text(RsaCsp::GetErrorMessage());
    ASSERT_NE(text, nullptr);
    EXPECT_NE(std::string(text.get()).find("bad signature"), std::string::npos) << text.get();
    EXPECT_EQ(ERR_peek_error(), 0u);

    std::unique_ptr<char[]> empty(RsaCsp::GetErrorMessage());
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty.get(), "");
}
