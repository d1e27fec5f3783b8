// OpenPGP packet headers, multi-precision integers, public-key packets and
// signature packets: hand-made packets with exact expected fields, and real
// gpg signatures whose quick-check bytes are recomputed with OpenSSL.
#include "ByteReader.h"
#include "ExceptionText.h"
#include "Exceptions.h"
#include "Fixtures.h"
#include "MPI.h"
#include "PgpPacket.h"
#include "RpmTestBuilder.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

using testsupport::ExpectThrowWithText;

namespace {

// The byte builders shared with the signature and package tests.
using rpmtest::Be16;
using rpmtest::Bytes;
using rpmtest::Concat;

Bytes Repeat(unsigned char value, size_t count) {
    return Bytes(count, value);
}

// An old-format packet with a 2-byte length (tag byte 0x81 | tag << 2).
Bytes Packet16(unsigned int tag, const Bytes& body) {
    return rpmtest::OldPacket(static_cast<int>(tag), body);
}

Bytes MpiBytes(unsigned int bits, const Bytes& value) {
    return Concat({Be16(bits), value});
}

const Bytes kIssuer = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

// The body of a version-4 signature packet.
Bytes V4Body(const Bytes& hashed, const Bytes& unhashed, const Bytes& left, const Bytes& mpi,
             unsigned char type = 0x00, unsigned char algorithm = 1, unsigned char hash = 8) {
    return Concat({{4, type, algorithm, hash},
                   Be16(hashed.size()),
                   hashed,
                   Be16(unhashed.size()),
                   unhashed,
                   left,
                   mpi});
}

// The body of a version-3 signature packet.
Bytes V3Body(const Bytes& hashed5, const Bytes& issuer, unsigned char algorithm, unsigned char hash,
             const Bytes& left, const Bytes& mpi) {
    return Concat({{3, 5}, hashed5, issuer, {algorithm, hash}, left, mpi});
}

char* Chars(Bytes& bytes) {
    return reinterpret_cast<char*>(bytes.data());
}
unsigned int Size(const Bytes& bytes) {
    return static_cast<unsigned int>(bytes.size());
}

Bytes Copy(const unsigned char* data, size_t size) {
    return Bytes(data, data + size);
}

template <typename Fn> std::string DataFormatText(Fn fn) {
    try {
        fn();
    } catch (const DataFormatException& error) {
        return error.what();
    }
    ADD_FAILURE() << "no DataFormatException";
    return std::string();
}

const char* const kOnlyRsa = "Invalid format of data: Only RSA algorithm is supported";
const char* const kMpiTooLong =
    "Invalid format of data: Size of the multi-precision integers is greater than the buffer length";

} // namespace

// ---- Packet header -------------------------------------------------------

TEST(PgpPacketLengthTag, OldFormatLengths) {
    // Each header with the body length and header length it gives, through
    // both forms of the parser.
    struct Case {
        const char* form;
        std::vector<char> header;
        unsigned int length;
        unsigned int headerLength;
    };
    for (Case c :
         {Case{"two-octet length", {'\x99', '\x01', '\x0D'}, 272, 3},
          Case{"four-octet length, six-byte header", {'\x8A', '\x00', '\x00', '\x01', '\x00'}, 262, 6},
          Case{"one-octet length", {'\xB4', '\x32'}, 52, 2}}) {
        SCOPED_TRACE(c.form);
        unsigned int headerLength = 0;
        EXPECT_EQ(PgpPacket::ParseLengthTag(c.header.data(), headerLength), c.length);
        EXPECT_EQ(headerLength, c.headerLength);
        headerLength = 0;
        EXPECT_EQ(PgpPacket::ParseLengthTag(c.header.data(), static_cast<unsigned int>(c.header.size()),
                                            headerLength),
                  c.length);
        EXPECT_EQ(headerLength, c.headerLength);
    }
}

TEST(PgpPacketLengthTag, IndeterminateLengthIsRefused) {
    char header[] = {'\x8B', '\x00', '\x00', '\x00', '\x00', '\x00'};
    unsigned int headerLength = 77;
    const char* text = "Invalid format of data: OpenPGP packets with indeterminate length are not supported";
    ExpectThrowWithText<DataFormatException>([&] { PgpPacket::ParseLengthTag(header, headerLength); }, text);
    ExpectThrowWithText<DataFormatException>([&] { PgpPacket::ParseLengthTag(header, 6, headerLength); },
                                             text);
    EXPECT_EQ(headerLength, 77u);
}

