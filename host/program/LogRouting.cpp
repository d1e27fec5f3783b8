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
            const int error = errno;
            std::string reason = error == ELOOP
                                     ? std::string(": it is a symbolic link, which is not followed")
                                 : error != 0 ? std::string(": ") + std::strerror(error)
                                              : std::string();
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
