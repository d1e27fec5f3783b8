// PgpMessage over arbitrary bytes: armored text when the first byte has bit
// 7 clear, binary packets otherwise. A message that yields a public key is
// turned into a PgpCertificate, which builds the RSA provider from it.
#include "FuzzSupport.h"
#include "FuzzTargets.h"

#include "Exceptions.h"
#include "PgpCertificate.h"
#include "PgpMessage.h"

#include <cstring>
#include <memory>

int FuzzPgpMessage(const uint8_t* data, size_t size) {
    // An exact copy on the heap, so that a read past the end is caught.
    std::unique_ptr<char[]> input(new char[size]);
    if (size != 0) {
        std::memcpy(input.get(), data, size);
    }
    const unsigned int length = static_cast<unsigned int>(size);

    char* body = nullptr;
    unsigned int bodyLength = 0;
    if (PgpMessage::SkipHeader(input.get(), length, &body, bodyLength)) {
        FUZZ_CHECK(body >= input.get() && body + bodyLength <= input.get() + size);
    }
    body = nullptr;
    bodyLength = 0;
    PgpMessage::DeArmor(input.get(), length, &body, bodyLength);
    if (size != 0) {
        FUZZ_CHECK(body >= input.get() && body + bodyLength <= input.get() + size);
    }

    std::unique_ptr<PgpMessage> message;
    try {
        message.reset(new PgpMessage(input.get(), length));
    } catch (const DataFormatException&) {
        return 0;
    } catch (const Base64OperationException&) {
        return 0;
    }
    if (const PgpPublicKey* key = message->GetPublicKey()) {
        FUZZ_CHECK(key->GetModulus() != nullptr && key->GetExponent() != nullptr);
        FUZZ_CHECK(key->GetModulus()->GetLengthInBytes() <= size);
    }
    if (const PgpSignatureData* signature = message->GetSignature()) {
        FUZZ_CHECK(signature->GetSignatureValue() != nullptr);
        FUZZ_CHECK(signature->GetHashedLength() == 0 || signature->GetHashedData() != nullptr);
    }
    try {
        // Takes over the message.
        PgpCertificate certificate(message.release());
        FUZZ_CHECK(certificate.GetCsp() != nullptr);
    } catch (const ArgumentException&) {
        // No public key in the message.
    } catch (const std::runtime_error&) {
        // The RSA provider refused the numbers.
    }
    return 0;
}
