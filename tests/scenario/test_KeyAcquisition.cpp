// Obtaining the public key: the user's key, the download with the real wget
// and curl from a loopback HTTP server, the failure branches forced with
// stand-in tools first on PATH, the key file plausibility test, and the
// symbols and soname of the built plug-in.
#include "HostSession.h"
#include "signing.h"

#include "LoopbackServer.h"
#include "PluginLogLines.h"
#include "PluginSessionTest.h"
#include "TestSupport.h"
#include "ToolPath.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <list>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using host::HostLog;
using namespace testsupport;

namespace {

using Lines = std::vector<std::string>;

// A key-shaped armored text; the plug-in stores whatever the service
// answers, so the download is checked byte for byte.
std::string ServedKey() {
    std::string key = "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\n";
    for (int line = 0; line < 40; ++line) {
        key += std::string(64, static_cast<char>('A' + line % 26)) + "\n";
    }
    key += "=QkZz\n-----END PGP PUBLIC KEY BLOCK-----\n";
    return key;
}

class KeyAcquisitionTest : public testsupport::PluginSessionTest {
protected:
    KeyAcquisitionTest() : m_Path("PATH") {
        m_Standins = m_Work.File("standins");
        mkdir(m_Standins.c_str(), 0755);
    }

    // The folder the loopback server serves, inside the test's own folder
    // (removed after PATH is restored).
    std::string ServedFolder() const {
        std::string folder = m_Work.File("served");
        mkdir(folder.c_str(), 0755);
        return folder;
    }

    std::string OutFile() const { return m_Temp + "/PUBLIC_KEY.PUB"; }
    std::string StandinCalls(const std::string& tool) const { return m_Standins + "/" + tool + ".calls"; }

    // A stand-in tool that records its arguments, one call a line, and then
    // runs the given shell text.
    void WriteStandin(const std::string& tool, const std::string& action) {
        testsupport::WriteScript(m_Standins + "/" + tool,
                                 "printf '%s\\n' \"$*\" >> '" + StandinCalls(tool) + "'\n" + action);
    }

    // A stand-in tool that ends the shell that popen started (and itself)
    // with SIGKILL, so that the plug-in sees a command killed by a signal
    // whether or not the shell ran the tool as its own child.
    void WriteKillingStandin(const std::string& tool) {
        WriteStandin(tool, "if [ \"$PPID\" != \"" + std::to_string(getpid()) +
                               "\" ]; then kill -KILL \"$PPID\"; fi\nkill -KILL $$\n");
    }

    Lines StandinCallLines(const std::string& tool) const {
        if (!testsupport::PathExists(StandinCalls(tool))) {
            return Lines();
        }
        std::list<std::string> lines = readContentOfTextFile(StandinCalls(tool));
        return Lines(lines.begin(), lines.end());
    }

    // PATH = the stand-ins, then the test's own PATH.
    void StandinsFirstOnPath() { m_Path.Set(m_Standins + ":" + m_Path.Original()); }

    // A stand-in wget first on PATH that answers every download with exit
    // code 8, as the real one does for a server error response.
    void FailingWgetFirstOnPath() {
        WriteStandin("wget", "exit 8\n");
        StandinsFirstOnPath();
    }

    // PATH = the stand-ins, then links to the real sh and which only: no
    // real wget or curl.
    void StandinsBeforeShAndWhich() {
        m_Path.Set(m_Standins + ":" + LinkTools(m_Work.File("tools"), {"sh", "which"}));
    }

    // A "phonehome" environment whose nested environment carries the given
    // update identifier.
    Environment PhoneHome(const std::string& id) {
        return Environment{{"phonehome", m_Session.AddNestedEnvironment(Environment{{"VokUpdateId", id}})}};
    }

    // A product whose "phonehome" environment carries the given update
    // identifier.
    void AddProductWithUpdateId(const std::string& id) {
        m_Session.Installation().AddProduct("product", PhoneHome(id));
    }

