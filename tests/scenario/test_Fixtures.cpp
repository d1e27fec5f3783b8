// Checks that the keys, signatures and packages made by
// tests/fixtures/make-fixtures.sh are complete and mean what their names
// say, using only the real tools (gpg, gpgv, rpm, rpmkeys) as judges.
#include "Fixtures.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace testsupport;
using namespace fixtures;

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> SplitColons(const std::string& line) {
    std::vector<std::string> fields;
    std::string field;
    std::istringstream in(line);
    while (std::getline(in, field, ':')) {
        fields.push_back(field);
    }
    return fields;
}

bool StartsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::toupper(c)); });
    return text;
}

// gpg --show-keys in a throw-away GNUPGHOME, machine-readable.
std::vector<std::vector<std::string>> ShowKeys(const std::string& keyFile) {
    TempDir home;
    CommandResult result =
        testsupport::Run("gpg --homedir " + ShellQuote(home.Path()) + " --batch --with-colons --show-keys " +
                         ShellQuote(keyFile) + " 2>/dev/null");
    std::vector<std::vector<std::string>> records;
    for (const std::string& line : Lines(result.output)) {
        records.push_back(SplitColons(line));
    }
    return records;
}

// Every file of the fixture layout that the other suites rely on.
std::vector<std::string> LayoutFiles() {
    std::vector<std::string> files;
    for (const std::string& key : KeyNames()) {
        for (const char* suffix : {".asc", ".crlf.asc", ".gpg", ".keyid"}) {
            files.push_back("keys/" + key + suffix);
        }
    }
    files.push_back("data/data.bin");
    for (const std::string& key : DetachedSignatureKeyNames()) {
        for (const std::string& digest : DigestNames()) {
            files.push_back("sigs/" + key + "-" + digest + ".sig");
        }
    }
    files.push_back("data/leadingzero.bin");
    files.push_back("sigs/leadingzero.sig");
    files.push_back("sigs/signsub-sha256.sig");
    files.push_back("sigs/bad-rsa2048-sha256.sig");
    for (const PackageFixture& package : Packages()) {
        files.push_back("rpm/" + package.name);
    }
    files.push_back("rpm/notapackage.rpm");
    files.push_back(".stamp");
    return files;
}

std::size_t FileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? std::size_t(st.st_size) : 0;
}

// The hash algorithm octet of a v4 signature packet file, or -1.
int SignatureHashAlgorithm(const std::vector<unsigned char>& data) {
    std::vector<OldFormatPacket> packets;
    if (!SplitOldFormatPackets(data, packets) || packets.size() != 1 || packets[0].bodyLength < 4 ||
        data[packets[0].bodyOffset] != 4) {
        return -1;
    }
    return data[packets[0].bodyOffset + 3];
}

const std::string kReference = "signed-rsa2048-sha256.rpm";

} // namespace

TEST(Fixtures, EveryLayoutFileExistsAndIsNotEmpty) {
    for (const std::string& file : LayoutFiles()) {
        REQUIRE_FIXTURE(Fixture(file));
        EXPECT_GT(FileSize(Fixture(file)), 0u) << file;
    }
    for (const char* folder : {"gnupg", "rpmdb"}) {
        struct stat st;
        ASSERT_EQ(stat(Fixture(folder).c_str(), &st), 0) << folder;
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << folder;
    }
    EXPECT_TRUE(PathExists(Fixture("gnupg/private-keys-v1.d")));
}

TEST(Fixtures, RerunWithMatchingStampChangesNothing) {
    REQUIRE_FIXTURE(Fixture(".stamp"));
    struct stat before;
    ASSERT_EQ(stat(FixturesDir().c_str(), &before), 0);
    std::string stamp = ReadFile(Fixture(".stamp"));
    EXPECT_EQ(stamp.size(), 65u); // sha256 hex digits and a newline

    auto start = std::chrono::steady_clock::now();
    CommandResult result =
        testsupport::Run("bash " + ShellQuote(SourceDir() + "/tests/fixtures/make-fixtures.sh") + " " +
                         ShellQuote(FixturesDir()) + " 2>&1");
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, ""); // quiet on success
    EXPECT_LT(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count(), 5);

    struct stat after;
    ASSERT_EQ(stat(FixturesDir().c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino); // not rebuilt
    EXPECT_EQ(ReadFile(Fixture(".stamp")), stamp);
}

