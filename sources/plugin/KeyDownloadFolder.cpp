#include "KeyDownloadFolder.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// The run's private folder and the temporary folder it was made in; empty
// when there is none.
struct PrivateFolder {
    std::string path;
    std::string parent;
    // Removes a folder that is still there when the process ends (a host
    // that asked for the key outside a validation run).
    ~PrivateFolder() { KeyDownloadFolder::EndOfRun(); }
};

PrivateFolder g_Private;

// Unlinks every entry of a folder (without following links), then the folder.
void RemoveFolder(const std::string& path) {
    const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder != -1) {
        DIR* entries = fdopendir(folder);
        if (entries == nullptr) {
            close(folder);
        } else {
            std::vector<std::string> names;
            while (dirent* entry = readdir(entries)) {
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
                    names.emplace_back(entry->d_name);
                }
            }
            for (const std::string& name : names) {
                if (unlinkat(dirfd(entries), name.c_str(), 0) != 0 && errno == EISDIR) {
                    unlinkat(dirfd(entries), name.c_str(), AT_REMOVEDIR);
                }
            }
            closedir(entries);
        }
    }
    rmdir(path.c_str());
}

} // namespace

bool KeyDownloadFolder::IsSafe(const std::string& folder) {
    struct stat status;
    return stat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string KeyDownloadFolder::For(const std::string& temporaryFolder, std::string& error) {
    if (IsSafe(temporaryFolder)) {
        return temporaryFolder;
    }
    if (!g_Private.path.empty() && g_Private.parent == temporaryFolder && IsSafe(g_Private.path)) {
        return g_Private.path;
    }
    EndOfRun();
    std::string pattern = temporaryFolder + kPrivateFolderName;
    if (mkdtemp(&pattern[0]) == nullptr) {
        error = std::strerror(errno);
        return std::string();
    }
    g_Private.path = pattern;
    g_Private.parent = temporaryFolder;
    return g_Private.path;
}

void KeyDownloadFolder::EndOfRun() noexcept {
    if (g_Private.path.empty()) {
        return;
    }
    RemoveFolder(g_Private.path);
    g_Private.path.clear();
    g_Private.parent.clear();
}
