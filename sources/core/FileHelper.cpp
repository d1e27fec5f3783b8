#include "FileHelper.h"

#include "ContractTexts.h"
#include "Exceptions.h"
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

namespace {

// The chunk size callers use to read a file region piece by piece.
constexpr unsigned long kBufferSize = 65536;

// Linux moves at most this many bytes in one read or write call, so one
// buffer of more than this can never be read or written in one piece.
constexpr unsigned long kMaxTransfer = 0x7ffff000UL;

// Symbolic link targets are limited to one page; a larger size in a link's
// status can never be read back completely.
constexpr off_t kMaxSymlinkSize = 65536;

std::string ErrorText(int error) {
    return std::strerror(error);
}

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

struct FreeDeleter {
    void operator()(char* text) const { std::free(text); }
};

// The names of a folder's entries without "." and "..", sorted. Answers
// false (with errno set) when the folder cannot be opened.
bool ReadFolderNames(const std::string& path, std::vector<std::string>& names) {
    DirHandle dir(opendir(path.c_str()));
    if (!dir) {
        return false;
    }
    while (struct dirent* entry = readdir(dir.get())) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return true;
}

std::string JoinPath(const std::string& folder, const std::string& name) {
    if (!folder.empty() && folder.back() == '/') {
        return folder + name;
    }
    return folder + "/" + name;
}

std::string SlashesForBackslashes(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// The containing folder of a path; a bare name lives in the current folder.
std::string ContainingFolder(const std::string& path) {
    std::string folder = FileHelper::GetFilePath(path);
    return folder.empty() ? std::string(contract::kCurrentFolder) : folder;
}

// Turns one path component with shell wildcards into a matcher expression.
// The characters \ . ( ) are first marked with a slash in front; a component
// never holds a slash of its own, so each slash is such a mark and becomes
// the backslash that makes the character literal.
std::string TranslateWildcard(const std::string& component) {
    std::string marked = component;
    for (std::string::size_type pos = marked.find_first_of(contract::kWildcardMarkedCharacters);
         pos != std::string::npos; pos = marked.find_first_of(contract::kWildcardMarkedCharacters, pos + 2)) {
        marked.insert(pos, 1, '/');
    }
    std::string expression;
    for (std::string::size_type i = 0; i < marked.size(); ++i) {
        const char c = marked[i];
        if (c == '/') {
            expression += '\\';
        } else if (c == '*') {
            if (i + 1 < marked.size() && marked[i + 1] == '*') {
                expression += contract::kWildcardDeepExpression;
                ++i;
            } else {
                expression += contract::kWildcardAnyExpression;
            }
        } else if (c == '?') {
            expression += contract::kWildcardOneExpression;
        } else {
            expression += c;
        }
    }
    return expression;
}

void AppendUnique(std::vector<std::string>& paths, const std::string& path) {
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
        paths.push_back(path);
    }
}

} // namespace

// ---------------------------------------------------------------------------
// Construction

