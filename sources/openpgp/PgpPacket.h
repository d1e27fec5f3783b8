// Old-format OpenPGP packets: the packet header, the version-4 RSA public
// key and version-3 / version-4 signature packets.
#ifndef SIGNING_PGP_PACKET_H
#define SIGNING_PGP_PACKET_H

#include "Base.h"
#include "MPI.h"

#include <cstdint>

// The values are the OpenPGP octets.
enum PgpSignatureVersion : unsigned char {
    PgpSignatureVersion3 = 3,
    PgpSignatureVersion4 = 4,
};

enum PgpSignatureType : unsigned char {
    PgpSignatureBinary = 0x00,
    PgpSignatureText = 0x01,
    PgpSignatureStandalone = 0x02,
    PgpSignatureGenericCertification = 0x10,
    PgpSignaturePersonaCertification = 0x11,
    PgpSignatureCasualCertification = 0x12,
    PgpSignaturePositiveCertification = 0x13,
    PgpSignatureSubkeyBinding = 0x18,
    PgpSignaturePrimaryKeyBinding = 0x19,
    PgpSignatureDirectKey = 0x1F,
    PgpSignatureKeyRevocation = 0x20,
    PgpSignatureSubkeyRevocation = 0x28,
    PgpSignatureCertificationRevocation = 0x30,
    PgpSignatureTimestamp = 0x40,
    PgpSignatureThirdPartyConfirmation = 0x50,
};

enum PgpHashAlgorithm : unsigned char {
    PgpHashMd5 = 1,
    PgpHashSha1 = 2,
    PgpHashSha256 = 8,
    PgpHashSha384 = 9,
    PgpHashSha512 = 10,
    PgpHashSha224 = 11,
};

class PgpPacket : public Base {
public:
    PgpPacket();
    ~PgpPacket() override;

    // Total length (header and body) of the old-format packet whose tag byte
    // is at packet; stores the header length. The caller guarantees that the
    // length octets are readable.
    static unsigned int ParseLengthTag(char* packet, unsigned int& headerLength);
    // The same, reading only within the available bytes at packet.
    static unsigned int ParseLengthTag(const char* packet, unsigned int available,
                                       unsigned int& headerLength);
    // Throws unless the algorithm octet is accepted as RSA.
    static void CheckPublicKeyAlgorithm(char algorithm);

    unsigned int GetLength() const { return _Length; }

protected:
    uint32_t _Length;
};

class PgpPublicKey : public PgpPacket {
public:
    // available: bytes from the packet's first byte to the end of the input.
    PgpPublicKey(char* packet, unsigned int available);
    ~PgpPublicKey() override;

    PgpPublicKey(const PgpPublicKey&) = delete;
    PgpPublicKey& operator=(const PgpPublicKey&) = delete;

    const MPI* GetExponent() const { return _Exponent; }
    const MPI* GetModulus() const { return _Modulus; }

private:
    MPI* _Exponent;
    MPI* _Modulus;
};

class PgpSignatureData : public PgpPacket {
public:
    // available: bytes from the packet's first byte to the end of the input.
    PgpSignatureData(char* packet, unsigned int available);
    // The fields of a packet to be signed; no signature value yet.
    PgpSignatureData(PgpSignatureVersion version, const char* issuerKeyId, unsigned short signatureBits,
                     PgpSignatureType type, PgpHashAlgorithm hash);
    ~PgpSignatureData() override;

    PgpSignatureData(const PgpSignatureData&) = delete;
    PgpSignatureData& operator=(const PgpSignatureData&) = delete;

    // Null for a packet built for signing.
    const MPI* GetSignatureValue() const { return _SignatureValue; }
    // 8 raw octets.
    const unsigned char* GetIssuerKeyId() const { return _IssuerKeyId; }
    uint16_t GetHashedLength() const { return _HashedLength; }
    const unsigned char* GetHashedData() const { return _HashedData; }
    uint16_t GetUnhashedLength() const { return _UnhashedLength; }
    // Parsed packet: the byte bound given to the MPI reader; built packet:
    // the signature's size in bits.
    uint16_t GetSignatureSize() const { return _SignatureSize; }
    PgpSignatureVersion GetVersion() const { return _Version; }
    PgpSignatureType GetType() const { return _Type; }
    unsigned char GetPublicKeyAlgorithm() const { return _PublicKeyAlgorithm; }
    PgpHashAlgorithm GetHashAlgorithm() const { return _HashAlgorithm; }
    // 2 octets: the first two bytes of the signed hash value.
    const unsigned char* GetLeft16Bits() const { return _Left16Bits; }

private:
    void ParseVersion3(const unsigned char* packet, unsigned int available, unsigned int headerLength);
    void ParseVersion4(const unsigned char* packet, unsigned int available, unsigned int headerLength);

    MPI* _SignatureValue;
    unsigned char _IssuerKeyId[8];
    uint16_t _HashedLength;
    unsigned char* _HashedData;
    uint16_t _UnhashedLength;
    uint16_t _SignatureSize;
    PgpSignatureVersion _Version;
    PgpSignatureType _Type;
    unsigned char _PublicKeyAlgorithm;
    PgpHashAlgorithm _HashAlgorithm;
    unsigned char _Left16Bits[2];
};

#endif
