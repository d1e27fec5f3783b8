// FileHelper's folders, wildcard expansion, permissions, group and extended
// attributes, on real folders and files in temporary folders.
#include "Exceptions.h"
#include "FileHelper.h"
#include "FileTestSupport.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <list>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

using namespace filetest;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

namespace {

std::list<std::string> Expand(const std::string& pattern) {
    std::list<std::string> names;
    FileHelper::ParseWildcards(pattern, names);
    return names;
}

std::list<std::string> Sorted(std::list<std::string> names) {
    names.sort();
    return names;
}

// A folder tree for the wildcard tests:
//   X2.Rpm  a b.rpm  x.rpm  xarpm  y.txt  f(1).txt
//   a1/k.rpm  a1/deep/z.rpm  a2/k.rpm  b/k.rpm
class FileHelperWildcardTree : public ::testing::Test {
protected:
    void SetUp() override {
        m_Root = RealPath(m_Dir.Path());
        for (const char* folder : {"a1", "a1/deep", "a2", "b"}) {
            ASSERT_EQ(mkdir((m_Root + "/" + folder).c_str(), 0700), 0);
        }
        for (const char* file : {"X2.Rpm", "a b.rpm", "x.rpm", "xarpm", "y.txt", "f(1).txt", "a1/k.rpm",
                                 "a1/deep/z.rpm", "a2/k.rpm", "b/k.rpm"}) {
            WriteFile(m_Root + "/" + file, file);
        }
    }
    std::string At(const std::string& relative) const { return m_Root + "/" + relative; }

