// A factory that recognises a kind of file from its first bytes and makes
// the signer for it.
#ifndef SIGNING_SIGNER_CREATOR_H
#define SIGNING_SIGNER_CREATOR_H

class FileHelper;
class Signer;

class SignerCreator {
public:
    virtual ~SignerCreator();

    // Reads the file; does not keep it.
    virtual bool IsMe(FileHelper* file) = 0;
    // Semicolon-separated extensions without dots; none here.
    virtual const char* GetFileExtensions();
    // A new signer, owned by the caller.
    virtual Signer* GetSigner(unsigned int mode) = 0;
};

#endif
