// A private folder the host makes for one command (under $TMPDIR or /tmp)
// and removes with its content when the object goes, and also when the
// program is ended by SIGINT, SIGTERM or SIGHUP, so that an interrupted run
// leaves nothing behind.
#ifndef HOST_PROGRAM_TEMPORARYFOLDER_H
#define HOST_PROGRAM_TEMPORARYFOLDER_H

#include <string>

namespace host {

class TemporaryFolder {
public:
    TemporaryFolder() = default;
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Makes the folder (mode 0700); throws SetupError when it cannot.
    const std::string& Create();
    const std::string& Path() const { return m_Path; }

private:
    std::string m_Path;
    int m_Slot = -1; // its place among the folders removed on a signal
};

} // namespace host

#endif