    TempDir m_Dir;
    std::string m_Root;
};

// Skips the test when the file system does not keep user attributes.
#define REQUIRE_USER_XATTRS(path)                                                                            \
    do {                                                                                                     \
        if (setxattr((path).c_str(), "user.probe", "1", 1, 0) != 0) {                                        \
            const int error = errno;                                                                         \
            if (error == ENOTSUP || error == EOPNOTSUPP) {                                                   \
                GTEST_SKIP() << "user extended attributes are not supported at " << (path) << ": "           \
                             << std::strerror(error);                                                        \
            }                                                                                                \
            FAIL() << "cannot probe extended attributes: " << std::strerror(error);                          \
        }                                                                                                    \
        ASSERT_EQ(removexattr((path).c_str(), "user.probe"), 0);                                             \
    } while (0)

std::vector<std::string> UserAttributes(const FileHelper& file) {
    std::vector<std::string> names;
    for (const std::string& name : file.ListXAttrs()) {
        if (name.compare(0, 5, "user.") == 0) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

// ---------------------------------------------------------------------------
// Wildcards

TEST(FileHelperWildcard, IsPattern) {
    EXPECT_FALSE(FileHelper::IsPattern("a/b.rpm"));
    EXPECT_TRUE(FileHelper::IsPattern("a/*.rpm"));
    EXPECT_TRUE(FileHelper::IsPattern("a/b?.rpm"));
    EXPECT_FALSE(FileHelper::IsPattern(""));
    EXPECT_FALSE(FileHelper::IsPattern("[ab].rpm"));
}

TEST_F(FileHelperWildcardTree, StarMatchesCaseInsensitivelyAndNotABlank) {
    EXPECT_EQ(Expand(At("*.RPM")), (std::list<std::string>{At("X2.Rpm"), At("x.rpm")}));
    EXPECT_EQ(Expand(At("*.txt")), (std::list<std::string>{At("f(1).txt"), At("y.txt")}));
}

TEST_F(FileHelperWildcardTree, QuestionMarkMatchesExactlyOneNameCharacter) {
    EXPECT_EQ(Expand(At("?.rpm")), (std::list<std::string>{At("x.rpm")}));
    EXPECT_EQ(Expand(At("??.rpm")), (std::list<std::string>{At("X2.Rpm")}));
    // A question mark matches the point too, but not the blank.
    EXPECT_EQ(Expand(At("x?rpm")), (std::list<std::string>{At("x.rpm"), At("xarpm")}));
    EXPECT_EQ(Expand(At("a?b.rpm")), std::list<std::string>{});
}

TEST_F(FileHelperWildcardTree, PointsAndParenthesesAreLiteral) {
    EXPECT_EQ(Expand(At("x.rp?")), (std::list<std::string>{At("x.rpm")}));
    EXPECT_EQ(Expand(At("f(1)*")), (std::list<std::string>{At("f(1).txt")}));
    EXPECT_EQ(Expand(At("f(?)*")), (std::list<std::string>{At("f(1).txt")}));
}

TEST_F(FileHelperWildcardTree, WildcardInAFolderComponent) {
    EXPECT_EQ(Expand(At("a?/k.rpm")), (std::list<std::string>{At("a1/k.rpm"), At("a2/k.rpm")}));
    EXPECT_EQ(Expand(At("*/k.rpm")), (std::list<std::string>{At("a1/k.rpm"), At("a2/k.rpm"), At("b/k.rpm")}));
    EXPECT_EQ(Expand(At("*/*/*.rpm")), (std::list<std::string>{At("a1/deep/z.rpm")}));
}

TEST_F(FileHelperWildcardTree, DoubleStarSpansFolders) {
    EXPECT_EQ(Sorted(Expand(At("**.rpm"))), Sorted({At("X2.Rpm"), At("a b.rpm"), At("x.rpm"), At("a1/k.rpm"),
                                                    At("a1/deep/z.rpm"), At("a2/k.rpm"), At("b/k.rpm")}));
    // A trailing slash stands for everything below the folder.
    EXPECT_EQ(Sorted(Expand(At("a1/"))), Sorted({At("a1/k.rpm"), At("a1/deep"), At("a1/deep/z.rpm")}));
}

TEST_F(FileHelperWildcardTree, PlainPathsAreKeptWhenTheyExist) {
    EXPECT_EQ(Expand(At("y.txt")), (std::list<std::string>{At("y.txt")}));
    EXPECT_EQ(Expand(At("a1")), (std::list<std::string>{At("a1")}));
    EXPECT_EQ(Expand(At("missing.txt")), std::list<std::string>{});
    EXPECT_EQ(Expand(At("missing/*.txt")), std::list<std::string>{});
    EXPECT_EQ(Expand(At("y.txt/*")), std::list<std::string>{});
}

TEST_F(FileHelperWildcardTree, RelativePatternsStartAtTheWorkingDirectory) {
    WorkingDirectoryScope cwd(m_Root);
    EXPECT_EQ(Expand("*.RPM"), (std::list<std::string>{At("X2.Rpm"), At("x.rpm")}));
    EXPECT_EQ(Expand("b/*"), (std::list<std::string>{At("b/k.rpm")}));
}

TEST_F(FileHelperWildcardTree, DriveLetterFormIsKeptAsItIs) {
    ASSERT_EQ(mkdir(At("C:").c_str(), 0700), 0);
    WriteFile(At("C:/x.rpm"), "x");
    WorkingDirectoryScope cwd(m_Root);
    EXPECT_EQ(Expand("C:/*.rpm"), (std::list<std::string>{"C:/x.rpm"}));
}

TEST_F(FileHelperWildcardTree, DuplicatesAreNotAddedTwice) {
    std::list<std::string> names{At("x.rpm")};
    FileHelper::ParseWildcards(At("*.RPM"), names);
    FileHelper::ParseWildcards(At("x*.rpm"), names);
    EXPECT_EQ(names, (std::list<std::string>{At("x.rpm"), At("X2.Rpm")}));
}

namespace {
struct ListCall {
    std::string folder;
    bool recursive;
    bool foldersOnly;
};
std::vector<ListCall> g_ListCalls;

int FakeList(const std::string& folder, std::list<std::string>& names, bool recursive, bool foldersOnly) {
    g_ListCalls.push_back({folder, recursive, foldersOnly});
    names.push_back("ghost.rpm");
    names.push_back("ghost.txt");
    names.push_back("sub");
    return 3;
}
} // namespace

TEST(FileHelperWildcard, CandidatesComeFromTheCallback) {
    TempDir dir;
    const std::string root = RealPath(dir.Path());
    g_ListCalls.clear();
    std::list<std::string> names;
    FileHelper::ParseWildcards(root + "/*.rpm", names, FakeList);
    // The callback's candidates are taken as they are: nothing checks them on disk.
    EXPECT_EQ(names, (std::list<std::string>{root + "/ghost.rpm"}));
    ASSERT_EQ(g_ListCalls.size(), 1u);
    EXPECT_EQ(g_ListCalls[0].folder, root + "/");
    EXPECT_FALSE(g_ListCalls[0].recursive);
    EXPECT_FALSE(g_ListCalls[0].foldersOnly);

    g_ListCalls.clear();
    names.clear();
    FileHelper::ParseWildcards(root + "/s*/**.txt", names, FakeList);
    EXPECT_EQ(names, (std::list<std::string>{root + "/sub/ghost.txt"}));
    ASSERT_EQ(g_ListCalls.size(), 2u);
    EXPECT_FALSE(g_ListCalls[0].recursive);
    EXPECT_TRUE(g_ListCalls[0].foldersOnly); // a folder component
    EXPECT_EQ(g_ListCalls[1].folder, root + "/sub/");
    EXPECT_TRUE(g_ListCalls[1].recursive);
    EXPECT_FALSE(g_ListCalls[1].foldersOnly);
}

TEST_F(FileHelperWildcardTree, GetFileList) {
    std::list<std::string> names;
    EXPECT_EQ(FileHelper::GetFileList(m_Root, names, false, false), 9);
    EXPECT_EQ(names, (std::list<std::string>{"X2.Rpm", "a b.rpm", "a1", "a2", "b", "f(1).txt", "x.rpm",
                                             "xarpm", "y.txt"}));
    names.clear();
    EXPECT_EQ(FileHelper::GetFileList(m_Root, names, false, true), 3);
    EXPECT_EQ(names, (std::list<std::string>{"a1", "a2", "b"}));
    names.clear();
    EXPECT_EQ(FileHelper::GetFileList(At("a1"), names, true, false), 3);
    EXPECT_EQ(Sorted(names), (std::list<std::string>{"deep", "deep/z.rpm", "k.rpm"}));
    names.clear();
    EXPECT_EQ(FileHelper::GetFileList(At("missing"), names, true, false), -1);
    EXPECT_TRUE(names.empty());
}

// ---------------------------------------------------------------------------
// Folders

TEST(FileHelperFolder, CreateFolder) {
    TempDir dir;
    UmaskScope mask(027);
    FileHelper::CreateFolder(dir.File("new"));
    EXPECT_TRUE(FileHelper::IsFolder(dir.File("new")));
    EXPECT_EQ(ModeOf(dir.File("new")), 0750u);
}

TEST(FileHelperFolder, CreateFolderOnAnExistingFolderThrows) {
    TempDir dir;
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::CreateFolder(dir.Path()); }),
              kFileError + "Cannot create directory " + dir.Path() + ": " + Error(EEXIST));
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::CreateFolder(dir.File("a/b")); }),
              kFileError + "Cannot create directory " + dir.File("a/b") + ": " + Error(ENOENT));
}

