// signing-host run: a manifest's packages checked in one session, with the
// summary, the JSON output, the log file and the progress display.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

TEST_F(HostProgramTest, RunAllSignedExitsZeroWithOnePassLinePerComponent) {
    std::string manifest = WriteManifest(AllSignedManifest());

    HostResult result = Host({"run", manifest});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(LinesOf(result.out),
              RunSummary(manifest, {
                                       PassLine("one", Package("signed-rsa2048-sha1.rpm")),
                                       PassLine("two", Package("signed-rsa2048-sha256.rpm")),
                                       PassLine("three", Package("signed-rsa2048-sha512.rpm")),
                                       "Prerequisites (SIGNIFICANCE \"\"):",
                                       "  none recorded",
                                       "Result: 0 - every package that was verified is signed",
                                   }));
    // Standard error is not a terminal: the log and plain progress lines.
    EXPECT_EQ(LinesOf(result.err), (std::vector<std::string>{
                                       "signing_validate_package_list: started",
                                       "progress: 0%",
                                       UserKeyLine(Key()),
                                       "progress: 33% Suite/one",
                                       SignedLine(Package("signed-rsa2048-sha1.rpm")),
                                       "progress: 66% Suite/two",
                                       SignedLine(Package("signed-rsa2048-sha256.rpm")),
                                       "progress: 100% Suite/three",
                                       SignedLine(Package("signed-rsa2048-sha512.rpm")),
                                       "signing_validate_package_list: finished",
                                   }));
}

TEST_F(HostProgramTest, RunAllSignedAsJson) {
    std::string manifest = WriteManifest(AllSignedManifest());

    HostResult result = Host({"run", "--json", manifest});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["command"], "run");
    EXPECT_EQ(document["result"], 0);
    EXPECT_EQ(document["manifest"], manifest);
    EXPECT_EQ(document["progress"], json::array({"0", "33", "66", "100"}));
    ASSERT_EQ(document["components"].size(), 3u);
    EXPECT_EQ(document["components"][1],
              (json{{"product", "Suite"},
                    {"name", "two"},
                    {"type", "rpm"},
                    {"path", Package("signed-rsa2048-sha256.rpm")},
                    {"path_is_utf8", true},
                    {"path_bytes",
                     testsupport::Run("printf '%s' " + ShellQuote(Package("signed-rsa2048-sha256.rpm")) +
                                      " | base64 -w0")
                         .output},
                    {"outcome", "passed"},
                    {"status", 0},
                    {"statusName", "RPM_SIGNED"},
                    {"message", Package("signed-rsa2048-sha256.rpm") + " is signed."}}));
    EXPECT_EQ(document["prerequisites"], json::array());
    EXPECT_EQ(document["session"]["operation_progress"], "100");
    EXPECT_EQ(document["session"]["signature"], Key());
    EXPECT_EQ(document["session"]["PACKAGES"], Fixture("rpm"));
    EXPECT_FALSE(document["session"].contains("SIGNIFICANCE"));
    EXPECT_EQ(document["log"].front(), "signing_validate_package_list: started");
    EXPECT_EQ(document["log"].back(), "signing_validate_package_list: finished");
}

TEST_F(HostProgramTest, RunWithOneTamperedPackageAmongSeveralExitsOne) {
    std::string manifest =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm"),
                                            Component("tampered", "tampered-payload.rpm"),
                                            Component("other-key", "signed-other2048-sha256.rpm"),
                                            Component("also-good", "signed-rsa2048-sha512.rpm")}),
                               json{{"signature", Key()}}));

    HostResult result = Host({"run", manifest});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(
        LinesOf(result.out),
        RunSummary(manifest, {
                                 PassLine("good", Package("signed-rsa2048-sha256.rpm")),
                                 "  FAIL  Suite/tampered: RPM_INVALID_HASH (3) " +
                                     Package("tampered-payload.rpm") + " has invalid hash.",
                                 "  FAIL  Suite/other-key: RPM_INVALID_SIGNATURE (2) " +
                                     Package("signed-other2048-sha256.rpm") + " has invalid signature.",
                                 PassLine("also-good", Package("signed-rsa2048-sha512.rpm")),
                                 "Prerequisites (SIGNIFICANCE \";1\"):",
                                 kErrorShortLine,
                                 "           At least one package is not signed with the expected key, or "
                                 "was changed after it "
                                 "was signed. Do not install it; the log names each package and the reason. "
                                 "[SIGNING_prereq_err_signing_check_full_desc]",
                                 "Result: 1 - a package failed the signature check",
                             }));
    EXPECT_TRUE(HasLine(result.err, "signing_validate_package_list: ;1")) << result.err;
}

