#include "PgpSignature.h"

#include "ByteReader.h"
#include "CertificateManager.h"
#include "ContractTexts.h"
#include "Digest.h"
#include "DigestSlot.h"
#include "Exceptions.h"
#include "PgpCertificate.h"
#include "RsaCsp.h"

#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

// OpenPGP hash-algorithm octets and the algorithms they stand for.
struct HashMapping {
    unsigned char octet;
    soapWrap::HashAlgorithm algorithm;
};
constexpr HashMapping kHashMappings[] = {
    {PgpHashMd5, soapWrap::MD5},       {PgpHashSha1, soapWrap::SHA1},     {PgpHashSha256, soapWrap::SHA256},
    {PgpHashSha384, soapWrap::SHA384}, {PgpHashSha512, soapWrap::SHA512}, {PgpHashSha224, soapWrap::SHA224},
};

// Fixed parts of a signature packet: the old-format tag byte of a signature
// packet with a 2-byte length, the size of that header, and the bytes around
// the signature value of each version.
constexpr unsigned char kSignaturePacketTag = 0x89;
constexpr unsigned int kPacketHeaderSize = 3;
constexpr unsigned int kVersion3Overhead = 24;
constexpr unsigned int kVersion4Overhead = 31;
constexpr unsigned int kVersion4TrailerOverhead = 15;
constexpr unsigned char kVersion3HashedLength = 5;
constexpr unsigned char kIssuerSubpacketLength = 9;
constexpr unsigned char kIssuerSubpacketType = 16;
constexpr unsigned int kIssuerKeyIdSize = 8;
// The final trailer of a version-4 signature: version, 0xFF, and the
// 4-byte count of the hashed bytes, which are 6 more than the subpackets.
constexpr unsigned char kVersion4TrailerMarker = 0xFF;
constexpr unsigned int kVersion4HashedHeaderSize = 6;

// Writes into a packet buffer without ever passing its end.
class PacketWriter {
public:
    PacketWriter(unsigned char* data, uint32_t size) : m_Data(data), m_Size(size) {}
    void Put(unsigned int offset, const unsigned char* bytes, unsigned int count) {
        if (offset > m_Size || count > m_Size - offset) {
            throw ArgumentException("The PGP signature packet buffer is too small for the signature");
        }
        if (count > 0) {
            std::memcpy(m_Data + offset, bytes, count);
        }
    }
    void PutByte(unsigned int offset, unsigned char value) { Put(offset, &value, 1); }
    void PutBigEndian16(unsigned int offset, unsigned int value) {
        unsigned char bytes[2];
        StoreBigEndian16(bytes, static_cast<uint16_t>(value));
        Put(offset, bytes, 2);
    }

private:
    unsigned char* m_Data;
    uint32_t m_Size;
};

} // namespace

PgpSignature::PgpSignature(PgpSignatureData* signatureData) : _SignatureData(signatureData) {
    if (signatureData == nullptr) {
        throw ArgumentException(exception_text::NullArgument("PgpSignature::PgpSignature"));
    }
}

PgpSignature::~PgpSignature() = default;

soapWrap::HashAlgorithm PgpSignature::ToHashAlgorithm(unsigned char pgpHashAlgorithm) {
    for (const HashMapping& mapping : kHashMappings) {
        if (mapping.octet == pgpHashAlgorithm) {
            return mapping.algorithm;
        }
    }
    throw NotSupportedException(contract::kUnsupportedPgpHash);
}

PgpHashAlgorithm PgpSignature::GetPgpHashAlgorithm(soapWrap::HashAlgorithm algorithm) {
    for (const HashMapping& mapping : kHashMappings) {
        if (mapping.algorithm == algorithm) {
            return static_cast<PgpHashAlgorithm>(mapping.octet);
        }
    }
    throw NotSupportedException(contract::kUnsupportedPgpHash);
}

soapWrap::HashAlgorithm PgpSignature::GetHashAlgorithm() {
    return ToHashAlgorithm(_SignatureData->GetHashAlgorithm());
}

unsigned int PgpSignature::GetSignedSize() {
    throw NotImplementedException(contract::kSignedSizeNotImplemented);
}

