// Micro-benchmarks of the hot pieces of a verification, so that a regression
// shows in isolation:
//
//   bench_micro [benchmark options] CORPUS_DIR
//
// CORPUS_DIR is the folder make-corpus.sh fills: key.asc, data.bin and its
// detached signature data.sig, and small-*/ packages.
#include "Base64.h"
#include "Certificate.h"
#include "CertificateManager.h"
#include "Digest.h"
#include "FileHelper.h"
#include "PgpCertificate.h"
#include "PgpMessage.h"
#include "PgpSignature.h"
#include "RpmSignature.h"
#include "RpmSigner.h"
#include "RsaCsp.h"
#include "rpmutil.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::string g_Corpus;

std::vector<char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string KeyPath() {
    return g_Corpus + "/key.asc";
}

// The first small package of the corpus.
std::string SmallPackage() {
    std::vector<std::string> names;
    if (DIR* corpus = opendir(g_Corpus.c_str())) {
        while (dirent* entry = readdir(corpus)) {
            const std::string name = entry->d_name;
            if (name.rfind("small-", 0) == 0) {
                names.push_back(name);
            }
        }
        closedir(corpus);
    }
    std::sort(names.begin(), names.end());
    for (const std::string& folder : names) {
        std::vector<std::string> packages;
        if (DIR* dir = opendir((g_Corpus + "/" + folder).c_str())) {
            while (dirent* entry = readdir(dir)) {
                const std::string name = entry->d_name;
                if (name.size() > 4 && name.compare(name.size() - 4, 4, ".rpm") == 0) {
                    packages.push_back(g_Corpus + "/" + folder + "/" + name);
                }
            }
            closedir(dir);
        }
        if (!packages.empty()) {
            return *std::min_element(packages.begin(), packages.end());
        }
    }
    throw std::runtime_error("no small package in " + g_Corpus);
}

// Random bytes that stay the same from run to run.
std::vector<unsigned char> Buffer(size_t size) {
    std::vector<unsigned char> buffer(size);
    uint32_t state = 2463534242u;
    for (unsigned char& byte : buffer) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<unsigned char>(state);
    }
    return buffer;
}

constexpr size_t kChunk = 65536;
// The store keeps every certificate it loads (about 2 KB each), so the
// benchmarks that load keys run a fixed number of times.
constexpr int kRetainingIterations = 5000;
constexpr size_t kPassSize = 8u << 20;

// The header-and-payload pass of a SHA-256 package: MD5, SHA-256 and SHA-1
// fed chunk by chunk, through the library's digest class.
void BM_DigestPass(benchmark::State& state) {
    const std::vector<unsigned char> buffer = Buffer(kPassSize);
    for (auto _ : state) {
        Digest md5(soapWrap::MD5);
        Digest sha256(soapWrap::SHA256);
        Digest sha1(soapWrap::SHA1);
        for (size_t offset = 0; offset < buffer.size(); offset += kChunk) {
            const size_t length = std::min(kChunk, buffer.size() - offset);
            md5.Update(buffer.data() + offset, length);
            sha256.Update(buffer.data() + offset, length);
            sha1.Update(buffer.data() + offset, length);
        }
        benchmark::DoNotOptimize(md5.GetValue());
        benchmark::DoNotOptimize(sha256.GetValue());
        benchmark::DoNotOptimize(sha1.GetValue());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * buffer.size()));
}
BENCHMARK(BM_DigestPass)->Unit(benchmark::kMillisecond);

// One algorithm alone over the same buffer, to see which dominates the pass.
void BM_DigestAlone(benchmark::State& state) {
    const auto algorithm = static_cast<soapWrap::HashAlgorithm>(state.range(0));
    const std::vector<unsigned char> buffer = Buffer(kPassSize);
    for (auto _ : state) {
        Digest digest(algorithm);
        for (size_t offset = 0; offset < buffer.size(); offset += kChunk) {
            digest.Update(buffer.data() + offset, std::min(kChunk, buffer.size() - offset));
        }
        benchmark::DoNotOptimize(digest.GetValue());
    }
    state.SetLabel(Digest(algorithm).GetTypeName());
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * buffer.size()));
}
BENCHMARK(BM_DigestAlone)
    ->Arg(soapWrap::MD5)
    ->Arg(soapWrap::SHA1)
    ->Arg(soapWrap::SHA256)
    ->Unit(benchmark::kMillisecond);

// Base64 decoding of the armored key's body, as loading the key does.
void BM_Base64DecodeKey(benchmark::State& state) {
    std::vector<char> armored = ReadAll(KeyPath());
    char* body = nullptr;
    unsigned int bodyLength = 0;
    if (!PgpMessage::SkipHeader(armored.data(), armored.size(), &body, bodyLength)) {
        state.SkipWithError("the key has no armor body");
        return;
    }
    for (auto _ : state) {
        unsigned int length = 0;
        std::unique_ptr<char[]> decoded(Base64::Decode(body, bodyLength, length));
        benchmark::DoNotOptimize(decoded.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bodyLength));
}
BENCHMARK(BM_Base64DecodeKey)->Unit(benchmark::kMicrosecond);

