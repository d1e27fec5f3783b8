// Base64 and Radix-64 codecs: published vectors, OpenSSL's block codec as an
// oracle, the decoder's exact tolerance rules, CRC-24, and real gpg armor.
#include "Base64.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

using testsupport::ExpectThrowWithText;

namespace {

// One of the codecs' array functions applied to a text; the output length
// starts at a value no call gives, so that a call that leaves it unset is
// seen.
std::string Coded(char* (*function)(const char*, unsigned int, unsigned int&), const std::string& input) {
    unsigned int outLength = 12345;
    std::unique_ptr<char[]> output(
        function(input.data(), static_cast<unsigned int>(input.size()), outLength));
    EXPECT_NE(output, nullptr);
    return std::string(output.get(), outLength);
}

std::string EncodeText(const std::string& bytes) {
    return Coded(Base64::Encode, bytes);
}

std::string DecodeText(const std::string& text) {
    return Coded(Base64::Decode, text);
}

std::string RadixEncodeText(const std::string& bytes) {
    return Coded(Radix64::Encode, bytes);
}

std::string RadixDecodeText(const std::string& text) {
    return Coded(Radix64::Decode, text);
}

const char* const kBadCharacter = "Base64 data decoding error: bad character in input";
const char* const kWrongLength = "Base64 data decoding error: wrong data length";
const char* const kNotRadix64 = "Invalid format of data: Expected data in Radix-64 format";
const char* const kCrcMismatch =
    "Invalid format of data: Calculated CRC does not equal to stored CRC of the Radix-64 message";

// CRC-24 bit by bit, straight from its definition, as an independent reference.
uint32_t ReferenceCrc24(const std::string& bytes) {
    uint32_t crc = 0xB704CE;
    for (unsigned char byte : bytes) {
        crc ^= static_cast<uint32_t>(byte) << 16;
        for (int i = 0; i < 8; ++i) {
            crc <<= 1;
            if (crc & 0x1000000) {
                crc ^= 0x1864CFB;
            }
        }
    }
    return crc & 0xFFFFFF;
}

std::string RandomBytes(std::mt19937& random, size_t count) {
    std::string bytes(count, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(random() & 0xFF);
    }
    return bytes;
}

// The armor body of a gpg key file: from the blank line after the headers to
// the end of the checksum line (without the line end after it).
std::string ArmorBodyWithChecksum(const std::string& armored) {
    size_t blank = armored.find("\n\n");
    size_t blankCrLf = armored.find("\r\n\r\n");
    size_t start = blankCrLf != std::string::npos ? blankCrLf + 4 : blank + 2;
    size_t end = armored.find("-----END PGP PUBLIC KEY BLOCK-----");
    // Drop the line end that precedes the END marker.
    size_t stop = end;
    while (stop > start && (armored[stop - 1] == '\n' || armored[stop - 1] == '\r')) {
        --stop;
    }
    return armored.substr(start, stop - start);
}

// The test vectors of RFC 4648, section 10: each plain text and its encoding.
struct Rfc4648Vector {
    const char* plain;
    const char* encoded;
};
const Rfc4648Vector kRfc4648Vectors[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

} // namespace

TEST(Base64Encode, Rfc4648Vectors) {
    for (const Rfc4648Vector& vector : kRfc4648Vectors) {
        EXPECT_EQ(EncodeText(vector.plain), vector.encoded) << "plain: " << vector.plain;
    }
}

TEST(Base64Decode, Rfc4648Vectors) {
    for (const Rfc4648Vector& vector : kRfc4648Vectors) {
        EXPECT_EQ(DecodeText(vector.encoded), vector.plain) << "encoded: " << vector.encoded;
    }
}

TEST(Base64Encode, ManExamples) {
    unsigned int outLength = 99;
    std::unique_ptr<char[]> empty(Base64::Encode("", 0, outLength));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(outLength, 0u);
    EXPECT_EQ(EncodeText("\x4D"), "TQ==");
    EXPECT_EQ(EncodeText("\x4D\x61"), "TWE=");
    EXPECT_EQ(EncodeText("\x4D\x61\x6E"), "TWFu");
}

TEST(Base64Encode, AgreesWithOpenSslForEveryLengthUpTo300) {
    std::mt19937 random(4648);
    for (size_t length = 0; length <= 300; ++length) {
        std::string bytes = RandomBytes(random, length);
        std::vector<unsigned char> expected(4 * ((length + 2) / 3) + 1);
        int n = EVP_EncodeBlock(expected.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                                static_cast<int>(length));
        std::string text = EncodeText(bytes);
        EXPECT_EQ(text, std::string(reinterpret_cast<char*>(expected.data()), static_cast<size_t>(n)))
            << "length " << length;
        EXPECT_EQ(text.size(), 4 * ((length + 2) / 3));
        EXPECT_EQ(DecodeText(text), bytes) << "length " << length;
    }
}

TEST(Base64Encode, BinaryForm) {
    unsigned char bytes[] = {'f', 'o', 'o', 'b'};
    soapWrap::Binary binary{bytes, 4};
    EXPECT_EQ(Base64::Encode(&binary), "Zm9vYg==");
    soapWrap::Binary empty{nullptr, 0};
    EXPECT_EQ(Base64::Encode(&empty), "");
}

TEST(Base64Decode, BinaryForm) {
    std::unique_ptr<soapWrap::Binary> binary(Base64::Decode(std::string("Zm9vYmE=")));
    ASSERT_NE(binary, nullptr);
    std::unique_ptr<unsigned char[]> data(binary->data);
    EXPECT_EQ(binary->size, 5u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data.get()), binary->size), "fooba");
}

