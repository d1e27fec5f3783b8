// The floor of package verification: the least work that verifying one
// package with this library's rules demands, done with libcrypto and nothing
// else, so that the plug-in's time per package can be set against it.
//
//   bench_floor KEY PACKAGE...
//
// Once per process: the key file is read and its RSA public key prepared.
// Then for each package:
// - the package is read once (open, fstat, one read, close);
// - MD5, SHA-1 and SHA-256 run once over the bytes from the main header to
//   the end; the SHA-1 and SHA-256 states at the end of the main header are
//   copied off for the header-only checks;
// - the key file is read and its armor Base64-decoded twice, once for each
//   signature, as the library re-reads the key for every signature it checks;
// - the header-only signature (tag 268) and the header-and-payload signature
//   (tag 1002) are each checked with one RSA verification against the
//   prepared key.
// The MD5 (tag 1004) and the header SHA-1 (tag 269) are compared as well. A
// mismatch, a failing verification or malformed input ends the program with
// status 1. Buffers and contexts are reused from package to package.
#include "BenchPackage.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// The low-level RSA key is what a prepared public key is here: it keeps its
// Montgomery context from one verification to the next.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

using namespace bench;

constexpr size_t kRecordSize = 16;

MdContext NewContext() {
    MdContext context(EVP_MD_CTX_new());
    if (!context) {
        throw std::runtime_error("no digest context");
    }
    return context;
}

// Reads the whole file into buffer (grown as needed, never shrunk).
size_t ReadFile(const char* path, std::vector<unsigned char>& buffer) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error(std::string("cannot open ") + path);
    }
    struct stat status;
    if (::fstat(fd, &status) != 0) {
        ::close(fd);
        throw std::runtime_error(std::string("cannot stat ") + path);
    }
    const size_t size = static_cast<size_t>(status.st_size);
    if (buffer.size() < size) {
        buffer.resize(size);
    }
    size_t done = 0;
    while (done < size) {
        const ssize_t count = ::pread(fd, buffer.data() + done, size - done, static_cast<off_t>(done));
        if (count <= 0) {
            ::close(fd);
            throw std::runtime_error(std::string("cannot read ") + path);
        }
        done += static_cast<size_t>(count);
    }
    ::close(fd);
    return size;
}

// The value of each Base64 character; 64 for '=', 0xFF for others.
struct Base64Table {
    unsigned char value[256];
    Base64Table() {
        std::memset(value, 0xFF, sizeof(value));
        const char* alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (unsigned i = 0; i < 64; ++i) {
            value[static_cast<unsigned char>(alphabet[i])] = static_cast<unsigned char>(i);
        }
        value[static_cast<unsigned char>('=')] = 64;
    }
};

// Decodes the Base64 body of an armored block (from the blank line after
// the armor headers to the checksum line) into out, in one pass that skips
// the line ends; answers its length.
size_t DecodeArmor(const unsigned char* text, size_t length, std::vector<unsigned char>& out) {
    static const Base64Table table;
    const unsigned char* p = static_cast<const unsigned char*>(memmem(text, length, "\n\n", 2));
    if (p == nullptr) {
        throw std::runtime_error("the key has no armor body");
    }
    p += 2;
    const unsigned char* end = text + length;
    if (out.size() < length) {
        out.resize(length);
    }
    unsigned char* o = out.data();
    uint32_t group = 0;
    unsigned filled = 0;
    unsigned padding = 0;
    for (; p != end; ++p) {
        // Four alphabet characters at the start of a group (the bulk of the
        // text) are packed at once.
        if (filled == 0 && end - p >= 4) {
            const unsigned a = table.value[p[0]];
            const unsigned b = table.value[p[1]];
            const unsigned c = table.value[p[2]];
            const unsigned d = table.value[p[3]];
            if ((a | b | c | d) < 64) {
                o[0] = static_cast<unsigned char>((a << 2) | (b >> 4));
                o[1] = static_cast<unsigned char>((b << 4) | (c >> 2));
                o[2] = static_cast<unsigned char>((c << 6) | d);
                o += 3;
                p += 3;
                continue;
            }
        }
        const unsigned char c = *p;
        if (c == '\n' || c == '\r') {
            // The checksum line or the end marker closes the body.
            if (p + 1 != end && (p[1] == '=' || p[1] == '-')) {
                break;
            }
            continue;
        }
        const unsigned char v = table.value[c];
        if (v == 0xFF) {
            throw std::runtime_error("the key's Base64 does not decode");
        }
        if (v == 64) {
            ++padding;
        }
        group = (group << 6) | (v & 63u);
        if (++filled == 4) {
            *o++ = static_cast<unsigned char>(group >> 16);
            *o++ = static_cast<unsigned char>(group >> 8);
            *o++ = static_cast<unsigned char>(group);
            filled = 0;
            group = 0;
        }
    }
    if (filled != 0 || padding > 2) {
        throw std::runtime_error("the key's Base64 does not decode");
    }
    return static_cast<size_t>(o - out.data()) - padding;
}

