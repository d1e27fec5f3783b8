// signing-host verify: packages checked one by one with a given key, and
// the command's usage errors.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

TEST_F(HostProgramTest, VerifySignedPackageExitsZero) {
    HostResult result = Host({"verify", "--key", Key(), Package("signed-rsa2048-sha256.rpm")});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, Package("signed-rsa2048-sha256.rpm") + ": RPM_SIGNED (0) " +
                              Package("signed-rsa2048-sha256.rpm") + " is signed.\n");
}

TEST_F(HostProgramTest, VerifySignedTamperedAndNonPackageFilesInOneProcess) {
    HostResult result =
        Host({"verify", "--key", Key(), Package("signed-rsa2048-sha256.rpm"), Package("tampered-payload.rpm"),
              Package("notapackage.rpm"), Package("signed-rsa2048-sha1.rpm"), m_Work.File("missing.rpm")});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(LinesOf(result.out), (std::vector<std::string>{
                                       Package("signed-rsa2048-sha256.rpm") + ": RPM_SIGNED (0) " +
                                           Package("signed-rsa2048-sha256.rpm") + " is signed.",
                                       Package("tampered-payload.rpm") + ": RPM_INVALID_HASH (3) " +
                                           Package("tampered-payload.rpm") + " has invalid hash.",
                                       Package("notapackage.rpm") + ": RPM_ERROR (5) " +
                                           Package("notapackage.rpm") + " is not an RPM file.",
                                       Package("signed-rsa2048-sha1.rpm") + ": RPM_SIGNED (0) " +
                                           Package("signed-rsa2048-sha1.rpm") + " is signed.",
                                       m_Work.File("missing.rpm") +
                                           ": RPM_ERROR (5) File operation error: File not found: Cannot get "
                                           "status for '" +
                                           m_Work.File("missing.rpm") + "': No such file or directory",
                                   }));
}

TEST_F(HostProgramTest, VerifyAsJson) {
    HostResult result = Host({"verify", "--json", "--key=" + Key(), Package("signed-rsa2048-sha256.rpm"),
                              Package("tampered-payload.rpm"), Package("notapackage.rpm")});

    ASSERT_EQ(result.exitCode, 1) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["schema"], 1);
    EXPECT_EQ(document["summary"]["command"], "verify");
    EXPECT_EQ(document["summary"]["key"], Key());
    EXPECT_EQ(document["summary"]["all_signed"], false);
    auto record = [](size_t index, const std::string& path, int status, const std::string& name,
                     const std::string& outcome, const std::string& message) {
        return json{
            {"schema", 1},
            {"record", "package"},
            {"index", index},
            {"path", path},
            {"path_is_utf8", true},
            {"path_bytes",
             testsupport::Run("printf '%s' " + testsupport::ShellQuote(path) + " | base64 -w0").output},
            {"status", status},
            {"status_name", name},
            {"outcome", outcome},
            {"message", message}};
    };
    EXPECT_EQ(document["packages"],
              json::array({
                  record(0, Package("signed-rsa2048-sha256.rpm"), 0, "RPM_SIGNED", "signed",
                         Package("signed-rsa2048-sha256.rpm") + " is signed."),
                  record(1, Package("tampered-payload.rpm"), 3, "RPM_INVALID_HASH", "failed",
                         Package("tampered-payload.rpm") + " has invalid hash."),
                  record(2, Package("notapackage.rpm"), 5, "RPM_ERROR", "unchecked",
                         Package("notapackage.rpm") + " is not an RPM file."),
              }));
}

TEST_F(HostProgramTest, VerifySignedAsJsonExitsZero) {
    HostResult result =
        Host({"verify", "--json", "--key", Key("rsa4096"), Package("signed-rsa4096-sha256.rpm")});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["summary"]["all_signed"], true);
    EXPECT_EQ(document["summary"]["exit_code"], 0);
    EXPECT_EQ(document["packages"][0]["status_name"], "RPM_SIGNED");
}

TEST_F(HostProgramTest, VerifyUsageErrors) {
    HostResult noKey = Host({"verify", Package("signed-rsa2048-sha256.rpm")});
    HostResult noPackage = Host({"verify", "--key", Key()});
    HostResult missingKey =
        Host({"verify", "--key", m_Work.File("absent.asc"), Package("signed-rsa2048-sha256.rpm")});
    HostResult keyWithoutValue = Host({"verify", "--key"});
    HostResult otherPlugin = Host({"verify", "--plugin", SIGNING_OTHER_PLUGIN_PATH, "--key", Key(),
                                   Package("signed-rsa2048-sha256.rpm")});

    EXPECT_EQ(noKey.exitCode, 2);
    EXPECT_EQ(noKey.err,
              "signing-host verify: the public key is missing: give an armored public key file with "
              "--key KEY\nTry 'signing-host verify --help'.\n");
    EXPECT_EQ(noPackage.exitCode, 2);
    EXPECT_EQ(noPackage.err,
              "signing-host verify: no package given: name at least one package file after the "
              "options\nTry 'signing-host verify --help'.\n");
    // The command line is right, but nothing can be checked without the key.
    EXPECT_EQ(missingKey.exitCode, 3);
    EXPECT_EQ(missingKey.err, "signing-host verify: the key file '" + m_Work.File("absent.asc") +
                                  "' does not exist or is not a file\n");
    EXPECT_EQ(keyWithoutValue.exitCode, 2);
    EXPECT_EQ(keyWithoutValue.err,
              "signing-host verify: option '--key' needs a value\nTry 'signing-host verify --help'.\n");
    EXPECT_EQ(otherPlugin.exitCode, 2);
    EXPECT_TRUE(Contains(otherPlugin.err, "has no entry point 'rpm_verify'")) << otherPlugin.err;
    EXPECT_EQ(otherPlugin.out, "");
}