TEST(Base64Decode, LineFeedOrCarriageReturnAnywhereIsSkipped) {
    const std::string text = "TWFu";
    for (const char* lineEnd : {"\n", "\r", "\r\n", "\n\n"}) {
        for (size_t at = 0; at <= text.size(); ++at) {
            std::string withBreak = text;
            withBreak.insert(at, lineEnd);
            EXPECT_EQ(DecodeText(withBreak), "Man") << "at " << at;
        }
    }
}

TEST(Base64Decode, BlankOrTabAnywhereIsABadCharacter) {
    const std::string text = "TWFu";
    for (const char* blank : {" ", "\t"}) {
        for (size_t at = 0; at <= text.size(); ++at) {
            std::string withBlank = text;
            withBlank.insert(at, blank);
            ExpectThrowWithText<Base64OperationException>([&] { DecodeText(withBlank); }, kBadCharacter);
        }
    }
}

TEST(Base64Decode, CharactersOutsideTheAlphabetAreBadCharacters) {
    // '{' is 123, the first code past the table; 0x80 and 0xFF are negative chars.
    for (char c : {'{', '~', '-', '_', '!', '@', '.', ':', '\0', '\x7F', '\x80', '\xFF', '\v', '\f'}) {
        std::string text = "TW" + std::string(1, c) + "u";
        ExpectThrowWithText<Base64OperationException>([&] { DecodeText(text); }, kBadCharacter);
    }
}

TEST(Base64Decode, PaddingAndWrongLength) {
    EXPECT_EQ(DecodeText("TQ=="), "M");
    EXPECT_EQ(DecodeText("TWE="), "Ma");
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("TQ="); }, kWrongLength);
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("TWFuT"); }, kWrongLength);
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("T"); }, kWrongLength);
    // Line ends do not count towards the length.
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("TQ=\n"); }, kWrongLength);
}

TEST(Base64Decode, BadCharacterIsReportedBeforeWrongLength) {
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("T Q="); }, kBadCharacter);
}

TEST(Base64Decode, EqualsSignInTheMiddleCountsAsPadding) {
    // "TQ==" gives 4D 00 00 and two padding characters, "TWFu" gives 4D 61 6E:
    // six bytes stored, four counted.
    EXPECT_EQ(DecodeText("TQ==TWFu"), std::string("\x4D\x00\x00\x4D", 4));
    // "=" inside a group is the sextet 0: T W 0 u -> 4D 60 2E, one padding.
    EXPECT_EQ(DecodeText("TW=u"), std::string("\x4D\x60", 2));
    EXPECT_EQ(DecodeText("=WFu"), std::string("\x01\x61", 2));
}

