// The OpenSSL digest behind an OpenPGP hash algorithm number, and an owning
// digest context. Header only, so that the bench programs compile the same
// mapping as the host without linking the host program.
#ifndef HOST_PROGRAM_OPENSSLDIGEST_H
#define HOST_PROGRAM_OPENSSLDIGEST_H

#include <openssl/evp.h>

#include <memory>

namespace host {

struct DigestCloser {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestCloser>;

// The digest of an OpenPGP hash algorithm (RFC 4880, 9.4), or null when
// the number names none that RPM signatures use.
inline const EVP_MD* DigestOf(unsigned hashAlgorithm) {
    struct Entry {
        unsigned hashAlgorithm;
        const EVP_MD* (*digest)();
    };
    static const Entry kEntries[] = {{1, EVP_md5},    {2, EVP_sha1},    {8, EVP_sha256},
                                     {9, EVP_sha384}, {10, EVP_sha512}, {11, EVP_sha224}};
    for (const Entry& entry : kEntries) {
        if (entry.hashAlgorithm == hashAlgorithm) {
            return entry.digest();
        }
    }
    return nullptr;
}

} // namespace host

#endif
