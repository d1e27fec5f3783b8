#include "Base64.h"

#include "ByteReader.h"
#include "ContractTexts.h"
#include "Exceptions.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

constexpr unsigned char kInvalid = 255;
// Table entries besides the sextets 0 to 63.
constexpr unsigned char kPadding = 64; // "=": the sextet 0, counted as padding
constexpr unsigned char kLineEnd = 65; // line feed and carriage return: skipped

// One entry per character code; every code not named here is invalid.
constexpr std::array<unsigned char, 256> MakeReverseTable() {
    std::array<unsigned char, 256> table{};
    for (unsigned char& entry : table) {
        entry = kInvalid;
    }
    for (unsigned char i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(contract::kBase64Alphabet[i])] = i;
    }
    table['='] = kPadding;
    table['\n'] = kLineEnd;
    table['\r'] = kLineEnd;
    return table;
}
constexpr std::array<unsigned char, 256> kReverse = MakeReverseTable();

// CRC-24 of OpenPGP armor, generator 0x1864CFB, most significant bit first.
constexpr uint32_t kCrc24Init = 0xB704CE;
constexpr uint32_t kCrc24Poly = 0x1864CFB;

constexpr std::array<uint32_t, 256> MakeCrc24Table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte << 16;
        for (int bit = 0; bit < 8; ++bit) {
            crc <<= 1;
            if (crc & 0x1000000) {
                crc ^= kCrc24Poly;
            }
        }
        table[byte] = crc & 0xFFFFFF;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kCrc24Table = MakeCrc24Table();

// Writes the Base64 text of length bytes at in to out (4 * ceil(length / 3)
// characters); returns that count.
size_t EncodeInto(const unsigned char* in, size_t length, char* out) {
    char* o = out;
    size_t whole = length - length % 3;
    for (size_t i = 0; i < whole; i += 3) {
        unsigned b0 = in[i], b1 = in[i + 1], b2 = in[i + 2];
        o[0] = contract::kBase64Alphabet[b0 >> 2];
        o[1] = contract::kBase64Alphabet[((b0 & 3) << 4) + (b1 >> 4)];
        o[2] = contract::kBase64Alphabet[((b1 & 15) << 2) + (b2 >> 6)];
        o[3] = contract::kBase64Alphabet[b2 & 63];
        o += 4;
    }
    if (length % 3 == 1) {
        unsigned b0 = in[whole];
        o[0] = contract::kBase64Alphabet[b0 >> 2];
        o[1] = contract::kBase64Alphabet[(b0 & 3) << 4];
        o[2] = '=';
        o[3] = '=';
        o += 4;
    } else if (length % 3 == 2) {
        unsigned b0 = in[whole], b1 = in[whole + 1];
        o[0] = contract::kBase64Alphabet[b0 >> 2];
        o[1] = contract::kBase64Alphabet[((b0 & 3) << 4) + (b1 >> 4)];
        o[2] = contract::kBase64Alphabet[(b1 & 15) << 2];
        o[3] = '=';
        o += 4;
    }
    return static_cast<size_t>(o - out);
}

// Allocates the encoder's array: (length / 3) * 4 + 9 bytes, room for the
// last group and for the five checksum characters of Radix-64.
std::unique_ptr<char[]> AllocateEncoded(unsigned int length, unsigned int& outLength) {
    uint64_t encoded = (static_cast<uint64_t>(length) + 2) / 3 * 4;
    if (encoded + 5 > UINT32_MAX) {
        throw Base64OperationException("Base64 data encoding error: data too long");
    }
    outLength = static_cast<unsigned int>(encoded);
    return std::unique_ptr<char[]>(new char[static_cast<size_t>(length) / 3 * 4 + 9]);
}

struct DecodeResult {
    size_t written;     // bytes actually stored: 3 per group of four sextets
    unsigned int count; // 3 * groups - padding
};

// Decodes length characters of text into out (which holds at least length
// bytes) in one pass: each group of four sextets is packed as soon as it is
// complete. Throws Base64OperationException.
DecodeResult DecodeInto(const char* text, unsigned int length, unsigned char* out) {
    const unsigned char* in = reinterpret_cast<const unsigned char*>(text);
    size_t sextets = 0;
    size_t padding = 0;
    size_t written = 0;
    uint32_t group = 0;
    size_t i = 0;
    while (i < length) {
        // Four alphabet characters at the start of a group (the bulk of any
        // text) are packed at once; anything else goes one by one below.
        if ((sextets & 3) == 0 && length - i >= 4) {
            const unsigned a = kReverse[in[i]];
            const unsigned b = kReverse[in[i + 1]];
            const unsigned c = kReverse[in[i + 2]];
            const unsigned d = kReverse[in[i + 3]];
            if ((a | b | c | d) < 64) {
                out[written] = static_cast<unsigned char>((a << 2) | (b >> 4));
                out[written + 1] = static_cast<unsigned char>((b << 4) | (c >> 2));
                out[written + 2] = static_cast<unsigned char>((c << 6) | d);
                written += 3;
                sextets += 4;
                i += 4;
                continue;
            }
        }
        unsigned value = kReverse[in[i++]];
        if (value == kLineEnd) {
            continue;
        }
        if (value == kInvalid) {
            throw Base64OperationException(contract::kBase64BadCharacter);
        }
        if (value == kPadding) {
            ++padding;
            value = 0;
        }
        group = (group << 6) | value;
        if ((++sextets & 3) == 0) {
            out[written] = static_cast<unsigned char>(group >> 16);
            out[written + 1] = static_cast<unsigned char>(group >> 8);
            out[written + 2] = static_cast<unsigned char>(group);
            written += 3;
            group = 0;
        }
    }
    // More "=" than three per group would make the count negative.
    if (sextets % 4 != 0 || padding > written) {
        throw Base64OperationException(contract::kBase64WrongLength);
    }
    return DecodeResult{written, static_cast<unsigned int>(written - padding)};
}

