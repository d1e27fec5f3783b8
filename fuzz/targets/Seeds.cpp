// Seed inputs of the fuzz targets, cut from real keys, signatures and
// packages so that the fuzzers start from well-formed data.
#include "FuzzTargets.h"

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

namespace {

bool ReadWhole(const std::string& path, std::string& bytes) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

// Regular files of a folder whose names end with one of the suffixes (all
// files for an empty list), sorted by name.
std::vector<std::string> ListFiles(const std::string& folder, const std::vector<std::string>& suffixes) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        return names;
    }
    while (dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        bool wanted = suffixes.empty();
        for (const std::string& suffix : suffixes) {
            if (name.size() >= suffix.size() &&
                name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
                wanted = true;
            }
        }
        if (wanted) {
            names.push_back(name);
        }
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

void AddFiles(std::vector<FuzzSeed>& seeds, const std::string& folder, const std::string& prefix,
              const std::vector<std::string>& suffixes) {
    for (const std::string& name : ListFiles(folder, suffixes)) {
        std::string bytes;
        if (ReadWhole(folder + "/" + name, bytes)) {
            seeds.push_back({prefix + name, bytes});
        }
    }
}

uint32_t Be32(const std::string& bytes, size_t at) {
    return (static_cast<uint32_t>(static_cast<unsigned char>(bytes[at])) << 24) |
           (static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 16) |
           (static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 2])) << 8) |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 3]));
}

// The OpenPGP signature blobs (tags 268 and 1002) of an RPM signature header.
std::vector<std::string> SignatureBlobs(const std::string& package) {
    std::vector<std::string> blobs;
    if (package.size() < 112) {
        return blobs;
    }
    const uint64_t count = Be32(package, 104);
    const uint64_t dataSize = Be32(package, 108);
    const uint64_t store = 112 + 16 * count;
    if (store + dataSize > package.size()) {
        return blobs;
    }
    for (uint64_t i = 0; i < count; ++i) {
        const size_t entry = static_cast<size_t>(112 + 16 * i);
        const uint32_t tag = Be32(package, entry);
        const uint32_t offset = Be32(package, entry + 8);
        const uint32_t length = Be32(package, entry + 12);
        if ((tag == 268 || tag == 1002) && uint64_t(offset) + length <= dataSize) {
            blobs.push_back(package.substr(static_cast<size_t>(store + offset), length));
        }
    }
    return blobs;
}

// Where the main header of a package ends, or 0.
size_t MainHeaderEnd(const std::string& package) {
    if (package.size() < 112) {
        return 0;
    }
    uint64_t main = 112 + 16 * uint64_t(Be32(package, 104)) + Be32(package, 108);
    main = (main + 7) / 8 * 8;
    if (main + 16 > package.size()) {
        return 0;
    }
    uint64_t end = main + 16 + 16 * uint64_t(Be32(package, main + 8)) + Be32(package, main + 12);
    return end <= package.size() ? static_cast<size_t>(end) : 0;
}

struct RawPacket {
    unsigned int tag;
    std::string bytes; // header and body
};

// Splits binary OpenPGP data into packets (old and new header formats).
std::vector<RawPacket> SplitPackets(const std::string& data) {
    std::vector<RawPacket> packets;
    size_t at = 0;
    while (at < data.size()) {
        const unsigned char ctb = static_cast<unsigned char>(data[at]);
        if ((ctb & 0x80) == 0) {
            break;
        }
        size_t header = 0;
        uint64_t body = 0;
        unsigned int tag = 0;
        auto byte = [&](size_t i) -> unsigned int {
            return at + i < data.size() ? static_cast<unsigned char>(data[at + i]) : 0u;
        };
        if (ctb & 0x40) {
            tag = ctb & 0x3F;
            const unsigned int first = byte(1);
            if (first < 192) {
                header = 2;
                body = first;
            } else if (first < 224) {
                header = 3;
                body = ((first - 192) << 8) + byte(2) + 192;
            } else if (first == 255) {
                header = 6;
                body = (uint64_t(byte(2)) << 24) | (byte(3) << 16) | (byte(4) << 8) | byte(5);
            } else {
                break; // partial lengths do not occur in keys
            }
        } else {
            tag = (ctb & 0x3C) >> 2;
            switch (ctb & 3) {
            case 0:
                header = 2;
                body = byte(1);
                break;
            case 1:
                header = 3;
                body = (byte(1) << 8) | byte(2);
                break;
            case 2:
                header = 5;
                body = (uint64_t(byte(1)) << 24) | (byte(2) << 16) | (byte(3) << 8) | byte(4);
                break;
            default:
                header = 1;
                body = data.size() - at - 1;
                break;
            }
        }
        if (at + header + body > data.size()) {
            break;
        }
        packets.push_back({tag, data.substr(at, static_cast<size_t>(header + body))});
        at += static_cast<size_t>(header + body);
    }
    return packets;
}

