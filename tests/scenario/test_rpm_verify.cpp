// The exported single-package check: statuses and messages for real
// packages made by rpmbuild and rpmsign, rpm's own test packages, broken
// and truncated files, agreement with rpmkeys, and memory use over many calls.
#include "CertificateManager.h"
#include "Csp.h"
#include "Fixtures.h"
#include "PackageLayout.h"
#include "PgpCertificate.h"
#include "RpmTestBuilder.h"
#include "RpmVerifyCall.h"
#include "TestSupport.h"
#include "rpmutil.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "Sanitizer.h"

namespace {

using rpmtest::Bytes;

using Result = testsupport::VerifyResult;
using testsupport::Verify;

std::string Key(const std::string& name) {
    return fixtures::KeyArmored(name);
}

std::string Signed(const std::string& file) {
    return file + " is signed.";
}
std::string InvalidSignature(const std::string& file) {
    return file + " has invalid signature.";
}
std::string InvalidHash(const std::string& file) {
    return file + " has invalid hash.";
}
std::string NotRpm(const std::string& file) {
    return file + " is not an RPM file.";
}
std::string Internal(const std::string& file) {
    return "Internal error occured while verifying " + file;
}

// ------------------------------------------------------------ the record

TEST(RpmVerifyRecord, StatusNumbersAndLayout) {
    EXPECT_EQ(0, RPM_SIGNED);
    EXPECT_EQ(1, RPM_NOT_SIGNED);
    EXPECT_EQ(2, RPM_INVALID_SIGNATURE);
    EXPECT_EQ(3, RPM_INVALID_HASH);
    EXPECT_EQ(4, RPM_INVALID_STRUCTURE);
    EXPECT_EQ(5, RPM_ERROR);
    EXPECT_EQ(4u, sizeof(RPM_STATUS));
    EXPECT_EQ(0u, offsetof(RPM_RESULT, status));
    EXPECT_EQ(sizeof(void*), offsetof(RPM_RESULT, message));
    EXPECT_EQ(2 * sizeof(void*), sizeof(RPM_RESULT));
}

TEST(RpmVerifyRecord, ResponseCopiesTheText) {
    const std::string text = "some text";
    RPM_RESULT result = response(RPM_INVALID_HASH, text);
    EXPECT_EQ(RPM_INVALID_HASH, result.status);
    EXPECT_STREQ("some text", result.message);
    EXPECT_NE(text.c_str(), result.message);
    std::free(result.message);

    result = response(RPM_SIGNED, "");
    EXPECT_EQ(RPM_SIGNED, result.status);
    EXPECT_STREQ("", result.message);
    std::free(result.message);
}

TEST(RpmVerifyRecord, ResponseWhenMemoryRunsOut) {
#ifdef SIGNING_TEST_SANITIZED
    GTEST_SKIP() << "the sanitizer's allocator does not honour an address-space limit";
#else
    // In a child process: a text too large for the address space left.
    pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        int code = 2;
        try {
            const std::string huge(256u << 20, 'x');
            struct rlimit limit;
            getrlimit(RLIMIT_AS, &limit);
            std::ifstream statm("/proc/self/statm");
            unsigned long pages = 0;
            statm >> pages;
            limit.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + (16u << 20);
            setrlimit(RLIMIT_AS, &limit);
            RPM_RESULT result = response(RPM_SIGNED, huge);
            code = result.status == RPM_ERROR && result.message != nullptr &&
                           std::strcmp(result.message, "Internal error.") == 0
                       ? 0
                       : 1;
            // The message may be released like any other.
            std::free(result.message);
        } catch (...) {
        }
        _exit(code);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
#endif
}

// ----------------------------------------------------- fixture packages

TEST(RpmVerifyFixtures, SignedPackagesAreSigned) {
    for (const auto& package : fixtures::SignedPackages()) {
        REQUIRE_FIXTURE(package.path);
        Result result = Verify(package.path, Key(package.key));
        EXPECT_EQ(RPM_SIGNED, result.status) << package.name;
        EXPECT_EQ(Signed(package.path), result.message);
    }
}

TEST(RpmVerifyFixtures, BinaryAndCrlfKeysToo) {
    const std::string package = fixtures::Package("signed-rsa4096-sha512.rpm");
    for (const std::string& key : {fixtures::KeyBinary("rsa4096"), fixtures::KeyArmoredCrlf("rsa4096")}) {
        Result result = Verify(package, key);
        EXPECT_EQ(RPM_SIGNED, result.status) << key;
        EXPECT_EQ(Signed(package), result.message);
    }
}

TEST(RpmVerifyFixtures, HeaderOnlySignatureIsAnUnknownError) {
    const std::string package = fixtures::Package("headeronly-rsa2048-sha256.rpm");
    Result result = Verify(package, Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("Unknown error", result.message);
}

TEST(RpmVerifyFixtures, UnsignedPackageIsAnInternalError) {
    // Never RPM_NOT_SIGNED: without a header-only signature the hash
    // algorithm cannot be chosen.
    const std::string package = fixtures::Package("unsigned.rpm");
    Result result = Verify(package, Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(Internal(package), result.message);
}

TEST(RpmVerifyFixtures, TamperedPackagesHaveInvalidHashes) {
    for (const char* name : {"tampered-payload.rpm", "tampered-header.rpm"}) {
        const std::string package = fixtures::Package(name);
        Result result = Verify(package, Key("rsa2048"));
        EXPECT_EQ(RPM_INVALID_HASH, result.status) << name;
        EXPECT_EQ(InvalidHash(package), result.message);
    }
}

TEST(RpmVerifyFixtures, FailedRsaCheckIsAnInternalError) {
    for (const char* name : {"badsig-header.rpm", "badsig-payload.rpm"}) {
        const std::string package = fixtures::Package(name);
        REQUIRE_FIXTURE(package);
        Result result = Verify(package, Key("rsa2048"));
        EXPECT_EQ(RPM_ERROR, result.status) << name;
        EXPECT_EQ(Internal(package), result.message);
    }
}

TEST(RpmVerifyFixtures, AnotherKeyGivesInvalidSignature) {
    for (const auto& package : fixtures::SignedPackages()) {
        const std::string other = package.key == "other2048" ? "rsa2048" : "other2048";
        Result result = Verify(package.path, Key(other));
        EXPECT_EQ(RPM_INVALID_SIGNATURE, result.status) << package.name;
        EXPECT_EQ(InvalidSignature(package.path), result.message);
    }
    const std::string package = fixtures::Package("signed-rsa2048-sha256.rpm");
    Result result = Verify(package, Key("rsa4096"));
    EXPECT_EQ(RPM_INVALID_SIGNATURE, result.status);
}

TEST(RpmVerifyFixtures, NotAPackage) {
    const std::string file = fixtures::NotAPackage();
    Result result = Verify(file, Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(NotRpm(file), result.message);
}

TEST(RpmVerifyFixtures, MissingFileGivesTheFileError) {
    testsupport::TempDir folder;
    const std::string missing = folder.File("gone.rpm");
    Result result = Verify(missing, Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("File operation error: File not found: Cannot get status for '" + missing +
                  "': No such file or directory",
              result.message);
}

TEST(RpmVerifyFixtures, FolderIsNotAnRpmFile) {
    testsupport::TempDir folder;
    Result result = Verify(folder.Path(), Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(NotRpm(folder.Path()), result.message);
}

TEST(RpmVerifyFixtures, MissingOrBrokenKeyFile) {
    testsupport::TempDir folder;
    const std::string package = fixtures::Package("signed-rsa2048-sha256.rpm");
    Result result = Verify(package, folder.File("absent.asc"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(Internal(package), result.message);

    testsupport::WriteFile(folder.File("broken.asc"), "<html>http://example.org</html>\n");
    result = Verify(package, folder.File("broken.asc"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(Internal(package), result.message);
}

TEST(RpmVerifyFixtures, EmptyTextsArePassedOn) {
    Result result = Verify("", Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("File operation error: File not found: Cannot get status for '': No such file or directory",
              result.message);
    EXPECT_EQ(Key("rsa2048"), CertificateManager::_Self->GetPgpPublicKeyFilePath());

    const std::string package = fixtures::Package("signed-rsa2048-sha1.rpm");
    result = Verify(package, "");
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(Internal(package), result.message);
    EXPECT_EQ("", CertificateManager::_Self->GetPgpPublicKeyFilePath());
}

TEST(RpmVerifyFixtures, NullPathsAreRefusedWithAnError) {
    const char* const expected =
        "Invalid argument: rpm_verify needs a package path and a key path, not a null pointer";
    const std::string key = Key("rsa2048");
    const std::string package = fixtures::Package("signed-rsa2048-sha256.rpm");
    RPM_RESULT result = rpm_verify(nullptr, key.c_str());
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_STREQ(expected, result.message);
    std::free(result.message);
    result = rpm_verify(package.c_str(), nullptr);
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_STREQ(expected, result.message);
    std::free(result.message);
}

TEST(RpmVerifyFixtures, FileNameIsUsedAsGiven) {
    const std::string package = testsupport::FixturesDir() + "/rpm/../rpm//signed-rsa2048-sha256.rpm";
    Result result = Verify(package, Key("rsa2048"));
    EXPECT_EQ(RPM_SIGNED, result.status);
    EXPECT_EQ(package + " is signed.", result.message);
}

TEST(RpmVerifyFixtures, StoreKeepsTheLatestKeyPathAndCountsAcquisitions) {
    const unsigned int before = CertificateManager::_Count;
    Verify(fixtures::Package("signed-rsa2048-sha256.rpm"), Key("rsa2048"));
    ASSERT_NE(nullptr, CertificateManager::_Self);
    CertificateManager* store = CertificateManager::_Self;
    Verify(fixtures::Package("signed-rsa4096-sha256.rpm"), Key("rsa4096"));
    EXPECT_EQ(store, CertificateManager::_Self);
    EXPECT_EQ(Key("rsa4096"), store->GetPgpPublicKeyFilePath());
    // Also the calls that end early acquire the store.
    Verify(fixtures::NotAPackage(), Key("other2048"));
    EXPECT_EQ(Key("other2048"), store->GetPgpPublicKeyFilePath());
    EXPECT_EQ(before + 3, CertificateManager::_Count);
}

// ------------------------------------------- synthetic and broken packages

class RpmVerifyFiles : public ::testing::Test {
protected:
    std::string Write(const Bytes& content, const std::string& name = "package.rpm") {
        const std::string path = m_Folder.File(name);
        testsupport::WriteBytes(path, content);
        return path;
    }
    testsupport::TempDir m_Folder;
};

TEST_F(RpmVerifyFiles, ShortFilesAreNotRpmFiles) {
    const Bytes full = testsupport::ReadBytes(fixtures::Package("signed-rsa2048-sha256.rpm"));
    for (size_t length = 0; length < 6; ++length) {
        const std::string path = Write(Bytes(full.begin(), full.begin() + static_cast<long>(length)));
        Result result = Verify(path, Key("rsa2048"));
        EXPECT_EQ(RPM_ERROR, result.status) << length;
        EXPECT_EQ(NotRpm(path), result.message) << length;
    }
}

TEST_F(RpmVerifyFiles, OtherLeadVersionsAreNotRpmFiles) {
    Bytes content = testsupport::ReadBytes(fixtures::Package("signed-rsa2048-sha256.rpm"));
    content[5] = 1;
    const std::string path = Write(content);
    Result result = Verify(path, Key("rsa2048"));
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(NotRpm(path), result.message);
}

TEST_F(RpmVerifyFiles, TruncatedPackages) {
    const std::string source = fixtures::Package("signed-rsa2048-sha256.rpm");
    const Bytes full = testsupport::ReadBytes(source);
    fixtures::RpmRegions regions;
    ASSERT_TRUE(fixtures::ParseRpmRegions(full, regions));
    const size_t lengths[] = {6,
                              50,
                              96,
                              97,
                              111,
                              112,
                              113,
                              200,
                              regions.mainHeader - 1,
                              regions.mainHeader,
                              regions.mainHeader + 15,
                              regions.mainHeader + 16,
                              regions.payload - 1,
                              regions.payload,
                              regions.payload + 1,
                              (regions.payload + regions.size) / 2,
                              regions.size - 1,
                              regions.size};
    for (size_t length : lengths) {
        const std::string path = Write(Bytes(full.begin(), full.begin() + static_cast<long>(length)));
        Result result = Verify(path, Key("rsa2048"));
        ASSERT_GE(result.status, 0);
        ASSERT_LE(result.status, 5);
        // The main header complete, the payload cut: only the MD5 differs.
        if (length == regions.size) {
            EXPECT_EQ(RPM_SIGNED, result.status);
            EXPECT_EQ(Signed(path), result.message);
        } else if (length >= regions.payload) {
            EXPECT_EQ(RPM_INVALID_HASH, result.status) << length;
            EXPECT_EQ(InvalidHash(path), result.message) << length;
        } else {
            EXPECT_EQ(RPM_ERROR, result.status) << length;
            EXPECT_EQ(Internal(path), result.message) << length;
        }
    }
}

TEST_F(RpmVerifyFiles, DamagedSignatureHeaders) {
    // Bytes of the lead's tail, the signature header and the start of the
    // main header changed in turn: any status, never a crash or a read
    // outside the data (the sanitizer build checks that). Every byte of the
    // records and the index, every fifth byte of the data store.
    const Bytes full = testsupport::ReadBytes(fixtures::Package("signed-rsa2048-sha1.rpm"));
    fixtures::RpmRegions regions;
    ASSERT_TRUE(fixtures::ParseRpmRegions(full, regions));
    const size_t storeStart = 112 + 16 * size_t(regions.signatureIndexCount);
    std::map<int, int> statuses;
    const std::string path = m_Folder.File("damaged.rpm");
    for (size_t at = 76; at < regions.mainHeader + 32; ++at) {
        const bool inStore = at >= storeStart && at < regions.mainHeader;
        if (inStore && (at - storeStart) % 5 != 0) {
            continue;
        }
        for (unsigned char flip : {0x01, 0xFF}) {
            if (inStore && flip == 0x01) {
                continue;
            }
            Bytes damaged = full;
            damaged[at] ^= flip;
            testsupport::WriteBytes(path, damaged);
            Result result = Verify(path, Key("rsa2048"));
            ASSERT_GE(result.status, 0) << at;
            ASSERT_LE(result.status, 5) << at;
            ASSERT_FALSE(result.message.empty()) << at;
            ASSERT_NE(RPM_INVALID_STRUCTURE, result.status) << at;
            ++statuses[result.status];
        }
    }
    // Changes are caught as a broken structure, a wrong digest or signature.
    EXPECT_GT(statuses[RPM_ERROR], 0);
    EXPECT_GT(statuses[RPM_INVALID_HASH] + statuses[RPM_INVALID_SIGNATURE], 0);
}

TEST_F(RpmVerifyFiles, HugeCountsInTheSignatureHeader) {
    const Bytes full = testsupport::ReadBytes(fixtures::Package("signed-rsa2048-sha256.rpm"));
    for (size_t at : {104u, 108u}) {
        for (uint32_t value : {0xFFFFFFFFu, 0x10000000u, 0x00FFFFFFu}) {
            Bytes damaged = full;
            damaged[at] = static_cast<unsigned char>(value >> 24);
            damaged[at + 1] = static_cast<unsigned char>(value >> 16);
            damaged[at + 2] = static_cast<unsigned char>(value >> 8);
            damaged[at + 3] = static_cast<unsigned char>(value);
            const std::string path = Write(damaged);
            Result result = Verify(path, Key("rsa2048"));
            EXPECT_EQ(RPM_ERROR, result.status);
            EXPECT_EQ(Internal(path), result.message);
        }
    }
}

TEST_F(RpmVerifyFiles, SyntheticPackagesWithTheirOwnKey) {
    const auto& own = rpmtest::OwnKey::Get();
    rpmtest::Package package;
    package.payload = rpmtest::Payload(100000);
    package.SignWith(own.Key(), own.Spec(4, rpmtest::kPgpSha256));
    std::string path = Write(package.Build());
    Result result = Verify(path, own.KeyFile());
    EXPECT_EQ(RPM_SIGNED, result.status);
    EXPECT_EQ(Signed(path), result.message);

    // Version-3 signatures as rpmsign --rpmv3 made them long ago.
    package.SignWith(own.Key(), own.Spec(3, rpmtest::kPgpSha1));
    path = Write(package.Build(), "v3.rpm");
    result = Verify(path, own.KeyFile());
    EXPECT_EQ(RPM_SIGNED, result.status);

    // 256 signature-header entries are refused.
    rpmtest::Package crowded = package;
    crowded.signatureEntries.resize(256, rpmtest::Entry{5000, rpmtest::kTypeInt32, Bytes(4, 0)});
    path = Write(crowded.Build(), "crowded.rpm");
    result = Verify(path, own.KeyFile());
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(Internal(path), result.message);
}

// ------------------------- real packages changed where one comparison decides

// A package made by rpmbuild and rpmsign, changed where a single comparison
// must refuse it; each comparison is pinned on a crafted package too.
class RpmVerifyRealComparisons : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_FIXTURE(fixtures::Package("signed-rsa2048-sha256.rpm"));
        m_Package = testsupport::ReadFile(fixtures::Package("signed-rsa2048-sha256.rpm"));
        ASSERT_EQ(RPM_SIGNED, Verify(fixtures::Package("signed-rsa2048-sha256.rpm"), Key("rsa2048")).status);
    }

    // Writes the bytes and verifies them with the package's own key.
    Result VerifyBytes(const std::string& bytes, const std::string& name) {
        m_Path = m_Dir.File(name);
        testsupport::WriteFile(m_Path, bytes);
        return Verify(m_Path, Key("rsa2048"));
    }

    std::string m_Package;
    std::string m_Path;
    testsupport::TempDir m_Dir;
};

TEST_F(RpmVerifyRealComparisons, Sha1TextWithItsLastDigitOrItsCaseChanged) {
    const testsupport::PackageLayout layout(m_Package);
    const std::pair<size_t, size_t> text = layout.DataOf(m_Package, 269, 41);
    ASSERT_EQ('\0', m_Package[text.first + 40]);
    std::string lastDigit = m_Package;
    lastDigit[text.first + 39] = lastDigit[text.first + 39] == '0' ? '1' : '0';
    Result result = VerifyBytes(lastDigit, "sha1-last-digit.rpm");
    EXPECT_EQ(RPM_INVALID_HASH, result.status);
    EXPECT_EQ(InvalidHash(m_Path), result.message);

    std::string upper = m_Package;
    size_t letters = 0;
    for (size_t at = text.first; at < text.first + 40; ++at) {
        if (upper[at] >= 'a' && upper[at] <= 'f') {
            upper[at] = static_cast<char>(upper[at] - 'a' + 'A');
            ++letters;
        }
    }
    ASSERT_GT(letters, 0u);
    result = VerifyBytes(upper, "sha1-upper-case.rpm");
    EXPECT_EQ(RPM_INVALID_HASH, result.status);
    EXPECT_EQ(InvalidHash(m_Path), result.message);
}

TEST_F(RpmVerifyRealComparisons, Md5WithItsLastByteChanged) {
    const testsupport::PackageLayout layout(m_Package);
    std::string changed = m_Package;
    changed[layout.DataOf(m_Package, 1004, 16).second - 1] ^= 0x01;
    const Result result = VerifyBytes(changed, "md5-last-byte.rpm");
    EXPECT_EQ(RPM_INVALID_HASH, result.status);
    EXPECT_EQ(InvalidHash(m_Path), result.message);
}

TEST_F(RpmVerifyRealComparisons, HeaderOnlySignatureInThePlaceOfThePayloadSignature) {
    // The header-only signature (tag 268) is valid, but over the header
    // alone; as the header-and-payload signature (tag 1002) it must fail.
    const testsupport::PackageLayout layout(m_Package);
    const std::pair<size_t, size_t> header = layout.DataOf(m_Package, 268);
    const std::pair<size_t, size_t> payload = layout.DataOf(m_Package, 1002);
    ASSERT_EQ(header.second - header.first, payload.second - payload.first);
    ASSERT_NE(m_Package.substr(header.first, header.second - header.first),
              m_Package.substr(payload.first, payload.second - payload.first));
    std::string changed = m_Package;
    changed.replace(payload.first, payload.second - payload.first,
                    m_Package.substr(header.first, header.second - header.first));
    const Result result = VerifyBytes(changed, "header-signature-twice.rpm");
    EXPECT_EQ(RPM_INVALID_SIGNATURE, result.status);
    EXPECT_EQ(InvalidSignature(m_Path), result.message);
}

TEST_F(RpmVerifyRealComparisons, IssuerKeyIdWithItsFirstOrLastByteChanged) {
    // The issuer subpacket (unhashed, not covered by the signature) of both
    // signatures names the key; a key ID that differs in one byte is another
    // key's, whichever byte it is.
    const testsupport::PackageLayout layout(m_Package);
    const std::string keyId = testsupport::ReadFile(testsupport::Fixture("keys/rsa2048.keyid")).substr(0, 16);
    std::string issuer;
    for (size_t at = 0; at < 16; at += 2) {
        issuer += static_cast<char>(std::stoul(keyId.substr(at, 2), nullptr, 16));
    }
    for (size_t byte : {0, 7}) {
        std::string changed = m_Package;
        for (uint32_t tag : {268u, 1002u}) {
            const std::pair<size_t, size_t> blob = layout.DataOf(m_Package, tag);
            const size_t at = m_Package.find(issuer, blob.first);
            ASSERT_LT(at + 8, blob.second) << tag;
            changed[at + byte] ^= 0x01;
        }
        const Result result = VerifyBytes(changed, "issuer-byte-" + std::to_string(byte) + ".rpm");
        EXPECT_EQ(RPM_INVALID_SIGNATURE, result.status) << byte;
        EXPECT_EQ(InvalidSignature(m_Path), result.message) << byte;
    }
}

TEST_F(RpmVerifyRealComparisons, SignatureHeaderOf255EntriesButNot256) {
    // Entries of an unread tag added after the package's own: the signature
    // header is not signed, so 255 entries keep the package signed.
    const testsupport::PackageLayout layout(m_Package);
    auto withEntries = [&](uint32_t total) {
        const uint32_t added = total - layout.signatureCount;
        std::string index =
            m_Package.substr(testsupport::PackageLayout::kSignatureIndex,
                             layout.signatureStore - testsupport::PackageLayout::kSignatureIndex);
        std::string store = m_Package.substr(layout.signatureStore, layout.signatureDataSize);
        for (uint32_t i = 0; i < added; ++i) {
            std::string entry(16, '\0');
            testsupport::PutBe32(entry, 0, 5000 + i);
            testsupport::PutBe32(entry, 4, 4); // 32-bit integers
            testsupport::PutBe32(entry, 8, static_cast<uint32_t>(store.size()));
            testsupport::PutBe32(entry, 12, 1);
            index += entry;
            store += std::string(4, '\0');
        }
        std::string package = m_Package.substr(0, testsupport::PackageLayout::kSignatureIndex);
        testsupport::PutBe32(package, 104, total);
        testsupport::PutBe32(package, 108, static_cast<uint32_t>(store.size()));
        package += index + store;
        package.resize((package.size() + 7) / 8 * 8, '\0');
        return package + m_Package.substr(layout.mainHeader);
    };
    ASSERT_LT(layout.signatureCount, 255u);
    Result result = VerifyBytes(withEntries(255), "entries-255.rpm");
    EXPECT_EQ(RPM_SIGNED, result.status) << result.message;
    EXPECT_EQ(Signed(m_Path), result.message);
    result = VerifyBytes(withEntries(256), "entries-256.rpm");
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(Internal(m_Path), result.message);
}

// -------------------------------------------------- rpm's own packages

std::string Upstream(const std::string& relative) {
    return testsupport::RpmUpstreamDir() + "/" + relative;
}

TEST(RpmVerifyUpstream, EveryPackageWithEveryKeyGivesAStatus) {
    REQUIRE_UPSTREAM();
    std::vector<std::string> packages;
    std::vector<std::string> keys;
    for (const std::string& folder : {std::string("packages"), std::string("keys")}) {
        testsupport::CommandResult list = testsupport::Run("ls " + fixtures::ShellQuote(Upstream(folder)));
        ASSERT_EQ(0, list.exitCode) << folder;
        size_t start = 0;
        while (start < list.output.size()) {
            size_t end = list.output.find('\n', start);
            const std::string name = list.output.substr(start, end - start);
            if (!name.empty()) {
                (folder == "packages" ? packages : keys).push_back(Upstream(folder + "/" + name));
            }
            start = end == std::string::npos ? list.output.size() : end + 1;
        }
    }
    ASSERT_FALSE(packages.empty());
    ASSERT_FALSE(keys.empty());
    for (const std::string& key : keys) {
        for (const std::string& package : packages) {
            Result result = Verify(package, key);
            EXPECT_GE(result.status, 0) << package << " " << key;
            EXPECT_LE(result.status, 5) << package << " " << key;
            // The signature engine never reports a broken structure as a verdict.
            EXPECT_NE(RPM_INVALID_STRUCTURE, result.status) << package << " " << key;
            EXPECT_FALSE(result.message.empty()) << package << " " << key;
        }
    }
}

TEST(RpmVerifyUpstream, DeterminedOutcomes) {
    REQUIRE_UPSTREAM();
    const std::string key = Upstream("keys/rpm.org-rsa-2048-test.pub");
    struct Case {
        const char* package;
        int status;
        std::string (*message)(const std::string&);
    };
    const Case cases[] = {
        // RSA/SHA256 version-4 header-only and header-and-payload signatures by the test key.
        {"hello-2.0-1.x86_64-signed.rpm", RPM_SIGNED, Signed},
        // The same with version-3 signature packets.
        {"hello-2.0-1.x86_64-v3-signed.rpm", RPM_SIGNED, Signed},
        // Extra post-quantum signatures sit in a tag that is not read; the RSA ones verify.
        {"hello-2.0-1.x86_64-signed-mldsa87.rpm", RPM_SIGNED, Signed},
        // No tag 268: no hash algorithm can be chosen.
        {"hello-2.0-1.x86_64.rpm", RPM_ERROR, Internal},
        // Signed by a key of another owner: the issuer is not the test key's.
        {"hello-2.0-1.x86_64-signed-with-subkey.rpm", RPM_INVALID_SIGNATURE, InvalidSignature},
        // No SHA-1 header hash (tag 269) at all.
        {"hello-2.0-1.x86_64-corrupted.rpm", RPM_INVALID_HASH, InvalidHash},
        // Lead version 4.
        {"hlinktest-1.0-1.noarch-v3sig.rpm", RPM_ERROR, NotRpm},
        // An EdDSA signature in a new-format packet.
        {"hello-2.0-1.x86_64-signed-with-new-subkey.rpm", RPM_ERROR, Internal},
    };
    for (const Case& check : cases) {
        const std::string package = Upstream(std::string("packages/") + check.package);
        REQUIRE_FIXTURE(package);
        Result result = Verify(package, key);
        EXPECT_EQ(check.status, result.status) << check.package;
        EXPECT_EQ(check.message(package), result.message) << check.package;
    }
    // The binary export of the same key gives the same answer.
    const std::string package = Upstream("packages/hello-2.0-1.x86_64-signed.rpm");
    Result result = Verify(package, Upstream("keys/rpm.org-rsa-2048-test.pgp"));
    EXPECT_EQ(RPM_SIGNED, result.status);
}

// ----------------------------------------------------- rpmkeys agrees

TEST(RpmVerifyOracle, RpmkeysAgreesOnAcceptAndReject) {
    if (testsupport::Run("command -v rpmkeys >/dev/null 2>&1").exitCode != 0) {
        GTEST_SKIP() << "rpmkeys is not installed";
    }
    int compared = 0;
    for (const auto& package : fixtures::Packages()) {
        REQUIRE_FIXTURE(package.path);
        // Only where both must agree by construction: both signatures by a
        // key in the rpm database, intact or with a changed byte.
        if (package.signatures != fixtures::PackageSignatures::HeaderAndPayload || !package.keyImported) {
            continue;
        }
        const bool rpmkeys = fixtures::RpmkeysAccepts(package.path);
        Result result = Verify(package.path, Key(package.key));
        EXPECT_EQ(package.intact, rpmkeys) << package.name;
        EXPECT_EQ(rpmkeys, result.status == RPM_SIGNED) << package.name << ": " << result.message;
        ++compared;
    }
    EXPECT_GE(compared, 11);
}

// ----------------------------------------------------------- memory

[[maybe_unused]] long ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    long size = 0;
    long resident = 0;
    statm >> size >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

TEST(RpmVerifyMemory, ManyCallsOnlyKeepTheRetainedCertificates) {
#ifdef SIGNING_TEST_SANITIZED
    GTEST_SKIP()
        << "the sanitizer's quarantine makes resident memory meaningless; its leak check runs instead";
#else
    const std::string package = fixtures::Package("signed-rsa2048-sha256.rpm");
    const std::string key = Key("rsa2048");
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(RPM_SIGNED, Verify(package, key).status);
    }
    const int calls = 2000;
    const long before = ResidentBytes();
    for (int i = 0; i < calls; ++i) {
        RPM_RESULT result = rpm_verify(package.c_str(), key.c_str());
        ASSERT_EQ(RPM_SIGNED, result.status);
        std::free(result.message);
    }
    const long growth = ResidentBytes() - before;
    const double perPackage = static_cast<double>(growth) / calls;

    // What the store retains: every certificate it loads stays alive. Each
    // package loads the key twice (header-only and header-and-payload
    // signature).
    CertificateManager* store = CertificateManager::_Self;
    store->SetPgpPublicKeyFilePath(key);
    const int loads = 2 * calls;
    const long beforeLoads = ResidentBytes();
    const unsigned char digest[32] = {1};
    const std::vector<unsigned char> signature(256, 0x42);
    for (int i = 0; i < loads; ++i) {
        // Used once, as in a check: the key then keeps its cached Montgomery form.
        auto* certificate = static_cast<PgpCertificate*>(store->LoadPgpPublicKey());
        certificate->GetCsp()->Verify(672, digest, sizeof(digest), signature.data(),
                                      static_cast<unsigned int>(signature.size()));
    }
    const double perCertificate = static_cast<double>(ResidentBytes() - beforeLoads) / loads;
    std::printf("resident memory growth: %ld bytes over %d packages, %.0f bytes per package; "
                "%.0f bytes per retained certificate\n",
                growth, calls, perPackage, perCertificate);
    EXPECT_GT(perCertificate, 0.0);
    EXPECT_LT(perPackage, 2 * perCertificate + 1024.0);
    EXPECT_LT(perPackage, 8192.0);
#endif
}

} // namespace
