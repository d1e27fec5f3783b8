// signing-host run: near-miss types and unset variables are warned about,
// --strict fails a run in which a component of type rpm was not verified,
// the exit code tells a failed package (1) from what could not be checked
// (3), and run --key names the key file.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace hostprogram;

namespace {

json FolderComponent(const std::string& name, const std::string& folder, const std::string& file,
                     const std::string& type = "rpm") {
    return json{{"name", name}, {"type", type}, {"packageFolder", folder}, {"packageFile", file}};
}

} // namespace

TEST_F(HostProgramTest, NearMissTypesAndUnsetVariablesAreWarnedAndFailUnderStrict) {
    const std::string manifest = WriteManifest(Manifest(json::array({
        Component("good", "signed-rsa2048-sha256.rpm"),
        Component("missing", "absent.rpm"),
        Component("spaced", "signed-rsa2048-sha256.rpm", "rpm "),
        Component("upper", "signed-rsa2048-sha256.rpm", "RPM"),
        FolderComponent("unset", "${UNSET}", "signed-rsa2048-sha256.rpm"),
        Component("notes", "signed-rsa2048-sha256.rpm", "txt"),
    })));
    HostResult plain = Host({"run", "--key", Key(), manifest});
    HostResult strict = Host({"run", "--strict", "--key", Key(), manifest});

    const std::vector<std::string> warnings = {
        "signing-host run: warning: Suite/spaced: its type \"rpm \" is not exactly \"rpm\", so the plug-in "
        "does "
        "not verify it",
        "signing-host run: warning: Suite/upper: its type \"RPM\" is not exactly \"rpm\", so the plug-in "
        "does not "
        "verify it",
        "signing-host run: warning: Suite/unset: its package folder \"${UNSET}\" uses ${UNSET}, which is not "
        "set "
        "and expands to nothing",
    };
    // Without --strict the run passes as before, but not silently.
    EXPECT_EQ(plain.exitCode, 0) << plain.out << plain.err;
    for (const std::string& warning : warnings) {
        EXPECT_TRUE(HasLine(plain.err, warning)) << plain.err;
        EXPECT_TRUE(HasLine(strict.err, warning)) << strict.err;
    }
    EXPECT_TRUE(HasLine(plain.out, "Result: 0 - every package that was verified is signed")) << plain.out;

    EXPECT_EQ(strict.exitCode, 3) << strict.out;
    const std::vector<std::string> lines = LinesOf(strict.out);
    const std::vector<std::string> expected = {
        "Strict check: 4 components of type rpm were not verified:",
        "  FAIL  Suite/missing: the package file " + Package("absent.rpm") + " is missing",
        "  FAIL  Suite/spaced: its type \"rpm \" is not exactly \"rpm\", so the plug-in does not verify it",
        "  FAIL  Suite/upper: its type \"RPM\" is not exactly \"rpm\", so the plug-in does not verify it",
        "  FAIL  Suite/unset: its package folder \"${UNSET}\" uses ${UNSET}, which is not set and expands to "
        "nothing; the package file /signed-rsa2048-sha256.rpm is missing",
        "Exit code: 3 - nothing failed, but something could not be checked",
    };
    ASSERT_GE(lines.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(lines.end() - static_cast<long>(expected.size()), lines.end()),
              expected)
        << strict.out;
}

TEST_F(HostProgramTest, StrictRunWithEveryPackageVerifiedExitsZero) {
    const std::string manifest = WriteManifest(Manifest(json::array({
        Component("good", "signed-rsa2048-sha256.rpm"),
        Component("notes", "absent.txt", "txt"),
    })));
    HostResult result = Host({"run", "--strict", "--key", Key(), manifest});

    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_TRUE(HasLine(result.out, "Strict check: every component of type rpm was verified")) << result.out;
}

TEST_F(HostProgramTest, RunExitCodeSeparatesFailedFromUncheckable) {
    const std::string unsignedManifest =
        WriteManifest(Manifest(json::array({Component("plain", "unsigned.rpm")})), "unsigned.json");
    const std::string tampered =
        WriteManifest(Manifest(json::array({Component("changed", "tampered-payload.rpm"),
                                            Component("plain", "unsigned.rpm")})),
                      "tampered.json");
    const std::string empty = m_Work.File("empty.asc");
    WriteFile(empty, "");
    const std::string good =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")})), "good.json");

    HostResult unsignedRun = Host({"run", "--key", Key(), unsignedManifest});
    HostResult tamperedRun = Host({"run", "--key", Key(), tampered});
    HostResult emptyKey = Host({"run", "--key", empty, good});
    HostResult missingKey = Host({"run", "--key", m_Work.File("absent.asc"), good});

    EXPECT_EQ(unsignedRun.exitCode, 1) << unsignedRun.out;
    EXPECT_TRUE(HasLine(
        unsignedRun.out,
        "  Suite/plain: no signature: the package is unsigned; sign it with rpmsign --addsign --rpmv3"))
        << unsignedRun.out;
    EXPECT_EQ(tamperedRun.exitCode, 1) << tamperedRun.out;
    EXPECT_TRUE(HasLine(tamperedRun.out, "Exit code: 1 - a package failed its signature or hash check"));
    // An unusable key fails every package in the plug-in's words; the host
    // blames the key and exits 3.
    EXPECT_EQ(emptyKey.exitCode, 3) << emptyKey.out;
    EXPECT_TRUE(
        HasLine(emptyKey.out, "  Suite/good: the key file " + empty +
                                  " cannot be used by the plug-in, so no package can pass: the key file is "
                                  "empty: export the public key with gpg --armor --export KEYID"))
        << emptyKey.out;
    EXPECT_TRUE(
        Contains(emptyKey.out, "  FAIL  Suite/good: RPM_ERROR (5) Internal error occured while verifying "));
    EXPECT_EQ(missingKey.exitCode, 3);
    EXPECT_EQ(missingKey.err, "signing-host run: the key file '" + m_Work.File("absent.asc") +
                                  "' does not exist or is not a file\n");
}

TEST_F(HostProgramTest, RunKeyOptionAndManifestDirInTheSignatureValue) {
    WriteFile(m_Work.File("release.asc"), ReadFile(Key()));
    json withDir = Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}),
                            json{{"signature", "${MANIFEST_DIR}/release.asc"}});
    const std::string manifest = WriteManifest(withDir);
    const std::string plain =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")})), "plain.json");

    HostResult beside = Host({"run", "--json", manifest});
    HostResult keyOption = Host({"run", "--json", "--key", "release.asc", plain});

    EXPECT_EQ(beside.exitCode, 0) << beside.out << beside.err;
    EXPECT_EQ(json::parse(beside.out)["session"]["signature"], m_Work.File("release.asc"));
    EXPECT_EQ(keyOption.exitCode, 0) << keyOption.out << keyOption.err;
    // Relative to the current folder, made absolute for the plug-in.
    EXPECT_EQ(json::parse(keyOption.out)["session"]["signature"], m_Work.File("release.asc"));
}
