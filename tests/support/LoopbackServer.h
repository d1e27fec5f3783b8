// Loopback HTTP servers for the key download tests, so that the real wget
// and curl fetch a key without leaving the machine: Python's http.server on
// 127.0.0.1 at a free port, serving one folder; and a key service that
// misbehaves on purpose (trickles, floods or never answers).
#ifndef SIGNING_TEST_LOOPBACK_SERVER_H
#define SIGNING_TEST_LOOPBACK_SERVER_H

#include "TestSupport.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
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
    LoopbackHttpServer(const std::string& root, const std::string& logPath) : m_LogPath(logPath) {
        for (int attempt = 0; attempt < 5 && m_Pid < 0; ++attempt) {
            Start(root, FreeLoopbackPort());
        }
        if (m_Pid < 0) {
            throw std::runtime_error("the loopback HTTP server did not start");
        }
    }
    ~LoopbackHttpServer() { Stop(); }
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    std::string Url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(m_Port) + path;
    }
    std::string RequestLog() const { return ReadFile(m_LogPath); }

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
        posix_spawn_file_actions_addopen(&actions, 1, m_LogPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
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
                m_Pid = pid;
                m_Port = port;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    void Stop() {
        if (m_Pid > 0) {
            kill(m_Pid, SIGTERM);
            waitpid(m_Pid, nullptr, 0);
            m_Pid = -1;
        }
    }

    std::string m_LogPath;
    pid_t m_Pid = -1;
    int m_Port = 0;
};

// A key service on 127.0.0.1 that misbehaves, served by a thread of the
// test: one connection at a time, each read up to the end of its request
// headers and then answered as its behaviour says.
class MisbehavingKeyService {
public:
    enum class Behaviour {
        Trickle, // a 200 response that claims 100000 bytes and sends one a second
        Flood,   // a 200 response without a length, then floodBytes bytes of key text
        Silent,  // accepts the connection and never answers
    };

    explicit MisbehavingKeyService(Behaviour behaviour, unsigned long floodBytes = 0)
        : m_Behaviour(behaviour), m_FloodBytes(floodBytes) {
        m_Listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (m_Listener < 0 || bind(m_Listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(m_Listener, 8) != 0 ||
            getsockname(m_Listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("the misbehaving key service did not start");
        }
        m_Port = ntohs(address.sin_port);
        m_Thread = std::thread([this] { Serve(); });
    }
    ~MisbehavingKeyService() {
        m_Stop = true;
        m_Thread.join();
        close(m_Listener);
    }
    MisbehavingKeyService(const MisbehavingKeyService&) = delete;
    MisbehavingKeyService& operator=(const MisbehavingKeyService&) = delete;

    std::string Url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(m_Port) + path;
    }
    int Connections() const { return m_Connections; }

private:
    // Waits until the descriptor is readable, the stop flag is set or the
    // time is up; true when readable.
    bool Readable(int descriptor, int milliseconds) const {
        auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (!m_Stop && std::chrono::steady_clock::now() < end) {
            pollfd entry{descriptor, POLLIN, 0};
            if (poll(&entry, 1, 50) > 0) {
                return true;
            }
        }
        return false;
    }

    bool Send(int connection, const std::string& bytes) const {
        size_t sent = 0;
        while (sent < bytes.size()) {
            ssize_t count = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return false;
            }
            sent += static_cast<size_t>(count);
        }
        return true;
    }

    void Serve() {
        while (!m_Stop) {
            if (!Readable(m_Listener, 100)) {
                continue;
            }
            int connection = accept4(m_Listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0) {
                continue;
            }
            ++m_Connections;
            Answer(connection);
            close(connection);
        }
    }

    void Answer(int connection) {
        std::string request;
        char chunk[1024];
        while (request.find("\r\n\r\n") == std::string::npos && Readable(connection, 10000)) {
            ssize_t count = recv(connection, chunk, sizeof(chunk), 0);
            if (count <= 0) {
                return;
            }
            request.append(chunk, static_cast<size_t>(count));
        }
        switch (m_Behaviour) {
        case Behaviour::Silent:
            // Until the client gives up (its read ends in 0) or the test ends.
            while (Readable(connection, 1000)) {
                if (recv(connection, chunk, sizeof(chunk), 0) <= 0) {
                    return;
                }
            }
            return;
        case Behaviour::Trickle:
            if (!Send(connection,
                      "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 100000\r\n\r\n")) {
                return;
            }
            while (!m_Stop && Send(connection, "-")) {
                for (int tick = 0; tick < 20 && !m_Stop; ++tick) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                }
            }
            return;
        case Behaviour::Flood: {
            if (!Send(connection, "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n")) {
                return;
            }
            const std::string block(65536, 'A');
            for (unsigned long sent = 0; sent < m_FloodBytes && !m_Stop; sent += block.size()) {
                if (!Send(connection, block)) {
                    return;
                }
            }
            return;
        }
        }
    }

    Behaviour m_Behaviour;
    unsigned long m_FloodBytes;
    int m_Listener = -1;
    int m_Port = 0;
    std::atomic<bool> m_Stop{false};
    std::atomic<int> m_Connections{0};
    std::thread m_Thread;
};

} // namespace testsupport

#endif
