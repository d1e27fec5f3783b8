// The options and arguments of one signing-host command: "--name value",
// "--name=value", flags, and positional arguments; "--" ends the options.
#ifndef HOST_PROGRAM_COMMANDLINE_H
#define HOST_PROGRAM_COMMANDLINE_H

#include <map>
#include <string>
#include <vector>

namespace host {

struct OptionSpec {
    const char* name; // with its leading dashes, e.g. "--key"
    bool takesValue;
};

class CommandLine {
public:
    // Throws UsageError for an unknown option, an option given twice, a
    // value given to a flag, or a missing value.
    CommandLine(const std::vector<std::string>& arguments, const std::vector<OptionSpec>& options);

    bool Has(const std::string& option) const { return m_Options.count(option) != 0; }
    // The option's value, or the fallback when it was not given.
    std::string Value(const std::string& option, const std::string& fallback = std::string()) const;
    const std::vector<std::string>& Positionals() const { return m_Positionals; }

private:
    std::map<std::string, std::string> m_Options;
    std::vector<std::string> m_Positionals;
};

} // namespace host

#endif
