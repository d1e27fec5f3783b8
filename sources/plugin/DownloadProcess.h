// One run of a key download command, bounded in time and in the size of the
// files it writes.
#ifndef SIGNING_DOWNLOADPROCESS_H
#define SIGNING_DOWNLOADPROCESS_H

#include <string>

// The download runs as `sh -c <command>` in a process group of its own, so
// that the shell and the tool it starts can be ended together. Its standard
// output is a pipe that is closed at once: the tool writes the key into its
// output file, and nothing it prints is read.
class __attribute__((visibility("hidden"))) DownloadProcess {
public:
    // How one run ended.
    enum class End {
        NotStarted, // no pipe or no process could be made
        Finished,   // the shell ended; WaitStatus() holds its wait status
        TimedOut,   // the deadline passed and the process group was killed
    };

    // A download that has not finished after this many seconds is killed.
    // The tools' own time-outs only bound the time between two bytes, so a
    // service that trickles would otherwise hold the installer for ever.
    static constexpr int kDeadlineSeconds = 30;

    // fileSizeLimit bounds every file the command writes (RLIMIT_FSIZE): a
    // service that floods cannot fill the disk.
    DownloadProcess(std::string command, unsigned long fileSizeLimit);

    End Run();
    int WaitStatus() const { return m_WaitStatus; }

private:
    std::string m_Command;
    unsigned long m_FileSizeLimit;
    int m_WaitStatus = -1;
};

#endif
