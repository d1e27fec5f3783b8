// The OpenPGP key message: armor recognition byte by byte, Base64 body
// decoding, the packet loop, and real gpg keys in armored (LF and CR LF) and
// binary form.
#include "Base64.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "PgpMessage.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <cstdint>
#include <dirent.h>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

using testsupport::ExpectThrowWithText;

namespace {

const char* const kNotFound = "Invalid format of data: PGP public key is not found";
const char* const kNewFormat = "Invalid format of data: New OpenPGP packet format is not supported";
const char* const kUnsupportedTag = "Invalid format of data: Unsupported packet tag";
const std::string kBegin = "-----BEGIN PGP PUBLIC KEY BLOCK-----";
const std::string kEnd = "-----END PGP PUBLIC KEY BLOCK-----";

std::string KeyPath(const std::string& file) {
    return testsupport::Fixture("keys/" + file);
}

std::string KeyId(const std::string& name) {
    return testsupport::ReadFile(KeyPath(name + ".keyid")).substr(0, 16);
}

// Parses a copy of the text (the message may be handed a writable buffer).
std::unique_ptr<PgpMessage> Parse(const std::string& input) {
    std::vector<char> copy(input.begin(), input.end());
    return std::unique_ptr<PgpMessage>(new PgpMessage(copy.data(), static_cast<unsigned int>(copy.size())));
}

void ExpectParseError(const std::string& input, const std::string& text) {
    ExpectThrowWithText<DataFormatException>([&] { Parse(input); }, text);
}

// What parsing gives: "parsed", or the exception's class and text. Other
// exceptions are not caught, so they fail the test.
std::string Outcome(const std::string& input) {
    try {
        Parse(input);
        return "parsed";
    } catch (const DataFormatException& error) {
        return std::string("DataFormatException: ") + error.what();
    } catch (const Base64OperationException& error) {
        return std::string("Base64OperationException: ") + error.what();
    }
}

// A parse that either succeeds or fails with an exception of the family.
bool ParsesOrFailsCleanly(const std::string& input) {
    try {
        Parse(input);
        return true;
    } catch (const DataFormatException&) {
    } catch (const Base64OperationException&) {
    }
    return false;
}

// Base64 by OpenSSL's block encoder, in lines of 64 characters.
std::string Base64Lines(const std::string& bytes, const std::string& lineEnd) {
    std::vector<unsigned char> out(4 * ((bytes.size() + 2) / 3) + 1);
    int n = EVP_EncodeBlock(out.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<int>(bytes.size()));
    std::string text(reinterpret_cast<char*>(out.data()), static_cast<size_t>(n));
    std::string lines;
    for (size_t i = 0; i < text.size(); i += 64) {
        lines += text.substr(i, 64) + lineEnd;
    }
    return lines;
}

std::string ChecksumLine(const std::string& bytes) {
    uint32_t crc = Radix64::Crc24(bytes.data(), bytes.size());
    std::string crcBytes = {static_cast<char>(crc >> 16), static_cast<char>(crc >> 8),
                            static_cast<char>(crc)};
    return "=" + Base64Lines(crcBytes, "").substr(0, 4);
}

// An armored key block around binary packets.
std::string Armor(const std::string& binary, const std::string& lineEnd = "\n",
                  const std::string& headers = "Version: x", bool finalLineEnd = true) {
    std::string text = kBegin + lineEnd;
    if (!headers.empty()) {
        text += headers + lineEnd;
    }
    text += lineEnd + Base64Lines(binary, lineEnd) + ChecksumLine(binary) + lineEnd + kEnd;
    if (finalLineEnd) {
        text += lineEnd;
    }
    return text;
}

std::string Hex(const unsigned char* data, size_t size) {
    return testsupport::ToHex(data, size);
}

std::string Be16(size_t value) {
    return std::string{static_cast<char>(value >> 8), static_cast<char>(value & 0xFF)};
}

// Small hand-made packets (old format, 1- or 2-byte lengths).
std::string UserId(const std::string& name) {
    return std::string{'\xB4', static_cast<char>(name.size())} + name;
}

std::string Mpi(unsigned int bits, const std::string& value) {
    return Be16(bits) + value;
}

std::string PublicKeyPacket(const std::string& modulus) {
    std::string body = std::string{4, 0x5F, 0, 0, 1, 1} +
                       Mpi(static_cast<unsigned int>(modulus.size() * 8), modulus) +
                       Mpi(17, std::string{1, 0, 1});
    return "\x99" + Be16(body.size()) + body;
}

std::string SignaturePacket(const std::string& issuer, unsigned char type = 0x13) {
    std::string hashed = {5, 2, 0x5F, 0, 0, 1};
    std::string body = std::string{4, static_cast<char>(type), 1, 8} + Be16(hashed.size()) + hashed +
                       Be16(10) + std::string{9, 16} + issuer + "\xAB\xCD" + Mpi(16, "\x80\x01");
    return "\x89" + Be16(body.size()) + body;
}

std::string SubkeyPacket(const std::string& modulus) {
    std::string key = PublicKeyPacket(modulus);
    key[0] = '\xB9';
    return key;
}

const std::string kIssuerA = "AAAAAAAA";
const std::string kIssuerB = "BBBBBBBB";

} // namespace

