// The signer of RPM packages: parses the lead and the signature header,
// streams the main header and payload through the digests the signature
// header needs, and judges the package.
#ifndef SIGNING_RPM_SIGNER_H
#define SIGNING_RPM_SIGNER_H

#include "Signer.h"

#include <cstdint>
#include <string>

class RpmSignature;

class RpmSigner : public Signer {
public:
    explicit RpmSigner(unsigned int mode);
    ~RpmSigner() override;

    // The verdict (ProcessingResult), or ProcessingError with the exception's text in
    // message when anything throws. The first and third flags are ignored.
    int Process(bool, bool copy, bool, std::string& message) override;
    using Signer::BuildContentInfo;
    void BuildContentInfo(bool) override;

    // Reads the lead and the signature header; returns a new container
    // (owned by the caller) and the offset of the main header.
    RpmSignature* ParseSignature(unsigned long& mainHeaderOffset, bool copy);
    // Feeds the main header and the payload into the digests the container
    // needs and hands them over to it; returns signature.
    RpmSignature* PassDigestsToSignature(RpmSignature* signature, uint64_t mainHeaderOffset, bool copy) const;

    const unsigned char* GetSignatureHeader() const { return _SignatureHeader; }
    uint32_t GetEntryCount() const { return _EntryCount; }
    uint32_t GetFlag() const { return _Flag; }

private:
    // The signature header's index and data store as read; owned.
    unsigned char* _SignatureHeader;
    uint32_t _EntryCount;
    uint32_t _Flag;
};

#endif
