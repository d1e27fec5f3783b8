// What one `signing-host run` learns while the plug-in works: which
// component the plug-in is at (it writes "operation_progress" once at the
// start and once before each component, in the order of the products and
// their components) and the result it logs for that component.
#ifndef HOST_PROGRAM_RUNREPORT_H
#define HOST_PROGRAM_RUNREPORT_H

#include "HostSession.h"

#include <string>
#include <vector>

namespace host {

struct ComponentOutcome {
    enum class Kind {
        NotChecked,   // the plug-in stopped before it (no valid key)
        NotAvailable, // package file missing or type not "rpm"
        Verified,     // rpm_verify answered status and message
    };
    std::string product;
    std::string name;
    std::string type;
    std::string path; // the package path the plug-in builds: expanded folder + "/" + file
    Kind kind = Kind::NotChecked;
    int status = -1;
    std::string message;
};

class RunReport {
public:
    // Takes the components of the session's installation, in order.
    explicit RunReport(HostSession& session);

    // Feed every value the plug-in writes and every line it logs.
    void OnSessionWrite(const std::string& key, const std::string& value);
    void OnLogLine(const std::string& line);

    // "product/component" of the component being handled, empty before the
    // first one.
    std::string CurrentLabel() const;

    const std::vector<ComponentOutcome>& Components() const { return m_Components; }
    const std::vector<std::string>& ProgressValues() const { return m_ProgressValues; }
    bool AnyFailed() const;

private:
    // The index of the component being handled, or -1.
    long CurrentIndex() const;

    std::vector<ComponentOutcome> m_Components;
    std::vector<std::string> m_ProgressValues;
};

// The entries of a prerequisite list value such as ";1;0" (each entry is
// preceded by a semicolon), in order.
std::vector<std::string> SplitPrerequisiteList(const std::string& value);

} // namespace host

#endif
