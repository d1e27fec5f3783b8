// Helpers of the FileHelper tests: the texts of its exceptions, file modes,
// resolved paths, and the umask and working directory set for one test.
#ifndef SIGNING_TEST_FILE_TEST_SUPPORT_H
#define SIGNING_TEST_FILE_TEST_SUPPORT_H

#include "ExceptionText.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

// The FileHelper tests take these with `using namespace filetest`.
namespace filetest {

using testsupport::ThrownText;

// The system's text for an errno value, as FileHelper puts it in its
// exception texts.
inline std::string Error(int error) {
    return std::strerror(error);
}

const std::string kFileError = "File operation error: ";
const std::string kNotFound = "File operation error: File not found: ";

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