// ---- Armor ---------------------------------------------------------------

TEST(PgpMessageArmor, UnixLineEndsParse) {
    std::string binaryPath = KeyPath("rsa2048.gpg");
    REQUIRE_FIXTURE(binaryPath);
    std::string binary = testsupport::ReadFile(binaryPath);
    auto message = Parse(Armor(binary));
    ASSERT_NE(message->GetPublicKey(), nullptr);
    EXPECT_EQ(message->GetPublicKey()->GetModulus()->GetLengthInBits(), 2048u);
    ASSERT_NE(message->GetSignature(), nullptr);
    EXPECT_EQ(Hex(message->GetSignature()->GetIssuerKeyId(), 8), KeyId("rsa2048"));
}

TEST(PgpMessageArmor, MissingFinalLineEndIsNotFound) {
    std::string binaryPath = KeyPath("rsa2048.gpg");
    REQUIRE_FIXTURE(binaryPath);
    std::string binary = testsupport::ReadFile(binaryPath);
    ExpectParseError(Armor(binary, "\n", "Version: x", false), kNotFound);
    ExpectParseError(Armor(binary, "\r\n", "Version: x", false), kNotFound);
    // Any single byte after the marker will do.
    EXPECT_NO_THROW(Parse(Armor(binary, "\n", "Version: x", false) + "x"));
}

TEST(PgpMessageArmor, CrLfLineEndsParseWithTheCarriageReturnInTheBody) {
    std::string binaryPath = KeyPath("rsa2048.gpg");
    REQUIRE_FIXTURE(binaryPath);
    std::string binary = testsupport::ReadFile(binaryPath);
    std::string text = Armor(binary, "\r\n");
    auto message = Parse(text);
    EXPECT_EQ(message->GetPublicKey()->GetModulus()->GetLengthInBits(), 2048u);

    char* body = nullptr;
    unsigned int bodyLength = 0;
    ASSERT_TRUE(PgpMessage::SkipHeader(text.data(), text.size(), &body, bodyLength));
    EXPECT_EQ(body, text.data() + text.find("\r\n\r\n") + 4);
    ASSERT_GT(bodyLength, 0u);
    EXPECT_EQ(body[bodyLength - 1], '\r');
    EXPECT_EQ(body[bodyLength], '\n');
    EXPECT_EQ(body[bodyLength + 1], '=');
}

TEST(PgpMessageArmor, UnixBodyEndsBeforeTheLineFeedOfTheChecksumLine) {
    std::string text = Armor("\xB4\x01X");
    char* body = nullptr;
    unsigned int bodyLength = 0;
    ASSERT_TRUE(PgpMessage::SkipHeader(text.data(), text.size(), &body, bodyLength));
    EXPECT_EQ(std::string(body, bodyLength), "tAFY");
}