TEST(Fixtures, ScriptRejectsAMissingArgument) {
    CommandResult result =
        testsupport::Run("bash " + ShellQuote(SourceDir() + "/tests/fixtures/make-fixtures.sh") + " 2>&1");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "make-fixtures.sh: usage: make-fixtures.sh <fixtures dir>\n");
}

TEST(Fixtures, KeyIdsAreThePrimaryKeysOfTheExports) {
    std::set<std::string> seen;
    for (const std::string& name : KeyNames()) {
        REQUIRE_FIXTURE(KeyBinary(name));
        std::string keyid = KeyId(name);
        ASSERT_EQ(keyid.size(), 16u) << name;
        EXPECT_EQ(keyid.find_first_not_of("0123456789abcdef"), std::string::npos) << name << ": " << keyid;
        EXPECT_EQ(ReadFile(KeyIdFile(name)), keyid + "\n");
        seen.insert(keyid);

        auto records = ShowKeys(KeyBinary(name));
        int primaries = 0;
        for (const auto& record : records) {
            if (!record.empty() && record[0] == "pub") {
                ++primaries;
                ASSERT_GT(record.size(), 11u);
                EXPECT_EQ(record[2], std::to_string(KeyBits(name))) << name;
                EXPECT_EQ(record[3], "1") << name; // RSA
                EXPECT_EQ(record[4], Upper(keyid)) << name;
                EXPECT_TRUE(Contains(record[11], "S") && Contains(record[11], "C"))
                    << name << ": " << record[11];
            }
        }
        EXPECT_EQ(primaries, 1) << name;
    }
    EXPECT_EQ(seen.size(), KeyNames().size());
}

TEST(Fixtures, KeysHaveTheIntendedSubkeys) {
    for (const std::string& name : KeyNames()) {
        REQUIRE_FIXTURE(KeyBinary(name));
        std::vector<std::string> capabilities;
        for (const auto& record : ShowKeys(KeyBinary(name))) {
            if (!record.empty() && record[0] == "sub") {
                ASSERT_GT(record.size(), 11u);
                EXPECT_EQ(record[3], "1") << name; // RSA
                capabilities.push_back(record[11]);
            }
        }
        if (name == "signsub") {
            EXPECT_EQ(capabilities, (std::vector<std::string>{"e", "s"}));
        } else {
            EXPECT_EQ(capabilities, (std::vector<std::string>{"e"})) << name;
        }
    }
    // The signing subkey's binding signature embeds the subkey's
    // back-signature (class 0x19).
    std::string dump = GpgListPackets(KeyBinary("signsub"));
    EXPECT_TRUE(Contains(dump, "subpkt 32 len")) << dump;
    EXPECT_TRUE(Contains(dump, "class 0x19")) << dump;
}

TEST(Fixtures, ArmoredExportsMatchTheBinaryOnes) {
    for (const std::string& name : KeyNames()) {
        REQUIRE_FIXTURE(KeyArmored(name));
        std::string armored = ReadFile(KeyArmored(name));
        EXPECT_TRUE(StartsWith(armored, "-----BEGIN PGP PUBLIC KEY BLOCK-----\n")) << name;
        EXPECT_TRUE(EndsWith(armored, "-----END PGP PUBLIC KEY BLOCK-----\n")) << name;
        EXPECT_EQ(armored.find('\r'), std::string::npos) << name;

        std::string crlf;
        for (char c : armored) {
            if (c == '\n') {
                crlf += '\r';
            }
            crlf += c;
        }
        EXPECT_EQ(ReadFile(KeyArmoredCrlf(name)), crlf) << name;

        TempDir home;
        CommandResult dearmor =
            testsupport::Run("gpg --homedir " + ShellQuote(home.Path()) + " --batch --dearmor -o " +
                             ShellQuote(home.File("key.gpg")) + " " + ShellQuote(KeyArmored(name)) + " 2>&1");
        ASSERT_EQ(dearmor.exitCode, 0) << dearmor.output;
        EXPECT_EQ(ReadFile(home.File("key.gpg")), ReadFile(KeyBinary(name))) << name;
    }
}

