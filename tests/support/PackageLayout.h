// Where things lie in an RPM package file, as far as the verification reads
// them: the signature header's index and data store, the data of one of its
// tags, and the main header. For tests that change a real package in place.
#ifndef SIGNING_TEST_PACKAGE_LAYOUT_H
#define SIGNING_TEST_PACKAGE_LAYOUT_H

#include "ByteReader.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace testsupport {

inline uint32_t Be32(const std::string& bytes, size_t at) {
    return LoadBigEndian32(reinterpret_cast<const unsigned char*>(bytes.data()) + at);
}

inline void PutBe32(std::string& bytes, size_t at, uint32_t value) {
    StoreBigEndian32(reinterpret_cast<unsigned char*>(&bytes[at]), value);
}

struct PackageLayout {
    static constexpr size_t kSignatureIndex = 112; // lead (96) and header intro (16)

    uint32_t signatureCount = 0;
    uint32_t signatureDataSize = 0;
    size_t signatureStore = 0; // file offset of the signature data store
    size_t mainHeader = 0;     // the store's end, rounded up to eight
    size_t mainHeaderEnd = 0;

    explicit PackageLayout(const std::string& package) {
        signatureCount = Be32(package, 104);
        signatureDataSize = Be32(package, 108);
        signatureStore = kSignatureIndex + 16 * size_t(signatureCount);
        mainHeader = (signatureStore + signatureDataSize + 7) / 8 * 8;
        mainHeaderEnd =
            mainHeader + 16 + 16 * size_t(Be32(package, mainHeader + 8)) + Be32(package, mainHeader + 12);
    }

    // File offset of the index entry of a tag, or 0.
    size_t EntryOf(const std::string& package, uint32_t tag) const {
        for (uint32_t i = 0; i < signatureCount; ++i) {
            if (Be32(package, kSignatureIndex + 16 * i) == tag) {
                return kSignatureIndex + 16 * i;
            }
        }
        return 0;
    }

    // File offsets [first, last) of the data of a signature-header tag: the
    // given length, or the entry's count of bytes.
    std::pair<size_t, size_t> DataOf(const std::string& package, uint32_t tag, size_t length = 0) const {
        const size_t entry = EntryOf(package, tag);
        if (entry == 0) {
            throw std::runtime_error("the package has no signature-header tag " + std::to_string(tag));
        }
        const size_t first = signatureStore + Be32(package, entry + 8);
        return {first, first + (length != 0 ? length : Be32(package, entry + 12))};
    }
};

} // namespace testsupport

#endif
