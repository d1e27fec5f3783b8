// What signing-host shows on standard error while the plug-in runs: the
// plug-in's log lines as they are written, and the progress that the
// plug-in reports in "operation_progress", as a bar on a terminal or as
// plain "progress:" lines otherwise.
#ifndef HOST_PROGRAM_LIVEOUTPUT_H
#define HOST_PROGRAM_LIVEOUTPUT_H

#include <cstdio>
#include <string>

namespace host {

class LiveOutput {
public:
    // terminal: draw a bar that each new line of output moves down.
    LiveOutput(std::FILE* stream, bool terminal) : _Stream(stream), _Terminal(terminal) {}
    ~LiveOutput() { Finish(); }
    LiveOutput(const LiveOutput&) = delete;
    LiveOutput& operator=(const LiveOutput&) = delete;

    // True when the stream is a terminal.
    static bool IsTerminal(std::FILE* stream);

    void LogLine(const std::string& line);
    // value is the text written to "operation_progress"; label names what
    // is being handled.
    void Progress(const std::string& value, const std::string& label);
    // Removes the bar; later output starts on a clean line.
    void Finish();

private:
    void ClearBar();
    void DrawBar();

    std::FILE* _Stream;
    bool _Terminal;
    bool _BarShown = false;
    long _Percent = 0;
    std::string _Label;
};

} // namespace host

#endif