// An OpenPGP packet: its tag and body.
struct Packet {
    unsigned tag = 0;
    const unsigned char* body = nullptr;
    size_t length = 0;
};

Packet ReadPacket(const unsigned char* data, size_t length) {
    Packet packet;
    if (length < 2 || (data[0] & 0x80) == 0) {
        throw std::runtime_error("not an OpenPGP packet");
    }
    size_t header = 0;
    if ((data[0] & 0x40) != 0) {
        packet.tag = data[0] & 0x3F;
        if (data[1] < 192) {
            header = 2;
            packet.length = data[1];
        } else if (data[1] < 224) {
            header = 3;
            packet.length = ((data[1] - 192u) << 8) + data[2] + 192u;
        } else if (data[1] == 255 && length >= 6) {
            header = 6;
            packet.length = Be32(data + 2);
        } else {
            throw std::runtime_error("partial packet lengths are not read here");
        }
    } else {
        packet.tag = (data[0] >> 2) & 0x0F;
        switch (data[0] & 3) {
        case 0:
            header = 2;
            packet.length = data[1];
            break;
        case 1:
            header = 3;
            packet.length = Be16(data + 1);
            break;
        case 2:
            header = 5;
            packet.length = length >= 5 ? Be32(data + 1) : 0;
            break;
        default:
            throw std::runtime_error("indeterminate packet length");
        }
    }
    if (header > length || packet.length > length - header) {
        throw std::runtime_error("packet longer than its data");
    }
    packet.body = data + header;
    return packet;
}

// An MPI at p: answers its bytes and moves p past it.
const unsigned char* ReadMpi(const unsigned char*& p, const unsigned char* end, size_t& bytes) {
    if (end - p < 2) {
        throw std::runtime_error("MPI outside its packet");
    }
    bytes = (Be16(p) + 7u) / 8u;
    p += 2;
    if (static_cast<size_t>(end - p) < bytes) {
        throw std::runtime_error("MPI outside its packet");
    }
    const unsigned char* value = p;
    p += bytes;
    return value;
}

// The RSA key of the first public-key packet of a decoded key.
RSA* PrepareKey(const unsigned char* data, size_t length) {
    const Packet packet = ReadPacket(data, length);
    if (packet.tag != 6 || packet.length < 6 || packet.body[0] != 4 || packet.body[5] != 1) {
        throw std::runtime_error("the key does not begin with a version-4 RSA public key");
    }
    const unsigned char* p = packet.body + 6;
    const unsigned char* end = packet.body + packet.length;
    size_t modulusLength = 0;
    size_t exponentLength = 0;
    const unsigned char* modulus = ReadMpi(p, end, modulusLength);
    const unsigned char* exponent = ReadMpi(p, end, exponentLength);
    RSA* key = RSA_new();
    BIGNUM* n = BN_bin2bn(modulus, static_cast<int>(modulusLength), nullptr);
    BIGNUM* e = BN_bin2bn(exponent, static_cast<int>(exponentLength), nullptr);
    if (key == nullptr || n == nullptr || e == nullptr || RSA_set0_key(key, n, e, nullptr) != 1) {
        throw std::runtime_error("cannot make the RSA key");
    }
    return key;
}

