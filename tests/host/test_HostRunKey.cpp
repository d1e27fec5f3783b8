// signing-host run: where the key comes from. A missing or invalid key ends
// with the plug-in's warning; the download goes through the real wget and
// curl to a loopback HTTP server.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

TEST_F(HostProgramTest, RunWithoutObtainableKeyRecordsADownloadWarningAndExitsThree) {
    std::string manifest =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")})));

    // Neither `which` nor a download tool: no key location at all.
    HostResult result = Host({"run", manifest}, "PATH=" + ShellQuote(ToolsOnly({})));

    EXPECT_EQ(result.exitCode, 3) << result.err;
    EXPECT_EQ(
        LinesOf(result.out),
        RunSummary(
            manifest,
            {
                "  ----  Suite/good: not checked: the plug-in stopped before the packages (no valid public "
                "key)",
                "Prerequisites (SIGNIFICANCE \";0\"):",
                "  warning  The public key could not be obtained. "
                "[SIGNING_prereq_war_signing_check_download_short_desc]",
                "           Neither the key service nor the local key file gave a public key (no wget or "
                "curl, "
                "the service did not answer, or no local key is configured), so no package signature was "
                "checked. [SIGNING_prereq_war_signing_check_download_full_desc]",
                "Result: 1 - no valid public key was obtained, so no package was checked",
                "Exit code: 3 - nothing failed, but something could not be checked",
            }));
    EXPECT_EQ(PluginLogLines(result.err),
              (std::vector<std::string>{"signing_validate_package_list: started",
                                        "signing_get_public_key: public key will be downloaded from QEL",
                                        "signing_get_public_key: request value [?id=]",
                                        "signing_get_public_key: public key will be downloaded from QEL",
                                        "signing_get_public_key: request value [?id=]",
                                        "signing_validate_package_list: unable to obtain public key location",
                                        "_signing_set_optional_prerequisite_status: ;0"}));
}

TEST_F(HostProgramTest, RunWithRefusedDownloadAsJsonShowsTheWarningEntries) {
    std::string url = "http://127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort()) + "/key.asc";
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signing_url", url}}));

    HostResult result = Host({"run", "--json", manifest});

    ASSERT_EQ(result.exitCode, 3) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["components"][0]["outcome"], "not checked");
    EXPECT_EQ(document["progress"], json::array({"0"}));
    EXPECT_EQ(document["session"]["SIGNIFICANCE"], ";0");
    EXPECT_EQ(document["session"]["SHORT_DESC"], ";SIGNING_prereq_war_signing_check_download_short_desc");
    EXPECT_EQ(document["session"]["FULL_DESC"], ";SIGNING_prereq_war_signing_check_download_full_desc");
    ASSERT_EQ(document["prerequisites"].size(), 1u);
    EXPECT_EQ(document["prerequisites"][0]["severity"], "warning");
    EXPECT_EQ(document["prerequisites"][0]["short"]["text"], "The public key could not be obtained.");
    // Two lookups of three refused attempts each (wget exit code 4).
    int refused = 0;
    for (const auto& line : document["log"]) {
        refused += line == "_signing_call_webservice: web service call failed with status 1024" ? 1 : 0;
    }
    EXPECT_EQ(refused, 6) << result.err;
}

TEST_F(HostProgramTest, RunWithKeyFilesHoldingAUrlRecordsAValidateWarning) {
    std::string bad = KeyWithUrlLine("bad.asc");
    KeyWithUrlLine("local.asc");
    json manifest =
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}),
                 json{{"signature", bad}, {"SIGNING_LOCAL_PUBLIC_KEY", "${MANIFEST_DIR}/local.asc"}});
    std::string path = WriteManifest(manifest);

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 3) << result.err;
    EXPECT_TRUE(HasLine(result.out, "Prerequisites (SIGNIFICANCE \";0\"):")) << result.out;
    EXPECT_TRUE(HasLine(result.out, "  warning  The public key is not valid. "
                                    "[SIGNING_prereq_war_signing_check_validate_short_desc]"))
        << result.out;
    EXPECT_TRUE(
        HasLine(result.out, "Result: 1 - no valid public key was obtained, so no package was checked"));
    EXPECT_EQ(PluginLogLines(result.err),
              (std::vector<std::string>{"signing_validate_package_list: started", UserKeyLine(bad),
                                        "_signing_is_valid_key: public key contains incorrect value",
                                        UserKeyLine(m_Work.File("local.asc")),
                                        "_signing_is_valid_key: public key contains incorrect value",
                                        "signing_validate_package_list: public key is not valid",
                                        "_signing_set_optional_prerequisite_status: ;0"}));
}

