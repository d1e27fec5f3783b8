// What the signing-host commands share at their start: the options every
// command takes, the answer to --help and --version, and the plug-in to
// load.
#ifndef HOST_PROGRAM_COMMONOPTIONS_H
#define HOST_PROGRAM_COMMONOPTIONS_H

#include "CommandLine.h"

#include <string>
#include <vector>

namespace host {

// The command's own options followed by those of every command:
// --plugin PATH, --log FILE, --json, --quiet, --help (-h) and
// --version.
std::vector<OptionSpec> WithCommonOptions(std::vector<OptionSpec> own);

// Prints the command's help text for --help or -h, otherwise the program's
// version for --version; true when it printed either, and the command is
// then done.
bool PrintedHelpOrVersion(const CommandLine& line, const char* help);

// The plug-in named with --plugin, or else the one built beside the
// program (Plugin::DefaultPath, which throws SetupError when there is none).
std::string ChosenPluginPath(const CommandLine& line);

} // namespace host

#endif
