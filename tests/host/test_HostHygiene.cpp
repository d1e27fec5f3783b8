// signing-host's care with its inputs and files: a manifest with a key
// given twice or a NUL character is refused naming the field, the --log file
// is never reached through a symbolic link and is created private, and the
// private temporary folder goes away when the run is ended by a signal.
#include "HostProgramTest.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>

using namespace hostprogram;

TEST_F(HostProgramTest, ManifestWithADuplicateKeyIsRefusedNamingTheField) {
    const std::string path = m_Work.File("dup.json");
    WriteFile(path, R"({"products": [{"name": "Suite", "components": [
        {"name": "a", "type": "rpm", "packageFolder": "/p", "packageFile": "a.rpm", "packageFile": "b.rpm"}]}]})");
    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: the manifest '" + path +
                              "' gives the field \"products[0].components[0].packageFile\" more than once\n");
}

TEST_F(HostProgramTest, ManifestWithANulCharacterIsRefusedNamingTheField) {
    const std::string path = m_Work.File("nul.json");
    WriteFile(path, R"({"session": {"TEMP_FOLDER": "/tmp"}, "products": [{"name": "Suite", "components": [
        {"name": "a", "type": "rpm", "packageFolder": "/p", "packageFile": "good.rpm\u0000.txt"}]}]})");
    HostResult result = Host({"run", path});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "signing-host run: the manifest '" + path +
                              "' has a NUL character (\\u0000) in the field "
                              "\"products[0].components[0].packageFile\"\n");
}

TEST_F(HostProgramTest, LogFileIsPrivateAndNeverASymbolicLink) {
    const std::string log = m_Work.File("run.log");
    const std::string target = m_Work.File("target.txt");
    WriteFile(target, "keep\n");
    const std::string link = m_Work.File("link.log");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);

    const std::string manifest =
        WriteManifest(Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")})));
    HostResult written = Host({"run", "--log", log, "--key", Key(), manifest});
    HostResult linked = Host({"verify", "--log", link, "--key", Key(), Package("signed-rsa2048-sha256.rpm")});

    EXPECT_EQ(written.exitCode, 0) << written.err;
    struct stat status;
    ASSERT_EQ(stat(log.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_TRUE(Contains(ReadFile(log), "signing_validate_package_list: started\n")) << ReadFile(log);
    EXPECT_EQ(linked.exitCode, 2);
    EXPECT_EQ(linked.err, "signing-host verify: cannot open the log file '" + link +
                              "': it is a symbolic link, which is not followed\n");
    EXPECT_EQ(ReadFile(target), "keep\n");
}

TEST_F(HostProgramTest, TemporaryFolderIsRemovedWhenTheRunIsTerminated) {
    // A wget that hangs keeps the plug-in in its key download while the
    // host's own temporary folder exists.
    const std::string tools = ToolsOnly({"which", "sleep"});
    testsupport::WriteScript(tools + "/wget", "sleep 5\n");
    const std::string temp = m_Work.File("tmp");
    mkdir(temp.c_str(), 0700);
    json manifest = Manifest(json::array({Component("good", "signed-rsa2048-sha256.rpm")}),
                             json{{"signing_url", "http://127.0.0.1:9/key"}});
    manifest["session"].erase("TEMP_FOLDER");
    const std::string path = WriteManifest(manifest);

    // (A shell starts background commands with SIGINT ignored, so SIGHUP
    // stands for the signals of a closing terminal here.)
    for (const char* signal : {"TERM", "HUP"}) {
        const std::string script =
            "cd " + ShellQuote(m_Work.Path()) + " && env TMPDIR=" + ShellQuote(temp) +
            " PATH=" + ShellQuote(tools) + " " + ShellQuote(kHost) + " run " + ShellQuote(path) +
            " >/dev/null 2>&1 & pid=$!; i=0; while [ $i -lt 200 ] && ! ls " + ShellQuote(temp) +
            " | grep -q signing-host-; do sleep 0.05; i=$((i+1)); done; sleep 0.3; ls " + ShellQuote(temp) +
            " | grep -c signing-host-; kill -" + signal + " $pid; wait $pid; echo status $?; ls -A " +
            ShellQuote(temp);
        testsupport::CommandResult result = testsupport::Run("/bin/sh -c " + ShellQuote(script));
        const int expectedStatus = 128 + (std::string(signal) == "TERM" ? SIGTERM : SIGHUP);
        EXPECT_EQ(result.output, "1\nstatus " + std::to_string(expectedStatus) + "\n") << signal;
    }
}
