// The names of the statuses that rpm_verify answers, as the host prints them.
#ifndef HOST_PROGRAM_RPMSTATUSNAMES_H
#define HOST_PROGRAM_RPMSTATUSNAMES_H

#include "rpmutil.h"

#include <array>
#include <string>

namespace host {

struct RpmStatusEntry {
    RPM_STATUS status;
    const char* name;
};

constexpr std::array<RpmStatusEntry, 6> kRpmStatusNames = {{
    {RPM_SIGNED, "RPM_SIGNED"},
    {RPM_NOT_SIGNED, "RPM_NOT_SIGNED"},
    {RPM_INVALID_SIGNATURE, "RPM_INVALID_SIGNATURE"},
    {RPM_INVALID_HASH, "RPM_INVALID_HASH"},
    {RPM_INVALID_STRUCTURE, "RPM_INVALID_STRUCTURE"},
    {RPM_ERROR, "RPM_ERROR"},
}};

// The name of a status, or "UNKNOWN_STATUS" for a number outside the set.
inline std::string RpmStatusName(int status) {
    for (const auto& entry : kRpmStatusNames) {
        if (static_cast<int>(entry.status) == status) {
            return entry.name;
        }
    }
    return "UNKNOWN_STATUS";
}

} // namespace host

#endif
