// A small OpenPGP reader for the host's explanations: splits a binary
// stream into packets (old and new format headers), and reads what a person
// needs to know about public-key and signature packets. It decides nothing
// about validity; the plug-in does.
#ifndef HOST_PROGRAM_OPENPGPPACKETS_H
#define HOST_PROGRAM_OPENPGPPACKETS_H

#include <cstdint>
#include <string>
#include <vector>

namespace host {

struct PgpPacketView {
    unsigned tag = 0;
    bool newFormat = false;
    std::vector<unsigned char> body;
};

struct PgpKeyInfo {
    unsigned version = 0;
    unsigned algorithm = 0;
    uint32_t created = 0;
    unsigned bits = 0;                            // modulus or prime size; curve size for ECC
    std::string curve;                            // the curve's name for ECC keys
    std::string fingerprint;                      // upper-case hex (version 4)
    std::string keyId;                            // upper-case hex, 16 digits
    std::vector<unsigned char> modulus, exponent; // RSA only
};

struct PgpSignatureInfo {
    unsigned version = 0;
    unsigned type = 0;
    unsigned keyAlgorithm = 0;
    unsigned hashAlgorithm = 0;
    uint32_t created = 0;
    std::string issuerKeyId; // upper-case hex, empty when absent
    std::string issuerFingerprint;
    unsigned keyFlags = 0; // subpacket 27, first octet
    bool hasKeyFlags = false;
    std::vector<unsigned char> hashedPart; // what is hashed after the data (v3: 5 bytes; v4: trailer input)
    unsigned char left16[2] = {0, 0};
    std::vector<unsigned char> value; // RSA signature value
};

class OpenPgpPackets {
public:
    // The packets of a binary stream; throws ReadError when one runs past
    // the end or uses an indeterminate length.
    static std::vector<PgpPacketView> Split(const std::vector<unsigned char>& data);

    static PgpKeyInfo ReadKey(const PgpPacketView& packet);             // tags 6 and 14
    static PgpSignatureInfo ReadSignature(const PgpPacketView& packet); // tag 2

    // "RSA", "DSA", "EdDSA", ... for a public-key algorithm number.
    static std::string AlgorithmName(unsigned algorithm);
    static bool IsRsa(unsigned algorithm) { return algorithm >= 1 && algorithm <= 3; }
    // "SHA256" ... for a hash algorithm number; "hash #N" for others.
    static std::string HashName(unsigned algorithm);
    static std::string PacketName(unsigned tag);
    // "2026-11-23 13:02:07 UTC"
    static std::string TimeText(uint32_t seconds);
    static std::string Hex(const unsigned char* data, size_t size);
};

} // namespace host

#endif
