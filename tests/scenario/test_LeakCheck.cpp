// Thousands of verifications in one process, as an installer does them:
// a valid package, tampered ones and malformed ones. Under the sanitizer
// build LeakSanitizer checks after each batch that nothing was lost; in the
// normal build the heap's bytes in use (malloc's own count) may grow only by
// what the certificate store keeps by design, so that a lost object of a few
// bytes per call fails `make test` too.
#include "PackageLayout.h"
#include "TestSupport.h"

#include "ByteReader.h"
#include "CertificateManager.h"
#include "rpmutil.h"

#include <cstring>
#include <fstream>
#include <malloc.h>

#include "Sanitizer.h"

#ifdef SIGNING_TEST_SANITIZED
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using testsupport::Fixture;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

constexpr int kCalls = 2000;
// Calls made before the resident size is first taken, so that one-time
// allocations (the certificate store, OpenSSL's tables) are not counted.
constexpr int kWarmUp = 50;

// Upper bound of what one certificate kept by the store costs (the parsed
// key message and the RSA key with its cached Montgomery values).
[[maybe_unused]] constexpr long kRetainedCertificateBytes = 4096;

size_t ResidentKb() {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, 6, "VmRSS:") == 0) {
            return std::strtoul(line.c_str() + 6, nullptr, 10);
        }
    }
    return 0;
}

// Bytes handed out by malloc and not yet freed (small blocks and mapped
// ones).
[[maybe_unused]] long HeapBytesInUse() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
}

// Heap growth allowed over a batch besides the retained certificates: the
// test's own bookkeeping. A loss of 8 bytes per call exceeds it.
[[maybe_unused]] constexpr long kHeapSlackBytes = 8 * kCalls;

// kCalls verifications of the same package and key; every one must give the
// expected status. Reports the resident growth in kB; checks the heap's
// growth (normal build) or runs the leak checker (sanitizer build).
void VerifyMany(const std::string& package, const std::string& key, RPM_STATUS expected, const char* what,
                int keyLoadsPerCall = 0) {
    size_t before = 0;
    [[maybe_unused]] long heapBefore = 0;
    int wrong = 0;
    for (int call = 0; call < kWarmUp + kCalls; ++call) {
        if (call == kWarmUp) {
            before = ResidentKb();
            heapBefore = HeapBytesInUse();
        }
        RPM_RESULT result = rpm_verify(package.c_str(), key.c_str());
        if (result.status != expected || result.message == nullptr) {
            ++wrong;
        }
        std::free(result.message);
    }
    [[maybe_unused]] const long heapGrowth = HeapBytesInUse() - heapBefore;
    const size_t after = ResidentKb();
    EXPECT_EQ(0, wrong) << what;
    const long growth = static_cast<long>(after) - static_cast<long>(before);
    std::printf("%s: %d calls, resident memory %zu kB -> %zu kB (%+ld kB, %+ld bytes per call)\n", what,
                kCalls, before, after, growth, growth * 1024 / kCalls);
#ifdef SIGNING_TEST_SANITIZED
    // Freed memory is held in the sanitizer's quarantine, so the resident
    // size says nothing here; the leak checker does.
    (void)keyLoadsPerCall;
    EXPECT_EQ(0, __lsan_do_recoverable_leak_check()) << what << ": LeakSanitizer reported leaks";
#else
    // The package's file object, signer, digests and parsed signatures must
    // all be released every time. What stays is what the certificate store
    // keeps by design: every PGP signature check loads the key anew, and a
    // certificate once handed out is never destroyed.
    const long allowed =
        1024 + static_cast<long>(keyLoadsPerCall) * kCalls * kRetainedCertificateBytes / 1024;
    EXPECT_LT(growth, allowed) << what << ": resident memory grew by " << growth << " kB";
    const long heapAllowed =
        kHeapSlackBytes + static_cast<long>(keyLoadsPerCall) * kCalls * kRetainedCertificateBytes;
    EXPECT_LT(heapGrowth, heapAllowed)
        << what << ": the heap grew by " << heapGrowth << " bytes, " << heapGrowth / kCalls << " per call";
#endif
}

class LeakCheck : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_FIXTURE(Fixture("rpm/signed-rsa2048-sha256.rpm"));
        REQUIRE_FIXTURE(Fixture("keys/rsa2048.asc"));
        m_Package = Fixture("rpm/signed-rsa2048-sha256.rpm");
        m_Key = Fixture("keys/rsa2048.asc");
    }

    std::string m_Package;
    std::string m_Key;
    TempDir m_Dir;
};