TEST(Fixtures, BinaryDataUsesOldFormatPacketHeaders) {
    for (const std::string& name : KeyNames()) {
        REQUIRE_FIXTURE(KeyBinary(name));
        std::vector<OldFormatPacket> packets;
        ASSERT_TRUE(SplitOldFormatPackets(ReadBytes(KeyBinary(name)), packets)) << name;
        ASSERT_FALSE(packets.empty());
        EXPECT_EQ(packets[0].tag, 6) << name; // public key
    }
    std::vector<std::string> signatures{LeadingZeroSignature(), SubkeySignature(), BadSignature()};
    for (const DetachedSignatureFixture& fixture : DetachedSignatures()) {
        signatures.push_back(fixture.signature);
    }
    for (const std::string& signature : signatures) {
        REQUIRE_FIXTURE(signature);
        std::vector<OldFormatPacket> packets;
        ASSERT_TRUE(SplitOldFormatPackets(ReadBytes(signature), packets)) << signature;
        ASSERT_EQ(packets.size(), 1u) << signature;
        EXPECT_EQ(packets[0].tag, 2) << signature;
    }
}

TEST(Fixtures, DetachedSignaturesVerifyWithTheirKeyAndDigest) {
    for (const DetachedSignatureFixture& fixture : DetachedSignatures()) {
        REQUIRE_FIXTURE(fixture.signature);
        EXPECT_TRUE(GpgvAccepts(KeyBinary(fixture.key), fixture.signature, fixture.data))
            << fixture.signature;
        EXPECT_FALSE(GpgvAccepts(KeyBinary("other2048"), fixture.signature, fixture.data))
            << fixture.signature;

        std::vector<unsigned char> bytes = ReadBytes(fixture.signature);
        EXPECT_EQ(SignatureHashAlgorithm(bytes), OpenPgpHashAlgorithm(fixture.digest)) << fixture.signature;
        int bits = SignatureMpiBits(bytes);
        EXPECT_LE(bits, KeyBits(fixture.key));
        EXPECT_GT(bits, KeyBits(fixture.key) - 64);

        std::string dump = GpgListPackets(fixture.signature);
        EXPECT_TRUE(Contains(dump, "keyid " + Upper(KeyId(fixture.key)))) << dump;
        EXPECT_TRUE(Contains(dump, "version 4, created")) << dump;
        EXPECT_TRUE(
            Contains(dump, "digest algo " + std::to_string(OpenPgpHashAlgorithm(fixture.digest)) + ","))
            << dump;
        EXPECT_TRUE(Contains(dump, "data: [" + std::to_string(bits) + " bits]")) << dump;
    }
}

TEST(Fixtures, DetachedSignatureFailsOnChangedData) {
    REQUIRE_FIXTURE(DataFile());
    TempDir dir;
    std::vector<unsigned char> data = ReadBytes(DataFile());
    ASSERT_GT(data.size(), 65536u); // spans more than one read
    data[data.size() / 2] ^= 1;
    WriteBytes(dir.File("data.bin"), data);
    EXPECT_FALSE(
        GpgvAccepts(KeyBinary("rsa2048"), DetachedSignature("rsa2048", "sha256"), dir.File("data.bin")));
    EXPECT_TRUE(GpgvAccepts(KeyBinary("rsa2048"), DetachedSignature("rsa2048", "sha256"), DataFile()));
}

