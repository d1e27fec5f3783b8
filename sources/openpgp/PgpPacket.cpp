#include "PgpPacket.h"

#include "ByteReader.h"
#include "ContractTexts.h"
#include "Exceptions.h"

#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>

namespace {

// Old-format length types (the tag byte's low two bits): how many length
// octets follow the tag byte, and the header length counted for the packet.
// Type 2 counts a 6-byte header although its length field ends at offset 5;
// every offset into such a packet follows from that count.
struct LengthType {
    unsigned int octets;
    unsigned int headerLength;
    bool supported;
};
constexpr LengthType kLengthTypes[4] = {
    {1, 2, true}, {2, 3, true}, {4, 6, true}, {0, 0, false}, // indeterminate
};

constexpr unsigned char kIssuerSubpacket = 16;
constexpr unsigned int kIssuerSubpacketLength = 9;

} // namespace

PgpPacket::PgpPacket() : _Length(0) {}

PgpPacket::~PgpPacket() = default;

unsigned int PgpPacket::ParseLengthTag(char* packet, unsigned int& headerLength) {
    // Only the tag byte and its length octets are read.
    const LengthType& type = kLengthTypes[static_cast<unsigned char>(packet[0]) & 3];
    return ParseLengthTag(packet, 1 + type.octets, headerLength);
}

unsigned int PgpPacket::ParseLengthTag(const char* packet, unsigned int available,
                                       unsigned int& headerLength) {
    ByteReader reader(packet, available, "OpenPGP packet header");
    const LengthType& type = kLengthTypes[reader.ReadUInt8("tag byte") & 3];
    if (!type.supported) {
        throw DataFormatException(contract::kIndeterminateLength);
    }
    uint32_t bodyLength = 0;
    switch (type.octets) {
    case 1:
        bodyLength = reader.ReadUInt8("packet length");
        break;
    case 2:
        bodyLength = reader.ReadUInt16("packet length");
        break;
    default:
        bodyLength = reader.ReadUInt32("packet length");
        break;
    }
    if (bodyLength > UINT32_MAX - type.headerLength) {
        throw DataFormatException("OpenPGP packet header: packet length " + std::to_string(bodyLength) +
                                  " is too large");
    }
    headerLength = type.headerLength;
    return bodyLength + type.headerLength;
}

void PgpPacket::CheckPublicKeyAlgorithm(char algorithm) {
    // The RSA ids 1, 2 and 3 are told apart by their low two bits.
    if ((algorithm & 3) == 0) {
        throw DataFormatException(contract::kOnlyRsa);
    }
}

PgpPublicKey::PgpPublicKey(char* packet, unsigned int available) : _Exponent(nullptr), _Modulus(nullptr) {
    unsigned int headerLength = 0;
    _Length = ParseLengthTag(packet, available, headerLength);

    ByteReader reader(packet, available, "OpenPGP public key packet");
    reader.Skip(headerLength, "packet header");
    uint8_t version = reader.ReadUInt8("version");
    if ((version & 4) == 0) {
        throw DataFormatException(contract::kPublicKeyVersion);
    }
    reader.Skip(4, "creation time");
    CheckPublicKeyAlgorithm(static_cast<char>(reader.ReadUInt8("public-key algorithm")));

    // The MPI bounds are counted from 5 bytes into the input, as the format
    // has always done; the reader's own bound keeps them inside the input.
    const char* modulusAt = reinterpret_cast<const char*>(reader.Current());
    std::unique_ptr<MPI> modulus(new MPI(modulusAt, available - 5, reader.Remaining()));
    reader.Skip(2 + modulus->GetLengthInBytes(), "modulus");

    const char* exponentAt = reinterpret_cast<const char*>(reader.Current());
    unsigned int exponentBound = available - static_cast<unsigned int>(modulus->GetLengthInBytes()) - 5;
    std::unique_ptr<MPI> exponent(new MPI(exponentAt, exponentBound, reader.Remaining()));

    _Modulus = modulus.release();
    _Exponent = exponent.release();
}