// The one growth by design, measured on its own: each key load leaves one
// certificate in the store.
TEST_F(LeakCheck, CertificateStoreKeepsEachLoadedKey) {
    CertificateManager* store = CertificateManager::Acquire();
    store->SetPgpPublicKeyFilePath(m_Key);
    for (int load = 0; load < kWarmUp; ++load) {
        store->LoadPgpPublicKey();
    }
    const size_t before = ResidentKb();
    for (int load = 0; load < kCalls; ++load) {
        ASSERT_NE(nullptr, store->LoadPgpPublicKey());
    }
    const long growth = static_cast<long>(ResidentKb()) - static_cast<long>(before);
    std::printf("key loads: %d loads, resident memory %+ld kB, %+ld bytes per load\n", kCalls, growth,
                growth * 1024 / kCalls);
#ifndef SIGNING_TEST_SANITIZED
    EXPECT_LT(growth * 1024 / kCalls, kRetainedCertificateBytes);
#else
    EXPECT_EQ(0, __lsan_do_recoverable_leak_check()) << "LeakSanitizer reported leaks";
#endif
}

TEST_F(LeakCheck, ValidPackage) {
    VerifyMany(m_Package, m_Key, RPM_SIGNED, "valid package", 2);
}

TEST_F(LeakCheck, TamperedPayload) {
    REQUIRE_FIXTURE(Fixture("rpm/tampered-payload.rpm"));
    VerifyMany(Fixture("rpm/tampered-payload.rpm"), m_Key, RPM_INVALID_HASH, "tampered payload");
}

TEST_F(LeakCheck, SignedWithAnotherKey) {
    REQUIRE_FIXTURE(Fixture("rpm/signed-other2048-sha256.rpm"));
    VerifyMany(Fixture("rpm/signed-other2048-sha256.rpm"), m_Key, RPM_INVALID_SIGNATURE,
               "signed with another key", 1);
}

// The header-and-payload signature is broken after the header-only one has
// been built, so the signature container is given up half made.
TEST_F(LeakCheck, MalformedPayloadSignature) {
    std::string package = ReadFile(m_Package);
    const testsupport::PackageLayout layout(package);
    const size_t blob = layout.DataOf(package, 1002).first;
    ASSERT_LT(layout.DataOf(package, 268).first, blob);
    package[blob] = '\xC2'; // a new-format packet header
    const std::string path = m_Dir.File("malformed.rpm");
    WriteFile(path, package);
    VerifyMany(path, m_Key, RPM_ERROR, "malformed payload signature");
}

// Cut inside the main header: parsing ends while the digests are prepared.
TEST_F(LeakCheck, TruncatedPackage) {
    std::string package = ReadFile(m_Package);
    const size_t mainHeader = testsupport::PackageLayout(package).mainHeader;
    const std::string path = m_Dir.File("truncated.rpm");
    WriteFile(path, package.substr(0, mainHeader + 100));
    VerifyMany(path, m_Key, RPM_ERROR, "truncated package");
}

// A key whose modulus claims more bytes than the key holds: the key message
// is given up after its first packets were read.
TEST_F(LeakCheck, MalformedKey) {
    const std::string armor = ReadFile(m_Key);
    // The first Base64 line begins "mQ" (0x99 0x01...); the modulus bit count
    // is at decoded offset 9, in characters 12-15 of the body.
    const size_t body = armor.find("\n\n") + 2;
    ASSERT_EQ("mQ", armor.substr(body, 2));
    std::string broken = armor;
    broken.replace(body + 12, 4, "////"); // bytes 9-11 become FF FF FF
    const std::string path = m_Dir.File("broken.asc");
    WriteFile(path, broken);
    VerifyMany(m_Package, path, RPM_ERROR, "malformed key");
}

TEST_F(LeakCheck, NotAPackage) {
    REQUIRE_FIXTURE(Fixture("rpm/notapackage.rpm"));
    VerifyMany(Fixture("rpm/notapackage.rpm"), m_Key, RPM_ERROR, "not a package");
}

TEST_F(LeakCheck, MissingFiles) {
    VerifyMany(m_Dir.File("no-such.rpm"), m_Key, RPM_ERROR, "missing package");
    VerifyMany(m_Package, m_Dir.File("no-such.asc"), RPM_ERROR, "missing key");
}

} // namespace
