// The reference host's log. print_log formats a line printf-style, keeps it
// in memory (so that tests and the host program can read back exactly what
// the plug-in wrote) and writes it to standard error, to a log file, or
// nowhere, as configured.
#ifndef HOST_SESSION_HOSTLOG_H
#define HOST_SESSION_HOSTLOG_H

#include <functional>
#include <string>
#include <vector>

namespace host {

class HostLog {
public:
    // Where lines go besides the in-memory capture. Standard error is the
    // default; a log file is opened for appending (never through a symbolic
    // link; a new one gets mode 0600).
    static void WriteToStandardError();
    static void WriteToFile(const std::string& path); // throws std::runtime_error when it cannot be opened
    static void WriteNowhere();

    // Called with every line after it is recorded and written, on the
    // thread that logged it and outside the log's lock (so the listener may
    // log itself). An empty function removes the listener.
    static void SetListener(std::function<void(const std::string& line)> listener);

    // Every line logged since the last Clear(), in order and exactly as
    // formatted (a format that ends in a line feed keeps it).
    static std::vector<std::string> Lines();
    // Lines(), then Clear().
    static std::vector<std::string> TakeLines();
    static void Clear();

    // Records one formatted line and writes it to the configured sink; a
    // line feed is added on output unless the line ends in one.
    static void Write(const std::string& line);
};

} // namespace host

#endif
