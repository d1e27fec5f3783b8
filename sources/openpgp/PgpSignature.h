// One OpenPGP signature over data whose running digest the container holds
// under key 0: the hash trailer, the quick check, the issuer check and the
// RSA check against the store's public key.
#ifndef SIGNING_PGP_SIGNATURE_H
#define SIGNING_PGP_SIGNATURE_H

#include "PgpPacket.h"
#include "Signature.h"

class PgpSignature : public Signature {
public:
    // The packet stays owned by the message that parsed it.
    explicit PgpSignature(PgpSignatureData* signatureData);
    ~PgpSignature() override;

    // Valid or InvalidSignature; a failed RSA check ends in std::logic_error.
    ProcessingResult Verify(std::string& message) const override;
    // Reached by no entry point: nothing signs a package.
    // Lays out the packet into packet (allocated when it has no data).
    ProcessingResult Sign(soapWrap::Binary* packet, const soapWrap::Binary* signatureValue,
                          std::string& message) override;
    soapWrap::HashAlgorithm GetHashAlgorithm() override;
    virtual unsigned int GetSignedSize();

    // A copy of digest 0 with the signature's hash trailer added; the caller owns it.
    DigestBase* UpdateHash() const;

    static PgpHashAlgorithm GetPgpHashAlgorithm(soapWrap::HashAlgorithm algorithm);
    // The algorithm of an OpenPGP hash-algorithm octet.
    static soapWrap::HashAlgorithm ToHashAlgorithm(unsigned char pgpHashAlgorithm);
    // Size of a packet of the given version for a signature of signatureBits bits.
    static unsigned int GetSize(PgpSignatureVersion version, unsigned int signatureBits);
    unsigned int GetSize() const;

    PgpSignatureData* GetSignatureData() const { return _SignatureData; }

private:
    PgpSignatureData* _SignatureData;
};

#endif
