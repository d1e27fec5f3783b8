// An OpenPGP multi-precision integer: a 2-byte big-endian bit count followed
// by (bits + 7) / 8 bytes of big-endian value.
#ifndef SIGNING_MPI_H
#define SIGNING_MPI_H

#include "Base.h"

#include <cstdint>

class MPI : public Base {
public:
    // available bounds the value bytes (the bytes after the bit count); the
    // caller guarantees that the 2 + available bytes at data are readable.
    MPI(char* data, unsigned long available);
    // The same check against available, and in addition the integer must
    // lie within the bufferSize bytes at data (bit count included), whatever
    // available claims.
    MPI(const char* data, unsigned long available, unsigned long bufferSize);
    ~MPI() override;

    MPI(const MPI&) = delete;
    MPI& operator=(const MPI&) = delete;

    uint64_t GetLengthInBits() const { return _LengthInBits; }
    uint64_t GetLengthInBytes() const { return _LengthInBytes; }
    const unsigned char* GetValue() const { return _Value; }

private:
    uint64_t _LengthInBits;
    uint64_t _LengthInBytes;
    unsigned char* _Value;
};

#endif
