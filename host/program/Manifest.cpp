#include "Manifest.h"

#include "ProgramError.h"
#include "StrictJson.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sys/stat.h>

namespace host {
namespace {

using nlohmann::json;

// A manifest describes a handful of products; anything near this size is
// not one.
constexpr std::streamoff kMaxManifestSize = std::streamoff{16} * 1024 * 1024;
// Environments nest for "phonehome"; deeper nesting is a mistake.
constexpr int kMaxEnvironmentDepth = 8;

// Checks the manifest tree and turns it into records; every message names
// the manifest and the field.
class Checker {
public:
    explicit Checker(const std::string& origin) : m_Origin(origin) {}

    [[noreturn]] void Fail(const std::string& problem) const {
        throw SetupError("the manifest '" + m_Origin + "' " + problem);
    }

    static std::string Field(const std::string& parent, const std::string& key) {
        return parent.empty() ? key : parent + "." + key;
    }

    static std::string Element(const std::string& parent, size_t index) {
        return parent + "[" + std::to_string(index) + "]";
    }

    void RequireObject(const json& value, const std::string& field) const {
        if (!value.is_object()) {
            Fail(field.empty() ? "must hold a JSON object at its top level"
                               : "has a field \"" + field + "\" that must be an object");
        }
    }

    // Rejects fields the program does not know, so that a misspelt name is
    // not silently ignored.
    void AllowOnly(const json& object, const std::string& field,
                   std::initializer_list<const char*> known) const {
        for (auto item = object.begin(); item != object.end(); ++item) {
            bool isKnown = false;
            for (const char* name : known) {
                isKnown = isKnown || item.key() == name;
            }
            if (!isKnown) {
                std::string list;
                for (const char* name : known) {
                    list += std::string(list.empty() ? "" : ", ") + "\"" + name + "\"";
                }
                Fail("has an unknown field \"" + Field(field, item.key()) + "\" (known here: " + list + ")");
            }
        }
    }

    const json& Require(const json& object, const std::string& parent, const char* key) const {
        auto found = object.find(key);
        if (found == object.end()) {
            Fail("is missing the required field \"" + Field(parent, key) + "\"");
        }
        return *found;
    }

    std::string RequireText(const json& object, const std::string& parent, const char* key) const {
        const json& value = Require(object, parent, key);
        if (!value.is_string()) {
            Fail("has a field \"" + Field(parent, key) + "\" that must be a text");
        }
        return value.get<std::string>();
    }

    std::map<std::string, std::string> OptionalTexts(const json& object, const char* key) const {
        std::map<std::string, std::string> texts;
        auto found = object.find(key);
        if (found == object.end()) {
            return texts;
        }
        RequireObject(*found, key);
        for (auto item = found->begin(); item != found->end(); ++item) {
            if (!item->is_string()) {
                Fail("has a field \"" + Field(key, item.key()) + "\" that must be a text");
            }
            texts[item.key()] = item->get<std::string>();
        }
        return texts;
    }

    json OptionalEnvironment(const json& object, const std::string& parent) const {
        auto found = object.find("environment");
        if (found == object.end()) {
            return json::object();
        }
        CheckEnvironment(*found, Field(parent, "environment"), 1);
        return *found;
    }

private:
    void CheckEnvironment(const json& environment, const std::string& field, int depth) const {
        RequireObject(environment, field);
        if (depth > kMaxEnvironmentDepth) {
            Fail("nests environments more than " + std::to_string(kMaxEnvironmentDepth) + " deep at \"" +
                 field + "\"");
        }
        for (auto item = environment.begin(); item != environment.end(); ++item) {
            if (item->is_object()) {
                CheckEnvironment(*item, Field(field, item.key()), depth + 1);
            } else if (!item->is_string()) {
                Fail("has a field \"" + Field(field, item.key()) +
                     "\" that must be a text or an object (a nested environment)");
            }
        }
    }

