// Where a downloaded key is written: the session's temporary folder when
// only the installer's own user can write to it, otherwise a private folder
// made inside it for the validation run.
#ifndef SIGNING_KEYDOWNLOADFOLDER_H
#define SIGNING_KEYDOWNLOADFOLDER_H

#include <string>

// A key written into a folder that other users can write to (an installer
// may well pass /tmp) could be swapped between the download and the reads
// that follow. In such a folder the key goes into a folder made with mkdtemp
// (mode 0700); it serves the rest of the run and is removed when the run
// ends.
class __attribute__((visibility("hidden"))) KeyDownloadFolder {
public:
    // The name of a private folder, before mkdtemp fills in the X's.
    static constexpr char kPrivateFolderName[] = "/signing-key-XXXXXX";

    // True when the folder is a directory that the effective user owns and
    // that neither group nor others may write to.
    static bool IsSafe(const std::string& folder);

    // The folder to download into for the temporary folder, which must be a
    // directory: the folder itself when it is safe, otherwise the run's
    // private folder inside it (made on first use). Empty when no private
    // folder can be made; error then holds the system's reason.
    static std::string For(const std::string& temporaryFolder, std::string& error);

    // Removes the run's private folder and what the download left in it.
    // Never throws.
    static void EndOfRun() noexcept;
};

#endif
