// signing-host on a real terminal: tmux gives the program a pane of 40, 80
// and 200 columns; the progress bar is captured while a slow package is
// being checked, and the pane is captured again at the end. The bar must
// fit the pane's width, show done/total, elapsed time and ETA, and leave
// nothing behind. --quiet keeps the plug-in's log off standard error but
// not out of the --log file.
#include "Fixtures.h"
#include "HostProgramTest.h"
#include "HostRun.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using hosttest::Key;
using testsupport::ReadFile;
using testsupport::ShellQuote;

namespace {

std::vector<std::string> Rows(const std::string& text) {
    return hosttest::SplitRecords(text);
}

size_t Columns(const std::string& text) {
    size_t columns = 0;
    for (char byte : text) {
        if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) {
            ++columns;
        }
    }
    return columns;
}

// A tmux server of its own, on a socket in the test's folder.
class Tmux {
public:
    explicit Tmux(const std::string& socket) : m_Socket(socket) {}
    ~Tmux() { testsupport::Run(Command("kill-server") + " 2>/dev/null"); }
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    std::string Command(const std::string& arguments) const {
        return "tmux -S " + ShellQuote(m_Socket) + " " + arguments;
    }
    int Start(size_t width, const std::string& shellCommand) const {
        return testsupport::Run(Command("-f /dev/null new-session -d -x " + std::to_string(width) + " -y " +
                                        std::to_string(kHeight) + " " + ShellQuote(shellCommand)))
            .exitCode;
    }
    // The pane's rows, and the same rows with wrapped ones joined, taken
    // by one tmux command so that the program cannot write in between.
    std::pair<std::string, std::string> Capture() const {
        const std::string both =
            testsupport::Run(Command("capture-pane -p \\; capture-pane -p -J") + " 2>/dev/null").output;
        // Empty rows count as rows too.
        std::vector<std::string> rows;
        std::string current;
        for (char byte : both) {
            if (byte == '\n') {
                rows.push_back(current);
                current.clear();
            } else {
                current += byte;
            }
        }
        std::string plain;
        std::string joined;
        for (size_t row = 0; row < rows.size(); ++row) {
            (row < kHeight ? plain : joined) += rows[row] + "\n";
        }
        return {plain, joined};
    }

    static constexpr size_t kHeight = 20;

private:
    std::string m_Socket;
};

class HostTerminalTest : public hosttest::HostFolderTest<::testing::TestWithParam<size_t>> {
protected:
    void SetUp() override {
        if (testsupport::Run("command -v tmux").exitCode != 0) {
            GTEST_FAIL() << "tmux is not installed (make deps installs it)";
        }
        RequireKeyAndPackages({"signed-rsa2048-sha256.rpm"});
    }
};