PgpPublicKey::~PgpPublicKey() {
    delete _Exponent;
    _Exponent = nullptr;
    delete _Modulus;
    _Modulus = nullptr;
}

PgpSignatureData::PgpSignatureData(char* packet, unsigned int available)
    : _SignatureValue(nullptr), _IssuerKeyId{}, _HashedLength(0), _HashedData(nullptr), _UnhashedLength(0),
      _SignatureSize(0), _Version(static_cast<PgpSignatureVersion>(0)),
      _Type(static_cast<PgpSignatureType>(0)), _PublicKeyAlgorithm(0),
      _HashAlgorithm(PgpHashSha1), _Left16Bits{} {
    unsigned int headerLength = 0;
    _Length = ParseLengthTag(packet, available, headerLength);

    ByteReader reader(packet, available, "OpenPGP signature packet");
    reader.Skip(headerLength, "packet header");
    uint8_t version = reader.ReadUInt8("version");
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(packet);
    if (version == 3) {
        ParseVersion3(bytes, available, headerLength);
    } else if (version == 4) {
        ParseVersion4(bytes, available, headerLength);
    } else {
        // The octet is written as a character, not as a number.
        throw DataFormatException(std::string(contract::kSignatureVersionBegin) + static_cast<char>(version) +
                                  contract::kSignatureVersionEnd);
    }
}

void PgpSignatureData::ParseVersion3(const unsigned char* packet, unsigned int available,
                                     unsigned int headerLength) {
    ByteReader reader(packet, available, "OpenPGP signature packet");
    reader.Skip(headerLength, "packet header");
    _Version = static_cast<PgpSignatureVersion>(reader.ReadUInt8("version"));
    // The length octet is taken as a signed byte: 0x80 and above become huge
    // lengths, which then have to fit the input.
    const uint8_t lengthOctet = reader.ReadUInt8("hashed length");
    _HashedLength = static_cast<uint16_t>(lengthOctet < 0x80 ? lengthOctet : lengthOctet | 0xFF00);
    const unsigned char* hashed = reader.ReadBytes(_HashedLength, "hashed data");
    std::unique_ptr<unsigned char[]> hashedData(new unsigned char[_HashedLength]);
    if (_HashedLength != 0) {
        std::memcpy(hashedData.get(), hashed, _HashedLength);
    }

    std::memcpy(_IssuerKeyId, reader.ReadBytes(8, "issuer key ID"), 8);
    uint8_t algorithm = reader.ReadUInt8("public-key algorithm");
    CheckPublicKeyAlgorithm(static_cast<char>(algorithm));
    _PublicKeyAlgorithm = algorithm;
    _HashAlgorithm = static_cast<PgpHashAlgorithm>(reader.ReadUInt8("hash algorithm"));
    std::memcpy(_Left16Bits, reader.ReadBytes(2, "left 16 bits"), 2);

    // For a packet that fills its input this is exactly the MPI's byte count.
    _SignatureSize = static_cast<uint16_t>(available - 24);
    std::unique_ptr<MPI> value(
        new MPI(reinterpret_cast<const char*>(reader.Current()), _SignatureSize, reader.Remaining()));

    _HashedData = hashedData.release();
    _SignatureValue = value.release();
}

