// The tools a test's shell commands find: environment variables (PATH, the
// proxies) set for one test and put back afterwards, folders that hold
// links to just some real tools, and executable stand-in scripts.
#ifndef SIGNING_TEST_TOOL_PATH_H
#define SIGNING_TEST_TOOL_PATH_H

#include "TestSupport.h"

#include <climits>
#include <cstdlib>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace testsupport {

// Sets or clears an environment variable of the test process for one test
// and puts the old value back afterwards. The shells that popen starts
// inherit it.
class EnvironmentVariableGuard {
public:
    explicit EnvironmentVariableGuard(const char* name) : m_Name(name) {
        const char* value = std::getenv(name);
        m_Had = value != nullptr;
        if (m_Had) {
            m_Value = value;
        }
    }
    ~EnvironmentVariableGuard() {
        if (m_Had) {
            setenv(m_Name.c_str(), m_Value.c_str(), 1);
        } else {
            unsetenv(m_Name.c_str());
        }
    }
    EnvironmentVariableGuard(const EnvironmentVariableGuard&) = delete;
    EnvironmentVariableGuard& operator=(const EnvironmentVariableGuard&) = delete;

    void Set(const std::string& value) { setenv(m_Name.c_str(), value.c_str(), 1); }
    void Unset() { unsetenv(m_Name.c_str()); }
    // The value the variable had before the guard was made.
    const std::string& Original() const { return m_Value; }

private:
    std::string m_Name;
    std::string m_Value;
    bool m_Had = false;
};

// Clears http_proxy and HTTP_PROXY for one test, so that the real wget and
// curl reach the loopback server directly.
class NoHttpProxy {
public:
    NoHttpProxy() : m_Lower("http_proxy"), m_Upper("HTTP_PROXY") {
        m_Lower.Unset();
        m_Upper.Unset();
    }

private:
    EnvironmentVariableGuard m_Lower;
    EnvironmentVariableGuard m_Upper;
};

// The absolute path of a real tool, found on the test's current PATH.
inline std::string RealTool(const std::string& name) {
    CommandResult found = Run("command -v " + name);
    std::string path = found.output.substr(0, found.output.find('\n'));
    if (found.exitCode != 0 || path.empty() || path[0] != '/') {
        throw std::runtime_error("tool not installed: " + name);
    }
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
        throw std::runtime_error("cannot resolve " + path);
    }
    return resolved;
}

// Makes a folder holding symbolic links to just the named real tools, for a
// PATH on which every other tool is missing, and returns it.
inline std::string LinkTools(const std::string& folder, std::initializer_list<const char*> tools) {
    mkdir(folder.c_str(), 0755);
    for (const char* tool : tools) {
        std::string target = RealTool(tool);
        std::string link = folder + "/" + tool;
        if (symlink(target.c_str(), link.c_str()) != 0) {
            throw std::runtime_error("symlink failed for " + link);
        }
    }
    return folder;
}

// Writes an executable /bin/sh script.
inline void WriteScript(const std::string& path, const std::string& body) {
    WriteFile(path, "#!/bin/sh\n" + body);
    if (chmod(path.c_str(), 0755) != 0) {
        throw std::runtime_error("chmod failed for " + path);
    }
}

} // namespace testsupport

#endif
