// The packages a verify command is given besides its arguments: a list
// read from a file or standard input, and the packages found under a
// folder.
#ifndef HOST_PROGRAM_PACKAGELIST_H
#define HOST_PROGRAM_PACKAGELIST_H

#include <string>
#include <vector>

namespace host {

class PackageList {
public:
    // The paths listed in the file ("-": standard input), one per line, or
    // separated by NUL bytes when nulSeparated; empty entries are skipped
    // and every other byte is kept. Throws SetupError when the file cannot
    // be read.
    static std::vector<std::string> Read(const std::string& source, bool nulSeparated);

    // Every file whose name ends in ".rpm" under the folder and its
    // subfolders (links to folders are not followed), sorted by path so
    // that each run lists them in the same order. Throws SetupError when
    // the folder or a subfolder cannot be read.
    static std::vector<std::string> Find(const std::string& folder);
};

} // namespace host

#endif