TEST(FileHelperFolder, DeleteFolderRemovesEverythingDepthFirst) {
    TempDir dir;
    TempDir outside;
    WriteFile(outside.File("keep"), "keep");
    const std::string top = dir.File("top");
    FileHelper::CreateFolder(top);
    FileHelper::CreateFolder(top + "/a");
    FileHelper::CreateFolder(top + "/a/b");
    FileHelper::CreateFolder(top + "/empty");
    WriteFile(top + "/f", "1");
    WriteFile(top + "/a/g", "2");
    WriteFile(top + "/a/b/h", "3");
    // A link to a folder elsewhere is removed, not followed.
    ASSERT_EQ(symlink(outside.Path().c_str(), (top + "/a/link").c_str()), 0);
    FileHelper::DeleteFolder(top);
    EXPECT_FALSE(testsupport::PathExists(top));
    EXPECT_TRUE(testsupport::PathExists(dir.Path()));
    EXPECT_EQ(ReadFile(outside.File("keep")), "keep");
}

TEST(FileHelperFolder, DeleteFolderFailures) {
    TempDir dir;
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::DeleteFolder(dir.File("missing")); }),
              kFileError + "Cannot delete directory " + dir.File("missing") + ": " + Error(ENOENT));
    // A link to a folder given as the folder itself is not entered.
    TempDir outside;
    WriteFile(outside.File("keep"), "keep");
    ASSERT_EQ(symlink(outside.Path().c_str(), dir.File("link").c_str()), 0);
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::DeleteFolder(dir.File("link")); }),
              kFileError + "Cannot delete directory " + dir.File("link") + ": " + Error(ENOTDIR));
    EXPECT_EQ(ReadFile(outside.File("keep")), "keep");
}

