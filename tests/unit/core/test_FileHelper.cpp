// File access through FileHelper: opening, positioned reads, integers in
// host order, writing, closing, removing, renaming and the path queries,
// all on real files in temporary folders.
#include "Base.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "FileTestSupport.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace filetest;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteBytes;
using testsupport::WriteFile;

namespace {

// The descriptors this process has open, by number.
std::vector<int> OpenDescriptors() {
    std::vector<int> result;
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return result;
    }
    const int own = dirfd(dir);
    while (struct dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != own) {
            result.push_back(std::atoi(entry->d_name));
        }
    }
    closedir(dir);
    return result;
}

// The descriptor through which this process has the file open, or -1.
int DescriptorOf(const std::string& path) {
    for (int fd : OpenDescriptors()) {
        char target[4096];
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t n = readlink(link.c_str(), target, sizeof(target) - 1);
        if (n > 0 && std::string(target, static_cast<size_t>(n)) == path) {
            return fd;
        }
    }
    return -1;
}

} // namespace

// ---------------------------------------------------------------------------
// Opening

TEST(FileHelperOpen, MissingFileIsFileNotFound) {
    TempDir dir;
    const std::string path = dir.File("missing.rpm");
    EXPECT_EQ(ThrownText<FileNotFoundException>([&] { FileHelper file(path); }),
              kNotFound + "Cannot get status for '" + path + "': " + Error(ENOENT));
    EXPECT_EQ(kNotFound + "Cannot get status for '" + path + "': No such file or directory",
              ThrownText<FileNotFoundException>([&] { FileHelper file(path); }));
}

TEST(FileHelperOpen, OtherStatusFailuresArePlainFileIoExceptions) {
    TempDir dir;
    WriteFile(dir.File("plain"), "x");
    // A path through a regular file: ENOTDIR, not a missing file.
    const std::string through = dir.File("plain") + "/x";
    EXPECT_EQ(FileErrorText([&] { FileHelper file(through); }),
              kFileError + "Cannot get status for '" + through + "': " + Error(ENOTDIR));

    // A loop of symbolic links: ELOOP.
    ASSERT_EQ(symlink(dir.File("b").c_str(), dir.File("a").c_str()), 0);
    ASSERT_EQ(symlink(dir.File("a").c_str(), dir.File("b").c_str()), 0);
    EXPECT_EQ(FileErrorText([&] { FileHelper file(dir.File("a")); }),
              kFileError + "Cannot get status for '" + dir.File("a") + "': " + Error(ELOOP));
}

TEST(FileHelperOpen, DanglingLinkIsMissing) {
    TempDir dir;
    ASSERT_EQ(symlink(dir.File("nowhere").c_str(), dir.File("link").c_str()), 0);
    EXPECT_EQ(ThrownText<FileNotFoundException>([&] { FileHelper file(dir.File("link")); }),
              kNotFound + "Cannot get status for '" + dir.File("link") + "': " + Error(ENOENT));
}

TEST(FileHelperOpen, FolderOpensNothingAndReadsZero) {
    TempDir dir;
    const size_t before = OpenDescriptors().size();
    FileHelper folder(dir.Path());
    EXPECT_TRUE(folder.IsFolder());
    EXPECT_EQ(OpenDescriptors().size(), before);
    EXPECT_EQ(folder.GetUInt32(0), 0u);
    EXPECT_EQ(folder.GetUInt8(0), 0);
    EXPECT_EQ(folder.GetUInt16(0), 0u);
    EXPECT_EQ(folder.GetUInt64(0), 0u);
    char data[] = "abc";
    EXPECT_NO_THROW(folder.WriteBlock(data, 3));
    EXPECT_NO_THROW(folder.AddBlankArea(10));
    std::list<std::string> entries;
    FileHelper::GetFolderContent(&entries, dir.Path());
    EXPECT_TRUE(entries.empty()); // nothing was written anywhere
    // Without a descriptor the plain readers refuse.
    char buffer[4];
    EXPECT_EQ(ThrownText<FileIoException>([&] { folder.Read(buffer, 4); }),
              kFileError + "File '" + dir.Path() + "' was not open");
    EXPECT_EQ(ThrownText<FileIoException>([&] { folder.SetPosition(0); }),
              kFileError + "File '" + dir.Path() + "' was not open");
}

