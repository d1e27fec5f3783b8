#include "OpenPgpPackets.h"

#include "BoundedReader.h"
#include "NumberName.h"

#include <openssl/evp.h>

#include <cstring>
#include <ctime>

namespace host {
namespace {

struct CurveName {
    std::vector<unsigned char> oid;
    const char* name;
    unsigned bits;
};

const std::vector<CurveName>& Curves() {
    static const std::vector<CurveName> curves = {
        {{0x2B, 0x06, 0x01, 0x04, 0x01, 0xDA, 0x47, 0x0F, 0x01}, "Ed25519", 255},
        {{0x2B, 0x06, 0x01, 0x04, 0x01, 0x97, 0x55, 0x01, 0x05, 0x01}, "Curve25519", 255},
        {{0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07}, "NIST P-256", 256},
        {{0x2B, 0x81, 0x04, 0x00, 0x22}, "NIST P-384", 384},
        {{0x2B, 0x81, 0x04, 0x00, 0x23}, "NIST P-521", 521},
    };
    return curves;
}

// An MPI: its bit count and the bytes of its value.
std::vector<unsigned char> ReadMpi(BoundedReader& reader, unsigned* bits, const char* field) {
    const unsigned count = reader.U16(field);
    if (bits != nullptr) {
        *bits = count;
    }
    const unsigned char* value = reader.Bytes((count + 7) / 8, field);
    return std::vector<unsigned char>(value, value + (count + 7) / 8);
}

std::string Sha1Hex(const std::vector<unsigned char>& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, EVP_sha1(), nullptr);
    return OpenPgpPackets::Hex(digest, length);
}

// Reads a subpacket area and records what explanations use.
void ReadSubpackets(const unsigned char* data, size_t size, PgpSignatureInfo& info) {
    BoundedReader reader(data, size);
    while (!reader.AtEnd()) {
        uint32_t length = reader.U8("subpacket length");
        if (length >= 192 && length < 255) {
            length = ((length - 192) << 8) + reader.U8("subpacket length") + 192;
        } else if (length == 255) {
            length = reader.U32("subpacket length");
        }
        if (length == 0) {
            throw ReadError("a signature subpacket has length 0");
        }
        const unsigned type = reader.U8("subpacket type") & 0x7F;
        const unsigned char* body = reader.Bytes(length - 1, "subpacket");
        const size_t bodySize = length - 1;
        if (type == 2 && bodySize == 4) {
            info.created =
                (static_cast<uint32_t>(body[0]) << 24) | (body[1] << 16) | (body[2] << 8) | body[3];
        } else if (type == 16 && bodySize == 8) {
            info.issuerKeyId = OpenPgpPackets::Hex(body, 8);
        } else if (type == 33 && bodySize == 21) {
            info.issuerFingerprint = OpenPgpPackets::Hex(body + 1, 20);
        } else if (type == 27 && bodySize >= 1) {
            info.keyFlags = body[0];
            info.hasKeyFlags = true;
        }
    }
}

} // namespace

std::vector<PgpPacketView> OpenPgpPackets::Split(const std::vector<unsigned char>& data) {
    std::vector<PgpPacketView> packets;
    BoundedReader reader(data.data(), data.size());
    while (!reader.AtEnd()) {
        const unsigned char first = reader.U8("packet tag");
        if ((first & 0x80) == 0) {
            throw ReadError("byte " + std::to_string(reader.Offset() - 1) + " is not an OpenPGP packet tag");
        }
        PgpPacketView packet;
        size_t length = 0;
        if ((first & 0x40) != 0) {
            packet.newFormat = true;
            packet.tag = first & 0x3F;
            const unsigned octet = reader.U8("packet length");
            if (octet < 192) {
                length = octet;
            } else if (octet < 224) {
                length = ((octet - 192) << 8) + reader.U8("packet length") + 192;
            } else if (octet == 255) {
                length = reader.U32("packet length");
            } else {
                throw ReadError("a packet uses partial body lengths, which keys never do");
            }
        } else {
            packet.tag = (first >> 2) & 0x0F;
            switch (first & 3) {
            case 0:
                length = reader.U8("packet length");
                break;
            case 1:
                length = reader.U16("packet length");
                break;
            case 2:
                length = reader.U32("packet length");
                break;
            default:
                throw ReadError("a packet has an indeterminate length");
            }
        }
        const unsigned char* body = reader.Bytes(length, "packet body");
        packet.body.assign(body, body + length);
        packets.push_back(std::move(packet));
    }
    return packets;
}

