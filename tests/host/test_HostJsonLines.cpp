// signing-host verify --json-lines and --json: one record per package,
// written as soon as it is known, then a summary; the same fields in every
// record; exact path bytes for names that are not UTF-8; whole lines even
// when several programs share one pipe.
#include "Fixtures.h"
#include "HostProgramTest.h"
#include "HostRun.h"
#include "TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

using fixtures::Package;
using hosttest::Key;
using hosttest::ReadStreamed;
using hosttest::RunHost;
using hosttest::SplitRecords;
using nlohmann::json;
using testsupport::ReadFile;
using testsupport::ShellQuote;
using testsupport::TempDir;

namespace {

// The Base64 of the bytes, computed by coreutils' base64.
std::string Base64Of(const std::string& bytes) {
    return testsupport::Run("printf '%s' " + ShellQuote(bytes) + " | base64 -w0").output;
}

json PackageRecord(size_t index, const std::string& path, int status, const std::string& statusName,
                   const std::string& outcome, const std::string& message, bool utf8 = true,
                   const std::string& shownPath = std::string()) {
    return json{{"schema", 1},          {"record", "package"},
                {"index", index},       {"path", shownPath.empty() ? path : shownPath},
                {"path_is_utf8", utf8}, {"path_bytes", Base64Of(path)},
                {"status", status},     {"status_name", statusName},
                {"outcome", outcome},   {"message", message}};
}

class HostJsonLinesTest : public hosttest::HostFolderTest<> {
protected:
    void SetUp() override {
        RequireKeyAndPackages({"signed-rsa2048-sha256.rpm", "tampered-payload.rpm"});
        Place("signed-rsa2048-sha256.rpm", "a-signed.rpm");
        Place("tampered-payload.rpm", "b-tampered.rpm");
        Place("signed-rsa2048-sha256.rpm", kOddName);
    }

