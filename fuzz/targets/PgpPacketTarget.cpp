// The packet readers over arbitrary bytes. The first byte chooses the
// reader; the rest, copied to an exact heap buffer, is the packet.
#include "FuzzSupport.h"
#include "FuzzTargets.h"

#include "Exceptions.h"
#include "MPI.h"
#include "PgpPacket.h"

#include <climits>
#include <cstring>
#include <memory>

namespace {

void PublicKey(char* packet, unsigned int size) {
    try {
        PgpPublicKey key(packet, size);
        FUZZ_CHECK(key.GetModulus() != nullptr && key.GetExponent() != nullptr);
        FUZZ_CHECK(key.GetModulus()->GetLengthInBytes() + key.GetExponent()->GetLengthInBytes() + 4 <= size);
    } catch (const DataFormatException&) {
    }
}

void SignatureData(char* packet, unsigned int size) {
    try {
        PgpSignatureData signature(packet, size);
        FUZZ_CHECK(signature.GetSignatureValue() != nullptr);
        FUZZ_CHECK(signature.GetSignatureValue()->GetLengthInBytes() + 2 <= size);
        FUZZ_CHECK(signature.GetHashedLength() <= size);
        FUZZ_CHECK(signature.GetVersion() == 3 || signature.GetVersion() == 4);
    } catch (const DataFormatException&) {
    }
}

void Mpi(char* data, unsigned int size) {
    if (size >= 2) {
        // The caller vouches for the bit count and the bytes it names.
        try {
            MPI mpi(data, size - 2);
            FUZZ_CHECK(mpi.GetLengthInBytes() == (mpi.GetLengthInBits() + 7) / 8);
            FUZZ_CHECK(mpi.GetLengthInBytes() <= size - 2);
        } catch (const DataFormatException&) {
        }
    }
    // A bound that claims everything: the buffer size alone must hold.
    try {
        MPI mpi(data, ULONG_MAX, size);
        FUZZ_CHECK(mpi.GetLengthInBytes() + 2 <= size);
    } catch (const DataFormatException&) {
    }
}

void LengthTag(char* packet, unsigned int size) {
    unsigned int headerLength = 0;
    unsigned int total = 0;
    bool parsed = false;
    try {
        total = PgpPacket::ParseLengthTag(packet, size, headerLength);
        FUZZ_CHECK(headerLength == 2 || headerLength == 3 || headerLength == 6);
        FUZZ_CHECK(total >= headerLength);
        parsed = true;
    } catch (const DataFormatException&) {
    }
    // The form without a bound reads the tag byte and its length octets.
    static const unsigned int kOctets[4] = {1, 2, 4, 0};
    if (size != 0 && size >= 1 + kOctets[static_cast<unsigned char>(packet[0]) & 3]) {
        unsigned int unboundedHeader = 0;
        try {
            unsigned int unboundedTotal = PgpPacket::ParseLengthTag(packet, unboundedHeader);
            FUZZ_CHECK(parsed && unboundedTotal == total && unboundedHeader == headerLength);
        } catch (const DataFormatException&) {
            FUZZ_CHECK(!parsed);
        }
    }
}

} // namespace

int FuzzPgpPacket(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const unsigned int length = static_cast<unsigned int>(size - 1);
    std::unique_ptr<char[]> packet(new char[length]);
    if (length != 0) {
        std::memcpy(packet.get(), data + 1, length);
    }
    switch (data[0] & 3) {
    case 0:
        PublicKey(packet.get(), length);
        break;
    case 1:
        SignatureData(packet.get(), length);
        break;
    case 2:
        Mpi(packet.get(), length);
        break;
    default:
        LengthTag(packet.get(), length);
        break;
    }
    return 0;
}