PgpKeyInfo OpenPgpPackets::ReadKey(const PgpPacketView& packet) {
    PgpKeyInfo key;
    BoundedReader reader(packet.body.data(), packet.body.size());
    key.version = reader.U8("key version");
    key.created = reader.U32("key creation time");
    if (key.version == 3) {
        reader.Skip(2, "key validity");
    } else if (key.version != 4) {
        return key; // other versions: only the version and time are known
    }
    key.algorithm = reader.U8("key algorithm");
    if (IsRsa(key.algorithm)) {
        key.modulus = ReadMpi(reader, &key.bits, "RSA modulus");
        key.exponent = ReadMpi(reader, nullptr, "RSA exponent");
    } else if (key.algorithm == 17 || key.algorithm == 16 || key.algorithm == 20) {
        ReadMpi(reader, &key.bits, "prime");
    } else if (key.algorithm == 18 || key.algorithm == 19 || key.algorithm == 22) {
        const unsigned oidLength = reader.U8("curve OID length");
        const unsigned char* oid = reader.Bytes(oidLength, "curve OID");
        for (const CurveName& curve : Curves()) {
            if (curve.oid.size() == oidLength && std::memcmp(curve.oid.data(), oid, oidLength) == 0) {
                key.curve = curve.name;
                key.bits = curve.bits;
            }
        }
        if (key.curve.empty()) {
            key.curve = "curve " + Hex(oid, oidLength);
        }
    }
    if (key.version == 4) {
        std::vector<unsigned char> hashed = {0x99, static_cast<unsigned char>(packet.body.size() >> 8),
                                             static_cast<unsigned char>(packet.body.size())};
        hashed.insert(hashed.end(), packet.body.begin(), packet.body.end());
        key.fingerprint = Sha1Hex(hashed);
        key.keyId = key.fingerprint.substr(24);
    } else if (key.modulus.size() >= 8) {
        key.keyId = Hex(key.modulus.data() + key.modulus.size() - 8, 8);
    }
    return key;
}

PgpSignatureInfo OpenPgpPackets::ReadSignature(const PgpPacketView& packet) {
    PgpSignatureInfo info;
    BoundedReader reader(packet.body.data(), packet.body.size());
    info.version = reader.U8("signature version");
    if (info.version == 3 || info.version == 2) {
        if (reader.U8("hashed length") != 5) {
            throw ReadError("a version 3 signature must hash 5 bytes");
        }
        const unsigned char* hashed = reader.Bytes(5, "signature type and time");
        info.hashedPart.assign(hashed, hashed + 5);
        info.type = hashed[0];
        info.created =
            (static_cast<uint32_t>(hashed[1]) << 24) | (hashed[2] << 16) | (hashed[3] << 8) | hashed[4];
        info.issuerKeyId = Hex(reader.Bytes(8, "issuer key ID"), 8);
        info.keyAlgorithm = reader.U8("public-key algorithm");
        info.hashAlgorithm = reader.U8("hash algorithm");
    } else if (info.version == 4) {
        const size_t start = reader.Offset() - 1;
        info.type = reader.U8("signature type");
        info.keyAlgorithm = reader.U8("public-key algorithm");
        info.hashAlgorithm = reader.U8("hash algorithm");
        const unsigned hashedLength = reader.U16("hashed subpacket length");
        const unsigned char* hashed = reader.Bytes(hashedLength, "hashed subpackets");
        info.hashedPart.assign(packet.body.begin() + static_cast<long>(start),
                               packet.body.begin() + static_cast<long>(reader.Offset()));
        ReadSubpackets(hashed, hashedLength, info);
        const unsigned unhashedLength = reader.U16("unhashed subpacket length");
        PgpSignatureInfo unhashed;
        ReadSubpackets(reader.Bytes(unhashedLength, "unhashed subpackets"), unhashedLength, unhashed);
        if (info.issuerKeyId.empty()) {
            info.issuerKeyId = unhashed.issuerKeyId;
        }
    } else {
        return info; // other versions: only the version is known
    }
    if (info.issuerKeyId.empty() && info.issuerFingerprint.size() == 40) {
        info.issuerKeyId = info.issuerFingerprint.substr(24);
    }
    const unsigned char* left = reader.Bytes(2, "left 16 bits of the hash");
    info.left16[0] = left[0];
    info.left16[1] = left[1];
    if (IsRsa(info.keyAlgorithm)) {
        info.value = ReadMpi(reader, nullptr, "RSA signature value");
    }
    return info;
}

std::string OpenPgpPackets::AlgorithmName(unsigned algorithm) {
    static const NumberName kAlgorithms[] = {{1, "RSA"},      {2, "RSA"},     {3, "RSA"},     {16, "Elgamal"},
                                             {20, "Elgamal"}, {17, "DSA"},    {18, "ECDH"},   {19, "ECDSA"},
                                             {22, "EdDSA"},   {25, "X25519"}, {27, "Ed25519"}};
    return NameOf(kAlgorithms, algorithm, "algorithm #");
}

std::string OpenPgpPackets::HashName(unsigned algorithm) {
    static const NumberName kHashes[] = {{1, "MD5"},    {2, "SHA1"},    {8, "SHA256"},
                                         {9, "SHA384"}, {10, "SHA512"}, {11, "SHA224"}};
    return NameOf(kHashes, algorithm, "hash #");
}

std::string OpenPgpPackets::PacketName(unsigned tag) {
    static const NumberName kPackets[] = {{2, "signature"}, {6, "public key"},     {12, "trust"},
                                          {13, "user ID"},  {14, "public subkey"}, {17, "user attribute"}};
    return NameOf(kPackets, tag, "packet type ");
}

std::string OpenPgpPackets::TimeText(uint32_t seconds) {
    const std::time_t when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    gmtime_r(&when, &parts);
    char text[64];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

std::string OpenPgpPackets::Hex(const unsigned char* data, size_t size) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 15];
    }
    return text;
}

} // namespace host
