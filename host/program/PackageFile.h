// What an RPM package holds, read and checked by the host for
// explanations: the lead, the signature header's tags, the header SHA-1
// (tag 269) and MD5 (tag 1004) recomputed, and the OpenPGP signatures of
// the header (268) and of header and payload (1002) checked against a key
// file with OpenSSL. The verdict that counts stays the plug-in's.
#ifndef HOST_PROGRAM_PACKAGEFILE_H
#define HOST_PROGRAM_PACKAGEFILE_H

#include "KeyFile.h"
#include "OpenPgpPackets.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host {

struct SignatureTag {
    uint32_t tag = 0;
    uint32_t type = 0;
    uint32_t offset = 0;
    uint32_t count = 0;
};

enum class CheckState { Missing, Ok, Bad, NotChecked };

struct PackageSignature {
    uint32_t tag = 0;
    CheckState state = CheckState::Missing;
    PgpSignatureInfo info;
    std::string parseError;
    std::string note; // why it was not checked, or which key checked it
    bool bySubkey = false;
};

struct PackageFile {
    std::string path;
    std::string readError; // the file could not be opened or read
    bool isRpm = false;    // the lead's magic
    unsigned major = 0, minor = 0;
    unsigned leadType = 0; // 0 binary, 1 source
    std::string leadName;
    unsigned signatureType = 0; // 5: a header-style signature
    std::string structureError; // where the layout is broken
    std::vector<SignatureTag> tags;
    uint64_t mainHeaderOffset = 0, mainHeaderSize = 0, payloadSize = 0;

    CheckState sha1 = CheckState::Missing;
    std::string sha1Stored, sha1Computed;
    CheckState md5 = CheckState::Missing;
    std::string md5Stored, md5Computed;

    PackageSignature header;  // tag 268
    PackageSignature payload; // tag 1002
    size_t payloadSignatures = 0;
    bool hasDsaTags = false; // tags 267 or 1005: DSA, ECDSA or EdDSA signatures

    // Reads the package and checks its digests, and its signatures with the
    // RSA keys of key (may be null).
    static PackageFile Read(const std::string& path, const KeyFile* key);

    static std::string TagName(uint32_t tag);
};

} // namespace host

#endif
