#include "FuzzSupport.h"

#include "rpmutil.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

#ifndef SIGNING_FIXTURES_DIR
#error "SIGNING_FIXTURES_DIR must name the fixture folder"
#endif

namespace fuzzsupport {

void Fail(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "fuzz target invariant broken: %s (%s:%d)\n", condition, file, line);
    std::fflush(stderr);
    std::abort();
}

std::string FixturesDir() {
    return SIGNING_FIXTURES_DIR;
}

std::string Fixture(const std::string& relative) {
    return FixturesDir() + "/" + relative;
}

ScratchFile::ScratchFile(const char* tag) {
    std::string pattern = std::string("/tmp/signing-fuzz-") + tag + "-XXXXXX";
    int fd = mkstemp(&pattern[0]);
    if (fd < 0) {
        throw std::runtime_error("cannot make a scratch file: " + std::string(std::strerror(errno)));
    }
    close(fd);
    m_Path = pattern;
}

ScratchFile::~ScratchFile() {
    unlink(m_Path.c_str());
}

void ScratchFile::Write(const uint8_t* data, size_t size) const {
    int fd = open(m_Path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    FUZZ_CHECK(fd >= 0);
    size_t done = 0;
    while (done < size) {
        ssize_t written = write(fd, data + done, size - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        FUZZ_CHECK(written > 0);
        done += static_cast<size_t>(written);
    }
    close(fd);
}

void VerifyAndCheck(const std::string& package, const std::string& key) {
    RPM_RESULT result = rpm_verify(package.c_str(), key.c_str());
    FUZZ_CHECK(result.status >= RPM_SIGNED && result.status <= RPM_ERROR);
    FUZZ_CHECK(result.message != nullptr);
    // The message is a complete text.
    FUZZ_CHECK(std::strlen(result.message) < (1u << 20));
    std::free(result.message);
}

} // namespace fuzzsupport