TEST(FileHelperFolder, DeleteFolderStopsAtTheFirstFileItCannotRemove) {
    TempDir dir;
    const std::string top = dir.File("top");
    FileHelper::CreateFolder(top);
    WriteFile(top + "/a", "a");
    WriteFile(top + "/b", "b");
    WriteFile(top + "/c", "c");
    // An immutable file cannot be removed, not even by the superuser.
    const int fd = open((top + "/b").c_str(), O_RDONLY);
    ASSERT_NE(fd, -1);
    int flags = 0;
    if (ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
        close(fd);
        GTEST_SKIP() << "file flags are not supported here: " << Error(errno);
    }
    const int plain = flags;
    flags |= FS_IMMUTABLE_FL;
    if (ioctl(fd, FS_IOC_SETFLAGS, &flags) != 0) {
        const int error = errno;
        close(fd);
        GTEST_SKIP() << "cannot make a file immutable here: " << Error(error);
    }
    const std::string text = ThrownText<FileIoException>([&] { FileHelper::DeleteFolder(top); });
    ioctl(fd, FS_IOC_SETFLAGS, &plain);
    close(fd);
    EXPECT_EQ(text, kFileError + "Cannot remove file " + top + "/b: " + Error(EPERM));
    EXPECT_FALSE(testsupport::PathExists(top + "/a"));
    EXPECT_TRUE(testsupport::PathExists(top + "/b"));
    EXPECT_TRUE(testsupport::PathExists(top + "/c")); // not reached
}

TEST(FileHelperFolder, RenameFolderAndRemove) {
    TempDir dir;
    FileHelper::CreateFolder(dir.File("from"));
    WriteFile(dir.File("from/f"), "x");
    FileHelper::RenameFolder(dir.File("from"), dir.File("to"));
    EXPECT_EQ(ReadFile(dir.File("to/f")), "x");
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::RenameFolder(dir.File("from"), dir.File("x")); }),
              kFileError + "Cannot rename folder " + dir.File("from") + ": " + Error(ENOENT));
    FileHelper::Remove(dir.File("to/f"));
    EXPECT_FALSE(testsupport::PathExists(dir.File("to/f")));
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::Remove(dir.File("to/f")); }),
              kFileError + "Cannot remove file " + dir.File("to/f") + ": " + Error(ENOENT));
}