TEST_P(HostTerminalTest, TheBarFitsThePaneAndLeavesNothingBehind) {
    const size_t width = GetParam();
    const std::string folder = "a-mirror-folder-with-a-rather-long-name-for-the-bar-label";
    testsupport::Run("mkdir -p " + ShellQuote(m_Work.File(folder)));
    std::vector<std::string> packages;
    for (const char* name : {"p1.rpm", "p2.rpm", "slow.rpm", "p3.rpm", "p4.rpm"}) {
        packages.push_back(folder + "/" + name);
        Place("signed-rsa2048-sha256.rpm", packages.back());
    }
    // The third package takes a while: 128 MiB of zeros after the package,
    // which the payload digest reads to the end.
    ASSERT_EQ(truncate(m_Work.File(packages[2]).c_str(), 128L << 20), 0);

    std::vector<std::string> arguments{"verify", "--jobs", "1", "--key", Key()};
    arguments.insert(arguments.end(), packages.begin(), packages.end());
    const std::string command = "cd " + ShellQuote(m_Work.Path()) + " && " +
                                hosttest::HostCommand(arguments) +
                                " >out.txt; echo $? >exit.txt; exec sleep 120";
    Tmux tmux(m_Work.File("tmux.socket"));
    ASSERT_EQ(tmux.Start(width, command), 0);

    // Every bar seen while the program runs; the one of interest is drawn
    // while the slow third package is read.
    std::string barRow;
    std::vector<std::string> bars;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!testsupport::PathExists(m_Work.File("exit.txt")) && std::chrono::steady_clock::now() < deadline) {
        const auto pane = tmux.Capture();
        EXPECT_EQ(pane.second, pane.first) << "a row wrapped";
        for (const std::string& row : Rows(pane.first)) {
            if (row.find(" ETA ") != std::string::npos) {
                bars.push_back(row);
            }
            if (row.find("] 2/5 ") != std::string::npos) {
                barRow = row;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (std::string bar : bars) {
        while (!bar.empty() && bar.back() == ' ') {
            bar.pop_back();
        }
        EXPECT_LE(Columns(bar), width - 1) << bar;
    }

    ASSERT_FALSE(barRow.empty()) << "no progress bar was seen";
    // The bar stays off the last column, so the terminal never wraps it.
    while (!barRow.empty() && barRow.back() == ' ') {
        barRow.pop_back();
    }
    EXPECT_LE(Columns(barRow), width - 1) << barRow;
    EXPECT_EQ(barRow.rfind("[", 0), 0u) << barRow;
    EXPECT_NE(barRow.find("] 2/5 0:"), std::string::npos) << barRow;
    EXPECT_NE(barRow.find(" ETA "), std::string::npos) << barRow;
    if (width >= 200) {
        EXPECT_NE(barRow.find("  " + packages[2]), std::string::npos) << barRow;
    } else {
        EXPECT_NE(barRow.find("  ..."), std::string::npos) << barRow;
        EXPECT_EQ(barRow.substr(barRow.size() - 8), "slow.rpm") << barRow;
    }

    // The bar was removed without a trace: the pane is empty (the results
    // went to a file), and no row wrapped.
    const auto finalPane = tmux.Capture();
    EXPECT_EQ(finalPane.second, finalPane.first);
    for (const std::string& row : Rows(finalPane.first)) {
        EXPECT_EQ(row.find_first_not_of(' '), std::string::npos) << "left on the pane: " << row;
    }
    EXPECT_EQ(ReadFile(m_Work.File("exit.txt")), "1\n");
    std::vector<std::string> results = Rows(ReadFile(m_Work.File("out.txt")));
    ASSERT_EQ(results.size(), 5u);
    EXPECT_EQ(results[0], packages[0] + ": RPM_SIGNED (0) " + packages[0] + " is signed.");
    EXPECT_EQ(results[2], packages[2] + ": RPM_INVALID_HASH (3) " + packages[2] + " has invalid hash.");
}

INSTANTIATE_TEST_SUITE_P(Widths, HostTerminalTest, ::testing::Values(40, 80, 200));

using hostprogram::HostProgramTest;
using hostprogram::HostResult;

TEST_F(HostProgramTest, QuietKeepsThePluginLogOffTheScreenButInTheLogFile) {
    std::string manifest = WriteManifest(AllSignedManifest());
    HostResult loud = Host({"run", "--log", m_Work.File("loud.log"), manifest});
    HostResult quiet = Host({"run", "--quiet", "--log", m_Work.File("quiet.log"), manifest});
    EXPECT_EQ(loud.exitCode, 0);
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_EQ(quiet.out, loud.out);
    const std::string logged = ReadFile(m_Work.File("quiet.log"));
    EXPECT_EQ(logged, ReadFile(m_Work.File("loud.log")));
    EXPECT_NE(logged.find("signing_validate_package_list: started"), std::string::npos) << logged;
    // Without --quiet the log is on standard error too; with it only the
    // progress lines are.
    EXPECT_NE(loud.err.find("signing_validate_package_list: started"), std::string::npos) << loud.err;
    EXPECT_FALSE(quiet.err.empty());
    for (const std::string& line : Rows(quiet.err)) {
        EXPECT_EQ(line.rfind("progress: ", 0), 0u) << line;
    }
}

} // namespace
