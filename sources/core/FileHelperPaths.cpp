#include "FileHelper.h"

#include "ContractTexts.h"
#include "Exceptions.h"
#include "FileHelperInternal.h"
#include "slre.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace file_helper_internal;

namespace {

// Symbolic link targets are limited to one page; a larger size in a link's
// status can never be read back completely.
constexpr off_t kMaxSymlinkSize = 65536;

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }
};

} // namespace

namespace file_helper_internal {

std::string ErrorText(int error) {
    return std::strerror(error);
}

std::string SlashesForBackslashes(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

std::string ContainingFolder(const std::string& path) {
    std::string folder = FileHelper::GetFilePath(path);
    return folder.empty() ? std::string(contract::kCurrentFolder) : folder;
}

} // namespace file_helper_internal

// ---------------------------------------------------------------------------
// Path queries

bool FileHelper::IsExist(const std::string& path) {
    // Readable as an input stream; non-blocking so that a FIFO cannot stall.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor != -1) {
        close(descriptor);
        return true;
    }
    return IsFolder(path);
}

bool FileHelper::IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool FileHelper::IsSymlink(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        throw FileIoException(contract::kFileCannotLstatBegin + path + contract::kFileCannotLstatEnd);
    }
    return S_ISLNK(status.st_mode);
}

std::string FileHelper::GetSymlink(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return std::string();
    }
    if (status.st_size < 0 || status.st_size > kMaxSymlinkSize) {
        throw FileIoException(contract::kFileCannotGetSymlink + path);
    }
    const size_t size = static_cast<size_t>(status.st_size);
    std::vector<char> target(size + 1);
    const ssize_t count = readlink(path.c_str(), target.data(), size);
    if (count < 0 || static_cast<size_t>(count) != size) {
        throw FileIoException(contract::kFileCannotGetSymlink + path);
    }
    target[size] = '\0';
    return std::string(target.data(), size);
}

unsigned long FileHelper::GetSize(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        throw FileIoException(contract::kFileCannotGetSize + path + contract::kQuotedErrorJointNoBlank +
                              ErrorText(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        return 0;
    }
    return static_cast<unsigned long>(status.st_size);
}

time_t FileHelper::GetModificationTime(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        throw FileIoException(contract::kFileCannotGetModificationTime + path +
                              contract::kQuotedErrorJointNoBlank + ErrorText(errno));
    }
    return status.st_mtime;
}

std::string FileHelper::GetFilePath(const std::string& path) {
    const std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos) {
        return std::string();
    }
    return path.substr(0, slash);
}

std::string FileHelper::GetFileName(const std::string& path) {
    return GetFileName(path, '/');
}

std::string FileHelper::GetFileName(const std::string& path, char separator) {
    const std::string::size_type last = path.rfind(separator);
    if (last == std::string::npos) {
        return path;
    }
    return path.substr(last + 1);
}

std::string FileHelper::GetFileExtension(const std::string& path) {
    const std::string::size_type point = path.rfind('.');
    if (point == std::string::npos) {
        return std::string();
    }
    std::string extension = path.substr(point + 1);
    for (char& c : extension) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return extension;
}

std::string FileHelper::GetSystemFullPath(const std::string& path) {
    // An empty answer when the path cannot be resolved (a missing file).
    std::unique_ptr<char, FreeDeleter> resolved(realpath(path.c_str(), nullptr));
    if (!resolved) {
        return std::string();
    }
    return std::string(resolved.get());
}

std::string FileHelper::GetExecutableDirectory() {
    char buffer[4096];
    const ssize_t count = readlink(contract::kExecutableLink, buffer, sizeof(buffer) - 1);
    if (count <= 0) {
        return std::string();
    }
    const std::string executable(buffer, static_cast<size_t>(count));
    const std::string::size_type slash = executable.rfind('/');
    if (slash == std::string::npos) {
        return std::string();
    }
    return executable.substr(0, slash + 1);
}

std::string FileHelper::GetWorkingDirectory() {
    std::unique_ptr<char, FreeDeleter> current(getcwd(nullptr, 0));
    if (!current) {
        throw FileIoException("Cannot get the working directory: " + ErrorText(errno));
    }
    return std::string(current.get()) + "/";
}

std::string FileHelper::GetFullName(const std::string& name, bool alsoExecutableDirectory) {
    std::string full = GetSystemFullPath(name);
    if (!full.empty() && IsExist(full)) {
        return full;
    }
    if (alsoExecutableDirectory) {
        std::string besideExecutable = GetExecutableDirectory() + name;
        if (IsExist(besideExecutable)) {
            return besideExecutable;
        }
    }
    return name;
}