    // The log, the answer and the key file when the first download attempt,
    // with the given command builder and secure option, obtained the served
    // key from path?id=id.
    void ExpectServedKeyObtained(const std::string& result, const LoopbackHttpServer& server,
                                 const std::string& path, const std::string& id,
                                 std::string (*commandOf)(const std::string&, const std::string&),
                                 const std::string& protocol) {
        const std::string request = server.Url(path) + "?id=" + id;
        const std::string command = commandOf(request, OutFile());
        Lines expected{kDownloadingLine, RequestLine(request), CommandValueLine(command)};
        AppendAttempt(expected, command, protocol);
        expected.push_back(KeyObtainedLine(OutFile()));
        EXPECT_EQ(HostLog::Lines(), expected);
        EXPECT_EQ(result, OutFile());
        EXPECT_EQ(ReadFile(OutFile()), ServedKey());
        EXPECT_NE(server.RequestLog().find("\"GET " + path + "?id=" + id + " HTTP/1.1\" 200"),
                  std::string::npos)
            << server.RequestLog();
    }

    // Asks for the key with the default URL set: the answer is the key's
    // path, or empty when none was obtained.
    std::string KeyFrom(const std::string& defaultUrl) {
        m_Session.SetValue("SIGNING_DEFAULT_URL", defaultUrl);
        return _signing_get_public_key(&m_Session);
    }

    std::string m_Standins;
    EnvironmentVariableGuard m_Path;
};

} // namespace

TEST_F(KeyAcquisitionTest, UserKeyIsReturnedUnchangedWithoutProbing) {
    WriteStandin("which", "exit 0\n");
    StandinsFirstOnPath();
    m_Session.SetValue("signature", "relative/key.asc with http://not-checked");

    EXPECT_EQ(KeyFrom("http://127.0.0.1:9/"), "relative/key.asc with http://not-checked");
    EXPECT_EQ(HostLog::Lines(), (Lines{"signing_get_public_key: public key specified by user "
                                       "relative/key.asc with http://not-checked"}));
    EXPECT_TRUE(StandinCallLines("which").empty());
    EXPECT_TRUE(m_Session.Writes("signature").empty());
}

TEST_F(KeyAcquisitionTest, RealWgetDownloadsTheKeyFromALoopbackServer) {
    NoHttpProxy noProxy;
    ASSERT_EQ(testsupport::Run("which wget").exitCode, 0) << "wget must be installed";
    std::string served = ServedFolder();
    mkdir((served + "/keys").c_str(), 0755);
    WriteFile(served + "/keys/key.asc", ServedKey());
    LoopbackHttpServer server(served, m_Work.File("server.log"));
    AddProductWithUpdateId("UPD-42");

    std::string result = KeyFrom(server.Url("/keys/key.asc"));

    ExpectServedKeyObtained(result, server, "/keys/key.asc", "UPD-42", WgetCommand,
                            "--secure-protocol=SSLv3");
    EXPECT_EQ(_signing_is_valid_key(result), 0);
}

TEST_F(KeyAcquisitionTest, RealWgetAnsweredWithNotFoundFailsThreeTimes) {
    NoHttpProxy noProxy;
    LoopbackHttpServer server(ServedFolder(), m_Work.File("server.log"));

    std::string result = KeyFrom(server.Url("/missing.asc"));

    // wget reports a server error response with exit code 8.
    std::string request = server.Url("/missing.asc") + "?id=";
    std::string command = WgetCommand(request, OutFile());
    EXPECT_EQ(HostLog::Lines(), FailedDownloadLines(request, command, kWgetProtocols, CallFailedLine(2048)));
    EXPECT_EQ(result, "");
}

TEST_F(KeyAcquisitionTest, RealCurlWhenOnlyCurlIsInstalled) {
    NoHttpProxy noProxy;
    std::string served = ServedFolder();
    WriteFile(served + "/key.asc", ServedKey());
    LoopbackHttpServer server(served, m_Work.File("server.log"));
    m_Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/key.asc"));
    AddProductWithUpdateId("UPD-7");
    m_Path.Set(LinkTools(m_Work.File("tools"), {"sh", "which", "curl"}));
    ASSERT_NE(testsupport::Run("which wget").exitCode, 0);
    ASSERT_EQ(testsupport::Run("which curl").exitCode, 0);

    std::string result = _signing_get_public_key(&m_Session);

    ExpectServedKeyObtained(result, server, "/key.asc", "UPD-7", CurlCommand, "--sslv3");
}

