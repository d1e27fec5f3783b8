// The commands of signing-host and their help texts. Each command returns
// the program's exit code and throws UsageError or SetupError when it
// cannot run (exit code 2).
#ifndef HOST_PROGRAM_COMMANDS_H
#define HOST_PROGRAM_COMMANDS_H

#include <string>
#include <vector>

namespace host {

int RunCommand(const std::vector<std::string>& arguments);
int VerifyCommand(const std::vector<std::string>& arguments);
// "verify -v" under its own name.
int ExplainCommand(const std::vector<std::string>& arguments);
// What a key file holds and whether the plug-in can use it.
int KeyCommand(const std::vector<std::string>& arguments);

extern const char kProgramHelp[];
extern const char kRunHelp[];
extern const char kVerifyHelp[];
extern const char kKeyHelp[];

// "signing-host <version>"
std::string VersionText();

} // namespace host

#endif
