// Growth of memory over many verifications in one process.
//
//   bench_memory KEY SIGNATURE DATA COUNT EVERY PACKAGE...
//
// Phase "verify": calls rpm_verify COUNT times, going round the packages,
// and after every EVERY calls prints the resident memory (/proc/self/statm)
// and the bytes the allocator has handed out (mallinfo2). Every package
// must verify as signed.
// Phase "keyload": loads the key EVERY times through the certificate store,
// as each PGP signature check does, to measure what the store retains per
// load (it keeps every certificate it ever loaded).
// Phase "keycheck": the same, and each loaded certificate also checks the
// detached SIGNATURE over DATA, as a certificate does in a verification:
// what the store retains per PGP signature check.
//
// Output lines: "<phase> <calls> <resident bytes> <heap bytes>".
#include "CertificateManager.h"
#include "Digest.h"
#include "PgpCertificate.h"
#include "PgpMessage.h"
#include "PgpSignature.h"
#include "RsaCsp.h"
#include "rpmutil.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
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

std::vector<char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 7) {
        std::fprintf(stderr, "usage: bench_memory KEY SIGNATURE DATA COUNT EVERY PACKAGE...\n");
        return 2;
    }
    const std::string key = argv[1];
    std::vector<char> packet = ReadAll(argv[2]);
    const std::vector<char> data = ReadAll(argv[3]);
    const unsigned long count = std::strtoul(argv[4], nullptr, 10);
    const unsigned long every = std::strtoul(argv[5], nullptr, 10);
    const std::vector<std::string> packages(argv + 6, argv + argc);
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

    // The signed hash of the detached signature, made once.
    std::unique_ptr<PgpMessage> message(
        new PgpMessage(packet.data(), static_cast<unsigned int>(packet.size())));
    if (message->GetSignature() == nullptr) {
        std::fprintf(stderr, "bench_memory: %s holds no signature\n", argv[2]);
        return 1;
    }
    PgpSignature signature(message->GetSignature());
    Digest digest(signature.GetHashAlgorithm());
    digest.Update(data.data(), data.size());
    signature.SetDigest(0, &digest);
    std::unique_ptr<DigestBase> hashed(signature.UpdateHash());
    const MPI* value = signature.GetSignatureData()->GetSignatureValue();
    const int nid = Digest::GetNID(hashed->GetType());

    Report("keycheck", 0);
    for (unsigned long i = 0; i < every; ++i) {
        auto* certificate = static_cast<PgpCertificate*>(store->LoadPgpPublicKey());
        auto* provider = certificate != nullptr ? dynamic_cast<RsaCsp*>(certificate->GetCsp()) : nullptr;
        if (provider == nullptr ||
            provider->Verify(nid, hashed->GetValue(), hashed->GetLength(), value->GetValue(),
                             static_cast<unsigned int>(value->GetLengthInBytes())) == 0) {
            std::fprintf(stderr, "bench_memory: the signature does not verify with the key\n");
            return 1;
        }
    }
    Report("keycheck", every);
    return 0;
}
