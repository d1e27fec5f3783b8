// Reads that answer with less than asked, as network and FUSE file systems
// do: the reference host verifies packages under fiu-run, whose
// posix/io/rw/{read,pread}/reduce points make every read of the process
// deliver a random part (at least one byte) of what it asked for. The
// verdicts must be exactly those of an ordinary run.
#include "Fixtures.h"
#include "Sanitizer.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using testsupport::ShellQuote;

const std::string kHost = SIGNING_HOST_PATH;

std::string VerifyCommand(const std::string& key, const std::vector<std::string>& packages) {
    std::string command = ShellQuote(kHost) + " verify --key " + ShellQuote(key);
    for (const std::string& package : packages) {
        command += " " + ShellQuote(package);
    }
    return command + " 2>&1";
}

TEST(ShortReads, VerdictsAreThoseOfFullReads) {
    if (testsupport::kSanitized) {
        GTEST_SKIP() << "fiu-run preloads libfiu ahead of the AddressSanitizer runtime, which ASan refuses; "
                        "`make fault-injection` and the normal build run these";
    }
    ASSERT_EQ(0, testsupport::Run("command -v fiu-run").exitCode) << "fiu-run (fiu-utils) must be installed";
    const std::vector<std::string> packages = {fixtures::Package("signed-rsa2048-sha256.rpm"),
                                               fixtures::Package("signed-rsa2048-sha512.rpm"),
                                               fixtures::Package("signed-rsa2048-sha256.src.rpm"),
                                               fixtures::Package("tampered-payload.rpm"),
                                               fixtures::Package("tampered-header.rpm"),
                                               fixtures::Package("headeronly-rsa2048-sha256.rpm")};
    for (const std::string& package : packages) {
        REQUIRE_FIXTURE(package);
    }
    const std::string command = VerifyCommand(fixtures::KeyArmored("rsa2048"), packages);
    const testsupport::CommandResult full = testsupport::Run(command);
    // The first three are signed, the others are not.
    EXPECT_NE(std::string::npos, full.output.find(packages[0] + ": RPM_SIGNED (0)")) << full.output;
    EXPECT_NE(std::string::npos, full.output.find(packages[3] + ": RPM_INVALID_HASH (3)")) << full.output;

    for (int run = 0; run < 5; ++run) {
        const testsupport::CommandResult partial =
            // A sanitizer build must accept the preloaded library before its runtime.
            testsupport::Run("ASAN_OPTIONS=\"$ASAN_OPTIONS:verify_asan_link_order=0\" "
                             "fiu-run -x -c 'enable name=posix/io/rw/read/reduce' "
                             "-c 'enable name=posix/io/rw/pread/reduce' " +
                             command);
        EXPECT_EQ(full.exitCode, partial.exitCode) << run;
        EXPECT_EQ(full.output, partial.output) << run;
    }
}

} // namespace