TEST_F(HostProgramTest, RunWithOneTamperedPackageAsJsonKeepsEarlierPrerequisites) {
    json session{{"signature", Key()},
                 {"SIGNIFICANCE", ";0"},
                 {"SHORT_DESC", ";OTHER_PLUGIN_short"},
                 {"FULL_DESC", ";OTHER_PLUGIN_full"}};
    std::string manifest = WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm"),
                                                               Component("tampered", "tampered-header.rpm")}),
                                                  session));

    HostResult result = Host({"run", "--json", manifest});

    ASSERT_EQ(result.exitCode, 1) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["result"], 1);
    EXPECT_EQ(document["components"][0]["outcome"], "passed");
    EXPECT_EQ(document["components"][1]["outcome"], "failed");
    EXPECT_EQ(document["components"][1]["status"], 3);
    EXPECT_EQ(document["components"][1]["statusName"], "RPM_INVALID_HASH");
    EXPECT_EQ(document["session"]["SIGNIFICANCE"], ";0;1");
    EXPECT_EQ(document["session"]["SHORT_DESC"],
              ";OTHER_PLUGIN_short;SIGNING_prereq_err_signing_check_short_desc");
    EXPECT_EQ(document["prerequisites"],
              json::array({
                  json{{"significance", "0"},
                       {"severity", "warning"},
                       {"short", {{"id", "OTHER_PLUGIN_short"}, {"text", ""}}},
                       {"full", {{"id", "OTHER_PLUGIN_full"}, {"text", ""}}}},
                  json{{"significance", "1"},
                       {"severity", "error"},
                       {"short",
                        {{"id", "SIGNING_prereq_err_signing_check_short_desc"},
                         {"text", "A package failed the signature check."}}},
                       {"full",
                        {{"id", "SIGNING_prereq_err_signing_check_full_desc"},
                         {"text",
                          "At least one package is not signed with the expected key, or was changed after "
                          "it was signed. Do not install it; the log names each package and the reason."}}}},
              }));
}

TEST_F(HostProgramTest, RunWithoutTempFolderUsesItsOwnAndRemovesIt) {
    LoopbackHttpServer server(ServedKeyFolder(), m_Work.File("server.log"));
    std::string tmpdir = m_Work.File("tmpdir");
    mkdir(tmpdir.c_str(), 0755);
    json manifest = Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}),
                             json{{"signing_url", server.Url("/release.asc")}});
    manifest["session"].erase("TEMP_FOLDER");
    std::string path = WriteManifest(manifest);

    HostResult result = Host({"run", "--json", path}, "TMPDIR=" + ShellQuote(tmpdir));

    ASSERT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    std::string temp = document["session"]["TEMP_FOLDER"];
    EXPECT_EQ(temp.compare(0, tmpdir.size() + 14, tmpdir + "/signing-host-"), 0) << temp;
    EXPECT_TRUE(HasLine(result.err, KeyObtainedLine(temp + "/PUBLIC_KEY.PUB"))) << result.err;
    EXPECT_FALSE(PathExists(temp));
}

