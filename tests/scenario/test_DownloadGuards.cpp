// The guards around the key download: session values that would change the
// shell command are refused before anything runs, the key goes into a
// private folder when the temporary folder is shared, a link or an earlier
// file in the key's place is never followed, and a key service that
// trickles, floods or never answers cannot hold the installer or fill its
// disk. Real wget against loopback services, and stand-in tools that record
// how they were called.
#include "HostSession.h"
#include "signing.h"

#include "LoopbackServer.h"
#include "PluginLogLines.h"
#include "PluginSessionTest.h"
#include "TestSupport.h"
#include "ToolPath.h"

#include <gtest/gtest.h>

#include <chrono>
#include <list>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using host::HostLog;
using namespace testsupport;

namespace {

using Lines = std::vector<std::string>;

const char kRefusedPrefix[] = "signing_get_public_key: download refused, ";

std::string RefusedCharacterLine(const std::string& name) {
    return kRefusedPrefix + name + " holds a character that is not allowed in the command";
}

// The real key of the fixtures, served by the loopback server.
std::string FixtureKey() {
    return testsupport::Fixture("keys/rsa2048.asc");
}

class DownloadGuardTest : public testsupport::PluginSessionTest {
protected:
    DownloadGuardTest() : m_Path("PATH") {
        m_Standins = m_Work.File("standins");
        mkdir(m_Standins.c_str(), 0755);
    }

    std::string Calls(const std::string& tool) const { return m_Standins + "/" + tool + ".calls"; }

    // Stand-in `which` and `wget` first on PATH: both record their
    // arguments; wget then runs the given shell text.
    void StandinTools(const std::string& wgetAction) {
        testsupport::WriteScript(m_Standins + "/which",
                                 "printf '%s\\n' \"$*\" >> '" + Calls("which") + "'\n");
        testsupport::WriteScript(m_Standins + "/wget",
                                 "printf '%s\\n' \"$*\" >> '" + Calls("wget") + "'\n" + wgetAction);
        m_Path.Set(m_Standins + ":" + m_Path.Original());
    }

    bool ToolWasRun() const { return PathExists(Calls("which")) || PathExists(Calls("wget")); }

    // A folder served by the loopback server with the fixture key as
    // /key.asc.
    std::string ServedFolder() {
        std::string folder = m_Work.File("served");
        mkdir(folder.c_str(), 0755);
        WriteFile(folder + "/key.asc", ReadFile(FixtureKey()));
        return folder;
    }

    // Asks for the key at the service's /key.asc, where the download fails,
    // and returns how many whole seconds the plug-in took to give up.
    long SecondsToGiveUp(const MisbehavingKeyService& service) {
        m_Session.SetValue("SIGNING_DEFAULT_URL", service.Url("/key.asc"));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(_signing_get_public_key(&m_Session), "");
        return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start)
            .count();
    }

    void AddProductWithUpdateId(const std::string& id) {
        m_Session.Installation().AddProduct(
            "product",
            Environment{{"phonehome", m_Session.AddNestedEnvironment(Environment{{"VokUpdateId", id}})}});
    }

    // The folders that a download made inside the given folder.
    Lines PrivateFolders(const std::string& folder) const {
        testsupport::CommandResult listing =
            testsupport::Run("cd " + testsupport::ShellQuote(folder) + " && ls -d signing-key-* 2>/dev/null");
        Lines names;
        std::string name;
        for (char c : listing.output) {
            if (c == '\n') {
                names.push_back(folder + "/" + name);
                name.clear();
            } else {
                name += c;
            }
        }
        return names;
    }

    std::string m_Standins;
    testsupport::EnvironmentVariableGuard m_Path;
    testsupport::NoHttpProxy m_NoProxy;
};

} // namespace

// ------------------------------------------------------------- injection

