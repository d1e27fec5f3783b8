// The digest-holding base of signature containers and the verdict of a
// signature check.
#ifndef SIGNING_SIGNATURE_H
#define SIGNING_SIGNATURE_H

#include "Base.h"
#include "DigestBase.h"

#include <cstdint>
#include <map>
#include <string>

// The verdict of a signature check, and every number RpmSigner::Process
// answers: rpm_verify turns each into a status.
enum ProcessingResult : int32_t {
    // No header-only signature; both digests matched.
    Unsigned = 0,
    // Every required check passed.
    Valid = 1,
    // A signature did not verify.
    InvalidSignature = 2,
    // The SHA-1 header hash or the MD5 value did not match.
    InvalidHash = 3,
    // A broken package layout. No check answers it today; rpm_verify still
    // has a status for it.
    InvalidStructure = 4,
    // An exception ended processing; the message is its text. Only
    // RpmSigner::Process answers it.
    ProcessingError = 5,
    // A header-only signature but no header-and-payload signature.
    NoPayloadSignature = 8,
};

class Signature : public Base {
public:
    Signature();
    // Releases the digests held in the map; a single digest is borrowed and
    // stays with its owner. Additional-info items are not released.
    ~Signature() override;

    Signature(const Signature&) = delete;
    Signature& operator=(const Signature&) = delete;

    virtual ProcessingResult Verify(std::string& message) const = 0;
    virtual ProcessingResult Sign(soapWrap::Binary* out, const soapWrap::Binary* in,
                                  std::string& message) = 0;
    virtual soapWrap::HashAlgorithm GetHashAlgorithm() = 0;
    // 1 (RSA), the only public-key algorithm of the system.
    virtual uint32_t GetPublicKeyAlgorithm() const;
    virtual void UpdateDigests();

    // The first digest is held alone and borrowed; from the second on all of
    // them live in a map and are owned. A digest stored under a key already
    // in the map replaces it without releasing the old one.
    void SetDigest(int key, DigestBase* digest);
    DigestBase* GetDigest(int key) const;

    // Reached by no entry point (additional info, GetSignedHashSize).
    void SetAdditionalInfo(int key, soapWrap::Binary* data);
    soapWrap::Binary* GetAdditionalInfo(int key) const;

    unsigned int GetSignedHashSize() const;

protected:
    std::map<int, DigestBase*>* _Digests;
    DigestBase* _SingleDigest;
    int _SingleDigestKey;
    std::map<int, soapWrap::Binary*> _AdditionalInfo;
};

#endif