TEST(PgpPacketLengthTag, LengthOctetsBeyondTheInputAreRefused) {
    char header[] = {'\x8A', '\x00', '\x00', '\x01', '\x00'};
    unsigned int headerLength = 0;
    for (unsigned int available = 0; available < 5; ++available) {
        std::string text =
            DataFormatText([&] { PgpPacket::ParseLengthTag(header, available, headerLength); });
        EXPECT_NE(text.find("OpenPGP packet header: "), std::string::npos) << text;
        EXPECT_NE(text.find(available == 0 ? "tag byte" : "packet length"), std::string::npos) << text;
        EXPECT_NE(text.find("runs past the end of the data"), std::string::npos) << text;
    }
}

TEST(PgpPacketLengthTag, LengthThatOverflowsIsRefused) {
    char header[] = {'\x8A', '\xFF', '\xFF', '\xFF', '\xFE'};
    unsigned int headerLength = 0;
    std::string text = DataFormatText([&] { PgpPacket::ParseLengthTag(header, 5, headerLength); });
    EXPECT_NE(text.find("too large"), std::string::npos) << text;
    // The largest length that still fits is kept as it is.
    char fits[] = {'\x8A', '\xFF', '\xFF', '\xFF', '\xF9'};
    EXPECT_EQ(PgpPacket::ParseLengthTag(fits, 5, headerLength), 0xFFFFFFFFu);
}

TEST(PgpPacketAlgorithm, BitTestAcceptsRsaAndMore) {
    for (int algorithm : {1, 2, 3, 17, 18, 19, 22, 0x81}) {
        EXPECT_NO_THROW(PgpPacket::CheckPublicKeyAlgorithm(static_cast<char>(algorithm))) << algorithm;
    }
    for (int algorithm : {0, 16, 20, 0x80}) {
        ExpectThrowWithText<DataFormatException>(
            [&] { PgpPacket::CheckPublicKeyAlgorithm(static_cast<char>(algorithm)); }, kOnlyRsa);
    }
}

// ---- MPI -----------------------------------------------------------------

TEST(PgpMpi, BitCountGivesByteCount) {
    Bytes data = MpiBytes(0x0800, Repeat(0xAB, 256));
    MPI mpi(Chars(data), 256);
    EXPECT_EQ(mpi.GetLengthInBits(), 2048u);
    EXPECT_EQ(mpi.GetLengthInBytes(), 256u);
    EXPECT_EQ(Copy(mpi.GetValue(), 256), Repeat(0xAB, 256));

    Bytes nine = MpiBytes(9, {0x01, 0xFF});
    MPI small(Chars(nine), 2);
    EXPECT_EQ(small.GetLengthInBits(), 9u);
    EXPECT_EQ(small.GetLengthInBytes(), 2u);
    EXPECT_EQ(Copy(small.GetValue(), 2), Bytes({0x01, 0xFF}));

    Bytes zero = MpiBytes(0, {});
    MPI empty(Chars(zero), 0);
    EXPECT_EQ(empty.GetLengthInBits(), 0u);
    EXPECT_EQ(empty.GetLengthInBytes(), 0u);
}

TEST(PgpMpi, LeadingZeroBitsAreNotChecked) {
    // 17 bits claimed, but the top byte is zero: kept as read.
    Bytes data = MpiBytes(17, {0x00, 0x00, 0x01});
    MPI mpi(Chars(data), 3);
    EXPECT_EQ(mpi.GetLengthInBits(), 17u);
    EXPECT_EQ(Copy(mpi.GetValue(), 3), Bytes({0x00, 0x00, 0x01}));
}

TEST(PgpMpi, MoreBytesThanAvailableAreRefused) {
    Bytes data = MpiBytes(0x0800, Repeat(0xAB, 256));
    ExpectThrowWithText<DataFormatException>([&] { MPI(Chars(data), 255); }, kMpiTooLong);
    ExpectThrowWithText<DataFormatException>([&] { MPI(Chars(data), 255, data.size()); }, kMpiTooLong);
}

TEST(PgpMpi, BufferBoundHoldsWhateverAvailableClaims) {
    Bytes data = MpiBytes(0x0800, Repeat(0xAB, 100));
    std::string text = DataFormatText([&] { MPI(Chars(data), 1000, data.size()); });
    EXPECT_EQ(text, "Invalid format of data: Multi-precision integer: value runs past the end of the data "
                    "(256 bytes needed, 100 left)");
    for (unsigned long size : {0ul, 1ul}) {
        text = DataFormatText([&] { MPI(Chars(data), 1000, size); });
        EXPECT_NE(text.find("Multi-precision integer: bit count runs past the end of the data"),
                  std::string::npos);
    }
}