    const std::string kOddName = std::string("c-\xff\xfe.rpm");
};

TEST_F(HostJsonLinesTest, EachPackageIsOneLineThenTheSummary) {
    hosttest::HostOutput result =
        RunHost(m_Work.Path(), {"verify", "--json-lines", "--jobs", "2", "--key", Key(), "a-signed.rpm",
                                "b-tampered.rpm", kOddName, "d-missing.rpm"});
    EXPECT_EQ(result.exitCode, 1);
    std::vector<std::string> lines = SplitRecords(result.out);
    ASSERT_EQ(lines.size(), 5u) << result.out;
    std::vector<json> records;
    for (const std::string& line : lines) {
        records.push_back(json::parse(line));
    }
    EXPECT_EQ(records[0],
              PackageRecord(0, "a-signed.rpm", 0, "RPM_SIGNED", "signed", "a-signed.rpm is signed."));
    EXPECT_EQ(records[1], PackageRecord(1, "b-tampered.rpm", 3, "RPM_INVALID_HASH", "failed",
                                        "b-tampered.rpm has invalid hash."));
    // The name is not UTF-8: "path" shows it with U+FFFD, "path_bytes"
    // holds the exact bytes.
    EXPECT_EQ(records[2], PackageRecord(2, kOddName, 0, "RPM_SIGNED", "signed",
                                        "c-\xEF\xBF\xBD\xEF\xBF\xBD.rpm is signed.", false,
                                        "c-\xEF\xBF\xBD\xEF\xBF\xBD.rpm"));
    EXPECT_EQ(records[3], PackageRecord(3, "d-missing.rpm", 5, "RPM_ERROR", "unchecked",
                                        "File operation error: File not found: Cannot get status for "
                                        "'d-missing.rpm': No such file or directory"));
    EXPECT_EQ(records[4], (json{{"schema", 1},
                                {"record", "summary"},
                                {"command", "verify"},
                                {"plugin", testsupport::PluginPath()},
                                {"key", Key()},
                                {"total", 4},
                                {"signed", 2},
                                {"failed", 1},
                                {"unchecked", 1},
                                {"all_signed", false},
                                {"exit_code", 1}}));
}

TEST_F(HostJsonLinesTest, OneDocumentHoldsTheSameRecords) {
    const std::vector<std::string> packages{"a-signed.rpm", "b-tampered.rpm", kOddName};
    std::vector<std::string> lines{"verify", "--json-lines", "--key", Key()};
    std::vector<std::string> whole{"verify", "--json", "--key", Key()};
    lines.insert(lines.end(), packages.begin(), packages.end());
    whole.insert(whole.end(), packages.begin(), packages.end());
    hosttest::HostOutput streamed = RunHost(m_Work.Path(), lines);
    hosttest::HostOutput document = RunHost(m_Work.Path(), whole);
    EXPECT_EQ(streamed.exitCode, 1);
    EXPECT_EQ(document.exitCode, 1);
    std::vector<std::string> records = SplitRecords(streamed.out);
    ASSERT_EQ(records.size(), 4u);
    json parsed = json::parse(document.out);
    EXPECT_EQ(parsed["schema"], 1);
    EXPECT_EQ(parsed["record"], "document");
    ASSERT_EQ(parsed["packages"].size(), 3u);
    for (size_t index = 0; index < 3; ++index) {
        EXPECT_EQ(parsed["packages"][index], json::parse(records[index])) << index;
    }
    EXPECT_EQ(parsed["summary"], json::parse(records[3]));
}

TEST_F(HostJsonLinesTest, ARecordIsWrittenBeforeTheNextPackageIsDone) {
    // The second package takes a while: a signed package followed by
    // 256 MiB of zeros, which the payload digest reads to the end.
    Place("signed-rsa2048-sha256.rpm", "slow.rpm");
    ASSERT_EQ(truncate(m_Work.File("slow.rpm").c_str(), 256L << 20), 0);
    std::string command = "cd " + ShellQuote(m_Work.Path()) + " && " +
                          hosttest::HostCommand({"verify", "--json-lines", "--jobs", "1", "--key", Key(),
                                                 "a-signed.rpm", "slow.rpm"}) +
                          " 2>/dev/null";
    // The first record is complete while the second package is still
    // being read: nothing more is there yet.
    hosttest::StreamedOutput streamed = ReadStreamed(command, 1);
    ASSERT_TRUE(streamed.started);
    const std::string& received = streamed.all;
    const int status = streamed.status;
    std::string firstLine = streamed.early.substr(0, streamed.early.find('\n'));
    EXPECT_EQ(streamed.moreWaiting, 0) << "the second record came together with the first";
    EXPECT_EQ(json::parse(firstLine),
              PackageRecord(0, "a-signed.rpm", 0, "RPM_SIGNED", "signed", "a-signed.rpm is signed."));
    std::vector<std::string> lines = SplitRecords(received);
    ASSERT_EQ(lines.size(), 3u) << received;
    EXPECT_EQ(json::parse(lines[1])["status_name"], "RPM_INVALID_HASH");
    EXPECT_EQ(json::parse(lines[2])["record"], "summary");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
}

TEST_F(HostJsonLinesTest, EveryLineParsesUnderXargsWithFourProcesses) {
    // 40 packages, 4 programs at a time writing into one pipe.
    std::vector<std::string> names;
    for (int index = 0; index < 40; ++index) {
        std::string name =
            "pkg-" + std::to_string(index) + (index % 3 == 0 ? "-tampered.rpm" : "-signed.rpm");
        Place(index % 3 == 0 ? "tampered-payload.rpm" : "signed-rsa2048-sha256.rpm", name);
        names.push_back(name);
    }
    std::string list;
    for (const std::string& name : names) {
        list += name + '\0';
    }
    testsupport::WriteFile(m_Work.File("list"), list);
    std::string command = "cd " + ShellQuote(m_Work.Path()) + " && xargs -0 -P4 -n3 " +
                          hosttest::HostCommand({"verify", "--json-lines", "--jobs", "2", "--key", Key()}) +
                          " < list 2>/dev/null";
    for (int round = 0; round < 3; ++round) {
        testsupport::CommandResult result = testsupport::Run(command);
        // xargs answers 123 when a program exited with 1 to 125.
        EXPECT_EQ(result.exitCode, 123);
        std::set<std::string> seen;
        size_t summaries = 0;
        size_t packagesInSummaries = 0;
        for (const std::string& line : SplitRecords(result.output)) {
            json record;
            ASSERT_NO_THROW(record = json::parse(line)) << line;
            ASSERT_EQ(record["schema"], 1);
            if (record["record"] == "summary") {
                ++summaries;
                packagesInSummaries += record["total"].get<size_t>();
                continue;
            }
            const std::string path = record["path"];
            const bool tampered = path.find("tampered") != std::string::npos;
            EXPECT_EQ(record["status_name"], tampered ? "RPM_INVALID_HASH" : "RPM_SIGNED") << path;
            EXPECT_TRUE(seen.insert(path).second) << path;
        }
        EXPECT_EQ(seen.size(), 40u);
        EXPECT_EQ(summaries, 14u);
        EXPECT_EQ(packagesInSummaries, 40u);
    }
}

using hostprogram::HostProgramTest;
using hostprogram::HostResult;

// run --json: schema 1, and every component carries every field, whether
// rpm_verify answered for it or not.
TEST_F(HostProgramTest, RunJsonGivesEveryComponentTheSameFields) {
    std::string manifest = WriteManifest(Manifest(
        json::array({Component("here", "signed-rsa2048-sha256.rpm"), Component("gone", "absent.rpm")}),
        json{{"signature", Key()}}));
    HostResult result = Host({"run", "--json", manifest});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    json document = json::parse(result.out);
    EXPECT_EQ(document["schema"], 1);
    ASSERT_EQ(document["components"].size(), 2u);
    const json& here = document["components"][0];
    const json& gone = document["components"][1];
    std::vector<std::string> hereFields;
    std::vector<std::string> goneFields;
    for (auto field = here.begin(); field != here.end(); ++field) {
        hereFields.push_back(field.key());
    }
    for (auto field = gone.begin(); field != gone.end(); ++field) {
        goneFields.push_back(field.key());
    }
    EXPECT_EQ(goneFields, hereFields);
    EXPECT_EQ(here["status"], 0);
    EXPECT_EQ(gone["outcome"], "not available");
    EXPECT_EQ(gone["status"], -1);
    EXPECT_EQ(gone["statusName"], "");
    EXPECT_EQ(gone["message"], "");
    EXPECT_EQ(gone["path_bytes"], Base64Of(testsupport::Fixture("rpm") + "/absent.rpm"));
}

// run --json-lines: one record per component, written when the plug-in has
// moved on to the next one, the same objects as run --json, then a summary.
TEST_F(HostProgramTest, RunJsonLinesStreamsEveryComponent) {
    std::string slow = m_Work.File("slow.rpm");
    testsupport::WriteFile(slow, ReadFile(Package("signed-rsa2048-sha256.rpm")));
    ASSERT_EQ(truncate(slow.c_str(), 256L << 20), 0);
    json components =
        json::array({Component("first", "signed-rsa2048-sha256.rpm"), Component("gone", "absent.rpm"),
                     Component("tampered", "tampered-payload.rpm"),
                     json{{"name", "slow"},
                          {"type", "rpm"},
                          {"packageFolder", m_Work.Path()},
                          {"packageFile", "slow.rpm"}}});
    std::string manifest = WriteManifest(Manifest(components, json{{"signature", Key()}}));

    // The first three records come while the slow package is being read.
    hosttest::StreamedOutput streamed =
        ReadStreamed(hosttest::HostCommand({"run", "--json-lines", manifest}) + " 2>" +
                         ShellQuote(m_Work.File("run-err.txt")),
                     3);
    ASSERT_TRUE(streamed.started);
    const std::string& received = streamed.all;
    const int status = streamed.status;
    EXPECT_EQ(streamed.moreWaiting, 0)
        << "the slow component's record came with the others" << ReadFile(m_Work.File("run-err.txt"));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);

