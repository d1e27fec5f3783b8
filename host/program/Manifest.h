// The description of one installation run that `signing-host run` reads: a
// JSON file with the session values, the "${NAME}" variables, and the
// products with their environments and components.
//
//   {
//     "session":   { "TEMP_FOLDER": "/tmp/run", "signing_url": "http://..." },
//     "variables": { "PACKAGES": "/srv/packages" },
//     "products": [
//       { "name": "Suite",
//         "environment": { "phonehome": { "VokUpdateId": "UPD-1" } },
//         "components": [
//           { "name": "core", "type": "rpm",
//             "packageFolder": "${PACKAGES}", "packageFile": "core-1.0-1.noarch.rpm",
//             "environment": {} } ] } ]
//   }
//
// "products" is required, and each product's "name" and each component's
// "name", "type", "packageFolder" and "packageFile". An environment value
// is a text or an object; an object becomes a nested environment, which
// castStringToEnvPointer finds through the token stored in its place.
#ifndef HOST_PROGRAM_MANIFEST_H
#define HOST_PROGRAM_MANIFEST_H

#include "HostSession.h"

#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <vector>

namespace host {

// The check cannot see that nlohmann::json's destructor does not throw.
// NOLINTNEXTLINE(bugprone-exception-escape)
struct ManifestComponent {
    std::string name;
    std::string type;
    std::string packageFolder;
    std::string packageFile;
    nlohmann::json environment; // an object; nested objects are nested environments
};

// NOLINTNEXTLINE(bugprone-exception-escape)
struct ManifestProduct {
    std::string name;
    nlohmann::json environment;
    std::vector<ManifestComponent> components;
};

class Manifest {
public:
    // The variable that names the manifest's own folder (absolute), set
    // unless the manifest gives it itself, so that package folders can be
    // written relative to the manifest.
    static constexpr const char* kManifestFolderVariable = "MANIFEST_DIR";

    // Reads and checks a manifest file. Throws SetupError when the file
    // cannot be read, is not JSON, or a field is missing or of the wrong
    // kind; the message names the file and the field.
    static Manifest Load(const std::string& path);

    // Checks a manifest text; origin names it in messages and folder is the
    // value of kManifestFolderVariable.
    static Manifest Parse(const std::string& text, const std::string& origin, const std::string& folder);

    // Presets the session values and variables, builds the nested
    // environments, and adds the products and components to the session's
    // installation in manifest order.
    void Apply(HostSession& session) const;

    const std::map<std::string, std::string>& SessionValues() const { return m_SessionValues; }
    const std::map<std::string, std::string>& Variables() const { return m_Variables; }
    const std::vector<ManifestProduct>& Products() const { return m_Products; }

private:
    std::map<std::string, std::string> m_SessionValues;
    std::map<std::string, std::string> m_Variables;
    std::vector<ManifestProduct> m_Products;
};

} // namespace host

#endif
