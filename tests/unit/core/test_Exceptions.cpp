#include "Exceptions.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <type_traits>

namespace {

// The what() text of one exception object and the text it must be.
struct WhatCase {
    std::string what;
    const char* expected;
};

void ExpectWhatTexts(std::initializer_list<WhatCase> cases) {
    for (const WhatCase& c : cases) {
        EXPECT_EQ(c.what, c.expected);
    }
}

} // namespace

TEST(Exceptions, TitledClassesPutTitleColonBlankAndDetail) {
    ExpectWhatTexts({{DataFormatException("Unsupported packet tag").what(),
                      "Invalid format of data: Unsupported packet tag"},
                     {NotImplementedException("x").what(), "Not implemented: x"},
                     {ArgumentException("x").what(), "Invalid argument: x"},
                     {DigestException("x").what(), "Digest calculation error: x"},
                     {Pkcs7InnerException("x").what(), "Error during processing PKCS7 structure: x"},
                     {FileIoException("x").what(), "File operation error: x"}});
}

TEST(Exceptions, FileExceptionsPutTheFileOperationTitleFirst) {
    ExpectWhatTexts({{FileNotFoundException("D").what(), "File operation error: File not found: D"},
                     {InvalidFileStructureException("D").what(),
                      "File operation error: Invalid structure of the file: D"},
                     {NotSupportedFileFormatException("D").what(),
                      "File operation error: File format is not supported: D"}});
}

TEST(Exceptions, UntitledClassesCarryTheDetailAlone) {
    ExpectWhatTexts(
        {{NotSupportedException("D").what(), "D"},
         {NotDefinedException("There are no PGP signatures.").what(), "There are no PGP signatures."},
         {InternalErrorException("D").what(), "D"},
         {Base64OperationException("D").what(), "D"}});
}

TEST(Exceptions, EmptyDetailKeepsTheSeparatorOnlyForTitledClasses) {
    ExpectWhatTexts({{NotImplementedException("").what(), "Not implemented: "},
                     {FileNotFoundException("").what(), "File operation error: File not found: "},
                     {NotSupportedException("").what(), ""},
                     {Base64OperationException("").what(), ""}});
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
