// What signing-host shows on standard error while the plug-in runs: the
// plug-in's log lines as they are written, and the progress (packages done
// out of all, or the plug-in's "operation_progress"), as a bar on a
// terminal or as plain "progress:" lines otherwise.
#ifndef HOST_PROGRAM_LIVEOUTPUT_H
#define HOST_PROGRAM_LIVEOUTPUT_H

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

namespace host {

class LiveOutput {
public:
    // terminal: draw a one-line bar that fits the terminal's width and that
    // each new line of output moves down.
    LiveOutput(std::FILE* stream, bool terminal)
        : m_Stream(stream), m_Terminal(terminal), m_Start(std::chrono::steady_clock::now()) {}
    ~LiveOutput() { Finish(); }
    LiveOutput(const LiveOutput&) = delete;
    LiveOutput& operator=(const LiveOutput&) = delete;

    // True when the stream is a terminal.
    static bool IsTerminal(std::FILE* stream);

    void LogLine(const std::string& line);
    // value is the text written to "operation_progress"; label names what
    // is being handled, the done-th of total (total 0: unknown).
    void Progress(const std::string& value, const std::string& label, size_t done = 0, size_t total = 0);
    // done of total items are finished; the bar only, nothing when the
    // stream is not a terminal.
    void Count(size_t done, size_t total, const std::string& label);
    // Runs print (which writes to another stream on the same terminal)
    // with the bar removed, and draws the bar again after it.
    void Above(const std::function<void()>& print);
    // Removes the bar; later output starts on a clean line.
    void Finish();

    // The bar's text for a terminal of the given width: never wider than
    // width - 1 columns, so that the cursor never reaches the last column
    // and the line never wraps.
    static std::string BarText(size_t width, long percent, size_t done, size_t total, double elapsedSeconds,
                               const std::string& label);

private:
    void ClearBar();
    void DrawBar();
    size_t Width() const;

    std::FILE* m_Stream;
    bool m_Terminal;
    std::chrono::steady_clock::time_point m_Start;
    bool m_BarShown = false;
    long m_Percent = 0;
    size_t m_Done = 0;
    size_t m_Total = 0;
    std::string m_Label;
};

} // namespace host

#endif
