#include "LogRouting.h"

#include "HostLog.h"
#include "ProgramError.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace host {

LogRouting::LogRouting(const std::string& logFile, std::function<void(const std::string&)> listener) {
    if (logFile.empty()) {
        HostLog::WriteNowhere();
    } else {
        try {
            errno = 0;
            HostLog::WriteToFile(logFile);
        } catch (const std::runtime_error&) {
            std::string reason = errno != 0 ? std::string(": ") + std::strerror(errno) : std::string();
            throw SetupError("cannot open the log file '" + logFile + "'" + reason);
        }
    }
    HostLog::Clear();
    HostLog::SetListener(std::move(listener));
}

LogRouting::~LogRouting() {
    HostLog::SetListener(nullptr);
    HostLog::WriteNowhere();
}

} // namespace host