FileHelper::FileHelper(const std::string& path)
    : _Value{}, _Descriptor(-1), _Path(path), _ReadOnly(true), _IsFolder(false) {
    struct stat status;
    if (stat(_Path.c_str(), &status) != 0) {
        const int error = errno;
        const std::string detail =
            contract::kFileCannotGetStatus + _Path + contract::kQuotedErrorJoint + ErrorText(error);
        if (error == ENOENT) {
            throw FileNotFoundException(detail);
        }
        throw FileIoException(detail);
    }
    if (S_ISDIR(status.st_mode)) {
        _IsFolder = true;
        return;
    }
    // Non-blocking, so that a FIFO or device cannot stall the caller.
    _Descriptor = open(_Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (_Descriptor == -1) {
        throw FileIoException(contract::kFileCannotOpen + _Path + contract::kErrorJoint + ErrorText(errno));
    }
}

FileHelper::FileHelper(const std::string& folder, const std::string& name, bool openExisting)
    : _Value{}, _Descriptor(-1), _Path(folder + name), _ReadOnly(false), _IsFolder(false) {
    if (openExisting) {
        _Descriptor = open(_Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    } else {
        _Path = SlashesForBackslashes(_Path);
        const std::string parent = ContainingFolder(_Path);
        struct stat parentStatus;
        if (stat(parent.c_str(), &parentStatus) != 0) {
            throw FileIoException(contract::kFileCannotReadFolderPermissions + parent +
                                  contract::kQuotedErrorJoint + ErrorText(errno));
        }
        // A new file gets its folder's permission bits (less the umask).
        _Descriptor = open(_Path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC,
                           parentStatus.st_mode & 0777);
    }
    if (_Descriptor == -1) {
        throw FileIoException(contract::kFileCannotOpen + _Path + contract::kErrorJoint + ErrorText(errno));
    }
    struct stat status;
    if (fstat(_Descriptor, &status) != 0) {
        const int error = errno;
        close(_Descriptor);
        _Descriptor = -1;
        throw FileIoException(contract::kFileCannotOpen + _Path + contract::kErrorJoint + ErrorText(error));
    }
    _IsFolder = S_ISDIR(status.st_mode);
}

FileHelper::~FileHelper() noexcept(false) {
    if (_Descriptor == -1) {
        return;
    }
    if (close(_Descriptor) != 0) {
        const int error = errno;
        // Throwing while another exception unwinds would end the process.
        if (std::uncaught_exceptions() == 0) {
            throw FileIoException(contract::kFileCannotClose + _Path + contract::kErrorJoint +
                                  ErrorText(error));
        }
        return;
    }
    _Descriptor = -1;
}

// ---------------------------------------------------------------------------
// Reading

long FileHelper::Read(char* buffer, unsigned long length) const {
    if (_Descriptor == -1) {
        throw FileIoException(contract::kFileNotOpenBegin + _Path + contract::kFileNotOpenEnd);
    }
    return static_cast<long>(::read(_Descriptor, buffer, length));
}

void FileHelper::SetPosition(unsigned long position) const {
    if (_Descriptor == -1) {
        throw FileIoException(contract::kFileNotOpenBegin + _Path + contract::kFileNotOpenEnd);
    }
    errno = 0;
    const off_t result = lseek(_Descriptor, static_cast<off_t>(position), SEEK_SET);
    // The result is judged by its low 32 bits as a signed number, so
    // positions from 2 GiB to 4 GiB (modulo 4 GiB) are refused; packages are
    // far smaller.
    if (static_cast<int32_t>(static_cast<uint32_t>(result)) < 0) {
        throw FileIoException(contract::kFileCannotPosition + _Path + contract::kQuotedErrorJoint +
                              ErrorText(errno));
    }
}

long FileHelper::Read(char* buffer, unsigned long position, unsigned long length) const {
    SetPosition(position);
    return Read(buffer, length);
}

char FileHelper::GetUInt8(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    // A short read leaves the earlier bytes of the value buffer in place.
    Read(reinterpret_cast<char*>(_Value), position, 1);
    return static_cast<char>(_Value[0]);
}

uint16_t FileHelper::GetUInt16(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    Read(reinterpret_cast<char*>(_Value), position, sizeof(uint16_t));
    uint16_t value;
    std::memcpy(&value, _Value, sizeof(value));
    return value;
}

uint32_t FileHelper::GetUInt32(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    Read(reinterpret_cast<char*>(_Value), position, sizeof(uint32_t));
    uint32_t value;
    std::memcpy(&value, _Value, sizeof(value));
    return value;
}

uint64_t FileHelper::GetUInt64(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    Read(reinterpret_cast<char*>(_Value), position, sizeof(uint64_t));
    uint64_t value;
    std::memcpy(&value, _Value, sizeof(value));
    return value;
}

unsigned long FileHelper::GetBufferSize() const {
    return kBufferSize;
}

// ---------------------------------------------------------------------------
// Writing

void FileHelper::WriteBlock(char* buffer, unsigned long length) {
    if (_IsFolder) {
        return;
    }
    errno = 0;
    const ssize_t written = ::write(_Descriptor, buffer, length);
    // Compared as unsigned: a short write is an error, while a failed write
    // (-1) compares as very large and passes.
    if (static_cast<unsigned long>(written) < length) {
        throw FileIoException(contract::kFileCannotWrite + _Path + contract::kErrorJoint + ErrorText(errno));
    }
}

void FileHelper::AddBlankArea(unsigned long length) {
    if (length == 0 || _IsFolder) {
        return;
    }
    if (length > kMaxTransfer) {
        throw FileIoException("Cannot add a blank area of " + std::to_string(length) + " bytes to file " +
                              _Path + ": more than one write can take");
    }
    std::vector<char> zeros(length);
    WriteBlock(zeros.data(), length);
}

void FileHelper::CopyData(FileHelper* target, unsigned long from, unsigned long to) {
    if (target == nullptr) {
        throw FileIoException("Cannot copy data of file " + _Path + ": no target file");
    }
    if (to < from) {
        throw FileIoException("Cannot copy data of file " + _Path + ": the end " + std::to_string(to) +
                              " lies before the start " + std::to_string(from));
    }
    const unsigned long length = to - from;
    if (length > kMaxTransfer) {
        throw FileIoException("Cannot copy data of file " + _Path + ": " + std::to_string(length) +
                              " bytes are more than one read can take");
    }
    // Bytes the read does not deliver are written as zeros.
    std::vector<char> buffer(length);
    Read(buffer.data(), from, length);
    target->WriteBlock(buffer.data(), length);
}

void FileHelper::Close() {
    if (_Descriptor == -1) {
        return;
    }
    if (close(_Descriptor) != 0) {
        throw FileIoException(contract::kFileCannotClose + _Path + contract::kErrorJoint + ErrorText(errno));
    }
    _Descriptor = -1;
}

void FileHelper::Remove() {
    if (_Descriptor != -1) {
        close(_Descriptor);
        _Descriptor = -1;
    }
    if (unlink(_Path.c_str()) != 0) {
        throw FileIoException(contract::kFileCannotRemove + _Path + contract::kErrorJoint + ErrorText(errno));
    }
}

void FileHelper::Rename(const std::string& newPath) {
    Close();
    if (IsExist(newPath) && unlink(newPath.c_str()) != 0) {
        throw FileIoException(contract::kFileCannotRemove + newPath + contract::kErrorJoint +
                              ErrorText(errno));
    }
    if (rename(_Path.c_str(), newPath.c_str()) != 0) {
        throw FileIoException(contract::kFileCannotRename + _Path + contract::kErrorJoint + ErrorText(errno));
    }
}

bool FileHelper::IsFolder() const {
    return _IsFolder;
}

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
    const std::string full = GetSystemFullPath(name);
    if (!full.empty() && IsExist(full)) {
        return full;
    }
    if (alsoExecutableDirectory) {
        const std::string besideExecutable = GetExecutableDirectory() + name;
        if (IsExist(besideExecutable)) {
            return besideExecutable;
        }
    }
    return name;
}

// ---------------------------------------------------------------------------
// Folders

void FileHelper::CreateFolder(const std::string& path) {
    if (mkdir(path.c_str(), 0777) != 0) {
        throw FileIoException(contract::kFolderCannotCreate + path + contract::kErrorJoint +
                              ErrorText(errno));
    }
}

void FileHelper::DeleteFolder(const std::string& path) {
    ProcessFolder(nullptr, path, "", FolderActionDelete);
}

void FileHelper::RenameFolder(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) != 0) {
        throw FileIoException(contract::kFolderCannotRename + from + contract::kErrorJoint +
                              ErrorText(errno));
    }
}

