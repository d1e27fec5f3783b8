// The answer of rpm_verify for one package, as the host reports it.
#ifndef HOST_PROGRAM_PACKAGEVERDICT_H
#define HOST_PROGRAM_PACKAGEVERDICT_H

#include <string>
#include <vector>

namespace host {

struct PackageVerdict {
    std::string path;
    // rpm_verify's status, or -1 when it gave no answer (it threw, or the
    // worker process that called it ended).
    int status = -1;
    std::string statusName;
    std::string message;
    // The plug-in's log lines written while this package was checked; only
    // filled in by worker processes, which hand them to the main process.
    std::vector<std::string> logLines;

    // "signed" (status 0), "failed" (a signature or digest check failed,
    // or there is no signature) or "unchecked" (an error status, or no
    // answer at all).
    const char* Outcome() const {
        if (status == 0) {
            return "signed";
        }
        return status >= 1 && status <= 4 ? "failed" : "unchecked";
    }
};

} // namespace host

#endif
