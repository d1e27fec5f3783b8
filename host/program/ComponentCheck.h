// What the host can tell about a component before the plug-in runs: a type
// that is almost "rpm" (the plug-in only verifies the exact spelling), and
// "${NAME}" in its package folder naming a value that is not set (it
// expands to nothing). Such a component is silently not verified, which
// --strict turns into a failure.
#ifndef HOST_PROGRAM_COMPONENTCHECK_H
#define HOST_PROGRAM_COMPONENTCHECK_H

#include "HostSession.h"

#include <string>
#include <vector>

namespace host {

// The package type the plug-in verifies.
constexpr const char kRpmType[] = "rpm";

struct ComponentNotice {
    size_t index = 0;    // in the order of products and their components
    std::string label;   // "product/component"
    std::string problem; // a sentence, e.g. "its type \"rpm \" is not \"rpm\"..."
};

class ComponentCheck {
public:
    // True for a type that differs from "rpm" only in case or surrounding
    // blanks, such as "RPM" or "rpm ".
    static bool IsNearMissType(const std::string& type);

    // True when the component is meant to be verified: its type is "rpm"
    // or a near miss of it.
    static bool IsMeantAsRpm(const std::string& type);

    // The names in "${NAME}" of an operand that the session does not set.
    static std::vector<std::string> UnsetVariables(const HostSession& session, const std::string& operand);

    // The notices for every component of the session's installation.
    static std::vector<ComponentNotice> Inspect(HostSession& session);
};

} // namespace host

#endif