TEST(PgpMessageArmor, TextOrBlankLinesBeforeTheMarkerAreNotFound) {
    std::string binaryPath = KeyPath("rsa2048.asc");
    REQUIRE_FIXTURE(binaryPath);
    std::string armored = testsupport::ReadFile(binaryPath);
    ExpectParseError("\n" + armored, kNotFound);
    ExpectParseError("\r\n" + armored, kNotFound);
    ExpectParseError("\n\n" + armored, kNotFound);
    ExpectParseError("Comment: a key\n" + armored, kNotFound);
    ExpectParseError(" " + armored, kNotFound);
}

TEST(PgpMessageArmor, CorruptedChecksumLineIsNotNoticed) {
    std::string path = KeyPath("rsa2048.asc");
    REQUIRE_FIXTURE(path);
    std::string armored = testsupport::ReadFile(path);
    size_t equals = armored.rfind("\n=");
    ASSERT_NE(equals, std::string::npos);
    for (const char* checksum : {"AAAA", "!!!!", "zzzz"}) {
        std::string corrupted = armored;
        corrupted.replace(equals + 2, 4, checksum);
        ASSERT_NE(corrupted, armored);
        auto message = Parse(corrupted);
        EXPECT_EQ(Hex(message->GetSignature()->GetIssuerKeyId(), 8), KeyId("rsa2048"));
    }
}

TEST(PgpMessageArmor, DamagedBodyFailsInTheDecoder) {
    std::string path = KeyPath("rsa2048.asc");
    REQUIRE_FIXTURE(path);
    std::string armored = testsupport::ReadFile(path);
    std::string withBlank = armored;
    withBlank[armored.find("\n\n") + 10] = ' ';
    ExpectThrowWithText<Base64OperationException>([&] { Parse(withBlank); },
                                                  "Base64 data decoding error: bad character in input");
    std::string shortened = armored;
    shortened.erase(armored.find("\n\n") + 10, 1);
    ExpectThrowWithText<Base64OperationException>([&] { Parse(shortened); },
                                                  "Base64 data decoding error: wrong data length");
}

TEST(PgpMessageArmor, EmptyBodyHasNoPacket) {
    std::string text = kBegin + "\n\n\n=AAAA\n" + kEnd + "\n";
    std::string error;
    try {
        Parse(text);
    } catch (const DataFormatException& e) {
        error = e.what();
    }
    EXPECT_NE(error.find("OpenPGP packet header: tag byte runs past the end of the data"), std::string::npos)
        << error;
}

// ---- SkipHeader, byte by byte ----------------------------------------------------

namespace {
bool Skip(const std::string& text, std::string* body = nullptr) {
    char* start = nullptr;
    unsigned int length = 0;
    bool found = PgpMessage::SkipHeader(text.data(), text.size(), &start, length);
    if (found && body != nullptr) {
        *body = std::string(start, length);
    }
    return found;
}
} // namespace

TEST(PgpMessageSkipHeader, ShortInputs) {
    const char* data = "ab";
    char* body = nullptr;
    unsigned int length = 77;
    EXPECT_FALSE(PgpMessage::SkipHeader(data, 2, &body, length));
    EXPECT_EQ(body, data);
    EXPECT_FALSE(PgpMessage::SkipHeader(data, 0, &body, length));
    EXPECT_EQ(body, data);
    EXPECT_EQ(length, 77u);
}