void PgpSignatureData::ParseVersion4(const unsigned char* packet, unsigned int available,
                                     unsigned int headerLength) {
    ByteReader reader(packet, available, "OpenPGP signature packet");
    reader.Skip(headerLength, "packet header");
    _Version = static_cast<PgpSignatureVersion>(reader.ReadUInt8("version"));
    _Type = static_cast<PgpSignatureType>(reader.ReadUInt8("signature type"));
    uint8_t algorithm = reader.ReadUInt8("public-key algorithm");
    CheckPublicKeyAlgorithm(static_cast<char>(algorithm));
    _PublicKeyAlgorithm = algorithm;
    _HashAlgorithm = static_cast<PgpHashAlgorithm>(reader.ReadUInt8("hash algorithm"));

    _HashedLength = reader.ReadUInt16("hashed length");
    const unsigned char* hashed = reader.ReadBytes(_HashedLength, "hashed subpackets");
    std::unique_ptr<unsigned char[]> hashedData(new unsigned char[_HashedLength]);
    if (_HashedLength != 0) {
        std::memcpy(hashedData.get(), hashed, _HashedLength);
    }
    _UnhashedLength = reader.ReadUInt16("unhashed length");

    // Only one-byte subpacket lengths are understood. After an issuer
    // subpacket the cursor moves past it; after any other it moves to the
    // subpacket's last byte, so the walk may go on from inside a subpacket.
    // The walk runs at least once, and the limit wraps for an empty area.
    size_t cursor = reader.Offset();
    uint32_t total = 0;
    const uint32_t limit = static_cast<uint32_t>(_UnhashedLength) - 1;
    do {
        reader.Seek(cursor, "unhashed subpacket");
        uint8_t length = reader.ReadUInt8("unhashed subpacket length");
        uint8_t type = reader.ReadUInt8("unhashed subpacket type");
        if (type == kIssuerSubpacket) {
            if (length != kIssuerSubpacketLength) {
                throw DataFormatException(contract::kWrongIssuerIdSize);
            }
            std::memcpy(_IssuerKeyId, reader.ReadBytes(8, "issuer key ID"), 8);
            cursor += 1 + length;
        } else {
            if (length == 0) {
                throw DataFormatException(
                    "OpenPGP signature packet: unhashed subpacket of length 0 stops the subpacket walk");
            }
            cursor += length;
        }
        total += length;
    } while (total < limit);

    reader.Seek(cursor, "left 16 bits");
    std::memcpy(_Left16Bits, reader.ReadBytes(2, "left 16 bits"), 2);

    // For a packet with a 2-byte length header that fills its input this is
    // exactly the MPI's byte count.
    _SignatureSize = static_cast<uint16_t>(available - _UnhashedLength - _HashedLength - 15);
    std::unique_ptr<MPI> value(
        new MPI(reinterpret_cast<const char*>(reader.Current()), _SignatureSize, reader.Remaining()));

    _HashedData = hashedData.release();
    _SignatureValue = value.release();
}

PgpSignatureData::PgpSignatureData(PgpSignatureVersion version, const char* issuerKeyId,
                                   unsigned short signatureBits, PgpSignatureType type, PgpHashAlgorithm hash)
    : _SignatureValue(nullptr), _IssuerKeyId{}, _HashedLength(0), _HashedData(nullptr), _UnhashedLength(0),
      _SignatureSize(signatureBits), _Version(version), _Type(type), _PublicKeyAlgorithm(1),
      _HashAlgorithm(hash), _Left16Bits{} {
    if (issuerKeyId == nullptr) {
        throw ArgumentException(exception_text::NullArgument("PgpSignatureData::PgpSignatureData"));
    }
    std::memcpy(_IssuerKeyId, issuerKeyId, 8);

    unsigned char now[4];
    StoreBigEndian32(now, static_cast<uint32_t>(std::time(nullptr)));
    if (version == PgpSignatureVersion3) {
        // Type octet (always written as 0x00) and creation time.
        _HashedData = new unsigned char[5]{0x00, now[0], now[1], now[2], now[3]};
        _HashedLength = 5;
    } else if (version == PgpSignatureVersion4) {
        // One signature-creation-time subpacket; room for one issuer
        // subpacket in the unhashed area.
        _HashedData = new unsigned char[6]{0x05, 0x02, now[0], now[1], now[2], now[3]};
        _HashedLength = 6;
        _UnhashedLength = 10;
    } else {
        throw NotSupportedException(contract::kBuildSignatureVersion);
    }
}

PgpSignatureData::~PgpSignatureData() {
    delete[] _HashedData;
    _HashedData = nullptr;
    delete _SignatureValue;
    _SignatureValue = nullptr;
}