TEST(Base64Decode, MorePaddingThanDataIsAWrongLength) {
    // Three bytes per group minus four padding characters would be negative.
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("===="); }, kWrongLength);
    ExpectThrowWithText<Base64OperationException>([] { DecodeText("========"); }, kWrongLength);
    EXPECT_EQ(DecodeText("A==="), std::string());
}

TEST(Base64Decode, LargeRoundTrip) {
    std::mt19937 random(77);
    std::string bytes = RandomBytes(random, 1 << 20);
    std::string text = EncodeText(bytes);
    EXPECT_EQ(text.size(), 4u * ((bytes.size() + 2) / 3));
    EXPECT_EQ(DecodeText(text), bytes);
}

TEST(Radix64Crc24, KnownValues) {
    EXPECT_EQ(Radix64::Crc24("", 0), 0xB704CEu);
    EXPECT_EQ(Radix64::Crc24(nullptr, 0), 0xB704CEu);
    EXPECT_EQ(Radix64::Crc24("123456789", 9), 0x21CF02u);
}

TEST(Radix64Crc24, MatchesTheBitwiseDefinition) {
    std::mt19937 random(24);
    for (size_t length = 0; length < 200; ++length) {
        std::string bytes = RandomBytes(random, length);
        unsigned int crc = Radix64::Crc24(bytes.data(), bytes.size());
        EXPECT_EQ(crc, ReferenceCrc24(bytes));
        EXPECT_EQ(crc & 0xFF000000u, 0u);
    }
}

TEST(Radix64Encode, TextThenChecksumWithoutLineBreak) {
    std::string bytes = "Man";
    uint32_t crc = ReferenceCrc24(bytes);
    std::string crcBytes = {static_cast<char>(crc >> 16), static_cast<char>(crc >> 8),
                            static_cast<char>(crc)};
    std::string text = RadixEncodeText(bytes);
    EXPECT_EQ(text, "TWFu=" + EncodeText(crcBytes));
    EXPECT_EQ(text.size(), 9u);

    // Empty input: just the checksum of nothing (B7 04 CE).
    EXPECT_EQ(RadixEncodeText(""), "=twTO");

    // Every length: Base64 length plus five.
    std::mt19937 random(5);
    for (size_t length = 0; length < 64; ++length) {
        std::string data = RandomBytes(random, length);
        std::string encoded = RadixEncodeText(data);
        ASSERT_EQ(encoded.size(), 4 * ((length + 2) / 3) + 5);
        EXPECT_EQ(encoded.substr(0, encoded.size() - 5), EncodeText(data));
        EXPECT_EQ(encoded[encoded.size() - 5], '=');
    }
}

TEST(Radix64Encode, BinaryForm) {
    unsigned char bytes[] = {'M', 'a', 'n'};
    soapWrap::Binary binary{bytes, 3};
    EXPECT_EQ(Radix64::Encode(&binary), RadixEncodeText("Man"));
}

TEST(Radix64Decode, BodyLineBreakAndChecksumDecode) {
    std::string bytes = "Man is distinguished";
    std::string encoded = RadixEncodeText(bytes);
    std::string armored = encoded.substr(0, encoded.size() - 5) + "\n" + encoded.substr(encoded.size() - 5);
    EXPECT_EQ(RadixDecodeText(armored), bytes);

    std::unique_ptr<soapWrap::Binary> binary(Radix64::Decode(armored));
    std::unique_ptr<unsigned char[]> data(binary->data);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data.get()), binary->size), bytes);
}

TEST(Radix64Decode, TrailingLineFeedIsRefused) {
    std::string encoded = RadixEncodeText("Man");
    std::string armored = encoded.substr(0, encoded.size() - 5) + "\n" + encoded.substr(encoded.size() - 5);
    ExpectThrowWithText<DataFormatException>([&] { RadixDecodeText(armored + "\n"); }, kNotRadix64);
}