TEST_F(HostProgramTest, RunWithInvalidUserKeyFallsBackToTheLocalKey) {
    std::string bad = KeyWithUrlLine("bad.asc");
    std::string manifest =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}),
                               json{{"signature", bad}, {"SIGNING_LOCAL_PUBLIC_KEY", Key()}}));

    HostResult result = Host({"run", "--json", manifest});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["session"]["signature"], Key());
    EXPECT_EQ(document["components"][0]["outcome"], "passed");
    EXPECT_EQ(document["prerequisites"], json::array());
}

TEST_F(HostProgramTest, RunDownloadsTheKeyWithRealWgetFromALoopbackServer) {
    ASSERT_EQ(testsupport::Run("command -v wget").exitCode, 0) << "wget must be installed";
    LoopbackHttpServer server(ServedKeyFolder("keys"), m_Work.File("server.log"));
    std::string temp = m_Work.File("temp");
    json manifest = Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm"),
                                          Component("tampered", "tampered-payload.rpm")}),
                             json{{"signing_url", server.Url("/keys/release.asc")}});
    manifest["products"][0]["environment"] = json{{"phonehome", {{"VokUpdateId", "UPD-9"}}}};
    std::string path = WriteManifest(manifest);

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 1) << result.err;
    std::string request = server.Url("/keys/release.asc") + "?id=UPD-9";
    std::string command = WgetCommand(request, temp + "/PUBLIC_KEY.PUB");
    EXPECT_TRUE(HasLine(result.err, CommandValueLine(command))) << result.err;
    EXPECT_TRUE(HasLine(result.err, KeyObtainedLine(temp + "/PUBLIC_KEY.PUB"))) << result.err;
    EXPECT_TRUE(Contains(server.RequestLog(), "\"GET /keys/release.asc?id=UPD-9 HTTP/1.1\" 200"))
        << server.RequestLog();
    EXPECT_EQ(ReadFile(temp + "/PUBLIC_KEY.PUB"), ReadFile(Key()));
    EXPECT_TRUE(HasLine(result.out, PassLine("good", Package("signed-rsa2048-sha256.rpm")))) << result.out;
    EXPECT_TRUE(HasLine(result.out, "  FAIL  Suite/tampered: RPM_INVALID_HASH (3) " +
                                        Package("tampered-payload.rpm") + " has invalid hash."))
        << result.out;
}

TEST_F(HostProgramTest, RunDownloadsTheKeyWithRealCurlWhenOnlyCurlIsInstalled) {
    LoopbackHttpServer server(ServedKeyFolder(), m_Work.File("server.log"));
    std::string temp = m_Work.File("temp");
    json manifest = Manifest(json::array({Component("good", "signed-rsa2048-sha512.rpm")}),
                             json{{"SIGNING_DEFAULT_URL", server.Url("/release.asc")}});
    // The identifier comes from a component's nested environment.
    manifest["products"][0]["components"][0]["environment"] = json{{"phonehome", {{"VokUpdateId", "UPD-C"}}}};
    std::string path = WriteManifest(manifest);
    std::string tools = ToolsOnly({"sh", "which", "curl"});

    HostResult result = Host({"run", path}, "PATH=" + ShellQuote(tools));

    EXPECT_EQ(result.exitCode, 0) << result.err;
    std::string request = server.Url("/release.asc") + "?id=UPD-C";
    std::string command = CurlCommand(request, temp + "/PUBLIC_KEY.PUB");
    EXPECT_TRUE(HasLine(result.err, CommandValueLine(command))) << result.err;
    EXPECT_TRUE(Contains(server.RequestLog(), "\"GET /release.asc?id=UPD-C HTTP/1.1\" 200"))
        << server.RequestLog();
    EXPECT_TRUE(HasLine(result.out, PassLine("good", Package("signed-rsa2048-sha512.rpm")))) << result.out;
}