TEST_F(HostProgramTest, RunSkipsMissingAndNonRpmComponentsAcrossProducts) {
    json manifest{
        {"session", {{"signature", Key()}, {"TEMP_FOLDER", m_Work.Path()}}},
        {"variables", {{"PACKAGES", Fixture("rpm")}}},
        {"products",
         json::array({json{{"name", "Empty"}},
                      json{{"name", "Docs"},
                           {"components", json::array({Component("manual", "notapackage.rpm", "txt"),
                                                       Component("ghost", "no-such-package.rpm")})}},
                      json{{"name", "Core"},
                           {"components", json::array({Component("core", "signed-rsa4096-sha1.rpm")})}}})}};
    std::string path = WriteManifest(manifest);

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(LinesOf(result.out)[2], "  SKIP  Docs/manual: not verified: its type \"txt\" is not \"rpm\"");
    EXPECT_EQ(LinesOf(result.out)[3], "  SKIP  Docs/ghost: not verified: the package file " +
                                          Package("no-such-package.rpm") + " is missing");
    EXPECT_EQ(LinesOf(result.out)[4], "  FAIL  Core/core: RPM_INVALID_SIGNATURE (2) " +
                                          Package("signed-rsa4096-sha1.rpm") + " has invalid signature.");
    EXPECT_TRUE(Contains(result.err, "progress: 33% Docs/manual\n")) << result.err;
    EXPECT_TRUE(Contains(result.err, "progress: 66% Docs/ghost\n"));
    EXPECT_TRUE(Contains(result.err, "progress: 100% Core/core\n"));
}

TEST_F(HostProgramTest, RunWithNoProductsExitsZero) {
    std::string path = WriteManifest(json{{"session", {{"signature", Key()}}}, {"products", json::array()}});

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(LinesOf(result.out),
              RunSummary(path, {"  (none)", "Prerequisites (SIGNIFICANCE \"\"):", "  none recorded",
                                "Result: 0 - every package that was verified is signed"}));
}

TEST_F(HostProgramTest, RunWritesTheLogFileToo) {
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signature", Key()}}));
    std::string logFile = m_Work.File("run.log");

    HostResult result = Host({"run", "--log", logFile, manifest});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::vector<std::string> expected{"signing_validate_package_list: started", UserKeyLine(Key()),
                                      SignedLine(Package("signed-rsa2048-sha256.rpm")),
                                      "signing_validate_package_list: finished"};
    EXPECT_EQ(LinesOf(ReadFile(logFile)), expected);
    EXPECT_EQ(PluginLogLines(result.err), expected);
}

TEST_F(HostProgramTest, RunDrawsAProgressBarOnATerminal) {
    if (testsupport::Run("command -v script").exitCode != 0) {
        GTEST_SKIP() << "script (util-linux) is not installed";
    }
    std::string manifest =
        WriteManifest(Manifest(json::array({Component("one", "signed-rsa2048-sha1.rpm"),
                                            Component("two", "signed-rsa2048-sha256.rpm")}),
                               json{{"signature", Key()}}));
    // script gives the program a terminal; standard output goes to a file.
    std::string inner =
        ShellQuote(kHost) + " run " + ShellQuote(manifest) + " >" + ShellQuote(m_Work.File("summary.txt"));
    testsupport::CommandResult result =
        testsupport::Run("script -qec " + ShellQuote(inner) + " /dev/null </dev/null");

    EXPECT_EQ(result.exitCode, 0) << result.output;
    // Components done out of all, elapsed time, time left, the component.
    EXPECT_TRUE(Contains(result.output, "\r\033[K[------------------------------] 0/2 0:0")) << result.output;
    EXPECT_TRUE(Contains(result.output, "  Suite/one")) << result.output;
    EXPECT_TRUE(Contains(result.output, "\r\033[K[###############---------------] 1/2 0:0")) << result.output;
    EXPECT_TRUE(Contains(result.output, "  Suite/two")) << result.output;
    EXPECT_FALSE(Contains(result.output, "progress: "));
    EXPECT_TRUE(Contains(ReadFile(m_Work.File("summary.txt")), "Result: 0 - "));
}
