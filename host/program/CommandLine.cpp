#include "CommandLine.h"

#include "ProgramError.h"

namespace host {

CommandLine::CommandLine(const std::vector<std::string>& arguments, const std::vector<OptionSpec>& options) {
    auto specOf = [&options](const std::string& name) -> const OptionSpec* {
        for (const OptionSpec& spec : options) {
            if (name == spec.name) {
                return &spec;
            }
        }
        return nullptr;
    };

    bool optionsEnded = false;
    for (size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if (optionsEnded || argument.size() < 2 || argument[0] != '-') {
            m_Positionals.push_back(argument);
            continue;
        }
        if (argument == "--") {
            optionsEnded = true;
            continue;
        }
        size_t equals = argument.find('=');
        std::string name = argument.substr(0, equals);
        const OptionSpec* spec = specOf(name);
        if (spec == nullptr) {
            throw UsageError("unknown option '" + name + "'");
        }
        if (m_Options.count(name) != 0) {
            throw UsageError("option '" + name + "' is given more than once");
        }
        std::string value;
        if (spec->takesValue) {
            if (equals != std::string::npos) {
                value = argument.substr(equals + 1);
            } else if (index + 1 < arguments.size()) {
                value = arguments[++index];
            } else {
                throw UsageError("option '" + name + "' needs a value");
            }
            if (value.empty()) {
                throw UsageError("option '" + name + "' needs a value");
            }
        } else if (equals != std::string::npos) {
            throw UsageError("option '" + name + "' takes no value");
        }
        m_Options[name] = value;
    }
}

std::string CommandLine::Value(const std::string& option, const std::string& fallback) const {
    auto found = m_Options.find(option);
    return found == m_Options.end() ? fallback : found->second;
}

} // namespace host
