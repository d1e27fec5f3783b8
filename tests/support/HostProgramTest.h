// The fixture of the reference host program's end-to-end tests: signing-host
// runs as a separate process in the test's own folder, on manifests and
// packages made here, and is judged by its exit code, its summary and its
// JSON output. The tests are split by command (tests/host/test_Host*.cpp).
#ifndef SIGNING_TEST_HOST_PROGRAM_TEST_H
#define SIGNING_TEST_HOST_PROGRAM_TEST_H

#include "Fixtures.h"
#include "LoopbackServer.h"
#include "PluginLogLines.h"
#include "TestSupport.h"
#include "ToolPath.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <initializer_list>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace hostprogram {

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

inline const std::string kHost = SIGNING_HOST_PATH;

inline std::string Key(const std::string& name = "rsa2048") {
    return fixtures::KeyArmored(name);
}

struct HostResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline bool HasLine(const std::string& text, const std::string& line) {
    for (const std::string& candidate : LinesOf(text)) {
        if (candidate == line) {
            return true;
        }
    }
    return false;
}

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The lines of the plug-in's log on standard error, without the host's
// plain progress lines.
inline std::vector<std::string> PluginLogLines(const std::string& err) {
    std::vector<std::string> lines;
    for (const std::string& line : LinesOf(err)) {
        if (line.compare(0, 10, "progress: ") != 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

// What signing-host run prints for the manifest: its heading, then the
// component, prerequisite and result lines.
inline std::vector<std::string> RunSummary(const std::string& manifest, std::vector<std::string> lines) {
    lines.insert(lines.begin(), {"Summary of " + manifest, "Components:"});
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
        std::string command = "cd " + ShellQuote(m_Work.Path()) + " && env -u http_proxy -u HTTP_PROXY " +
                              environment + " " + ShellQuote(kHost);
        for (const std::string& argument : arguments) {
            command += " " + ShellQuote(argument);
        }
        std::string errFile = m_Work.File("stderr.txt");
        testsupport::CommandResult result = testsupport::Run(command + " 2>" + ShellQuote(errFile));
        HostResult host;
        host.exitCode = result.exitCode;
        host.out = result.output;
        host.err = PathExists(errFile) ? ReadFile(errFile) : std::string();
        return host;
    }

    std::string WriteManifest(const json& manifest, const std::string& name = "manifest.json") {
        std::string path = m_Work.File(name);
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
            std::string temp = m_Work.File("temp");
            mkdir(temp.c_str(), 0755);
            manifestSession["TEMP_FOLDER"] = temp;
        }
        return json{{"session", manifestSession},
                    {"variables", {{"PACKAGES", Fixture("rpm")}}},
                    {"products", json::array({json{{"name", "Suite"}, {"components", components}}})}};
    }

    // A PATH with links to just the named real tools.
    std::string ToolsOnly(std::initializer_list<const char*> tools) {
        return testsupport::LinkTools(m_Work.File("tools"), tools);
    }

    // Three components, rsa2048's packages with each digest, checked with
    // the user's key.
    json AllSignedManifest() {
        return Manifest(json::array({Component("one", "signed-rsa2048-sha1.rpm"),
                                     Component("two", "signed-rsa2048-sha256.rpm"),
                                     Component("three", "signed-rsa2048-sha512.rpm")}),
                        json{{"signature", Key()}});
    }

    // A folder for the loopback server with the fixture key as release.asc,
    // in the given sub-folder if one is named.
    std::string ServedKeyFolder(const std::string& subfolder = std::string()) {
        const std::string served = m_Work.File("served");
        const std::string keys = subfolder.empty() ? served : served + "/" + subfolder;
        mkdir(served.c_str(), 0755);
        mkdir(keys.c_str(), 0755);
        WriteFile(keys + "/release.asc", ReadFile(Key()));
        return served;
    }

    std::string KeyWithUrlLine(const std::string& name) {
        std::string path = m_Work.File(name);
        WriteFile(path, "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\nmoved to http://keys.example/release.asc\n"
                        "-----END PGP PUBLIC KEY BLOCK-----\n");
        return path;
    }

    TempDir m_Work;
};

inline std::string PassLine(const std::string& component, const std::string& path) {
    return "  PASS  Suite/" + component + ": RPM_SIGNED (0) " + path + " is signed.";
}

inline constexpr char kErrorShortLine[] =
    "  error    A package failed the signature check. [SIGNING_prereq_err_signing_check_short_desc]";

} // namespace hostprogram

#endif