// ---- Public key ----------------------------------------------------------

namespace {

const Bytes kModulus = Concat({{0xC1}, Repeat(0x5A, 126), {0x37}});
const Bytes kExponent = {0x01, 0x00, 0x01};

Bytes KeyBody(unsigned char version = 4, unsigned char algorithm = 1) {
    return Concat(
        {{version, 0x5F, 0x00, 0x00, 0x01, algorithm}, MpiBytes(1024, kModulus), MpiBytes(17, kExponent)});
}

} // namespace

TEST(PgpPublicKeyPacket, ParsesModulusAndExponent) {
    Bytes packet = Packet16(6, KeyBody());
    ASSERT_EQ(packet[0], 0x99);
    PgpPublicKey key(Chars(packet), Size(packet));
    EXPECT_EQ(key.GetLength(), packet.size());
    EXPECT_EQ(key.GetModulus()->GetLengthInBits(), 1024u);
    EXPECT_EQ(Copy(key.GetModulus()->GetValue(), 128), kModulus);
    EXPECT_EQ(key.GetExponent()->GetLengthInBits(), 17u);
    EXPECT_EQ(Copy(key.GetExponent()->GetValue(), 3), kExponent);
}

TEST(PgpPublicKeyPacket, TrailingInputIsNotPartOfThePacket) {
    Bytes packet = Concat({Packet16(6, KeyBody()), Repeat(0xEE, 40)});
    PgpPublicKey key(Chars(packet), Size(packet));
    EXPECT_EQ(key.GetLength(), packet.size() - 40);
}

TEST(PgpPublicKeyPacket, VersionIsABitTest) {
    for (unsigned char version : {4, 5, 6, 7}) {
        Bytes packet = Packet16(6, KeyBody(version));
        EXPECT_NO_THROW(PgpPublicKey(Chars(packet), Size(packet))) << int(version);
    }
    for (unsigned char version : {2, 3, 8}) {
        Bytes packet = Packet16(6, KeyBody(version));
        ExpectThrowWithText<DataFormatException>(
            [&] { PgpPublicKey(Chars(packet), Size(packet)); },
            "Invalid format of data: This version of OpenPGP public key is not supported");
    }
}

TEST(PgpPublicKeyPacket, AlgorithmIsABitTest) {
    Bytes dsa = Packet16(6, KeyBody(4, 17));
    EXPECT_NO_THROW(PgpPublicKey(Chars(dsa), Size(dsa)));
    Bytes elgamal = Packet16(6, KeyBody(4, 16));
    ExpectThrowWithText<DataFormatException>([&] { PgpPublicKey(Chars(elgamal), Size(elgamal)); }, kOnlyRsa);
}

TEST(PgpPublicKeyPacket, FourOctetLengthBodyStartsAtOffsetSix) {
    Bytes body = KeyBody();
    Bytes packet = Concat({{0x9A}, {0, 0}, Be16(body.size()), {0xEE}, body});
    PgpPublicKey key(Chars(packet), Size(packet));
    EXPECT_EQ(key.GetLength(), body.size() + 6);
    EXPECT_EQ(Copy(key.GetModulus()->GetValue(), 128), kModulus);
}

TEST(PgpPublicKeyPacket, ModulusBoundIsCountedFromFiveBytesIn) {
    // The modulus claims 128 bytes. Its bound is available - 5, so with 3 + 6
    // + 2 + 127 bytes available (132 counted) the bound check passes, and the
    // input itself is what stops the read.
    Bytes packet = Packet16(6, KeyBody());
    unsigned int available = 3 + 6 + 2 + 127;
    std::string text = DataFormatText([&] { PgpPublicKey(Chars(packet), available); });
    EXPECT_EQ(text, "Invalid format of data: Multi-precision integer: value runs past the end of the data "
                    "(128 bytes needed, 127 left)");
    // With fewer than 128 + 5 available the bound check itself refuses it.
    ExpectThrowWithText<DataFormatException>([&] { PgpPublicKey(Chars(packet), 132); }, kMpiTooLong);
}

TEST(PgpPublicKeyPacket, EveryPrefixGivesAResultOrAnException) {
    Bytes packet = Packet16(6, KeyBody());
    for (size_t length = 0; length < packet.size(); ++length) {
        Bytes prefix(packet.begin(), packet.begin() + static_cast<long>(length));
        EXPECT_THROW(PgpPublicKey(Chars(prefix), Size(prefix)), DataFormatException) << length;
    }
}

