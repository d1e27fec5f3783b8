#include "TemporaryFolder.h"

#include "ProgramError.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace host {
namespace {

// The folders to remove on a signal. The handler may only use
// async-signal-safe calls, so the paths live in fixed buffers and the
// folder is emptied with raw getdents64/unlinkat.
constexpr int kSlots = 4;
char g_Folders[kSlots][PATH_MAX];
volatile sig_atomic_t g_InUse[kSlots];
constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

struct DirectoryEntry64 {
    unsigned long long inode;
    long long offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};

bool IsDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Removes the files of a folder (and empty subfolders), then the folder.
void RemoveFolderSafely(const char* path) {
    const int folder = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder >= 0) {
        alignas(8) char buffer[4096];
        // Entries are removed while the folder is read: read again until a
        // pass removes nothing.
        for (int pass = 0; pass < 64; ++pass) {
            bool removed = false;
            lseek(folder, 0, SEEK_SET);
            for (;;) {
                const long count = syscall(SYS_getdents64, folder, buffer, sizeof(buffer));
                if (count <= 0) {
                    break;
                }
                for (long at = 0; at < count;) {
                    const auto* entry = reinterpret_cast<const DirectoryEntry64*>(buffer + at);
                    if (entry->length == 0) {
                        break;
                    }
                    if (!IsDotOrDotDot(entry->name) && (unlinkat(folder, entry->name, 0) == 0 ||
                                                        unlinkat(folder, entry->name, AT_REMOVEDIR) == 0)) {
                        removed = true;
                    }
                    at += entry->length;
                }
            }
            if (!removed) {
                break;
            }
        }
        close(folder);
    }
    rmdir(path);
}

void OnTerminatingSignal(int signalNumber) {
    const int saved = errno;
    for (int slot = 0; slot < kSlots; ++slot) {
        if (g_InUse[slot] != 0) {
            RemoveFolderSafely(g_Folders[slot]);
            g_InUse[slot] = 0;
        }
    }
    errno = saved;
    // End as the signal would have, so that the caller sees it.
    signal(signalNumber, SIG_DFL);
    raise(signalNumber);
}

void InstallHandlers() {
    static bool installed = false;
    if (installed) {
        return;
    }
    installed = true;
    for (int signalNumber : kSignals) {
        struct sigaction current {};
        sigaction(signalNumber, nullptr, &current);
        // A signal the caller chose to ignore (nohup) stays ignored.
        if (current.sa_handler == SIG_IGN) {
            continue;
        }
        struct sigaction action {};
        action.sa_handler = OnTerminatingSignal;
        sigemptyset(&action.sa_mask);
        for (int other : kSignals) {
            sigaddset(&action.sa_mask, other);
        }
        sigaction(signalNumber, &action, nullptr);
    }
}

// Runs with the terminating signals blocked, so that the handler never sees
// a slot half written.
template <typename Action> void WithSignalsBlocked(Action action) {
    sigset_t blocked;
    sigset_t previous;
    sigemptyset(&blocked);
    for (int signalNumber : kSignals) {
        sigaddset(&blocked, signalNumber);
    }
    sigprocmask(SIG_BLOCK, &blocked, &previous);
    action();
    sigprocmask(SIG_SETMASK, &previous, nullptr);
}

} // namespace

const std::string& TemporaryFolder::Create() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/signing-host-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) {
        throw SetupError("cannot create a temporary folder from '" + pattern + "': " + std::strerror(errno));
    }
    m_Path = buffer.data();
    if (m_Path.size() < PATH_MAX) {
        WithSignalsBlocked([this] {
            for (int slot = 0; slot < kSlots; ++slot) {
                if (g_InUse[slot] == 0) {
                    std::memcpy(g_Folders[slot], m_Path.c_str(), m_Path.size() + 1);
                    g_InUse[slot] = 1;
                    m_Slot = slot;
                    break;
                }
            }
            InstallHandlers();
        });
    }
    return m_Path;
}

TemporaryFolder::~TemporaryFolder() {
    if (m_Slot >= 0) {
        WithSignalsBlocked([this] { g_InUse[m_Slot] = 0; });
    }
    if (!m_Path.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
}

} // namespace host
