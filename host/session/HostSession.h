// The reference host's session: the record behind the session_t handle that
// the plug-in receives, with the named string values, the history of what
// the plug-in wrote, the installation data, and the nested environments
// whose token texts castStringToEnvPointer turns back into pointers.
//
// The free functions of session.h (env_get_string, env_set_string,
// expand_operand, inttostr, file_exists, readContentOfTextFile,
// castStringToEnvPointer, env_get_string_internal) are defined in
// HostSession.cpp; print_log in HostLog.cpp; TSD::products() and
// Component::type() in HostInstallation.cpp.
#ifndef HOST_SESSION_HOSTSESSION_H
#define HOST_SESSION_HOSTSESSION_H

#include "HostInstallation.h"
#include "HostLog.h"
#include "session.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace host {

class HostSession : public session_t {
public:
    // Prefix of the token texts that stand for nested environments; a token
    // is the prefix followed by a decimal serial number that is never
    // reused within the process.
    static constexpr const char* kEnvironmentTokenPrefix = "env:";

    HostSession();
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;

    // The host record behind a session handle, or null for a handle that no
    // live HostSession owns.
    static HostSession* Find(session_t* session);

    HostInstallation& Installation() { return m_Installation; }

    // The host's own access to its values. SetValue is the host presetting
    // a value and is not recorded in Writes(); WriteValue is what
    // env_set_string does.
    void SetValue(const std::string& key, const std::string& value);
    void WriteValue(const std::string& key, const std::string& value);
    void EraseValue(const std::string& key);
    std::string Value(const std::string& key) const; // empty when unset
    bool HasValue(const std::string& key) const;
    const Environment& Values() const { return m_Values; }

    // Every value written to key through env_set_string, oldest first.
    std::vector<std::string> Writes(const std::string& key) const;
    void ClearWrites();

    // Called with every value written through env_set_string (WriteValue),
    // after it is stored and recorded; SetValue does not call it. An empty
    // function removes the listener.
    void SetWriteListener(std::function<void(const std::string& key, const std::string& value)> listener);

    // The operand with every "${NAME}" replaced by the value of NAME (empty
    // when unset). Replacements are not expanded again; a "$" without a
    // "{", and a "${" without a closing "}", stay as they are.
    std::string Expand(const std::string& operand) const;

    // Calls visit with the positions of the "$" and the "}" of every
    // "${NAME}" in operand, from left to right, as Expand finds them.
    static void ForEachReference(const std::string& operand,
                                 const std::function<void(size_t start, size_t end)>& visit);

    // Creates a nested environment owned by this session and returns the
    // token text that stands for it (put it into a "phonehome" value). The
    // token resolves while the session lives.
    std::string AddNestedEnvironment(const Environment& values);

    // The nested environment a token stands for, or null when the text is
    // not the token of a live nested environment (of any session).
    static Environment* ResolveEnvironmentToken(const std::string& token);

private:
    HostInstallation m_Installation;
    Environment m_Values;
    std::map<std::string, std::vector<std::string>> m_Writes;
    std::function<void(const std::string&, const std::string&)> m_WriteListener;
    std::map<std::string, std::unique_ptr<Environment>> m_NestedEnvironments;
};

// The lines of a text file without their line ends ("\n" or "\r\n"); a last
// line without a line end counts; an unreadable file has no lines.
std::list<std::string> ReadTextFileLines(const std::string& path);

} // namespace host

#endif
