#include "KeyFile.h"

#include "BoundedReader.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

namespace host {
namespace {

// Key files are small; a limit keeps a wrong path (a disk image) from
// being read whole.
constexpr size_t kMaxKeyFileSize = size_t{64} * 1024 * 1024;
constexpr char kBegin[] = "-----BEGIN ";
constexpr char kEnd[] = "-----END ";

int Base64Value(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : (c == '/' ? 63 : -1);
}

// Decodes the radix-64 body of every armor block; the checksum lines
// ("=XXXX") and the armor headers are left out.
std::vector<unsigned char> Dearmor(const std::string& text, KeyFile& file) {
    std::vector<unsigned char> out;
    size_t position = 0;
    while (true) {
        const size_t begin = text.find(kBegin, position);
        if (begin == std::string::npos || (begin != 0 && text[begin - 1] != '\n')) {
            if (begin == std::string::npos) {
                break;
            }
            position = begin + 1;
            continue;
        }
        const size_t lineEnd = text.find('\n', begin);
        if (file.armorBlocks == 0) {
            file.textBeforeArmor = begin;
            std::string line = text.substr(begin + 11, lineEnd == std::string::npos ? std::string::npos
                                                                                    : lineEnd - begin - 11);
            while (!line.empty() && (line.back() == '\r' || line.back() == '-')) {
                line.pop_back();
            }
            file.armorKind = line;
        }
        ++file.armorBlocks;
        if (lineEnd == std::string::npos) {
            break;
        }
        // Armor headers ("Version: ...") end at the first empty line.
        size_t at = lineEnd + 1;
        bool inHeaders = true;
        uint32_t accumulator = 0;
        int bits = 0;
        while (at < text.size()) {
            size_t next = text.find('\n', at);
            std::string line = text.substr(at, next == std::string::npos ? std::string::npos : next - at);
            at = next == std::string::npos ? text.size() : next + 1;
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            if (line.compare(0, sizeof(kEnd) - 1, kEnd) == 0) {
                break;
            }
            if (inHeaders) {
                if (line.find(':') != std::string::npos) {
                    continue;
                }
                inHeaders = false;
                if (line.empty()) {
                    continue;
                }
            }
            if (!line.empty() && line[0] == '=') {
                continue; // the checksum
            }
            for (char c : line) {
                const int value = Base64Value(c);
                if (value < 0) {
                    continue;
                }
                accumulator = (accumulator << 6) | static_cast<uint32_t>(value);
                bits += 6;
                if (bits >= 8) {
                    bits -= 8;
                    out.push_back(static_cast<unsigned char>(accumulator >> bits));
                }
            }
        }
        position = at;
    }
    return out;
}

void ReadPackets(const std::vector<unsigned char>& data, KeyFile& file) {
    std::vector<PgpPacketView> packets;
    try {
        packets = OpenPgpPackets::Split(data);
    } catch (const ReadError& error) {
        file.packetError = error.what();
        return;
    }
    KeySubkey* lastSubkey = nullptr;
    for (const PgpPacketView& packet : packets) {
        file.newFormatPackets += packet.newFormat ? 1 : 0;
        try {
            switch (packet.tag) {
            case 6:
                file.keys.push_back(KeyBlock{OpenPgpPackets::ReadKey(packet), {}, {}});
                lastSubkey = nullptr;
                break;
            case 14:
                if (!file.keys.empty()) {
                    file.keys.back().subkeys.push_back(KeySubkey{OpenPgpPackets::ReadKey(packet), false});
                    lastSubkey = &file.keys.back().subkeys.back();
                }
                break;
            case 13:
                if (!file.keys.empty()) {
                    file.keys.back().userIds.emplace_back(packet.body.begin(), packet.body.end());
                }
                break;
            case 12:
                ++file.trustPackets;
                break;
            case 2: {
                PgpSignatureInfo signature = OpenPgpPackets::ReadSignature(packet);
                file.lastSignatureIssuer = signature.issuerKeyId;
                // A subkey binding signature says what the subkey may do.
                if (signature.type == 0x18 && lastSubkey != nullptr && signature.hasKeyFlags) {
                    lastSubkey->canSign = (signature.keyFlags & 0x02) != 0;
                }
                break;
            }
            default:
                break;
            }
        } catch (const ReadError& error) {
            file.packetError = OpenPgpPackets::PacketName(packet.tag) + " packet: " + error.what();
        }
    }
}

} // namespace

KeyFile KeyFile::Read(const std::string& path) {
    KeyFile file;
    file.path = path;
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        file.form = Form::Unreadable;
        file.readError = std::strerror(errno);
        return file;
    }
    if (!S_ISREG(status.st_mode)) {
        file.form = Form::Unreadable;
        file.readError = "it is not a regular file";
        return file;
    }
    if (static_cast<size_t>(status.st_size) > kMaxKeyFileSize) {
        file.form = Form::Other;
        file.size = static_cast<size_t>(status.st_size);
        return file;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        file.form = Form::Unreadable;
        file.readError = std::strerror(errno);
        return file;
    }
    std::vector<unsigned char> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    file.size = data.size();
    if (data.empty()) {
        file.form = Form::Empty;
        return file;
    }
    static const unsigned char kRpmLead[4] = {0xED, 0xAB, 0xEE, 0xDB};
    if (data.size() >= 4 && std::memcmp(data.data(), kRpmLead, 4) == 0) {
        file.form = Form::RpmPackage;
        return file;
    }
    if (data.size() >= 12 && std::memcmp(data.data() + 8, "KBXf", 4) == 0) {
        file.form = Form::Keybox;
        return file;
    }
    if ((data[0] & 0x80) != 0) {
        file.form = Form::Binary;
        ReadPackets(data, file);
        return file;
    }
    const std::string text(data.begin(), data.end());
    file.crlf = text.find("\r\n") != std::string::npos;
    std::vector<unsigned char> decoded = Dearmor(text, file);
    if (file.armorBlocks == 0) {
        file.form = Form::Other;
        return file;
    }
    file.form = Form::Armored;
    ReadPackets(decoded, file);
    return file;
}

const PgpKeyInfo* KeyFile::FindKey(const std::string& keyId) const {
    for (const KeyBlock& block : keys) {
        if (block.primary.keyId == keyId) {
            return &block.primary;
        }
        for (const KeySubkey& subkey : block.subkeys) {
            if (subkey.key.keyId == keyId) {
                return &subkey.key;
            }
        }
    }
    return nullptr;
}

const KeyBlock* KeyFile::BlockOfSubkey(const std::string& keyId) const {
    for (const KeyBlock& block : keys) {
        for (const KeySubkey& subkey : block.subkeys) {
            if (subkey.key.keyId == keyId) {
                return &block;
            }
        }
    }
    return nullptr;
}

} // namespace host
