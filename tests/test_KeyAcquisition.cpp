// Obtaining the public key: the user's key, the download with the real wget
// and curl from a loopback HTTP server, the failure branches forced with
// stand-in tools first on PATH, the key file plausibility test, and the
// symbols and soname of the built plug-in.
#include "HostSession.h"
#include "signing.h"

#include "TestSupport.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <netinet/in.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

using host::HostLog;
using host::HostSession;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

namespace {

using Lines = std::vector<std::string>;

// Sets or clears an environment variable of the test process for one test
// and puts the old value back afterwards. The shells that popen starts
// inherit it.
class EnvironmentVariableGuard {
public:
    explicit EnvironmentVariableGuard(const char* name) : _Name(name) {
        const char* value = std::getenv(name);
        _Had = value != nullptr;
        if (_Had) {
            _Value = value;
        }
    }
    ~EnvironmentVariableGuard() {
        if (_Had) {
            setenv(_Name.c_str(), _Value.c_str(), 1);
        } else {
            unsetenv(_Name.c_str());
        }
    }
    EnvironmentVariableGuard(const EnvironmentVariableGuard&) = delete;
    EnvironmentVariableGuard& operator=(const EnvironmentVariableGuard&) = delete;

    void Set(const std::string& value) { setenv(_Name.c_str(), value.c_str(), 1); }
    void Unset() { unsetenv(_Name.c_str()); }
    const std::string& Original() const { return _Value; }

private:
    std::string _Name;
    std::string _Value;
    bool _Had = false;
};

void WriteScript(const std::string& path, const std::string& body) {
    WriteFile(path, "#!/bin/sh\n" + body);
    if (chmod(path.c_str(), 0755) != 0) {
        throw std::runtime_error("chmod failed for " + path);
    }
}

// The absolute path of a real tool, found on the test's current PATH.
std::string RealTool(const std::string& name) {
    testsupport::CommandResult found = testsupport::Run("command -v " + name);
    std::string path = found.output.substr(0, found.output.find('\n'));
    if (found.exitCode != 0 || path.empty() || path[0] != '/') {
        throw std::runtime_error("tool not installed: " + name);
    }
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) == nullptr) {
        throw std::runtime_error("cannot resolve " + path);
    }
    return resolved;
}

// A folder holding symbolic links to just the named real tools, for a PATH
// on which every other tool is missing.
void LinkTools(const std::string& folder, std::initializer_list<const char*> tools) {
    mkdir(folder.c_str(), 0755);
    for (const char* tool : tools) {
        std::string target = RealTool(tool);
        std::string link = folder + "/" + tool;
        if (symlink(target.c_str(), link.c_str()) != 0) {
            throw std::runtime_error("symlink failed for " + link);
        }
    }
}

