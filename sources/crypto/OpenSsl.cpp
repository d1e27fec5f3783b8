#include "OpenSsl.h"

#include "Exceptions.h"

#include <openssl/crypto.h>

namespace crypto {

namespace {
// The entry points run on one thread at a time, so a plain flag is enough.
bool g_Initialised = false;
} // namespace

void RequireOpenSsl() {
    if (g_Initialised) {
        return;
    }
    // The default library context is made on its first use, and a failure
    // there is not reported: the digest calls would then take its missing
    // locks. Asking for it here makes it now and tells whether it exists.
    if (OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr) != 1 ||
        OSSL_LIB_CTX_get0_global_default() == nullptr) {
        throw DigestException("OpenSSL's libcrypto could not be initialised, so no signature can be checked");
    }
    g_Initialised = true;
}

} // namespace crypto
