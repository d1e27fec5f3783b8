// The process-wide certificate store: key path, loading the OpenPGP key
// anew on every request, replaced certificates that stay valid, the
// unimplemented formats, the singleton, and the PEM wrapping of DER bytes.
#include "CertificateManager.h"
#include "Digest.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "Fixtures.h"
#include "PgpCertificate.h"
#include "PgpMessage.h"
#include "PgpSignature.h"
#include "RsaCsp.h"
#include "TestSupport.h"

#include <openssl/evp.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using testsupport::ExpectThrowWithText;

namespace {

using Bytes = std::vector<unsigned char>;

// A store of the test's own; the process-wide instance is put back afterwards.
class CertificateManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_SavedSelf = Singleton<CertificateManager>::_Self;
        m_SavedCount = Singleton<CertificateManager>::_Count;
        m_Store = new CertificateManager();
    }
    void TearDown() override {
        delete m_Store;
        for (PgpCertificate* certificate : m_Handed) {
            delete certificate;
        }
        Singleton<CertificateManager>::_Self = m_SavedSelf;
        Singleton<CertificateManager>::_Count = m_SavedCount;
    }
    // Certificates stay valid after the store is gone; the test releases
    // them itself at the end.
    PgpCertificate* Keep(Certificate* certificate) {
        auto* pgp = static_cast<PgpCertificate*>(certificate);
        m_Handed.push_back(pgp);
        return pgp;
    }
    PgpCertificate* Load(const std::string& path) {
        m_Store->SetPgpPublicKeyFilePath(path);
        return Keep(m_Store->LoadPgpPublicKey());
    }

    CertificateManager* m_Store = nullptr;
    std::vector<PgpCertificate*> m_Handed;
    CertificateManager* m_SavedSelf = nullptr;
    unsigned int m_SavedCount = 0;
};

std::string IssuerHex(const PgpCertificate* certificate) {
    const PgpSignatureData* signature = certificate->GetMessage()->GetSignature();
    return testsupport::ToHex(signature->GetIssuerKeyId(), 8);
}

TEST_F(CertificateManagerTest, NewStoreIsEmpty) {
    EXPECT_EQ("", m_Store->GetPgpPublicKeyFilePath());
    EXPECT_EQ(0u, m_Store->GetCertificateCount());
    EXPECT_EQ(nullptr, m_Store->GetCertificate(soapWrap::PgpPublicKeyCertificate));
    EXPECT_EQ(2, static_cast<int>(soapWrap::PgpPublicKeyCertificate));
}

TEST_F(CertificateManagerTest, PathIsStoredAsACopy) {
    std::string path = "/some/key.asc";
    m_Store->SetPgpPublicKeyFilePath(path);
    path[1] = 'X';
    EXPECT_EQ("/some/key.asc", m_Store->GetPgpPublicKeyFilePath());
    m_Store->SetPgpPublicKeyFilePath("");
    EXPECT_EQ("", m_Store->GetPgpPublicKeyFilePath());
    // Storing the path reads nothing.
    EXPECT_EQ(0u, m_Store->GetCertificateCount());
}

TEST_F(CertificateManagerTest, EveryFixtureKeyLoadsInEveryEncoding) {
    for (const std::string& name : fixtures::DetachedSignatureKeyNames()) {
        for (const std::string& path :
             {fixtures::KeyArmored(name), fixtures::KeyArmoredCrlf(name), fixtures::KeyBinary(name)}) {
            REQUIRE_FIXTURE(path);
            PgpCertificate* certificate = Load(path);
            ASSERT_NE(nullptr, certificate) << path;
            EXPECT_EQ(static_cast<uint64_t>(fixtures::KeyBits(name)), certificate->GetKeyLength()) << path;
            EXPECT_NE(nullptr, dynamic_cast<RsaCsp*>(certificate->GetCsp()));
            // The key block's last signature is issued by the primary key.
            EXPECT_EQ(fixtures::KeyId(name), IssuerHex(certificate)) << path;
            EXPECT_EQ(certificate, m_Store->GetCertificate(soapWrap::PgpPublicKeyCertificate));
        }
    }
}

