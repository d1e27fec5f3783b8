// signing-host verify over many packages: lists read from a file or from
// standard input, every package under a folder, several worker processes
// with the results in input order, and GNU parallel spreading a mirror over
// machines as the README shows (here with the local machine only).
#include "Fixtures.h"
#include "HostRun.h"
#include "TestSupport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using hosttest::Key;
using hosttest::RunHost;
using hosttest::SplitRecords;
using nlohmann::json;
using testsupport::ReadFile;
using testsupport::ShellQuote;

namespace {

// The expected line for a copy of a fixture package, by the fixture's kind.
std::string ExpectedLine(const std::string& path) {
    if (path.find("tampered") != std::string::npos) {
        return path + ": RPM_INVALID_HASH (3) " + path + " has invalid hash.";
    }
    if (path.find("other") != std::string::npos) {
        return path + ": RPM_INVALID_SIGNATURE (2) " + path + " has invalid signature.";
    }
    return path + ": RPM_SIGNED (0) " + path + " is signed.";
}

class HostMirrorTest : public hosttest::HostFolderTest<> {
protected:
    void SetUp() override {
        RequireKeyAndPackages(
            {"signed-rsa2048-sha256.rpm", "tampered-payload.rpm", "signed-other2048-sha256.rpm"});
    }