TEST(FileHelperFolder, GetFolderContent) {
    TempDir dir;
    WriteFile(dir.File("b"), "b");
    WriteFile(dir.File("a"), "a");
    FileHelper::CreateFolder(dir.File("sub"));
    WriteFile(dir.File("sub/inner"), "x");
    std::list<std::string> entries{"kept"};
    FileHelper::GetFolderContent(&entries, dir.Path());
    EXPECT_EQ(entries, (std::list<std::string>{"kept", "a", "b", "sub"}));
    entries.clear();
    FileHelper::ProcessFolder(&entries, dir.Path(), "p/", FolderActionCollect);
    EXPECT_EQ(entries, (std::list<std::string>{"p/a", "p/b", "p/sub"}));
}

TEST(FileHelperFolder, GetFolderContentFailures) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    std::list<std::string> entries;
    EXPECT_EQ(
        ThrownText<FileNotFoundException>([&] { FileHelper::GetFolderContent(&entries, dir.File("m")); }),
        kNotFound + "Cannot open directory " + dir.File("m") + ": " + Error(ENOENT));
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::GetFolderContent(&entries, dir.File("f")); }),
              kFileError + "Cannot open directory " + dir.File("f") + ": " + Error(ENOTDIR));
    EXPECT_EQ(ThrownText<ArgumentException>(
                  [&] { FileHelper::ProcessFolder(&entries, dir.Path(), "", static_cast<FolderAction>(7)); }),
              "Invalid argument: Unknown folder action 7");
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(FolderActionCollect, 0);
    EXPECT_EQ(FolderActionDelete, 1);
}

// ---------------------------------------------------------------------------
// Permissions and group

TEST(FileHelperPermissions, CopyAttributesFrom) {
    TempDir dir;
    WriteFile(dir.File("source"), "s");
    WriteFile(dir.File("target"), "t");
    ASSERT_EQ(chmod(dir.File("source").c_str(), 0640), 0);
    ASSERT_EQ(chmod(dir.File("target").c_str(), 0600), 0);
    FileHelper source(dir.File("source"));
    FileHelper target(dir.File("target"));
    target.CopyAttributesFrom(source);
    EXPECT_EQ(ModeOf(dir.File("target")), 0640u);
    ASSERT_EQ(chmod(dir.File("source").c_str(), 0705), 0);
    target.CopyAttributesFrom(source);
    EXPECT_EQ(ModeOf(dir.File("target")), 0705u);
}

TEST(FileHelperPermissions, CopyGroupFrom) {
    TempDir dir;
    WriteFile(dir.File("source"), "s");
    WriteFile(dir.File("target"), "t");
    struct stat before;
    ASSERT_EQ(stat(dir.File("target").c_str(), &before), 0);
    // Choose a group the target does not have yet; only the superuser may
    // give any group, others only their own.
    const gid_t group = geteuid() == 0 ? before.st_gid + 4242 : before.st_gid;
    ASSERT_EQ(chown(dir.File("source").c_str(), static_cast<uid_t>(-1), group), 0);
    FileHelper source(dir.File("source"));
    FileHelper target(dir.File("target"));
    target.CopyGroupFrom(source);
    struct stat after;
    ASSERT_EQ(stat(dir.File("target").c_str(), &after), 0);
    EXPECT_EQ(after.st_gid, group);
    EXPECT_EQ(after.st_uid, before.st_uid);
}

