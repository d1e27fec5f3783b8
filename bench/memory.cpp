// Growth of memory over many verifications in one process.
//
//   bench_memory KEY COUNT EVERY PACKAGE...
//
// Phase "verify": calls rpm_verify COUNT times, going round the packages,
// and after every EVERY calls prints the resident memory (/proc/self/statm)
// and the bytes the allocator has handed out (mallinfo2). Every package
// must verify as signed.
// Phase "keyload": loads the key EVERY times through the certificate store,
// as each PGP signature check does, to measure what the store retains per
// load (it keeps every certificate it ever loaded).
//
// Output lines: "<phase> <calls> <resident bytes> <heap bytes>".
#include "CertificateManager.h"
#include "rpmutil.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

unsigned long ResidentBytes() {
    std::FILE* statm = std::fopen("/proc/self/statm", "r");
    unsigned long size = 0;
    unsigned long resident = 0;
    if (statm != nullptr) {
        if (std::fscanf(statm, "%lu %lu", &size, &resident) != 2) {
            resident = 0;
        }
        std::fclose(statm);
    }
    return resident * static_cast<unsigned long>(sysconf(_SC_PAGESIZE));
}

unsigned long HeapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void Report(const char* phase, unsigned long calls) {
    std::printf("%s %lu %lu %lu\n", phase, calls, ResidentBytes(), HeapBytes());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: bench_memory KEY COUNT EVERY PACKAGE...\n");
        return 2;
    }
    const std::string key = argv[1];
    const unsigned long count = std::strtoul(argv[2], nullptr, 10);
    const unsigned long every = std::strtoul(argv[3], nullptr, 10);
    const std::vector<std::string> packages(argv + 4, argv + argc);
    if (count == 0 || every == 0) {
        std::fprintf(stderr, "bench_memory: COUNT and EVERY must be positive\n");
        return 2;
    }

    Report("verify", 0);
    for (unsigned long i = 0; i < count; ++i) {
        const std::string& package = packages[i % packages.size()];
        RPM_RESULT result = rpm_verify(package.c_str(), key.c_str());
        if (result.status != RPM_SIGNED) {
            std::fprintf(stderr, "bench_memory: %s: status %d: %s\n", package.c_str(), int(result.status),
                         result.message != nullptr ? result.message : "");
            std::free(result.message);
            return 1;
        }
        std::free(result.message);
        if ((i + 1) % every == 0) {
            Report("verify", i + 1);
        }
    }

    CertificateManager* store = CertificateManager::Acquire();
    store->SetPgpPublicKeyFilePath(key);
    Report("keyload", 0);
    for (unsigned long i = 0; i < every; ++i) {
        if (store->LoadPgpPublicKey() == nullptr) {
            std::fprintf(stderr, "bench_memory: the store loaded no key\n");
            return 1;
        }
    }
    Report("keyload", every);
    return 0;
}
