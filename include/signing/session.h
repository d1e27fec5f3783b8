// The host's session interface as the plug-in sees it. A C++ host defines
// every function and the non-inline members declared here, and exports them
// from its program (link it with -rdynamic); the plug-in only declares and
// calls them, so these symbols stay undefined in signing.so and resolve
// against whatever program loads it. Build the host with the C++11 library
// ABI (_GLIBCXX_USE_CXX11_ABI=1, the default), which the symbols' names
// carry.
#ifndef SIGNING_SESSION_H
#define SIGNING_SESSION_H

#include <signing/rpm_verify.h>

#include <list>
#include <map>
#include <string>

typedef std::map<std::string, std::string> Environment;

class Component {
public:
    std::string type() const; // the package type, e.g. "rpm"; defined by the host
    std::string name;          // display name
    std::string packageFolder; // an operand: expand it with expand_operand
    std::string packageFile;   // file name inside that folder
    Environment environment;
};

class Product {
public:
    std::string name;
    Environment environment;
    std::list<Component*> components;
};

class TSD {
public:
    std::list<Product*>& products(); // defined by the host
};

struct session_t {
    TSD* tsd; // the host's installation data; the host may derive its own record from session_t
};

void print_log(const char* format, ...);
std::string env_get_string(session_t* session, const char* key);
void env_set_string(session_t* session, const char* key, const char* value);
void env_set_string(session_t* session, const std::string& key, const std::string& value);
std::string expand_operand(session_t* session, const char* operand, bool);
std::string expand_operand(session_t* session, const std::string& operand, bool);
std::string inttostr(long long value);
int file_exists(const std::string& path, bool);
std::list<std::string> readContentOfTextFile(const std::string& path);
Environment* castStringToEnvPointer(const std::string& text);
std::string env_get_string_internal(Environment* environment, const std::string& key);

#endif
