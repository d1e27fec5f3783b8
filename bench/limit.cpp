// The physical limit of package verification: only the digest work that
// verifying a package cannot avoid, done the plainest way with OpenSSL.
//
//   bench_limit PACKAGE...
//
// For each package: find the main header (lead, signature header, padding),
// read the main header into memory and hash it with SHA-1, the algorithm of
// the header-only signature and, when that is not SHA-1, SHA-1 once more;
// then stream the main header and payload once in 65536-byte reads into MD5,
// the signature's algorithm and (when that is not SHA-1) SHA-1. No RSA, no
// key. As a check that the right bytes were hashed, the MD5 and the SHA-1 of
// the main header are compared with the signature header's values; a
// mismatch or any malformed input ends the program with status 1.
#include "BenchPackage.h"

#include <openssl/evp.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace bench;

constexpr size_t kChunkSize = 65536;

struct Descriptor {
    int fd;
    explicit Descriptor(const std::string& path) : fd(::open(path.c_str(), O_RDONLY)) {
        if (fd < 0) {
            throw std::runtime_error("cannot open " + path);
        }
    }
    ~Descriptor() { ::close(fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
};

size_t ReadAt(int fd, unsigned char* buffer, size_t length, uint64_t offset) {
    size_t done = 0;
    while (done < length) {
        const ssize_t count = ::pread(fd, buffer + done, length - done, static_cast<off_t>(offset + done));
        if (count < 0) {
            throw std::runtime_error("read error");
        }
        if (count == 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return done;
}

void ReadExactly(int fd, unsigned char* buffer, size_t length, uint64_t offset, const char* what) {
    if (ReadAt(fd, buffer, length, offset) != length) {
        throw std::runtime_error(std::string("file ends inside the ") + what);
    }
}

// Index and data store of one header, after its 16-byte record.
struct Header {
    uint32_t indexCount = 0;
    uint32_t dataSize = 0;
    std::vector<unsigned char> bytes; // record, index and data

    uint64_t Size() const { return 16 + 16 * uint64_t(indexCount) + dataSize; }

    // The data of tag, or null; length receives its extent to the end of the store.
    const unsigned char* Find(uint32_t tag, size_t& length) const {
        const unsigned char* data = bytes.data() + 16 + 16 * size_t(indexCount);
        for (uint32_t i = 0; i < indexCount; ++i) {
            const unsigned char* entry = bytes.data() + 16 + 16 * size_t(i);
            if (Be32(entry) == tag) {
                const uint32_t offset = Be32(entry + 8);
                if (offset >= dataSize) {
                    throw std::runtime_error("entry outside the data store");
                }
                length = dataSize - offset;
                return data + offset;
            }
        }
        return nullptr;
    }
};

Header ReadHeader(int fd, uint64_t offset, const char* what) {
    Header header;
    header.bytes.resize(16);
    ReadExactly(fd, header.bytes.data(), 16, offset, what);
    if (std::memcmp(header.bytes.data(), kHeaderMagic, sizeof(kHeaderMagic)) != 0) {
        throw std::runtime_error(std::string("no header magic in the ") + what);
    }
    header.indexCount = Be32(header.bytes.data() + 8);
    header.dataSize = Be32(header.bytes.data() + 12);
    if (header.indexCount > (1u << 20) || header.dataSize > (1u << 28)) {
        throw std::runtime_error(std::string("implausible size of the ") + what);
    }
    header.bytes.resize(header.Size());
    ReadExactly(fd, header.bytes.data() + 16, header.Size() - 16, offset + 16, what);
    return header;
}

// The hash algorithm named by an OpenPGP signature packet.
const EVP_MD* PacketHash(const unsigned char* packet, size_t length) {
    if (length < 2 || (packet[0] & 0x80) == 0) {
        throw std::runtime_error("tag 268 is not an OpenPGP packet");
    }
    size_t header = 0;
    if ((packet[0] & 0x40) != 0) { // new format
        header = packet[1] < 192 ? 2 : packet[1] < 224 ? 3 : 6;
    } else {
        const unsigned lengthType = packet[0] & 3;
        header = lengthType == 0 ? 2 : lengthType == 1 ? 3 : 5;
    }
    if (length < header + 17) {
        throw std::runtime_error("tag 268 is too short");
    }
    const unsigned char* body = packet + header;
    const unsigned char id = body[0] == 3 ? body[16] : body[3];
    const EVP_MD* md = host::DigestOf(id);
    if (md == nullptr) {
        throw std::runtime_error("unknown hash algorithm " + std::to_string(id));
    }
    return md;
}

MdContext NewDigest(const EVP_MD* md) {
    MdContext context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), md, nullptr) != 1) {
        throw std::runtime_error("digest init failed");
    }
    return context;
}

std::vector<unsigned char> Final(EVP_MD_CTX* context) {
    std::vector<unsigned char> value(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context, value.data(), &length) != 1) {
        throw std::runtime_error("digest final failed");
    }
    value.resize(length);
    return value;
}