TEST_F(CertificateManagerTest, LoadingTwiceKeepsOneEntryAndTheFirstStaysUsable) {
    PgpCertificate* first = Load(fixtures::KeyArmored("rsa2048"));
    PgpCertificate* second = Keep(m_Store->LoadPgpPublicKey());
    EXPECT_NE(first, second);
    EXPECT_EQ(1u, m_Store->GetCertificateCount());
    EXPECT_EQ(second, m_Store->GetCertificate(soapWrap::PgpPublicKeyCertificate));

    // The first one still checks a real signature.
    Bytes signatureBytes = testsupport::ReadBytes(fixtures::DetachedSignature("rsa2048", "sha256"));
    PgpMessage message(reinterpret_cast<char*>(signatureBytes.data()),
                       static_cast<unsigned int>(signatureBytes.size()));
    PgpSignature signature(message.GetSignature());
    Digest digest(soapWrap::SHA256);
    Bytes data = testsupport::ReadBytes(fixtures::DataFile());
    digest.Update(data.data(), data.size());
    signature.SetDigest(0, &digest);
    std::unique_ptr<DigestBase> trailed(signature.UpdateHash());
    const MPI* value = message.GetSignature()->GetSignatureValue();
    EXPECT_EQ(1, first->GetCsp()->Verify(Digest::GetNID(soapWrap::SHA256), trailed->GetValue(),
                                         trailed->GetLength(), value->GetValue(),
                                         static_cast<unsigned int>(value->GetLengthInBytes())));
    EXPECT_EQ(2048u, first->GetKeyLength());
}

TEST_F(CertificateManagerTest, KeyFileIsReadAnewOnEveryRequest) {
    testsupport::TempDir folder;
    const std::string key = folder.File("key.asc");
    testsupport::WriteFile(key, testsupport::ReadFile(fixtures::KeyArmored("rsa2048")));
    EXPECT_EQ(2048u, Load(key)->GetKeyLength());
    testsupport::WriteFile(key, testsupport::ReadFile(fixtures::KeyArmored("rsa4096")));
    EXPECT_EQ(4096u, Keep(m_Store->LoadPgpPublicKey())->GetKeyLength());
    testsupport::WriteFile(key, testsupport::ReadFile(fixtures::KeyBinary("rsa3072")));
    EXPECT_EQ(3072u, Keep(m_Store->LoadPgpPublicKey())->GetKeyLength());
    EXPECT_EQ(1u, m_Store->GetCertificateCount());
}

TEST_F(CertificateManagerTest, OtherFormatsAreNotImplemented) {
    PgpCertificate* loaded = Load(fixtures::KeyArmored("rsa2048"));
    std::string key = testsupport::ReadFile(fixtures::KeyArmored("rsa2048"));
    for (int format : {0, 1, 3, 4}) {
        try {
            m_Store->CreateCertificate(&key[0], key.size(),
                                       static_cast<soapWrap::CertificateFileFormat>(format));
            FAIL() << "no exception for format " << format;
        } catch (const NotImplementedException& error) {
            EXPECT_STREQ("Not implemented: Not implemented certificate format", error.what());
        }
        EXPECT_EQ(1u, m_Store->GetCertificateCount());
        EXPECT_EQ(loaded, m_Store->GetCertificate(soapWrap::PgpPublicKeyCertificate));
        EXPECT_EQ(nullptr, m_Store->GetCertificate(static_cast<soapWrap::CertificateFileFormat>(format)));
    }
}

TEST_F(CertificateManagerTest, CertificateFromMemory) {
    std::string key = testsupport::ReadFile(fixtures::KeyBinary("rsa4096"));
    PgpCertificate* certificate =
        Keep(m_Store->CreateCertificate(&key[0], key.size(), soapWrap::PgpPublicKeyCertificate));
    EXPECT_EQ(4096u, certificate->GetKeyLength());
    // The caller's buffer is not kept.
    key.assign(key.size(), '\0');
    EXPECT_EQ(fixtures::KeyId("rsa4096"), IssuerHex(certificate));
}