void FileHelper::Remove(const std::string& path) {
    if (unlink(path.c_str()) != 0) {
        throw FileIoException(contract::kFileCannotRemove + path + contract::kErrorJoint + ErrorText(errno));
    }
}

void FileHelper::GetFolderContent(std::list<std::string>* entries, const std::string& path) {
    ProcessFolder(entries, path, "", FolderActionCollect);
}

void FileHelper::ProcessFolder(std::list<std::string>* entries, const std::string& path,
                               const std::string& prefix, FolderAction action) {
    if (action != FolderActionCollect && action != FolderActionDelete) {
        throw ArgumentException("Unknown folder action " + std::to_string(static_cast<int>(action)));
    }
    std::vector<std::string> names;
    if (action == FolderActionCollect) {
        if (!ReadFolderNames(path, names)) {
            const int error = errno;
            const std::string detail = "Cannot open directory " + path + ": " + ErrorText(error);
            if (error == ENOENT) {
                throw FileNotFoundException(detail);
            }
            throw FileIoException(detail);
        }
        if (entries != nullptr) {
            for (const std::string& name : names) {
                entries->push_back(prefix + name);
            }
        }
        return;
    }

    // Deletion never descends through a symbolic link: a link is removed as
    // a file, and a link given as the folder itself is refused by rmdir.
    struct stat status;
    const bool isLink = lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    // A folder that cannot be listed is left to rmdir, which reports why.
    if (!isLink && ReadFolderNames(path, names)) {
        for (const std::string& name : names) {
            const std::string full = JoinPath(path, name);
            struct stat entryStatus;
            if (lstat(full.c_str(), &entryStatus) == 0 && S_ISDIR(entryStatus.st_mode)) {
                ProcessFolder(entries, full, prefix + name + "/", FolderActionDelete);
            } else if (unlink(full.c_str()) != 0) {
                throw FileIoException(contract::kFileCannotRemove + full + contract::kErrorJoint +
                                      ErrorText(errno));
            }
        }
    }
    if (rmdir(path.c_str()) != 0) {
        throw FileIoException(contract::kFolderCannotDelete + path + contract::kErrorJoint +
                              ErrorText(errno));
    }
}