int FreeLoopbackPort() {
    int socketFd = socket(AF_INET, SOCK_STREAM, 0);
    if (socketFd < 0) {
        throw std::runtime_error("socket failed");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof(address);
    if (bind(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        getsockname(socketFd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(socketFd);
        throw std::runtime_error("cannot find a free port");
    }
    close(socketFd);
    return ntohs(address.sin_port);
}

bool AcceptsConnections(int port) {
    int socketFd = socket(AF_INET, SOCK_STREAM, 0);
    if (socketFd < 0) {
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    bool connected = connect(socketFd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    close(socketFd);
    return connected;
}

// Python's HTTP file server on 127.0.0.1, serving a folder, started for one
// test and stopped when the object dies. Its request log goes to a file.
class LoopbackHttpServer {
public:
    LoopbackHttpServer(const std::string& root, const std::string& logPath) : _LogPath(logPath) {
        for (int attempt = 0; attempt < 5 && _Pid < 0; ++attempt) {
            Start(root, FreeLoopbackPort());
        }
        if (_Pid < 0) {
            throw std::runtime_error("the loopback HTTP server did not start");
        }
    }
    ~LoopbackHttpServer() { Stop(); }
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    std::string Url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(_Port) + path;
    }
    std::string RequestLog() const { return ReadFile(_LogPath); }

private:
    void Start(const std::string& root, int port) {
        const bool systemPython = access("/usr/bin/python3", X_OK) == 0;
        std::string python = systemPython ? "/usr/bin/python3" : "python3";
        std::string portText = std::to_string(port);
        std::vector<std::string> arguments{python,      "-u",          "-m", "http.server", "--bind",
                                           "127.0.0.1", "--directory", root, portText};
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(&argument[0]);
        }
        argv.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, _LogPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        pid_t pid = -1;
        int spawned = systemPython ? posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ)
                                   : posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) {
            return;
        }
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG) == pid) {
                return; // it ended, most likely because the port was taken meanwhile
            }
            if (AcceptsConnections(port)) {
                _Pid = pid;
                _Port = port;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    void Stop() {
        if (_Pid > 0) {
            kill(_Pid, SIGTERM);
            waitpid(_Pid, nullptr, 0);
            _Pid = -1;
        }
    }

    std::string _LogPath;
    pid_t _Pid = -1;
    int _Port = 0;
};

std::string WgetCommand(const std::string& request, const std::string& outFile) {
    return "export LD_LIBRARY_PATH=\"\"; wget --timeout=3 --tries=1 --quiet " + request + " -O " + outFile +
           " 2>/dev/null";
}

std::string CurlCommand(const std::string& request, const std::string& outFile) {
    return "export LD_LIBRARY_PATH=\"\"; curl --max-time 3 --retry 1 --location --silent " + request +
           " -o " + outFile + " 2>/dev/null";
}

void AppendAttempt(Lines& lines, const std::string& command, const std::string& protocol) {
    lines.push_back("signing_get_public_key: secure command   [" + command + " " + protocol + "]");
    lines.push_back("signing_get_public_key: secure protocols [" + protocol + "]");
}

const char kWgetProtocols[3][24] = {"--secure-protocol=SSLv3", "--secure-protocol=SSLv2",
                                    "--secure-protocol=TLSv1"};
const char kCurlProtocols[3][8] = {"--sslv3", "--sslv2", "--tlsv1"};

const char kDownloading[] = "signing_get_public_key: public key will be downloaded from QEL";

std::string RequestLine(const std::string& request) {
    return "signing_get_public_key: request value [" + request + "]";
}

std::string CommandLine(const std::string& command) {
    return "signing_get_public_key: command value [" + command + "]";
}

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

class KeyAcquisitionTest : public ::testing::Test {
protected:
    KeyAcquisitionTest() : _Path("PATH") {
        _Temp = _Work.File("temp");
        mkdir(_Temp.c_str(), 0755);
        _Standins = _Work.File("standins");
        mkdir(_Standins.c_str(), 0755);
        _Session.SetValue("TEMP_FOLDER", _Temp);
    }
    void SetUp() override {
        HostLog::WriteNowhere();
        HostLog::Clear();
    }
    void TearDown() override {
        HostLog::WriteToStandardError();
        HostLog::Clear();
    }

    // The folder the loopback server serves, inside the test's own folder
    // (removed after PATH is restored).
    std::string ServedFolder() const {
        std::string folder = _Work.File("served");
        mkdir(folder.c_str(), 0755);
        return folder;
    }

    std::string OutFile() const { return _Temp + "/PUBLIC_KEY.PUB"; }
    std::string StandinCalls(const std::string& tool) const { return _Standins + "/" + tool + ".calls"; }

    // A stand-in tool that records its arguments, one call a line, and then
    // runs the given shell text.
    void WriteStandin(const std::string& tool, const std::string& action) {
        WriteScript(_Standins + "/" + tool,
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
    void StandinsFirstOnPath() { _Path.Set(_Standins + ":" + _Path.Original()); }

    // A product whose "phonehome" environment carries the given update
    // identifier.
    void AddProductWithUpdateId(const std::string& id) {
        std::string token = _Session.AddNestedEnvironment(Environment{{"VokUpdateId", id}});
        _Session.Installation().AddProduct("product", Environment{{"phonehome", token}});
    }

    TempDir _Work;
    std::string _Temp;
    std::string _Standins;
    HostSession _Session;
    EnvironmentVariableGuard _Path;
};

} // namespace

TEST_F(KeyAcquisitionTest, UserKeyIsReturnedUnchangedWithoutProbing) {
    WriteStandin("which", "exit 0\n");
    StandinsFirstOnPath();
    _Session.SetValue("signature", "relative/key.asc with http://not-checked");
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://127.0.0.1:9/");

    EXPECT_EQ(_signing_get_public_key(&_Session), "relative/key.asc with http://not-checked");
    EXPECT_EQ(HostLog::Lines(), (Lines{"signing_get_public_key: public key specified by user "
                                       "relative/key.asc with http://not-checked"}));
    EXPECT_TRUE(StandinCallLines("which").empty());
    EXPECT_TRUE(_Session.Writes("signature").empty());
}

TEST_F(KeyAcquisitionTest, RealWgetDownloadsTheKeyFromALoopbackServer) {
    EnvironmentVariableGuard proxy("http_proxy"), proxyUpper("HTTP_PROXY");
    proxy.Unset();
    proxyUpper.Unset();
    ASSERT_EQ(testsupport::Run("which wget").exitCode, 0) << "wget must be installed";
    std::string served = ServedFolder();
    mkdir((served + "/keys").c_str(), 0755);
    WriteFile(served + "/keys/key.asc", ServedKey());
    LoopbackHttpServer server(served, _Work.File("server.log"));
    _Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/keys/key.asc"));
    AddProductWithUpdateId("UPD-42");

    std::string result = _signing_get_public_key(&_Session);

    std::string request = server.Url("/keys/key.asc") + "?id=UPD-42";
    std::string command = WgetCommand(request, OutFile());
    Lines expected{kDownloading, RequestLine(request), CommandLine(command)};
    AppendAttempt(expected, command, "--secure-protocol=SSLv3");
    expected.push_back("signing_get_public_key: public key obtained successfully [" + OutFile() + "]");
    EXPECT_EQ(HostLog::Lines(), expected);
    EXPECT_EQ(result, OutFile());
    EXPECT_EQ(ReadFile(OutFile()), ServedKey());
    EXPECT_NE(server.RequestLog().find("\"GET /keys/key.asc?id=UPD-42 HTTP/1.1\" 200"), std::string::npos)
        << server.RequestLog();
    EXPECT_EQ(_signing_is_valid_key(result), 0);
}

TEST_F(KeyAcquisitionTest, RealWgetAnsweredWithNotFoundFailsThreeTimes) {
    EnvironmentVariableGuard proxy("http_proxy"), proxyUpper("HTTP_PROXY");
    proxy.Unset();
    proxyUpper.Unset();
    LoopbackHttpServer server(ServedFolder(), _Work.File("server.log"));
    _Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/missing.asc"));

    std::string result = _signing_get_public_key(&_Session);

    // wget reports a server error response with exit code 8.
    std::string request = server.Url("/missing.asc") + "?id=";
    std::string command = WgetCommand(request, OutFile());
    Lines expected{kDownloading, RequestLine(request), CommandLine(command)};
    for (const char* protocol : kWgetProtocols) {
        AppendAttempt(expected, command, protocol);
        expected.push_back("_signing_call_webservice: web service call failed with status 2048");
    }
    EXPECT_EQ(HostLog::Lines(), expected);
    EXPECT_EQ(result, "");
}

TEST_F(KeyAcquisitionTest, RealCurlWhenOnlyCurlIsInstalled) {
    EnvironmentVariableGuard proxy("http_proxy"), proxyUpper("HTTP_PROXY");
    proxy.Unset();
    proxyUpper.Unset();
    std::string served = ServedFolder();
    WriteFile(served + "/key.asc", ServedKey());
    LoopbackHttpServer server(served, _Work.File("server.log"));
    _Session.SetValue("SIGNING_DEFAULT_URL", server.Url("/key.asc"));
    AddProductWithUpdateId("UPD-7");
    std::string tools = _Work.File("tools");
    LinkTools(tools, {"sh", "which", "curl"});
    _Path.Set(tools);
    ASSERT_NE(testsupport::Run("which wget").exitCode, 0);
    ASSERT_EQ(testsupport::Run("which curl").exitCode, 0);

    std::string result = _signing_get_public_key(&_Session);

    std::string request = server.Url("/key.asc") + "?id=UPD-7";
    std::string command = CurlCommand(request, OutFile());
    Lines expected{kDownloading, RequestLine(request), CommandLine(command)};
    AppendAttempt(expected, command, "--sslv3");
    expected.push_back("signing_get_public_key: public key obtained successfully [" + OutFile() + "]");
    EXPECT_EQ(HostLog::Lines(), expected);
    EXPECT_EQ(result, OutFile());
    EXPECT_EQ(ReadFile(OutFile()), ServedKey());
    EXPECT_NE(server.RequestLog().find("\"GET /key.asc?id=UPD-7 HTTP/1.1\" 200"), std::string::npos)
        << server.RequestLog();
}

TEST_F(KeyAcquisitionTest, DownloadExitingWithCode8IsAttemptedThreeTimes) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    AddProductWithUpdateId("UPD-8");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");

    std::string request = "http://keys.invalid/key?id=UPD-8";
    std::string command = WgetCommand(request, OutFile());
    Lines expected{kDownloading, RequestLine(request), CommandLine(command)};
    for (const char* protocol : kWgetProtocols) {
        AppendAttempt(expected, command, protocol);
        expected.push_back("_signing_call_webservice: web service call failed with status 2048");
    }
    EXPECT_EQ(HostLog::Lines(), expected);
    // Every attempt runs the plain command: the secure option is only logged.
    std::string arguments = "--timeout=3 --tries=1 --quiet " + request + " -O " + OutFile();
    EXPECT_EQ(StandinCallLines("wget"), (Lines{arguments, arguments, arguments}));
}

TEST_F(KeyAcquisitionTest, ExitCodeOneIsLoggedAsTheRawWaitStatus) {
    WriteStandin("wget", "exit 1\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[5], "_signing_call_webservice: web service call failed with status 256");
    EXPECT_EQ(lines[8], "_signing_call_webservice: web service call failed with status 256");
    EXPECT_EQ(lines[11], "_signing_call_webservice: web service call failed with status 256");
}

TEST_F(KeyAcquisitionTest, DownloadKilledBySignalIsAttemptedThreeTimes) {
    WriteKillingStandin("wget");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    AddProductWithUpdateId("UPD-9");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");

    EXPECT_STREQ(strsignal(SIGKILL), "Killed");
    std::string killed = "_signing_call_webservice: signing web service call failed by signal 9 - " +
                         std::string(strsignal(SIGKILL)) + ".\n";
    std::string request = "http://keys.invalid/key?id=UPD-9";
    std::string command = WgetCommand(request, OutFile());
    Lines expected{kDownloading, RequestLine(request), CommandLine(command)};
    for (const char* protocol : kWgetProtocols) {
        AppendAttempt(expected, command, protocol);
        expected.push_back(killed);
    }
    EXPECT_EQ(HostLog::Lines(), expected);
    EXPECT_EQ(StandinCallLines("wget").size(), 3u);
}

TEST_F(KeyAcquisitionTest, ProbeKilledBySignalEndsTheSearch) {
    WriteKillingStandin("which");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    EXPECT_EQ(HostLog::Lines(), (Lines{kDownloading, RequestLine("http://keys.invalid/key?id="),
                                       "_signing_get_command: signing command check failed by signal 9 - " +
                                           std::string(strsignal(SIGKILL)) + ".\n"}));
    // curl is not probed after the wget probe was killed.
    EXPECT_EQ(StandinCallLines("which"), (Lines{"wget"}));
}

TEST_F(KeyAcquisitionTest, NeitherToolGivesNoCommandAndNoLog) {
    std::string tools = _Work.File("tools");
    LinkTools(tools, {"sh", "which"});
    _Path.Set(tools);

    EXPECT_EQ(_signing_get_command("http://keys.invalid/key?id=1", OutFile()), "");
    EXPECT_TRUE(HostLog::Lines().empty());

    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    EXPECT_EQ(HostLog::Lines(), (Lines{kDownloading, RequestLine("http://keys.invalid/key?id=")}));
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
    std::string tools = _Work.File("tools");
    LinkTools(tools, {"sh", "which"});
    WriteStandin("curl", "exit 7\n");
    _Path.Set(_Standins + ":" + tools);
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");

    std::string request = "http://keys.invalid/key?id=";
    std::string command = CurlCommand(request, OutFile());
    Lines expected{kDownloading, RequestLine(request), CommandLine(command)};
    for (const char* protocol : kCurlProtocols) {
        AppendAttempt(expected, command, protocol);
        expected.push_back("_signing_call_webservice: web service call failed with status 1792");
    }
    EXPECT_EQ(HostLog::Lines(), expected);
}

TEST_F(KeyAcquisitionTest, SecureOptionFollowsTheToolNamedAnywhereInTheCommand) {
    // The option is chosen by searching the whole command for "wget": a curl
    // command whose output folder is named after wget logs wget's options.
    std::string tools = _Work.File("tools");
    LinkTools(tools, {"sh", "which"});
    WriteStandin("curl", "exit 7\n");
    _Path.Set(_Standins + ":" + tools);
    std::string temp = _Work.File("wget-downloads");
    mkdir(temp.c_str(), 0755);
    _Session.SetValue("TEMP_FOLDER", temp);
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");

    std::string command = CurlCommand("http://keys.invalid/key?id=", temp + "/PUBLIC_KEY.PUB");
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[2], CommandLine(command));
    EXPECT_EQ(lines[3], "signing_get_public_key: secure command   [" + command + " --secure-protocol=SSLv3]");
    EXPECT_EQ(lines[4], "signing_get_public_key: secure protocols [--secure-protocol=SSLv3]");
    EXPECT_EQ(lines[10], "signing_get_public_key: secure protocols [--secure-protocol=TLSv1]");
}

TEST_F(KeyAcquisitionTest, EmptyUrlsStillAttemptTheDownload) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "");
    _Session.SetValue("signing_url", "");
    AddProductWithUpdateId("UPD-3");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");

    std::string command = WgetCommand("?id=UPD-3", OutFile());
    Lines lines = HostLog::Lines();
    ASSERT_EQ(lines.size(), 12u);
    EXPECT_EQ(lines[1], RequestLine("?id=UPD-3"));
    EXPECT_EQ(lines[2], CommandLine(command));
    std::string arguments = "--timeout=3 --tries=1 --quiet ?id=UPD-3 -O " + OutFile();
    EXPECT_EQ(StandinCallLines("wget"), (Lines{arguments, arguments, arguments}));
}