TEST(PgpMessageSkipHeader, BlankLineKinds) {
    std::string body;
    EXPECT_TRUE(Skip(kBegin + "\n\nQUJD\n=AAAA\n" + kEnd + "\n", &body));
    EXPECT_EQ(body, "QUJD");
    EXPECT_TRUE(Skip(kBegin + "\r\rQUJD\r=AAAA\r" + kEnd + "\r", &body));
    EXPECT_EQ(body, "QUJD");
    EXPECT_TRUE(Skip(kBegin + "\r\n\r\nQUJD\r\n=AAAA\r\n" + kEnd + "\r\n", &body));
    EXPECT_EQ(body, "QUJD\r");
    EXPECT_TRUE(Skip(kBegin + "\n\r\n\rQUJD\n=AAAA\n" + kEnd + "\n", &body));
    EXPECT_EQ(body, "QUJD");
    EXPECT_TRUE(Skip(kBegin + "\nVersion: x\nComment: y\n\nQUJD\n=AAAA\n" + kEnd + "\n", &body));
    EXPECT_EQ(body, "QUJD");
}

TEST(PgpMessageSkipHeader, ByteAfterALineEndIsSteppedOver) {
    // CR LF LF: the pair is passed, then LF is followed by a letter, which is
    // stepped over; the next blank line ends the header instead.
    std::string body;
    EXPECT_TRUE(Skip(kBegin + "\r\n\nA\n\nQUJD\n=AAAA\n" + kEnd + "\n", &body));
    EXPECT_EQ(body, "QUJD");
}

TEST(PgpMessageSkipHeader, WithoutBlankLineNothingIsFound) {
    EXPECT_FALSE(Skip(kBegin + "\nQUJD\n=AAAA\n" + kEnd + "\n"));
}

TEST(PgpMessageSkipHeader, MarkerMustStartTheInput) {
    char* body = nullptr;
    unsigned int length = 0;
    std::string text = "x\n\n" + kBegin + "\n\nQUJD\n=AAAA\n" + kEnd + "\n";
    EXPECT_FALSE(PgpMessage::SkipHeader(text.data(), text.size(), &body, length));
    // The body start is still reported: one byte after the first blank line.
    EXPECT_EQ(body, text.data() + 3);
}

TEST(PgpMessageSkipHeader, EndMarkerNeedsAByteAfterIt) {
    EXPECT_FALSE(Skip(kBegin + "\n\nQUJD\n=AAAA\n" + kEnd));
    EXPECT_TRUE(Skip(kBegin + "\n\nQUJD\n=AAAA\n" + kEnd + "x"));
    EXPECT_FALSE(Skip(kBegin + "\n\nQUJD\n=AAAA\n"));
}

TEST(PgpMessageSkipHeader, ChecksumLineIsRequired) {
    EXPECT_FALSE(Skip(kBegin + "\n\nQUJD\n" + kEnd + "\n"));
    // An "=" of the body's padding is taken for the checksum line.
    std::string body;
    EXPECT_TRUE(Skip(kBegin + "\n\nQUI=\n" + kEnd + "\n", &body));
    EXPECT_EQ(body, "QU");
    // An "=" right at the body start leaves no body at all.
    EXPECT_FALSE(Skip(kBegin + "\n\n=AAAA\n" + kEnd + "\n"));
}

TEST(PgpMessageSkipHeader, EveryPrefixStaysInsideTheInput) {
    std::string path = KeyPath("rsa2048.crlf.asc");
    REQUIRE_FIXTURE(path);
    std::string armored = testsupport::ReadFile(path);
    for (size_t length = 0; length <= armored.size(); ++length) {
        // A copy of exactly length bytes, so the sanitizer sees any overrun.
        std::unique_ptr<char[]> copy(new char[length == 0 ? 1 : length]);
        armored.copy(copy.get(), length);
        char* body = nullptr;
        unsigned int bodyLength = 0;
        if (PgpMessage::SkipHeader(copy.get(), length, &body, bodyLength)) {
            EXPECT_GE(body, copy.get());
            EXPECT_LE(body + bodyLength, copy.get() + length);
        }
    }
}

// ---- DeArmor ------------------------------------------------------------------

TEST(PgpMessageDeArmor, TrimsThreeLineEndsInFrontAndTwoBehind) {
    std::string text = "a\nb\nc\nBODY\nx\ny";
    char* body = nullptr;
    unsigned int length = 0;
    EXPECT_EQ(PgpMessage::DeArmor(text.data(), text.size(), &body, length), 3);
    EXPECT_EQ(std::string(body, length), "BODY");
}