TEST(FileHelperOpen, RegularFileIsNotAFolder) {
    TempDir dir;
    WriteFile(dir.File("f"), "abc");
    FileHelper file(dir.File("f"));
    EXPECT_FALSE(file.IsFolder());
}

TEST(FileHelperOpen, GetPathIsThePathTheObjectWasMadeFor) {
    TempDir dir;
    WriteFile(dir.File("f"), "abc");
    EXPECT_EQ(FileHelper(dir.File("f")).GetPath(), dir.File("f"));
    EXPECT_EQ(FileHelper(dir.Path() + "/", "f", true).GetPath(), dir.File("f"));
    EXPECT_EQ(FileHelper(dir.Path() + "\\", "g", false).GetPath(), dir.File("g"));
    EXPECT_EQ(FileHelper(dir.Path()).GetPath(), dir.Path());
}

TEST(FileHelperOpen, FifoDoesNotBlock) {
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0600), 0);
    FileHelper fifo(dir.File("fifo"));
    EXPECT_FALSE(fifo.IsFolder());
    char buffer[4];
    EXPECT_LE(fifo.Read(buffer, 4), 0);
    EXPECT_TRUE(FileHelper::IsExist(dir.File("fifo")));
}

TEST(FileHelperOpen, FailedConstructorsLeaveNoDescriptorOpen) {
    TempDir dir;
    WriteFile(dir.File("plain"), "x");
    const std::vector<int> before = OpenDescriptors();
    EXPECT_THROW(FileHelper(dir.File("missing")), FileNotFoundException);
    EXPECT_THROW(FileHelper(dir.File("plain") + "/x"), FileIoException);
    EXPECT_THROW(FileHelper(dir.File("missing/"), "x", false), FileIoException);
    EXPECT_THROW(FileHelper(dir.Path() + "/", "missing", true), FileIoException);
    EXPECT_THROW(FileHelper(dir.Path() + "/", "", false), FileIoException);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(FileHelperOpen, DestructorClosesTheDescriptor) {
    TempDir dir;
    WriteFile(dir.File("f"), "abc");
    const size_t before = OpenDescriptors().size();
    {
        FileHelper file(dir.File("f"));
        EXPECT_EQ(OpenDescriptors().size(), before + 1);
        EXPECT_NE(DescriptorOf(dir.File("f")), -1);
    }
    EXPECT_EQ(OpenDescriptors().size(), before);
    EXPECT_EQ(DescriptorOf(dir.File("f")), -1);
}

// ---------------------------------------------------------------------------
// Reading

TEST(FileHelperRead, IntegersComeBackInHostOrder) {
    TempDir dir;
    WriteBytes(dir.File("f"), {0x00, 0x00, 0x00, 0x01, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07});
    FileHelper file(dir.File("f"));
    uint32_t value = file.GetUInt32(0);
    EXPECT_EQ(value, 16777216u);
    Base::SwapEndian(reinterpret_cast<unsigned char*>(&value), sizeof(value));
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(file.GetUInt16(4), 0x0100u);
    EXPECT_EQ(file.GetUInt64(4), 0x0706050403020100ull);
    EXPECT_EQ(file.GetUInt8(5), 1);
    static_assert(std::is_same<decltype(file.GetUInt16(0)), uint16_t>::value, "16-bit reader");
    static_assert(std::is_same<decltype(file.GetUInt32(0)), uint32_t>::value, "32-bit reader");
    static_assert(std::is_same<decltype(file.GetUInt64(0)), uint64_t>::value, "64-bit reader");
}

TEST(FileHelperRead, ByteReaderWidensAsSignedCharacter) {
    TempDir dir;
    WriteBytes(dir.File("f"), {0xff, 0x80, 0x7f});
    FileHelper file(dir.File("f"));
    const int ff = file.GetUInt8(0);
    const int eighty = file.GetUInt8(1);
    const int seventyF = file.GetUInt8(2);
    EXPECT_EQ(ff, -1);
    EXPECT_EQ(eighty, -128);
    EXPECT_EQ(seventyF, 127);
    EXPECT_EQ(static_cast<unsigned char>(file.GetUInt8(0)), 0xffu);
}

TEST(FileHelperRead, ShortReadKeepsEarlierBytesOfTheValueBuffer) {
    TempDir dir;
    WriteBytes(dir.File("f"), {0x11, 0x22, 0x33, 0x44, 0x55});
    FileHelper file(dir.File("f"));
    // Eight bytes asked, five there: the buffer started as zeros.
    EXPECT_EQ(file.GetUInt64(0), 0x0000005544332211ull);
    // One byte there at offset 4; bytes 1-3 stay from the read before.
    EXPECT_EQ(file.GetUInt32(4), 0x44332255u);
    // Nothing there at all: the whole value is the last one read.
    EXPECT_EQ(file.GetUInt16(100), 0x2255u);
    EXPECT_EQ(file.GetUInt8(1000), 0x55);
    EXPECT_EQ(file.GetUInt64(5), 0x0000005544332255ull);
}

TEST(FileHelperRead, ReadAnswersTheCountTheSystemGave) {
    OpenedTempFile opened("0123456789");
    FileHelper& file = opened.File();
    // Each read continues at the current position; a short one is not an error.
    ExpectSequentialReads(file, {{4, "0123"}, {4, "4567"}, {16, "89"}, {16, ""}});
    ExpectReads(file, &FileHelper::Read, {{3, 5, "34567"}, {100, 5, ""}});
    EXPECT_EQ(file.GetBufferSize(), 65536u);
}

TEST(FileHelperRead, FailedReadAnswersMinusOne) {
    TempDir dir;
    // The open-existing form keeps a descriptor on a folder; reading it fails.
    FileHelper folder(dir.Path() + "/", "", true);
    EXPECT_TRUE(folder.IsFolder());
    char buffer[4];
    EXPECT_EQ(folder.Read(buffer, 4), -1);
    EXPECT_EQ(folder.GetUInt32(0), 0u);
}

TEST(FileHelperRead, PositionJudgedByItsLowThirtyTwoBitsAsSigned) {
    OpenedTempFile opened("abcdef");
    FileHelper& file = opened.File();
    const std::string& path = opened.Path();
    char buffer[4];
    // 2 GiB: the seek succeeds, but its result reads as negative.
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.SetPosition(0x80000000UL); }),
              kFileError + "Error on positioning file '" + path + "': " + Error(0));
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.SetPosition(0xFFFFFFFFUL); }),
              kFileError + "Error on positioning file '" + path + "': Success");
    EXPECT_THROW(file.GetUInt32(0x80000000UL), FileIoException);
    // 4 GiB and 4 GiB + 2 GiB - 1 read as 0 and 2^31 - 1: accepted.
    EXPECT_NO_THROW(file.SetPosition(0x100000000UL));
    EXPECT_EQ(file.Read(buffer, 4), 0);
    EXPECT_NO_THROW(file.SetPosition(0x17FFFFFFFUL));
    EXPECT_EQ(file.Read(buffer, 0x100000002UL, 2), 0);
    // A position the system refuses.
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.SetPosition(static_cast<unsigned long>(-1)); }),
              kFileError + "Error on positioning file '" + path + "': " + Error(EINVAL));
    EXPECT_NO_THROW(file.SetPosition(2));
    EXPECT_EQ(file.Read(buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "cdef");
}