    HostResult whole = Host({"run", "--json", manifest});
    json document = json::parse(whole.out);
    std::vector<std::string> lines = SplitRecords(received);
    ASSERT_EQ(lines.size(), 5u) << received;
    for (size_t index = 0; index < 4; ++index) {
        json expected = json{{"schema", 1}, {"record", "component"}, {"index", index}};
        for (auto field = document["components"][index].begin(); field != document["components"][index].end();
             ++field) {
            expected[field.key()] = field.value();
        }
        EXPECT_EQ(json::parse(lines[index]), expected) << index;
    }
    EXPECT_EQ(json::parse(lines[0])["outcome"], "passed");
    EXPECT_EQ(json::parse(lines[1])["outcome"], "not available");
    EXPECT_EQ(json::parse(lines[2])["statusName"], "RPM_INVALID_HASH");
    EXPECT_EQ(json::parse(lines[3])["statusName"], "RPM_INVALID_HASH");
    EXPECT_EQ(json::parse(lines[4]), (json{{"schema", 1},
                                           {"record", "summary"},
                                           {"command", "run"},
                                           {"manifest", manifest},
                                           {"plugin", testsupport::PluginPath()},
                                           {"result", 1},
                                           {"total", 4},
                                           {"passed", 1},
                                           {"failed", 2},
                                           {"not_available", 1},
                                           {"not_checked", 0},
                                           {"exit_code", 1}}));
}

} // namespace
