// Memory while verifying follows the bytes really read, not the sizes a
// package claims: sparse packages of GBs (a few KB on disk) that claim a
// huge signature header or main header are verified by the reference host
// with about the memory a real package needs. The peak is measured by
// /usr/bin/time around the whole process.
#include "Fixtures.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

using testsupport::ShellQuote;

const std::string kHost = SIGNING_HOST_PATH;

// Peak resident memory in KiB of one verification, and its output line.
struct Measured {
    long peakKiB;
    std::string output;
};

Measured Verify(const testsupport::TempDir& folder, const std::string& package) {
    const std::string peakFile = folder.File("peak.txt");
    const testsupport::CommandResult result = testsupport::Run(
        "/usr/bin/time -o " + ShellQuote(peakFile) + " -f %M " + ShellQuote(kHost) + " verify --key " +
        ShellQuote(fixtures::KeyArmored("rsa2048")) + " " + ShellQuote(package) + " 2>/dev/null");
    // time writes the peak on the last line (after a note on a non-zero exit status).
    std::string text = testsupport::ReadFile(peakFile);
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return Measured{std::stol(text.substr(text.rfind('\n') + 1)), result.output};
}

void PutBe32(std::vector<unsigned char>& data, size_t at, uint32_t value) {
    data[at] = static_cast<unsigned char>(value >> 24);
    data[at + 1] = static_cast<unsigned char>(value >> 16);
    data[at + 2] = static_cast<unsigned char>(value >> 8);
    data[at + 3] = static_cast<unsigned char>(value);
}

// Writes the bytes and makes the file `size` bytes long without writing more.
void WriteSparse(const std::string& path, const std::vector<unsigned char>& data, off_t size) {
    testsupport::WriteBytes(path, data);
    ASSERT_EQ(0, truncate(path.c_str(), size));
}

TEST(BoundedMemory, HugeClaimsCostNoMemory) {
    ASSERT_EQ(0, testsupport::Run("test -x /usr/bin/time").exitCode)
        << "/usr/bin/time (package time) is needed";
    testsupport::TempDir folder;
    const std::string original = fixtures::Package("signed-rsa2048-sha256.rpm");
    REQUIRE_FIXTURE(original);
    const Measured baseline = Verify(folder, original);
    EXPECT_NE(std::string::npos, baseline.output.find("RPM_SIGNED (0)")) << baseline.output;
    const long allowance = 64 * 1024; // KiB over what a real package needs

    std::vector<unsigned char> data = testsupport::ReadBytes(original);
    fixtures::RpmRegions regions;
    ASSERT_TRUE(fixtures::ParseRpmRegions(data, regions));

    // A 3.9 GB package whose signature header claims a data store of 3.8 GB.
    {
        std::vector<unsigned char> sparse = data;
        PutBe32(sparse, 108, 3800000000u);
        const std::string path = folder.File("signature-claim.rpm");
        WriteSparse(path, sparse, 3900000000LL);
        const Measured run = Verify(folder, path);
        EXPECT_EQ(path + ": RPM_ERROR (5) Internal error occured while verifying " + path + "\n", run.output);
        EXPECT_LT(run.peakKiB, baseline.peakKiB + allowance) << "baseline " << baseline.peakKiB;
    }

    // A 220 MB package whose main header claims 192 MiB of data: it is
    // hashed as it is read, and the MD5 then differs.
    {
        std::vector<unsigned char> sparse(data.begin(), data.begin() + static_cast<long>(regions.payload));
        PutBe32(sparse, regions.mainHeader + 12, regions.mainDataSize + 192u * 1024 * 1024);
        const std::string path = folder.File("main-claim.rpm");
        WriteSparse(path, sparse, 220000000LL);
        const Measured run = Verify(folder, path);
        EXPECT_EQ(path + ": RPM_INVALID_HASH (3) " + path + " has invalid hash.\n", run.output);
        EXPECT_LT(run.peakKiB, baseline.peakKiB + allowance) << "baseline " << baseline.peakKiB;
    }
}

} // namespace
