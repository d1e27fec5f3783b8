// Runs the built signing-host as a separate process for the host tests:
// standard output, standard error and the exit code, from a command line
// of quoted arguments and an optional shell prefix (input redirection,
// environment assignments).
#ifndef SIGNING_TESTS_HOST_HOSTRUN_H
#define SIGNING_TESTS_HOST_HOSTRUN_H

#include "Fixtures.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
#include <poll.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace hosttest {

struct HostOutput {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string HostPath() {
    return SIGNING_HOST_PATH;
}

// The shell command that runs signing-host with the quoted arguments.
inline std::string HostCommand(const std::vector<std::string>& arguments) {
    std::string command = testsupport::ShellQuote(HostPath());
    for (const std::string& argument : arguments) {
        command += " " + testsupport::ShellQuote(argument);
    }
    return command;
}

// Runs signing-host in folder; suffix is appended to the command (for
// example "< list.txt").
inline HostOutput RunHost(const std::string& folder, const std::vector<std::string>& arguments,
                          const std::string& suffix = std::string()) {
    const std::string errFile = folder + "/host-stderr.txt";
    testsupport::CommandResult result =
        testsupport::Run("cd " + testsupport::ShellQuote(folder) + " && " + HostCommand(arguments) + " " +
                         suffix + " 2>" + testsupport::ShellQuote(errFile));
    HostOutput output;
    output.exitCode = result.exitCode;
    output.out = result.output;
    output.err = testsupport::PathExists(errFile) ? testsupport::ReadFile(errFile) : std::string();
    return output;
}

inline std::vector<std::string> SplitRecords(const std::string& text, char separator = '\n') {
    std::vector<std::string> records;
    std::string current;
    for (char byte : text) {
        if (byte == separator) {
            records.push_back(current);
            current.clear();
        } else {
            current += byte;
        }
    }
    if (!current.empty()) {
        records.push_back(current);
    }
    return records;
}

// What a command run through a pipe wrote: the output up to its first
// `lines` records, whether more was waiting 100 ms after those (poll's
// answer: 0 when nothing was), all of its output, and its wait status.
struct StreamedOutput {
    bool started = false;
    std::string early;
    int moreWaiting = -1;
    std::string all;
    int status = -1;
};

// Reads from the descriptor into received until it holds `lines` line
// ends, or to the end of the stream when lines is 0.
inline void ReadLines(int descriptor, std::string& received, size_t lines = 0) {
    char buffer[4096];
    while (lines == 0 || static_cast<size_t>(std::count(received.begin(), received.end(), '\n')) < lines) {
        ssize_t got = read(descriptor, buffer, sizeof buffer);
        if (got <= 0) {
            break;
        }
        received.append(buffer, static_cast<size_t>(got));
    }
}

// Runs the shell command and watches its standard output: a program that
// streams its records writes the first ones while it still works.
inline StreamedOutput ReadStreamed(const std::string& command, size_t lines) {
    StreamedOutput output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    output.started = true;
    const int descriptor = fileno(pipe);
    ReadLines(descriptor, output.all, lines);
    output.early = output.all;
    pollfd waiting{descriptor, POLLIN, 0};
    output.moreWaiting = poll(&waiting, 1, 100);
    ReadLines(descriptor, output.all);
    output.status = pclose(pipe);
    return output;
}

// The armored key that signed the fixture packages the suites copy.
inline std::string Key() {
    return fixtures::KeyArmored("rsa2048");
}

// A test with a folder of its own, in which signing-host runs on copies of
// the fixture packages under names the test chooses.
template <typename Base = ::testing::Test> class HostFolderTest : public Base {
protected:
    // Fails the test (from SetUp, before its body) unless the key and the
    // named fixture packages exist.
    static void RequireKeyAndPackages(std::initializer_list<const char*> packages) {
        REQUIRE_FIXTURE(Key());
        for (const char* package : packages) {
            REQUIRE_FIXTURE(fixtures::Package(package));
        }
    }

    // Copies the fixture package to name, a path inside the test's folder.
    void Place(const std::string& fixture, const std::string& name) {
        testsupport::WriteFile(m_Work.File(name), testsupport::ReadFile(fixtures::Package(fixture)));
    }

    testsupport::TempDir m_Work;
};

} // namespace hosttest

#endif
