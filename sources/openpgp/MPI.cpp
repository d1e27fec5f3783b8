#include "MPI.h"

#include "ByteReader.h"
#include "ContractTexts.h"
#include "Exceptions.h"

#include <climits>
#include <cstring>
#include <memory>

MPI::MPI(char* data, unsigned long available)
    // The caller vouches for the bit count and available value bytes.
    : MPI(data, available, available > ULONG_MAX - 2 ? ULONG_MAX : available + 2) {}

MPI::MPI(const char* data, unsigned long available, unsigned long bufferSize)
    : _LengthInBits(0), _LengthInBytes(0), _Value(nullptr) {
    ByteReader reader(data, bufferSize, "Multi-precision integer");
    uint16_t bits = reader.ReadUInt16("bit count");
    uint64_t bytes = (static_cast<uint64_t>(bits) + 7) / 8;
    if (bytes > available) {
        throw DataFormatException(contract::kMpiTooLong);
    }
    const unsigned char* value = reader.ReadBytes(bytes, "value");
    std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes]);
    if (bytes != 0) {
        std::memcpy(copy.get(), value, bytes);
    }
    _LengthInBits = bits;
    _LengthInBytes = bytes;
    _Value = copy.release();
}

MPI::~MPI() {
    delete[] _Value;
    _Value = nullptr;
}
