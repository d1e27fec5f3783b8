// Routes the host's log for one command: every line goes to the listener
// (which shows it live) and, with --log, is also appended to a file. The
// listener is removed when the object dies.
#ifndef HOST_PROGRAM_LOGROUTING_H
#define HOST_PROGRAM_LOGROUTING_H

#include <functional>
#include <string>

namespace host {

class LogRouting {
public:
    // logFile empty: no file. Throws SetupError when the file cannot be
    // opened.
    LogRouting(const std::string& logFile, std::function<void(const std::string&)> listener);
    ~LogRouting();
    LogRouting(const LogRouting&) = delete;
    LogRouting& operator=(const LogRouting&) = delete;
};

} // namespace host

#endif