// ---------------------------------------------------------------------------
// Wildcards

bool FileHelper::IsPattern(const std::string& path) {
    return path.find_first_of(contract::kWildcardCharacters) != std::string::npos;
}

int FileHelper::GetFileList(const std::string& folder, std::list<std::string>& names, bool recursive,
                            bool foldersOnly) {
    // Sub-folders still to list, relative to the folder; an explicit stack
    // keeps deep trees off the call stack. Links to folders are not entered.
    std::vector<std::string> pending{std::string()};
    int count = 0;
    bool first = true;
    while (!pending.empty()) {
        const std::string relative = pending.back();
        pending.pop_back();
        const std::string current = relative.empty() ? folder : JoinPath(folder, relative);
        std::vector<std::string> entries;
        if (!ReadFolderNames(current, entries)) {
            if (first) {
                return -1;
            }
            continue;
        }
        first = false;
        std::vector<std::string> subFolders;
        for (const std::string& entry : entries) {
            const std::string name = relative.empty() ? entry : relative + "/" + entry;
            const std::string full = JoinPath(current, entry);
            if (!foldersOnly || IsFolder(full)) {
                names.push_back(name);
                ++count;
            }
            struct stat status;
            if (recursive && lstat(full.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
                subFolders.push_back(name);
            }
        }
        pending.insert(pending.end(), subFolders.rbegin(), subFolders.rend());
    }
    return count;
}

void FileHelper::ParseWildcards(const std::string& pattern, std::list<std::string>& names,
                                int (*list)(const std::string&, std::list<std::string>&, bool, bool)) {
    if (list == nullptr) {
        list = GetFileList;
    }
    std::string full;
    if (!pattern.empty() && pattern[0] == '/') {
        full = pattern;
    } else if (pattern.size() > 1 && pattern[1] == ':') {
        full = pattern; // a drive-letter form stays as it is
    } else {
        full = GetWorkingDirectory() + pattern;
    }
    if (!full.empty() && full.back() == '/') {
        full += contract::kWildcardDeep;
    }

    std::vector<std::string> components;
    for (std::string::size_type start = 0; start <= full.size();) {
        std::string::size_type slash = full.find('/', start);
        if (slash == std::string::npos) {
            slash = full.size();
        }
        if (slash > start) {
            components.push_back(full.substr(start, slash - start));
        }
        start = slash + 1;
    }

    // The folders reached so far, each ending with a slash ("" is the
    // current folder for a relative drive form).
    std::vector<std::string> current{full[0] == '/' ? std::string("/") : std::string()};
    for (size_t index = 0; index < components.size() && !current.empty(); ++index) {
        const std::string& component = components[index];
        const bool last = index + 1 == components.size();
        std::vector<std::string> next;
        if (!IsPattern(component)) {
            for (const std::string& base : current) {
                const std::string candidate = base + component;
                if (last ? IsExist(candidate) : IsFolder(candidate)) {
                    AppendUnique(next, last ? candidate : candidate + "/");
                }
            }
        } else {
            // "**" spans folders: the candidates are then everything below.
            const bool deep = component.find(contract::kWildcardDeep) != std::string::npos;
            const std::string expression = "^" + TranslateWildcard(component) + "$";
            for (const std::string& base : current) {
                std::list<std::string> candidates;
                list(base.empty() ? std::string(contract::kCurrentFolder) : base, candidates, deep, !last);
                for (const std::string& name : candidates) {
                    if (name.size() > static_cast<size_t>(INT_MAX)) {
                        continue;
                    }
                    if (slre_match(expression.c_str(), name.c_str(), static_cast<int>(name.size()), nullptr,
                                   0, SLRE_IGNORE_CASE) >= 0) {
                        AppendUnique(next, last ? base + name : base + name + "/");
                    }
                }
            }
        }
        current.swap(next);
    }
    if (components.empty()) {
        current.clear();
    }
    for (const std::string& path : current) {
        if (std::find(names.begin(), names.end(), path) == names.end()) {
            names.push_back(path);
        }
    }
}

// ---------------------------------------------------------------------------
// Permissions and group

void FileHelper::CopyAttributesFrom(const FileHelper& source) const {
    struct stat status;
    if (stat(source._Path.c_str(), &status) != 0) {
        throw FileIoException(contract::kPermissionsCannotRead + source._Path);
    }
    if (chmod(_Path.c_str(), status.st_mode & 0777) != 0) {
        throw FileIoException(contract::kPermissionsCannotRestore + _Path);
    }
}

void FileHelper::CopyGroupFrom(const FileHelper& source) const {
    struct stat status;
    if (stat(source._Path.c_str(), &status) != 0) {
        throw FileIoException(contract::kGroupCannotRead + source._Path);
    }
    if (chown(_Path.c_str(), static_cast<uid_t>(-1), status.st_gid) != 0) {
        throw FileIoException(contract::kGroupCannotRestore + _Path);
    }
}

void FileHelper::InheritParentPermissions(const std::string& path) {
    const std::string file = SlashesForBackslashes(path);
    const std::string parent = ContainingFolder(file);
    struct stat status;
    if (stat(parent.c_str(), &status) != 0) {
        throw FileIoException(contract::kFileCannotReadFolderPermissions + parent +
                              contract::kQuotedErrorJoint + ErrorText(errno));
    }
    if (chmod(file.c_str(), status.st_mode & 0777) != 0) {
        throw FileIoException(contract::kPermissionsCannotInherit + file + contract::kQuotedErrorJoint +
                              ErrorText(errno));
    }
}

// ---------------------------------------------------------------------------
// Extended attributes

std::vector<std::string> FileHelper::ListXAttrs() const {
    const ssize_t size = listxattr(_Path.c_str(), nullptr, 0);
    if (size < 0) {
        throw FileIoException(contract::kXAttrCannotList + _Path + contract::kQuotedErrorJointNoBlank +
                              ErrorText(errno));
    }
    std::vector<char> list(static_cast<size_t>(size));
    ssize_t count = 0;
    if (size > 0) {
        count = listxattr(_Path.c_str(), list.data(), list.size());
        if (count < 0) {
            throw FileIoException(contract::kXAttrCannotList + _Path + contract::kQuotedErrorJointNoBlank +
                                  ErrorText(errno));
        }
    }
    // The names follow each other, each ended by a zero byte.
    std::vector<std::string> names;
    size_t start = 0;
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        if (list[i] == '\0') {
            if (i > start) {
                names.emplace_back(list.data() + start, i - start);
            }
            start = i + 1;
        }
    }
    if (start < static_cast<size_t>(count)) {
        names.emplace_back(list.data() + start, static_cast<size_t>(count) - start);
    }
    return names;
}