    // A mirror of copies of the fixtures in nested folders, with files that
    // are not packages beside them; returns the package paths in sorted
    // order, relative to the test folder.
    std::vector<std::string> MakeMirror(int count) {
        std::vector<std::string> paths;
        const char* kinds[] = {"signed-rsa2048-sha256.rpm", "tampered-payload.rpm",
                               "signed-other2048-sha256.rpm"};
        for (int index = 0; index < count; ++index) {
            std::string folder = "mirror/" + std::string(index % 2 == 0 ? "os" : "updates/x86_64");
            testsupport::Run("mkdir -p " + ShellQuote(m_Work.File(folder)));
            char number[8];
            std::snprintf(number, sizeof number, "%03d", index);
            const char* kind = kinds[index % 3];
            std::string name = folder + "/p" + number + "-" +
                               (index % 3 == 0   ? "signed"
                                : index % 3 == 1 ? "tampered"
                                                 : "other") +
                               ".rpm";
            Place(kind, name);
            paths.push_back(name);
        }
        testsupport::WriteFile(m_Work.File("mirror/os/README.txt"), "not a package\n");
        testsupport::WriteFile(m_Work.File("mirror/os/p.rpm.sig"), "not a package either\n");
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    static std::string ExpectedOutput(const std::vector<std::string>& paths) {
        std::string text;
        for (const std::string& path : paths) {
            text += ExpectedLine(path) + "\n";
        }
        return text;
    }
};

TEST_F(HostMirrorTest, RecursiveFindsEveryPackageInSortedOrder) {
    std::vector<std::string> paths = MakeMirror(12);
    hosttest::HostOutput one =
        RunHost(m_Work.Path(), {"verify", "--jobs", "1", "--key", Key(), "--recursive", "mirror"});
    hosttest::HostOutput three =
        RunHost(m_Work.Path(), {"verify", "--jobs", "3", "--key", Key(), "--recursive", "mirror"});
    EXPECT_EQ(one.exitCode, 1);
    EXPECT_EQ(one.out, ExpectedOutput(paths));
    EXPECT_EQ(three.exitCode, 1);
    EXPECT_EQ(three.out, one.out);
}

TEST_F(HostMirrorTest, FilesFromReadsLinesOrNulSeparatedInput) {
    std::vector<std::string> paths = MakeMirror(9);
    // The list's order, not the sorted one, is the output's order.
    std::vector<std::string> listed(paths.rbegin(), paths.rend());
    std::string lines;
    std::string nulSeparated;
    for (const std::string& path : listed) {
        lines += path + "\n";
        nulSeparated += path + '\0';
    }
    testsupport::WriteFile(m_Work.File("list.txt"), lines + "\n");
    testsupport::WriteFile(m_Work.File("list.nul"), nulSeparated);
    hosttest::HostOutput fromFile =
        RunHost(m_Work.Path(), {"verify", "--jobs", "2", "--key", Key(), "--files-from", "list.txt"});
    hosttest::HostOutput fromInput = RunHost(
        m_Work.Path(), {"verify", "--jobs", "2", "-0", "--json-lines", "--key", Key(), "--files-from", "-"},
        "< list.nul");
    EXPECT_EQ(fromFile.exitCode, 1);
    EXPECT_EQ(fromFile.out, ExpectedOutput(listed));
    EXPECT_EQ(fromInput.exitCode, 1);
    std::vector<std::string> records = SplitRecords(fromInput.out);
    ASSERT_EQ(records.size(), listed.size() + 1);
    for (size_t index = 0; index < listed.size(); ++index) {
        json record = json::parse(records[index]);
        EXPECT_EQ(record["index"], index);
        EXPECT_EQ(record["path"], listed[index]);
        EXPECT_EQ(record["path"].get<std::string>() + ": " + record["status_name"].get<std::string>() + " (" +
                      std::to_string(record["status"].get<int>()) + ") " +
                      record["message"].get<std::string>(),
                  ExpectedLine(listed[index]));
    }
    EXPECT_EQ(json::parse(records.back())["total"], listed.size());
}

TEST_F(HostMirrorTest, AnEmptyListIsNoPackageAndAWrongJobCountIsAUsageError) {
    testsupport::WriteFile(m_Work.File("empty.txt"), "");
    hosttest::HostOutput empty =
        RunHost(m_Work.Path(), {"verify", "--json-lines", "--key", Key(), "--files-from", "empty.txt"});
    EXPECT_EQ(empty.exitCode, 0);
    EXPECT_EQ(json::parse(empty.out)["total"], 0);
    hosttest::HostOutput zero = RunHost(m_Work.Path(), {"verify", "--jobs", "0", "--key", Key(), "x.rpm"});
    EXPECT_EQ(zero.exitCode, 2);
    EXPECT_EQ(zero.err, "signing-host verify: --jobs needs a number of worker processes from 1 to 1024, not "
                        "'0'\nTry 'signing-host verify --help'.\n");
    hosttest::HostOutput missing =
        RunHost(m_Work.Path(), {"verify", "--key", Key(), "--files-from", "absent.txt"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.err,
              "signing-host verify: cannot open the package list 'absent.txt': No such file or directory\n");
}

TEST_F(HostMirrorTest, ManyWorkersGiveTheSameResultsAsOne) {
    std::vector<std::string> paths = MakeMirror(60);
    hosttest::HostOutput one = RunHost(
        m_Work.Path(), {"verify", "--json-lines", "--jobs", "1", "--key", Key(), "--recursive", "mirror"});
    hosttest::HostOutput many = RunHost(
        m_Work.Path(), {"verify", "--json-lines", "--jobs", "7", "--key", Key(), "--recursive", "mirror"});
    EXPECT_EQ(one.exitCode, 1);
    EXPECT_EQ(many.exitCode, 1);
    EXPECT_EQ(many.out, one.out);
    EXPECT_EQ(SplitRecords(one.out).size(), 61u);
}

// The README's recipe for several machines, run with GNU parallel's
// "-S :" (this machine) in place of the ssh logins.
TEST_F(HostMirrorTest, TheReadmeRecipeWithGnuParallelChecksTheMirror) {
    std::vector<std::string> paths = MakeMirror(30);
    std::ifstream readme(std::string(SIGNING_SOURCE_DIR) + "/README.md");
    std::string recipe;
    bool inside = false;
    for (std::string line; std::getline(readme, line);) {
        if (line == "```sh recipe=parallel") {
            inside = true;
        } else if (inside && line == "```") {
            break;
        } else if (inside) {
            recipe += line + "\n";
        }
    }
    ASSERT_FALSE(recipe.empty()) << "README.md has no ```sh recipe=parallel block";
    std::string hostFolder = hosttest::HostPath().substr(0, hosttest::HostPath().rfind('/'));
    std::string script = "set -e\ncd " + ShellQuote(m_Work.Path()) +
                         "\nexport PATH=" + ShellQuote(hostFolder) +
                         ":\"$PATH\"\nMIRROR=" + ShellQuote(m_Work.File("mirror")) +
                         " KEY=" + ShellQuote(Key()) + " LOGINS=:\n" + recipe;
    testsupport::WriteFile(m_Work.File("recipe.sh"), script);
    testsupport::CommandResult run =
        testsupport::Run("bash " + ShellQuote(m_Work.File("recipe.sh")) + " 2>&1");
    // parallel's exit code is the number of failed jobs: some packages fail.
    EXPECT_NE(run.exitCode, 0) << run.output;
    std::map<std::string, std::string> byPath;
    size_t summaries = 0;
    size_t total = 0;
    for (const std::string& line : SplitRecords(ReadFile(m_Work.File("results.jsonl")))) {
        json record = json::parse(line);
        if (record["record"] == "summary") {
            ++summaries;
            total += record["total"].get<size_t>();
            continue;
        }
        const std::string path = record["path"];
        byPath[path] = path + ": " + record["status_name"].get<std::string>() + " (" +
                       std::to_string(record["status"].get<int>()) + ") " +
                       record["message"].get<std::string>();
    }
    EXPECT_GE(summaries, 1u);
    EXPECT_EQ(total, paths.size());
    ASSERT_EQ(byPath.size(), paths.size());
    for (const std::string& path : paths) {
        EXPECT_EQ(byPath[m_Work.File(path)], ExpectedLine(m_Work.File(path)));
    }
}

// A worker that dies takes only its current package with it: that package
// is reported without an answer, every other one as usual.
TEST_F(HostMirrorTest, AWorkerThatDiesCostsOnlyItsPackage) {
    for (const char* name : {"p1.rpm", "slow.rpm", "p2.rpm", "p3.rpm"}) {
        Place("signed-rsa2048-sha256.rpm", name);
    }
    // The slow package: 256 MiB of zeros after the package, which the
    // payload digest reads to the end.
    ASSERT_EQ(truncate(m_Work.File("slow.rpm").c_str(), 256L << 20), 0);
    std::string command = "cd " + ShellQuote(m_Work.Path()) + " && (" +
                          hosttest::HostCommand({"verify", "--jobs", "2", "--key", Key(), "p1.rpm",
                                                 "slow.rpm", "p2.rpm", "p3.rpm"}) +
                          " >out.txt 2>err.txt; echo $? >exit.txt) </dev/null >/dev/null 2>&1 & echo $!";
    // The subshell's child is signing-host; its children are the workers.
    std::string shell = testsupport::Run(command).output;
    ASSERT_FALSE(shell.empty());
    shell.pop_back();
    std::string host;
    std::string workers;
    for (int attempt = 0; attempt < 3000 && !testsupport::PathExists(m_Work.File("exit.txt")); ++attempt) {
        host = testsupport::Run("pgrep -P " + shell).output;
        if (!host.empty()) {
            host.pop_back();
            workers = testsupport::Run("pgrep -P " + host).output;
            // The fast packages are done: one worker is left, on the slow one.
            if (std::count(workers.begin(), workers.end(), '\n') == 1 &&
                ReadFile(m_Work.File("out.txt")).find("p1.rpm: RPM_SIGNED") == 0) {
                break;
            }
        }
        usleep(10000);
    }
    ASSERT_EQ(std::count(workers.begin(), workers.end(), '\n'), 1) << workers;
    ASSERT_EQ(testsupport::Run("kill -KILL " + workers).exitCode, 0);
    for (int attempt = 0; attempt < 3000 && !testsupport::PathExists(m_Work.File("exit.txt")); ++attempt) {
        usleep(10000);
    }
    // A package without an answer could not be checked: exit code 3.
    EXPECT_EQ(ReadFile(m_Work.File("exit.txt")), "3\n");
    EXPECT_EQ(ReadFile(m_Work.File("out.txt")),
              "p1.rpm: RPM_SIGNED (0) p1.rpm is signed.\n"
              "slow.rpm: NO_ANSWER the worker process checking it ended by signal 9 (Killed)\n"
              "p2.rpm: RPM_SIGNED (0) p2.rpm is signed.\n"
              "p3.rpm: RPM_SIGNED (0) p3.rpm is signed.\n");
}

} // namespace