unsigned int PgpSignature::GetSize(PgpSignatureVersion version, unsigned int signatureBits) {
    switch (version) {
    case PgpSignatureVersion3:
        return signatureBits / 8 + kVersion3Overhead;
    case PgpSignatureVersion4:
        return signatureBits / 8 + kVersion4Overhead;
    default:
        throw NotImplementedException(contract::kSignatureSizeNotImplemented);
    }
}

unsigned int PgpSignature::GetSize() const {
    const unsigned int sizeValue = _SignatureData->GetSignatureSize();
    switch (_SignatureData->GetVersion()) {
    case PgpSignatureVersion3:
        return sizeValue / 8 + kVersion3Overhead;
    case PgpSignatureVersion4:
        return sizeValue / 8 + _SignatureData->GetHashedLength() + _SignatureData->GetUnhashedLength() +
               kVersion4TrailerOverhead;
    default:
        return 0;
    }
}

DigestBase* PgpSignature::UpdateHash() const {
    DigestBase* signedData = GetDigest(kSlotSignedData);
    if (signedData == nullptr) {
        throw NotDefinedException("The PGP signature has no digest of the signed data");
    }
    // The container's digest stays as it is; the trailer goes into a copy.
    std::unique_ptr<DigestBase> digest(signedData->Copy());
    const PgpSignatureData& packet = *_SignatureData;
    switch (packet.GetVersion()) {
    case PgpSignatureVersion3:
        // Signature type and creation time.
        digest->Update(packet.GetHashedData(), packet.GetHashedLength());
        break;
    case PgpSignatureVersion4: {
        const unsigned char version = PgpSignatureVersion4;
        const unsigned char type = packet.GetType();
        const unsigned char publicKeyAlgorithm = packet.GetPublicKeyAlgorithm();
        const unsigned char hashAlgorithm = packet.GetHashAlgorithm();
        digest->Update(&version, 1);
        digest->Update(&type, 1);
        digest->Update(&publicKeyAlgorithm, 1);
        digest->Update(&hashAlgorithm, 1);
        unsigned char hashedLength[2];
        StoreBigEndian16(hashedLength, packet.GetHashedLength());
        digest->Update(hashedLength, sizeof(hashedLength));
        digest->Update(packet.GetHashedData(), packet.GetHashedLength());
        unsigned char trailer[6] = {PgpSignatureVersion4, kVersion4TrailerMarker};
        StoreBigEndian32(trailer + 2, packet.GetHashedLength() + kVersion4HashedHeaderSize);
        digest->Update(trailer, sizeof(trailer));
        break;
    }
    default:
        break;
    }
    return digest.release();
}

ProcessingResult PgpSignature::Verify(std::string& message) const {
    // A version-3 signature hashes exactly its type and creation time. Any
    // other hashed length would let bytes move between the signed data and
    // the packet (a length of 0 with those 5 bytes appended to the data
    // verifies just the same), so such a packet is never checked.
    if (_SignatureData->GetVersion() == PgpSignatureVersion3 &&
        _SignatureData->GetHashedLength() != kVersion3HashedLength) {
        throw DataFormatException(
            "OpenPGP signature packet: a version 3 signature hashes exactly 5 bytes, not " +
            std::to_string(_SignatureData->GetHashedLength()));
    }
    std::unique_ptr<DigestBase> digest(UpdateHash());
    const unsigned int length = digest->GetLength();
    const unsigned char* value = digest->GetValue();

    // The key file is read anew for every signature.
    auto* certificate = static_cast<PgpCertificate*>(CertificateManager::Instance()->LoadPgpPublicKey());
    const PgpSignatureData& packet = *_SignatureData;

    // Quick check: the first two bytes of the hash are stored in the packet.
    if (std::memcmp(packet.GetLeft16Bits(), value, 2) != 0) {
        message += contract::kDigestDoesNotCorrespond;
        return InvalidSignature;
    }

    // The key's ID is the issuer of the key block's (last) signature.
    const PgpSignatureData* keySignature =
        certificate->GetMessage() != nullptr ? certificate->GetMessage()->GetSignature() : nullptr;
    if (keySignature == nullptr ||
        std::memcmp(packet.GetIssuerKeyId(), keySignature->GetIssuerKeyId(), kIssuerKeyIdSize) != 0) {
        message += contract::kDifferentCertificate;
        return InvalidSignature;
    }

    auto* provider = dynamic_cast<RsaCsp*>(certificate->GetCsp());
    if (provider == nullptr) {
        throw InternalErrorException("The PGP certificate has no RSA verification provider");
    }
    const MPI* signatureValue = packet.GetSignatureValue();
    if (signatureValue == nullptr) {
        throw DataFormatException("The PGP signature packet carries no signature value");
    }
    const int nid = Digest::GetNID(digest->GetType());
    if (provider->Verify(nid, value, length, signatureValue->GetValue(),
                         static_cast<unsigned int>(signatureValue->GetLengthInBytes())) != 0) {
        return Valid;
    }

    const char* providerError = provider->GetLastError();
    if (providerError == nullptr) {
        // A PKCS #1 check leaves no error text, and a failed RSA check has
        // always ended in building the message from that absent text. The
        // host knows a failed RSA check by the text of the logic error that
        // this raised in the standard library the plug-in was first built
        // with; newer libraries word it differently, so it is raised here
        // with exactly that text.
        throw std::logic_error(contract::kFailedRsaCheckLogicError);
    }
    message = std::string(contract::kSignatureNotValid) + providerError;
    return InvalidSignature;
}

