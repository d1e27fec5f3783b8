// The OpenPGP public-key certificate: real gpg keys give the modulus and
// exponent that gpg itself reports, and the RSA provider built from them
// checks gpg's own signatures.
#include "Csp.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "Fixtures.h"
#include "PgpCertificate.h"
#include "PgpMessage.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <cctype>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using testsupport::ExpectThrowWithText;

namespace {

const char* const kNullArgument =
    "Invalid argument: Function PgpCertificate::PgpCertificate does not allow NULL value as an argument";

std::string KeyPath(const std::string& file) {
    return testsupport::Fixture("keys/" + file);
}

std::string KeyId(const std::string& name) {
    return testsupport::ReadFile(KeyPath(name + ".keyid")).substr(0, 16);
}

PgpMessage* NewMessage(std::vector<char>& bytes) {
    return new PgpMessage(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

std::unique_ptr<PgpCertificate> Load(const std::string& path) {
    std::string text = testsupport::ReadFile(path);
    std::vector<char> bytes(text.begin(), text.end());
    return std::unique_ptr<PgpCertificate>(new PgpCertificate(NewMessage(bytes)));
}

std::string Upper(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

// The primary key's public numbers as gpg lists them ("pkd" records after
// importing the key into a fresh home folder): modulus, then exponent.
std::vector<std::string> GpgKeyData(const std::string& keyFile) {
    testsupport::TempDir home;
    std::string gpg = "gpg --homedir '" + home.Path() + "' --batch --quiet --no-autostart";
    testsupport::CommandResult imported = testsupport::Run(gpg + " --import '" + keyFile + "' 2>/dev/null");
    EXPECT_EQ(imported.exitCode, 0);
    testsupport::CommandResult listed =
        testsupport::Run(gpg + " --with-colons --with-key-data --list-keys 2>/dev/null");
    EXPECT_EQ(listed.exitCode, 0);
    std::vector<std::string> numbers;
    std::istringstream lines(listed.output);
    std::string line;
    bool primary = false;
    while (std::getline(lines, line)) {
        if (line.rfind("pub:", 0) == 0) {
            primary = true;
        } else if (line.rfind("sub:", 0) == 0 || line.rfind("uid:", 0) == 0) {
            primary = false;
        } else if (primary && line.rfind("pkd:", 0) == 0) {
            // pkd:<index>:<bits>:<hex>:
            std::vector<std::string> fields;
            std::istringstream parts(line);
            std::string field;
            while (std::getline(parts, field, ':')) {
                fields.push_back(field);
            }
            if (fields.size() >= 4) {
                numbers.push_back(fields[3]);
            }
        }
    }
    testsupport::Run("gpgconf --homedir '" + home.Path() + "' --kill all >/dev/null 2>&1");
    return numbers;
}

// The digest of the data and the version-4 signature trailer, and the NID
// of its hash algorithm.
std::vector<unsigned char> SignedDigest(const std::string& data, const PgpSignatureData& signature,
                                        int& nid) {
    const rpmtest::SignatureSpec spec = rpmtest::Version4Spec(
        signature.GetType(), signature.GetPublicKeyAlgorithm(), signature.GetHashAlgorithm(),
        signature.GetHashedData(), signature.GetHashedLength());
    nid = EVP_MD_get_type(rpmtest::MdOfPgpOctet(spec.hashAlgorithm));
    return rpmtest::SignedHash(spec, rpmtest::FromText(data));
}

} // namespace

TEST(PgpCertificateConstruction, NullMessageIsRefused) {
    ExpectThrowWithText<ArgumentException>([&] { PgpCertificate certificate(nullptr); }, kNullArgument);
}

TEST(PgpCertificateConstruction, MessageWithoutPublicKeyIsRefused) {
    std::string path = testsupport::Fixture("sigs/rsa2048-sha256.sig");
    REQUIRE_FIXTURE(path);
    std::string text = testsupport::ReadFile(path);
    std::vector<char> bytes(text.begin(), text.end());
    PgpMessage* message = NewMessage(bytes);
    ASSERT_EQ(message->GetPublicKey(), nullptr);
    ASSERT_NE(message->GetSignature(), nullptr);
    // The certificate owns the message, also when it refuses it (the
    // leak checker of the sanitizer build watches this).
    ExpectThrowWithText<ArgumentException>([&] { PgpCertificate certificate(message); }, kNullArgument);
}

TEST(PgpCertificateRealKeys, KeyLengthProviderAndMessage) {
    for (const fixtures::SizedKey& expected : fixtures::SizedKeys()) {
        std::string asc = KeyPath(std::string(expected.name) + ".asc");
        REQUIRE_FIXTURE(asc);
        std::vector<std::string> gpgNumbers = GpgKeyData(asc);
        ASSERT_EQ(gpgNumbers.size(), 2u) << asc;
        EXPECT_EQ(gpgNumbers[1], "010001");
        for (const char* suffix : {".asc", ".crlf.asc", ".gpg"}) {
            std::string path = KeyPath(std::string(expected.name) + suffix);
            REQUIRE_FIXTURE(path);
            SCOPED_TRACE(path);
            std::unique_ptr<PgpCertificate> certificate = Load(path);
            EXPECT_EQ(certificate->GetKeyLength(), expected.bits);
            EXPECT_NE(certificate->GetCsp(), nullptr);
            ASSERT_NE(certificate->GetMessage(), nullptr);
            const PgpPublicKey* key = certificate->GetMessage()->GetPublicKey();
            ASSERT_NE(key, nullptr);
            EXPECT_EQ(Upper(testsupport::ToHex(key->GetModulus()->GetValue(),
                                               key->GetModulus()->GetLengthInBytes())),
                      gpgNumbers[0]);
            EXPECT_EQ(
                testsupport::ToHex(key->GetExponent()->GetValue(), key->GetExponent()->GetLengthInBytes()),
                "010001");
            const PgpSignatureData* signature = certificate->GetMessage()->GetSignature();
            ASSERT_NE(signature, nullptr);
            EXPECT_EQ(signature->GetType(), PgpSignatureSubkeyBinding);
            EXPECT_EQ(testsupport::ToHex(signature->GetIssuerKeyId(), 8), KeyId(expected.name));
        }
    }
}

TEST(PgpCertificateRealKeys, ProviderChecksGpgSignatures) {
    std::string dataPath = testsupport::Fixture("data/data.bin");
    REQUIRE_FIXTURE(dataPath);
    std::string data = testsupport::ReadFile(dataPath);
    std::string otherPath = KeyPath("other2048.gpg");
    REQUIRE_FIXTURE(otherPath);
    std::unique_ptr<PgpCertificate> other = Load(otherPath);
    int checked = 0;
    for (const char* name : {"rsa2048", "rsa3072", "rsa4096"}) {
        std::unique_ptr<PgpCertificate> certificate = Load(KeyPath(std::string(name) + ".asc"));
        for (const char* hash : {"sha1", "sha256", "sha512"}) {
            std::string path = testsupport::Fixture(std::string("sigs/") + name + "-" + hash + ".sig");
            REQUIRE_FIXTURE(path);
            SCOPED_TRACE(path);
            std::string text = testsupport::ReadFile(path);
            std::vector<char> bytes(text.begin(), text.end());
            std::unique_ptr<PgpMessage> message(NewMessage(bytes));
            const PgpSignatureData* signature = message->GetSignature();
            ASSERT_NE(signature, nullptr);
            int nid = 0;
            std::vector<unsigned char> digest = SignedDigest(data, *signature, nid);
            const MPI* value = signature->GetSignatureValue();
            unsigned int valueLength = static_cast<unsigned int>(value->GetLengthInBytes());
            if (valueLength * 8 != certificate->GetKeyLength()) {
                continue; // a shorter value is the RSA provider's concern
            }
            EXPECT_EQ(certificate->GetCsp()->Verify(nid, digest.data(),
                                                    static_cast<unsigned int>(digest.size()),
                                                    value->GetValue(), valueLength),
                      1);
            ++checked;
            std::vector<unsigned char> wrong = digest;
            wrong[wrong.size() - 1] ^= 1;
            EXPECT_EQ(certificate->GetCsp()->Verify(nid, wrong.data(),
                                                    static_cast<unsigned int>(wrong.size()),
                                                    value->GetValue(), valueLength),
                      0);
            if (std::string(name) == "rsa2048") {
                EXPECT_EQ(other->GetCsp()->Verify(nid, digest.data(),
                                                  static_cast<unsigned int>(digest.size()), value->GetValue(),
                                                  valueLength),
                          0);
            }
        }
    }
    // Nearly every gpg signature value is as long as its modulus.
    EXPECT_GE(checked, 6);
}
