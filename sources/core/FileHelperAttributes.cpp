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
