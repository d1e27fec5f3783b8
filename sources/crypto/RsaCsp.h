// RSA public-key verification: PKCS #1 v1.5 (as OpenPGP uses it) and RSASSA-PSS.
#ifndef SIGNING_RSACSP_H
#define SIGNING_RSACSP_H

#include "Csp.h"
#include "DigestBase.h"

#include <openssl/bn.h>
#include <openssl/rsa.h>

class RsaCsp : public Csp {
public:
    // Big-endian unsigned bytes, as in an OpenPGP MPI.
    RsaCsp(const unsigned char* modulus, int modulusLength, const unsigned char* exponent,
           int exponentLength);
    // The numbers are copied; the caller keeps its own.
    RsaCsp(BIGNUM* modulus, BIGNUM* exponent);
    // Takes ownership of key.
    explicit RsaCsp(RSA* key);
    ~RsaCsp() override;

    // PKCS #1 v1.5 with the DigestInfo of nid. 1 for a valid signature, 0
    // otherwise; stores no error text.
    int Verify(int nid, const unsigned char* digest, unsigned int digestLength,
               const unsigned char* signature, unsigned int signatureLength) override;
    // Reached by no entry point: signatures are checked with PKCS #1 v1.5 (Verify), so
    // GetLastError, which only Verify_PSS sets, stays null.
    // RSASSA-PSS with the salt length taken from the signature. Non-zero for a
    // valid signature; 0 otherwise, and the OpenSSL error text is kept as the
    // last error.
    virtual int Verify_PSS(soapWrap::HashAlgorithm algorithm, const unsigned char* digest,
                           unsigned int digestLength, const unsigned char* signature,
                           unsigned int signatureLength);

    // The text of the calling thread's OpenSSL error queue (which it empties),
    // as a NUL-terminated new array that the caller owns.
    static char* GetErrorMessage();

    // The text stored by the last failed PSS verification; null before one.
    const char* GetLastError() const { return _LastError; }

    RsaCsp(const RsaCsp&) = delete;
    RsaCsp& operator=(const RsaCsp&) = delete;

private:
    RSA* _Key;        // one reference owned (keys made from bytes are shared)
    char* _LastError; // owned, array new
};

#endif
