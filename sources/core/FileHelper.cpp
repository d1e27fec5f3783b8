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
#include <mutex>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

using namespace file_helper_internal;

namespace {

// The chunk size callers use to read a file region piece by piece.
constexpr unsigned long kBufferSize = 65536;

// Linux moves at most this many bytes in one read or write call, so one
// buffer of more than this can never be read or written in one piece.
constexpr unsigned long kMaxTransfer = 0x7ffff000UL;

// Reads length bytes at position, going on after a short read: network and
// FUSE file systems may answer with less than asked before the end of the
// file. Stops at the end of the file (a read of 0) or at a failed read;
// bytes not delivered stay as they were in the buffer. A seek and a read,
// not a positional read: the integer getters leave the file's position
// after the value, where a following Read(buffer, length) goes on.
void ReadUntilEnd(const FileHelper& file, char* buffer, unsigned long position, unsigned long length) {
    unsigned long total = 0;
    while (total < length) {
        const long count = file.Read(buffer + total, position + total, length - total);
        if (count <= 0) {
            return;
        }
        total += static_cast<unsigned long>(count);
    }
}

// Positions below this are inside what every file system allows a file to
// reach, so a positional read there fails exactly when a seek and a read would.
constexpr unsigned long kPositionalReadLimit = 0x80000000UL;

// The sizes the one-string constructor found, for the few file objects open
// at once (a package and a key file): readers take a file's size from here
// instead of asking the system again. An entry lives from the successful
// constructor to the close of its object; it describes the file the object
// has open, so it changes no result. Shared by all threads behind a lock, so
// that an object closed on another thread still removes its entry.
class OpenedSizes {
public:
    void Remember(const FileHelper* file, unsigned long size) {
        std::lock_guard<std::mutex> guard(m_Lock);
        Entry* slot = &m_Entries[m_Next];
        for (Entry& entry : m_Entries) {
            if (entry.file == nullptr || entry.file == file) {
                slot = &entry;
                break;
            }
        }
        if (slot == &m_Entries[m_Next]) {
            m_Next = (m_Next + 1) % kSlots;
        }
        *slot = Entry{file, size};
    }
    void Forget(const FileHelper* file) {
        std::lock_guard<std::mutex> guard(m_Lock);
        for (Entry& entry : m_Entries) {
            if (entry.file == file) {
                entry = Entry{};
            }
        }
    }
    bool Find(const FileHelper* file, unsigned long& size) {
        std::lock_guard<std::mutex> guard(m_Lock);
        for (const Entry& entry : m_Entries) {
            if (entry.file == file) {
                size = entry.size;
                return true;
            }
        }
        return false;
    }

private:
    struct Entry {
        const FileHelper* file = nullptr;
        unsigned long size = 0;
    };
    static constexpr size_t kSlots = 4;
    std::mutex m_Lock;
    Entry m_Entries[kSlots];
    size_t m_Next = 0;
};

// A path whose status cannot be had: missing (FileNotFoundException) or
// otherwise unreadable (FileIoException).
[[noreturn]] void ThrowNoStatus(const std::string& path, int error) {
    const std::string detail =
        contract::kFileCannotGetStatus + path + contract::kQuotedErrorJoint + ErrorText(error);
    if (error == ENOENT) {
        throw FileNotFoundException(detail);
    }
    throw FileIoException(detail);
}

// Never destroyed: file objects may close after static destruction began.
OpenedSizes& Opened() {
    static OpenedSizes* sizes = new OpenedSizes();
    return *sizes;
}

} // namespace

// ---------------------------------------------------------------------------
// Construction

