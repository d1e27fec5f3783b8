#include "RsaCsp.h"

#include "ByteReader.h"
#include "Digest.h"

#include <openssl/bio.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// The RSA key object and its low-level verification calls are deprecated in
// OpenSSL 3 but are what this provider is built on; the warnings are silenced
// around those calls only.
#define SIGNING_ALLOW_DEPRECATED_BEGIN                                                                       \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wdeprecated-declarations\"")
#define SIGNING_ALLOW_DEPRECATED_END _Pragma("GCC diagnostic pop")

namespace {

struct BignumDeleter {
    void operator()(BIGNUM* number) const { BN_free(number); }
};
using BignumPtr = std::unique_ptr<BIGNUM, BignumDeleter>;

struct RsaDeleter {
    void operator()(RSA* key) const {
        SIGNING_ALLOW_DEPRECATED_BEGIN
        RSA_free(key);
        SIGNING_ALLOW_DEPRECATED_END
    }
};
using RsaPtr = std::unique_ptr<RSA, RsaDeleter>;

struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

// A key with the given modulus and exponent, or null when OpenSSL cannot make one.
RSA* MakeKey(BignumPtr modulus, BignumPtr exponent) {
    if (!modulus || !exponent) {
        return nullptr;
    }
    SIGNING_ALLOW_DEPRECATED_BEGIN
    RsaPtr key(RSA_new());
    if (!key || RSA_set0_key(key.get(), modulus.get(), exponent.get(), nullptr) != 1) {
        return nullptr;
    }
    SIGNING_ALLOW_DEPRECATED_END
    // The key owns the numbers now.
    static_cast<void>(modulus.release());
    static_cast<void>(exponent.release());
    return key.release();
}

BignumPtr BignumFromBytes(const unsigned char* bytes, int length) {
    if (length < 0 || (bytes == nullptr && length > 0)) {
        return nullptr;
    }
    return BignumPtr(BN_bin2bn(bytes, length, nullptr));
}

BignumPtr CopyBignum(const BIGNUM* number) {
    if (number == nullptr) {
        return nullptr;
    }
    BignumPtr copy(BN_new());
    if (!copy || BN_copy(copy.get(), number) == nullptr) {
        return nullptr;
    }
    return copy;
}

// The modulus length in bytes, or 0 for a key without a modulus.
unsigned int ModulusLength(const RSA* key) {
    if (key == nullptr) {
        return 0;
    }
    SIGNING_ALLOW_DEPRECATED_BEGIN
    const BIGNUM* modulus = RSA_get0_n(key);
    SIGNING_ALLOW_DEPRECATED_END
    return modulus == nullptr ? 0 : static_cast<unsigned int>(BN_num_bytes(modulus));
}

// The key for a modulus and an exponent given as big-endian bytes, as a
// reference the caller owns; null when OpenSSL cannot make one. The
// certificate store parses the key file anew for every signature check, so
// the same key comes back again and again: one object per key, shared by
// reference counting, keeps the Montgomery context that OpenSSL sets up on
// a key's first operation (a division and a modular inverse, about a fifth
// of a 3072-bit verification) and keeps each retained certificate small.
// The last few keys stay for the rest of the process.
RSA* SharedKey(const unsigned char* modulus, int modulusLength, const unsigned char* exponent,
               int exponentLength) {
    if (modulusLength < 0 || exponentLength < 0 || (modulus == nullptr && modulusLength > 0) ||
        (exponent == nullptr && exponentLength > 0)) {
        return nullptr;
    }
    struct Entry {
        std::string id; // modulus length (4 bytes), modulus, exponent
        RSA* key = nullptr;
    };
    static std::mutex lock;
    static auto* entries = new std::array<Entry, 4>{};
    static size_t next = 0;

    unsigned char lengthBytes[4];
    StoreBigEndian32(lengthBytes, static_cast<uint32_t>(modulusLength));
    const size_t modulusSize = static_cast<size_t>(modulusLength);
    const size_t exponentSize = static_cast<size_t>(exponentLength);
    // Compared piece by piece, so that finding a kept key allocates nothing.
    auto matches = [&](const std::string& id) {
        return id.size() == sizeof(lengthBytes) + modulusSize + exponentSize &&
               std::memcmp(id.data(), lengthBytes, sizeof(lengthBytes)) == 0 &&
               (modulusSize == 0 ||
                std::memcmp(id.data() + sizeof(lengthBytes), modulus, modulusSize) == 0) &&
               (exponentSize == 0 ||
                std::memcmp(id.data() + sizeof(lengthBytes) + modulusSize, exponent, exponentSize) == 0);
    };

    std::lock_guard<std::mutex> guard(lock);
    SIGNING_ALLOW_DEPRECATED_BEGIN
    for (const Entry& entry : *entries) {
        if (entry.key != nullptr && matches(entry.id)) {
            return RSA_up_ref(entry.key) == 1 ? entry.key : nullptr;
        }
    }
    std::string id(reinterpret_cast<const char*>(lengthBytes), sizeof(lengthBytes));
    id.append(reinterpret_cast<const char*>(modulus), modulusSize);
    id.append(reinterpret_cast<const char*>(exponent), exponentSize);
    RsaPtr key(MakeKey(BignumFromBytes(modulus, modulusLength), BignumFromBytes(exponent, exponentLength)));
    if (!key || RSA_up_ref(key.get()) != 1) {
        return nullptr;
    }
    Entry& entry = (*entries)[next];
    RsaDeleter()(entry.key);
    entry.key = key.get();
    entry.id = std::move(id);
    next = (next + 1) % entries->size();
    SIGNING_ALLOW_DEPRECATED_END
    return key.release();
}

} // namespace