TEST(Fixtures, LeadingZeroSignatureIsAtLeastEightBitsShort) {
    REQUIRE_FIXTURE(LeadingZeroSignature());
    std::vector<unsigned char> bytes = ReadBytes(LeadingZeroSignature());
    int bits = SignatureMpiBits(bytes);
    ASSERT_GT(bits, 0);
    EXPECT_LE(bits, 2048 - 8);
    EXPECT_EQ(SignatureHashAlgorithm(bytes), 8);
    std::string dump = GpgListPackets(LeadingZeroSignature());
    EXPECT_TRUE(Contains(dump, "data: [" + std::to_string(bits) + " bits]")) << dump;
    EXPECT_TRUE(Contains(dump, "keyid " + Upper(KeyId("rsa2048")))) << dump;
    EXPECT_TRUE(GpgvAccepts(KeyBinary("rsa2048"), LeadingZeroSignature(), LeadingZeroData()));
    EXPECT_FALSE(GpgvAccepts(KeyBinary("rsa2048"), LeadingZeroSignature(), DataFile()));
}

TEST(Fixtures, SubkeySignatureIsIssuedByTheSigningSubkey) {
    REQUIRE_FIXTURE(SubkeySignature());
    std::string subkey;
    for (const auto& record : ShowKeys(KeyBinary("signsub"))) {
        if (record.size() > 11 && record[0] == "sub" && record[11] == "s") {
            subkey = record[4];
        }
    }
    ASSERT_EQ(subkey.size(), 16u);
    EXPECT_NE(subkey, Upper(KeyId("signsub")));
    std::string dump = GpgListPackets(SubkeySignature());
    EXPECT_TRUE(Contains(dump, "keyid " + subkey)) << dump;
    EXPECT_TRUE(GpgvAccepts(KeyBinary("signsub"), SubkeySignature(), DataFile()));
}

TEST(Fixtures, PackagesHaveAVersion3LeadWithHeaderStyleSignature) {
    for (const PackageFixture& package : Packages()) {
        REQUIRE_FIXTURE(package.path);
        std::vector<unsigned char> data = ReadBytes(package.path);
        ASSERT_GT(data.size(), 96u);
        EXPECT_EQ(ToHex(data.data(), 4), "edabeedb") << package.name;
        EXPECT_EQ(ToHex(data.data() + 4, 2), "0300") << package.name; // format 3.0
        EXPECT_EQ(ToHex(data.data() + 6, 2), package.source ? "0001" : "0000") << package.name;
        EXPECT_EQ(ToHex(data.data() + 78, 2), "0005") << package.name; // header-style signature

        RpmRegions regions;
        ASSERT_TRUE(ParseRpmRegions(data, regions)) << package.name;
        EXPECT_EQ(regions.mainHeader % 8, 0u);
        EXPECT_LT(regions.payload, regions.size) << package.name;
        // More than one 65536-byte read from the main header on.
        EXPECT_GT(regions.size - regions.mainHeader, 65536u) << package.name;

        std::vector<HeaderEntry> entries = HeaderEntries(data, regions.signatureHeader);
        ASSERT_FALSE(entries.empty());
        EXPECT_EQ(entries[0].tag, 62u) << package.name;
    }
}

