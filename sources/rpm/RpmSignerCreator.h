// Recognises RPM packages (lead format 3.0) and makes RpmSigner objects.
#ifndef SIGNING_RPM_SIGNER_CREATOR_H
#define SIGNING_RPM_SIGNER_CREATOR_H

#include "SignerCreator.h"

class RpmSignerCreator : public SignerCreator {
public:
    ~RpmSignerCreator() override;

    bool IsMe(FileHelper* file) override;
    const char* GetFileExtensions() override;
    Signer* GetSigner(unsigned int mode) override;

    static const char* _FileExtensions;
};

#endif
