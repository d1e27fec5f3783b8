// slre_match over an arbitrary expression and subject. The first byte holds
// the flags (bit 0) and the number of capture entries (bits 1-4); the
// expression runs to the first NUL and the subject is the rest (at most
// 16 bytes of it).
#include "FuzzSupport.h"
#include "FuzzTargets.h"

#include "slre.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr size_t kMaxSubject = 16;

} // namespace

int FuzzSlre(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const int flags = data[0] & 1;
    const int captureCount = (data[0] >> 1) & 15;
    const uint8_t* rest = data + 1;
    const size_t restSize = size - 1;
    const uint8_t* nul = static_cast<const uint8_t*>(std::memchr(rest, 0, restSize));
    const size_t expressionLength = nul == nullptr ? restSize : static_cast<size_t>(nul - rest);
    const std::string expression(reinterpret_cast<const char*>(rest), expressionLength);
    const size_t subjectOffset = nul == nullptr ? restSize : expressionLength + 1;
    // The matcher backtracks exponentially by design, up to its step budget;
    // with long subjects the fuzzer would spend its time on budget-bound
    // inputs. Bounds errors at the subject's end show with short ones too.
    const int subjectLength = static_cast<int>(std::min<size_t>(restSize - subjectOffset, kMaxSubject));

    // Exact copies on the heap, so that a read past either end is caught.
    std::unique_ptr<char[]> regexp(new char[expressionLength + 1]);
    std::memcpy(regexp.get(), expression.c_str(), expressionLength + 1);
    std::unique_ptr<char[]> subject(new char[subjectLength]);
    if (subjectLength != 0) {
        std::memcpy(subject.get(), rest + subjectOffset, subjectLength);
    }

    std::vector<slre_cap> captures(captureCount, slre_cap{nullptr, 0});
    const int result = slre_match(regexp.get(), subject.get(), subjectLength,
                                  captureCount == 0 ? nullptr : captures.data(), captureCount, flags);
    FUZZ_CHECK(result >= SLRE_TOO_MANY_BRACKETS && result <= subjectLength);
    if (result >= 0) {
        for (const slre_cap& capture : captures) {
            if (capture.ptr != nullptr) {
                FUZZ_CHECK(capture.len >= 0);
                FUZZ_CHECK(capture.ptr >= subject.get());
                FUZZ_CHECK(capture.ptr + capture.len <= subject.get() + subjectLength);
            }
        }
    }

    const char* text = slre_match(flags, regexp.get(), subject.get(), subjectLength);
    FUZZ_CHECK(text == nullptr || std::strcmp(text, "Not matched") == 0);
    return 0;
}
