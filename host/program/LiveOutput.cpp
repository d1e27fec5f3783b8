#include "LiveOutput.h"

#include "SafeText.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace host {
namespace {

constexpr size_t kFallbackWidth = 80;
constexpr size_t kMaxBarWidth = 30;
constexpr size_t kMinBarWidth = 5;
constexpr size_t kMinLabelWidth = 16;

std::string Clock(double seconds) {
    long total = seconds < 0 ? 0 : std::lround(seconds);
    char text[32];
    if (total >= 3600) {
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", total / 3600, total / 60 % 60, total % 60);
    } else {
        std::snprintf(text, sizeof text, "%ld:%02ld", total / 60, total % 60);
    }
    return text;
}

} // namespace

bool LiveOutput::IsTerminal(std::FILE* stream) {
    return stream != nullptr && isatty(fileno(stream)) == 1;
}

void LiveOutput::LogLine(const std::string& line) {
    ClearBar();
    std::fputs(line.c_str(), m_Stream);
    if (line.empty() || line.back() != '\n') {
        std::fputc('\n', m_Stream);
    }
    DrawBar();
    std::fflush(m_Stream);
}

void LiveOutput::Progress(const std::string& value, const std::string& label, size_t done, size_t total) {
    char* end = nullptr;
    errno = 0;
    long percent = std::strtol(value.c_str(), &end, 10);
    bool numeric = !value.empty() && end != nullptr && *end == '\0' && errno == 0;
    if (!m_Terminal) {
        std::fprintf(m_Stream, "progress: %s%s%s%s\n", value.c_str(), numeric ? "%" : "",
                     label.empty() ? "" : " ", label.c_str());
        std::fflush(m_Stream);
        return;
    }
    m_Percent = numeric ? (percent < 0 ? 0 : (percent > 100 ? 100 : percent)) : m_Percent;
    m_Done = done;
    m_Total = total;
    m_Label = SafeText::Escape(label);
    ClearBar();
    m_BarShown = true;
    DrawBar();
    std::fflush(m_Stream);
}

void LiveOutput::Count(size_t done, size_t total, const std::string& label) {
    if (!m_Terminal) {
        return;
    }
    m_Done = done;
    m_Total = total;
    m_Percent = total == 0 ? 0 : static_cast<long>(done * 100 / total);
    m_Label = SafeText::Escape(label);
    ClearBar();
    m_BarShown = true;
    DrawBar();
    std::fflush(m_Stream);
}

void LiveOutput::Above(const std::function<void()>& print) {
    ClearBar();
    std::fflush(m_Stream);
    // No bar while print runs: log lines it writes must not draw one.
    bool shown = m_BarShown;
    m_BarShown = false;
    print();
    m_BarShown = shown;
    DrawBar();
    std::fflush(m_Stream);
}

void LiveOutput::Finish() {
    if (m_Terminal && m_BarShown) {
        ClearBar();
        m_BarShown = false;
        std::fflush(m_Stream);
    }
}

void LiveOutput::ClearBar() {
    if (m_Terminal && m_BarShown) {
        std::fputs("\r\033[K", m_Stream);
    }
}

size_t LiveOutput::Width() const {
    winsize size{};
    if (ioctl(fileno(m_Stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    return kFallbackWidth;
}

std::string LiveOutput::BarText(size_t width, long percent, size_t done, size_t total, double elapsedSeconds,
                                const std::string& label) {
    const size_t room = width > 1 ? width - 1 : 0;
    std::string counter =
        total > 0 ? std::to_string(done) + "/" + std::to_string(total) : std::to_string(percent) + "%";
    // The remaining time, from the pace so far.
    std::string eta = "--:--";
    double fraction = total > 0 ? static_cast<double>(done) / static_cast<double>(total)
                                : static_cast<double>(percent) / 100.0;
    if (fraction > 0) {
        eta = Clock(elapsedSeconds * (1 - fraction) / fraction);
    }
    std::string times = Clock(elapsedSeconds) + " ETA " + eta;
    std::string text = counter + " " + times;
    // "[" bar "] " text, then "  " label when there is room for it.
    size_t fixed = SafeText::Columns(text);
    size_t barWidth = 0;
    if (room >= fixed + 3 + kMinBarWidth) {
        size_t spare = room - fixed - 3;
        size_t labelWish = label.empty() ? 0 : std::min(SafeText::Columns(label), kMinLabelWidth) + 2;
        barWidth = std::min(kMaxBarWidth, spare);
        if (spare - barWidth < labelWish) {
            // A narrow terminal: the bar shrinks first, so that some of the
            // label stays.
            barWidth = std::max(kMinBarWidth, spare > labelWish ? spare - labelWish : 0);
        }
        barWidth = std::min(barWidth, spare);
    }
    std::string line;
    if (barWidth > 0) {
        size_t filled = static_cast<size_t>(fraction * static_cast<double>(barWidth));
        filled = std::min(filled, barWidth);
        line = "[" + std::string(filled, '#') + std::string(barWidth - filled, '-') + "] ";
    }
    line += text;
    size_t used = SafeText::Columns(line);
    if (!label.empty() && used + 2 + 4 <= room) {
        size_t labelRoom = room - used - 2;
        std::string shown = label;
        if (SafeText::Columns(label) > labelRoom) {
            // Keep the end of the label: a path's file name is at its end.
            size_t skip = SafeText::Columns(label) - (labelRoom - 3);
            std::string tail = label;
            while (skip > 0 && !tail.empty()) {
                size_t step = 1;
                while (step < tail.size() && (static_cast<unsigned char>(tail[step]) & 0xC0) == 0x80) {
                    ++step;
                }
                tail.erase(0, step);
                --skip;
            }
            shown = "..." + tail;
        }
        line += "  " + shown;
    }
    return SafeText::FitColumns(line, room);
}

void LiveOutput::DrawBar() {
    if (!m_Terminal || !m_BarShown) {
        return;
    }
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
    std::string bar = BarText(Width(), m_Percent, m_Done, m_Total, elapsed, m_Label);
    std::fputs(bar.c_str(), m_Stream);
}

} // namespace host
