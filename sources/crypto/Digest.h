// A message digest computed by OpenSSL's EVP interface.
#ifndef SIGNING_DIGEST_H
#define SIGNING_DIGEST_H

#include "Base.h"
#include "DigestBase.h"

#include <openssl/evp.h>

#include <memory>

class Digest : public DigestBase {
public:
    // Ready for Update on return.
    explicit Digest(soapWrap::HashAlgorithm type);
    ~Digest() override;

    Digest* Copy() const override;
    void Update(const void* data, unsigned long length) override;
    unsigned int GetLength() const override;
    bool GetValue(unsigned char* out) override;
    unsigned char* GetValue() override;

    // Starts the computation anew. The cached value stays: a GetValue() after
    // this still returns the value computed before.
    void Reinitialize();

    static const EVP_MD* GetMd(soapWrap::HashAlgorithm type);
    static unsigned int GetLength(soapWrap::HashAlgorithm type);
    static int GetNID(soapWrap::HashAlgorithm type);
    // Accepts digest NIDs and the matching "<digest>WithRSAEncryption" NIDs.
    static soapWrap::HashAlgorithm GetTypeByNid(unsigned int nid);
    // oid holds the content bytes of a DER OBJECT IDENTIFIER (no tag, no length).
    static soapWrap::HashAlgorithm GetTypeByOid(soapWrap::Binary* oid);

private:
    struct ContextDeleter {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };

    const EVP_MD* _Md; // not owned
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> _Context;
};

#endif
