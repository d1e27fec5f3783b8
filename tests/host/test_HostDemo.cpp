// The demo script, run as a whole twice against the built host program and
// plug-in.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

using namespace hostprogram;

TEST_F(HostProgramTest, DemoRunsEndToEnd) {
    // The demo writes into <build dir>/demo; a private build folder of
    // links keeps it out of the real one.
    std::string build = m_Work.File("build");
    mkdir(build.c_str(), 0755);
    ASSERT_EQ(symlink(kHost.c_str(), (build + "/signing-host").c_str()), 0);
    ASSERT_EQ(symlink(testsupport::PluginPath().c_str(), (build + "/signing.so").c_str()), 0);

    testsupport::CommandResult first =
        testsupport::Run("bash " + ShellQuote(SIGNING_DEMO_SCRIPT) + " " + ShellQuote(build) + " 2>" +
                         ShellQuote(m_Work.File("demo.err")));
    // Running it a second time starts afresh.
    testsupport::CommandResult second =
        testsupport::Run("bash " + ShellQuote(SIGNING_DEMO_SCRIPT) + " " + ShellQuote(build) + " 2>" +
                         ShellQuote(m_Work.File("demo.err")));

    ASSERT_EQ(first.exitCode, 0) << first.output << ReadFile(m_Work.File("demo.err"));
    ASSERT_EQ(second.exitCode, 0) << second.output << ReadFile(m_Work.File("demo.err"));
    for (const std::string& line : {
             std::string(
                 "  PASS  Demo Suite/hello: RPM_SIGNED (0) packages/hello-1.0-1.noarch.rpm is signed."),
             std::string(
                 "  PASS  Demo Suite/tools: RPM_SIGNED (0) packages/tools-2.1-1.noarch.rpm is signed."),
             std::string("  FAIL  Demo Suite/hello-tampered: RPM_INVALID_HASH (3) "
                         "packages/hello-tampered-1.0-1.noarch.rpm has invalid hash."),
             std::string(
                 "  FAIL  Demo Suite/extras-unsigned: RPM_ERROR (5) Internal error occured while verifying "
                 "packages/extras-0.9-1.noarch.rpm"),
             std::string("  FAIL  Demo Suite/hello-stranger: RPM_INVALID_SIGNATURE (2) "
                         "packages/hello-stranger-1.0-1.noarch.rpm has invalid signature."),
             std::string("  FAIL  Demo Suite/notes: RPM_ERROR (5) packages/notes-1.0-1.noarch.rpm is not an "
                         "RPM file."),
             std::string(
                 "  SKIP  Documentation/release-notes: not verified: its type \"txt\" is not \"rpm\""),
             std::string(kErrorShortLine),
             std::string("Result: 1 - a package failed the signature check"),
             std::string("Key service stopped."),
         }) {
        EXPECT_TRUE(HasLine(second.output, line)) << line << "\n" << second.output;
    }
    std::string log = ReadFile(build + "/demo/run.log");
    EXPECT_TRUE(
        Contains(log, "signing_get_public_key: public key obtained successfully [tmp/PUBLIC_KEY.PUB]"))
        << log;
    EXPECT_FALSE(PathExists(build + "/demo/keyservice.pid"));
    testsupport::Run("gpgconf --homedir " + ShellQuote(build + "/demo/gnupg") +
                     " --kill all >/dev/null 2>&1");
}