TEST(PgpMessageDeArmor, ArmorWithOneHeaderLineGivesTheRadix64Text) {
    std::string binaryPath = KeyPath("rsa2048.gpg");
    REQUIRE_FIXTURE(binaryPath);
    std::string binary = testsupport::ReadFile(binaryPath);
    std::string text = Armor(binary);
    char* body = nullptr;
    unsigned int length = 0;
    EXPECT_EQ(PgpMessage::DeArmor(text.data(), text.size(), &body, length), 3);
    unsigned int decodedLength = 0;
    std::unique_ptr<char[]> decoded(Radix64::Decode(body, length, decodedLength));
    EXPECT_EQ(std::string(decoded.get(), decodedLength), binary);
}

TEST(PgpMessageDeArmor, ShortInputs) {
    char* body = nullptr;
    unsigned int length = 99;
    const char* empty = "";
    EXPECT_EQ(PgpMessage::DeArmor(empty, 0, &body, length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(PgpMessage::DeArmor("a", 1, &body, length), 0);
    EXPECT_EQ(length, 1u);
    std::string lines = "\n\n\n";
    EXPECT_EQ(PgpMessage::DeArmor(lines.data(), lines.size(), &body, length), 2);
    EXPECT_EQ(body, lines.data() + 2);
    EXPECT_EQ(length, 1u);
    std::string ends = "\n\n\n\n\n";
    EXPECT_EQ(PgpMessage::DeArmor(ends.data(), ends.size(), &body, length), 3);
    // The backward walk counts one line end and then meets the forward position.
    EXPECT_EQ(body, ends.data() + 3);
    EXPECT_EQ(length, 1u);
}

TEST(PgpMessageDeArmor, EveryPrefixStaysInsideTheInput) {
    std::string path = KeyPath("rsa2048.asc");
    REQUIRE_FIXTURE(path);
    std::string armored = testsupport::ReadFile(path);
    for (size_t length = 1; length <= armored.size(); ++length) {
        std::unique_ptr<char[]> copy(new char[length]);
        armored.copy(copy.get(), length);
        char* body = nullptr;
        unsigned int bodyLength = 0;
        PgpMessage::DeArmor(copy.get(), length, &body, bodyLength);
        EXPECT_GE(body, copy.get());
        EXPECT_LE(body + bodyLength, copy.get() + length);
    }
}

// ---- Packets ----------------------------------------------------------------

TEST(PgpMessagePackets, NewFormatIsRefused) {
    ExpectParseError(std::string("\xC6\x01\x00", 3), kNewFormat);
    ExpectParseError(Armor(std::string("\xC6\x01\x00", 3)), kNewFormat);
    // After a valid packet as well.
    ExpectParseError(UserId("abc") + std::string("\xC6\x01\x00", 3), kNewFormat);
}

TEST(PgpMessagePackets, UserAttributePacket) {
    // The user attribute's tag 17 does not fit the four tag bits of an old
    // format header: as gpg writes it (new format, D1) and squeezed into an
    // old header (80 | 17 << 2 = C4, whose bit 6 is the tag's top bit), it
    // meets the new-format check.
    ExpectParseError(UserId("abc") + std::string("\xD1\x03\x01\x02\x03", 5), kNewFormat);
    ExpectParseError(UserId("abc") + std::string("\xC4\x03\x01\x02\x03", 5), kNewFormat);
}

TEST(PgpMessagePackets, OtherOldFormatTagsAreUnsupported) {
    for (unsigned int tag : {0u, 1u, 3u, 4u, 5u, 7u, 8u, 9u, 10u, 11u, 12u, 15u}) {
        std::string packet = std::string{static_cast<char>(0x80 | (tag << 2)), 2, 0, 0};
        ExpectParseError(packet, kUnsupportedTag);
        ExpectParseError(Armor(packet), kUnsupportedTag);
    }
}

TEST(PgpMessagePackets, BitSevenIsNotCheckedInsideTheArmor) {
    // 0x34 has bit 7 clear but the masked tag 13 (user ID): it is skipped.
    auto message = Parse(Armor(std::string("\x34\x01X", 3) + SignaturePacket(kIssuerA)));
    EXPECT_EQ(message->GetPublicKey(), nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(message->GetSignature()->GetIssuerKeyId()), 8),
              kIssuerA);
}

TEST(PgpMessagePackets, SubkeyIsSkippedAndTheLastSignatureWins) {
    std::string modulus(128, '\x5A');
    modulus[0] = '\xC3';
    std::string subModulus(64, '\x11');
    subModulus[0] = '\x81';
    std::string block = PublicKeyPacket(modulus) + UserId("Alice") + SignaturePacket(kIssuerA, 0x13) +
                        SubkeyPacket(subModulus) + SignaturePacket(kIssuerB, 0x18);
    for (const std::string& input : {block, Armor(block), Armor(block, "\r\n")}) {
        auto message = Parse(input);
        ASSERT_NE(message->GetPublicKey(), nullptr);
        EXPECT_EQ(message->GetPublicKey()->GetModulus()->GetLengthInBits(), 1024u);
        ASSERT_NE(message->GetSignature(), nullptr);
        EXPECT_EQ(message->GetSignature()->GetType(), PgpSignatureSubkeyBinding);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(message->GetSignature()->GetIssuerKeyId()), 8),
                  kIssuerB);
    }
}

