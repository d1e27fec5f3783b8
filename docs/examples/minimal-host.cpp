// A minimal installer: the session interface, then signing_validate_package_list
// on one product with one "rpm" component per PACKAGE.   minimal-host KEY PACKAGE...
#include <signing/session.h>

#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <sys/stat.h>

static std::map<std::string, std::string> values; // the session's named values
static std::list<Product*> products;

// The session interface. The program exports these (ENABLE_EXPORTS), so
// that the plug-in binds to them when it is loaded.
// clang-format off
std::string Component::type() const { return "rpm"; }
std::list<Product*>& TSD::products() { return ::products; }
void print_log(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
}
std::string env_get_string(session_t*, const char* key) { return values[key]; }
void env_set_string(session_t*, const char* key, const char* value) { values[key] = value; }
void env_set_string(session_t*, const std::string& key, const std::string& value) { values[key] = value; }
std::string expand_operand(session_t*, const std::string& operand, bool) { return operand; }
std::string expand_operand(session_t*, const char* operand, bool) { return operand; }
std::string inttostr(long long value) { return std::to_string(value); }
int file_exists(const std::string& path, bool) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}
std::list<std::string> readContentOfTextFile(const std::string& path) {
    std::list<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}
Environment* castStringToEnvPointer(const std::string&) { return nullptr; } // no nested environments
std::string env_get_string_internal(Environment* environment, const std::string& key) {
    auto found = environment->find(key);
    return found == environment->end() ? "" : found->second;
}
// clang-format on

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: minimal-host KEY PACKAGE...\n");
        return 2;
    }
    void* plugin = dlopen(SIGNING_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    void* entry = plugin != nullptr ? dlsym(plugin, "signing_validate_package_list") : nullptr;
    if (entry == nullptr) {
        std::fprintf(stderr, "minimal-host: %s\n", dlerror());
        return 2;
    }
    auto validate = reinterpret_cast<signing_validate_package_list_function>(entry);

    Product product;
    product.name = "packages";
    std::list<Component> components;
    for (int i = 2; i < argc; ++i) {
        std::string path = argv[i];
        size_t slash = path.rfind('/');
        Component& component = components.emplace_back();
        component.name = path;
        component.packageFolder = slash == std::string::npos ? "." : path.substr(0, slash);
        component.packageFile = path.substr(slash + 1);
        product.components.push_back(&component);
    }
    products.push_back(&product);
    values["signature"] = argv[1]; // the user's key file: nothing is downloaded

    TSD tsd;
    session_t session{&tsd};
    int result = validate(&session);
    std::printf("result %d SIGNIFICANCE \"%s\" SHORT_DESC \"%s\"\n", result, values["SIGNIFICANCE"].c_str(),
                values["SHORT_DESC"].c_str());
    return result;
}
