// The exception family through which every failure below the exported entry
// points travels. what() is the class title, ": " and the detail; the four
// untitled classes carry the detail alone. Classes derived from
// FileIoException hand their own titled text to FileIoException as its
// detail, so the file-operation title comes first.
#ifndef SIGNING_EXCEPTIONS_H
#define SIGNING_EXCEPTIONS_H

#include "ContractTexts.h"

#include <stdexcept>
#include <string>

namespace exception_text {
// The separator is added even for an empty detail, but never after an empty title.
inline std::string Compose(const char* title, const std::string& detail) {
    return *title == '\0' ? detail : std::string(title) + contract::kTitleSeparator + detail;
}

// The detail for a null argument of the named function. Hidden: a helper of
// the library's own, not one of the symbols the plug-in exports.
__attribute__((visibility("hidden"))) inline std::string NullArgument(const char* function) {
    return contract::kNullArgumentBegin + std::string(function) + contract::kNullArgumentEnd;
}
} // namespace exception_text

// Name and Parent are declarators, which parentheses would not let compile.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define SIGNING_DECLARE_EXCEPTION(Name, Parent, Title)                                                       \
    class Name : public Parent {                                                                             \
    public:                                                                                                  \
        explicit Name(const std::string& detail) : Parent(exception_text::Compose(Title, detail)) {}         \
    };
// NOLINTEND(bugprone-macro-parentheses)

SIGNING_DECLARE_EXCEPTION(FileIoException, std::runtime_error, contract::kTitleFileIo)
SIGNING_DECLARE_EXCEPTION(FileNotFoundException, FileIoException, contract::kTitleFileNotFound)
SIGNING_DECLARE_EXCEPTION(InvalidFileStructureException, FileIoException,
                          contract::kTitleInvalidFileStructure)
SIGNING_DECLARE_EXCEPTION(NotSupportedFileFormatException, FileIoException,
                          contract::kTitleNotSupportedFileFormat)
SIGNING_DECLARE_EXCEPTION(NotImplementedException, std::runtime_error, contract::kTitleNotImplemented)
SIGNING_DECLARE_EXCEPTION(ArgumentException, std::runtime_error, contract::kTitleArgument)
SIGNING_DECLARE_EXCEPTION(DataFormatException, std::runtime_error, contract::kTitleDataFormat)
SIGNING_DECLARE_EXCEPTION(DigestException, std::runtime_error, contract::kTitleDigest)
SIGNING_DECLARE_EXCEPTION(Pkcs7InnerException, std::runtime_error, contract::kTitlePkcs7Inner)
SIGNING_DECLARE_EXCEPTION(NotSupportedException, std::runtime_error, contract::kTitleNone)
SIGNING_DECLARE_EXCEPTION(NotDefinedException, std::runtime_error, contract::kTitleNone)
SIGNING_DECLARE_EXCEPTION(InternalErrorException, std::runtime_error, contract::kTitleNone)
SIGNING_DECLARE_EXCEPTION(Base64OperationException, std::runtime_error, contract::kTitleNone)

#undef SIGNING_DECLARE_EXCEPTION

#endif