TEST_F(KeyAcquisitionTest, SigningUrlOverridesTheDefault) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://default.invalid/key");
    _Session.SetValue("signing_url", "http://override.invalid/key");

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1], RequestLine("http://override.invalid/key?id="));
}

TEST_F(KeyAcquisitionTest, NoPhonehomeLeavesTheIdentifierEmpty) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    Product& product = _Session.Installation().AddProduct("product", Environment{{"other", "x"}});
    _Session.Installation().AddComponent(product, "rpm", "c", "/p", "c.rpm",
                                         Environment{{"VokUpdateId", "X"}});

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[1], RequestLine("http://keys.invalid/key?id="));
    EXPECT_EQ(lines[2], CommandLine(WgetCommand("http://keys.invalid/key?id=", OutFile())));
}

TEST_F(KeyAcquisitionTest, ComponentIdentifierUsedWhenTheProductsIsEmpty) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    std::string productToken = _Session.AddNestedEnvironment(Environment{{"VokUpdateId", ""}});
    std::string componentToken = _Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-COMPONENT"}});
    Product& product =
        _Session.Installation().AddProduct("product", Environment{{"phonehome", productToken}});
    _Session.Installation().AddComponent(product, "rpm", "c", "/p", "c.rpm",
                                         Environment{{"phonehome", componentToken}});

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1], RequestLine("http://keys.invalid/key?id=UPD-COMPONENT"));
}

