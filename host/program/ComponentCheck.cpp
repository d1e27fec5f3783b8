#include "ComponentCheck.h"

#include <cctype>

namespace host {

bool ComponentCheck::IsNearMissType(const std::string& type) {
    if (type == kRpmType) {
        return false;
    }
    size_t first = 0;
    size_t last = type.size();
    while (first < last && std::isspace(static_cast<unsigned char>(type[first])) != 0) {
        ++first;
    }
    while (last > first && std::isspace(static_cast<unsigned char>(type[last - 1])) != 0) {
        --last;
    }
    std::string core;
    for (size_t i = first; i < last; ++i) {
        core += static_cast<char>(std::tolower(static_cast<unsigned char>(type[i])));
    }
    return core == kRpmType;
}

bool ComponentCheck::IsMeantAsRpm(const std::string& type) {
    return type == kRpmType || IsNearMissType(type);
}

std::vector<std::string> ComponentCheck::UnsetVariables(const HostSession& session,
                                                        const std::string& operand) {
    // Exactly the references that the expansion replaces.
    std::vector<std::string> names;
    HostSession::ForEachReference(operand, [&](size_t start, size_t end) {
        std::string name = operand.substr(start + 2, end - start - 2);
        if (!session.HasValue(name)) {
            names.push_back(name);
        }
    });
    return names;
}

std::vector<ComponentNotice> ComponentCheck::Inspect(HostSession& session) {
    std::vector<ComponentNotice> notices;
    size_t index = 0;
    for (const Product* product : session.Installation().Products()) {
        for (const Component* component : product->components) {
            const std::string label = product->name + "/" + component->name;
            const std::string type = component->type();
            if (IsNearMissType(type)) {
                notices.push_back({index, label,
                                   "its type \"" + type + "\" is not exactly \"" + kRpmType +
                                       "\", so the plug-in does not verify it"});
            }
            if (IsMeantAsRpm(type)) {
                for (const std::string& name : UnsetVariables(session, component->packageFolder)) {
                    notices.push_back({index, label,
                                       "its package folder \"" + component->packageFolder + "\" uses ${" +
                                           name + "}, which is not set and expands to nothing"});
                }
            }
            ++index;
        }
    }
    return notices;
}

} // namespace host