TEST(PgpPublicKeyPacket, RealGpgKeys) {
    for (const fixtures::SizedKey& expected : fixtures::SizedKeys()) {
        std::string path = testsupport::Fixture(std::string("keys/") + expected.name + ".gpg");
        REQUIRE_FIXTURE(path);
        Bytes key = testsupport::ReadBytes(path);
        PgpPublicKey packet(Chars(key), Size(key));
        EXPECT_EQ(packet.GetModulus()->GetLengthInBits(), expected.bits);
        EXPECT_EQ(packet.GetModulus()->GetLengthInBytes(), expected.bits / 8);
        EXPECT_EQ(Copy(packet.GetExponent()->GetValue(), packet.GetExponent()->GetLengthInBytes()),
                  kExponent);
        // Header 99 + 2 length octets, version, time, algorithm, two MPIs.
        EXPECT_EQ(packet.GetLength(), 3 + 6 + 2 + expected.bits / 8 + 2 + 3);
    }
}

// ---- Signature, version 4 --------------------------------------------------

namespace {

const Bytes kHashed4 = {0x05, 0x02, 0x5F, 0x00, 0x00, 0x01};
const Bytes kLeft = {0xAB, 0xCD};
const Bytes kSignatureValue = {0x7F, 0x01, 0x02, 0x03};
const Bytes kMpi = MpiBytes(31, kSignatureValue);

Bytes IssuerSubpacket(const Bytes& issuer = kIssuer) {
    return Concat({{0x09, 0x10}, issuer});
}

} // namespace

TEST(PgpSignaturePacketV4, IssuerSubpacketAlone) {
    Bytes packet = Packet16(2, V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi, 0x00, 1, 8));
    ASSERT_EQ(packet[0], 0x89);
    PgpSignatureData signature(Chars(packet), Size(packet));
    EXPECT_EQ(signature.GetLength(), packet.size());
    EXPECT_EQ(signature.GetVersion(), PgpSignatureVersion4);
    EXPECT_EQ(signature.GetType(), PgpSignatureBinary);
    EXPECT_EQ(signature.GetPublicKeyAlgorithm(), 1);
    EXPECT_EQ(signature.GetHashAlgorithm(), PgpHashSha256);
    EXPECT_EQ(signature.GetHashedLength(), 6);
    EXPECT_EQ(Copy(signature.GetHashedData(), 6), kHashed4);
    EXPECT_EQ(signature.GetUnhashedLength(), 10);
    EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), kIssuer);
    EXPECT_EQ(Copy(signature.GetLeft16Bits(), 2), kLeft);
    // A packet with a 2-byte length that fills its input: the size value is
    // exactly the MPI's byte count.
    EXPECT_EQ(signature.GetSignatureSize(), 4);
    ASSERT_NE(signature.GetSignatureValue(), nullptr);
    EXPECT_EQ(signature.GetSignatureValue()->GetLengthInBits(), 31u);
    EXPECT_EQ(Copy(signature.GetSignatureValue()->GetValue(), 4), kSignatureValue);
}

TEST(PgpSignaturePacketV4, MpiMustEndAtTheEndOfTheInput) {
    // Bytes after the packet raise the bound; a shorter input refuses the MPI.
    Bytes packet = Packet16(2, V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi));
    Bytes longer = Concat({packet, Repeat(0, 10)});
    PgpSignatureData signature(Chars(longer), Size(longer));
    EXPECT_EQ(signature.GetSignatureSize(), 14);
    EXPECT_EQ(signature.GetLength(), packet.size());

    Bytes bigger = Packet16(2, V4Body(kHashed4, IssuerSubpacket(), kLeft, MpiBytes(40, {1, 2, 3, 4})));
    ExpectThrowWithText<DataFormatException>([&] { PgpSignatureData(Chars(bigger), Size(bigger)); },
                                             kMpiTooLong);
}

TEST(PgpSignaturePacketV4, WrongIssuerSubpacketSize) {
    Bytes unhashed = Concat({{0x0A, 0x10}, kIssuer, {0x00}});
    Bytes packet = Packet16(2, V4Body(kHashed4, unhashed, kLeft, kMpi));
    ExpectThrowWithText<DataFormatException>([&] { PgpSignatureData(Chars(packet), Size(packet)); },
                                             "Invalid format of data: Wrong size of IssuerID");
}

namespace {

// Parses a version-4 packet with the given unhashed area and expects the
// issuer, quick-check bytes and signature value in their places.
void ExpectWalkFindsTheIssuer(const Bytes& unhashed) {
    Bytes packet = Packet16(2, V4Body(kHashed4, unhashed, kLeft, kMpi));
    PgpSignatureData signature(Chars(packet), Size(packet));
    EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), kIssuer);
    EXPECT_EQ(Copy(signature.GetLeft16Bits(), 2), kLeft);
    EXPECT_EQ(Copy(signature.GetSignatureValue()->GetValue(), 4), kSignatureValue);
}

} // namespace

