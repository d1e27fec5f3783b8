// Whether this test program is built with AddressSanitizer: some checks take
// a lighter sample there, and resident-memory figures mean nothing under its
// allocator.
#ifndef SIGNING_TEST_SANITIZER_H
#define SIGNING_TEST_SANITIZER_H

#if defined(__SANITIZE_ADDRESS__)
#define SIGNING_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIGNING_TEST_SANITIZED 1
#endif
#endif

namespace testsupport {
#ifdef SIGNING_TEST_SANITIZED
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
} // namespace testsupport

#endif