// What an RSA signature packet holds that its check needs.
struct SignaturePacket {
    const unsigned char* hashed = nullptr; // the bytes the trailer hashes
    size_t hashedLength = 0;
    bool version4 = false;
    int nid = 0;
    const unsigned char* value = nullptr;
    size_t valueLength = 0;
};

SignaturePacket ParseSignature(const unsigned char* data, size_t length) {
    const Packet packet = ReadPacket(data, length);
    const unsigned char* p = packet.body;
    const unsigned char* end = packet.body + packet.length;
    SignaturePacket signature;
    unsigned char hashAlgorithm = 0;
    if (packet.tag != 2 || packet.length < 1) {
        throw std::runtime_error("not a signature packet");
    }
    if (p[0] == 3) {
        if (packet.length < 19 || p[1] != 5 || p[15] != 1) {
            throw std::runtime_error("not a version-3 RSA signature");
        }
        signature.hashed = p + 2;
        signature.hashedLength = 5;
        hashAlgorithm = p[16];
        p += 19;
    } else if (p[0] == 4) {
        if (packet.length < 6 || p[2] != 1) {
            throw std::runtime_error("not a version-4 RSA signature");
        }
        signature.version4 = true;
        hashAlgorithm = p[3];
        const size_t hashedSubpackets = Be16(p + 4);
        if (packet.length < 6 + hashedSubpackets + 2) {
            throw std::runtime_error("signature subpackets outside the packet");
        }
        signature.hashed = p;
        signature.hashedLength = 6 + hashedSubpackets;
        p += signature.hashedLength;
        const size_t unhashed = Be16(p);
        if (static_cast<size_t>(end - p) < 2 + unhashed + 2) {
            throw std::runtime_error("signature subpackets outside the packet");
        }
        p += 2 + unhashed + 2;
    } else {
        throw std::runtime_error("unknown signature version");
    }
    switch (hashAlgorithm) {
    case 2:
        signature.nid = NID_sha1;
        break;
    case 8:
        signature.nid = NID_sha256;
        break;
    default:
        throw std::runtime_error("the floor handles SHA-1 and SHA-256 signatures");
    }
    signature.value = ReadMpi(p, end, signature.valueLength);
    return signature;
}

// Everything reused from package to package.
struct Floor {
    std::string keyPath;
    RSA* key = nullptr;
    std::vector<unsigned char> keyFile;
    std::vector<unsigned char> decoded;
    std::vector<unsigned char> firstDecoded;
    std::vector<unsigned char> package;
    const EVP_MD* md5 = nullptr;
    const EVP_MD* sha1 = nullptr;
    const EVP_MD* sha256 = nullptr;
    MdContext md5Context = NewContext();
    MdContext sha1Context = NewContext();
    MdContext sha256Context = NewContext();
    MdContext headerSha1 = NewContext();
    MdContext headerSha256 = NewContext();
    MdContext trailer = NewContext();
    unsigned char padded[1024] = {};