TEST(PgpSignaturePacketV4, WalkLandsInsideASubpacketAndStillFindsTheIssuer) {
    // "03 1B 00 01" is a 3-byte key-flags subpacket. The cursor moves by its
    // length only and lands on its last byte, reads 01 as a length, moves one
    // byte on and reaches the issuer subpacket.
    ExpectWalkFindsTheIssuer(Concat({{0x03, 0x1B, 0x00, 0x01}, IssuerSubpacket()}));
}

TEST(PgpSignaturePacketV4, WalkCursorMovesByTheLengthByteOnly) {
    // "02 1B 09" is followed by "10" and eight bytes: the cursor lands on
    // 09, reads 09 10 as an issuer subpacket, and takes the eight bytes.
    ExpectWalkFindsTheIssuer(Concat({{0x02, 0x1B, 0x09, 0x10}, kIssuer}));
}

TEST(PgpSignaturePacketV4, IssuerBeforeAnotherSubpacket) {
    // After the issuer the total is 9 and the walk goes on while it is below
    // the unhashed length - 1 (12): "02 99 01" moves the cursor by 2 onto its
    // last byte, which is read as a length of 1 with the next byte (the
    // first of the left 16 bits) as its type; the cursor then stops right
    // behind the unhashed area.
    ExpectWalkFindsTheIssuer(Concat({IssuerSubpacket(), {0x02, 0x99, 0x01}}));
}

TEST(PgpSignaturePacketV4, ZeroLengthSubpacketStopsTheWalk) {
    Bytes unhashed = Concat({{0x00, 0x05}, IssuerSubpacket()});
    Bytes packet = Packet16(2, V4Body(kHashed4, unhashed, kLeft, kMpi));
    ExpectThrowWithText<DataFormatException>([&] { PgpSignatureData(Chars(packet), Size(packet)); },
                                             "Invalid format of data: OpenPGP signature packet: unhashed "
                                             "subpacket of length 0 stops the subpacket walk");
}

TEST(PgpSignaturePacketV4, EmptyUnhashedAreaEndsInAnException) {
    // The walk's limit wraps; it walks on through the rest of the input until
    // a read would leave it.
    Bytes packet = Packet16(2, V4Body(kHashed4, {}, kLeft, kMpi));
    EXPECT_THROW(PgpSignatureData(Chars(packet), Size(packet)), DataFormatException);
    Bytes zeros = Packet16(2, V4Body(kHashed4, {}, {0, 0}, MpiBytes(0, {})));
    EXPECT_THROW(PgpSignatureData(Chars(zeros), Size(zeros)), DataFormatException);
}

TEST(PgpSignaturePacketV4, WalkPastTheInputIsRefused) {
    // A subpacket length that carries the cursor beyond the input while the
    // walk goes on (the unhashed length claims 0x200 bytes).
    Bytes body = Concat(
        {{4, 0, 1, 8}, Be16(kHashed4.size()), kHashed4, Be16(0x200), {0xF0, 0x05, 0x00, 0x00}, kLeft, kMpi});
    Bytes packet = Packet16(2, body);
    EXPECT_EQ(
        DataFormatText([&] { PgpSignatureData(Chars(packet), Size(packet)); }),
        "Invalid format of data: OpenPGP signature packet: unhashed subpacket points past the end of the "
        "data");
    // The walk ends, but its cursor lies beyond the input.
    Bytes ends = Packet16(2, V4Body(kHashed4, {0xF0, 0x05, 0x00, 0x00}, kLeft, kMpi));
    EXPECT_EQ(
        DataFormatText([&] { PgpSignatureData(Chars(ends), Size(ends)); }),
        "Invalid format of data: OpenPGP signature packet: left 16 bits points past the end of the data");
}

TEST(PgpSignaturePacketV4, HashedLengthBeyondTheInputIsRefused) {
    Bytes body = V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi);
    body[4] = 0x7F; // hashed length 0x7F06
    Bytes packet = Packet16(2, body);
    std::string text = DataFormatText([&] { PgpSignatureData(Chars(packet), Size(packet)); });
    EXPECT_NE(text.find("OpenPGP signature packet: hashed subpackets runs past the end of the data"),
              std::string::npos)
        << text;
}