TEST(FileHelperRead, ReadingAClosedFileThrows) {
    TempDir dir;
    WriteFile(dir.File("f"), "abcd");
    FileHelper file(dir.File("f"));
    file.Close();
    char buffer[4];
    const std::string expected = kFileError + "File '" + dir.File("f") + "' was not open";
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Read(buffer, 4); }), expected);
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Read(buffer, 0, 4); }), expected);
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.GetUInt32(0); }), expected);
}

// ---------------------------------------------------------------------------
// Creating

TEST(FileHelperCreate, NewFileTakesItsFolderPermissions) {
    TempDir dir;
    UmaskScope mask(022);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0775), 0);
    {
        FileHelper file(dir.Path() + "/", "x", false);
        EXPECT_FALSE(file.IsFolder());
    }
    EXPECT_EQ(ModeOf(dir.File("x")), 0755u);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0750), 0);
    { FileHelper file(dir.Path() + "/", "y", false); }
    EXPECT_EQ(ModeOf(dir.File("y")), 0750u);
    UmaskScope noMask(0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0751), 0);
    { FileHelper file(dir.Path() + "/", "z", false); }
    EXPECT_EQ(ModeOf(dir.File("z")), 0751u);
}

TEST(FileHelperCreate, InTmpWithTheModeOfTmp) {
    UmaskScope mask(022);
    const std::string name = "signing-h1-create-" + std::to_string(getpid());
    const mode_t tmpMode = ModeOf("/tmp") & 0777;
    {
        FileHelper file("/tmp/", name, false);
        char data[] = "hello";
        file.WriteBlock(data, 5);
    }
    EXPECT_EQ(ReadFile("/tmp/" + name), "hello");
    EXPECT_EQ(ModeOf("/tmp/" + name), tmpMode & ~022u);
    EXPECT_EQ(unlink(("/tmp/" + name).c_str()), 0);
}