TEST_F(KeyAcquisitionTest, DownloadExitingWithCode8IsAttemptedThreeTimes) {
    FailingWgetFirstOnPath();
    AddProductWithUpdateId("UPD-8");

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");

    std::string request = "http://keys.invalid/key?id=UPD-8";
    std::string command = WgetCommand(request, OutFile());
    EXPECT_EQ(HostLog::Lines(), FailedDownloadLines(request, command, kWgetProtocols, CallFailedLine(2048)));
    // Every attempt runs the plain command: the secure option is only logged.
    std::string arguments = "--timeout=3 --tries=1 --quiet " + request + " -O " + OutFile();
    EXPECT_EQ(StandinCallLines("wget"), (Lines{arguments, arguments, arguments}));
}

TEST_F(KeyAcquisitionTest, ExitCodeOneIsLoggedAsTheRawWaitStatus) {
    WriteStandin("wget", "exit 1\n");
    StandinsFirstOnPath();

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[5], CallFailedLine(256));
    EXPECT_EQ(lines[8], CallFailedLine(256));
    EXPECT_EQ(lines[11], CallFailedLine(256));
}

TEST_F(KeyAcquisitionTest, DownloadKilledBySignalIsAttemptedThreeTimes) {
    WriteKillingStandin("wget");
    StandinsFirstOnPath();
    AddProductWithUpdateId("UPD-9");

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");

    EXPECT_STREQ(strsignal(SIGKILL), "Killed");
    std::string killed = "_signing_call_webservice: signing web service call failed by signal 9 - " +
                         std::string(strsignal(SIGKILL)) + ".\n";
    std::string request = "http://keys.invalid/key?id=UPD-9";
    std::string command = WgetCommand(request, OutFile());
    EXPECT_EQ(HostLog::Lines(), FailedDownloadLines(request, command, kWgetProtocols, killed));
    EXPECT_EQ(StandinCallLines("wget").size(), 3u);
}

TEST_F(KeyAcquisitionTest, ProbeKilledBySignalEndsTheSearch) {
    WriteKillingStandin("which");
    StandinsFirstOnPath();

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");
    EXPECT_EQ(HostLog::Lines(), (Lines{kDownloadingLine, RequestLine("http://keys.invalid/key?id="),
                                       "_signing_get_command: signing command check failed by signal 9 - " +
                                           std::string(strsignal(SIGKILL)) + ".\n"}));
    // curl is not probed after the wget probe was killed.
    EXPECT_EQ(StandinCallLines("which"), (Lines{"wget"}));
}

TEST_F(KeyAcquisitionTest, NeitherToolGivesNoCommandAndNoLog) {
    m_Path.Set(LinkTools(m_Work.File("tools"), {"sh", "which"}));

    EXPECT_EQ(_signing_get_command("http://keys.invalid/key?id=1", OutFile()), "");
    EXPECT_TRUE(HostLog::Lines().empty());

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");
    EXPECT_EQ(HostLog::Lines(), (Lines{kDownloadingLine, RequestLine("http://keys.invalid/key?id=")}));
}