TEST(PgpSignaturePacketV4, AlgorithmChecks) {
    Bytes dsa = Packet16(2, V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi, 0, 17));
    PgpSignatureData signature(Chars(dsa), Size(dsa));
    EXPECT_EQ(signature.GetPublicKeyAlgorithm(), 17);
    Bytes elgamal = Packet16(2, V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi, 0, 16));
    ExpectThrowWithText<DataFormatException>([&] { PgpSignatureData(Chars(elgamal), Size(elgamal)); },
                                             kOnlyRsa);
}

TEST(PgpSignaturePacketV4, FourOctetLengthBodyStartsAtOffsetSix) {
    Bytes body = V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi);
    Bytes packet = Concat({{0x8A}, {0, 0}, Be16(body.size()), {0xEE}, body});
    PgpSignatureData signature(Chars(packet), Size(packet));
    EXPECT_EQ(signature.GetLength(), body.size() + 6);
    EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), kIssuer);
    // available is 3 larger than with a 2-byte length, so is the size value.
    EXPECT_EQ(signature.GetSignatureSize(), 4 + 3);
}

TEST(PgpSignaturePacket, UnsupportedVersionIsWrittenAsACharacter) {
    Bytes five = Packet16(2, {5, 0, 1, 8, 0, 0});
    ExpectThrowWithText<DataFormatException>(
        [&] { PgpSignatureData(Chars(five), Size(five)); },
        "Invalid format of data: Version \x05 of signature packets is not "
        "supported");
    Bytes letter = Packet16(2, {'A', 0, 1, 8, 0, 0});
    ExpectThrowWithText<DataFormatException>([&] { PgpSignatureData(Chars(letter), Size(letter)); },
                                             "Invalid format of data: Version A of signature packets is not "
                                             "supported");
}

// ---- Signature, version 3 --------------------------------------------------

namespace {
const Bytes kHashed3 = {0x00, 0x5F, 0x00, 0x00, 0x02};
}

TEST(PgpSignaturePacketV3, Fields) {
    Bytes packet = Packet16(2, V3Body(kHashed3, kIssuer, 1, 2, kLeft, kMpi));
    PgpSignatureData signature(Chars(packet), Size(packet));
    EXPECT_EQ(signature.GetLength(), packet.size());
    EXPECT_EQ(signature.GetVersion(), PgpSignatureVersion3);
    EXPECT_EQ(signature.GetHashedLength(), 5);
    EXPECT_EQ(Copy(signature.GetHashedData(), 5), kHashed3);
    EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), kIssuer);
    EXPECT_EQ(signature.GetPublicKeyAlgorithm(), 1);
    EXPECT_EQ(signature.GetHashAlgorithm(), PgpHashSha1);
    EXPECT_EQ(Copy(signature.GetLeft16Bits(), 2), kLeft);
    EXPECT_EQ(signature.GetUnhashedLength(), 0);
    // The type octet is only in the hashed data.
    EXPECT_EQ(signature.GetType(), PgpSignatureBinary);
    // available - 24 is the MPI's byte count for a packet that fills its input.
    EXPECT_EQ(signature.GetSignatureSize(), 4);
    EXPECT_EQ(Copy(signature.GetSignatureValue()->GetValue(), 4), kSignatureValue);
}

TEST(PgpSignaturePacketV3, HashedLengthIsASignedByte) {
    // 0x80 widens to 0xFF80 = 65408 hashed bytes; with that much input the
    // rest of the packet is read after them.
    Bytes hashed = Repeat(0x42, 0xFF80);
    Bytes body = Concat({{3, 0x80}, hashed, kIssuer, {1, 10}, kLeft, kMpi});
    Bytes packet = Concat({{0x8A, 0, 0}, Be16(body.size()), {0}, body});
    PgpSignatureData signature(Chars(packet), Size(packet));
    EXPECT_EQ(signature.GetHashedLength(), 0xFF80);
    EXPECT_EQ(Copy(signature.GetHashedData(), 0xFF80), hashed);
    EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), kIssuer);
    EXPECT_EQ(signature.GetHashAlgorithm(), PgpHashSha512);
    EXPECT_EQ(signature.GetSignatureSize(), static_cast<uint16_t>(packet.size() - 24));

    Bytes small = Packet16(2, Concat({{3, 0x80}, Repeat(0x42, 5), kIssuer, {1, 2}, kLeft, kMpi}));
    std::string text = DataFormatText([&] { PgpSignatureData(Chars(small), Size(small)); });
    EXPECT_NE(text.find("OpenPGP signature packet: hashed data runs past the end of the data (65408 bytes"),
              std::string::npos)
        << text;
}

