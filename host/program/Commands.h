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

extern const char kProgramHelp[];
extern const char kRunHelp[];
extern const char kVerifyHelp[];

// "signing-host <version>"
std::string VersionText();

} // namespace host

#endif