    std::string m_Origin;
};

// An environment of the manifest as the host's map; nested objects become
// nested environments of the session, represented by their tokens.
Environment BuildEnvironment(HostSession& session, const json& environment) {
    Environment values;
    for (auto item = environment.begin(); item != environment.end(); ++item) {
        if (item->is_object()) {
            values[item.key()] = session.AddNestedEnvironment(BuildEnvironment(session, *item));
        } else {
            values[item.key()] = item->get<std::string>();
        }
    }
    return values;
}

std::string FolderOfFile(const std::string& path) {
    std::vector<char> resolved(PATH_MAX + 1, '\0');
    if (realpath(path.c_str(), resolved.data()) == nullptr) {
        return ".";
    }
    std::string absolute(resolved.data());
    size_t slash = absolute.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : absolute.substr(0, slash);
}

} // namespace

Manifest Manifest::Load(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        throw SetupError("cannot read the manifest '" + path + "': " + std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        throw SetupError("cannot read the manifest '" + path + "': it is not a regular file");
    }
    if (status.st_size > kMaxManifestSize) {
        throw SetupError("cannot read the manifest '" + path + "': it is larger than " +
                         std::to_string(kMaxManifestSize) + " bytes");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw SetupError("cannot read the manifest '" + path + "': " + std::strerror(errno));
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        throw SetupError("cannot read the manifest '" + path + "'");
    }
    return Parse(text, path, FolderOfFile(path));
}

Manifest Manifest::Parse(const std::string& text, const std::string& origin, const std::string& folder) {
    json document;
    try {
        document = ParseStrictJson(text);
    } catch (const StrictJsonError& error) {
        throw SetupError("the manifest '" + origin + "' " + error.what());
    } catch (const json::parse_error& error) {
        // "[json.exception.parse_error.101] parse error at line 1, ..."
        std::string detail = error.what();
        size_t bracket = detail.find("] ");
        if (detail.compare(0, 1, "[") == 0 && bracket != std::string::npos) {
            detail = detail.substr(bracket + 2);
        }
        throw SetupError("the manifest '" + origin + "' is not valid JSON: " + detail);
    }

    Checker check(origin);
    check.RequireObject(document, "");
    check.AllowOnly(document, "", {"description", "session", "variables", "products"});
    if (document.contains("description") && !document["description"].is_string()) {
        check.Fail("has a field \"description\" that must be a text");
    }

    Manifest manifest;
    manifest.m_SessionValues = check.OptionalTexts(document, "session");
    manifest.m_Variables = check.OptionalTexts(document, "variables");
    for (const auto& variable : manifest.m_Variables) {
        if (manifest.m_SessionValues.count(variable.first) != 0) {
            check.Fail("gives \"" + variable.first + "\" both in \"session\" and in \"variables\"");
        }
    }
    if (manifest.m_SessionValues.count(kManifestFolderVariable) == 0 &&
        manifest.m_Variables.count(kManifestFolderVariable) == 0) {
        manifest.m_Variables[kManifestFolderVariable] = folder;
    }
    // The plug-in reads "signature" as it is, without expansion; the host
    // expands "${MANIFEST_DIR}" in it so that a manifest can name a key
    // beside itself.
    auto signature = manifest.m_SessionValues.find("signature");
    if (signature != manifest.m_SessionValues.end()) {
        const std::string marker = std::string("${") + kManifestFolderVariable + "}";
        auto given = manifest.m_SessionValues.find(kManifestFolderVariable);
        if (given == manifest.m_SessionValues.end()) {
            given = manifest.m_Variables.find(kManifestFolderVariable);
        }
        for (size_t at = signature->second.find(marker); at != std::string::npos;
             at = signature->second.find(marker, at + given->second.size())) {
            signature->second.replace(at, marker.size(), given->second);
        }
    }

    const json& products = check.Require(document, "", "products");
    if (!products.is_array()) {
        check.Fail("has a field \"products\" that must be an array");
    }
    for (size_t p = 0; p < products.size(); ++p) {
        const json& product = products[p];
        const std::string productField = Checker::Element("products", p);
        check.RequireObject(product, productField);
        check.AllowOnly(product, productField, {"name", "environment", "components"});
        ManifestProduct record;
        record.name = check.RequireText(product, productField, "name");
        record.environment = check.OptionalEnvironment(product, productField);
        auto components = product.find("components");
        if (components != product.end()) {
            if (!components->is_array()) {
                check.Fail("has a field \"" + Checker::Field(productField, "components") +
                           "\" that must be an array");
            }
            for (size_t c = 0; c < components->size(); ++c) {
                const json& component = (*components)[c];
                const std::string componentField =
                    Checker::Element(Checker::Field(productField, "components"), c);
                check.RequireObject(component, componentField);
                check.AllowOnly(component, componentField,
                                {"name", "type", "packageFolder", "packageFile", "environment"});
                ManifestComponent item;
                item.name = check.RequireText(component, componentField, "name");
                item.type = check.RequireText(component, componentField, "type");
                item.packageFolder = check.RequireText(component, componentField, "packageFolder");
                item.packageFile = check.RequireText(component, componentField, "packageFile");
                item.environment = check.OptionalEnvironment(component, componentField);
                record.components.push_back(std::move(item));
            }
        }
        manifest.m_Products.push_back(std::move(record));
    }
    return manifest;
}

void Manifest::Apply(HostSession& session) const {
    for (const auto& variable : m_Variables) {
        session.SetValue(variable.first, variable.second);
    }
    for (const auto& value : m_SessionValues) {
        session.SetValue(value.first, value.second);
    }
    for (const ManifestProduct& product : m_Products) {
        Product& added =
            session.Installation().AddProduct(product.name, BuildEnvironment(session, product.environment));
        for (const ManifestComponent& component : product.components) {
            session.Installation().AddComponent(added, component.type, component.name,
                                                component.packageFolder, component.packageFile,
                                                BuildEnvironment(session, component.environment));
        }
    }
}

} // namespace host
