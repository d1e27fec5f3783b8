// Entry functions of the fuzz targets. Each takes one input of arbitrary
// bytes, drives one part of the library with it, and returns 0; a broken
// invariant (a status outside the six values, a null message, a decoder
// that does not give back what it encoded) aborts the process so that the
// fuzzer keeps the input. The same functions are linked into the libFuzzer
// programs of fuzz/ and into the regression test, which replays the seed
// inputs and every kept finding under tests/fuzz-regressions/<target>/.
#ifndef SIGNING_FUZZ_TARGETS_H
#define SIGNING_FUZZ_TARGETS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// rpm_verify over arbitrary package bytes, with the fixture key rsa2048.
int FuzzRpmPackage(const uint8_t* data, size_t size);
// rpm_verify over the fixture package signed-rsa2048-sha256.rpm, with
// arbitrary key-file bytes.
int FuzzRpmKey(const uint8_t* data, size_t size);
// PgpMessage (armored or binary) and, when it parses, PgpCertificate; the
// armor helpers SkipHeader and DeArmor over the same bytes.
int FuzzPgpMessage(const uint8_t* data, size_t size);
// Base64::Decode and Radix64::Decode over the input, and encode/decode
// round trips of the input as data.
int FuzzBase64(const uint8_t* data, size_t size);
// slre_match: first byte flags and capture count, then the expression up to
// the first NUL, then the subject (cut to 16 bytes).
int FuzzSlre(const uint8_t* data, size_t size);
// The packet readers: the first byte chooses PgpPublicKey,
// PgpSignatureData, MPI or PgpPacket::ParseLengthTag for the rest.
int FuzzPgpPacket(const uint8_t* data, size_t size);

struct FuzzTarget {
    const char* name; // folder name under the corpus and tests/fuzz-regressions
    int (*run)(const uint8_t* data, size_t size);
};

extern const FuzzTarget kFuzzTargets[];
extern const size_t kFuzzTargetCount;

// Returns the target of that name, or null.
const FuzzTarget* FindFuzzTarget(const std::string& name);

// One seed input, named after where it came from.
struct FuzzSeed {
    std::string name;
    std::string bytes;
};

// The seed inputs of a target, made from the fixture keys, signatures and
// packages (fixturesDir) and rpm's own test packages and keys (upstreamDir;
// skipped when absent). Missing fixture files are simply left out.
std::vector<FuzzSeed> MakeFuzzSeeds(const std::string& target, const std::string& fixturesDir,
                                    const std::string& upstreamDir);

#endif