std::string Hex(const std::vector<unsigned char>& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

void Verify(const std::string& path) {
    Descriptor file(path);
    unsigned char lead[kLeadSize];
    ReadExactly(file.fd, lead, sizeof(lead), 0, "lead");
    if (Be32(lead) != 0xEDABEEDB) {
        throw std::runtime_error("no lead magic");
    }
    const Header signature = ReadHeader(file.fd, kLeadSize, "signature header");
    const uint64_t mainOffset = (kLeadSize + signature.Size() + 7) / 8 * 8;

    size_t length = 0;
    const unsigned char* packet = signature.Find(kTagRsaHeader, length);
    if (packet == nullptr) {
        throw std::runtime_error("no header-only signature");
    }
    const EVP_MD* md = PacketHash(packet, length);
    const bool spare = EVP_MD_type(md) != NID_sha1;

    // The main header by itself.
    const Header main = ReadHeader(file.fd, mainOffset, "main header");
    MdContext headerSha1 = NewDigest(EVP_sha1());
    MdContext headerDigest = NewDigest(md);
    MdContext headerSpare = spare ? NewDigest(EVP_sha1()) : nullptr;
    EVP_DigestUpdate(headerSha1.get(), main.bytes.data(), main.bytes.size());
    EVP_DigestUpdate(headerDigest.get(), main.bytes.data(), main.bytes.size());
    if (headerSpare) {
        EVP_DigestUpdate(headerSpare.get(), main.bytes.data(), main.bytes.size());
    }

    // Main header and payload in one pass.
    MdContext md5 = NewDigest(EVP_md5());
    MdContext digest = NewDigest(md);
    MdContext sha1 = spare ? NewDigest(EVP_sha1()) : nullptr;
    std::unique_ptr<unsigned char[]> chunk(new unsigned char[kChunkSize]);
    uint64_t offset = mainOffset;
    for (;;) {
        const ssize_t count = ::pread(file.fd, chunk.get(), kChunkSize, static_cast<off_t>(offset));
        if (count < 0) {
            throw std::runtime_error("read error");
        }
        EVP_DigestUpdate(md5.get(), chunk.get(), static_cast<size_t>(count));
        EVP_DigestUpdate(digest.get(), chunk.get(), static_cast<size_t>(count));
        if (sha1) {
            EVP_DigestUpdate(sha1.get(), chunk.get(), static_cast<size_t>(count));
        }
        offset += static_cast<uint64_t>(count);
        if (static_cast<size_t>(count) != kChunkSize) {
            break;
        }
    }

    const std::string headerSha1Hex = Hex(Final(headerSha1.get()));
    Final(headerDigest.get());
    if (headerSpare) {
        Final(headerSpare.get());
    }
    const std::vector<unsigned char> md5Value = Final(md5.get());
    Final(digest.get());
    if (sha1) {
        Final(sha1.get());
    }

    // The signature header's own values must match what was hashed.
    const unsigned char* expectedSha1 = signature.Find(kTagSha1Header, length);
    if (expectedSha1 == nullptr || length < 41 ||
        std::string(reinterpret_cast<const char*>(expectedSha1), 40) != headerSha1Hex) {
        throw std::runtime_error("SHA-1 of the main header does not match tag 269");
    }
    const unsigned char* expectedMd5 = signature.Find(kTagMd5, length);
    if (expectedMd5 == nullptr || length < 16 || std::memcmp(expectedMd5, md5Value.data(), 16) != 0) {
        throw std::runtime_error("MD5 of header and payload does not match tag 1004");
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_limit PACKAGE...\n");
        return 2;
    }
    int status = 0;
    for (int i = 1; i < argc; ++i) {
        try {
            Verify(argv[i]);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "bench_limit: %s: %s\n", argv[i], error.what());
            status = 1;
        }
    }
    return status;
}
