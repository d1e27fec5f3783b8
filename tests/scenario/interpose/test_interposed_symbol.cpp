// A host that defines a function under the same name as one inside the
// plug-in, and exports it (-rdynamic), as installers linked that way do. The
// plug-in's own calls must still reach its own code: a correctly signed
// package stays signed, and the host's function is never called by it.
#include "Fixtures.h"
#include "TestSupport.h"
#include "rpmutil.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// The host's own Base64 class, unrelated to the plug-in's but with the same
// mangled name for its decoder. It decodes nothing.
class Base64 {
public:
    static char* Decode(const char* text, unsigned int length, unsigned int& outLength);
};

namespace {
int g_HostDecodeCalls = 0;
} // namespace

char* Base64::Decode(const char*, unsigned int, unsigned int& outLength) {
    ++g_HostDecodeCalls;
    outLength = 0;
    return nullptr;
}

namespace {

using RpmVerify = RPM_RESULT (*)(const char*, const char*);

void* Plugin() {
    static void* handle = dlopen(testsupport::PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    return handle;
}

const char kDecodeSymbol[] = "_ZN6Base646DecodeEPKcjRj";

TEST(InterposedSymbol, HostAndPluginBothDefineTheDecoder) {
    // The program exports its decoder, and the plug-in exports one of the
    // same name: without binding inside the plug-in, the host's would win.
    EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, kDecodeSymbol));
    ASSERT_NE(nullptr, Plugin()) << dlerror();
    void* own = dlsym(Plugin(), kDecodeSymbol);
    ASSERT_NE(nullptr, own);
    EXPECT_NE(reinterpret_cast<void*>(&Base64::Decode), own);
}

TEST(InterposedSymbol, SignedPackageStaysSigned) {
    ASSERT_NE(nullptr, Plugin()) << dlerror();
    auto verify = reinterpret_cast<RpmVerify>(dlsym(Plugin(), "rpm_verify"));
    ASSERT_NE(nullptr, verify);
    const std::string package = fixtures::Package("signed-rsa2048-sha256.rpm");
    REQUIRE_FIXTURE(package);
    // The armored key goes through the decoder.
    g_HostDecodeCalls = 0;
    RPM_RESULT result = verify(package.c_str(), fixtures::KeyArmored("rsa2048").c_str());
    const std::string message = result.message != nullptr ? result.message : "<null>";
    std::free(result.message);
    EXPECT_EQ(RPM_SIGNED, result.status) << message;
    EXPECT_EQ(package + " is signed.", message);
    EXPECT_EQ(0, g_HostDecodeCalls);
}

} // namespace
