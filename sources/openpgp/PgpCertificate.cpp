#include "PgpCertificate.h"

#include "ContractTexts.h"
#include "Exceptions.h"
#include "RsaCsp.h"

#include <memory>

PgpCertificate::PgpCertificate(PgpMessage* message) : _Csp(nullptr), _Message(message), _KeyLength(0) {
    // The certificate owns the message from here on, also when it refuses it.
    std::unique_ptr<PgpMessage> owned(message);
    const PgpPublicKey* key = message == nullptr ? nullptr : message->GetPublicKey();
    if (key == nullptr) {
        throw ArgumentException(contract::kCertificateWithoutMessage);
    }
    const MPI* modulus = key->GetModulus();
    const MPI* exponent = key->GetExponent();
    _KeyLength = modulus->GetLengthInBits();
    _Csp = new RsaCsp(modulus->GetValue(), static_cast<int>(modulus->GetLengthInBytes()),
                      exponent->GetValue(), static_cast<int>(exponent->GetLengthInBytes()));
    static_cast<void>(owned.release());
}

PgpCertificate::~PgpCertificate() {
    delete _Csp;
    _Csp = nullptr;
    delete _Message;
    _Message = nullptr;
}
