// A loopback HTTP file server for the key download tests: Python's
// http.server on 127.0.0.1 at a free port, serving one folder, so that the
// real wget and curl fetch a key without leaving the machine.
#ifndef SIGNING_TEST_LOOPBACK_SERVER_H
#define SIGNING_TEST_LOOPBACK_SERVER_H

#include "TestSupport.h"

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace testsupport {

// A loopback TCP port that nothing listens on at the moment: a download
// from it is refused at once.
inline int FreeLoopbackPort() {
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

inline bool AcceptsConnections(int port) {
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

} // namespace testsupport

#endif