// The armor body and checksum line of an armored key: from the byte after
// the first blank line up to the line before the END marker, without the
// final line end.
std::string ArmorBody(const std::string& armor) {
    size_t blank = armor.find("\n\n");
    size_t skip = 2;
    if (blank == std::string::npos) {
        blank = armor.find("\r\n\r\n");
        skip = 4;
    }
    const size_t end = armor.find("-----END PGP PUBLIC KEY BLOCK-----");
    if (blank == std::string::npos || end == std::string::npos || end < blank + skip) {
        return std::string();
    }
    std::string body = armor.substr(blank + skip, end - blank - skip);
    while (!body.empty() && (body.back() == '\n' || body.back() == '\r')) {
        body.pop_back();
    }
    return body;
}

std::string Selector(unsigned char which, const std::string& bytes) {
    return std::string(1, static_cast<char>(which)) + bytes;
}

const std::vector<std::string> kKeySuffixes = {".asc", ".gpg"};

void KeySeeds(std::vector<FuzzSeed>& seeds, const std::string& fixtures, const std::string& upstream) {
    AddFiles(seeds, fixtures + "/keys", "keys-", kKeySuffixes);
    if (!upstream.empty()) {
        AddFiles(seeds, upstream + "/keys", "upstream-keys-", {});
    }
}

void PackageSignatureSeeds(std::vector<FuzzSeed>& seeds, const std::string& fixtures) {
    for (const std::string& name : ListFiles(fixtures + "/rpm", {".rpm"})) {
        std::string package;
        if (!ReadWhole(fixtures + "/rpm/" + name, package)) {
            continue;
        }
        int index = 0;
        for (const std::string& blob : SignatureBlobs(package)) {
            seeds.push_back({"rpm-" + name + "-sig" + std::to_string(index++), blob});
        }
    }
}

std::vector<FuzzSeed> RpmPackageSeeds(const std::string& fixtures, const std::string& upstream) {
    std::vector<FuzzSeed> seeds;
    AddFiles(seeds, fixtures + "/rpm", "rpm-", {});
    // Short copies: the main header and a little payload, so that the fuzzer
    // spends its time on the structures rather than on hashing the payload.
    std::string package;
    if (ReadWhole(fixtures + "/rpm/signed-rsa2048-sha256.rpm", package)) {
        const size_t end = MainHeaderEnd(package);
        if (end != 0) {
            seeds.push_back({"rpm-signed-rsa2048-sha256-header-only", package.substr(0, end)});
            seeds.push_back({"rpm-signed-rsa2048-sha256-short-payload",
                             package.substr(0, std::min(package.size(), end + 512))});
        }
    }
    if (!upstream.empty()) {
        AddFiles(seeds, upstream + "/packages", "upstream-", {});
    }
    return seeds;
}

std::vector<FuzzSeed> PgpMessageSeeds(const std::string& fixtures, const std::string& upstream) {
    std::vector<FuzzSeed> seeds;
    KeySeeds(seeds, fixtures, upstream);
    AddFiles(seeds, fixtures + "/sigs", "sigs-", {".sig"});
    PackageSignatureSeeds(seeds, fixtures);
    return seeds;
}

std::vector<FuzzSeed> Base64Seeds(const std::string& fixtures) {
    std::vector<FuzzSeed> seeds;
    for (const std::string& name : ListFiles(fixtures + "/keys", {".asc"})) {
        std::string armor;
        if (!ReadWhole(fixtures + "/keys/" + name, armor)) {
            continue;
        }
        std::string body = ArmorBody(armor);
        if (body.empty()) {
            continue;
        }
        // With its checksum line (Radix-64 text) and without it (Base64 text).
        seeds.push_back({"radix64-" + name, body});
        const size_t equals = body.rfind('=');
        if (equals != std::string::npos && equals > 0) {
            seeds.push_back({"base64-" + name, body.substr(0, equals - 1)});
        }
    }
    seeds.push_back({"short-TWFu", "TWFu"});
    seeds.push_back({"short-padding", "TQ=="});
    seeds.push_back({"short-crlf", "TW\r\nFu"});
    return seeds;
}