TEST(FileHelperCreate, FolderAndNameAreJoinedWithoutSeparator) {
    TempDir dir;
    // The folder has no trailing slash: the name is glued to it.
    const std::string glued = dir.Path() + "x";
    {
        FileHelper file(dir.Path(), "x", false);
        file.Close();
        char buffer[1];
        EXPECT_EQ(ThrownText<FileIoException>([&] { file.Read(buffer, 1); }),
                  kFileError + "File '" + glued + "' was not open");
    }
    EXPECT_TRUE(testsupport::PathExists(glued));
    EXPECT_FALSE(testsupport::PathExists(dir.File("x")));
    EXPECT_EQ(unlink(glued.c_str()), 0);
}

TEST(FileHelperCreate, BackslashesBecomeSlashes) {
    TempDir dir;
    ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
    UmaskScope mask(0);
    ASSERT_EQ(chmod(dir.File("sub").c_str(), 0705), 0);
    FileHelper file(dir.Path() + "\\", "sub\\f.bin", false);
    EXPECT_TRUE(testsupport::PathExists(dir.File("sub/f.bin")));
    EXPECT_EQ(ModeOf(dir.File("sub/f.bin")), 0705u); // the mode of sub, the containing folder
    file.Close();
    char buffer[1];
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Read(buffer, 1); }),
              kFileError + "File '" + dir.File("sub/f.bin") + "' was not open");
}

TEST(FileHelperCreate, BareNameUsesTheCurrentFolder) {
    TempDir dir;
    EXPECT_EQ(FileHelper::GetFilePath("bare.bin"), "");
    UmaskScope mask(0);
    ASSERT_EQ(chmod(dir.Path().c_str(), 0710), 0);
    {
        WorkingDirectoryScope cwd(dir.Path());
        FileHelper file("", "bare.bin", false);
    }
    EXPECT_EQ(ModeOf(dir.File("bare.bin")), 0710u);
}

TEST(FileHelperCreate, MissingFolderCannotGiveItsPermissions) {
    TempDir dir;
    const std::string folder = dir.File("missing");
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper file(folder + "/", "x", false); }),
              kFileError + "Cannot read permissions of folder '" + folder + "': " + Error(ENOENT));
}

TEST(FileHelperCreate, CreatingOverAFolderFails) {
    TempDir dir;
    ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper file(dir.Path() + "/", "sub", false); }),
              kFileError + "Cannot open file " + dir.File("sub") + ": " + Error(EISDIR));
}