// Both copies name the file they failed on, the target first, without the
// system's error text.
TEST(FileHelperPermissions, CopyFromFailuresCarryNoErrorText) {
    struct Case {
        const char* name;
        void (FileHelper::*copy)(const FileHelper&) const;
        const char* targetText;
        const char* sourceText;
    };
    const Case cases[] = {
        {"CopyAttributesFrom", &FileHelper::CopyAttributesFrom,
         "Cannot restore permissions in file: ", "Cannot read permissions of file: "},
        {"CopyGroupFrom", &FileHelper::CopyGroupFrom,
         "Cannot restore group in file: ", "Cannot read the group of file: "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        WriteFile(dir.File("source"), "s");
        WriteFile(dir.File("target"), "t");
        FileHelper source(dir.File("source"));
        FileHelper target(dir.File("target"));
        ASSERT_EQ(unlink(dir.File("target").c_str()), 0);
        EXPECT_EQ(ThrownText<FileIoException>([&] { (target.*c.copy)(source); }),
                  kFileError + c.targetText + dir.File("target"));
        ASSERT_EQ(unlink(dir.File("source").c_str()), 0);
        EXPECT_EQ(ThrownText<FileIoException>([&] { (target.*c.copy)(source); }),
                  kFileError + c.sourceText + dir.File("source"));
    }
}

TEST(FileHelperPermissions, InheritParentPermissions) {
    TempDir dir;
    FileHelper::CreateFolder(dir.File("sub"));
    ASSERT_EQ(chmod(dir.File("sub").c_str(), 0751), 0);
    WriteFile(dir.File("sub/f"), "x");
    ASSERT_EQ(chmod(dir.File("sub/f").c_str(), 0600), 0);
    FileHelper::InheritParentPermissions(dir.File("sub/f"));
    EXPECT_EQ(ModeOf(dir.File("sub/f")), 0751u);
    // Backslashes are taken as slashes.
    ASSERT_EQ(chmod(dir.File("sub").c_str(), 0705), 0);
    FileHelper::InheritParentPermissions(dir.Path() + "\\sub\\f");
    EXPECT_EQ(ModeOf(dir.File("sub/f")), 0705u);
    // A bare name lives in the current folder.
    ASSERT_EQ(chmod(dir.File("sub").c_str(), 0711), 0);
    {
        WorkingDirectoryScope cwd(dir.File("sub"));
        FileHelper::InheritParentPermissions("f");
    }
    EXPECT_EQ(ModeOf(dir.File("sub/f")), 0711u);
}

TEST(FileHelperPermissions, InheritParentPermissionsFailures) {
    TempDir dir;
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::InheritParentPermissions(dir.File("m/f")); }),
              kFileError + "Cannot read permissions of folder '" + dir.File("m") + "': " + Error(ENOENT));
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::InheritParentPermissions(dir.File("f")); }),
              kFileError + "Cannot restore permissions for file '" + dir.File("f") + "': " + Error(ENOENT));
}

// ---------------------------------------------------------------------------
// Extended attributes

// A file "f" in a fresh folder, opened, on a file system that keeps user
// attributes (the test is skipped elsewhere).
class FileHelperXAttr : public ::testing::Test {
protected:
    void SetUp() override {
        WriteFile(m_Dir.File("f"), "x");
        REQUIRE_USER_XATTRS(m_Dir.File("f"));
        m_File = std::make_unique<FileHelper>(m_Dir.File("f"));
    }
    FileHelper& File() { return *m_File; }

    TempDir m_Dir;
    std::unique_ptr<FileHelper> m_File;
};

TEST_F(FileHelperXAttr, WriteListReadRemove) {
    EXPECT_TRUE(UserAttributes(File()).empty());
    File().WriteXAttr("user.b", "hello", 5);
    File().WriteXAttr("user.a", "x\0y", 3);
    EXPECT_EQ(UserAttributes(File()), (std::vector<std::string>{"user.a", "user.b"}));

    char* value = nullptr;
    long size = 0;
    File().ReadXAttr("user.b", value, size);
    std::unique_ptr<char[]> owned(value);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(std::string(value, static_cast<size_t>(size)), "hello");
    File().ReadXAttr("user.a", value, size);
    owned.reset(value);
    EXPECT_EQ(std::string(value, static_cast<size_t>(size)), std::string("x\0y", 3));

    // Replacing an attribute.
    File().WriteXAttr("user.b", "bye", 3);
    File().ReadXAttr("user.b", value, size);
    owned.reset(value);
    EXPECT_EQ(std::string(value, static_cast<size_t>(size)), "bye");

    File().RemoveXAttr("user.b");
    EXPECT_EQ(UserAttributes(File()), (std::vector<std::string>{"user.a"}));
    char actual[16];
    EXPECT_EQ(getxattr(m_Dir.File("f").c_str(), "user.a", actual, sizeof(actual)), 3);
}

