// The host's print_log and its line capture.
#include "HostLog.h"

#include "session.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unistd.h>

namespace host {
namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The capture and the sink; print_log may be called from any thread of the
// host, so every access holds the lock.
struct LogState {
    std::mutex lock;
    std::vector<std::string> lines;
    bool toStandardError = true;
    std::unique_ptr<std::FILE, FileCloser> file;
    std::function<void(const std::string&)> listener;
};

LogState& State() {
    static LogState state;
    return state;
}

} // namespace

void HostLog::WriteToStandardError() {
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.file.reset();
    state.toStandardError = true;
}

void HostLog::WriteToFile(const std::string& path) {
    // A log may be written under a shared folder: a symbolic link planted
    // at its name is refused, and a new log is readable by its owner only.
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600);
    std::unique_ptr<std::FILE, FileCloser> file(descriptor >= 0 ? fdopen(descriptor, "a") : nullptr);
    if (!file && descriptor >= 0) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
    }
    if (!file) {
        throw std::runtime_error("cannot open the log file " + path);
    }
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.file = std::move(file);
    state.toStandardError = false;
}

void HostLog::SetListener(std::function<void(const std::string& line)> listener) {
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.listener = std::move(listener);
}

void HostLog::WriteNowhere() {
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.file.reset();
    state.toStandardError = false;
}

std::vector<std::string> HostLog::Lines() {
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    return state.lines;
}

std::vector<std::string> HostLog::TakeLines() {
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    std::vector<std::string> lines;
    lines.swap(state.lines);
    return lines;
}

void HostLog::Clear() {
    LogState& state = State();
    std::lock_guard<std::mutex> guard(state.lock);
    state.lines.clear();
}

void HostLog::Write(const std::string& line) {
    LogState& state = State();
    std::function<void(const std::string&)> listener;
    {
        std::lock_guard<std::mutex> guard(state.lock);
        state.lines.push_back(line);
        std::FILE* out = state.file ? state.file.get() : (state.toStandardError ? stderr : nullptr);
        if (out != nullptr) {
            std::fputs(line.c_str(), out);
            if (line.empty() || line.back() != '\n') {
                std::fputc('\n', out);
            }
            std::fflush(out);
        }
        listener = state.listener;
    }
    if (listener) {
        listener(line);
    }
}

} // namespace host

void print_log(const char* format, ...) {
    if (format == nullptr) {
        host::HostLog::Write(std::string());
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    va_list measure;
    va_copy(measure, arguments);
    int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string line;
    if (length < 0) {
        // An encoding error: keep the format so that the line is not lost.
        line = format;
    } else {
        std::vector<char> buffer(static_cast<size_t>(length) + 1, '\0');
        std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
        line.assign(buffer.data(), static_cast<size_t>(length));
    }
    va_end(arguments);
    host::HostLog::Write(line);
}