TEST(FileHelperCreate, ExistingFileIsTruncated) {
    TempDir dir;
    WriteFile(dir.File("f"), "old content");
    {
        FileHelper file(dir.Path() + "/", "f", false);
        char data[] = "new";
        file.WriteBlock(data, 3);
    }
    EXPECT_EQ(ReadFile(dir.File("f")), "new");
}

TEST(FileHelperCreate, OpenExistingReadsAndReportsMissingAsFileIoError) {
    TempDir dir;
    WriteBytes(dir.File("f"), {0x00, 0x00, 0x00, 0x02});
    FileHelper file(dir.Path() + "/", "f", true);
    EXPECT_FALSE(file.IsFolder());
    EXPECT_EQ(file.GetUInt32(0), 0x02000000u);
    EXPECT_EQ(FileErrorText([&] { FileHelper missing(dir.Path() + "/", "missing", true); }),
              kFileError + "Cannot open file " + dir.File("missing") + ": " + Error(ENOENT));
}

// ---------------------------------------------------------------------------
// Writing

TEST(FileHelperWrite, WriteBlockAndBlankArea) {
    TempDir dir;
    {
        FileHelper file(dir.Path() + "/", "out", false);
        char data[] = "ab";
        file.WriteBlock(data, 2);
        file.AddBlankArea(0);
        file.AddBlankArea(3);
        file.WriteBlock(data, 0);
        file.WriteBlock(data + 1, 1);
    }
    EXPECT_EQ(ReadFile(dir.File("out")), std::string("ab\0\0\0b", 6));
}

TEST(FileHelperWrite, ShortWriteThrowsButFailedWritePasses) {
    TempDir dir;
    const std::string path = dir.File("limited");
    FileHelper file(dir.Path() + "/", "limited", false);
    char data[32] = "0123456789abcdefghijklmnopqrstu";
    struct rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    struct sigaction ignore = {};
    struct sigaction oldAction = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGXFSZ, &ignore, &oldAction), 0);
    struct rlimit limited = old;
    limited.rlim_cur = 10;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    // Ten of twenty bytes written: a short write.
    const std::string shortText = ThrownText<FileIoException>([&] { file.WriteBlock(data, 20); });
    // At the limit the write fails (-1), which compares as a huge count.
    const std::string failedText = ThrownText<FileIoException>([&] { file.WriteBlock(data, 5); });
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
    ASSERT_EQ(sigaction(SIGXFSZ, &oldAction, nullptr), 0);
    EXPECT_EQ(shortText, kFileError + "Error on writing to file: " + path + ": " + Error(0));
    EXPECT_EQ(failedText, "nothing thrown");
    EXPECT_EQ(ReadFile(path), "0123456789");
}

TEST(FileHelperWrite, WritingThroughAReadOnlyDescriptorPassesSilently) {
    TempDir dir;
    WriteFile(dir.File("f"), "keep");
    FileHelper file(dir.File("f"));
    char data[] = "xxxx";
    EXPECT_NO_THROW(file.WriteBlock(data, 4));
    EXPECT_NO_THROW(file.AddBlankArea(4));
    file.Close();
    EXPECT_NO_THROW(file.WriteBlock(data, 4)); // no descriptor: -1 again
    EXPECT_EQ(ReadFile(dir.File("f")), "keep");
}

TEST(FileHelperWrite, BlankAreaLargerThanOneWriteIsRefused) {
    TempDir dir;
    FileHelper file(dir.Path() + "/", "out", false);
    const unsigned long huge = 0x80000000UL;
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.AddBlankArea(huge); }),
              kFileError + "Cannot add a blank area of 2147483648 bytes to file " + dir.File("out") +
                  ": more than one write can take");
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.AddBlankArea(static_cast<unsigned long>(-1)); }),
              kFileError + "Cannot add a blank area of 18446744073709551615 bytes to file " +
                  dir.File("out") + ": more than one write can take");
    EXPECT_EQ(FileHelper::GetSize(dir.File("out")), 0u);
}