TEST_F(CertificateManagerTest, LoadFromFileWithExplicitPath) {
    std::string path = fixtures::KeyArmored("rsa3072");
    PgpCertificate* certificate =
        Keep(m_Store->LoadCertificateFromFile(path, soapWrap::PgpPublicKeyCertificate));
    EXPECT_EQ(3072u, certificate->GetKeyLength());
    EXPECT_EQ("", m_Store->GetPgpPublicKeyFilePath());
}

TEST_F(CertificateManagerTest, MissingKeyFile) {
    testsupport::TempDir folder;
    const std::string missing = folder.File("absent.asc");
    m_Store->SetPgpPublicKeyFilePath(missing);
    ExpectThrowWithText<FileNotFoundException>(
        [&] { m_Store->LoadPgpPublicKey(); },
        "File operation error: File not found: Cannot get status for '" + missing +
            "': No such file or directory");
    EXPECT_EQ(0u, m_Store->GetCertificateCount());
}

TEST_F(CertificateManagerTest, EmptyPathIsAMissingFile) {
    ExpectThrowWithText<FileNotFoundException>(
        [&] { m_Store->LoadPgpPublicKey(); },
        "File operation error: File not found: Cannot get status for '': No such file or directory");
}

TEST_F(CertificateManagerTest, FolderAsKeyFile) {
    testsupport::TempDir folder;
    m_Store->SetPgpPublicKeyFilePath(folder.Path());
    ExpectThrowWithText<FileIoException>([&] { m_Store->LoadPgpPublicKey(); },
                                         "File operation error: File '" + folder.Path() + "' was not open");
    EXPECT_EQ(0u, m_Store->GetCertificateCount());
}

TEST_F(CertificateManagerTest, BrokenKeyFilesLeaveTheStoreAlone) {
    PgpCertificate* loaded = Load(fixtures::KeyArmored("rsa2048"));
    testsupport::TempDir folder;
    const std::string broken = folder.File("broken.asc");

    testsupport::WriteFile(broken, "this is not a key\n");
    m_Store->SetPgpPublicKeyFilePath(broken);
    ExpectThrowWithText<DataFormatException>([&] { m_Store->LoadPgpPublicKey(); },
                                             "Invalid format of data: PGP public key is not found");

    // A binary key cut short inside its modulus.
    std::string key = testsupport::ReadFile(fixtures::KeyBinary("rsa2048"));
    testsupport::WriteFile(broken, key.substr(0, 100));
    EXPECT_THROW(m_Store->LoadPgpPublicKey(), std::exception);

    testsupport::WriteFile(broken, "");
    EXPECT_THROW(m_Store->LoadPgpPublicKey(), std::exception);

    EXPECT_EQ(1u, m_Store->GetCertificateCount());
    EXPECT_EQ(loaded, m_Store->GetCertificate(soapWrap::PgpPublicKeyCertificate));
}

TEST_F(CertificateManagerTest, DestroyingTheStoreKeepsItsCertificates) {
    Singleton<CertificateManager>::_Self = m_Store;
    PgpCertificate* certificate = Load(fixtures::KeyArmored("rsa4096"));
    delete m_Store;
    m_Store = nullptr;
    EXPECT_EQ(nullptr, Singleton<CertificateManager>::_Self);
    EXPECT_EQ(4096u, certificate->GetKeyLength());
    EXPECT_EQ(fixtures::KeyId("rsa4096"), IssuerHex(certificate));
}

TEST_F(CertificateManagerTest, SingletonIsCreatedOnceAndCounted) {
    Singleton<CertificateManager>::_Self = nullptr;
    Singleton<CertificateManager>::_Count = 0;
    CertificateManager* first = CertificateManager::Acquire();
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(first, Singleton<CertificateManager>::_Self);
    EXPECT_EQ(1u, Singleton<CertificateManager>::_Count);
    EXPECT_EQ(first, CertificateManager::Acquire());
    EXPECT_EQ(2u, Singleton<CertificateManager>::_Count);
    EXPECT_EQ(first, CertificateManager::Instance());
    EXPECT_EQ(2u, Singleton<CertificateManager>::_Count);
    delete first;
    EXPECT_EQ(nullptr, Singleton<CertificateManager>::_Self);
}

// --------------------------------------------------------------- PEM

