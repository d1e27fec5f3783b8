// Small helpers shared by the fuzz targets.
#ifndef SIGNING_FUZZ_SUPPORT_H
#define SIGNING_FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzsupport {

// Reports a broken invariant and aborts, so that the fuzzer (or the
// regression test) stops on the input.
[[noreturn]] void Fail(const char* condition, const char* file, int line);

// The fixture folder the targets take their real key and package from.
std::string FixturesDir();
std::string Fixture(const std::string& relative);

// A file under /tmp, made once per process and rewritten for every input
// (so that one path is reused), removed when the object is destroyed.
class ScratchFile {
public:
    explicit ScratchFile(const char* tag);
    ~ScratchFile();
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& Path() const { return m_Path; }
    // Replaces the content with the given bytes.
    void Write(const uint8_t* data, size_t size) const;

private:
    std::string m_Path;
};

// Verifies a package with a key through rpm_verify and checks the result:
// one of the six statuses, and a message that is not null. Frees it.
void VerifyAndCheck(const std::string& package, const std::string& key);

} // namespace fuzzsupport

#define FUZZ_CHECK(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            ::fuzzsupport::Fail(#condition, __FILE__, __LINE__);                                             \
        }                                                                                                    \
    } while (0)

#endif
