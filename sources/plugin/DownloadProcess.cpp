#include "DownloadProcess.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr char kShell[] = "/bin/sh";

// How often the parent looks whether the download has ended.
constexpr long kPollNanoseconds = 5L * 1000 * 1000;

timespec Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

bool Passed(const timespec& deadline) {
    const timespec now = Now();
    return now.tv_sec > deadline.tv_sec || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// Waits for the child, through interruptions by signals.
int WaitFor(pid_t child) {
    int status = -1;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

} // namespace

DownloadProcess::DownloadProcess(std::string command, unsigned long fileSizeLimit)
    : m_Command(std::move(command)), m_FileSizeLimit(fileSizeLimit) {}

DownloadProcess::End DownloadProcess::Run() {
    m_WaitStatus = -1;
    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) {
        return End::NotStarted;
    }
    // Everything the child needs is made before fork: after it, the child
    // only makes calls that are safe in a copy of a threaded process.
    char shellName[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shellName, option, &m_Command[0], nullptr};
    rlimit sizeLimit{};
    getrlimit(RLIMIT_FSIZE, &sizeLimit);
    const rlim_t wanted = static_cast<rlim_t>(m_FileSizeLimit);
    if (sizeLimit.rlim_max == RLIM_INFINITY || sizeLimit.rlim_max > wanted) {
        sizeLimit.rlim_max = wanted;
    }
    sizeLimit.rlim_cur = sizeLimit.rlim_max;

    const pid_t child = fork();
    if (child == -1) {
        close(output[0]);
        close(output[1]);
        return End::NotStarted;
    }
    if (child == 0) {
        setpgid(0, 0);
        setrlimit(RLIMIT_FSIZE, &sizeLimit);
        if (output[1] == STDOUT_FILENO) {
            fcntl(STDOUT_FILENO, F_SETFD, 0);
        } else if (dup2(output[1], STDOUT_FILENO) == -1) {
            _exit(127);
        }
        execv(kShell, arguments);
        _exit(127);
    }
    // Both sides set the group, so it exists whichever runs first.
    setpgid(child, child);
    close(output[1]);
    close(output[0]);

    timespec deadline = Now();
    deadline.tv_sec += kDeadlineSeconds;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child) {
            m_WaitStatus = status;
            return End::Finished;
        }
        if (ended == -1 && errno != EINTR) {
            // The child cannot be waited for (the host reaps its children
            // itself); as with pclose, the status is -1.
            m_WaitStatus = -1;
            return End::Finished;
        }
        if (Passed(deadline)) {
            kill(-child, SIGKILL);
            kill(child, SIGKILL);
            WaitFor(child);
            return End::TimedOut;
        }
        const timespec pause{0, kPollNanoseconds};
        nanosleep(&pause, nullptr);
    }
}
