// Loads the built plug-in the way the host does: this program provides and
// exports the session interface, never links the library, and reaches
// rpm_verify only through dlopen and dlsym under its plain symbol name.
#include "Fixtures.h"
#include "TestSupport.h"
#include "rpmutil.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using RpmVerify = RPM_RESULT (*)(const char*, const char*);

// The plug-in stays loaded for the life of the process, as in the host:
// its certificate store lives until the end.
void* Plugin() {
    static void* handle = dlopen(testsupport::PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    return handle;
}

RpmVerify Entry() {
    return reinterpret_cast<RpmVerify>(dlsym(Plugin(), "rpm_verify"));
}

struct Result {
    int status;
    std::string message;
};

Result Call(const std::string& file, const std::string& key) {
    RPM_RESULT result = Entry()(file.c_str(), key.c_str());
    Result copy{result.status, result.message};
    std::free(result.message);
    return copy;
}

TEST(DlopenRpmVerify, PluginLoadsWithEverySymbolResolved) {
    dlerror();
    ASSERT_NE(nullptr, Plugin()) << dlerror();
    EXPECT_NE(nullptr, Entry());
    // Only the plain name: there is no C++-mangled entry point.
    EXPECT_EQ(nullptr, dlsym(Plugin(), "_Z10rpm_verifyPKcS0_"));
}

TEST(DlopenRpmVerify, DynamicSymbolTableListsThePlainName) {
    testsupport::CommandResult symbols =
        testsupport::Run("nm -D --defined-only " + fixtures::ShellQuote(testsupport::PluginPath()));
    ASSERT_EQ(0, symbols.exitCode);
    EXPECT_NE(std::string::npos, symbols.output.find(" T rpm_verify\n")) << symbols.output.substr(0, 2000);
}

TEST(DlopenRpmVerify, SignedPackageIsSigned) {
    ASSERT_NE(nullptr, Entry());
    for (const auto& package : fixtures::SignedPackages()) {
        REQUIRE_FIXTURE(package.path);
        Result result = Call(package.path, fixtures::KeyArmored(package.key));
        EXPECT_EQ(RPM_SIGNED, result.status) << package.name;
        EXPECT_EQ(package.path + " is signed.", result.message);
    }
}

TEST(DlopenRpmVerify, FailuresThroughThePlugin) {
    ASSERT_NE(nullptr, Entry());
    const std::string key = fixtures::KeyArmored("rsa2048");
    const std::string tampered = fixtures::Package("tampered-payload.rpm");
    Result result = Call(tampered, key);
    EXPECT_EQ(RPM_INVALID_HASH, result.status);
    EXPECT_EQ(tampered + " has invalid hash.", result.message);

    const std::string signedPackage = fixtures::Package("signed-rsa2048-sha256.rpm");
    result = Call(signedPackage, fixtures::KeyArmored("other2048"));
    EXPECT_EQ(RPM_INVALID_SIGNATURE, result.status);
    EXPECT_EQ(signedPackage + " has invalid signature.", result.message);

    result = Call(fixtures::NotAPackage(), key);
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ(fixtures::NotAPackage() + " is not an RPM file.", result.message);

    const std::string unsignedPackage = fixtures::Package("unsigned.rpm");
    result = Call(unsignedPackage, key);
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("Internal error occured while verifying " + unsignedPackage, result.message);

    // The plug-in's own exception and its text cross the boundary as a message.
    const std::string badSignature = fixtures::Package("badsig-payload.rpm");
    REQUIRE_FIXTURE(badSignature);
    result = Call(badSignature, key);
    EXPECT_EQ(RPM_ERROR, result.status);
    EXPECT_EQ("Internal error occured while verifying " + badSignature, result.message);
}

} // namespace