soapWrap::Binary* WrapBinary(std::unique_ptr<char[]> bytes, unsigned int length) {
    std::unique_ptr<soapWrap::Binary> binary(new soapWrap::Binary{nullptr, length});
    binary->data = reinterpret_cast<unsigned char*>(bytes.release());
    return binary.release();
}

} // namespace

char* Base64::Encode(const char* data, unsigned int length, unsigned int& outLength) {
    std::unique_ptr<char[]> out = AllocateEncoded(length, outLength);
    EncodeInto(reinterpret_cast<const unsigned char*>(data), length, out.get());
    return out.release();
}

std::string Base64::Encode(const soapWrap::Binary* data) {
    if (data == nullptr || data->data == nullptr) {
        return std::string();
    }
    unsigned int outLength = 0;
    std::unique_ptr<char[]> text(Encode(reinterpret_cast<const char*>(data->data), data->size, outLength));
    return std::string(text.get(), outLength);
}

char* Base64::Decode(const char* text, unsigned int length, unsigned int& outLength) {
    std::unique_ptr<char[]> out(new char[length]);
    outLength = DecodeInto(text, length, reinterpret_cast<unsigned char*>(out.get())).count;
    return out.release();
}

soapWrap::Binary* Base64::Decode(const std::string& text) {
    if (text.size() > UINT32_MAX) {
        throw Base64OperationException(contract::kBase64WrongLength);
    }
    unsigned int outLength = 0;
    std::unique_ptr<char[]> bytes(Decode(text.data(), static_cast<unsigned int>(text.size()), outLength));
    return WrapBinary(std::move(bytes), outLength);
}

unsigned int Radix64::Crc24(const char* data, unsigned long length) {
    uint32_t crc = kCrc24Init;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data);
    for (unsigned long i = 0; i < length; ++i) {
        crc = ((crc << 8) ^ kCrc24Table[((crc >> 16) ^ p[i]) & 0xFF]) & 0xFFFFFF;
    }
    return crc;
}

char* Radix64::Encode(const char* data, unsigned int length, unsigned int& outLength) {
    unsigned int textLength = 0;
    std::unique_ptr<char[]> out = AllocateEncoded(length, textLength);
    EncodeInto(reinterpret_cast<const unsigned char*>(data), length, out.get());
    // The 24-bit checksum, as the top three bytes of a 32-bit word.
    unsigned char crcBytes[4];
    StoreBigEndian32(crcBytes, Crc24(data, length) << 8);
    // The checksum follows the text directly, without a line break.
    out[textLength] = '=';
    EncodeInto(crcBytes, 3, out.get() + textLength + 1);
    outLength = textLength + 5;
    return out.release();
}

std::string Radix64::Encode(const soapWrap::Binary* data) {
    static const char empty = 0;
    const char* bytes = &empty;
    unsigned int size = 0;
    if (data != nullptr && data->data != nullptr) {
        bytes = reinterpret_cast<const char*>(data->data);
        size = data->size;
    }
    unsigned int outLength = 0;
    std::unique_ptr<char[]> text(Encode(bytes, size, outLength));
    return std::string(text.get(), outLength);
}

char* Radix64::Decode(const char* text, unsigned int length, unsigned int& outLength) {
    // The last five characters are "=" and the checksum, and one character
    // (the line break before the checksum line) precedes them.
    if (text == nullptr || length < 6 || text[length - 5] != '=') {
        throw DataFormatException(contract::kRadix64Expected);
    }
    // The 24-bit checksum is the top three bytes of a zero-padded 32-bit word.
    unsigned char crcBytes[4] = {};
    if (DecodeInto(text + length - 4, 4, crcBytes).written < 3) {
        throw DataFormatException(contract::kRadix64Expected);
    }
    const uint32_t stored = LoadBigEndian32(crcBytes) >> 8;

    unsigned int bodyLength = 0;
    std::unique_ptr<char[]> body(Base64::Decode(text, length - 6, bodyLength));
    if (Crc24(body.get(), bodyLength) != stored) {
        throw DataFormatException(contract::kRadix64CrcMismatch);
    }
    outLength = bodyLength;
    return body.release();
}

soapWrap::Binary* Radix64::Decode(const std::string& text) {
    if (text.size() > UINT32_MAX) {
        throw DataFormatException(contract::kRadix64Expected);
    }
    unsigned int outLength = 0;
    std::unique_ptr<char[]> bytes(Decode(text.data(), static_cast<unsigned int>(text.size()), outLength));
    return WrapBinary(std::move(bytes), outLength);
}
