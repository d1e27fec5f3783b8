// Base64 (RFC 4648 alphabet) and the OpenPGP Radix-64 armor encoding (Base64
// text plus an "=" line carrying a CRC-24 of the data). Static operations
// only. The pointer-and-length forms return arrays allocated with array new
// that the caller releases with array delete.
#ifndef SIGNING_BASE64_H
#define SIGNING_BASE64_H

#include "Base.h"

#include <string>

class Base64 {
public:
    // Base64 text of the data on one line, padded with "=" to a multiple of
    // four; not terminated. The array has room for five more characters.
    static char* Encode(const char* data, unsigned int length, unsigned int& outLength);
    static std::string Encode(const soapWrap::Binary* data);

    // Decodes text; line feeds and carriage returns are skipped, "=" counts as
    // padding wherever it stands. Throws Base64OperationException.
    static char* Decode(const char* text, unsigned int length, unsigned int& outLength);
    // A new buffer (data from array new) that the caller owns.
    static soapWrap::Binary* Decode(const std::string& text);
};

// Reached by no entry point: the armor's checksum line is cut off, not checked.
class Radix64 {
public:
    // CRC-24 of OpenPGP armor; the upper 8 bits of the result are zero.
    static unsigned int Crc24(const char* data, unsigned long length);

    // Base64 text of the data directly followed by "=" and the four
    // characters of the CRC (no line break before "=").
    static char* Encode(const char* data, unsigned int length, unsigned int& outLength);
    static std::string Encode(const soapWrap::Binary* data);

    // Expects the checksum as the last five characters, and drops the one
    // character before it (the line break of armor). Throws
    // DataFormatException and Base64OperationException.
    static char* Decode(const char* text, unsigned int length, unsigned int& outLength);
    static soapWrap::Binary* Decode(const std::string& text);
};

#endif