    explicit Floor(const char* path) : keyPath(path) {
        md5 = EVP_MD_fetch(nullptr, "MD5", nullptr);
        sha1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);
        sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
        if (md5 == nullptr || sha1 == nullptr || sha256 == nullptr) {
            throw std::runtime_error("OpenSSL set-up failed");
        }
        const size_t length = DecodeKey();
        firstDecoded.assign(decoded.begin(), decoded.begin() + static_cast<long>(length));
        key = PrepareKey(firstDecoded.data(), firstDecoded.size());
    }

    // Reads and decodes the key file, as each signature check does.
    size_t DecodeKey() {
        const size_t size = ReadFile(keyPath.c_str(), keyFile);
        return DecodeArmor(keyFile.data(), size, decoded);
    }

    void CheckKey() {
        const size_t length = DecodeKey();
        if (length != firstDecoded.size() || std::memcmp(decoded.data(), firstDecoded.data(), length) != 0) {
            throw std::runtime_error("the key file changed");
        }
    }

    // Finishes a copy of the state in context with the signature's trailer
    // and checks the signature against the key.
    void CheckSignature(EVP_MD_CTX* context, const SignaturePacket& signature) {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int digestLength = 0;
        if (EVP_MD_CTX_copy_ex(trailer.get(), context) != 1 ||
            EVP_DigestUpdate(trailer.get(), signature.hashed, signature.hashedLength) != 1) {
            throw std::runtime_error("digest copy failed");
        }
        if (signature.version4) {
            const unsigned char tail[6] = {4,
                                           0xFF,
                                           static_cast<unsigned char>(signature.hashedLength >> 24),
                                           static_cast<unsigned char>(signature.hashedLength >> 16),
                                           static_cast<unsigned char>(signature.hashedLength >> 8),
                                           static_cast<unsigned char>(signature.hashedLength)};
            EVP_DigestUpdate(trailer.get(), tail, sizeof(tail));
        }
        EVP_DigestFinal_ex(trailer.get(), digest, &digestLength);
        const size_t modulusLength = static_cast<size_t>(RSA_size(key));
        if (signature.valueLength > modulusLength || modulusLength > sizeof(padded)) {
            throw std::runtime_error("signature longer than the modulus");
        }
        // An MPI drops leading zero bytes; the verification wants the modulus length.
        std::memset(padded, 0, modulusLength - signature.valueLength);
        std::memcpy(padded + modulusLength - signature.valueLength, signature.value, signature.valueLength);
        if (RSA_verify(signature.nid, digest, digestLength, padded, static_cast<unsigned int>(modulusLength),
                       key) != 1) {
            throw std::runtime_error("RSA verification failed");
        }
    }

    void Verify(const char* path) {
        const size_t size = ReadFile(path, package);
        const unsigned char* data = package.data();
        if (size < kLeadSize + kRecordSize || Be32(data) != 0xEDABEEDB ||
            std::memcmp(data + kLeadSize, kHeaderMagic, 4) != 0) {
            throw std::runtime_error("not a package");
        }
        // The signature header: its index and data store.
        const uint64_t count = Be32(data + kLeadSize + 8);
        const uint64_t store = Be32(data + kLeadSize + 12);
        const uint64_t signatureEnd = kLeadSize + kRecordSize + 16 * count + store;
        if (signatureEnd > size) {
            throw std::runtime_error("signature header outside the file");
        }
        const unsigned char* index = data + kLeadSize + kRecordSize;
        const unsigned char* storeData = index + 16 * count;
        const unsigned char* rsaHeader = nullptr;
        const unsigned char* pgp = nullptr;
        const unsigned char* sha1Hex = nullptr;
        const unsigned char* md5Value = nullptr;
        size_t rsaHeaderLength = 0;
        size_t pgpLength = 0;
        for (uint64_t i = 0; i < count; ++i) {
            const unsigned char* entry = index + 16 * i;
            const uint32_t offset = Be32(entry + 8);
            if (offset >= store) {
                throw std::runtime_error("entry outside the data store");
            }
            const size_t available = static_cast<size_t>(store - offset);
            switch (Be32(entry)) {
            case kTagRsaHeader:
                rsaHeader = storeData + offset;
                rsaHeaderLength = available;
                break;
            case kTagPgp:
                pgp = storeData + offset;
                pgpLength = available;
                break;
            case kTagSha1Header:
                sha1Hex = available >= 40 ? storeData + offset : nullptr;
                break;
            case kTagMd5:
                md5Value = available >= 16 ? storeData + offset : nullptr;
                break;
            default:
                break;
            }
        }
        if (rsaHeader == nullptr || pgp == nullptr || sha1Hex == nullptr || md5Value == nullptr) {
            throw std::runtime_error("the signature header lacks a digest or signature");
        }
        const SignaturePacket headerSignature = ParseSignature(rsaHeader, rsaHeaderLength);
        const SignaturePacket packageSignature = ParseSignature(pgp, pgpLength);
        if (headerSignature.nid != NID_sha256 || packageSignature.nid != NID_sha256) {
            throw std::runtime_error("the floor expects SHA-256 signatures");
        }

        // The main header and payload, each byte hashed once by each algorithm.
        const uint64_t mainOffset = (signatureEnd + 7) / 8 * 8;
        if (mainOffset + kRecordSize > size || std::memcmp(data + mainOffset, kHeaderMagic, 4) != 0) {
            throw std::runtime_error("no main header");
        }
        const uint64_t headerLength =
            kRecordSize + 16 * uint64_t(Be32(data + mainOffset + 8)) + Be32(data + mainOffset + 12);
        if (headerLength > size - mainOffset) {
            throw std::runtime_error("main header outside the file");
        }
        const unsigned char* header = data + mainOffset;
        const unsigned char* payload = header + headerLength;
        const size_t payloadLength = static_cast<size_t>(size - mainOffset - headerLength);
        EVP_DigestInit_ex(md5Context.get(), md5, nullptr);
        EVP_DigestInit_ex(sha1Context.get(), sha1, nullptr);
        EVP_DigestInit_ex(sha256Context.get(), sha256, nullptr);
        EVP_DigestUpdate(md5Context.get(), header, headerLength);
        EVP_DigestUpdate(sha1Context.get(), header, headerLength);
        EVP_DigestUpdate(sha256Context.get(), header, headerLength);
        EVP_MD_CTX_copy_ex(headerSha1.get(), sha1Context.get());
        EVP_MD_CTX_copy_ex(headerSha256.get(), sha256Context.get());
        EVP_DigestUpdate(md5Context.get(), payload, payloadLength);
        EVP_DigestUpdate(sha1Context.get(), payload, payloadLength);
        EVP_DigestUpdate(sha256Context.get(), payload, payloadLength);

        unsigned char value[EVP_MAX_MD_SIZE];
        unsigned int valueLength = 0;
        EVP_DigestFinal_ex(md5Context.get(), value, &valueLength);
        if (std::memcmp(value, md5Value, 16) != 0) {
            throw std::runtime_error("MD5 does not match tag 1004");
        }
        EVP_DigestFinal_ex(sha1Context.get(), value, &valueLength);
        EVP_DigestFinal_ex(headerSha1.get(), value, &valueLength);
        static const char digits[] = "0123456789abcdef";
        for (unsigned i = 0; i < 20; ++i) {
            if (sha1Hex[2 * i] != digits[value[i] >> 4] || sha1Hex[2 * i + 1] != digits[value[i] & 15]) {
                throw std::runtime_error("header SHA-1 does not match tag 269");
            }
        }

        // Each signature check re-reads the key.
        CheckKey();
        CheckSignature(headerSha256.get(), headerSignature);
        CheckKey();
        CheckSignature(sha256Context.get(), packageSignature);
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_floor KEY PACKAGE...\n");
        return 2;
    }
    try {
        Floor floor(argv[1]);
        for (int i = 2; i < argc; ++i) {
            try {
                floor.Verify(argv[i]);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "bench_floor: %s: %s\n", argv[i], error.what());
                return 1;
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_floor: %s: %s\n", argv[1], error.what());
        return 1;
    }
    return 0;
}