// Reading and parsing the key file, as every PGP signature check does. The
// store keeps every certificate it loads, so memory grows with iterations.
void BM_LoadPgpPublicKey(benchmark::State& state) {
    CertificateManager* store = CertificateManager::Acquire();
    store->SetPgpPublicKeyFilePath(KeyPath());
    for (auto _ : state) {
        benchmark::DoNotOptimize(store->LoadPgpPublicKey());
    }
}
BENCHMARK(BM_LoadPgpPublicKey)->Unit(benchmark::kMicrosecond)->Iterations(kRetainingIterations);

// A parsed detached signature over data.bin with its data digest.
struct SignatureCase {
    std::vector<char> packet;
    std::unique_ptr<PgpMessage> message;
    std::unique_ptr<PgpSignature> signature;
    std::unique_ptr<Digest> digest;

    SignatureCase() : packet(ReadAll(g_Corpus + "/data.sig")) {
        message.reset(new PgpMessage(packet.data(), static_cast<unsigned int>(packet.size())));
        if (message->GetSignature() == nullptr) {
            throw std::runtime_error("data.sig holds no signature packet");
        }
        signature.reset(new PgpSignature(message->GetSignature()));
        const std::vector<char> data = ReadAll(g_Corpus + "/data.bin");
        digest.reset(new Digest(signature->GetHashAlgorithm()));
        digest->Update(data.data(), data.size());
        signature->SetDigest(0, digest.get());
    }
};

// One PGP signature check as the engine makes it: hash trailer, key file
// loaded and parsed, RSA verification.
void BM_SignatureCheck(benchmark::State& state) {
    SignatureCase input;
    CertificateManager::Acquire()->SetPgpPublicKeyFilePath(KeyPath());
    for (auto _ : state) {
        std::string message;
        if (input.signature->Verify(message) != Valid) {
            state.SkipWithError(("the signature does not verify:" + message).c_str());
            return;
        }
    }
}
BENCHMARK(BM_SignatureCheck)->Unit(benchmark::kMicrosecond)->Iterations(kRetainingIterations);

// The RSA verification alone, with the key already parsed.
void BM_RsaVerify(benchmark::State& state) {
    SignatureCase input;
    CertificateManager* store = CertificateManager::Acquire();
    store->SetPgpPublicKeyFilePath(KeyPath());
    auto* certificate = static_cast<PgpCertificate*>(store->LoadPgpPublicKey());
    auto* provider = dynamic_cast<RsaCsp*>(certificate->GetCsp());
    if (provider == nullptr) {
        state.SkipWithError("the key has no RSA provider");
        return;
    }
    std::unique_ptr<DigestBase> hashed(input.signature->UpdateHash());
    const unsigned char* value = hashed->GetValue();
    const MPI* signatureValue = input.signature->GetSignatureData()->GetSignatureValue();
    const int nid = Digest::GetNID(hashed->GetType());
    for (auto _ : state) {
        if (provider->Verify(nid, value, hashed->GetLength(), signatureValue->GetValue(),
                             static_cast<unsigned int>(signatureValue->GetLengthInBytes())) == 0) {
            state.SkipWithError("RSA verification failed");
            return;
        }
    }
}
BENCHMARK(BM_RsaVerify)->Unit(benchmark::kMicrosecond);

// The signature-header parse of a small package as a verification makes it:
// the file opened, lead and signature header read, the container built
// from the header's entries (with its two OpenPGP signature packets).
void BM_ParseSignatureHeader(benchmark::State& state) {
    const std::string package = SmallPackage();
    for (auto _ : state) {
        RpmSigner signer(0);
        signer._File = new FileHelper(package);
        unsigned long mainHeaderOffset = 0;
        std::unique_ptr<RpmSignature> signature(signer.ParseSignature(mainHeaderOffset, false));
        benchmark::DoNotOptimize(signature.get());
        benchmark::DoNotOptimize(mainHeaderOffset);
    }
}
BENCHMARK(BM_ParseSignatureHeader)->Unit(benchmark::kMicrosecond);

// A whole verification of one small package through the exported entry.
void BM_RpmVerifySmall(benchmark::State& state) {
    const std::string package = SmallPackage();
    const std::string key = KeyPath();
    for (auto _ : state) {
        RPM_RESULT result = rpm_verify(package.c_str(), key.c_str());
        const bool signedOk = result.status == RPM_SIGNED;
        std::free(result.message);
        if (!signedOk) {
            state.SkipWithError("the small package does not verify");
            return;
        }
    }
}
BENCHMARK(BM_RpmVerifySmall)->Unit(benchmark::kMicrosecond)->Iterations(kRetainingIterations);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: bench_micro [benchmark options] CORPUS_DIR\n");
        return 2;
    }
    g_Corpus = argv[1];
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
