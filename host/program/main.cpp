// signing-host: loads the plug-in as an installer does and runs its entry
// points on a manifest (run) or on package files (verify).
#include "Commands.h"
#include "ProgramError.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr const char kProgram[] = "signing-host";

struct CommandEntry {
    const char* name;
    int (*function)(const std::vector<std::string>&);
};

constexpr CommandEntry kCommands[] = {
    {"run", host::RunCommand},
    {"verify", host::VerifyCommand},
    {"explain", host::ExplainCommand},
    {"key", host::KeyCommand},
};

int UsageFailure(const std::string& where, const std::string& message, const std::string& helpCommand) {
    std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", where.c_str(), message.c_str(), helpCommand.c_str());
    return host::kExitUsage;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (arguments.empty()) {
        return UsageFailure(kProgram, "no command given", kProgram);
    }
    const std::string& command = arguments[0];
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(host::kProgramHelp, stdout);
        return host::kExitSuccess;
    }
    if (command == "--version") {
        std::printf("%s\n", host::VersionText().c_str());
        return host::kExitSuccess;
    }
    for (const CommandEntry& entry : kCommands) {
        if (command != entry.name) {
            continue;
        }
        const std::string where = std::string(kProgram) + " " + entry.name;
        try {
            return entry.function(std::vector<std::string>(arguments.begin() + 1, arguments.end()));
        } catch (const host::UsageError& error) {
            return UsageFailure(where, error.what(), where);
        } catch (const host::NotCheckedError& error) {
            std::fprintf(stderr, "%s: %s\n", where.c_str(), error.what());
            return host::kExitNotChecked;
        } catch (const host::SetupError& error) {
            std::fprintf(stderr, "%s: %s\n", where.c_str(), error.what());
            return host::kExitUsage;
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s: %s\n", where.c_str(), error.what());
            return host::kExitUsage;
        }
    }
    if (!command.empty() && command[0] == '-') {
        return UsageFailure(
            kProgram, "unknown option '" + command + "' (a command comes first: run, verify, explain or key)",
            kProgram);
    }
    return UsageFailure(kProgram,
                        "unknown command '" + command + "' (the commands are run, verify, explain and key)",
                        kProgram);
}
