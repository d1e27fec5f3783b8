// Failures that stop signing-host before or instead of running the plug-in.
// Both end the program with exit code 2; a usage error also points to the
// command's --help.
#ifndef HOST_PROGRAM_PROGRAMERROR_H
#define HOST_PROGRAM_PROGRAMERROR_H

#include <stdexcept>
#include <string>

namespace host {

// The command line is wrong: an unknown command or option, a missing or
// superfluous argument.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& message) : std::runtime_error(message) {}
};

// The command line is fine but what it names cannot be used: a manifest
// that cannot be read or is not valid, a plug-in that does not load or
// lacks an entry point, a key or log file that cannot be opened.
class SetupError : public std::runtime_error {
public:
    explicit SetupError(const std::string& message) : std::runtime_error(message) {}
};

// 0: every package is signed. 1: a package failed its signature or hash
// check. 2: usage (nothing was run). 3: something could not be checked (a
// missing or unreadable package, an unusable key, an error answer).
// What is needed to check the packages cannot be used (a key file that
// does not exist): exit code 3.
class NotCheckedError : public std::runtime_error {
public:
    explicit NotCheckedError(const std::string& message) : std::runtime_error(message) {}
};

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNotChecked = 3;

} // namespace host

#endif