TEST(FileHelperWrite, CopyData) {
    TempDir dir;
    WriteFile(dir.File("in"), "0123456789");
    {
        FileHelper in(dir.File("in"));
        FileHelper out(dir.Path() + "/", "out", false);
        in.CopyData(&out, 2, 6);
        in.CopyData(&out, 0, 0);
        // Past the end: the bytes not read are written as zeros.
        in.CopyData(&out, 8, 12);
    }
    EXPECT_EQ(ReadFile(dir.File("out")), std::string("234589\0\0", 8));
}

TEST(FileHelperWrite, CopyDataRefusesReversedHugeAndTargetless) {
    TempDir dir;
    WriteFile(dir.File("in"), "0123456789");
    FileHelper in(dir.File("in"));
    FileHelper out(dir.Path() + "/", "out", false);
    const std::string prefix = kFileError + "Cannot copy data of file " + dir.File("in") + ": ";
    EXPECT_EQ(ThrownText<FileIoException>([&] { in.CopyData(&out, 6, 2); }),
              prefix + "the end 2 lies before the start 6");
    EXPECT_EQ(ThrownText<FileIoException>([&] { in.CopyData(&out, 0, 0x80000000UL); }),
              prefix + "2147483648 bytes are more than one read can take");
    EXPECT_EQ(ThrownText<FileIoException>([&] { in.CopyData(nullptr, 0, 4); }), prefix + "no target file");
    EXPECT_EQ(FileHelper::GetSize(dir.File("out")), 0u);
}

// ---------------------------------------------------------------------------
// Closing, removing, renaming

TEST(FileHelperClose, CloseTwiceIsHarmless) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    FileHelper file(dir.File("f"));
    EXPECT_NO_THROW(file.Close());
    EXPECT_NO_THROW(file.Close());
    EXPECT_EQ(DescriptorOf(dir.File("f")), -1);
}

TEST(FileHelperClose, FailingCloseThrowsAndKeepsTheDescriptor) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    const std::string path = dir.File("f");
    FileHelper* file = new FileHelper(path);
    const int fd = DescriptorOf(path);
    ASSERT_NE(fd, -1);
    ASSERT_EQ(close(fd), 0); // behind the object's back
    const std::string expected = kFileError + "Cannot close file " + path + ": " + Error(EBADF);
    EXPECT_EQ(ThrownText<FileIoException>([&] { file->Close(); }), expected);
    // The descriptor was kept, so the destructor tries again and throws too.
    EXPECT_EQ(ThrownText<FileIoException>([&] { delete file; }), expected);
}

TEST(FileHelperClose, RemoveDeletesTheFile) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    FileHelper file(dir.File("f"));
    file.Remove();
    EXPECT_FALSE(testsupport::PathExists(dir.File("f")));
    EXPECT_EQ(DescriptorOf(dir.File("f") + " (deleted)"), -1);
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Remove(); }),
              kFileError + "Cannot remove file " + dir.File("f") + ": " + Error(ENOENT));
}

TEST(FileHelperClose, RenameOntoAnExistingFileReplacesIt) {
    TempDir dir;
    WriteFile(dir.File("old"), "new content");
    WriteFile(dir.File("target"), "target content");
    FileHelper file(dir.File("old"));
    file.Rename(dir.File("target"));
    EXPECT_EQ(ReadFile(dir.File("target")), "new content");
    EXPECT_FALSE(testsupport::PathExists(dir.File("old")));
    // The object keeps its old path.
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Remove(); }),
              kFileError + "Cannot remove file " + dir.File("old") + ": " + Error(ENOENT));
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Rename(dir.File("again")); }),
              kFileError + "Cannot rename file " + dir.File("old") + ": " + Error(ENOENT));
}

TEST(FileHelperClose, RenameOntoAFolderCannotRemoveIt) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
    FileHelper file(dir.File("f"));
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.Rename(dir.File("sub")); }),
              kFileError + "Cannot remove file " + dir.File("sub") + ": " + Error(EISDIR));
    EXPECT_TRUE(testsupport::PathExists(dir.File("f")));
}

