#include "LiveOutput.h"

#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace host {
namespace {

constexpr int kBarWidth = 30;
constexpr size_t kMaxLabelLength = 40;

} // namespace

bool LiveOutput::IsTerminal(std::FILE* stream) {
    return stream != nullptr && isatty(fileno(stream)) == 1;
}

void LiveOutput::LogLine(const std::string& line) {
    ClearBar();
    std::fputs(line.c_str(), _Stream);
    if (line.empty() || line.back() != '\n') {
        std::fputc('\n', _Stream);
    }
    DrawBar();
    std::fflush(_Stream);
}

void LiveOutput::Progress(const std::string& value, const std::string& label) {
    char* end = nullptr;
    errno = 0;
    long percent = std::strtol(value.c_str(), &end, 10);
    bool numeric = !value.empty() && end != nullptr && *end == '\0' && errno == 0;
    if (!_Terminal) {
        std::fprintf(_Stream, "progress: %s%s%s%s\n", value.c_str(), numeric ? "%" : "",
                     label.empty() ? "" : " ", label.c_str());
        std::fflush(_Stream);
        return;
    }
    _Percent = numeric ? (percent < 0 ? 0 : (percent > 100 ? 100 : percent)) : _Percent;
    _Label = label.size() > kMaxLabelLength ? label.substr(0, kMaxLabelLength - 3) + "..." : label;
    _BarShown = true;
    ClearBar();
    DrawBar();
    std::fflush(_Stream);
}

void LiveOutput::Finish() {
    if (_Terminal && _BarShown) {
        ClearBar();
        _BarShown = false;
        std::fflush(_Stream);
    }
}

void LiveOutput::ClearBar() {
    if (_Terminal && _BarShown) {
        std::fputs("\r\033[K", _Stream);
    }
}

void LiveOutput::DrawBar() {
    if (!_Terminal || !_BarShown) {
        return;
    }
    int filled = static_cast<int>(_Percent * kBarWidth / 100);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kBarWidth - filled), '-');
    std::fprintf(_Stream, "[%s] %3ld%%  %s", bar.c_str(), _Percent, _Label.c_str());
}

} // namespace host
