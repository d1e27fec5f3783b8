// What the bench programs share about an RPM package's layout: big-endian
// reads, the lead and header magic, the signature tags they check, and the
// host's digest mapping and owning digest context.
#ifndef BENCH_BENCHPACKAGE_H
#define BENCH_BENCHPACKAGE_H

#include "OpenSslDigest.h"

#include <cstddef>
#include <cstdint>

namespace bench {

constexpr size_t kLeadSize = 96;
constexpr unsigned char kHeaderMagic[] = {0x8E, 0xAD, 0xE8, 0x01};
constexpr uint32_t kTagRsaHeader = 268;
constexpr uint32_t kTagSha1Header = 269;
constexpr uint32_t kTagPgp = 1002;
constexpr uint32_t kTagMd5 = 1004;

using MdContext = host::DigestContext;

inline uint32_t Be32(const unsigned char* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

inline uint16_t Be16(const unsigned char* p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

} // namespace bench

#endif
