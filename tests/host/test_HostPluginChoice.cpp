// Which plug-in signing-host loads: the one beside it or in the folder
// above, or the one --plugin names; one that does not load, or lacks the
// entry points, stops the run.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

TEST_F(HostProgramTest, RunUsesThePluginBesideItOrInTheFolderAbove) {
    std::string bin = m_Work.File("bin");
    mkdir(bin.c_str(), 0755);
    ASSERT_EQ(testsupport::Run("cp " + ShellQuote(kHost) + " " + ShellQuote(bin + "/signing-host") +
                               " && cp " + ShellQuote(testsupport::PluginPath()) + " " +
                               ShellQuote(m_Work.File("signing.so")))
                  .exitCode,
              0);
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signature", Key()}}));

    testsupport::CommandResult result = testsupport::Run(ShellQuote(bin + "/signing-host") + " run --json " +
                                                         ShellQuote(manifest) + " 2>/dev/null");

    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(json::parse(result.output)["plugin"], m_Work.File("signing.so"));
}

TEST_F(HostProgramTest, PluginPathThatDoesNotLoadStopsTheRun) {
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signature", Key()}}));
    std::string notALibrary = m_Work.File("not-a-library.so");
    WriteFile(notALibrary, "just text\n");

    HostResult text = Host({"run", "--plugin", notALibrary, manifest});
    HostResult missing = Host({"run", "--plugin", m_Work.File("absent.so"), manifest});
    HostResult other = Host({"run", "--plugin", SIGNING_OTHER_PLUGIN_PATH, manifest});

    EXPECT_EQ(text.exitCode, 2);
    EXPECT_EQ(text.err.rfind("signing-host run: cannot load the plug-in '" + notALibrary + "': ", 0), 0u)
        << text.err;
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.err,
              "signing-host run: the plug-in '" + m_Work.File("absent.so") +
                  "' does not exist or is not a file; build it with 'make build' or name it with "
                  "--plugin PATH\n");
    EXPECT_EQ(other.exitCode, 2);
    EXPECT_EQ(other.err.rfind(std::string("signing-host run: the plug-in '") + SIGNING_OTHER_PLUGIN_PATH +
                                  "' has no entry point 'signing_validate_package_list': ",
                              0),
              0u)
        << other.err;
    EXPECT_EQ(other.out, "");
}