TEST(Fixtures, PackagesCarryTheSignatureTagsOfTheirKind) {
    for (const PackageFixture& package : Packages()) {
        REQUIRE_FIXTURE(package.path);
        std::vector<unsigned char> data = ReadBytes(package.path);
        RpmRegions regions;
        ASSERT_TRUE(ParseRpmRegions(data, regions)) << package.name;
        std::multiset<std::uint32_t> tags;
        for (const HeaderEntry& entry : HeaderEntries(data, regions.signatureHeader)) {
            tags.insert(entry.tag);
            if (entry.tag == 268 || entry.tag == 1002 || entry.tag == 1004) {
                EXPECT_EQ(entry.type, 7u) << package.name << " tag " << entry.tag;
            }
            if (entry.tag == 269) {
                EXPECT_EQ(entry.type, 6u) << package.name;
            }
            if (entry.tag == 268 || entry.tag == 1002) {
                // The blob is one old-format signature packet.
                std::size_t start = 112 + 16 * std::size_t(regions.signatureIndexCount) + entry.offset;
                ASSERT_LE(start + entry.count, data.size());
                std::vector<unsigned char> blob(data.begin() + start, data.begin() + start + entry.count);
                EXPECT_EQ(SignatureHashAlgorithm(blob), OpenPgpHashAlgorithm(package.digest)) << package.name;
            }
        }
        EXPECT_EQ(tags.count(269), 1u) << package.name;
        EXPECT_EQ(tags.count(1004), 1u) << package.name;
        bool header = package.signatures != PackageSignatures::None;
        bool payload = package.signatures == PackageSignatures::HeaderAndPayload;
        EXPECT_EQ(tags.count(268), header ? 1u : 0u) << package.name;
        EXPECT_EQ(tags.count(1002), payload ? 1u : 0u) << package.name;

        // rpm's own reading of the two signatures.
        for (const char* tag : {"RSAHEADER", "SIGPGP"}) {
            std::string text = RpmQuery(package.path, std::string("%{") + tag + ":pgpsig}");
            bool present = std::string(tag) == "RSAHEADER" ? header : payload;
            if (present) {
                EXPECT_TRUE(StartsWith(text, "RSA/" + Upper(package.digest) + ", "))
                    << package.name << ": " << text;
                EXPECT_TRUE(EndsWith(text, ", Key ID " + KeyId(package.key))) << package.name << ": " << text;
            } else {
                EXPECT_EQ(text, "(none)") << package.name << " " << tag;
            }
        }
    }
}

TEST(Fixtures, RpmkeysAcceptsTheIntactPackagesSignedWithImportedKeys) {
    int accepted = 0;
    for (const PackageFixture& package : Packages()) {
        REQUIRE_FIXTURE(package.path);
        if (!package.intact || !package.keyImported) {
            continue;
        }
        EXPECT_TRUE(RpmkeysAccepts(package.path)) << RpmkeysReport(package.path);
        std::string report = RpmkeysReport(package.path);
        std::string signature =
            "V4 RSA/" + Upper(package.digest) + " Signature, key ID " + KeyId(package.key).substr(8) + ": OK";
        EXPECT_TRUE(Contains(report, "    Header " + signature)) << report;
        EXPECT_EQ(Contains(report, "\n    " + signature),
                  package.signatures == PackageSignatures::HeaderAndPayload)
            << report;
        EXPECT_TRUE(Contains(report, "Header SHA1 digest: OK")) << report;
        EXPECT_TRUE(Contains(report, "MD5 digest: OK")) << report;
        ++accepted;
    }
    EXPECT_EQ(accepted, 8); // six binary, one source, one header-only
}

TEST(Fixtures, RpmkeysRejectsTamperedPackagesAndTheUnknownKey) {
    REQUIRE_FIXTURE(Package("signed-other2048-sha256.rpm"));
    EXPECT_FALSE(RpmkeysAccepts(Package("signed-other2048-sha256.rpm")));
    EXPECT_TRUE(Contains(RpmkeysReport(Package("signed-other2048-sha256.rpm")), "NOKEY"));

    REQUIRE_FIXTURE(Package("tampered-payload.rpm"));
    EXPECT_FALSE(RpmkeysAccepts(Package("tampered-payload.rpm")));
    std::string payload = RpmkeysReport(Package("tampered-payload.rpm"));
    EXPECT_TRUE(Contains(payload, "Header SHA1 digest: OK")) << payload;
    EXPECT_TRUE(Contains(payload, "MD5 digest: BAD")) << payload;

    REQUIRE_FIXTURE(Package("tampered-header.rpm"));
    EXPECT_FALSE(RpmkeysAccepts(Package("tampered-header.rpm")));
    std::string header = RpmkeysReport(Package("tampered-header.rpm"));
    EXPECT_TRUE(Contains(header, "Header SHA1 digest: BAD")) << header;
    EXPECT_TRUE(Contains(header, "MD5 digest: BAD")) << header;

    // The same package with the other key imported is accepted.
    TempDir db;
    CommandResult import = testsupport::Run("rpmkeys --dbpath " + ShellQuote(db.Path()) + " --import " +
                                            ShellQuote(KeyArmored("other2048")) + " 2>&1");
    ASSERT_EQ(import.exitCode, 0) << import.output;
    EXPECT_TRUE(RpmkeysAccepts(Package("signed-other2048-sha256.rpm"), db.Path()));
    EXPECT_FALSE(RpmkeysAccepts(Package(kReference), db.Path()));
}

