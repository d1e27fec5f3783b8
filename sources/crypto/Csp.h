// A crypto service provider: checks a signature over a digest value with a
// public key.
#ifndef SIGNING_CSP_H
#define SIGNING_CSP_H

class Csp {
public:
    virtual ~Csp();

    // nid is the OpenSSL NID of the digest algorithm. 1 for a valid signature, 0 otherwise.
    virtual int Verify(int nid, const unsigned char* digest, unsigned int digestLength,
                       const unsigned char* signature, unsigned int signatureLength) = 0;
};

#endif
