// The library's one way to touch files: reading packages and keys at
// absolute positions, writing output copies, path queries, folders,
// wildcards, permissions and extended attributes. Every failure is thrown as
// FileIoException or FileNotFoundException whose detail names the path.
#ifndef SIGNING_FILE_HELPER_H
#define SIGNING_FILE_HELPER_H

#include <cstdint>
#include <ctime>
#include <list>
#include <string>
#include <vector>

// What ProcessFolder does with the entries of a folder.
enum FolderAction : int {
    FolderActionCollect = 0, // append the entry names to the caller's list
    FolderActionDelete = 1,  // delete files and sub-folders, then the folder
};

class FileHelper {
public:
    // Opens an existing file for reading; a folder is accepted and opens nothing.
    explicit FileHelper(const std::string& path);
    // path = folder + name as given. openExisting opens read-only, otherwise
    // the file is created (truncated) with its folder's permission bits.
    FileHelper(const std::string& folder, const std::string& name, bool openExisting);
    // Closes the descriptor; a failing close throws, so that the caller
    // learns that the file was not closed.
    // NOLINTNEXTLINE(bugprone-exception-escape)
    ~FileHelper() noexcept(false);

    FileHelper(const FileHelper&) = delete;
    FileHelper& operator=(const FileHelper&) = delete;

    // Reading. A short read is not an error: callers compare the count.
    long Read(char* buffer, unsigned long length) const;
    long Read(char* buffer, unsigned long position, unsigned long length) const;
    void SetPosition(unsigned long position) const;
    // As Read(buffer, position, length), with one positional read instead
    // of a seek and a read: the same count, failures and exceptions, but the
    // file's current position stays where it was. For the library's own
    // readers, which never read from the current position.
    __attribute__((visibility("hidden"))) long ReadAt(char* buffer, unsigned long position,
                                                      unsigned long length) const;
    // ReadAt repeated after short reads (network and FUSE file systems may
    // answer with less than asked before the end of the file) until length
    // bytes are read or a read gives nothing: the count read, or -1 when a
    // read failed. Reads at least once, so a length of 0 still fails on a
    // file object that has nothing open.
    __attribute__((visibility("hidden"))) long ReadFullyAt(char* buffer, unsigned long position,
                                                           unsigned long length) const;
    // The size the one-string constructor found when it opened this file,
    // so that a reader need not ask the system again; false when the object
    // has no such size (a folder, the two-string form, a closed file), and
    // the caller then asks GetSize.
    __attribute__((visibility("hidden"))) bool GetOpenedSize(unsigned long& size) const;
    // Integers in host byte order, as the bytes lie in the file. GetUInt8
    // gives the byte as a (signed) char.
    char GetUInt8(unsigned long position) const;
    uint16_t GetUInt16(unsigned long position) const;
    uint32_t GetUInt32(unsigned long position) const;
    uint64_t GetUInt64(unsigned long position) const;
    // The chunk size callers use to read a region piece by piece.
    unsigned long GetBufferSize() const;

    // Writing. Reached by no entry point: only the package copy writes,
    // and rpm_verify never asks for one.
    void WriteBlock(char* buffer, unsigned long length);
    void AddBlankArea(unsigned long length);
    void CopyData(FileHelper* target, unsigned long from, unsigned long to);
    void Close();
    void Remove();
    void Rename(const std::string& newPath);

    bool IsFolder() const;
    // The path the object was made for.
    const std::string& GetPath() const { return _Path; }

    // Path queries.
    static bool IsExist(const std::string& path);
    static bool IsFolder(const std::string& path);
    static bool IsSymlink(const std::string& path);
    static std::string GetSymlink(const std::string& path);
    static unsigned long GetSize(const std::string& path);
    static time_t GetModificationTime(const std::string& path);
    static std::string GetFilePath(const std::string& path);
    static std::string GetFileName(const std::string& path);
    static std::string GetFileName(const std::string& path, char separator);
    static std::string GetFileExtension(const std::string& path);
    static std::string GetSystemFullPath(const std::string& path);
    static std::string GetExecutableDirectory();
    static std::string GetWorkingDirectory();
    static std::string GetFullName(const std::string& name, bool alsoExecutableDirectory);

    // Folders, wildcards and permissions, down to InheritParentPermissions.
    // Reached by no entry point: kept for the class's fixed shape.
    static void CreateFolder(const std::string& path);
    static void DeleteFolder(const std::string& path);
    static void RenameFolder(const std::string& from, const std::string& to);
    static void Remove(const std::string& path);
    static void GetFolderContent(std::list<std::string>* entries, const std::string& path);
    static void ProcessFolder(std::list<std::string>* entries, const std::string& path,
                              const std::string& prefix, FolderAction action);

    // Wildcards.
    static bool IsPattern(const std::string& path);
    // Appends the names of the folder's entries (relative to the folder) to
    // names: with recursive, also everything below its sub-folders
    // ("sub/name"); with foldersOnly, only folders. Answers the number of
    // names appended, or -1 when the folder cannot be read.
    static int GetFileList(const std::string& folder, std::list<std::string>& names, bool recursive,
                           bool foldersOnly);
    static void ParseWildcards(const std::string& pattern, std::list<std::string>& names,
                               int (*list)(const std::string&, std::list<std::string>&, bool,
                                           bool) = GetFileList);

    // Permissions and group.
    void CopyAttributesFrom(const FileHelper& source) const;
    void CopyGroupFrom(const FileHelper& source) const;
    static void InheritParentPermissions(const std::string& path);

    // Extended attributes of this object's path; reached by no entry point.
    // ReadXAttr hands the caller an array allocated with new[].
    std::vector<std::string> ListXAttrs() const;
    void ReadXAttr(const std::string& name, char*& value, long& size) const;
    void WriteXAttr(const std::string& name, const char* value, long size) const;
    void RemoveXAttr(const std::string& name) const;

private:
    mutable unsigned char _Value[8]; // the bytes of the last integer read
    int _Descriptor;                 // -1 while no file is open
    std::string _Path;
    [[maybe_unused]] bool _ReadOnly; // kept for the file's mode; nothing consults it
    bool _IsFolder;
};

#endif