// ---------------------------------------------------------------------------
// Path queries

TEST(FileHelperQuery, IsExist) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    ASSERT_EQ(symlink(dir.File("nowhere").c_str(), dir.File("dangling").c_str()), 0);
    EXPECT_TRUE(FileHelper::IsExist(dir.File("f")));
    EXPECT_TRUE(FileHelper::IsExist(dir.Path()));
    EXPECT_FALSE(FileHelper::IsExist(dir.File("missing")));
    EXPECT_FALSE(FileHelper::IsExist(dir.File("dangling")));
    EXPECT_FALSE(FileHelper::IsExist(""));
}

TEST(FileHelperQuery, IsFolderAndIsSymlink) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    ASSERT_EQ(symlink(dir.Path().c_str(), dir.File("link").c_str()), 0);
    EXPECT_TRUE(FileHelper::IsFolder(dir.Path()));
    EXPECT_TRUE(FileHelper::IsFolder(dir.File("link")));
    EXPECT_FALSE(FileHelper::IsFolder(dir.File("f")));
    EXPECT_FALSE(FileHelper::IsFolder(dir.File("missing")));
    EXPECT_TRUE(FileHelper::IsSymlink(dir.File("link")));
    EXPECT_FALSE(FileHelper::IsSymlink(dir.File("f")));
    EXPECT_FALSE(FileHelper::IsSymlink(dir.Path()));
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::IsSymlink(dir.File("missing")); }),
              kFileError + "Cannot lstat path: \"" + dir.File("missing") + "\"");
}

TEST(FileHelperQuery, GetSymlink) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    ASSERT_EQ(symlink("f", dir.File("relative").c_str()), 0);
    ASSERT_EQ(symlink(dir.File("nowhere").c_str(), dir.File("dangling").c_str()), 0);
    EXPECT_EQ(FileHelper::GetSymlink(dir.File("relative")), "f");
    EXPECT_EQ(FileHelper::GetSymlink(dir.File("dangling")), dir.File("nowhere"));
    EXPECT_EQ(FileHelper::GetSymlink(dir.File("f")), "");
    EXPECT_EQ(FileHelper::GetSymlink(dir.File("missing")), "");
    EXPECT_EQ(FileHelper::GetSymlink(dir.Path()), "");
}

TEST(FileHelperQuery, GetSymlinkOfALinkWithoutSizeThrows) {
    // The kernel's own links report a size of 0, which never equals what
    // can be read.
    struct stat status;
    ASSERT_EQ(lstat("/proc/self/exe", &status), 0);
    ASSERT_EQ(status.st_size, 0);
    EXPECT_EQ(ThrownText<FileIoException>([] { FileHelper::GetSymlink("/proc/self/exe"); }),
              kFileError + "Cannot get symlink path: /proc/self/exe");
}

TEST(FileHelperQuery, GetSize) {
    TempDir dir;
    WriteFile(dir.File("f"), std::string(1234, 'x'));
    WriteFile(dir.File("empty"), "");
    EXPECT_EQ(FileHelper::GetSize(dir.File("f")), 1234u);
    EXPECT_EQ(FileHelper::GetSize(dir.File("empty")), 0u);
    EXPECT_EQ(FileHelper::GetSize(dir.Path()), 0u);
    // No blank after the colon in this message.
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::GetSize(dir.File("missing")); }),
              kFileError + "Cannot get size of '" + dir.File("missing") + "':" + Error(ENOENT));
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::GetSize(dir.File("missing")); }),
              kFileError + "Cannot get size of '" + dir.File("missing") + "':No such file or directory");
}