TEST(Fixtures, ChangedPackagesDifferInOneByteOfTheirRegion) {
    REQUIRE_FIXTURE(Package(kReference));
    std::vector<unsigned char> reference = ReadBytes(Package(kReference));
    RpmRegions regions;
    ASSERT_TRUE(ParseRpmRegions(reference, regions));
    // End of the signature blob under a tag of the signature header.
    auto blobEnd = [&](std::uint32_t tag) {
        for (const HeaderEntry& entry : HeaderEntries(reference, regions.signatureHeader)) {
            if (entry.tag == tag) {
                return 112 + 16 * std::size_t(regions.signatureIndexCount) + entry.offset + entry.count;
            }
        }
        return std::size_t(0);
    };
    for (const PackageFixture& package : Packages()) {
        if (package.intact) {
            continue;
        }
        REQUIRE_FIXTURE(package.path);
        std::vector<unsigned char> changed = ReadBytes(package.path);
        ASSERT_EQ(changed.size(), reference.size()) << package.name;
        std::vector<std::size_t> differences;
        for (std::size_t i = 0; i < reference.size(); ++i) {
            if (reference[i] != changed[i]) {
                differences.push_back(i);
            }
        }
        ASSERT_EQ(differences.size(), 1u) << package.name;
        std::size_t at = differences[0];
        if (package.name == "tampered-payload.rpm") {
            EXPECT_GE(at, regions.payload);
        } else if (package.name == "tampered-header.rpm") {
            EXPECT_GE(at, regions.mainDataStore);
            EXPECT_LT(at, regions.payload);
            // Only the text changed: the header still parses the same way.
            RpmRegions after;
            ASSERT_TRUE(ParseRpmRegions(changed, after));
            EXPECT_EQ(after.payload, regions.payload);
            EXPECT_EQ(RpmQuery(package.path, "%{SUMMARY}"), "tiny package for signature verification tests");
        } else if (package.name == "badsig-header.rpm") {
            EXPECT_EQ(at + 1, blobEnd(268));
        } else if (package.name == "badsig-payload.rpm") {
            EXPECT_EQ(at + 1, blobEnd(1002));
        } else {
            ADD_FAILURE() << "unexpected changed package " << package.name;
        }
    }
}

TEST(Fixtures, BadSignaturesFailOnlyTheirRsaCheck) {
    REQUIRE_FIXTURE(BadSignature());
    std::vector<unsigned char> good = ReadBytes(DetachedSignature("rsa2048", "sha256"));
    std::vector<unsigned char> bad = ReadBytes(BadSignature());
    ASSERT_EQ(bad.size(), good.size());
    EXPECT_TRUE(std::equal(good.begin(), good.end() - 1, bad.begin()));
    EXPECT_NE(good.back(), bad.back());
    EXPECT_EQ(SignatureMpiBits(bad), SignatureMpiBits(good));
    EXPECT_FALSE(GpgvAccepts(KeyBinary("rsa2048"), BadSignature(), DataFile()));

    // Each package has one RSA value changed: rpmkeys finds that signature
    // BAD, and the other one and both digests OK.
    struct BadPackage {
        const char* name;
        const char* headerSignature;
        const char* payloadSignature;
    };
    const std::string keyId = KeyId("rsa2048").substr(8);
    for (const BadPackage& row :
         {BadPackage{"badsig-header.rpm", "BAD", "OK"}, BadPackage{"badsig-payload.rpm", "OK", "BAD"}}) {
        SCOPED_TRACE(row.name);
        std::string report = RpmkeysReport(Package(row.name));
        EXPECT_FALSE(RpmkeysAccepts(Package(row.name)));
        EXPECT_TRUE(
            Contains(report, "Header V4 RSA/SHA256 Signature, key ID " + keyId + ": " + row.headerSignature))
            << report;
        EXPECT_TRUE(
            Contains(report, "\n    V4 RSA/SHA256 Signature, key ID " + keyId + ": " + row.payloadSignature))
            << report;
        EXPECT_TRUE(Contains(report, "Header SHA1 digest: OK")) << report;
        EXPECT_TRUE(Contains(report, "MD5 digest: OK")) << report;
    }
}

