// Runs the built signing-host as a separate process for the host tests:
// standard output, standard error and the exit code, from a command line
// of quoted arguments and an optional shell prefix (input redirection,
// environment assignments).
#ifndef SIGNING_TESTS_HOST_HOSTRUN_H
#define SIGNING_TESTS_HOST_HOSTRUN_H

#include "TestSupport.h"

#include <sstream>
#include <string>
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

} // namespace hosttest

#endif
