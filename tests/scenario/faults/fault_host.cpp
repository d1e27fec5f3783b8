// A small host for fault-injection runs under `fiu-run -x`: it provides the
// session interface as the installer does, loads the built plug-in with
// dlopen, and turns one libfiu failure point on only while the plug-in's
// entry point runs, so that every injected failure lands inside the plug-in.
//
//   signing-fault-host verify POINT PROBABILITY KEY PACKAGE...
//       rpm_verify on each package; prints "STATUS MESSAGE" per package.
//   signing-fault-host verify-warm POINT PROBABILITY KEY PACKAGE...
//       the same after one call without failures, so that the failures
//       land in verification rather than in libcrypto's first use.
//   signing-fault-host validate POINT PROBABILITY TEMP_FOLDER LOCAL_KEY PACKAGE...
//       signing_validate_package_list over one product with the packages
//       (the download finds no key service and falls back to LOCAL_KEY);
//       prints the return value, the log lines and the prerequisite values.
//   signing-fault-host validate-warm POINT PROBABILITY TEMP_FOLDER LOCAL_KEY PACKAGE...
//       the same after one rpm_verify without failures.
//
// POINT is one failure point or several separated by commas; "none"
// injects nothing. A probability of 1 fails every call; the
// injected errno is EIO. Exit status 0 when the entry points returned, 3
// for a usage error; any other status (a signal, 134 for std::terminate)
// is a crash.
#include "HostLog.h"
#include "HostSession.h"
#include "rpmutil.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

using FiuEnable = int (*)(const char*, int, void*, unsigned int);
using FiuEnableRandom = int (*)(const char*, int, void*, unsigned int, float);
using FiuDisable = int (*)(const char*);
using Verify = RPM_RESULT (*)(const char*, const char*);
using Validate = int (*)(session_t*);

// libfiu comes with fiu-run's preload libraries; it is looked up, not
// linked, so the program also runs (with POINT "none") without it.
class FailurePoint {
public:
    FailurePoint(std::string name, float probability) : m_Name(std::move(name)), m_Probability(probability) {
        m_Enable = reinterpret_cast<FiuEnable>(dlsym(RTLD_DEFAULT, "fiu_enable"));
        m_EnableRandom = reinterpret_cast<FiuEnableRandom>(dlsym(RTLD_DEFAULT, "fiu_enable_random"));
        m_Disable = reinterpret_cast<FiuDisable>(dlsym(RTLD_DEFAULT, "fiu_disable"));
    }
    bool Usable() const {
        return m_Name == "none" || (m_Enable != nullptr && m_EnableRandom != nullptr && m_Disable != nullptr);
    }
    void On() const {
        for (const std::string& name : m_Names) {
            void* error = reinterpret_cast<void*>(static_cast<intptr_t>(EIO));
            if (m_Probability >= 1.0f) {
                m_Enable(name.c_str(), 1, error, 0);
            } else {
                m_EnableRandom(name.c_str(), 1, error, 0, m_Probability);
            }
        }
    }
    void Off() const {
        for (const std::string& name : m_Names) {
            m_Disable(name.c_str());
        }
    }

private:
    // The points named, separated by commas; none for "none". Split once,
    // before any failure is on: Off() must not allocate.
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        if (m_Name == "none") {
            return names;
        }
        size_t start = 0;
        for (size_t comma; (comma = m_Name.find(',', start)) != std::string::npos; start = comma + 1) {
            names.push_back(m_Name.substr(start, comma - start));
        }
        names.push_back(m_Name.substr(start));
        return names;
    }

    std::string m_Name;
    float m_Probability;
    std::vector<std::string> m_Names = Names();
    FiuEnable m_Enable = nullptr;
    FiuEnableRandom m_EnableRandom = nullptr;
    FiuDisable m_Disable = nullptr;
};

int Usage() {
    std::fprintf(stderr, "usage: signing-fault-host verify|validate POINT PROBABILITY ...\n");
    return 3;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        return Usage();
    }
    const std::string mode = argv[1];
    FailurePoint point(argv[2], std::strtof(argv[3], nullptr));
    if (!point.Usable()) {
        std::fprintf(stderr, "libfiu is not loaded: run under fiu-run -x\n");
        return 3;
    }
    void* plugin = dlopen(SIGNING_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 3;
    }
    host::HostLog::WriteNowhere();

    if (mode == "verify" || mode == "verify-warm") {
        auto verify = reinterpret_cast<Verify>(dlsym(plugin, "rpm_verify"));
        const std::string key = argv[4];
        if (mode == "verify-warm" && argc > 5) {
            std::free(verify(argv[5], key.c_str()).message);
        }
        for (int index = 5; index < argc; ++index) {
            point.On();
            RPM_RESULT result = verify(argv[index], key.c_str());
            point.Off();
            std::printf("%d %s\n", static_cast<int>(result.status),
                        result.message != nullptr ? result.message : "");
            std::free(result.message);
        }
        return 0;
    }
    if ((mode == "validate" || mode == "validate-warm") && argc >= 6) {
        auto validate = reinterpret_cast<Validate>(dlsym(plugin, "signing_validate_package_list"));
        if (mode == "validate-warm" && argc > 6) {
            auto verify = reinterpret_cast<Verify>(dlsym(plugin, "rpm_verify"));
            std::free(verify(argv[6], argv[5]).message);
        }
        host::HostSession session;
        session.SetValue("TEMP_FOLDER", argv[4]);
        session.SetValue("SIGNING_DEFAULT_URL", "http://127.0.0.1:9/key");
        session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", argv[5]);
        Product& product = session.Installation().AddProduct("product");
        for (int index = 6; index < argc; ++index) {
            const std::string path = argv[index];
            const size_t slash = path.rfind('/');
            session.Installation().AddComponent(product, "rpm", path.substr(slash + 1), path.substr(0, slash),
                                                path.substr(slash + 1));
        }
        point.On();
        const int returned = validate(&session);
        point.Off();
        std::printf("return %d\n", returned);
        for (const std::string& line : host::HostLog::Lines()) {
            std::printf("log %s\n", line.c_str());
        }
        std::printf("SIGNIFICANCE %s\n", session.Value("SIGNIFICANCE").c_str());
        std::printf("SHORT_DESC %s\n", session.Value("SHORT_DESC").c_str());
        return 0;
    }
    return Usage();
}
