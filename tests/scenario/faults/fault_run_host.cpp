// A minimal host for fault-injection runs (scripts/fault-injection.sh): it
// provides the session interface like every host, loads the plug-in with
// dlopen, calls rpm_verify for each package and writes one line
// "<status> <package>" per package. Its own output goes through write(2)
// from a stack buffer, so that failing allocations cannot lose it.
//
//   signing-fault-run-host PLUGIN KEY PACKAGE...
//
// Exit status: 0 when every package got an answer, 3 when the plug-in could
// not be loaded (a failing allocation inside dlopen is an answer too).
#include "rpmutil.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using RpmVerify = RPM_RESULT (*)(const char*, const char*);

void WriteLine(int descriptor, const char* text) {
    size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t written = write(descriptor, text, left);
        if (written <= 0) {
            return;
        }
        text += written;
        left -= static_cast<size_t>(written);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        WriteLine(2, "usage: signing-fault-run-host PLUGIN KEY PACKAGE...\n");
        return 2;
    }
    void* plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        WriteLine(2, "signing-fault-run-host: the plug-in could not be loaded\n");
        return 3;
    }
    auto verify = reinterpret_cast<RpmVerify>(dlsym(plugin, "rpm_verify"));
    if (verify == nullptr) {
        WriteLine(2, "signing-fault-run-host: the plug-in has no rpm_verify\n");
        return 3;
    }
    for (int i = 3; i < argc; ++i) {
        RPM_RESULT result = verify(argv[i], argv[2]);
        char line[4096];
        std::snprintf(line, sizeof(line), "%d %s\n", static_cast<int>(result.status), argv[i]);
        WriteLine(1, line);
        std::free(result.message);
    }
    return 0;
}
