#include "Plugin.h"

#include "ProgramError.h"

#include <climits>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace host {
namespace {

constexpr const char kPluginFileName[] = "signing.so";

std::string DlError() {
    const char* error = dlerror();
    return error != nullptr ? error : "unknown error";
}

bool IsRegularFile(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string FolderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

Plugin::Plugin(const std::string& path) : m_Path(path) {
    if (!IsRegularFile(path)) {
        throw SetupError("the plug-in '" + path +
                         "' does not exist or is not a file; build it with 'make build' " +
                         "or name it with --plugin PATH");
    }
    // dlopen looks a name without a slash up in the library search path;
    // the user means the file in the current folder.
    std::string openPath = path.find('/') == std::string::npos ? "./" + path : path;
    dlerror();
    m_Handle = dlopen(openPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_Handle == nullptr) {
        throw SetupError("cannot load the plug-in '" + path + "': " + DlError());
    }
}

void* Plugin::Symbol(const char* name) const {
    dlerror();
    void* address = dlsym(m_Handle, name);
    if (address == nullptr) {
        throw SetupError("the plug-in '" + m_Path + "' has no entry point '" + name + "': " + DlError());
    }
    return address;
}

std::string Plugin::DefaultPath() {
    std::vector<char> buffer(PATH_MAX + 1, '\0');
    ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 0) {
        throw SetupError(
            "cannot find this program's own folder to look for the plug-in; name it with --plugin PATH");
    }
    std::string folder = FolderOf(std::string(buffer.data(), static_cast<size_t>(length)));
    // The build tree's plug-in beside the program or one folder up, then the
    // installed one relative to this program (a staged or unpacked tree
    // uses its own copy), then at its installed place.
    std::vector<std::string> candidates = {folder + "/" + kPluginFileName,
                                           FolderOf(folder) + "/" + kPluginFileName};
#ifdef SIGNING_INSTALLED_PLUGIN_FROM_BINDIR
    candidates.push_back(folder + "/" + SIGNING_INSTALLED_PLUGIN_FROM_BINDIR);
#endif
#ifdef SIGNING_INSTALLED_PLUGIN
    candidates.emplace_back(SIGNING_INSTALLED_PLUGIN);
#endif
    std::string tried;
    for (const std::string& candidate : candidates) {
        if (IsRegularFile(candidate)) {
            return candidate;
        }
        tried += (tried.empty() ? "'" : ", '") + candidate + "'";
    }
    throw SetupError("no plug-in found at " + tried +
                     "; build it with 'make build' or name it with --plugin PATH");
}

} // namespace host
