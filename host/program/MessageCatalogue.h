// The host's sentences for the message identifiers that the plug-in appends
// to "SHORT_DESC" and "FULL_DESC".
#ifndef HOST_PROGRAM_MESSAGECATALOGUE_H
#define HOST_PROGRAM_MESSAGECATALOGUE_H

#include <string>

namespace host {

class MessageCatalogue {
public:
    // The sentence for an identifier (without its leading semicolon), or
    // null when the catalogue has none.
    static const char* Find(const std::string& identifier);
    // Find(), or a sentence saying that the identifier is unknown.
    static std::string Describe(const std::string& identifier);
};

} // namespace host

#endif
