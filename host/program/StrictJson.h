// Parses JSON text for the manifest and refuses what nlohmann's parser lets
// through silently: a key given twice in one object (the parser keeps the
// last) and a NUL character in a key or a text value (which would cut a path
// short when it reaches the C library). The message names the field as
// "products[0].components[1].packageFile".
#ifndef HOST_PROGRAM_STRICTJSON_H
#define HOST_PROGRAM_STRICTJSON_H

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace host {

// A duplicate key or a NUL character; what() says which and names the field.
class StrictJsonError : public std::runtime_error {
public:
    explicit StrictJsonError(const std::string& message) : std::runtime_error(message) {}
};

// Throws nlohmann::json::parse_error for text that is not JSON and
// StrictJsonError for a duplicate key or a NUL character.
nlohmann::json ParseStrictJson(const std::string& text);

} // namespace host

#endif
