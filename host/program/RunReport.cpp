#include "RunReport.h"

#include <cerrno>
#include <cstdlib>

namespace host {
namespace {

constexpr const char kResultPrefix[] = "_signing_validate_file: signing validation result ";
constexpr const char kResultMiddle[] = " (0 is success) for ";
constexpr const char kResultPackage[] = " package [";
constexpr const char kNotAvailablePrefix[] = "signing_validate_package_list: component '";
constexpr const char kNotAvailableSuffix[] = "' is not verified because it is not available";

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

RunReport::RunReport(HostSession& session) {
    for (const Product* product : session.Installation().Products()) {
        for (const Component* component : product->components) {
            ComponentOutcome outcome;
            outcome.product = product->name;
            outcome.name = component->name;
            outcome.type = component->type();
            outcome.path = session.Expand(component->packageFolder) + "/" + component->packageFile;
            m_Components.push_back(outcome);
        }
    }
}

void RunReport::OnSessionWrite(const std::string& key, const std::string& value) {
    if (key == "operation_progress") {
        m_ProgressValues.push_back(value);
    }
}

long RunReport::CurrentIndex() const {
    // The first write is the start of the run; each later one announces
    // the next component.
    if (m_ProgressValues.size() < 2 || m_ProgressValues.size() - 2 >= m_Components.size()) {
        return -1;
    }
    return static_cast<long>(m_ProgressValues.size() - 2);
}

std::string RunReport::CurrentLabel() const {
    long index = CurrentIndex();
    if (index < 0) {
        return std::string();
    }
    const ComponentOutcome& current = m_Components[static_cast<size_t>(index)];
    return current.product + "/" + current.name;
}

void RunReport::OnLogLine(const std::string& line) {
    long index = CurrentIndex();
    if (index < 0) {
        return;
    }
    ComponentOutcome* current = &m_Components[static_cast<size_t>(index)];
    if (StartsWith(line, kNotAvailablePrefix) && EndsWith(line, kNotAvailableSuffix)) {
        current->kind = ComponentOutcome::Kind::NotAvailable;
        return;
    }
    if (!StartsWith(line, kResultPrefix)) {
        return;
    }
    const char* number = line.c_str() + sizeof(kResultPrefix) - 1;
    char* end = nullptr;
    errno = 0;
    long status = std::strtol(number, &end, 10);
    if (end == number || errno != 0) {
        return;
    }
    std::string rest(end);
    if (!StartsWith(rest, kResultMiddle) || !EndsWith(rest, "]")) {
        return;
    }
    rest = rest.substr(sizeof(kResultMiddle) - 1);
    // "<path> package [<message>]": the path is known, so a path that holds
    // " package [" itself is still split correctly.
    std::string knownPrefix = current->path + kResultPackage;
    size_t messageStart;
    if (StartsWith(rest, knownPrefix)) {
        messageStart = knownPrefix.size();
    } else {
        size_t split = rest.find(kResultPackage);
        if (split == std::string::npos) {
            return;
        }
        messageStart = split + sizeof(kResultPackage) - 1;
    }
    current->kind = ComponentOutcome::Kind::Verified;
    current->status = static_cast<int>(status);
    current->message = rest.substr(messageStart, rest.size() - messageStart - 1);
}

bool RunReport::AnyFailed() const {
    for (const ComponentOutcome& outcome : m_Components) {
        if (outcome.kind == ComponentOutcome::Kind::Verified && outcome.status != 0) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> SplitPrerequisiteList(const std::string& value) {
    std::vector<std::string> entries;
    if (value.empty()) {
        return entries;
    }
    size_t start = value[0] == ';' ? 1 : 0;
    while (true) {
        size_t next = value.find(';', start);
        entries.push_back(value.substr(start, next == std::string::npos ? std::string::npos : next - start));
        if (next == std::string::npos) {
            break;
        }
        start = next + 1;
    }
    return entries;
}

} // namespace host