TEST_F(KeyAcquisitionTest, FirstIdentifierWinsProductBeforeItsComponents) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    host::HostInstallation& installation = _Session.Installation();
    // First product: nothing usable (no phonehome, an unknown token, a
    // nested environment without an identifier).
    Product& first = installation.AddProduct("first");
    installation.AddComponent(first, "rpm", "a", "/p", "a.rpm", Environment{{"phonehome", "env:999999999"}});
    installation.AddComponent(first, "rpm", "b", "/p", "b.rpm",
                              Environment{{"phonehome", _Session.AddNestedEnvironment(Environment{})}});
    // Second product: its own identifier comes before its component's.
    Product& second = installation.AddProduct(
        "second",
        Environment{{"phonehome", _Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-P2"}})}});
    installation.AddComponent(
        second, "rpm", "c", "/p", "c.rpm",
        Environment{{"phonehome", _Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-C2"}})}});
    installation.AddProduct(
        "third",
        Environment{{"phonehome", _Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-P3"}})}});

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1], RequestLine("http://keys.invalid/key?id=UPD-P2"));
}

TEST_F(KeyAcquisitionTest, EarlierProductsComponentBeatsALaterProduct) {
    WriteStandin("wget", "exit 8\n");
    StandinsFirstOnPath();
    _Session.SetValue("SIGNING_DEFAULT_URL", "http://keys.invalid/key");
    host::HostInstallation& installation = _Session.Installation();
    Product& first = installation.AddProduct("first");
    installation.AddComponent(
        first, "rpm", "a", "/p", "a.rpm",
        Environment{{"phonehome", _Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-C1"}})}});
    installation.AddProduct(
        "second",
        Environment{{"phonehome", _Session.AddNestedEnvironment(Environment{{"VokUpdateId", "UPD-P2"}})}});

    EXPECT_EQ(_signing_get_public_key(&_Session), "");
    Lines lines = HostLog::Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1], RequestLine("http://keys.invalid/key?id=UPD-C1"));
}

class KeyValidityTest : public ::testing::Test {
protected:
    void SetUp() override {
        HostLog::WriteNowhere();
        HostLog::Clear();
    }
    void TearDown() override {
        HostLog::WriteToStandardError();
        HostLog::Clear();
    }
    TempDir _Dir;
};

TEST_F(KeyValidityTest, UrlOnTheThirdLineIsInvalid) {
    WriteFile(_Dir.File("key.asc"),
              "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\n<a href=\"http://keys.invalid/\">\n");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("key.asc")), 1);
    EXPECT_EQ(HostLog::Lines(), (Lines{"_signing_is_valid_key: public key contains incorrect value"}));
}

TEST_F(KeyValidityTest, MarkerInCapitalLettersIsValid) {
    WriteFile(_Dir.File("key.asc"), "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\nHTTP://keys.invalid/\n");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("key.asc")), 0);
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyValidityTest, OnlyThePlainHttpMarkerCounts) {
    WriteFile(_Dir.File("https.asc"), "see https://keys.invalid/\n");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("https.asc")), 0);
    WriteFile(_Dir.File("inside.asc"), "xhttp://y\r\n");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("inside.asc")), 1);
    WriteFile(_Dir.File("last.asc"), "a\nb\nc\nd\nhttp://");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("last.asc")), 1);
    WriteFile(_Dir.File("split.asc"), "http:/\n/\n");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("split.asc")), 0);
}