TEST(FileHelperQuery, GetModificationTime) {
    TempDir dir;
    WriteFile(dir.File("f"), "x");
    struct timeval times[2] = {{1000000000, 0}, {1234567890, 0}};
    ASSERT_EQ(utimes(dir.File("f").c_str(), times), 0);
    EXPECT_EQ(FileHelper::GetModificationTime(dir.File("f")), 1234567890);
    EXPECT_EQ(ThrownText<FileIoException>([&] { FileHelper::GetModificationTime(dir.File("missing")); }),
              kFileError + "Cannot get modification time of '" + dir.File("missing") + "':" + Error(ENOENT));
}

TEST(FileHelperQuery, NameParts) {
    // Each path and the part of it that one of the three splitters answers.
    using Case = std::pair<const char*, const char*>;
    for (const auto& [path, folder] :
         {Case{"/a/b/c.rpm", "/a/b"}, Case{"c.rpm", ""}, Case{"/c", ""}, Case{"a/", "a"}, Case{"", ""}}) {
        EXPECT_EQ(FileHelper::GetFilePath(path), folder) << path;
    }
    for (const auto& [path, name] : {Case{"/a/b/c.rpm", "c.rpm"}, Case{"c.rpm", "c.rpm"}, Case{"a/", ""},
                                     Case{"C:\\x\\y.rpm", "C:\\x\\y.rpm"}}) {
        EXPECT_EQ(FileHelper::GetFileName(path), name) << path;
    }
    EXPECT_EQ(FileHelper::GetFileName("C:\\x\\y.rpm", '\\'), "y.rpm");
    // What follows the last point, lower-cased, even across a slash.
    for (const auto& [path, extension] : {Case{"a.RPM", "rpm"}, Case{"name", ""}, Case{"x.tar.GZ", "gz"},
                                          Case{"a.", ""}, Case{"dir.D/File", "d/file"}}) {
        EXPECT_EQ(FileHelper::GetFileExtension(path), extension) << path;
    }
}

TEST(FileHelperQuery, GetSystemFullPath) {
    TempDir dir;
    ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
    WriteFile(dir.File("sub/f"), "x");
    ASSERT_EQ(symlink(dir.File("sub").c_str(), dir.File("link").c_str()), 0);
    const std::string real = RealPath(dir.Path());
    EXPECT_EQ(FileHelper::GetSystemFullPath(dir.File("link/../sub/./f")), real + "/sub/f");
    EXPECT_EQ(FileHelper::GetSystemFullPath(dir.File("link/f")), real + "/sub/f");
    EXPECT_EQ(FileHelper::GetSystemFullPath(dir.File("missing")), "");
    WorkingDirectoryScope cwd(dir.File("sub"));
    EXPECT_EQ(FileHelper::GetSystemFullPath("f"), real + "/sub/f");
}

TEST(FileHelperQuery, ExecutableAndWorkingDirectory) {
    const std::string executableFolder = RealPath(std::string(SIGNING_BUILD_DIR) + "/tests") + "/";
    EXPECT_EQ(FileHelper::GetExecutableDirectory(), executableFolder);
    TempDir dir;
    WorkingDirectoryScope cwd(dir.Path());
    EXPECT_EQ(FileHelper::GetWorkingDirectory(), RealPath(dir.Path()) + "/");
}

TEST(FileHelperQuery, GetFullName) {
    TempDir dir;
    WriteFile(dir.File("here"), "x");
    const std::string real = RealPath(dir.Path());
    WorkingDirectoryScope cwd(dir.Path());
    EXPECT_EQ(FileHelper::GetFullName("here", false), real + "/here");
    EXPECT_EQ(FileHelper::GetFullName("missing-everywhere", true), "missing-everywhere");
    EXPECT_EQ(FileHelper::GetFullName("missing-everywhere", false), "missing-everywhere");
    // A name that only exists beside the executable.
    const std::string name = "signing-h1-beside-" + std::to_string(getpid());
    const std::string beside = FileHelper::GetExecutableDirectory() + name;
    WriteFile(beside, "x");
    EXPECT_EQ(FileHelper::GetFullName(name, true), beside);
    EXPECT_EQ(FileHelper::GetFullName(name, false), name);
    EXPECT_EQ(unlink(beside.c_str()), 0);
}
