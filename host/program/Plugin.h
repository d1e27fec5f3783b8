// The plug-in, loaded the way an installer loads it: dlopen with every
// symbol bound at once (the session functions resolve against this
// program, which exports them), entry points found with dlsym.
#ifndef HOST_PROGRAM_PLUGIN_H
#define HOST_PROGRAM_PLUGIN_H

#include <string>

namespace host {

class Plugin {
public:
    // Throws SetupError with dlopen's reason when the file does not load.
    explicit Plugin(const std::string& path);
    // The library stays loaded until the process ends: the plug-in keeps a
    // process-wide certificate store that must outlive every call.
    ~Plugin() = default;
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const std::string& Path() const { return m_Path; }

    // The address of an exported symbol; SetupError when it is missing.
    void* Symbol(const char* name) const;

    template <typename Function> Function Entry(const char* name) const {
        return reinterpret_cast<Function>(Symbol(name));
    }

    // The plug-in built beside this program (signing.so in the folder of
    // the executable, then in the folder above it), else the installed
    // plug-in. Throws SetupError naming the places looked at when none
    // exists.
    static std::string DefaultPath();

private:
    std::string m_Path;
    void* m_Handle = nullptr;
};

} // namespace host

#endif
