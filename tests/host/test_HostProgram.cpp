// End-to-end tests of the reference host program: signing-host runs as a
// separate process on manifests and packages made here, loads the built
// plug-in with dlopen, and is judged by its exit code, its summary and its
// JSON output. The key download goes through the real wget and curl to a
// loopback HTTP server; the demo script runs as a whole.
#include "Fixtures.h"
#include "HostSession.h"
#include "LoopbackServer.h"
#include "PluginLogLines.h"
#include "TestSupport.h"
#include "ToolPath.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using fixtures::Package;
using nlohmann::json;
using testsupport::CommandValueLine;
using testsupport::CurlCommand;
using testsupport::Fixture;
using testsupport::KeyObtainedLine;
using testsupport::LoopbackHttpServer;
using testsupport::PathExists;
using testsupport::ReadFile;
using testsupport::ShellQuote;
using testsupport::SignedLine;
using testsupport::TempDir;
using testsupport::UserKeyLine;
using testsupport::WgetCommand;
using testsupport::WriteFile;

namespace {

const std::string kHost = SIGNING_HOST_PATH;

std::string Key(const std::string& name = "rsa2048") {
    return fixtures::KeyArmored(name);
}

struct HostResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

bool HasLine(const std::string& text, const std::string& line) {
    for (const std::string& candidate : LinesOf(text)) {
        if (candidate == line) {
            return true;
        }
    }
    return false;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The lines of the plug-in's log on standard error, without the host's
// plain progress lines.
std::vector<std::string> PluginLogLines(const std::string& err) {
    std::vector<std::string> lines;
    for (const std::string& line : LinesOf(err)) {
        if (line.compare(0, 10, "progress: ") != 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

class HostProgramTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(PathExists(kHost)) << kHost;
        REQUIRE_FIXTURE(Key());
        REQUIRE_FIXTURE(Package("signed-rsa2048-sha256.rpm"));
    }

    // Runs signing-host with the arguments (each quoted) in the test's
    // folder; environment is a prefix of NAME=value assignments for `env`.
    HostResult Host(const std::vector<std::string>& arguments,
                    const std::string& environment = std::string()) {
        std::string command = "cd " + ShellQuote(_Work.Path()) + " && env -u http_proxy -u HTTP_PROXY " +
                              environment + " " + ShellQuote(kHost);
        for (const std::string& argument : arguments) {
            command += " " + ShellQuote(argument);
        }
        std::string errFile = _Work.File("stderr.txt");
        testsupport::CommandResult result = testsupport::Run(command + " 2>" + ShellQuote(errFile));
        HostResult host;
        host.exitCode = result.exitCode;
        host.out = result.output;
        host.err = PathExists(errFile) ? ReadFile(errFile) : std::string();
        return host;
    }

    std::string WriteManifest(const json& manifest, const std::string& name = "manifest.json") {
        std::string path = _Work.File(name);
        WriteFile(path, manifest.dump(2));
        return path;
    }

    static json Component(const std::string& name, const std::string& file, const std::string& type = "rpm") {
        return json{{"name", name}, {"type", type}, {"packageFolder", "${PACKAGES}"}, {"packageFile", file}};
    }

    // A manifest with the fixture packages under "${PACKAGES}", a temporary
    // folder of the test, and one product.
    json Manifest(const json& components, const json& session = json::object()) {
        json manifestSession = session;
        if (!manifestSession.contains("TEMP_FOLDER")) {
            std::string temp = _Work.File("temp");
            mkdir(temp.c_str(), 0755);
            manifestSession["TEMP_FOLDER"] = temp;
        }
        return json{{"session", manifestSession},
                    {"variables", {{"PACKAGES", Fixture("rpm")}}},
                    {"products", json::array({json{{"name", "Suite"}, {"components", components}}})}};
    }

    // A PATH with links to just the named real tools.
    std::string ToolsOnly(std::initializer_list<const char*> tools) {
        return testsupport::LinkTools(_Work.File("tools"), tools);
    }

    // Three components, rsa2048's packages with each digest, checked with
    // the user's key.
    json AllSignedManifest() {
        return Manifest(json::array({Component("one", "signed-rsa2048-sha1.rpm"),
                                     Component("two", "signed-rsa2048-sha256.rpm"),
                                     Component("three", "signed-rsa2048-sha512.rpm")}),
                        json{{"signature", Key()}});
    }

    std::string KeyWithUrlLine(const std::string& name) {
        std::string path = _Work.File(name);
        WriteFile(path, "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\nmoved to http://keys.example/release.asc\n"
                        "-----END PGP PUBLIC KEY BLOCK-----\n");
        return path;
    }

    TempDir _Work;
};

std::string PassLine(const std::string& component, const std::string& path) {
    return "  PASS  Suite/" + component + ": RPM_SIGNED (0) " + path + " is signed.";
}

const char kErrorShortLine[] =
    "  error    A package failed the signature check. [SIGNING_prereq_err_signing_check_short_desc]";

} // namespace

// ------------------------------------------------------------------- run

TEST_F(HostProgramTest, RunAllSignedExitsZeroWithOnePassLinePerComponent) {
    std::string manifest = WriteManifest(AllSignedManifest());

    HostResult result = Host({"run", manifest});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(LinesOf(result.out), (std::vector<std::string>{
                                       "Summary of " + manifest,
                                       "Components:",
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
        (std::vector<std::string>{
            "Summary of " + manifest,
            "Components:",
            PassLine("good", Package("signed-rsa2048-sha256.rpm")),
            "  FAIL  Suite/tampered: RPM_INVALID_HASH (3) " + Package("tampered-payload.rpm") +
                " has invalid hash.",
            "  FAIL  Suite/other-key: RPM_INVALID_SIGNATURE (2) " + Package("signed-other2048-sha256.rpm") +
                " has invalid signature.",
            PassLine("also-good", Package("signed-rsa2048-sha512.rpm")),
            "Prerequisites (SIGNIFICANCE \";1\"):",
            kErrorShortLine,
            "           At least one package is not signed with the expected key, or was changed after it "
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
                       {"short", {{"id", "OTHER_PLUGIN_short"}, {"text", nullptr}}},
                       {"full", {{"id", "OTHER_PLUGIN_full"}, {"text", nullptr}}}},
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

TEST_F(HostProgramTest, RunWithoutObtainableKeyRecordsADownloadWarningAndExitsOne) {
    std::string manifest =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")})));

    // Neither `which` nor a download tool: no key location at all.
    HostResult result = Host({"run", manifest}, "PATH=" + ShellQuote(ToolsOnly({})));

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(
        LinesOf(result.out),
        (std::vector<std::string>{
            "Summary of " + manifest,
            "Components:",
            "  ----  Suite/good: not checked: the plug-in stopped before the packages (no valid public key)",
            "Prerequisites (SIGNIFICANCE \";0\"):",
            "  warning  The public key could not be obtained. "
            "[SIGNING_prereq_war_signing_check_download_short_desc]",
            "           Neither the key service nor the local key file gave a public key (no wget or curl, "
            "the service did not answer, or no local key is configured), so no package signature was "
            "checked. [SIGNING_prereq_war_signing_check_download_full_desc]",
            "Result: 1 - no valid public key was obtained, so no package was checked",
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

    ASSERT_EQ(result.exitCode, 1) << result.err;
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

    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_TRUE(HasLine(result.out, "Prerequisites (SIGNIFICANCE \";0\"):")) << result.out;
    EXPECT_TRUE(HasLine(result.out, "  warning  The public key is not valid. "
                                    "[SIGNING_prereq_war_signing_check_validate_short_desc]"))
        << result.out;
    EXPECT_TRUE(
        HasLine(result.out, "Result: 1 - no valid public key was obtained, so no package was checked"));
    EXPECT_EQ(PluginLogLines(result.err),
              (std::vector<std::string>{"signing_validate_package_list: started", UserKeyLine(bad),
                                        "_signing_is_valid_key: public key contains incorrect value",
                                        UserKeyLine(_Work.File("local.asc")),
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
    std::string served = _Work.File("served");
    mkdir(served.c_str(), 0755);
    mkdir((served + "/keys").c_str(), 0755);
    WriteFile(served + "/keys/release.asc", ReadFile(Key()));
    LoopbackHttpServer server(served, _Work.File("server.log"));
    std::string temp = _Work.File("temp");
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
    std::string served = _Work.File("served");
    mkdir(served.c_str(), 0755);
    WriteFile(served + "/release.asc", ReadFile(Key()));
    LoopbackHttpServer server(served, _Work.File("server.log"));
    std::string temp = _Work.File("temp");
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

TEST_F(HostProgramTest, RunWithoutTempFolderUsesItsOwnAndRemovesIt) {
    std::string served = _Work.File("served");
    mkdir(served.c_str(), 0755);
    WriteFile(served + "/release.asc", ReadFile(Key()));
    LoopbackHttpServer server(served, _Work.File("server.log"));
    std::string tmpdir = _Work.File("tmpdir");
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
        {"session", {{"signature", Key()}, {"TEMP_FOLDER", _Work.Path()}}},
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
              (std::vector<std::string>{"Summary of " + path, "Components:", "  (none)",
                                        "Prerequisites (SIGNIFICANCE \"\"):", "  none recorded",
                                        "Result: 0 - every package that was verified is signed"}));
}

TEST_F(HostProgramTest, RunWritesTheLogFileToo) {
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signature", Key()}}));
    std::string logFile = _Work.File("run.log");

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
        ShellQuote(kHost) + " run " + ShellQuote(manifest) + " >" + ShellQuote(_Work.File("summary.txt"));
    testsupport::CommandResult result =
        testsupport::Run("script -qec " + ShellQuote(inner) + " /dev/null </dev/null");

    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_TRUE(Contains(result.output, "\r\033[K[###############---------------]  50%  Suite/one"))
        << result.output;
    EXPECT_TRUE(Contains(result.output, "\r\033[K[##############################] 100%  Suite/two"))
        << result.output;
    EXPECT_FALSE(Contains(result.output, "progress: "));
    EXPECT_TRUE(Contains(ReadFile(_Work.File("summary.txt")), "Result: 0 - "));
}

TEST_F(HostProgramTest, RunUsesThePluginBesideItOrInTheFolderAbove) {
    std::string bin = _Work.File("bin");
    mkdir(bin.c_str(), 0755);
    ASSERT_EQ(testsupport::Run("cp " + ShellQuote(kHost) + " " + ShellQuote(bin + "/signing-host") +
                               " && cp " + ShellQuote(testsupport::PluginPath()) + " " +
                               ShellQuote(_Work.File("signing.so")))
                  .exitCode,
              0);
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signature", Key()}}));

    testsupport::CommandResult result = testsupport::Run(ShellQuote(bin + "/signing-host") + " run --json " +
                                                         ShellQuote(manifest) + " 2>/dev/null");

    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(json::parse(result.output)["plugin"], _Work.File("signing.so"));
}

// ---------------------------------------------------------------- verify

TEST_F(HostProgramTest, VerifySignedPackageExitsZero) {
    HostResult result = Host({"verify", "--key", Key(), Package("signed-rsa2048-sha256.rpm")});

    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, Package("signed-rsa2048-sha256.rpm") + ": RPM_SIGNED (0) " +
                              Package("signed-rsa2048-sha256.rpm") + " is signed.\n");
}

TEST_F(HostProgramTest, VerifySignedTamperedAndNonPackageFilesInOneProcess) {
    HostResult result =
        Host({"verify", "--key", Key(), Package("signed-rsa2048-sha256.rpm"), Package("tampered-payload.rpm"),
              Package("notapackage.rpm"), Package("signed-rsa2048-sha1.rpm"), _Work.File("missing.rpm")});

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
                                       _Work.File("missing.rpm") +
                                           ": RPM_ERROR (5) File operation error: File not found: Cannot get "
                                           "status for '" +
                                           _Work.File("missing.rpm") + "': No such file or directory",
                                   }));
}

TEST_F(HostProgramTest, VerifyAsJson) {
    HostResult result = Host({"verify", "--json", "--key=" + Key(), Package("signed-rsa2048-sha256.rpm"),
                              Package("tampered-payload.rpm"), Package("notapackage.rpm")});

    ASSERT_EQ(result.exitCode, 1) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["command"], "verify");
    EXPECT_EQ(document["key"], Key());
    EXPECT_EQ(document["allSigned"], false);
    EXPECT_EQ(document["packages"],
              json::array({
                  json{{"path", Package("signed-rsa2048-sha256.rpm")},
                       {"status", 0},
                       {"statusName", "RPM_SIGNED"},
                       {"message", Package("signed-rsa2048-sha256.rpm") + " is signed."}},
                  json{{"path", Package("tampered-payload.rpm")},
                       {"status", 3},
                       {"statusName", "RPM_INVALID_HASH"},
                       {"message", Package("tampered-payload.rpm") + " has invalid hash."}},
                  json{{"path", Package("notapackage.rpm")},
                       {"status", 5},
                       {"statusName", "RPM_ERROR"},
                       {"message", Package("notapackage.rpm") + " is not an RPM file."}},
              }));
}

TEST_F(HostProgramTest, VerifySignedAsJsonExitsZero) {
    HostResult result =
        Host({"verify", "--json", "--key", Key("rsa4096"), Package("signed-rsa4096-sha256.rpm")});

    ASSERT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["allSigned"], true);
    EXPECT_EQ(document["packages"][0]["statusName"], "RPM_SIGNED");
}

// ----------------------------------------------------------- usage errors

TEST_F(HostProgramTest, NoCommandIsAUsageError) {
    HostResult result = Host({});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host: no command given\nTry 'signing-host --help'.\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, UnknownCommandIsAUsageError) {
    HostResult result = Host({"install", "x.json"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host: unknown command 'install' (the commands are run and verify)\n"
                          "Try 'signing-host --help'.\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, UnknownOptionIsAUsageError) {
    HostResult result = Host({"run", "--verbose", "x.json"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: unknown option '--verbose'\nTry 'signing-host run --help'.\n");
}

TEST_F(HostProgramTest, RunWithoutManifestIsAUsageError) {
    HostResult result = Host({"run"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: the manifest is missing: give the path of a JSON manifest\n"
                          "Try 'signing-host run --help'.\n");
}

TEST_F(HostProgramTest, MissingManifestFileStopsBeforeThePlugin) {
    HostResult result = Host({"run", _Work.File("absent.json")});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: cannot read the manifest '" + _Work.File("absent.json") +
                              "': No such file or directory\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, ManifestThatIsNotJsonIsRejectedWithThePosition) {
    std::string path = _Work.File("broken.json");
    WriteFile(path, "{ \"products\": [ }\n");

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err.rfind("signing-host run: the manifest '" + path +
                                   "' is not valid JSON: parse error at line 1, column 17: ",
                               0),
              0u)
        << result.err;
    EXPECT_FALSE(Contains(result.err, "signing_validate_package_list")) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, ManifestWithoutProductsNamesTheField) {
    std::string path = WriteManifest(json{{"session", {{"signature", Key()}}}});

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "signing-host run: the manifest '" + path + "' is missing the required field \"products\"\n");
}

TEST_F(HostProgramTest, ManifestComponentWithoutPackageFileNamesTheField) {
    json manifest =
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm"),
                              json{{"name", "half"}, {"type", "rpm"}, {"packageFolder", "/tmp"}}}),
                 json{{"signature", Key()}});
    std::string path = WriteManifest(manifest);

    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: the manifest '" + path +
                              "' is missing the required field \"products[0].components[1].packageFile\"\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(HostProgramTest, ManifestFieldsOfTheWrongKindOrUnknownAreNamed) {
    struct Case {
        json manifest;
        std::string problem;
    };
    std::vector<Case> cases{
        {json{{"products", json::object()}}, "has a field \"products\" that must be an array"},
        {json{{"products", json::array({json{{"name", 7}}})}},
         "has a field \"products[0].name\" that must be a text"},
        {json{{"session", {{"TEMP_FOLDER", 1}}}, {"products", json::array()}},
         "has a field \"session.TEMP_FOLDER\" that must be a text"},
        {json{{"products", json::array({json{{"name", "p"}, {"environment", {{"phonehome", 5}}}}})}},
         "has a field \"products[0].environment.phonehome\" that must be a text or an object (a nested "
         "environment)"},
        {json{{"products", json::array()}, {"prodcuts", json::array()}},
         "has an unknown field \"prodcuts\" (known here: \"description\", \"session\", \"variables\", "
         "\"products\")"},
        {json{{"session", {{"X", "a"}}}, {"variables", {{"X", "b"}}}, {"products", json::array()}},
         "gives \"X\" both in \"session\" and in \"variables\""},
        {json::array(), "must hold a JSON object at its top level"},
    };
    for (const Case& item : cases) {
        std::string path = WriteManifest(item.manifest);
        HostResult result = Host({"run", path});
        EXPECT_EQ(result.exitCode, 2) << item.problem;
        EXPECT_EQ(result.err, "signing-host run: the manifest '" + path + "' " + item.problem + "\n");
    }
}

TEST_F(HostProgramTest, PluginPathThatDoesNotLoadStopsTheRun) {
    std::string manifest = WriteManifest(
        Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}), json{{"signature", Key()}}));
    std::string notALibrary = _Work.File("not-a-library.so");
    WriteFile(notALibrary, "just text\n");

    HostResult text = Host({"run", "--plugin", notALibrary, manifest});
    HostResult missing = Host({"run", "--plugin", _Work.File("absent.so"), manifest});
    HostResult other = Host({"run", "--plugin", SIGNING_OTHER_PLUGIN_PATH, manifest});

    EXPECT_EQ(text.exitCode, 2);
    EXPECT_EQ(text.err.rfind("signing-host run: cannot load the plug-in '" + notALibrary + "': ", 0), 0u)
        << text.err;
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.err,
              "signing-host run: the plug-in '" + _Work.File("absent.so") +
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

TEST_F(HostProgramTest, VerifyUsageErrors) {
    HostResult noKey = Host({"verify", Package("signed-rsa2048-sha256.rpm")});
    HostResult noPackage = Host({"verify", "--key", Key()});
    HostResult missingKey =
        Host({"verify", "--key", _Work.File("absent.asc"), Package("signed-rsa2048-sha256.rpm")});
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
    EXPECT_EQ(missingKey.exitCode, 2);
    EXPECT_EQ(missingKey.err, "signing-host verify: the key file '" + _Work.File("absent.asc") +
                                  "' does not exist or is not a file\nTry 'signing-host verify --help'.\n");
    EXPECT_EQ(keyWithoutValue.exitCode, 2);
    EXPECT_EQ(keyWithoutValue.err,
              "signing-host verify: option '--key' needs a value\nTry 'signing-host verify --help'.\n");
    EXPECT_EQ(otherPlugin.exitCode, 2);
    EXPECT_TRUE(Contains(otherPlugin.err, "has no entry point 'rpm_verify'")) << otherPlugin.err;
    EXPECT_EQ(otherPlugin.out, "");
}

TEST_F(HostProgramTest, HelpAndVersion) {
    HostResult help = Host({"--help"});
    HostResult runHelp = Host({"run", "--help"});
    HostResult verifyHelp = Host({"verify", "-h"});
    HostResult version = Host({"--version"});
    HostResult runVersion = Host({"run", "--version"});

    EXPECT_EQ(help.exitCode, 0);
    EXPECT_EQ(help.out.rfind("Usage: signing-host COMMAND [OPTIONS] ARGUMENTS...\n", 0), 0u) << help.out;
    EXPECT_EQ(runHelp.exitCode, 0);
    EXPECT_EQ(
        runHelp.out.rfind("Usage: signing-host run [--plugin PATH] [--log FILE] [--json] MANIFEST\n", 0), 0u);
    EXPECT_TRUE(Contains(runHelp.out, "\"packageFolder\""));
    EXPECT_EQ(verifyHelp.exitCode, 0);
    EXPECT_EQ(verifyHelp.out.rfind("Usage: signing-host verify --key KEY", 0), 0u);
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out, "signing-host 1.0.0\n");
    EXPECT_EQ(runVersion.out, "signing-host 1.0.0\n");
}

TEST_F(HostProgramTest, ManifestExampleOfTheReadmeIsAccepted) {
    std::string readme = ReadFile(testsupport::SourceDir() + "/README.md");
    const std::string start = "### The manifest\n\n```json\n";
    size_t begin = readme.find(start);
    ASSERT_NE(begin, std::string::npos);
    begin += start.size();
    size_t end = readme.find("```", begin);
    ASSERT_NE(end, std::string::npos);
    std::string path = _Work.File("readme.json");
    WriteFile(path, readme.substr(begin, end - begin));

    // No download tools: the example's local key (missing here) is the
    // fallback, so the run ends with the validate warning.
    HostResult result = Host({"run", "--json", path}, "PATH=" + ShellQuote(ToolsOnly({})));

    ASSERT_EQ(result.exitCode, 1) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["components"].size(), 3u);
    EXPECT_EQ(document["session"]["signature"], _Work.Path() + "/release.asc");
    EXPECT_EQ(document["session"]["SHORT_DESC"], ";SIGNING_prereq_war_signing_check_validate_short_desc");
}

// ------------------------------------------------------------------ demo

TEST_F(HostProgramTest, DemoRunsEndToEnd) {
    // The demo writes into <build dir>/demo; a private build folder of
    // links keeps it out of the real one.
    std::string build = _Work.File("build");
    mkdir(build.c_str(), 0755);
    ASSERT_EQ(symlink(kHost.c_str(), (build + "/signing-host").c_str()), 0);
    ASSERT_EQ(symlink(testsupport::PluginPath().c_str(), (build + "/signing.so").c_str()), 0);

    testsupport::CommandResult first =
        testsupport::Run("bash " + ShellQuote(SIGNING_DEMO_SCRIPT) + " " + ShellQuote(build) + " 2>" +
                         ShellQuote(_Work.File("demo.err")));
    // Running it a second time starts afresh.
    testsupport::CommandResult second =
        testsupport::Run("bash " + ShellQuote(SIGNING_DEMO_SCRIPT) + " " + ShellQuote(build) + " 2>" +
                         ShellQuote(_Work.File("demo.err")));

    ASSERT_EQ(first.exitCode, 0) << first.output << ReadFile(_Work.File("demo.err"));
    ASSERT_EQ(second.exitCode, 0) << second.output << ReadFile(_Work.File("demo.err"));
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

// ------------------------------------------- the host library's listeners

TEST(HostListeners, LogListenerSeesEveryLineInOrderAndMayLogItself) {
    host::HostLog::WriteNowhere();
    host::HostLog::Clear();
    std::vector<std::string> seen;
    host::HostLog::SetListener([&seen](const std::string& line) {
        seen.push_back(line);
        if (line == "first 1") {
            // The listener runs outside the log's lock.
            print_log("echo of %s", line.c_str());
        }
    });

    print_log("first %d", 1);
    print_log("second %s", "line\n");
    host::HostLog::SetListener(nullptr);
    print_log("after removal");

    EXPECT_EQ(seen, (std::vector<std::string>{"first 1", "echo of first 1", "second line\n"}));
    EXPECT_EQ(host::HostLog::TakeLines(),
              (std::vector<std::string>{"first 1", "echo of first 1", "second line\n", "after removal"}));
    host::HostLog::WriteToStandardError();
}

TEST(HostListeners, WriteListenerSeesThePluginsWritesButNotTheHostsPresets) {
    host::HostSession session;
    std::vector<std::string> seen;
    session.SetWriteListener([&seen, &session](const std::string& key, const std::string& value) {
        // Called after the value is stored.
        seen.push_back(key + "=" + value + (session.Value(key) == value ? "" : " (not stored yet)"));
    });

    session.SetValue("TEMP_FOLDER", "/tmp");
    env_set_string(&session, "operation_progress", "0");
    env_set_string(&session, std::string("SIGNIFICANCE"), std::string(";1"));
    session.SetWriteListener(nullptr);
    env_set_string(&session, "operation_progress", "100");

    EXPECT_EQ(seen, (std::vector<std::string>{"operation_progress=0", "SIGNIFICANCE=;1"}));
    EXPECT_EQ(session.Writes("operation_progress"), (std::vector<std::string>{"0", "100"}));
}
