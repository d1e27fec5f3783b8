// The one place where the plug-in starts OpenSSL's libcrypto.
#ifndef SIGNING_OPENSSL_H
#define SIGNING_OPENSSL_H

namespace crypto {

// Initialises libcrypto explicitly on first use and checks the result, so
// that a failure (for example no memory for its locks) becomes an
// DigestException instead of a crash inside a later digest call.
// After a success it does nothing. Hidden: it is not part of the plug-in's
// exported symbols.
__attribute__((visibility("hidden"))) void RequireOpenSsl();

} // namespace crypto

#endif