cpp11::shared_ptr<binary> Der(const Bytes& bytes) {
    auto* data = new unsigned char[bytes.size() + 1];
    std::copy(bytes.begin(), bytes.end(), data);
    return cpp11::shared_ptr<binary>(new binary(data, static_cast<uint32_t>(bytes.size()), 1));
}

std::string Text(const cpp11::shared_ptr<binary>& pem) {
    return std::string(reinterpret_cast<const char*>(pem->data), pem->length);
}

// The PEM text built independently with OpenSSL's Base64 encoder.
std::string ExpectedPem(const Bytes& der) {
    std::string encoded(4 * ((der.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&encoded[0]), der.data(),
                                 static_cast<int>(der.size()));
    encoded.resize(static_cast<size_t>(length));
    std::string text = "-----BEGIN CERTIFICATE-----\n";
    for (size_t i = 0; i < encoded.size(); i += 64) {
        text += encoded.substr(i, 64) + "\n";
    }
    return text + "-----END CERTIFICATE-----\n";
}

TEST(DerToPem, FortyEightBytesMakeOneFullLine) {
    Bytes der(48);
    for (size_t i = 0; i < der.size(); ++i) {
        der[i] = static_cast<unsigned char>(i * 5 + 1);
    }
    cpp11::shared_ptr<binary> pem = der_to_pem(Der(der));
    EXPECT_EQ(119u, pem->length);
    EXPECT_EQ(1u, pem->owned);
    EXPECT_EQ(1, pem.use_count());
    EXPECT_EQ(ExpectedPem(der), Text(pem));
}

TEST(DerToPem, NoBytesMakeJustTheMarkers) {
    cpp11::shared_ptr<binary> pem = der_to_pem(Der(Bytes()));
    EXPECT_EQ(54u, pem->length);
    EXPECT_EQ("-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n", Text(pem));
}

TEST(DerToPem, PartialLastLine) {
    for (size_t size : {1u, 2u, 3u, 47u, 49u, 100u, 1000u}) {
        Bytes der(size);
        for (size_t i = 0; i < size; ++i) {
            der[i] = static_cast<unsigned char>(255 - i);
        }
        cpp11::shared_ptr<binary> pem = der_to_pem(Der(der));
        const std::string expected = ExpectedPem(der);
        unsigned int n = static_cast<unsigned int>(4 * ((size + 2) / 3));
        EXPECT_EQ((n / 64) * 65 + n % 64 + (n % 64 != 0 ? 1 : 0) + 54, pem->length) << size;
        EXPECT_EQ(expected, Text(pem)) << size;
    }
}

TEST(DerToPem, ArgumentIsShared) {
    cpp11::shared_ptr<binary> der = Der(Bytes(10, 0xAA));
    EXPECT_EQ(1, der.use_count());
    cpp11::shared_ptr<binary> pem = der_to_pem(der);
    EXPECT_EQ(1, der.use_count());
    EXPECT_EQ(0xAA, der->data[9]);
    EXPECT_EQ(1, pem.use_count());
}

TEST(SharedPtr, CountsOwners) {
    cpp11::shared_ptr<binary> empty;
    EXPECT_EQ(0, empty.use_count());
    EXPECT_FALSE(empty);
    cpp11::shared_ptr<binary> one(new binary(new unsigned char[4](), 4, 1));
    EXPECT_EQ(1, one.use_count());
    {
        cpp11::shared_ptr<binary> two(one);
        EXPECT_EQ(2, one.use_count());
        cpp11::shared_ptr<binary> three;
        three = two;
        EXPECT_EQ(3, one.use_count());
        EXPECT_EQ(one.get(), three.get());
        cpp11::shared_ptr<binary>& alias = three;
        three = alias;
        EXPECT_EQ(3, one.use_count());
    }
    EXPECT_EQ(1, one.use_count());
    one = empty;
    EXPECT_EQ(0, one.use_count());
}

TEST(SharedPtr, RecordThatDoesNotOwnItsBytesLeavesThem) {
    unsigned char bytes[3] = {1, 2, 3};
    {
        cpp11::shared_ptr<binary> record(new binary(bytes, 3, 0));
        EXPECT_EQ(0u, record->owned);
    }
    EXPECT_EQ(3, bytes[2]);
}

} // namespace
