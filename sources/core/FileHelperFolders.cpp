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

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

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
            std::string name = relative;
            if (!name.empty()) {
                name.append("/");
            }
            name.append(entry);
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
    // An absolute path, or a drive-letter form, stays as it is.
    if ((!pattern.empty() && pattern[0] == '/') || (pattern.size() > 1 && pattern[1] == ':')) {
        full = pattern;
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
