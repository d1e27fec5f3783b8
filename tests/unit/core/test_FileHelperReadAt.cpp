// The library's own positional reads (FileHelper::ReadAt) and the size a
// file object keeps from its opening (FileHelper::GetOpenedSize): the same
// answers and exceptions as the seek-and-read form, with the current
// position left alone.
#include "Exceptions.h"
#include "FileHelper.h"
#include "FileTestSupport.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace filetest;
using testsupport::TempDir;
using testsupport::WriteFile;

TEST(FileHelperReadAt, AnswersAsThePositionedReadAndKeepsThePosition) {
    OpenedTempFile opened("0123456789");
    FileHelper& file = opened.File();
    ExpectSequentialReads(file, {{4, "0123"}});
    ExpectReads(file, &FileHelper::ReadAt,
                {{6, 3, "678"}, {8, 16, "89"} /* short, not an error */, {10, 4, ""}, {100, 4, ""}});
    // The plain read goes on where the last plain read stopped.
    ExpectSequentialReads(file, {{2, "45"}});
}

TEST(FileHelperReadAt, FailsAsThePositionedRead) {
    OpenedTempFile opened("abcdef");
    FileHelper& file = opened.File();
    const std::string& path = opened.Path();
    char buffer[4];
    // Positions whose low 32 bits read as negative are refused alike.
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.ReadAt(buffer, 0x80000000UL, 2); }),
              ThrownText<FileIoException>([&] { file.Read(buffer, 0x80000000UL, 2); }));
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.ReadAt(buffer, 0x80000000UL, 2); }),
              kFileError + "Error on positioning file '" + path + "': " + Error(0));
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.ReadAt(buffer, static_cast<unsigned long>(-1), 2); }),
              kFileError + "Error on positioning file '" + path + "': " + Error(EINVAL));
    // 4 GiB reads as position 0 to the check and is past the end.
    EXPECT_EQ(file.ReadAt(buffer, 0x100000000UL, 2), 0);
    file.Close();
    EXPECT_EQ(ThrownText<FileIoException>([&] { file.ReadAt(buffer, 0, 4); }),
              kFileError + "File '" + path + "' was not open");
}

TEST(FileHelperReadFullyAt, ReadsUpToTheEndAndNeverMovesThePosition) {
    OpenedTempFile opened("0123456789");
    FileHelper& file = opened.File();
    ExpectReads(file, &FileHelper::ReadFullyAt, {{2, 5, "23456"}, {7, 16, "789"}, {10, 4, ""}, {0, 0, ""}});
    ExpectSequentialReads(file, {{3, "012"}});
}

TEST(FileHelperReadFullyAt, NoBytesStillFailOnAFolder) {
    TempDir dir;
    FileHelper folder(dir.Path());
    ASSERT_TRUE(folder.IsFolder());
    char buffer[1];
    EXPECT_EQ(ThrownText<FileIoException>([&] { folder.ReadFullyAt(buffer, 0, 0); }),
              kFileError + "File '" + dir.Path() + "' was not open");
}

TEST(FileHelperReadAt, PipeCannotBePositioned) {
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0600), 0);
    FileHelper fifo(dir.File("fifo"));
    char buffer[4];
    EXPECT_EQ(ThrownText<FileIoException>([&] { fifo.ReadAt(buffer, 0, 4); }),
              kFileError + "Error on positioning file '" + dir.File("fifo") + "': " + Error(ESPIPE));
    EXPECT_EQ(ThrownText<FileIoException>([&] { fifo.ReadAt(buffer, 0, 4); }),
              ThrownText<FileIoException>([&] { fifo.Read(buffer, 0, 4); }));
    unsigned long size = 1;
    EXPECT_FALSE(fifo.GetOpenedSize(size));
}

TEST(FileHelperOpenedSize, TheSizeFoundWhenTheFileWasOpened) {
    TempDir dir;
    WriteFile(dir.File("f"), "0123456789");
    unsigned long size = 0;
    {
        FileHelper file(dir.File("f"));
        ASSERT_TRUE(file.GetOpenedSize(size));
        EXPECT_EQ(size, 10u);
        // Two objects open at once keep their own sizes.
        WriteFile(dir.File("g"), "abc");
        FileHelper other(dir.File("g"));
        ASSERT_TRUE(other.GetOpenedSize(size));
        EXPECT_EQ(size, 3u);
        ASSERT_TRUE(file.GetOpenedSize(size));
        EXPECT_EQ(size, 10u);
        file.Close();
        EXPECT_FALSE(file.GetOpenedSize(size));
    }
    // Folders and the two-string form keep none; the caller asks GetSize.
    FileHelper folder(dir.Path());
    EXPECT_FALSE(folder.GetOpenedSize(size));
    FileHelper existing(dir.Path() + "/", "f", true);
    EXPECT_FALSE(existing.GetOpenedSize(size));
}

TEST(FileHelperOpenedSize, ManyOpenFilesStillAnswerTruly) {
    TempDir dir;
    std::vector<std::unique_ptr<FileHelper>> files;
    for (int i = 0; i < 8; ++i) {
        WriteFile(dir.File("f" + std::to_string(i)), std::string(static_cast<size_t>(i) + 1, 'x'));
        files.emplace_back(new FileHelper(dir.File("f" + std::to_string(i))));
    }
    for (int i = 0; i < 8; ++i) {
        unsigned long size = 0;
        // A size no longer kept is not made up: the answer is then false.
        if (files[static_cast<size_t>(i)]->GetOpenedSize(size)) {
            EXPECT_EQ(size, static_cast<unsigned long>(i) + 1) << i;
        }
    }
    unsigned long size = 0;
    EXPECT_TRUE(files.back()->GetOpenedSize(size));
    EXPECT_EQ(size, 8u);
}
