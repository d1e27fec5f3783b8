#include "Exceptions.h"

#include <gtest/gtest.h>

#include <type_traits>

TEST(Exceptions, TitledClassesPutTitleColonBlankAndDetail) {
    EXPECT_STREQ(DataFormatException("Unsupported packet tag").what(),
                 "Invalid format of data: Unsupported packet tag");
    EXPECT_STREQ(NotImplementedException("x").what(), "Not implemented: x");
    EXPECT_STREQ(ArgumentException("x").what(), "Invalid argument: x");
    EXPECT_STREQ(DigestException("x").what(), "Digest calculation error: x");
    EXPECT_STREQ(Pkcs7InnerException("x").what(), "Error during processing PKCS7 structure: x");
    EXPECT_STREQ(FileIoException("x").what(), "File operation error: x");
}

TEST(Exceptions, FileExceptionsPutTheFileOperationTitleFirst) {
    EXPECT_STREQ(FileNotFoundException("D").what(), "File operation error: File not found: D");
    EXPECT_STREQ(InvalidFileStructureException("D").what(),
                 "File operation error: Invalid structure of the file: D");
    EXPECT_STREQ(NotSupportedFileFormatException("D").what(),
                 "File operation error: File format is not supported: D");
}

TEST(Exceptions, UntitledClassesCarryTheDetailAlone) {
    EXPECT_STREQ(NotSupportedException("D").what(), "D");
    EXPECT_STREQ(NotDefinedException("There are no PGP signatures.").what(), "There are no PGP signatures.");
    EXPECT_STREQ(InternalErrorException("D").what(), "D");
    EXPECT_STREQ(Base64OperationException("D").what(), "D");
}

TEST(Exceptions, EmptyDetailKeepsTheSeparatorOnlyForTitledClasses) {
    EXPECT_STREQ(NotImplementedException("").what(), "Not implemented: ");
    EXPECT_STREQ(FileNotFoundException("").what(), "File operation error: File not found: ");
    EXPECT_STREQ(NotSupportedException("").what(), "");
    EXPECT_STREQ(Base64OperationException("").what(), "");
}

TEST(Exceptions, NullArgumentNamesTheFunction) {
    EXPECT_EQ(exception_text::NullArgument("RpmSignerCreator::IsMe"),
              "Function RpmSignerCreator::IsMe does not allow NULL value as an argument");
    EXPECT_EQ(exception_text::NullArgument(""), "Function  does not allow NULL value as an argument");
    EXPECT_STREQ(ArgumentException(exception_text::NullArgument("der_to_pem")).what(),
                 "Invalid argument: Function der_to_pem does not allow NULL value as an argument");
}

TEST(Exceptions, HierarchyAndCopies) {
    EXPECT_TRUE((std::is_base_of<FileIoException, FileNotFoundException>::value));
    EXPECT_TRUE((std::is_base_of<FileIoException, InvalidFileStructureException>::value));
    EXPECT_TRUE((std::is_base_of<FileIoException, NotSupportedFileFormatException>::value));
    EXPECT_TRUE((std::is_base_of<std::runtime_error, FileIoException>::value));
    EXPECT_TRUE((std::is_base_of<std::runtime_error, DataFormatException>::value));
    EXPECT_FALSE((std::is_base_of<FileIoException, DataFormatException>::value));
    InvalidFileStructureException original("Unsupported signature type");
    InvalidFileStructureException copy(original);
    EXPECT_STREQ(copy.what(), original.what());
    try {
        throw FileNotFoundException("gone");
    } catch (const FileIoException& e) {
        EXPECT_STREQ(e.what(), "File operation error: File not found: gone");
    }
}
