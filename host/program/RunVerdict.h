// The exit code of a run and the lines that explain it, printed after the
// summary: the host's advice for each failed component (the plug-in's
// verdict stays as it is), with --strict the components of type rpm that
// were not verified, and the meaning of the exit code.
#ifndef HOST_PROGRAM_RUNVERDICT_H
#define HOST_PROGRAM_RUNVERDICT_H

#include "ComponentCheck.h"
#include "HostSession.h"
#include "KeyProbe.h"
#include "RunReport.h"

#include <string>
#include <vector>

namespace host {

struct RunVerdict {
    int exitCode = 0;
    int pluginResult = 0;                // the entry point's return value
    std::vector<std::string> advice;     // "product/component: advice"
    std::vector<std::string> unverified; // with --strict: "product/component: reason"
};

class RunJudge {
public:
    // result: the entry point's return value; verify: the plug-in's
    // rpm_verify, used to explain error answers. Reads the key the plug-in
    // used: the "signature" value, or else the downloaded key in
    // TEMP_FOLDER.
    static RunVerdict Judge(int result, HostSession& session, const RunReport& report,
                            const std::vector<ComponentNotice>& notices, bool strict, VerifyFunction verify);

    // Prints the advice, the strict check and the exit code's meaning.
    static void Print(const RunVerdict& verdict, bool strict);
};

} // namespace host

#endif