TEST(Fixtures, RpmDbHoldsExactlyTheTwoImportedKeys) {
    REQUIRE_FIXTURE(RpmDb());
    CommandResult result =
        testsupport::Run("rpm --dbpath " + ShellQuote(RpmDb()) + " -q gpg-pubkey --qf '%{VERSION}\\n' 2>&1");
    ASSERT_EQ(result.exitCode, 0) << result.output;
    std::vector<std::string> versions = Lines(result.output);
    std::sort(versions.begin(), versions.end());
    std::vector<std::string> expected{KeyId("rsa2048").substr(8), KeyId("rsa4096").substr(8)};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(versions, expected);
}

TEST(Fixtures, NotAPackageIsPlainText) {
    REQUIRE_FIXTURE(NotAPackage());
    EXPECT_EQ(ReadFile(NotAPackage()), "This is a text file, not an RPM package.\n");
    EXPECT_EQ(RpmQuery(NotAPackage(), "%{NAME}"), "");
    EXPECT_FALSE(RpmkeysAccepts(NotAPackage()));
}

TEST(Fixtures, UnsignedPackageHasMatchingDigestsOnly) {
    REQUIRE_FIXTURE(Package("unsigned.rpm"));
    std::string report = RpmkeysReport(Package("unsigned.rpm"));
    EXPECT_TRUE(Contains(report, "Header SHA1 digest: OK")) << report;
    EXPECT_TRUE(Contains(report, "MD5 digest: OK")) << report;
    EXPECT_FALSE(Contains(report, "Signature")) << report;
}

TEST(Fixtures, SignedPackagesListNamesSignerAndDigest) {
    std::vector<PackageFixture> signed_ = SignedPackages();
    ASSERT_EQ(signed_.size(), 8u);
    for (const PackageFixture& package : signed_) {
        REQUIRE_FIXTURE(package.path);
        EXPECT_EQ(package.signatures, PackageSignatures::HeaderAndPayload);
        EXPECT_TRUE(package.intact);
        EXPECT_EQ(RpmkeysAccepts(package.path), package.keyImported) << package.name;
        EXPECT_TRUE(Contains(package.name, package.key + "-" + package.digest)) << package.name;
    }
}

TEST(Fixtures, SignDetachedMakesSignaturesThatVerify) {
    REQUIRE_FIXTURE(GnupgHome());
    TempDir dir;
    WriteFile(dir.File("text"), "more data to sign\n");
    ASSERT_TRUE(SignDetached("rsa3072", "sha512", dir.File("text"), dir.File("text.sig")));
    std::vector<unsigned char> bytes = ReadBytes(dir.File("text.sig"));
    EXPECT_EQ(SignatureHashAlgorithm(bytes), 10);
    EXPECT_TRUE(GpgvAccepts(KeyBinary("rsa3072"), dir.File("text.sig"), dir.File("text")));
    EXPECT_FALSE(GpgvAccepts(KeyBinary("rsa2048"), dir.File("text.sig"), dir.File("text")));
}