FileHelper::FileHelper(const std::string& path)
    : _Value{}, _Descriptor(-1), _Path(path), _ReadOnly(true), _IsFolder(false) {
    // The status comes from the opened descriptor, so that what is judged
    // (folder, regular file, its size) is what is read; only when the open
    // fails does the path's own status decide between a missing path, a
    // folder that cannot be opened, and a file that cannot be opened.
    // Non-blocking, so that a FIFO or device cannot stall the caller.
    _Descriptor = open(_Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (_Descriptor == -1) {
        const int openError = errno;
        if (stat(_Path.c_str(), &status) != 0) {
            ThrowNoStatus(_Path, errno);
        }
        if (S_ISDIR(status.st_mode)) {
            _IsFolder = true;
            return;
        }
        throw FileIoException(contract::kFileCannotOpen + _Path + contract::kErrorJoint +
                              ErrorText(openError));
    }
    if (fstat(_Descriptor, &status) != 0) {
        const int error = errno;
        close(_Descriptor);
        _Descriptor = -1;
        ThrowNoStatus(_Path, error);
    }
    if (S_ISDIR(status.st_mode)) {
        // A folder object holds no descriptor.
        close(_Descriptor);
        _Descriptor = -1;
        _IsFolder = true;
        return;
    }
    if (S_ISREG(status.st_mode)) {
        Opened().Remember(this, static_cast<unsigned long>(status.st_size));
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

// NOLINTNEXTLINE(bugprone-exception-escape)
FileHelper::~FileHelper() noexcept(false) {
    if (_Descriptor == -1) {
        return;
    }
    Opened().Forget(this);
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

long FileHelper::ReadAt(char* buffer, unsigned long position, unsigned long length) const {
    if (_Descriptor == -1) {
        throw FileIoException(contract::kFileNotOpenBegin + _Path + contract::kFileNotOpenEnd);
    }
    unsigned long size = 0;
    const bool inside =
        position < kPositionalReadLimit || (static_cast<int32_t>(static_cast<uint32_t>(position)) >= 0 &&
                                            GetOpenedSize(size) && position <= size);
    if (inside) {
        const ssize_t count = ::pread(_Descriptor, buffer, length, static_cast<off_t>(position));
        if (count >= 0) {
            return static_cast<long>(count);
        }
    }
    // Whatever a positional read cannot answer the same way (a pipe, which
    // cannot be positioned, a failing read, a position far out) goes the
    // way of the seek and the read, with their exceptions and results.
    return Read(buffer, position, length);
}

long FileHelper::ReadFullyAt(char* buffer, unsigned long position, unsigned long length) const {
    // At least one read, also for no bytes: a file object without a
    // descriptor fails the same way whatever the length.
    unsigned long total = 0;
    do {
        const long count = ReadAt(buffer + total, position + total, length - total);
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        total += static_cast<unsigned long>(count);
    } while (total < length);
    return static_cast<long>(total);
}

bool FileHelper::GetOpenedSize(unsigned long& size) const {
    return _Descriptor != -1 && Opened().Find(this, size);
}

char FileHelper::GetUInt8(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    // A short read leaves the earlier bytes of the value buffer in place.
    ReadUntilEnd(*this, reinterpret_cast<char*>(_Value), position, 1);
    return static_cast<char>(_Value[0]);
}

uint16_t FileHelper::GetUInt16(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    ReadUntilEnd(*this, reinterpret_cast<char*>(_Value), position, sizeof(uint16_t));
    uint16_t value;
    std::memcpy(&value, _Value, sizeof(value));
    return value;
}

uint32_t FileHelper::GetUInt32(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    ReadUntilEnd(*this, reinterpret_cast<char*>(_Value), position, sizeof(uint32_t));
    uint32_t value;
    std::memcpy(&value, _Value, sizeof(value));
    return value;
}

uint64_t FileHelper::GetUInt64(unsigned long position) const {
    if (_IsFolder) {
        return 0;
    }
    ReadUntilEnd(*this, reinterpret_cast<char*>(_Value), position, sizeof(uint64_t));
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
    ReadUntilEnd(*this, buffer.data(), from, length);
    target->WriteBlock(buffer.data(), length);
}

void FileHelper::Close() {
    if (_Descriptor == -1) {
        return;
    }
    Opened().Forget(this);
    if (close(_Descriptor) != 0) {
        throw FileIoException(contract::kFileCannotClose + _Path + contract::kErrorJoint + ErrorText(errno));
    }
    _Descriptor = -1;
}

void FileHelper::Remove() {
    if (_Descriptor != -1) {
        Opened().Forget(this);
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
