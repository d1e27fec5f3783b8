#include "MessageCatalogue.h"

#include <array>
#include <cstring>

namespace host {
namespace {

struct CatalogueEntry {
    const char* identifier;
    const char* sentence;
};

constexpr std::array<CatalogueEntry, 8> kCatalogue = {{
    {"SIGNING_prereq_err_signing_check_short_desc", "A package failed the signature check."},
    {"SIGNING_prereq_err_signing_check_full_desc",
     "At least one package is not signed with the expected key, or was changed after it was signed. "
     "Do not install it; the log names each package and the reason."},
    {"SIGNING_prereq_war_signing_check_validate_short_desc", "The public key is not valid."},
    {"SIGNING_prereq_war_signing_check_validate_full_desc",
     "The public key file that was obtained is missing, or is not a key (a line of it holds a web "
     "address, as an error page of the key service does), so no package signature was checked."},
    {"SIGNING_prereq_war_signing_check_download_short_desc", "The public key could not be obtained."},
    {"SIGNING_prereq_war_signing_check_download_full_desc",
     "Neither the key service nor the local key file gave a public key (no wget or curl, the service did not "
     "answer, or no local key is configured), so no package signature was checked."},
    {"SIGNING_prereq_war_signing_check_file_short_desc", "The public key file cannot be used."},
    {"SIGNING_prereq_war_signing_check_file_full_desc",
     "The public key file is missing or cannot be read, so no package signature was checked."},
}};

} // namespace

const char* MessageCatalogue::Find(const std::string& identifier) {
    for (const CatalogueEntry& entry : kCatalogue) {
        if (identifier == entry.identifier) {
            return entry.sentence;
        }
    }
    return nullptr;
}

std::string MessageCatalogue::Describe(const std::string& identifier) {
    const char* sentence = Find(identifier);
    return sentence != nullptr ? sentence : "(no sentence in the host's catalogue for this identifier)";
}

} // namespace host
