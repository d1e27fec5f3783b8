// Names and properties of the keys, signatures and packages that
// tests/fixtures/make-fixtures.sh makes, and small wrappers around the real
// tools (rpmkeys, rpm, gpgv, gpg) that tests use as oracles.
#ifndef SIGNING_TEST_FIXTURES_H
#define SIGNING_TEST_FIXTURES_H

#include "TestSupport.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fixtures {

// ---------------------------------------------------------------- paths

// Every key of the fixture set: the three key sizes, a second 2048-bit key
// that is not imported into the rpm database, and a key with a signing
// subkey.
inline const std::vector<std::string>& KeyNames() {
    static const std::vector<std::string> names{"rsa2048", "rsa3072", "rsa4096", "other2048", "signsub"};
    return names;
}

// The keys that made the detached signatures over data/data.bin.
inline const std::vector<std::string>& DetachedSignatureKeyNames() {
    static const std::vector<std::string> names{"rsa2048", "rsa3072", "rsa4096"};
    return names;
}

// The three RSA key sizes of the fixture set, each name with its modulus size
// in bits.
struct SizedKey {
    const char* name;
    uint64_t bits;
};
inline const std::vector<SizedKey>& SizedKeys() {
    static const std::vector<SizedKey> keys{{"rsa2048", 2048}, {"rsa3072", 3072}, {"rsa4096", 4096}};
    return keys;
}

// The digest names used in fixture file names, with gpg's names and the
// OpenPGP hash algorithm numbers.
inline const std::vector<std::string>& DigestNames() {
    static const std::vector<std::string> names{"sha1", "sha256", "sha512"};
    return names;
}

inline int OpenPgpHashAlgorithm(const std::string& digest) {
    if (digest == "sha1") {
        return 2;
    }
    if (digest == "sha256") {
        return 8;
    }
    if (digest == "sha512") {
        return 10;
    }
    return -1;
}

// Modulus size of a key by name ("rsa3072" -> 3072, "other2048" -> 2048,
// "signsub" -> 2048).
inline int KeyBits(const std::string& name) {
    if (name == "rsa3072") {
        return 3072;
    }
    if (name == "rsa4096") {
        return 4096;
    }
    return 2048;
}

inline std::string KeyArmored(const std::string& name) {
    return testsupport::Fixture("keys/" + name + ".asc");
}
inline std::string KeyArmoredCrlf(const std::string& name) {
    return testsupport::Fixture("keys/" + name + ".crlf.asc");
}
inline std::string KeyBinary(const std::string& name) {
    return testsupport::Fixture("keys/" + name + ".gpg");
}
inline std::string KeyIdFile(const std::string& name) {
    return testsupport::Fixture("keys/" + name + ".keyid");
}