ProcessingResult PgpSignature::Sign(soapWrap::Binary* packet, const soapWrap::Binary* signatureValue,
                                    std::string& /*message*/) {
    if (packet == nullptr || signatureValue == nullptr) {
        throw ArgumentException(exception_text::NullArgument("PgpSignature::Sign"));
    }
    if (packet->data == nullptr) {
        const unsigned int size = GetSize();
        packet->data = new unsigned char[size]();
        packet->size = size;
    }
    DigestBase* signedData = GetDigest(kSlotSignedData);
    if (signedData == nullptr) {
        throw NotDefinedException("The PGP signature has no digest of the signed data");
    }
    const unsigned char* value = signedData->GetValue();

    const PgpSignatureData& fields = *_SignatureData;
    const unsigned int sizeValue = fields.GetSignatureSize();
    PacketWriter out(packet->data, packet->size);
    switch (fields.GetVersion()) {
    case PgpSignatureVersion3:
        out.PutByte(0, kSignaturePacketTag);
        out.PutBigEndian16(1, GetSize(PgpSignatureVersion3, sizeValue) - kPacketHeaderSize);
        out.PutByte(3, PgpSignatureVersion3);
        out.PutByte(4, kVersion3HashedLength);
        out.Put(5, fields.GetHashedData(), kVersion3HashedLength);
        out.Put(10, fields.GetIssuerKeyId(), kIssuerKeyIdSize);
        out.PutByte(18, fields.GetPublicKeyAlgorithm());
        out.PutByte(19, fields.GetHashAlgorithm());
        out.Put(20, value, 2);
        out.PutBigEndian16(22, sizeValue);
        out.Put(24, signatureValue->data, signatureValue->size);
        break;
    case PgpSignatureVersion4:
        out.PutByte(0, kSignaturePacketTag);
        out.PutBigEndian16(1, GetSize(PgpSignatureVersion4, sizeValue) - kPacketHeaderSize);
        out.PutByte(3, PgpSignatureVersion4);
        out.PutByte(4, fields.GetType());
        out.PutByte(5, fields.GetPublicKeyAlgorithm());
        out.PutByte(6, fields.GetHashAlgorithm());
        out.PutBigEndian16(7, fields.GetHashedLength());
        out.Put(9, fields.GetHashedData(), fields.GetHashedLength());
        // From here the layout assumes the 6 hashed bytes of a built packet.
        out.PutBigEndian16(15, fields.GetUnhashedLength());
        out.PutByte(17, kIssuerSubpacketLength);
        out.PutByte(18, kIssuerSubpacketType);
        out.Put(19, fields.GetIssuerKeyId(), kIssuerKeyIdSize);
        out.Put(27, value, 2);
        out.PutBigEndian16(29, sizeValue);
        out.Put(31, signatureValue->data, signatureValue->size);
        break;
    default:
        break;
    }
    return Valid;
}
