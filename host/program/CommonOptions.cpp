#include "CommonOptions.h"

#include "Commands.h"
#include "Plugin.h"

#include <cstdio>

namespace host {

std::vector<OptionSpec> WithCommonOptions(std::vector<OptionSpec> own) {
    own.insert(own.end(), {{"--plugin", true},
                           {"--log", true},
                           {"--json", false},
                           {"--quiet", false},
                           {"--help", false},
                           {"-h", false},
                           {"--version", false}});
    return own;
}

bool PrintedHelpOrVersion(const CommandLine& line, const char* help) {
    if (line.Has("--help") || line.Has("-h")) {
        std::fputs(help, stdout);
        return true;
    }
    if (line.Has("--version")) {
        std::printf("%s\n", VersionText().c_str());
        return true;
    }
    return false;
}

std::string ChosenPluginPath(const CommandLine& line) {
    // The default is looked up only when needed: it fails when no plug-in
    // was built beside the program.
    return line.Has("--plugin") ? line.Value("--plugin") : Plugin::DefaultPath();
}

} // namespace host