TEST_F(KeyAcquisitionTest, WgetPreferredWhenBothAreInstalled) {
    WriteStandin("which", "exit 0\n");
    StandinsFirstOnPath();
    EXPECT_EQ(_signing_get_command("http://k/x?id=5", "/tmp/o/PUBLIC_KEY.PUB"),
              "export LD_LIBRARY_PATH=\"\"; wget --timeout=3 --tries=1 --quiet http://k/x?id=5 -O "
              "/tmp/o/PUBLIC_KEY.PUB 2>/dev/null");
    EXPECT_EQ(StandinCallLines("which"), (Lines{"wget"}));
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyAcquisitionTest, CurlCommandWhenWgetProbeFails) {
    WriteStandin("which", "[ \"$1\" = curl ]\n");
    StandinsFirstOnPath();
    EXPECT_EQ(
        _signing_get_command("http://k/x?id=5", "/tmp/o/PUBLIC_KEY.PUB"),
        "export LD_LIBRARY_PATH=\"\"; curl --max-time 3 --retry 1 --location --silent http://k/x?id=5 -o "
        "/tmp/o/PUBLIC_KEY.PUB 2>/dev/null");
    EXPECT_EQ(StandinCallLines("which"), (Lines{"wget", "curl"}));
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyAcquisitionTest, LongCommandIsCutToTheCommandBuffer) {
    WriteStandin("which", "exit 0\n");
    StandinsFirstOnPath();
    std::string url = "http://k/" + std::string(5000, 'u');
    std::string full = WgetCommand(url, "/tmp/o/PUBLIC_KEY.PUB");
    std::string command = _signing_get_command(url, "/tmp/o/PUBLIC_KEY.PUB");
    EXPECT_EQ(command.size(), 4095u);
    EXPECT_EQ(command, full.substr(0, 4095));
}

TEST_F(KeyAcquisitionTest, CurlDownloadFailingThreeTimesLogsCurlProtocols) {
    WriteStandin("curl", "exit 7\n");
    StandinsBeforeShAndWhich();

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");

    std::string request = "http://keys.invalid/key?id=";
    EXPECT_EQ(HostLog::Lines(), FailedDownloadLines(request, CurlCommand(request, OutFile()), kCurlProtocols,
                                                    CallFailedLine(1792)));
}

TEST_F(KeyAcquisitionTest, SecureOptionFollowsTheToolNamedAnywhereInTheCommand) {
    // The option is chosen by searching the whole command for "wget": a curl
    // command whose output folder is named after wget logs wget's options.
    WriteStandin("curl", "exit 7\n");
    StandinsBeforeShAndWhich();
    std::string temp = m_Work.File("wget-downloads");
    mkdir(temp.c_str(), 0755);
    m_Session.SetValue("TEMP_FOLDER", temp);

    EXPECT_EQ(KeyFrom("http://keys.invalid/key"), "");

    std::string command = CurlCommand("http://keys.invalid/key?id=", temp + "/PUBLIC_KEY.PUB");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[2], CommandValueLine(command));
    EXPECT_EQ(lines[3], "signing_get_public_key: secure command   [" + command + " --secure-protocol=SSLv3]");
    EXPECT_EQ(lines[4], "signing_get_public_key: secure protocols [--secure-protocol=SSLv3]");
    EXPECT_EQ(lines[10], "signing_get_public_key: secure protocols [--secure-protocol=TLSv1]");
}

TEST_F(KeyAcquisitionTest, EmptyUrlsStillAttemptTheDownload) {
    FailingWgetFirstOnPath();
    m_Session.SetValue("signing_url", "");
    AddProductWithUpdateId("UPD-3");

    EXPECT_EQ(KeyFrom(""), "");

    std::string command = WgetCommand("?id=UPD-3", OutFile());
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[1], RequestLine("?id=UPD-3"));
    EXPECT_EQ(lines[2], CommandValueLine(command));
    std::string arguments = "--timeout=3 --tries=1 --quiet ?id=UPD-3 -O " + OutFile();
    EXPECT_EQ(StandinCallLines("wget"), (Lines{arguments, arguments, arguments}));
}

