// Bounds on a public key file, checked before a key file is read. An
// armored RSA key, even one that carries many certifications, stays far
// below them; a file beyond them is not a key, and reading it whole (or
// splitting it into lines) would only spend the host's memory.
#ifndef SIGNING_KEYFILEBOUNDS_H
#define SIGNING_KEYFILEBOUNDS_H

namespace key_file {

// Largest key file accepted, in bytes (4 MiB). A downloaded key larger than
// this is a failed download.
inline constexpr unsigned long kMaxSize = 4UL * 1024 * 1024;

// Most lines the plausibility test hands to the host's line reader. A 4 MiB
// armored key has about 64,500 lines of 64 characters.
inline constexpr unsigned long kMaxLines = 131072;

} // namespace key_file

#endif