void FileHelper::ReadXAttr(const std::string& name, char*& value, long& size) const {
    value = nullptr;
    size = 0;
    const std::string detail = contract::kXAttrCannotRead + name + contract::kXAttrOfPath + _Path +
                               contract::kQuotedErrorJointNoBlank;
    const ssize_t length = getxattr(_Path.c_str(), name.c_str(), nullptr, 0);
    if (length < 0) {
        const int error = errno;
        if (error == ENODATA) {
            throw FileNotFoundException(detail + ErrorText(error));
        }
        throw FileIoException(detail + ErrorText(error));
    }
    std::unique_ptr<char[]> buffer(new char[static_cast<size_t>(length)]);
    if (length > 0) {
        const ssize_t count =
            getxattr(_Path.c_str(), name.c_str(), buffer.get(), static_cast<size_t>(length));
        if (count < 0) {
            throw FileIoException(detail + ErrorText(errno));
        }
        // The value may have shrunk since its size was asked.
        size = static_cast<long>(count);
    }
    value = buffer.release();
}

void FileHelper::WriteXAttr(const std::string& name, const char* value, long size) const {
    const std::string detail = contract::kXAttrCannotWrite + std::to_string(size) +
                               contract::kXAttrBytesInto + name + contract::kXAttrXAttrOfPath + _Path +
                               contract::kQuotedErrorJointNoBlank;
    if (size < 0) {
        throw FileIoException(detail + ErrorText(EINVAL));
    }
    if (setxattr(_Path.c_str(), name.c_str(), value, static_cast<size_t>(size), 0) != 0) {
        throw FileIoException(detail + ErrorText(errno));
    }
}

void FileHelper::RemoveXAttr(const std::string& name) const {
    if (removexattr(_Path.c_str(), name.c_str()) != 0) {
        throw FileIoException(contract::kXAttrCannotRemove + name + contract::kXAttrXAttrOfPath + _Path +
                              contract::kQuotedErrorJointNoBlank + ErrorText(errno));
    }
}
