// The Base64 and Radix-64 decoders over arbitrary text, and encode/decode
// round trips of the same bytes taken as data.
#include "FuzzSupport.h"
#include "FuzzTargets.h"

#include "Base64.h"
#include "Exceptions.h"

#include <cstring>
#include <memory>
#include <string>

namespace {

void Release(soapWrap::Binary* binary) {
    if (binary != nullptr) {
        delete[] binary->data;
        delete binary;
    }
}

} // namespace

int FuzzBase64(const uint8_t* data, size_t size) {
    std::unique_ptr<char[]> text(new char[size]);
    if (size != 0) {
        std::memcpy(text.get(), data, size);
    }
    const unsigned int length = static_cast<unsigned int>(size);

    unsigned int outLength = 0;
    try {
        std::unique_ptr<char[]> decoded(Base64::Decode(text.get(), length, outLength));
        FUZZ_CHECK(decoded != nullptr);
        FUZZ_CHECK(outLength <= length);
    } catch (const Base64OperationException&) {
    }
    try {
        std::unique_ptr<char[]> decoded(Radix64::Decode(text.get(), length, outLength));
        FUZZ_CHECK(decoded != nullptr);
        FUZZ_CHECK(outLength <= length);
    } catch (const Base64OperationException&) {
    } catch (const DataFormatException&) {
    }
    const std::string asString(text.get(), size);
    try {
        soapWrap::Binary* decoded = Base64::Decode(asString);
        FUZZ_CHECK(decoded != nullptr && decoded->size <= length);
        Release(decoded);
    } catch (const Base64OperationException&) {
    }

    // Round trips: whatever Encode makes, Decode gives back unchanged.
    unsigned int encodedLength = 0;
    std::unique_ptr<char[]> encoded(Base64::Encode(text.get(), length, encodedLength));
    FUZZ_CHECK(encodedLength == (length + 2) / 3 * 4);
    std::unique_ptr<char[]> back(Base64::Decode(encoded.get(), encodedLength, outLength));
    FUZZ_CHECK(outLength == length);
    FUZZ_CHECK(size == 0 || std::memcmp(back.get(), data, size) == 0);

    // Radix-64 armor puts a line end before the checksum line.
    soapWrap::Binary binary{reinterpret_cast<unsigned char*>(text.get()), length};
    std::string radix = Radix64::Encode(&binary);
    FUZZ_CHECK(radix.size() == (length + 2) / 3 * 4 + 5);
    radix.insert(radix.size() - 5, "\n");
    soapWrap::Binary* fromRadix = Radix64::Decode(radix);
    FUZZ_CHECK(fromRadix != nullptr && fromRadix->size == length);
    FUZZ_CHECK(size == 0 || std::memcmp(fromRadix->data, data, size) == 0);
    Release(fromRadix);
    return 0;
}