TEST(PgpMessagePackets, LaterPublicKeyReplacesTheEarlierOne) {
    std::string first(64, '\x41');
    std::string second(128, '\x42');
    auto message = Parse(PublicKeyPacket(first) + PublicKeyPacket(second));
    EXPECT_EQ(message->GetPublicKey()->GetModulus()->GetLengthInBits(), 1024u);
    EXPECT_EQ(message->GetSignature(), nullptr);
}

TEST(PgpMessagePackets, SignatureAloneAsInAnRpmHeader) {
    std::string path = testsupport::Fixture("sigs/rsa4096-sha512.sig");
    REQUIRE_FIXTURE(path);
    auto message = Parse(testsupport::ReadFile(path));
    EXPECT_EQ(message->GetPublicKey(), nullptr);
    ASSERT_NE(message->GetSignature(), nullptr);
    EXPECT_EQ(Hex(message->GetSignature()->GetIssuerKeyId(), 8), KeyId("rsa4096"));
    EXPECT_EQ(message->GetSignature()->GetHashAlgorithm(), PgpHashSha512);
}

TEST(PgpMessagePackets, PacketClaimingMoreThanRemainsIsRefused) {
    ExpectParseError(
        UserId("abc") + std::string("\xB4\x05"
                                    "abc",
                                    5),
        "Invalid format of data: OpenPGP message: packet length runs past the end of the data (7 "
        "bytes claimed, 5 left)");
    // A signature packet whose length header claims more than the input,
    // though its fields fit.
    std::string signature = SignaturePacket(kIssuerA);
    std::string longer = signature;
    longer[2] = static_cast<char>(longer[2] + 1);
    ExpectParseError(longer,
                     "Invalid format of data: OpenPGP message: packet length runs past the end of the "
                     "data (" +
                         std::to_string(signature.size() + 1) + " bytes claimed, " +
                         std::to_string(signature.size()) + " left)");
}

TEST(PgpMessagePackets, FourOctetLengthSkipsSixHeaderBytes) {
    // User ID with a 4-byte length: the header counts 6 bytes, so the byte
    // after the length is part of the header.
    auto message = Parse(std::string("\xB6\x00\x00\x00\x03\xFF"
                                     "abc",
                                     9) +
                         SignaturePacket(kIssuerA));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(message->GetSignature()->GetIssuerKeyId()), 8),
              kIssuerA);
}

