// Helpers of the FileHelper tests: the texts of its exceptions, file modes,
// resolved paths, and the umask and working directory set for one test.
#ifndef SIGNING_TEST_FILE_TEST_SUPPORT_H
#define SIGNING_TEST_FILE_TEST_SUPPORT_H

#include "ExceptionText.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

// The FileHelper tests take these with `using namespace filetest`.
namespace filetest {

using testsupport::ThrownText;
using testsupport::ThrownTextNotOf;

// The system's text for an errno value, as FileHelper puts it in its
// exception texts.
inline std::string Error(int error) {
    return std::strerror(error);
}

const std::string kFileError = "File operation error: ";
const std::string kNotFound = "File operation error: File not found: ";

// The text of the FileIoException that call throws, which must not be a
// FileNotFoundException.
template <typename Call> std::string FileErrorText(Call call) {
    return ThrownTextNotOf<FileIoException, FileNotFoundException>(call);
}

// A file named "f" with the given content in a fresh temporary folder,
// opened with FileHelper.
class OpenedTempFile {
public:
    explicit OpenedTempFile(const std::string& content) : m_Path(Written(m_Dir, content)), m_File(m_Path) {}

    FileHelper& File() { return m_File; }
    const std::string& Path() const { return m_Path; }

private:
    static std::string Written(const testsupport::TempDir& dir, const std::string& content) {
        testsupport::WriteFile(dir.File("f"), content);
        return dir.File("f");
    }

    testsupport::TempDir m_Dir;
    std::string m_Path;
    FileHelper m_File;
};

// One read of a test: where and how much to read, and the bytes it must give
// (their count is the answer the read must return).
struct ReadCase {
    unsigned long position;
    unsigned long length;
    std::string bytes;
};

// Makes each read with (file.*read)(buffer, position, length) in turn and
// checks its answer and the bytes it gave.
inline void ExpectReads(const FileHelper& file,
                        long (FileHelper::*read)(char*, unsigned long, unsigned long) const,
                        const std::vector<ReadCase>& cases) {
    for (const ReadCase& c : cases) {
        SCOPED_TRACE("read of " + std::to_string(c.length) + " at " + std::to_string(c.position));
        char buffer[64] = {};
        ASSERT_LE(c.length, sizeof buffer);
        EXPECT_EQ((file.*read)(buffer, c.position, c.length), static_cast<long>(c.bytes.size()));
        EXPECT_EQ(std::string(buffer, c.bytes.size()), c.bytes);
    }
}

// Makes each read from the current position with file.Read(buffer, length)
// in turn: the lengths and the bytes each read must give.
inline void ExpectSequentialReads(const FileHelper& file,
                                  const std::vector<std::pair<unsigned long, std::string>>& cases) {
    for (const auto& [length, bytes] : cases) {
        SCOPED_TRACE("read of " + std::to_string(length));
        char buffer[64] = {};
        ASSERT_LE(length, sizeof buffer);
        EXPECT_EQ(file.Read(buffer, length), static_cast<long>(bytes.size()));
        EXPECT_EQ(std::string(buffer, bytes.size()), bytes);
    }
}

// The permission bits of a file (expects it to exist).
inline mode_t ModeOf(const std::string& path) {
    struct stat status;
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// The canonical absolute path, or an empty text when it does not resolve.
inline std::string RealPath(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    std::string result = resolved != nullptr ? resolved : "";
    std::free(resolved);
    return result;
}

// Sets the process's umask for the lifetime of the object.
class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : m_Old(umask(mask)) {}
    ~UmaskScope() { umask(m_Old); }
    UmaskScope(const UmaskScope&) = delete;
    UmaskScope& operator=(const UmaskScope&) = delete;

private:
    mode_t m_Old;
};

// Changes the working directory for the lifetime of the object.
class WorkingDirectoryScope {
public:
    explicit WorkingDirectoryScope(const std::string& path) : m_Old(RealPath(".")) {
        EXPECT_EQ(chdir(path.c_str()), 0);
    }
    ~WorkingDirectoryScope() {
        if (chdir(m_Old.c_str()) != 0) {
            ADD_FAILURE() << "cannot return to " << m_Old;
        }
    }
    WorkingDirectoryScope(const WorkingDirectoryScope&) = delete;
    WorkingDirectoryScope& operator=(const WorkingDirectoryScope&) = delete;

private:
    std::string m_Old;
};

} // namespace filetest

#endif