// The 16 lower-case hexadecimal digits of the primary key's ID, or an empty
// text when the file is missing.
inline std::string KeyId(const std::string& name) {
    if (!testsupport::PathExists(KeyIdFile(name))) {
        return std::string();
    }
    std::string text = testsupport::ReadFile(KeyIdFile(name));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

inline std::string DataFile() {
    return testsupport::Fixture("data/data.bin");
}
inline std::string DetachedSignature(const std::string& key, const std::string& digest) {
    return testsupport::Fixture("sigs/" + key + "-" + digest + ".sig");
}
inline std::string LeadingZeroData() {
    return testsupport::Fixture("data/leadingzero.bin");
}
inline std::string LeadingZeroSignature() {
    return testsupport::Fixture("sigs/leadingzero.sig");
}
// A SHA-256 signature over data/data.bin made by the signing subkey of
// "signsub" (its issuer is the subkey, not the primary key).
inline std::string SubkeySignature() {
    return testsupport::Fixture("sigs/signsub-sha256.sig");
}
// sigs/rsa2048-sha256.sig with the last byte of its RSA value changed: it
// parses, its digest prefix and issuer match, only the RSA check fails.
inline std::string BadSignature() {
    return testsupport::Fixture("sigs/bad-rsa2048-sha256.sig");
}
inline std::string GnupgHome() {
    return testsupport::Fixture("gnupg");
}
inline std::string RpmDb() {
    return testsupport::Fixture("rpmdb");
}
inline std::string Package(const std::string& fileName) {
    return testsupport::Fixture("rpm/" + fileName);
}
inline std::string NotAPackage() {
    return Package("notapackage.rpm");
}

struct DetachedSignatureFixture {
    std::string signature; // path of the binary signature
    std::string data;      // path of the signed file
    std::string key;       // key name
    std::string digest;    // "sha1", "sha256" or "sha512"
};

// The nine detached signatures over data/data.bin (three keys by three
// digests). The leading-zero and subkey signatures are separate.
inline std::vector<DetachedSignatureFixture> DetachedSignatures() {
    std::vector<DetachedSignatureFixture> list;
    for (const std::string& key : DetachedSignatureKeyNames()) {
        for (const std::string& digest : DigestNames()) {
            list.push_back({DetachedSignature(key, digest), DataFile(), key, digest});
        }
    }
    return list;
}

// --------------------------------------------------------------- packages

enum class PackageSignatures {
    None,             // no OpenPGP signature at all
    HeaderOnly,       // tag 268 only
    HeaderAndPayload, // tags 268 and 1002
};

struct PackageFixture {
    std::string name;   // file name under rpm/
    std::string path;   // full path
    std::string key;    // key name of the signer, empty when unsigned
    std::string digest; // "sha1", "sha256", "sha512", empty when unsigned
    PackageSignatures signatures;
    bool keyImported; // the signer's key is in rpmdb/
    bool intact;      // not changed after signing
    bool source;      // a source package
};

// Every RPM package of the fixture set (notapackage.rpm is not one). The
// packages that are not intact are copies of signed-rsa2048-sha256.rpm with
// one byte changed: tampered-payload.rpm in the payload (MD5 differs),
// tampered-header.rpm in the Summary text of the main header (SHA-1 header
// hash differs), badsig-header.rpm / badsig-payload.rpm in the last byte of
// the RSA value of the tag 268 / tag 1002 signature (digests still match).
inline std::vector<PackageFixture> Packages() {
    using S = PackageSignatures;
    std::vector<PackageFixture> list;
    auto add = [&list](const std::string& name, const std::string& key, const std::string& digest,
                       S signatures, bool imported, bool intact, bool source) {
        list.push_back({name, Package(name), key, digest, signatures, imported, intact, source});
    };
    for (const char* signer : {"rsa2048", "rsa4096"}) {
        const std::string key(signer);
        for (const std::string& digest : DigestNames()) {
            add("signed-" + key + "-" + digest + ".rpm", key, digest, S::HeaderAndPayload, true, true, false);
        }
    }
    add("signed-rsa2048-sha256.src.rpm", "rsa2048", "sha256", S::HeaderAndPayload, true, true, true);
    add("signed-other2048-sha256.rpm", "other2048", "sha256", S::HeaderAndPayload, false, true, false);
    add("headeronly-rsa2048-sha256.rpm", "rsa2048", "sha256", S::HeaderOnly, true, true, false);
    add("unsigned.rpm", "", "", S::None, false, true, false);
    add("tampered-payload.rpm", "rsa2048", "sha256", S::HeaderAndPayload, true, false, false);
    add("tampered-header.rpm", "rsa2048", "sha256", S::HeaderAndPayload, true, false, false);
    add("badsig-header.rpm", "rsa2048", "sha256", S::HeaderAndPayload, true, false, false);
    add("badsig-payload.rpm", "rsa2048", "sha256", S::HeaderAndPayload, true, false, false);
    return list;
}

// The intact packages that carry both a header-only and a header-and-payload
// signature, each with its signer and digest: the six binary packages by
// rsa2048 and rsa4096, the source package, and signed-other2048-sha256.rpm
// (whose key is not imported; check keyImported).
inline std::vector<PackageFixture> SignedPackages() {
    std::vector<PackageFixture> list;
    for (const PackageFixture& package : Packages()) {
        if (package.intact && package.signatures == PackageSignatures::HeaderAndPayload) {
            list.push_back(package);
        }
    }
    return list;
}

// ------------------------------------------------------------ tool oracles

// Shell quoting lives in TestSupport.h; the oracles below and their callers
// know it as fixtures::ShellQuote too.
using testsupport::ShellQuote;

// rpmkeys' verdict with the fixture rpm database (rsa2048 and rsa4096
// imported): true when it accepts every digest and signature of the package.
inline bool RpmkeysAccepts(const std::string& package, const std::string& dbPath = RpmDb()) {
    std::string command =
        "rpmkeys --dbpath " + ShellQuote(dbPath) + " --checksig " + ShellQuote(package) + " >/dev/null 2>&1";
    return testsupport::Run(command).exitCode == 0;
}

// rpmkeys' verbose report (standard output and error) for a package.
inline std::string RpmkeysReport(const std::string& package, const std::string& dbPath = RpmDb()) {
    std::string command = "rpmkeys --dbpath " + ShellQuote(dbPath) + " -Kv " + ShellQuote(package) + " 2>&1";
    return testsupport::Run(command).output;
}

// `rpm -qp --qf <format>` on a package file, without rpm's own digest and
// signature checks (so that tampered packages can be read too); empty
// output when rpm fails.
inline std::string RpmQuery(const std::string& package, const std::string& format) {
    std::string command = "rpm -qp --nosignature --nodigest --qf " + ShellQuote(format) + " " +
                          ShellQuote(package) + " 2>/dev/null";
    testsupport::CommandResult result = testsupport::Run(command);
    return result.exitCode == 0 ? result.output : std::string();
}

// gpgv's verdict on a detached signature with the binary key export as its
// only keyring. gpgv never writes to the fixture GNUPGHOME.
inline bool GpgvAccepts(const std::string& keyBinary, const std::string& signature, const std::string& data) {
    std::string command = "gpgv --homedir " + ShellQuote(GnupgHome()) + " --keyring " +
                          ShellQuote(keyBinary) + " " + ShellQuote(signature) + " " + ShellQuote(data) +
                          " >/dev/null 2>&1";
    return testsupport::Run(command).exitCode == 0;
}

// gpg's dump of the packets in a file (standard output and error).
inline std::string GpgListPackets(const std::string& file) {
    std::string command =
        "gpg --homedir " + ShellQuote(GnupgHome()) + " --batch --list-packets " + ShellQuote(file) + " 2>&1";
    return testsupport::Run(command).output;
}

// Makes a binary detached signature with a fixture key (the primary key, or
// for "signsub" its signing subkey), in a private copy of the fixture
// GNUPGHOME so that no agent stays behind in the shared one. Returns false
// when gpg fails.
inline bool SignDetached(const std::string& keyName, const std::string& digest, const std::string& data,
                         const std::string& signature) {
    testsupport::TempDir home;
    std::string gnupg = home.File("gnupg");
    std::string user = KeyId(keyName) + (keyName == "signsub" ? "" : "!");
    std::string upper;
    for (char c : digest) {
        upper += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    std::string command = "cp -r " + ShellQuote(GnupgHome()) + " " + ShellQuote(gnupg) + " && rm -f " +
                          ShellQuote(gnupg) + "/S.* && gpg --homedir " + ShellQuote(gnupg) +
                          " --batch --yes --pinentry-mode loopback --passphrase '' -u " + ShellQuote(user) +
                          " --digest-algo " + upper + " -o " + ShellQuote(signature) + " --detach-sign " +
                          ShellQuote(data) + " >/dev/null 2>&1";
    bool ok = testsupport::Run(command).exitCode == 0;
    testsupport::Run("gpgconf --homedir " + ShellQuote(gnupg) + " --kill gpg-agent >/dev/null 2>&1");
    return ok;
}

// ---------------------------------------------------------- byte helpers

// One OpenPGP packet with an old-format header (tag byte with bit 6 clear).
struct OldFormatPacket {
    int tag;
    std::size_t headerOffset; // offset of the tag byte
    std::size_t bodyOffset;
    std::size_t bodyLength;
};

// Splits a buffer into old-format packets with definite lengths. Returns
// false on anything else (new-format header, indeterminate length, a packet
// running past the end).
inline bool SplitOldFormatPackets(const std::vector<unsigned char>& data,
                                  std::vector<OldFormatPacket>& packets) {
    packets.clear();
    std::size_t pos = 0;
    while (pos < data.size()) {
        unsigned char ctb = data[pos];
        if ((ctb & 0x80) == 0 || (ctb & 0x40) != 0 || (ctb & 3) == 3) {
            return false;
        }
        std::size_t lengthSize = std::size_t(1) << (ctb & 3);
        if (data.size() - pos < 1 + lengthSize) {
            return false;
        }
        std::size_t length = 0;
        for (std::size_t i = 0; i < lengthSize; ++i) {
            length = (length << 8) | data[pos + 1 + i];
        }
        std::size_t body = pos + 1 + lengthSize;
        if (data.size() - body < length) {
            return false;
        }
        packets.push_back({(ctb >> 2) & 0x0F, pos, body, length});
        pos = body + length;
    }
    return true;
}

// The bit count of the RSA MPI of a file holding one v3 or v4 signature
// packet, or -1 when the data is not such a packet.
inline int SignatureMpiBits(const std::vector<unsigned char>& data) {
    std::vector<OldFormatPacket> packets;
    if (!SplitOldFormatPackets(data, packets) || packets.size() != 1 || packets[0].tag != 2) {
        return -1;
    }
    const unsigned char* body = data.data() + packets[0].bodyOffset;
    std::size_t size = packets[0].bodyLength;
    std::size_t pos;
    if (size < 1) {
        return -1;
    }
    if (body[0] == 4) {
        pos = 4;
        for (int area = 0; area < 2; ++area) {
            if (size < pos + 2) {
                return -1;
            }
            pos += 2 + ((std::size_t(body[pos]) << 8) | body[pos + 1]);
        }
    } else if (body[0] == 3) {
        pos = 19;
    } else {
        return -1;
    }
    pos += 2; // left 16 bits of the digest
    if (size < pos + 2) {
        return -1;
    }
    return (body[pos] << 8) | body[pos + 1];
}

// Offsets of the regions of an RPM package.
struct RpmRegions {
    std::size_t signatureHeader = 0; // 96: the signature header record
    std::uint32_t signatureIndexCount = 0;
    std::uint32_t signatureDataSize = 0;
    std::size_t mainHeader = 0; // M: after the signature header, aligned to 8
    std::uint32_t mainIndexCount = 0;
    std::uint32_t mainDataSize = 0;
    std::size_t mainDataStore = 0; // start of the main header's data store
    std::size_t payload = 0;       // end of the main header
    std::size_t size = 0;          // file size
};

inline std::uint32_t Be32(const std::vector<unsigned char>& data, std::size_t offset) {
    return (std::uint32_t(data[offset]) << 24) | (std::uint32_t(data[offset + 1]) << 16) |
           (std::uint32_t(data[offset + 2]) << 8) | std::uint32_t(data[offset + 3]);
}

// Finds the regions of a well-formed package; false when the lead or a
// header structure is not where it should be or runs past the end.
inline bool ParseRpmRegions(const std::vector<unsigned char>& data, RpmRegions& regions) {
    static const unsigned char leadMagic[] = {0xED, 0xAB, 0xEE, 0xDB};
    static const unsigned char headerMagic[] = {0x8E, 0xAD, 0xE8, 0x01};
    auto magicAt = [&data](std::size_t offset, const unsigned char* magic) {
        if (data.size() < offset + 16) {
            return false;
        }
        for (int i = 0; i < 4; ++i) {
            if (data[offset + i] != magic[i]) {
                return false;
            }
        }
        return true;
    };
    if (data.size() < 96 + 16 || !std::equal(leadMagic, leadMagic + 4, data.begin())) {
        return false;
    }
    regions = RpmRegions();
    regions.size = data.size();
    regions.signatureHeader = 96;
    if (!magicAt(96, headerMagic)) {
        return false;
    }
    regions.signatureIndexCount = Be32(data, 104);
    regions.signatureDataSize = Be32(data, 108);
    std::size_t end = 112 + 16 * std::size_t(regions.signatureIndexCount) + regions.signatureDataSize;
    regions.mainHeader = (end + 7) / 8 * 8;
    if (!magicAt(regions.mainHeader, headerMagic)) {
        return false;
    }
    regions.mainIndexCount = Be32(data, regions.mainHeader + 8);
    regions.mainDataSize = Be32(data, regions.mainHeader + 12);
    regions.mainDataStore = regions.mainHeader + 16 + 16 * std::size_t(regions.mainIndexCount);
    regions.payload = regions.mainDataStore + regions.mainDataSize;
    return regions.payload <= data.size();
}

// The index entries (tag, type, offset, count) of the header whose record
// starts at `offset`, in index order; empty when it does not fit.
struct HeaderEntry {
    std::uint32_t tag, type, offset, count;
};

inline std::vector<HeaderEntry> HeaderEntries(const std::vector<unsigned char>& data, std::size_t offset) {
    std::vector<HeaderEntry> list;
    if (data.size() < offset + 16) {
        return list;
    }
    std::size_t count = Be32(data, offset + 8);
    if ((data.size() - offset - 16) / 16 < count) {
        return list;
    }
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t e = offset + 16 + 16 * i;
        list.push_back({Be32(data, e), Be32(data, e + 4), Be32(data, e + 8), Be32(data, e + 12)});
    }
    return list;
}

} // namespace fixtures

#endif