TEST(PgpSignaturePacketV3, AlgorithmIsChecked) {
    Bytes packet = Packet16(2, V3Body(kHashed3, kIssuer, 16, 2, kLeft, kMpi));
    ExpectThrowWithText<DataFormatException>([&] { PgpSignatureData(Chars(packet), Size(packet)); },
                                             kOnlyRsa);
}

TEST(PgpSignaturePacket, EveryPrefixGivesAResultOrAnException) {
    for (const Bytes& packet : {Packet16(2, V4Body(kHashed4, IssuerSubpacket(), kLeft, kMpi)),
                                Packet16(2, V3Body(kHashed3, kIssuer, 1, 2, kLeft, kMpi))}) {
        for (size_t length = 0; length < packet.size(); ++length) {
            Bytes prefix(packet.begin(), packet.begin() + static_cast<long>(length));
            EXPECT_THROW(PgpSignatureData(Chars(prefix), Size(prefix)), DataFormatException) << length;
        }
    }
}

// ---- Building a signature packet ---------------------------------------------

TEST(PgpSignatureBuild, Versions3And4) {
    // What a signature built for signing holds: the given fields, no value
    // yet, and hashed bytes that end with the creation time. A version-3
    // signature's first hashed byte is 0x00 whatever the type; a version-4
    // one hashes a creation-time subpacket (length 5, type 2) and keeps an
    // issuer subpacket of 10 bytes unhashed.
    struct Case {
        PgpSignatureVersion version;
        Bytes issuer;
        uint16_t bits;
        PgpSignatureType type;
        PgpHashAlgorithm hash;
        uint16_t hashedLength;
        uint16_t unhashedLength;
        Bytes hashedStart;
    };
    for (const Case& c :
         {Case{PgpSignatureVersion3,
               {1, 2, 3, 4, 5, 6, 7, 8},
               2048,
               PgpSignatureText,
               PgpHashSha256,
               5,
               0,
               {0x00}},
          Case{
              PgpSignatureVersion4, kIssuer, 4096, PgpSignatureBinary, PgpHashSha512, 6, 10, {0x05, 0x02}}}) {
        SCOPED_TRACE("version " + std::to_string(c.version));
        const std::string issuer(c.issuer.begin(), c.issuer.end());
        uint32_t before = static_cast<uint32_t>(std::time(nullptr));
        PgpSignatureData signature(c.version, issuer.c_str(), c.bits, c.type, c.hash);
        uint32_t after = static_cast<uint32_t>(std::time(nullptr));
        EXPECT_EQ(signature.GetLength(), 0u);
        EXPECT_EQ(signature.GetVersion(), c.version);
        EXPECT_EQ(signature.GetType(), c.type);
        EXPECT_EQ(signature.GetPublicKeyAlgorithm(), 1);
        EXPECT_EQ(signature.GetHashAlgorithm(), c.hash);
        EXPECT_EQ(signature.GetSignatureSize(), c.bits);
        EXPECT_EQ(signature.GetSignatureValue(), nullptr);
        EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), c.issuer);
        ASSERT_EQ(signature.GetHashedLength(), c.hashedLength);
        EXPECT_EQ(signature.GetUnhashedLength(), c.unhashedLength);
        const unsigned char* hashed = signature.GetHashedData();
        EXPECT_EQ(Copy(hashed, c.hashedStart.size()), c.hashedStart);
        uint32_t created = LoadBigEndian32(hashed + c.hashedStart.size());
        EXPECT_GE(created, before);
        EXPECT_LE(created, after);
    }
}

TEST(PgpSignatureBuild, OtherVersionsAreNotSupported) {
    const char issuer[] = "\x11\x22\x33\x44\x55\x66\x77\x88";
    ExpectThrowWithText<NotSupportedException>(
        [&] {
            PgpSignatureData(static_cast<PgpSignatureVersion>(5), issuer, 2048, PgpSignatureBinary,
                             PgpHashSha1);
        },
        "Not supported version of PGP certificate");
}

// ---- Real gpg signatures -----------------------------------------------------

