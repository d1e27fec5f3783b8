// Helpers shared by the test suites: temporary folders, whole-file reads and
// writes, running shell commands, and the paths of the keys and packages
// that tests/fixtures/make-fixtures.sh makes with gpg, rpmbuild and rpmsign.
#ifndef SIGNING_TEST_SUPPORT_H
#define SIGNING_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace testsupport {

inline std::string SourceDir() {
    return SIGNING_SOURCE_DIR;
}
inline std::string BuildDir() {
    return SIGNING_BUILD_DIR;
}
inline std::string FixturesDir() {
    return SIGNING_FIXTURES_DIR;
}
inline std::string RpmUpstreamDir() {
    return SIGNING_RPM_UPSTREAM_DIR;
}
inline std::string PluginPath() {
    return SIGNING_PLUGIN_PATH;
}

// A path inside the fixture folder.
inline std::string Fixture(const std::string& relative) {
    return FixturesDir() + "/" + relative;
}

inline bool PathExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

// A fresh folder under /tmp, removed with its content when the object dies.
class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/signing-test-XXXXXX";
        char* made = mkdtemp(pattern);
        if (made == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        m_Path = made;
    }
    ~TempDir() {
        std::string command = "rm -rf '" + m_Path + "'";
        if (std::system(command.c_str()) != 0) {
            // Nothing sensible to do in a destructor; the folder stays behind.
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return m_Path; }
    std::string File(const std::string& name) const { return m_Path + "/" + name; }

private:
    std::string m_Path;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::vector<unsigned char> ReadBytes(const std::string& path) {
    std::string text = ReadFile(path);
    return std::vector<unsigned char>(text.begin(), text.end());
}

inline void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        throw std::runtime_error("cannot write " + path);
    }
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
}

inline void WriteBytes(const std::string& path, const std::vector<unsigned char>& content) {
    WriteFile(path, std::string(content.begin(), content.end()));
}

// Single-quotes a text for /bin/sh.
inline std::string ShellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

struct CommandResult {
    int exitCode;       // the exit status, or 128 + signal number
    std::string output; // standard output (standard error is not captured)
};

// Runs a command through /bin/sh and collects its standard output.
inline CommandResult Run(const std::string& command) {
    CommandResult result{-1, std::string()};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
        result.output.append(buffer, n);
    }
    int status = pclose(pipe);
    if (WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.exitCode = 128 + WTERMSIG(status);
    }
    return result;
}

inline std::string ToHex(const unsigned char* data, size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text.push_back(digits[data[i] >> 4]);
        text.push_back(digits[data[i] & 15]);
    }
    return text;
}

} // namespace testsupport

// Skips the current test with a reason when a fixture file is absent.
#define REQUIRE_FIXTURE(path)                                                                                \
    do {                                                                                                     \
        if (!testsupport::PathExists(path)) {                                                                \
            FAIL() << "fixture missing: " << (path) << " (run tests/fixtures/make-fixtures.sh)";             \
        }                                                                                                    \
    } while (0)

// rpm's own test data lives beside the checkout, in ../shared/rpm-upstream;
// a plain clone has no such folder, so the suites that read it skip, and the
// message names the folder. CI (.ci/run) refuses to start without it.
#define REQUIRE_UPSTREAM()                                                                                   \
    do {                                                                                                     \
        if (!testsupport::PathExists(testsupport::RpmUpstreamDir())) {                                       \
            GTEST_SKIP() << "rpm's test data folder " << testsupport::RpmUpstreamDir()                       \
                         << " (../shared/rpm-upstream) is missing";                                          \
        }                                                                                                    \
    } while (0)

#endif
