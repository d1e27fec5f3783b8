// The per-file-type processor: it is handed an open file and asked to
// Process it.
#ifndef SIGNING_SIGNER_H
#define SIGNING_SIGNER_H

#include "Base.h"
#include "DigestBase.h"

#include <cstdint>
#include <string>

class FileHelper;

class Signer : public Base {
public:
    Signer();
    // Removes the output file from disk and destroys it, then destroys the
    // input file.
    ~Signer() override;

    Signer(const Signer&) = delete;
    Signer& operator=(const Signer&) = delete;

    virtual int Process(bool, bool copy, bool, std::string& message) = 0;
    // Reached by no entry point: the RPM signer's BuildContentInfo throws "Not implemented".
    virtual void BuildContentInfo(bool) = 0;
    virtual void BuildContentInfo(soapWrap::HashAlgorithm, bool);
    virtual bool IsCatSpecificContentInfo();
    virtual DigestBase* GetDigest();
    virtual uint32_t GetFileType();

    // The input file; owned. Whoever made the signer stores it here.
    FileHelper* _File;
    // Where a processed copy goes when Process is told to copy; owned.
    FileHelper* _OutputFile;
    // Settings made by the creator; not read while verifying.
    uint32_t _Setting1;
    uint32_t _Mode;
    uint32_t _Setting2;
};

#endif