TEST(Radix64Decode, EncoderOutputDoesNotDecodeUnchanged) {
    // The encoder writes no separator before "=", the decoder drops one
    // character there: "TWFu" loses its "u" and fails the length check.
    std::string encoded = RadixEncodeText("Man");
    ASSERT_EQ(encoded.substr(0, 5), "TWFu=");
    ExpectThrowWithText<Base64OperationException>([&] { RadixDecodeText(encoded); }, kWrongLength);
    // With a line feed put in front of the checksum line it decodes.
    std::string armored = encoded.substr(0, 4) + "\n" + encoded.substr(4);
    EXPECT_EQ(RadixDecodeText(armored), "Man");
}

TEST(Radix64Decode, ChecksumMismatch) {
    std::string encoded = RadixEncodeText("Man");
    std::string armored = "TWFv\n" + encoded.substr(4); // "Mao" with the checksum of "Man"
    ExpectThrowWithText<DataFormatException>([&] { RadixDecodeText(armored); }, kCrcMismatch);
}

TEST(Radix64Decode, ShortTextsAreRefusedCleanly) {
    for (const std::string text : {"", "=", "=twT", "=twTO", "x=twT", "ab=twT"}) {
        ExpectThrowWithText<DataFormatException>([&] { RadixDecodeText(text); }, kNotRadix64);
    }
    ExpectThrowWithText<DataFormatException>([] { Radix64::Decode(std::string("=AAAA")); }, kNotRadix64);
    // Six characters: an empty body, the dropped line feed and the checksum
    // of nothing.
    EXPECT_EQ(RadixDecodeText("\n=twTO"), "");
}

TEST(Radix64Decode, ChecksumWithoutSextetsIsRefused) {
    // Four line ends after "=" carry no checksum at all.
    ExpectThrowWithText<DataFormatException>([] { RadixDecodeText("TWFu\n=\n\n\n\n"); }, kNotRadix64);
    ExpectThrowWithText<Base64OperationException>([] { RadixDecodeText("TWFu\n=tw T"); }, kBadCharacter);
}

TEST(Radix64Decode, EveryPrefixGivesAResultOrAnException) {
    std::string encoded = RadixEncodeText("Man is distinguished, not only by his reason");
    std::string armored = encoded.substr(0, encoded.size() - 5) + "\n" + encoded.substr(encoded.size() - 5);
    for (size_t length = 0; length <= armored.size(); ++length) {
        std::string prefix = armored.substr(0, length);
        try {
            RadixDecodeText(prefix);
            EXPECT_EQ(length, armored.size());
        } catch (const DataFormatException&) {
        } catch (const Base64OperationException&) {
        }
    }
}

TEST(Radix64Decode, RealGpgArmorBodiesDecodeToTheBinaryExport) {
    for (const char* name : {"rsa2048", "rsa3072", "rsa4096", "other2048", "signsub"}) {
        for (const char* suffix : {".asc", ".crlf.asc"}) {
            std::string path = testsupport::Fixture(std::string("keys/") + name + suffix);
            REQUIRE_FIXTURE(path);
            std::string binary =
                testsupport::ReadFile(testsupport::Fixture(std::string("keys/") + name + ".gpg"));
            std::string body = ArmorBodyWithChecksum(testsupport::ReadFile(path));
            EXPECT_EQ(RadixDecodeText(body), binary) << path;
            // The armor's checksum is gpg's CRC-24 of the binary key.
            std::string stored = DecodeText(body.substr(body.size() - 4));
            uint32_t crc = (static_cast<unsigned char>(stored[0]) << 16) |
                           (static_cast<unsigned char>(stored[1]) << 8) |
                           static_cast<unsigned char>(stored[2]);
            EXPECT_EQ(Radix64::Crc24(binary.data(), binary.size()), crc) << path;
        }
    }
}
