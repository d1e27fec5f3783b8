// The host's session record and its definitions of the session functions
// that the plug-in calls.
#include "HostSession.h"

#include "Locked.h"

#include <cstdint>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <sys/stat.h>

namespace host {
namespace {

// Live sessions, and the nested environments they own by token. Tokens are
// handed out from a process-wide serial so that a token of a session that
// has ended never resolves to another session's environment.
struct Registry {
    std::mutex lock;
    std::map<const session_t*, HostSession*> sessions;
    std::map<std::string, Environment*> environments;
    uint64_t nextEnvironmentSerial = 1;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

HostSession& RequireSession(session_t* session, const char* operation) {
    HostSession* found = HostSession::Find(session);
    if (found == nullptr) {
        throw std::invalid_argument(std::string(operation) + ": the session was not created by the host");
    }
    return *found;
}

std::string TextOf(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

} // namespace

HostSession::HostSession() : session_t{&m_Installation} {
    Locked<Registry> registry(TheRegistry());
    registry->sessions[this] = this;
}

HostSession::~HostSession() {
    Locked<Registry> registry(TheRegistry());
    for (const auto& nested : m_NestedEnvironments) {
        registry->environments.erase(nested.first);
    }
    registry->sessions.erase(this);
}

HostSession* HostSession::Find(session_t* session) {
    Locked<Registry> registry(TheRegistry());
    auto found = registry->sessions.find(session);
    return found == registry->sessions.end() ? nullptr : found->second;
}

void HostSession::SetValue(const std::string& key, const std::string& value) {
    m_Values[key] = value;
}

void HostSession::WriteValue(const std::string& key, const std::string& value) {
    m_Values[key] = value;
    m_Writes[key].push_back(value);
    if (m_WriteListener) {
        m_WriteListener(key, value);
    }
}

void HostSession::SetWriteListener(
    std::function<void(const std::string& key, const std::string& value)> listener) {
    m_WriteListener = std::move(listener);
}

void HostSession::EraseValue(const std::string& key) {
    m_Values.erase(key);
}

std::string HostSession::Value(const std::string& key) const {
    auto found = m_Values.find(key);
    return found == m_Values.end() ? std::string() : found->second;
}

bool HostSession::HasValue(const std::string& key) const {
    return m_Values.count(key) != 0;
}

std::vector<std::string> HostSession::Writes(const std::string& key) const {
    auto found = m_Writes.find(key);
    return found == m_Writes.end() ? std::vector<std::string>() : found->second;
}

void HostSession::ClearWrites() {
    m_Writes.clear();
}

void HostSession::ForEachReference(const std::string& operand,
                                   const std::function<void(size_t start, size_t end)>& visit) {
    size_t position = 0;
    while (position < operand.size()) {
        size_t start = operand.find("${", position);
        if (start == std::string::npos) {
            break;
        }
        size_t end = operand.find('}', start + 2);
        if (end == std::string::npos) {
            break;
        }
        visit(start, end);
        position = end + 1;
    }
}

std::string HostSession::Expand(const std::string& operand) const {
    std::string result;
    size_t position = 0;
    ForEachReference(operand, [&](size_t start, size_t end) {
        result.append(operand, position, start - position);
        result += Value(operand.substr(start + 2, end - start - 2));
        position = end + 1;
    });
    if (position < operand.size()) {
        result.append(operand, position, std::string::npos);
    }
    return result;
}

std::string HostSession::AddNestedEnvironment(const Environment& values) {
    std::unique_ptr<Environment> environment(new Environment(values));
    Locked<Registry> registry(TheRegistry());
    std::string token =
        std::string(kEnvironmentTokenPrefix) + std::to_string(registry->nextEnvironmentSerial++);
    Environment* pointer = environment.get();
    m_NestedEnvironments[token] = std::move(environment);
    try {
        registry->environments[token] = pointer;
    } catch (...) {
        m_NestedEnvironments.erase(token);
        throw;
    }
    return token;
}

Environment* HostSession::ResolveEnvironmentToken(const std::string& token) {
    Locked<Registry> registry(TheRegistry());
    auto found = registry->environments.find(token);
    return found == registry->environments.end() ? nullptr : found->second;
}

std::list<std::string> ReadTextFileLines(const std::string& path) {
    std::list<std::string> lines;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return lines;
    }
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t start = 0;
    while (start < content.size()) {
        size_t end = content.find('\n', start);
        size_t next = end == std::string::npos ? content.size() : end + 1;
        if (end == std::string::npos) {
            end = content.size();
        }
        size_t length = end - start;
        if (length > 0 && content[end - 1] == '\r') {
            --length;
        }
        lines.push_back(content.substr(start, length));
        start = next;
    }
    return lines;
}

} // namespace host

std::string env_get_string(session_t* session, const char* key) {
    return host::RequireSession(session, "env_get_string").Value(host::TextOf(key));
}

void env_set_string(session_t* session, const char* key, const char* value) {
    host::RequireSession(session, "env_set_string").WriteValue(host::TextOf(key), host::TextOf(value));
}

void env_set_string(session_t* session, const std::string& key, const std::string& value) {
    host::RequireSession(session, "env_set_string").WriteValue(key, value);
}

std::string expand_operand(session_t* session, const char* operand, bool) {
    return host::RequireSession(session, "expand_operand").Expand(host::TextOf(operand));
}

std::string expand_operand(session_t* session, const std::string& operand, bool) {
    return host::RequireSession(session, "expand_operand").Expand(operand);
}

std::string inttostr(long long value) {
    return std::to_string(value);
}

int file_exists(const std::string& path, bool) {
    struct stat status;
    return !path.empty() && stat(path.c_str(), &status) == 0 ? 1 : 0;
}

std::list<std::string> readContentOfTextFile(const std::string& path) {
    return host::ReadTextFileLines(path);
}

Environment* castStringToEnvPointer(const std::string& text) {
    return host::HostSession::ResolveEnvironmentToken(text);
}

std::string env_get_string_internal(Environment* environment, const std::string& key) {
    if (environment == nullptr) {
        return std::string();
    }
    auto found = environment->find(key);
    return found == environment->end() ? std::string() : found->second;
}