TEST_F(DownloadGuardTest, UpdateIdWithAShellCommandIsRefusedBeforeAnythingRuns) {
    StandinTools("exit 0\n");
    const std::string witness = m_Work.File("witness");
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    AddProductWithUpdateId("x;id>" + witness + ";#");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");

    EXPECT_EQ(HostLog::Lines(),
              (Lines{kDownloadingLine, RequestLine("http://keys.invalid/key?id=x;id>" + witness + ";#"),
                     RefusedCharacterLine("VokUpdateId")}));
    EXPECT_FALSE(PathExists(witness));
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, UrlWithAnAmpersandIsRefused) {
    StandinTools("exit 0\n");
    const std::string witness = m_Work.File("witness");
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/default");
    m_Session.SetValue("signing_url", "http://keys.invalid/key&touch>" + witness);

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");

    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], RefusedCharacterLine("signing_url"));
    EXPECT_FALSE(PathExists(witness));
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, EveryShellCharacterInTheDefaultUrlIsRefused) {
    StandinTools("exit 0\n");
    for (const char* bad : {" ", ";", "&", "|", "$",  "`",  "'", "\"", "(", ")",
                            "<", ">", "*", "[", "\\", "\n", "#", "!",  "{", "\t"}) {
        HostLog::Clear();
        m_Session.SetValue("SIGNING_DEFAULT_URL", std::string("http://keys.invalid/a") + bad + "b");
        EXPECT_EQ(_signing_get_public_key(&m_Session), "") << bad;
        Lines lines = HostLog::Lines();
        ASSERT_EQ(lines.size(), 3u) << bad;
        EXPECT_EQ(lines[2], RefusedCharacterLine("SIGNING_DEFAULT_URL")) << bad;
    }
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, UrlThatWouldBeTakenAsAnOptionIsRefused) {
    StandinTools("exit 0\n");
    m_Session.SetValue("signing_url", "--output-document=/etc/x");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2],
              std::string(kRefusedPrefix) + "signing_url begins with '-' and would be taken as an option");
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, TempFolderWithABlankIsRefused) {
    StandinTools("exit 0\n");
    const std::string folder = m_Work.File("with blank");
    ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
    m_Session.SetValue("TEMP_FOLDER", folder);
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    EXPECT_EQ(HostLog::Lines(), (Lines{kDownloadingLine, RequestLine("http://keys.invalid/key?id="),
                                       RefusedCharacterLine("TEMP_FOLDER")}));
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, CommandThatWouldBeCutIsRefused) {
    StandinTools("exit 0\n");
    // 4095 characters would cut the command inside the request, before its
    // output option: wget would write into the current folder.
    const std::string url = "http://keys.invalid/" + std::string(4000, 'u');
    m_Session.SetValue("SIGNING_DEFAULT_URL", url);

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    EXPECT_EQ(HostLog::Lines(),
              (Lines{kDownloadingLine, RequestLine(url + "?id="),
                     std::string(kRefusedPrefix) + "the command would be longer than 4095 characters"}));
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, LongestCommandThatFitsIsStillRun) {
    StandinTools("exit 8\n");
    // The curl template is the longer one; a request that fits it exactly
    // is run (here by the wget stand-in).
    const std::string outFile = m_Temp + "/PUBLIC_KEY.PUB";
    const std::string curlFrame =
        "export LD_LIBRARY_PATH=\"\"; curl --max-time 3 --retry 1 --location --silent  -o " + outFile +
        " 2>/dev/null";
    const std::string url = "http://k/" + std::string(4095 - curlFrame.size() - 9 - 4, 'u');
    m_Session.SetValue("SIGNING_DEFAULT_URL", url);

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[2], CommandValueLine(WgetCommand(url + "?id=", outFile)));
}

TEST_F(DownloadGuardTest, SafeCharactersKeepTheCommandExactly) {
    StandinTools("exit 8\n");
    const std::string url = "https://user@keys.example.com:8443/a-b_c.d~e/key?x=1%2C2+3,4";
    m_Session.SetValue("SIGNING_DEFAULT_URL", url);
    AddProductWithUpdateId("UPD-1.2_3~4:5/6?7=8%9+10,11@12");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    const std::string request = url + "?id=UPD-1.2_3~4:5/6?7=8%9+10,11@12";
    const std::string command = WgetCommand(request, m_Temp + "/PUBLIC_KEY.PUB");
    EXPECT_EQ(HostLog::Lines(), FailedDownloadLines(request, command, kWgetProtocols, CallFailedLine(2048)));
}

// ------------------------------------------------------ temporary folder

TEST_F(DownloadGuardTest, EmptyTempFolderIsRefused) {
    StandinTools("exit 0\n");
    m_Session.SetValue("TEMP_FOLDER", "");
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    EXPECT_EQ(HostLog::Lines(), (Lines{kDownloadingLine, RequestLine("http://keys.invalid/key?id="),
                                       std::string(kRefusedPrefix) + "TEMP_FOLDER is empty"}));
    EXPECT_FALSE(ToolWasRun());
    EXPECT_FALSE(PathExists("/PUBLIC_KEY.PUB"));
}