RsaCsp::RsaCsp(const unsigned char* modulus, int modulusLength, const unsigned char* exponent,
               int exponentLength)
    : _Key(SharedKey(modulus, modulusLength, exponent, exponentLength)), _LastError(nullptr) {}

RsaCsp::RsaCsp(BIGNUM* modulus, BIGNUM* exponent)
    : _Key(MakeKey(CopyBignum(modulus), CopyBignum(exponent))), _LastError(nullptr) {}

RsaCsp::RsaCsp(RSA* key) : _Key(key), _LastError(nullptr) {}

RsaCsp::~RsaCsp() {
    RsaDeleter()(_Key);
    _Key = nullptr;
    delete[] _LastError;
    _LastError = nullptr;
}

int RsaCsp::Verify(int nid, const unsigned char* digest, unsigned int digestLength,
                   const unsigned char* signature, unsigned int signatureLength) {
    unsigned int modulusLength = ModulusLength(_Key);
    if (modulusLength == 0 || signature == nullptr || (digest == nullptr && digestLength > 0) ||
        signatureLength > modulusLength) {
        return 0;
    }
    // An OpenPGP MPI drops leading zero bytes, so a valid signature can be
    // shorter than the modulus; RSA_verify wants exactly the modulus length.
    // Moduli up to 8192 bits are padded on the stack.
    unsigned char stackPadded[1024];
    std::vector<unsigned char> heapPadded;
    unsigned char* padded = stackPadded;
    if (modulusLength > sizeof(stackPadded)) {
        heapPadded.resize(modulusLength);
        padded = heapPadded.data();
    }
    std::memset(padded, 0, modulusLength - signatureLength);
    if (signatureLength > 0) {
        std::memcpy(padded + (modulusLength - signatureLength), signature, signatureLength);
    }

    // Errors of a failed check are not reported from here: leave the
    // thread's error queue as it was.
    ERR_set_mark();
    SIGNING_ALLOW_DEPRECATED_BEGIN
    int result = RSA_verify(nid, digest, digestLength, padded, modulusLength, _Key);
    SIGNING_ALLOW_DEPRECATED_END
    ERR_pop_to_mark();
    return result == 1 ? 1 : 0;
}

int RsaCsp::Verify_PSS(soapWrap::HashAlgorithm algorithm, const unsigned char* digest,
                       unsigned int digestLength, const unsigned char* signature,
                       unsigned int signatureLength) {
    const EVP_MD* md = Digest::GetMd(algorithm);
    unsigned int modulusLength = ModulusLength(_Key);

    int result = 0;
    if (modulusLength == 0 || signature == nullptr || signatureLength > modulusLength) {
        ERR_raise(ERR_LIB_RSA, RSA_R_DATA_GREATER_THAN_MOD_LEN);
    } else if (digest == nullptr || digestLength < static_cast<unsigned int>(EVP_MD_get_size(md))) {
        // The digest length follows from the algorithm; never read past a shorter buffer.
        ERR_raise(ERR_LIB_RSA, RSA_R_INVALID_DIGEST_LENGTH);
    } else {
        // The decrypted block always fills the modulus length.
        std::vector<unsigned char> buffer(std::max(modulusLength, signatureLength));
        SIGNING_ALLOW_DEPRECATED_BEGIN
        int decrypted = RSA_public_decrypt(static_cast<int>(signatureLength), signature, buffer.data(), _Key,
                                           RSA_NO_PADDING);
        // -2: the salt length is taken from the signature itself.
        if (decrypted >= 0) {
            result = RSA_verify_PKCS1_PSS(_Key, digest, md, buffer.data(), -2);
        }
        SIGNING_ALLOW_DEPRECATED_END
        if (result == 0 && ERR_peek_error() == 0) {
            // The error text must describe the failure even when OpenSSL left none.
            ERR_raise(ERR_LIB_RSA, RSA_R_BAD_SIGNATURE);
        }
    }
    if (result != 0) {
        return result;
    }
    delete[] _LastError;
    _LastError = GetErrorMessage();
    return 0;
}

char* RsaCsp::GetErrorMessage() {
    std::unique_ptr<BIO, BioDeleter> bio(BIO_new(BIO_s_mem()));
    char* contents = nullptr;
    long length = 0;
    if (bio) {
        ERR_print_errors(bio.get());
        length = BIO_get_mem_data(bio.get(), &contents);
    }
    if (contents == nullptr || length < 0) {
        length = 0;
    }
    char* text = new char[static_cast<size_t>(length) + 1];
    if (length > 0) {
        std::memcpy(text, contents, static_cast<size_t>(length));
    }
    text[length] = '\0';
    return text;
}