// The request the plug-in builds from the session's URLs and the first
// update identifier it finds among the products and their components: each
// case sets up a fresh session in which a failing wget is first on PATH and
// the default URL is http://keys.invalid/key.
namespace {

class KeyRequestTest;
struct KeyRequestCase {
    const char* name;
    std::function<void(KeyRequestTest&)> setUp;
    std::string request;
};

class KeyRequestTest : public KeyAcquisitionTest, public ::testing::WithParamInterface<KeyRequestCase> {
public:
    using KeyAcquisitionTest::m_Session;
    using KeyAcquisitionTest::PhoneHome;
};

void PrintTo(const KeyRequestCase& row, std::ostream* out) {
    *out << row.name;
}

const KeyRequestCase kKeyRequestCases[] = {
    {"SigningUrlOverridesTheDefault",
     [](KeyRequestTest& test) {
         test.m_Session.SetValue("SIGNING_DEFAULT_URL", "http://default.invalid/key");
         test.m_Session.SetValue("signing_url", "http://override.invalid/key");
     },
     "http://override.invalid/key?id="},
    {"NoPhonehomeLeavesTheIdentifierEmpty",
     [](KeyRequestTest& test) {
         host::HostInstallation& installation = test.m_Session.Installation();
         Product& product = installation.AddProduct("product", Environment{{"other", "x"}});
         installation.AddComponent(product, "rpm", "c", "/p", "c.rpm", Environment{{"VokUpdateId", "X"}});
     },
     "http://keys.invalid/key?id="},
    {"ComponentIdentifierUsedWhenTheProductsIsEmpty",
     [](KeyRequestTest& test) {
         host::HostInstallation& installation = test.m_Session.Installation();
         Product& product = installation.AddProduct("product", test.PhoneHome(""));
         installation.AddComponent(product, "rpm", "c", "/p", "c.rpm", test.PhoneHome("UPD-COMPONENT"));
     },
     "http://keys.invalid/key?id=UPD-COMPONENT"},
    {"FirstIdentifierWinsProductBeforeItsComponents",
     [](KeyRequestTest& test) {
         host::HostInstallation& installation = test.m_Session.Installation();
         // First product: nothing usable (no phonehome, an unknown token, a
         // nested environment without an identifier).
         Product& first = installation.AddProduct("first");
         installation.AddComponent(first, "rpm", "a", "/p", "a.rpm",
                                   Environment{{"phonehome", "env:999999999"}});
         installation.AddComponent(
             first, "rpm", "b", "/p", "b.rpm",
             Environment{{"phonehome", test.m_Session.AddNestedEnvironment(Environment{})}});
         // Second product: its own identifier comes before its component's.
         Product& second = installation.AddProduct("second", test.PhoneHome("UPD-P2"));
         installation.AddComponent(second, "rpm", "c", "/p", "c.rpm", test.PhoneHome("UPD-C2"));
         installation.AddProduct("third", test.PhoneHome("UPD-P3"));
     },
     "http://keys.invalid/key?id=UPD-P2"},
    {"EarlierProductsComponentBeatsALaterProduct",
     [](KeyRequestTest& test) {
         host::HostInstallation& installation = test.m_Session.Installation();
         Product& first = installation.AddProduct("first");
         installation.AddComponent(first, "rpm", "a", "/p", "a.rpm", test.PhoneHome("UPD-C1"));
         installation.AddProduct("second", test.PhoneHome("UPD-P2"));
     },
     "http://keys.invalid/key?id=UPD-C1"},
};

} // namespace

TEST_P(KeyRequestTest, CarriesTheUrlAndTheFirstUpdateIdentifier) {
    FailingWgetFirstOnPath();
    m_Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    GetParam().setUp(*this);

    EXPECT_EQ(_signing_get_public_key(&m_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[1], RequestLine(GetParam().request));
    EXPECT_EQ(lines[2], CommandValueLine(WgetCommand(GetParam().request, OutFile())));
}

INSTANTIATE_TEST_SUITE_P(KeyAcquisition, KeyRequestTest, ::testing::ValuesIn(kKeyRequestCases),
                         [](const ::testing::TestParamInfo<KeyRequestCase>& info) {
                             return info.param.name;
                         });

class KeyValidityTest : public testsupport::CapturedHostLogTest {
protected:
    TempDir m_Dir;
};

TEST_F(KeyValidityTest, UrlOnTheThirdLineIsInvalid) {
    WriteFile(m_Dir.File("key.asc"),
              "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\n<a href=\"http://keys.invalid/\">\n");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("key.asc")), 1);
    EXPECT_EQ(HostLog::Lines(), (Lines{"_signing_is_valid_key: public key contains incorrect value"}));
}