TEST_F(DownloadGuardTest, TempFolderThatIsAFileIsRefused) {
    StandinTools("exit 0\n");
    const std::string file = m_Work.File("plain-file");
    WriteFile(file, "x");
    m_Session.SetValue("TEMP_FOLDER", file);
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], std::string(kRefusedPrefix) + "TEMP_FOLDER [" + file + "] is not a folder");
    EXPECT_FALSE(ToolWasRun());
}

TEST_F(DownloadGuardTest, SharedTempFolderGetsAPrivateFolderThatTheRunRemoves) {
    LoopbackHttpServer server(ServedFolder(), m_Work.File("server.log"));
    const std::string shared = m_Work.File("shared");
    ASSERT_EQ(0, mkdir(shared.c_str(), 0755));
    ASSERT_EQ(0, chmod(shared.c_str(), 01777));
    m_Session.SetValue("TEMP_FOLDER", shared);
    m_Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/key.asc"));
    Product& product = m_Session.Installation().AddProduct("product");
    m_Session.Installation().AddComponent(product, "rpm", "good", testsupport::Fixture("rpm"),
                                          "signed-rsa2048-sha256.rpm");

    // Seen from inside the run: the key's folder while packages are verified.
    std::string keyFolderMode;
    HostLog::SetListener([&](const std::string& line) {
        if (line.rfind("_signing_validate_file:", 0) == 0) {
            for (const std::string& folder : PrivateFolders(shared)) {
                struct stat status;
                if (lstat(folder.c_str(), &status) == 0) {
                    keyFolderMode =
                        std::to_string(status.st_mode & 07777) + (S_ISDIR(status.st_mode) ? " dir" : "");
                }
            }
        }
    });
    const int returned = signing_validate_package_list(&m_Session);
    HostLog::SetListener(nullptr);

    EXPECT_EQ(returned, 0);
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 9u);
    // The command and the result name the private folder's key.
    const std::string obtained = lines[6];
    const size_t open = obtained.find('[');
    ASSERT_NE(open, std::string::npos);
    const std::string privateKey = obtained.substr(open + 1, obtained.size() - open - 2);
    EXPECT_EQ(privateKey.size(), shared.size() + std::string("/signing-key-XXXXXX/PUBLIC_KEY.PUB").size());
    EXPECT_EQ(privateKey.compare(0, shared.size() + 13, shared + "/signing-key-"), 0) << privateKey;
    EXPECT_EQ(lines[6], KeyObtainedLine(privateKey));
    EXPECT_EQ(lines[3], CommandValueLine(WgetCommand(server.Url("/key.asc") + "?id=", privateKey)));
    EXPECT_EQ(lines[7], SignedLine(testsupport::Fixture("rpm") + "/signed-rsa2048-sha256.rpm"));
    EXPECT_EQ(keyFolderMode, std::to_string(0700) + " dir");
    // Nothing was written into the shared folder itself, and the private
    // folder is gone once the run has ended.
    EXPECT_FALSE(PathExists(shared + "/PUBLIC_KEY.PUB"));
    EXPECT_TRUE(PrivateFolders(shared).empty());
    EXPECT_FALSE(PathExists(privateKey));
}

TEST_F(DownloadGuardTest, FolderOfAnotherUserGetsAPrivateFolder) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "giving a folder to another user needs root";
    }
    LoopbackHttpServer server(ServedFolder(), m_Work.File("server.log"));
    const std::string foreign = m_Work.File("foreign");
    ASSERT_EQ(0, mkdir(foreign.c_str(), 0755));
    ASSERT_EQ(0, chown(foreign.c_str(), 65534, 65534));
    m_Session.SetValue("TEMP_FOLDER", foreign);
    m_Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/key.asc"));

    const std::string key = _signing_get_public_key(&m_Session);

    ASSERT_EQ(key.compare(0, foreign.size() + 13, foreign + "/signing-key-"), 0) << key;
    EXPECT_EQ(ReadFile(key), ReadFile(FixtureKey()));
    struct stat status;
    ASSERT_EQ(0, lstat(key.substr(0, key.size() - 15).c_str(), &status));
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_EQ(status.st_uid, geteuid());
    // Outside a validation run the folder stays until a run ends.
    EXPECT_EQ(signing_validate_package_list(&m_Session), 0);
    EXPECT_FALSE(PathExists(key));
}

