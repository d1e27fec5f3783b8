// Loads the built plug-in the way the host does: this program provides and
// exports the session interface, never links the library, and reaches
// rpm_verify only through dlopen and dlsym under its plain symbol name.
#include "Fixtures.h"
#include "Sanitizer.h"
#include "TestSupport.h"
#include "rpmutil.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

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

// Hosts are linked against the plug-in's names: its functions, data,
// vtables and type information stay exactly those of the list, and it needs
// the same libraries under the same soname. (Weak instances of standard
// templates depend on the compiler's inlining and are not pinned.)
TEST(DlopenRpmVerify, ExportedSymbolsAndDependenciesStayTheSame) {
#if SIGNING_TEST_SANITIZED
    GTEST_SKIP() << "an instrumented plug-in exports and needs the sanitizer's symbols as well";
#endif
    std::ifstream listFile(std::string(SIGNING_SOURCE_DIR) + "/tests/scenario/dlopen/exported-symbols.txt");
    ASSERT_TRUE(listFile.good());
    std::set<std::string> expected;
    for (std::string line; std::getline(listFile, line);) {
        if (!line.empty() && line[0] != '#') {
            expected.insert(line);
        }
    }
    const std::string plugin = fixtures::ShellQuote(testsupport::PluginPath());
    testsupport::CommandResult symbols = testsupport::Run(
        "nm -D --defined-only " + plugin + " | awk '$2==\"T\"||$2==\"D\"||$2==\"V\" {print $2, $3}'");
    ASSERT_EQ(0, symbols.exitCode);
    std::set<std::string> actual;
    std::istringstream lines(symbols.output);
    for (std::string line; std::getline(lines, line);) {
        actual.insert(line);
    }
    std::vector<std::string> missing;
    std::vector<std::string> added;
    std::set_difference(expected.begin(), expected.end(), actual.begin(), actual.end(),
                        std::back_inserter(missing));
    std::set_difference(actual.begin(), actual.end(), expected.begin(), expected.end(),
                        std::back_inserter(added));
    EXPECT_EQ(352u, expected.size());
    EXPECT_TRUE(missing.empty()) << "no longer exported: " << testing::PrintToString(missing);
    EXPECT_TRUE(added.empty()) << "newly exported: " << testing::PrintToString(added);

    testsupport::CommandResult dynamic =
        testsupport::Run("readelf -d " + plugin + " | grep -E '\\((NEEDED|SONAME)\\)' | sed 's/.*: //'");
    ASSERT_EQ(0, dynamic.exitCode);
    EXPECT_EQ("[libcrypto.so.3]\n[libstdc++.so.6]\n[libgcc_s.so.1]\n[libc.so.6]\n[kmrt_stuff/signing.so]\n",
              dynamic.output);
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
