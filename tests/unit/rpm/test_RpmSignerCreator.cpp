// Recognising RPM packages by their lead, the creators' extension lists and
// the signer a creator makes.
#include "Exceptions.h"
#include "FileHelper.h"
#include "Fixtures.h"
#include "RpmSigner.h"
#include "RpmSignerCreator.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

// A creator that only uses the base's answers.
class PlainCreator : public SignerCreator {
public:
    bool IsMe(FileHelper*) override { return false; }
    Signer* GetSigner(unsigned int) override { return nullptr; }
};

class RpmSignerCreatorTest : public ::testing::Test {
protected:
    bool IsMe(const Bytes& content) {
        const std::string path = m_Folder.File("candidate");
        testsupport::WriteBytes(path, content);
        FileHelper file(path);
        return m_Creator.IsMe(&file);
    }
    static Bytes Lead(unsigned char major, unsigned char minor, size_t size = 96) {
        Bytes lead(size, 0);
        const unsigned char magic[] = {0xED, 0xAB, 0xEE, 0xDB};
        std::copy(magic, magic + 4, lead.begin());
        if (size > 5) {
            lead[4] = major;
            lead[5] = minor;
        }
        return lead;
    }

    testsupport::TempDir m_Folder;
    RpmSignerCreator m_Creator;
};

TEST_F(RpmSignerCreatorTest, LeadOfFormatThreeZeroIsAccepted) {
    EXPECT_TRUE(IsMe(Lead(3, 0)));
    // Nothing beyond the first six bytes is looked at.
    EXPECT_TRUE(IsMe(Lead(3, 0, 6)));
}

TEST_F(RpmSignerCreatorTest, OtherVersionsAreRejected) {
    EXPECT_FALSE(IsMe(Lead(3, 1)));
    EXPECT_FALSE(IsMe(Lead(4, 0)));
    EXPECT_FALSE(IsMe(Lead(2, 0)));
    EXPECT_FALSE(IsMe(Lead(0, 3)));
}

TEST_F(RpmSignerCreatorTest, WrongMagicIsRejected) {
    Bytes lead = Lead(3, 0);
    lead[3] = 0xDC;
    EXPECT_FALSE(IsMe(lead));
    // The magic in the other byte order.
    EXPECT_FALSE(IsMe({0xDB, 0xEE, 0xAB, 0xED, 3, 0}));
    EXPECT_FALSE(IsMe(testsupport::ReadBytes(fixtures::NotAPackage())));
}

TEST_F(RpmSignerCreatorTest, ShortFilesAreRejectedWithoutError) {
    EXPECT_FALSE(IsMe({}));
    EXPECT_FALSE(IsMe({0xED}));
    EXPECT_FALSE(IsMe({0xED, 0xAB, 0xEE}));
    EXPECT_FALSE(IsMe({0xED, 0xAB, 0xEE, 0xDB}));
    EXPECT_FALSE(IsMe({0xED, 0xAB, 0xEE, 0xDB, 3}));
}

TEST_F(RpmSignerCreatorTest, FolderIsRejected) {
    FileHelper folder(m_Folder.Path());
    ASSERT_TRUE(folder.IsFolder());
    EXPECT_FALSE(m_Creator.IsMe(&folder));
}

TEST_F(RpmSignerCreatorTest, FixturePackagesAreRecognised) {
    for (const auto& package : fixtures::Packages()) {
        REQUIRE_FIXTURE(package.path);
        FileHelper file(package.path);
        EXPECT_TRUE(m_Creator.IsMe(&file)) << package.name;
    }
}

TEST_F(RpmSignerCreatorTest, ExtensionLists) {
    PlainCreator plain;
    EXPECT_EQ(nullptr, plain.GetFileExtensions());
    EXPECT_STREQ("rpm;srpm", m_Creator.GetFileExtensions());
    EXPECT_EQ(RpmSignerCreator::_FileExtensions, m_Creator.GetFileExtensions());
    SignerCreator& base = m_Creator;
    EXPECT_STREQ("rpm;srpm", base.GetFileExtensions());
}

TEST_F(RpmSignerCreatorTest, SignerIsFreshAndSetUp) {
    for (unsigned int mode : {0u, 7u}) {
        std::unique_ptr<Signer> signer(m_Creator.GetSigner(mode));
        auto* rpm = dynamic_cast<RpmSigner*>(signer.get());
        ASSERT_NE(nullptr, rpm);
        EXPECT_EQ(nullptr, rpm->_File);
        EXPECT_EQ(nullptr, rpm->_OutputFile);
        EXPECT_EQ(nullptr, rpm->GetSignatureHeader());
        EXPECT_EQ(0u, rpm->GetEntryCount());
        EXPECT_EQ(1u, rpm->_Setting1);
        EXPECT_EQ(mode, rpm->_Mode);
        EXPECT_EQ(1u, rpm->_Setting2);
        EXPECT_EQ(1u, rpm->GetFlag());
    }
}

TEST_F(RpmSignerCreatorTest, CreatorDoesNotKeepTheFile) {
    const std::string path = m_Folder.File("package.rpm");
    testsupport::WriteBytes(path, Lead(3, 0));
    auto file = std::make_unique<FileHelper>(path);
    {
        RpmSignerCreator creator;
        EXPECT_TRUE(creator.IsMe(file.get()));
    }
    // Still open and readable after the creator is gone.
    EXPECT_EQ(3, file->GetUInt8(4));
}

TEST_F(RpmSignerCreatorTest, NullFileIsRefused) {
    EXPECT_THROW(m_Creator.IsMe(nullptr), ArgumentException);
}

} // namespace