TEST_F(DownloadGuardTest, LinkInTheKeysPlaceIsRemovedNotFollowed) {
    LoopbackHttpServer server(ServedFolder(), m_Work.File("server.log"));
    const std::string victim = m_Work.File("victim");
    WriteFile(victim, "must stay as it is\n");
    ASSERT_EQ(0, symlink(victim.c_str(), (m_Temp + "/PUBLIC_KEY.PUB").c_str()));
    m_Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/key.asc"));

    const std::string key = _signing_get_public_key(&m_Session);

    EXPECT_EQ(key, m_Temp + "/PUBLIC_KEY.PUB");
    EXPECT_EQ(ReadFile(victim), "must stay as it is\n");
    struct stat status;
    ASSERT_EQ(0, lstat(key.c_str(), &status));
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(ReadFile(key), ReadFile(FixtureKey()));
}

TEST_F(DownloadGuardTest, EarlierKeyFileIsRemovedBeforeTheDownload) {
    // A download that writes nothing leaves no earlier key to be taken for
    // the new one.
    StandinTools("exit 8\n");
    WriteFile(m_Temp + "/PUBLIC_KEY.PUB", "an earlier key\n");
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    EXPECT_FALSE(PathExists(m_Temp + "/PUBLIC_KEY.PUB"));
}

TEST_F(DownloadGuardTest, DownloadedLinkIsNotAKey) {
    const std::string victim = m_Work.File("victim");
    WriteFile(victim, "not a key\n");
    // The stand-in puts a link where the key belongs: "-O <path>" are its
    // last arguments.
    StandinTools("for last; do :; done\nln -s '" + victim + "' \"$last\"\nexit 0\n");
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");

    const std::string outFile = m_Temp + "/PUBLIC_KEY.PUB";
    const std::string command = WgetCommand("http://keys.invalid/key?id=", outFile);
    EXPECT_EQ(HostLog::Lines(), FailedDownloadLines("http://keys.invalid/key?id=", command, kWgetProtocols,
                                                    "_signing_call_webservice: downloaded key [" + outFile +
                                                        "] is not a regular file"));
    EXPECT_EQ(ReadFile(victim), "not a key\n");
}

// ------------------------------------------------------ misbehaving service

TEST_F(DownloadGuardTest, FloodingServiceIsCutAtTheKeySizeBound) {
    MisbehavingKeyService service(MisbehavingKeyService::Behaviour::Flood, 64UL * 1024 * 1024);
    SecondsToGiveUp(service);

    const std::string outFile = m_Temp + "/PUBLIC_KEY.PUB";
    const std::string command = WgetCommand(service.Url("/key.asc") + "?id=", outFile);
    EXPECT_EQ(HostLog::Lines(),
              FailedDownloadLines(service.Url("/key.asc") + "?id=", command, kWgetProtocols,
                                  "_signing_call_webservice: downloaded key is larger than 4194304 bytes"));
    EXPECT_FALSE(PathExists(outFile));
    EXPECT_EQ(service.Connections(), 3);
}

TEST_F(DownloadGuardTest, SilentServiceEndsWithTheToolsTimeOut) {
    MisbehavingKeyService service(MisbehavingKeyService::Behaviour::Silent);
    const long seconds = SecondsToGiveUp(service);
    // wget's own idle time-out of 3 seconds ends each attempt; exit code 4
    // is its network failure.
    EXPECT_LT(seconds, 30);
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[5], CallFailedLine(1024));
    EXPECT_EQ(lines[11], CallFailedLine(1024));
}

// Takes 90 seconds: labelled slow.
class DownloadDeadline : public DownloadGuardTest {};

TEST_F(DownloadDeadline, TricklingServiceIsKilledAfterThirtySecondsAnAttempt) {
    MisbehavingKeyService service(MisbehavingKeyService::Behaviour::Trickle);
    const long seconds = SecondsToGiveUp(service);
    // Three attempts of 30 seconds each, then it gives up.
    EXPECT_GE(seconds, 90);
    EXPECT_LT(seconds, 110);
    const std::string outFile = m_Temp + "/PUBLIC_KEY.PUB";
    const std::string command = WgetCommand(service.Url("/key.asc") + "?id=", outFile);
    EXPECT_EQ(
        HostLog::Lines(),
        FailedDownloadLines(service.Url("/key.asc") + "?id=", command, kWgetProtocols,
                            "_signing_call_webservice: web service call did not finish within 30 seconds"));
    EXPECT_FALSE(PathExists(outFile));
    // The killed tool is gone: nothing writes into the folder any more.
    // ("[w]get" keeps pgrep from finding the shell that runs it.)
    EXPECT_EQ(
        testsupport::Run("pgrep -f " + testsupport::ShellQuote("[w]get .*" + service.Url("/key.asc"))).output,
        "");
}