TEST(PgpMessagePackets, EmptyOrTinyInputs) {
    ExpectParseError(std::string(), kNotFound);
    ExpectParseError("ab", kNotFound);
    std::string error;
    try {
        Parse("\x99");
    } catch (const DataFormatException& e) {
        error = e.what();
    }
    EXPECT_EQ(error,
              "Invalid format of data: OpenPGP packet header: packet length runs past the end of the data "
              "(2 bytes needed, 0 left)");
    ExpectParseError("\x8B",
                     "Invalid format of data: OpenPGP packets with indeterminate length are not supported");
}

// ---- Real keys ----------------------------------------------------------------

TEST(PgpMessageRealKeys, DefaultLayoutInEveryForm) {
    struct Expected {
        const char* name;
        uint64_t bits;
    };
    for (const Expected& expected : {Expected{"rsa2048", 2048}, Expected{"rsa3072", 3072},
                                     Expected{"rsa4096", 4096}, Expected{"other2048", 2048}}) {
        std::string modulus;
        for (const char* suffix : {".asc", ".crlf.asc", ".gpg"}) {
            std::string path = KeyPath(std::string(expected.name) + suffix);
            REQUIRE_FIXTURE(path);
            SCOPED_TRACE(path);
            auto message = Parse(testsupport::ReadFile(path));
            const PgpPublicKey* key = message->GetPublicKey();
            ASSERT_NE(key, nullptr);
            EXPECT_EQ(key->GetModulus()->GetLengthInBits(), expected.bits);
            EXPECT_EQ(Hex(key->GetExponent()->GetValue(), key->GetExponent()->GetLengthInBytes()), "010001");
            std::string thisModulus =
                Hex(key->GetModulus()->GetValue(), key->GetModulus()->GetLengthInBytes());
            if (modulus.empty()) {
                modulus = thisModulus;
            }
            EXPECT_EQ(thisModulus, modulus);
            // The stored signature is the block's last one: the encryption
            // subkey's binding signature, made by the primary key.
            const PgpSignatureData* signature = message->GetSignature();
            ASSERT_NE(signature, nullptr);
            EXPECT_EQ(signature->GetType(), PgpSignatureSubkeyBinding);
            EXPECT_EQ(Hex(signature->GetIssuerKeyId(), 8), KeyId(expected.name));
        }
    }
}

TEST(PgpMessageRealKeys, SigningSubkeyIsRefused) {
    // The back-signature in the unhashed area has a two-byte length, which
    // the one-byte subpacket walk misreads.
    for (const char* suffix : {".asc", ".crlf.asc", ".gpg"}) {
        std::string path = KeyPath(std::string("signsub") + suffix);
        REQUIRE_FIXTURE(path);
        EXPECT_EQ("DataFormatException: Invalid format of data: Size of the multi-precision integers is "
                  "greater than the buffer length",
                  Outcome(testsupport::ReadFile(path)))
            << path;
    }
}

