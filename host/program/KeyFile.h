// What a public-key file holds, read by the host for explanations: its form
// (armored, binary, keybox, something else), text around the armor, and
// each key with its user IDs and subkeys.
#ifndef HOST_PROGRAM_KEYFILE_H
#define HOST_PROGRAM_KEYFILE_H

#include "OpenPgpPackets.h"

#include <string>
#include <vector>

namespace host {

struct KeySubkey {
    PgpKeyInfo key;
    bool canSign = false; // its binding signature's key flags allow signing
};

struct KeyBlock {
    PgpKeyInfo primary;
    std::vector<std::string> userIds;
    std::vector<KeySubkey> subkeys;
};

struct KeyFile {
    enum class Form { Unreadable, Empty, Armored, Binary, Keybox, RpmPackage, Other };

    std::string path;
    Form form = Form::Other;
    std::string readError; // why the file could not be read
    size_t size = 0;
    size_t textBeforeArmor = 0; // bytes before the first "-----BEGIN"
    size_t armorBlocks = 0;
    bool crlf = false;
    std::string armorKind;   // what the first BEGIN line announces, e.g. "PGP PUBLIC KEY BLOCK"
    std::string packetError; // the packets could not all be read
    std::vector<KeyBlock> keys;
    size_t trustPackets = 0; // keyring files carry them
    size_t newFormatPackets = 0;
    // The issuer of the last signature packet of the file.
    std::string lastSignatureIssuer;

    static KeyFile Read(const std::string& path);

    // The key (primary or subkey) with this ID, or null.
    const PgpKeyInfo* FindKey(const std::string& keyId) const;
    // The primary key that holds a subkey with this ID, or null.
    const KeyBlock* BlockOfSubkey(const std::string& keyId) const;
};

} // namespace host

#endif