TEST_F(FileHelperXAttr, EmptyAndLargeValues) {
    File().WriteXAttr("user.empty", "", 0);
    char* value = nullptr;
    long size = -1;
    File().ReadXAttr("user.empty", value, size);
    std::unique_ptr<char[]> owned(value);
    EXPECT_NE(value, nullptr);
    EXPECT_EQ(size, 0);
    const std::string large(2000, 'q');
    File().WriteXAttr("user.large", large.data(), static_cast<long>(large.size()));
    File().ReadXAttr("user.large", value, size);
    owned.reset(value);
    EXPECT_EQ(std::string(value, static_cast<size_t>(size)), large);
}

TEST_F(FileHelperXAttr, ReadingAMissingAttributeIsFileNotFound) {
    char* value = reinterpret_cast<char*>(&File());
    long size = 77;
    EXPECT_EQ(ThrownText<FileNotFoundException>([&] { File().ReadXAttr("user.none", value, size); }),
              kNotFound + "Cannot read xattr 'user.none' of '" + m_Dir.File("f") + "':" + Error(ENODATA));
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(size, 0);
}

TEST_F(FileHelperXAttr, FailuresOtherThanAMissingAttributeArePlainFileIoExceptions) {
    ASSERT_EQ(unlink(m_Dir.File("f").c_str()), 0);
    char* value = nullptr;
    long size = 0;
    EXPECT_EQ(FileErrorText([&] { File().ReadXAttr("user.a", value, size); }),
              kFileError + "Cannot read xattr 'user.a' of '" + m_Dir.File("f") + "':" + Error(ENOENT));
    EXPECT_EQ(ThrownText<FileIoException>([&] { File().ListXAttrs(); }),
              kFileError + "Cannot read xattr list of '" + m_Dir.File("f") + "':" + Error(ENOENT));
}

TEST_F(FileHelperXAttr, WriteMessageHasOnlyTheClosingQuote) {
    // A name outside the known namespaces is not supported.
    EXPECT_EQ(ThrownText<FileIoException>([&] { File().WriteXAttr("bogus.name", "hello", 5); }),
              kFileError + "Cannot write 5 bytes into bogus.name' xattr of '" + m_Dir.File("f") +
                  "':" + Error(EOPNOTSUPP));
    EXPECT_EQ(ThrownText<FileIoException>([&] { File().WriteXAttr("user.a", "hello", -1); }),
              kFileError + "Cannot write -1 bytes into user.a' xattr of '" + m_Dir.File("f") +
                  "':" + Error(EINVAL));
    EXPECT_TRUE(UserAttributes(File()).empty());
}

TEST_F(FileHelperXAttr, RemovingAMissingAttributeThrows) {
    EXPECT_EQ(ThrownText<FileIoException>([&] { File().RemoveXAttr("user.none"); }),
              kFileError + "Cannot remove 'user.none' xattr of '" + m_Dir.File("f") + "':" + Error(ENODATA));
}

TEST(FileHelperXAttrFolder, FolderObjectsCarryAttributesToo) {
    TempDir dir;
    REQUIRE_USER_XATTRS(dir.Path());
    FileHelper folder(dir.Path());
    ASSERT_TRUE(folder.IsFolder());
    folder.WriteXAttr("user.tag", "folder", 6);
    char* value = nullptr;
    long size = 0;
    folder.ReadXAttr("user.tag", value, size);
    std::unique_ptr<char[]> owned(value);
    EXPECT_EQ(std::string(value, static_cast<size_t>(size)), "folder");
}
