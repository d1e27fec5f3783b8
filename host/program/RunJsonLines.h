// signing-host run --json-lines: one JSON object per component, written as
// soon as the plug-in has moved past it (or has returned), then a summary
// object. The component objects are those of run --json, with "schema",
// "record" and "index" in front (docs/json-schema.md).
#ifndef HOST_PROGRAM_RUNJSONLINES_H
#define HOST_PROGRAM_RUNJSONLINES_H

#include "RunReport.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>

namespace host {

class RunJsonLines {
public:
    // enabled false: every call does nothing.
    RunJsonLines(std::FILE* out, bool enabled) : m_Out(out), m_Enabled(enabled) {}

    // The JSON object of one component, as run --json shows it.
    static nlohmann::ordered_json ComponentRecord(const ComponentOutcome& outcome);

    // Writes the components the plug-in is done with: every one before the
    // component it announced last in "operation_progress".
    void WriteDone(const RunReport& report);
    // Writes the components not written yet, then the summary.
    void Finish(const RunReport& report, const std::string& manifest, const std::string& plugin, int result,
                int exitCode);

private:
    void WriteUpTo(const RunReport& report, size_t end);
    void WriteLine(const nlohmann::ordered_json& record);

    std::FILE* m_Out;
    bool m_Enabled;
    size_t m_Written = 0;
};

} // namespace host

#endif