TEST_F(KeyValidityTest, MarkerInCapitalLettersIsValid) {
    WriteFile(m_Dir.File("key.asc"), "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\nHTTP://keys.invalid/\n");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("key.asc")), 0);
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyValidityTest, OnlyThePlainHttpMarkerCounts) {
    WriteFile(m_Dir.File("https.asc"), "see https://keys.invalid/\n");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("https.asc")), 0);
    WriteFile(m_Dir.File("inside.asc"), "xhttp://y\r\n");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("inside.asc")), 1);
    WriteFile(m_Dir.File("last.asc"), "a\nb\nc\nd\nhttp://");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("last.asc")), 1);
    WriteFile(m_Dir.File("split.asc"), "http:/\n/\n");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("split.asc")), 0);
}

TEST_F(KeyValidityTest, MissingFileIsInvalidWithoutALogLine) {
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("absent.asc")), 1);
    EXPECT_EQ(_signing_is_valid_key(""), 1);
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyValidityTest, EmptyFileIsValid) {
    WriteFile(m_Dir.File("empty.asc"), "");
    EXPECT_EQ(_signing_is_valid_key(m_Dir.File("empty.asc")), 0);
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyValidityTest, RealArmoredKeysAreValid) {
    for (const char* name : {"keys/rsa2048.asc", "keys/rsa2048.crlf.asc", "keys/rsa4096.asc"}) {
        std::string path = testsupport::Fixture(name);
        REQUIRE_FIXTURE(path);
        EXPECT_EQ(_signing_is_valid_key(path), 0) << name;
    }
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST(PluginSymbols, ExportsKeyAcquisitionAndFilePatternWithItsSoname) {
    std::string plugin = testsupport::PluginPath();
    ASSERT_TRUE(testsupport::PathExists(plugin)) << plugin;

    testsupport::CommandResult defined = testsupport::Run("nm -DC --defined-only '" + plugin + "'");
    ASSERT_EQ(defined.exitCode, 0);
    bool keyFunction = false;
    bool filePattern = false;
    std::istringstream lines(defined.output);
    for (std::string line; std::getline(lines, line);) {
        // "<address> <type> <name>"
        size_t nameStart = line.find(' ', line.find(' ') + 1);
        if (nameStart == std::string::npos) {
            continue;
        }
        std::string type = line.substr(line.find(' ') + 1, nameStart - line.find(' ') - 1);
        std::string name = line.substr(nameStart + 1);
        if (name == "_signing_get_public_key[abi:cxx11](session_t*)" && type == "T") {
            keyFunction = true;
        }
        if (name == "FILE_PATTERN" && (type == "D" || type == "B" || type == "R")) {
            filePattern = true;
        }
    }
    EXPECT_TRUE(keyFunction) << defined.output;
    EXPECT_TRUE(filePattern) << defined.output;

    // The host's session functions stay undefined, as weak references: the
    // program that loads the plug-in provides them, and a program that only
    // calls rpm_verify can load it without them.
    testsupport::CommandResult undefined = testsupport::Run("nm -DC --undefined-only '" + plugin + "'");
    ASSERT_EQ(undefined.exitCode, 0);
    EXPECT_NE(undefined.output.find(" w print_log(char const*, ...)\n"), std::string::npos)
        << undefined.output;
    EXPECT_NE(undefined.output.find(" w env_get_string[abi:cxx11](session_t*, char const*)\n"),
              std::string::npos)
        << undefined.output;

    testsupport::CommandResult dynamic = testsupport::Run("readelf -d '" + plugin + "'");
    ASSERT_EQ(dynamic.exitCode, 0);
    EXPECT_NE(dynamic.output.find("Library soname: [kmrt_stuff/signing.so]"), std::string::npos)
        << dynamic.output;
}
