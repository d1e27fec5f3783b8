#include "PgpMessage.h"

#include "Base64.h"
#include "ByteReader.h"
#include "ContractTexts.h"
#include "Exceptions.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

// What the message does with each old-format packet tag it accepts.
enum class PacketAction { PublicKey, Signature, Skip };
struct PacketKind {
    unsigned int tag;
    PacketAction action;
};
constexpr PacketKind kPacketKinds[] = {
    {6, PacketAction::PublicKey}, // public key
    {2, PacketAction::Signature}, // signature
    {13, PacketAction::Skip},     // user ID
    {14, PacketAction::Skip},     // public subkey
};

constexpr size_t kBeginMarkerLength = sizeof(contract::kArmorBegin) - 1; // 36
constexpr size_t kEndMarkerLength = sizeof(contract::kArmorEnd) - 1;     // 34

inline bool IsLineEnd(char c) {
    return c == '\r' || c == '\n';
}

} // namespace

PgpMessage::PgpMessage(char* data, unsigned int length) : _PublicKey(nullptr), _Signature(nullptr) {
    if (data == nullptr) {
        length = 0;
    }
    try {
        // Bit 7 of the first byte is set in every OpenPGP packet tag; text
        // is taken as armor. An empty input has no key either way.
        if (length == 0 || (static_cast<unsigned char>(data[0]) & 0x80) == 0) {
            char* body = nullptr;
            unsigned int bodyLength = 0;
            if (!SkipHeader(data, length, &body, bodyLength)) {
                throw DataFormatException(contract::kPublicKeyNotFound);
            }
            // The checksum line was cut off by SkipHeader and is not checked.
            unsigned int decodedLength = 0;
            std::unique_ptr<char[]> decoded(Base64::Decode(body, bodyLength, decodedLength));
            if (!decoded) {
                throw DataFormatException(contract::kPublicKeyBase64Corrupted);
            }
            ParsePackets(decoded.get(), decodedLength);
        } else {
            ParsePackets(data, length);
        }
    } catch (...) {
        delete _PublicKey;
        _PublicKey = nullptr;
        delete _Signature;
        _Signature = nullptr;
        throw;
    }
}

PgpMessage::~PgpMessage() {
    delete _PublicKey;
    _PublicKey = nullptr;
    delete _Signature;
    _Signature = nullptr;
}

void PgpMessage::ParsePackets(char* data, unsigned int length) {
    char* p = data;
    unsigned int remaining = length;
    do {
        unsigned int used = ParsePacket(p, remaining);
        // A packet that claims more than what remains would run past the
        // input; one that claims nothing would never end.
        if (used > remaining) {
            throw DataFormatException("OpenPGP message: packet length runs past the end of the data (" +
                                      std::to_string(used) + " bytes claimed, " + std::to_string(remaining) +
                                      " left)");
        }
        if (used == 0) {
            throw DataFormatException("OpenPGP message: packet of length 0");
        }
        remaining -= used;
        p += used;
    } while (remaining != 0);
}

unsigned int PgpMessage::ParsePacket(char* data, unsigned int length) {
    ByteReader reader(data, length, "OpenPGP packet header");
    uint8_t tagByte = reader.ReadUInt8("tag byte");
    if (tagByte & 0x40) {
        throw DataFormatException(contract::kNewPacketFormat);
    }
    unsigned int tag = (tagByte & 0x3C) >> 2;
    for (const PacketKind& kind : kPacketKinds) {
        if (kind.tag != tag) {
            continue;
        }
        switch (kind.action) {
        case PacketAction::PublicKey: {
            // A later packet of the same kind replaces the earlier one.
            std::unique_ptr<PgpPublicKey> key(new PgpPublicKey(data, length));
            delete _PublicKey;
            _PublicKey = key.release();
            return _PublicKey->GetLength();
        }
        case PacketAction::Signature: {
            std::unique_ptr<PgpSignatureData> signature(new PgpSignatureData(data, length));
            delete _Signature;
            _Signature = signature.release();
            return _Signature->GetLength();
        }
        case PacketAction::Skip: {
            unsigned int headerLength = 0;
            return PgpPacket::ParseLengthTag(data, length, headerLength);
        }
        }
    }
    throw DataFormatException(contract::kUnsupportedPacketTag);
}

bool PgpMessage::SkipHeader(const char* data, unsigned long length, char** body, unsigned int& bodyLength) {
    if (length <= 2) {
        *body = const_cast<char*>(data);
        return false;
    }

    // Header scan over offsets; nothing at or after data + length is read.
    const size_t stop = length - 2;
    size_t p = 0;
    bool beginFound = false;
    bool pairSeen = false; // a CR/LF pair of two different bytes was just passed
    bool blankLine = false;
    bool ended = false;
    while (!blankLine && !ended) {
        if (length - p >= kBeginMarkerLength &&
            std::memcmp(data + p, contract::kArmorBegin, kBeginMarkerLength) == 0) {
            beginFound = true;
        }
        for (;;) {
            ++p;
            if (IsLineEnd(data[p])) {
                ++p;
                if (IsLineEnd(data[p])) {
                    if (data[p] == data[p - 1] || pairSeen) {
                        blankLine = true;
                        break;
                    }
                    pairSeen = true;
                }
            } else {
                pairSeen = false;
            }
            if (p >= stop) {
                ended = true;
                break;
            }
            if (pairSeen && !beginFound) {
                break; // compare the marker again here
            }
        }
    }
    size_t bodyStart = blankLine ? p + 1 : p;

    if (!beginFound) {
        *body = const_cast<char*>(data + bodyStart);
        return false;
    }

    // The END marker, searched backwards; it must be followed by at least
    // one byte.
    if (length < kEndMarkerLength + 1) {
        return false;
    }
    size_t end = 0;
    bool endFound = false;
    const size_t first = length - kEndMarkerLength - 1; // data + length - 35
    for (size_t q = first + 1; q-- > bodyStart;) {
        if (std::memcmp(data + q, contract::kArmorEnd, kEndMarkerLength) == 0) {
            end = q;
            endFound = true;
            break;
        }
    }
    if (!endFound) {
        return false;
    }

    // The checksum line's "=", searched backwards from the END marker.
    size_t equals = 0;
    bool equalsFound = false;
    for (size_t q = end + 1; q-- > bodyStart;) {
        if (data[q] == '=') {
            equals = q;
            equalsFound = true;
            break;
        }
    }
    // Without a line end between the body start and "=" there is no body.
    if (!equalsFound || equals == bodyStart || equals - bodyStart - 1 > UINT32_MAX) {
        return false;
    }
    // The line end just before the checksum line is left out.
    *body = const_cast<char*>(data + bodyStart);
    bodyLength = static_cast<unsigned int>(equals - bodyStart - 1);
    return true;
}

int PgpMessage::DeArmor(const char* data, unsigned long length, char** body, unsigned int& bodyLength) {
    if (length == 0) {
        *body = const_cast<char*>(data);
        bodyLength = 0;
        return 0;
    }
    const size_t last = length - 1;
    size_t forward = 0;
    int skipped = 0;
    while (forward != last && skipped < 3) {
        if (IsLineEnd(data[forward])) {
            ++skipped;
        }
        ++forward;
    }
    size_t backward = last;
    if (forward != last) {
        int trimmed = 0;
        while (backward != forward && trimmed < 2) {
            if (IsLineEnd(data[backward])) {
                ++trimmed;
            }
            --backward;
        }
    }
    *body = const_cast<char*>(data + forward);
    bodyLength = static_cast<unsigned int>(backward - forward + 1);
    return skipped;
}