TEST_F(KeyValidityTest, MissingFileIsInvalidWithoutALogLine) {
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("absent.asc")), 1);
    EXPECT_EQ(_signing_is_valid_key(""), 1);
    EXPECT_TRUE(HostLog::Lines().empty());
}

TEST_F(KeyValidityTest, EmptyFileIsValid) {
    WriteFile(_Dir.File("empty.asc"), "");
    EXPECT_EQ(_signing_is_valid_key(_Dir.File("empty.asc")), 0);
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

    // The host's session functions stay undefined: the program that loads
    // the plug-in provides them.
    testsupport::CommandResult undefined = testsupport::Run("nm -DC --undefined-only '" + plugin + "'");
    ASSERT_EQ(undefined.exitCode, 0);
    EXPECT_NE(undefined.output.find(" U print_log(char const*, ...)\n"), std::string::npos)
        << undefined.output;
    EXPECT_NE(undefined.output.find(" U env_get_string[abi:cxx11](session_t*, char const*)\n"),
              std::string::npos)
        << undefined.output;

    testsupport::CommandResult dynamic = testsupport::Run("readelf -d '" + plugin + "'");
    ASSERT_EQ(dynamic.exitCode, 0);
    EXPECT_NE(dynamic.output.find("Library soname: [kmrt_stuff/signing.so]"), std::string::npos)
        << dynamic.output;
}