TEST(PgpMessageRealKeys, UpstreamKeysGiveTheirKnownOutcomes) {
    REQUIRE_UPSTREAM();
    // What each of rpm's test keys gives: the RSA keys in old-format packets
    // parse; the others are refused with the reason.
    const std::map<std::string, std::string> expected = {
        {"CVE-2021-3521-badbind.asc", "parsed"},
        {"CVE-2021-3521-nosubsig-last.asc", "parsed"},
        {"CVE-2021-3521-nosubsig.asc", "parsed"},
        {"alice-expired-subkey.asc", "DataFormatException: Invalid format of data: OpenPGP signature packet: "
                                     "unhashed subpacket points past the end of the data"},
        {"alice-revoked-subkey.asc", "DataFormatException: Invalid format of data: OpenPGP signature packet: "
                                     "unhashed subpacket of length 0 stops the subpacket walk"},
        {"alice.asc", "DataFormatException: Invalid format of data: OpenPGP signature packet: unhashed "
                      "subpacket of length 0 stops the subpacket walk"},
        {"different-creation-times.asc", "parsed"},
        {"keyidcollision1.pub", "DataFormatException: Invalid format of data: Size of the multi-precision "
                                "integers is greater than the buffer length"},
        {"keyidcollision2.pub", "DataFormatException: Invalid format of data: Size of the multi-precision "
                                "integers is greater than the buffer length"},
        {"rpm.org-ed25519-test.pub", "DataFormatException: Invalid format of data: Size of the "
                                     "multi-precision integers is greater than the buffer length"},
        {"rpm.org-nistp256-test.pub", "DataFormatException: Invalid format of data: Size of the "
                                      "multi-precision integers is greater than the buffer length"},
        {"rpm.org-rsa-2048-add-subkey.asc",
         "DataFormatException: Invalid format of data: New OpenPGP packet format is not supported"},
        {"rpm.org-rsa-2048-test.pgp", "parsed"},
        {"rpm.org-rsa-2048-test.pub", "parsed"},
        {"rpm.org-v6-ed25519-test.asc",
         "DataFormatException: Invalid format of data: New OpenPGP packet format is not supported"},
        {"rpm.org-v6-rsa4k-test.asc",
         "DataFormatException: Invalid format of data: New OpenPGP packet format is not supported"},
        {"type-confusion.asc", "DataFormatException: Invalid format of data: Size of the multi-precision "
                               "integers is greater than the buffer length"},
    };
    const std::string folder = testsupport::RpmUpstreamDir() + "/keys";
    DIR* dir = opendir(folder.c_str());
    ASSERT_NE(dir, nullptr) << "cannot read " << folder;
    std::vector<std::string> files;
    while (dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != ".." && entry->d_type == DT_REG) {
            files.push_back(name);
        }
    }
    closedir(dir);
    ASSERT_FALSE(files.empty());
    for (const std::string& file : files) {
        const std::string outcome = Outcome(testsupport::ReadFile(folder + "/" + file));
        auto found = expected.find(file);
        if (found == expected.end()) {
            ADD_FAILURE() << "no expected outcome for " << file << " (gives " << outcome << ")";
        } else {
            EXPECT_EQ(found->second, outcome) << file;
        }
    }
}

TEST(PgpMessageRealKeys, EveryPrefixGivesAResultOrAnException) {
    for (const char* file : {"rsa2048.asc", "rsa2048.crlf.asc", "rsa2048.gpg", "signsub.gpg"}) {
        std::string path = KeyPath(file);
        REQUIRE_FIXTURE(path);
        std::string input = testsupport::ReadFile(path);
        for (size_t length = 0; length <= input.size(); ++length) {
            std::string prefix = input.substr(0, length);
            bool parsed = ParsesOrFailsCleanly(prefix);
            if (parsed && std::string(file) == "rsa2048.asc") {
                // Only the whole file or one that still holds the trailing
                // line end after the END marker can parse.
                EXPECT_EQ(length, input.size());
            }
        }
    }
}

TEST(PgpMessageRealKeys, EveryPacketPrefixOfTheArmoredBodyGivesAResultOrAnException) {
    std::string path = KeyPath("rsa3072.gpg");
    REQUIRE_FIXTURE(path);
    std::string binary = testsupport::ReadFile(path);
    for (size_t length = 0; length <= binary.size(); length += 7) {
        ParsesOrFailsCleanly(Armor(binary.substr(0, length)));
    }
}

TEST(PgpMessageRealKeys, EveryByteChangeGivesAResultOrAnException) {
    std::string path = KeyPath("rsa2048.gpg");
    REQUIRE_FIXTURE(path);
    std::string binary = testsupport::ReadFile(path);
    for (size_t at = 0; at < binary.size(); ++at) {
        for (unsigned char value : {0x00, 0x01, 0x09, 0x10, 0x7F, 0x80, 0xFF}) {
            std::string changed = binary;
            changed[at] = static_cast<char>(value);
            ParsesOrFailsCleanly(changed);
        }
    }
}
