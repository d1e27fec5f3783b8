// Helpers shared by the source files of FileHelper, which is one class
// split by concern: FileHelper.cpp (opening, reading, writing),
// FileHelperPaths.cpp (paths and status), FileHelperFolders.cpp (folders
// and wildcards) and FileHelperAttributes.cpp (permissions and extended
// attributes). Not part of the library's interface.
#ifndef SIGNING_FILE_HELPER_INTERNAL_H
#define SIGNING_FILE_HELPER_INTERNAL_H

#include <string>

namespace file_helper_internal {

// Hidden: these serve FileHelper's own files and are no part of what the
// plug-in exports.
#define FILE_HELPER_INTERNAL __attribute__((visibility("hidden")))

// The system's text for an errno value.
FILE_HELPER_INTERNAL std::string ErrorText(int error);

// The path with every backslash turned into a slash.
FILE_HELPER_INTERNAL std::string SlashesForBackslashes(std::string path);

// The containing folder of a path; a bare name lives in the current folder.
FILE_HELPER_INTERNAL std::string ContainingFolder(const std::string& path);

} // namespace file_helper_internal

#endif
