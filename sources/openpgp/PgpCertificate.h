// An OpenPGP public-key certificate: the parsed key message and the RSA
// verification provider built from its public key.
#ifndef SIGNING_PGP_CERTIFICATE_H
#define SIGNING_PGP_CERTIFICATE_H

#include "Certificate.h"
#include "PgpMessage.h"

#include <cstdint>

class Csp;

class PgpCertificate : public Certificate {
public:
    // Takes over the message (also when the constructor throws).
    explicit PgpCertificate(PgpMessage* message);
    ~PgpCertificate();

    PgpCertificate(const PgpCertificate&) = delete;
    PgpCertificate& operator=(const PgpCertificate&) = delete;

    // The RSA provider (an RsaCsp); owned by the certificate.
    Csp* GetCsp() const { return _Csp; }
    PgpMessage* GetMessage() const { return _Message; }
    // Bit count of the public key's modulus.
    uint64_t GetKeyLength() const { return _KeyLength; }

private:
    Csp* _Csp;
    PgpMessage* _Message;
    uint64_t _KeyLength;
};

#endif