std::vector<FuzzSeed> SlreSeeds() {
    struct Case {
        unsigned char control; // bit 0 case-insensitive, bits 1-4 capture count
        const char* expression;
        const char* subject;
    };
    static const Case kCases[] = {
        {0, "^a.c$", "abc"},
        {0, "^a.c", "abcd"},
        {1, "^[a-z]*$", "ABC"},
        {0, "b", "abc"},
        {2 << 1, "^(\\w+)(x)?", "word"},
        {4 << 1, "^(a|b|c)+(d*?)e$", "abcabcdde"},
        {1, "^[A-Za-z0-9_\\-\\.]*\\.rpm$", "package-1.0-1.noarch.rpm"},
        {1, "^.*\\.rpm$", "X.RPM"},
        {1, "^.?\\.rpm$", "x.rpm"},
        {2 << 1, "^([^/]+)/(.*)$", "folder/file name"},
        {0, "\\d+\\s\\S+\\x41\\t", "123 xyzA\t"},
        {1 << 1, "(a*)*b", "aaaaab"},
        {0, "[\\]\\-x]+", "]-x"},
    };
    std::vector<FuzzSeed> seeds;
    int index = 0;
    for (const Case& c : kCases) {
        std::string bytes(1, static_cast<char>(c.control));
        bytes += c.expression;
        bytes.push_back('\0');
        bytes += c.subject;
        seeds.push_back({"slre-" + std::to_string(index++), bytes});
    }
    return seeds;
}

// Selector bytes of the packet target.
enum : unsigned char { kPublicKey = 0, kSignature = 1, kMpi = 2, kLengthTag = 3 };

std::vector<FuzzSeed> PgpPacketSeeds(const std::string& fixtures) {
    std::vector<FuzzSeed> seeds;
    std::vector<std::pair<std::string, std::string>> sources;
    for (const std::string& name : ListFiles(fixtures + "/keys", {".gpg"})) {
        std::string data;
        if (ReadWhole(fixtures + "/keys/" + name, data)) {
            sources.push_back({"keys-" + name, data});
        }
    }
    for (const std::string& name : ListFiles(fixtures + "/sigs", {".sig"})) {
        std::string data;
        if (ReadWhole(fixtures + "/sigs/" + name, data)) {
            sources.push_back({"sigs-" + name, data});
        }
    }
    std::vector<FuzzSeed> blobs;
    PackageSignatureSeeds(blobs, fixtures);
    for (const FuzzSeed& blob : blobs) {
        sources.push_back({blob.name, blob.bytes});
    }
    for (const auto& source : sources) {
        int index = 0;
        for (const RawPacket& packet : SplitPackets(source.second)) {
            const std::string name = source.first + "-packet" + std::to_string(index++);
            if (packet.tag == 6 || packet.tag == 14) {
                seeds.push_back({name + "-key", Selector(kPublicKey, packet.bytes)});
                // The modulus MPI of a version-4 key begins 6 bytes into the body.
                const size_t header = (packet.bytes[0] & 3) == 0 ? 2 : (packet.bytes[0] & 3) == 1 ? 3 : 5;
                if (packet.bytes.size() > header + 6) {
                    seeds.push_back({name + "-mpi", Selector(kMpi, packet.bytes.substr(header + 6))});
                }
            } else if (packet.tag == 2) {
                seeds.push_back({name + "-signature", Selector(kSignature, packet.bytes)});
            }
            seeds.push_back({name + "-header", Selector(kLengthTag, packet.bytes.substr(0, 6))});
        }
    }
    return seeds;
}

} // namespace

std::vector<FuzzSeed> MakeFuzzSeeds(const std::string& target, const std::string& fixturesDir,
                                    const std::string& upstreamDir) {
    if (target == "rpm_package") {
        return RpmPackageSeeds(fixturesDir, upstreamDir);
    }
    if (target == "rpm_key") {
        std::vector<FuzzSeed> seeds;
        KeySeeds(seeds, fixturesDir, upstreamDir);
        return seeds;
    }
    if (target == "pgp_message") {
        return PgpMessageSeeds(fixturesDir, upstreamDir);
    }
    if (target == "base64") {
        return Base64Seeds(fixturesDir);
    }
    if (target == "slre") {
        return SlreSeeds();
    }
    if (target == "pgp_packet") {
        return PgpPacketSeeds(fixturesDir);
    }
    return {};
}