namespace {

// The quick-check bytes of a version-4 signature over data: the first two
// of the digest of the data and the trailer (RFC 4880, 5.2.4).
Bytes QuickCheck(const Bytes& data, const PgpSignatureData& signature) {
    const Bytes digest =
        rpmtest::SignedHash(rpmtest::Version4Spec(signature.GetType(), signature.GetPublicKeyAlgorithm(),
                                                  signature.GetHashAlgorithm(), signature.GetHashedData(),
                                                  signature.GetHashedLength()),
                            data);
    return Bytes(digest.begin(), digest.begin() + 2);
}

Bytes KeyIdBytes(const std::string& name) {
    std::string hex = testsupport::ReadFile(testsupport::Fixture("keys/" + name + ".keyid")).substr(0, 16);
    Bytes id;
    for (size_t i = 0; i < 16; i += 2) {
        id.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return id;
}

} // namespace

TEST(PgpSignaturePacketReal, DetachedGpgSignatures) {
    std::string dataPath = testsupport::Fixture("data/data.bin");
    REQUIRE_FIXTURE(dataPath);
    Bytes data = testsupport::ReadBytes(dataPath);
    for (const fixtures::SizedKey& c : fixtures::SizedKeys()) {
        for (const char* hash : {"sha1", "sha256", "sha512"}) {
            std::string path = testsupport::Fixture(std::string("sigs/") + c.name + "-" + hash + ".sig");
            REQUIRE_FIXTURE(path);
            Bytes blob = testsupport::ReadBytes(path);
            PgpSignatureData signature(Chars(blob), Size(blob));
            SCOPED_TRACE(path);
            EXPECT_EQ(signature.GetLength(), blob.size());
            EXPECT_EQ(signature.GetVersion(), PgpSignatureVersion4);
            EXPECT_EQ(signature.GetType(), PgpSignatureBinary);
            EXPECT_EQ(signature.GetPublicKeyAlgorithm(), 1);
            unsigned char expectedHash = std::string(hash) == "sha1"     ? PgpHashSha1
                                         : std::string(hash) == "sha256" ? PgpHashSha256
                                                                         : PgpHashSha512;
            EXPECT_EQ(signature.GetHashAlgorithm(), expectedHash);
            EXPECT_EQ(Copy(signature.GetIssuerKeyId(), 8), KeyIdBytes(c.name));
            const MPI* value = signature.GetSignatureValue();
            ASSERT_NE(value, nullptr);
            EXPECT_LE(value->GetLengthInBits(), c.bits);
            EXPECT_GT(value->GetLengthInBits(), c.bits - 32);
            EXPECT_EQ(signature.GetSignatureSize(), value->GetLengthInBytes());
            // The quick-check bytes are the first two of the real digest.
            EXPECT_EQ(Copy(signature.GetLeft16Bits(), 2), QuickCheck(data, signature));
        }
    }
}

TEST(PgpSignaturePacketReal, ShortSignatureValue) {
    std::string path = testsupport::Fixture("sigs/leadingzero.sig");
    REQUIRE_FIXTURE(path);
    Bytes blob = testsupport::ReadBytes(path);
    PgpSignatureData signature(Chars(blob), Size(blob));
    EXPECT_LE(signature.GetSignatureValue()->GetLengthInBits(), 2040u);
    EXPECT_EQ(signature.GetSignatureSize(), signature.GetSignatureValue()->GetLengthInBytes());
    EXPECT_EQ(Copy(signature.GetLeft16Bits(), 2),
              QuickCheck(testsupport::ReadBytes(testsupport::Fixture("data/leadingzero.bin")), signature));
}

TEST(PgpSignaturePacketReal, EveryPrefixAndEveryByteChangeGivesAResultOrAnException) {
    std::string path = testsupport::Fixture("sigs/rsa2048-sha256.sig");
    REQUIRE_FIXTURE(path);
    Bytes blob = testsupport::ReadBytes(path);
    for (size_t length = 0; length <= blob.size(); ++length) {
        Bytes prefix(blob.begin(), blob.begin() + static_cast<long>(length));
        try {
            PgpSignatureData signature(Chars(prefix), Size(prefix));
            EXPECT_EQ(length, blob.size());
        } catch (const DataFormatException&) {
        }
    }
    // Whether a changed packet that still parses can verify is checked by
    // PgpSignatureFixtures.EveryByteChangeOfARealSignatureIsNeverValid.
    size_t parsed = 0;
    size_t refused = 0;
    for (size_t at = 0; at < blob.size(); ++at) {
        for (unsigned char value : {0x00, 0x01, 0x09, 0x10, 0x7F, 0x80, 0xFF}) {
            Bytes changed = blob;
            changed[at] = value;
            try {
                PgpSignatureData signature(Chars(changed), Size(changed));
                ++parsed;
            } catch (const DataFormatException&) {
                ++refused;
            }
        }
    }
    // Most changes land in the signature value and still parse; changes to
    // the header, the lengths and the version are refused.
    EXPECT_EQ(7 * blob.size(), parsed + refused);
    EXPECT_GT(parsed, refused);
    EXPECT_GT(refused, 0u);
}
