// Damaged and malicious packages and keys, as an installer may be handed
// them: every truncation and single-byte change of a real signed package and
// of its real key must give one of the six statuses with a message, and
// never a pass for a package or key that was changed where it is checked.
// Lengths that lie (index counts, data sizes, entry offsets, packet lengths,
// MPI bit counts, a huge Base64 body) must be refused quickly with a clear
// text and with memory bounded by the input's size.
#include "ExceptionText.h"
#include "PackageLayout.h"
#include "TestSupport.h"

#include "Base64.h"
#include "ByteReader.h"
#include "CertificateManager.h"
#include "Exceptions.h"
#include "FileHelper.h"
#include "MPI.h"
#include "PgpMessage.h"
#include "PgpPacket.h"
#include "RpmSigner.h"
#include "RpmSignerCreator.h"
#include "rpmutil.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <unistd.h>

#include "Sanitizer.h"

namespace {

using testsupport::ExpectThrowWithText;
using testsupport::Fixture;
using testsupport::ReadFile;
using testsupport::TempDir;
using testsupport::WriteFile;

using testsupport::kSanitized;

const char* const kStatusNames[] = {"signed",       "not signed",        "invalid signature",
                                    "invalid hash", "invalid structure", "error"};

using testsupport::Be32;
using testsupport::PackageLayout;
using testsupport::PutBe32;

bool InAnyRange(const std::vector<std::pair<size_t, size_t>>& ranges, size_t at) {
    for (const auto& range : ranges) {
        if (at >= range.first && at < range.second) {
            return true;
        }
    }
    return false;
}

// The offsets [first, last) of the modulus value in a key's packets: the
// primary key packet is old-format tag 6 with a 2-byte length, and its
// modulus MPI follows version, creation time and algorithm.
std::pair<size_t, size_t> ModulusOf(const std::string& packets) {
    if (packets.size() < 12 || static_cast<unsigned char>(packets[0]) != 0x99) {
        throw std::runtime_error("the key does not start with an old-format public-key packet");
    }
    const size_t bitCount = 3 + 6;
    const size_t bytes =
        (LoadBigEndian16(reinterpret_cast<const unsigned char*>(packets.data()) + bitCount) + 7) / 8;
    return {bitCount + 2, bitCount + 2 + bytes};
}

// The outcome of many calls: how many ran, per status, and the first few
// that broke a rule.
class Tally {
public:
    explicit Tally(std::string what) : m_What(std::move(what)) {}

    // Checks one result and frees its message; returns the status.
    int Add(const RPM_RESULT& result, const std::string& description) {
        ++m_Cases;
        const int status = static_cast<int>(result.status);
        if (status < RPM_SIGNED || status > RPM_ERROR) {
            Fail(description + ": status " + std::to_string(status) + " is none of the six");
        } else {
            ++_ByStatus[status];
        }
        if (result.message == nullptr) {
            Fail(description + ": null message");
        }
        std::free(result.message);
        return status;
    }

    void Fail(const std::string& text) {
        if (m_Failures.size() < 20) {
            m_Failures.push_back(text);
        }
        ++m_FailureCount;
    }

    size_t Cases() const { return m_Cases; }

    void Report() const {
        std::printf("%s: %zu cases;", m_What.c_str(), m_Cases);
        for (int status = 0; status < 6; ++status) {
            std::printf(" %s %zu%s", kStatusNames[status], _ByStatus[status], status < 5 ? "," : "\n");
        }
        std::fflush(stdout);
        for (const std::string& failure : m_Failures) {
            ADD_FAILURE() << m_What << ": " << failure;
        }
        EXPECT_EQ(0u, m_FailureCount) << m_What;
    }

private:
    std::string m_What;
    size_t m_Cases = 0;
    size_t _ByStatus[6] = {};
    size_t m_FailureCount = 0;
    std::vector<std::string> m_Failures;
};

// One file changed in place, case after case: bytes are written back and
// lengths restored without writing the whole file each time.
class MutableFile {
public:
    MutableFile(const std::string& path, const std::string& original) : m_Path(path), m_Original(original) {
        WriteFile(path, original);
        m_Fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (m_Fd < 0) {
            throw std::runtime_error("cannot open " + path);
        }
    }
    ~MutableFile() { close(m_Fd); }
    MutableFile(const MutableFile&) = delete;
    MutableFile& operator=(const MutableFile&) = delete;

    const std::string& Path() const { return m_Path; }

    void SetByte(size_t at, unsigned char value) { WriteAt(at, &value, 1); }
    void RestoreByte(size_t at) { WriteAt(at, m_Original.data() + at, 1); }
    void Truncate(size_t length) {
        if (ftruncate(m_Fd, static_cast<off_t>(length)) != 0) {
            throw std::runtime_error("cannot truncate " + m_Path);
        }
    }
    void RestoreAll() { WriteAt(0, m_Original.data(), m_Original.size()); }

private:
    void WriteAt(size_t at, const void* data, size_t size) {
        if (pwrite(m_Fd, data, size, static_cast<off_t>(at)) != static_cast<ssize_t>(size)) {
            throw std::runtime_error("cannot write " + m_Path);
        }
    }

    std::string m_Path;
    std::string m_Original;
    int m_Fd;
};

// The four ways every byte is changed.
struct ByteChange {
    const char* name;
    unsigned char (*apply)(unsigned char);
};
const ByteChange kByteChanges[] = {
    {"set 0x00", [](unsigned char) -> unsigned char { return 0x00; }},
    {"set 0xFF", [](unsigned char) -> unsigned char { return 0xFF; }},
    {"xor 0x01", [](unsigned char b) -> unsigned char { return b ^ 0x01; }},
    {"xor 0x80", [](unsigned char b) -> unsigned char { return b ^ 0x80; }},
};

// One change of the byte at a position: the byte it makes and its
// description, "<what> <position> <change>".
struct ChangedByte {
    unsigned char value;
    std::string description;
};

// The changes of kByteChanges that alter the byte at the position.
std::vector<ChangedByte> ChangesAt(const std::string& what, size_t at, char original) {
    std::vector<ChangedByte> changes;
    for (const ByteChange& change : kByteChanges) {
        const unsigned char changed = change.apply(static_cast<unsigned char>(original));
        if (changed != static_cast<unsigned char>(original)) {
            changes.push_back({changed, what + " " + std::to_string(at) + " " + change.name});
        }
    }
    return changes;
}

// Armor as gpg writes it: BEGIN line, blank line, Base64 lines of 64
// characters, checksum line, END line.
std::string Armor(const std::string& packets) {
    soapWrap::Binary binary{reinterpret_cast<unsigned char*>(const_cast<char*>(packets.data())),
                            static_cast<uint32_t>(packets.size())};
    const std::string body = Base64::Encode(&binary);
    std::string armor = "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\n";
    for (size_t at = 0; at < body.size(); at += 64) {
        armor += body.substr(at, 64) + "\n";
    }
    const unsigned int crc = Radix64::Crc24(packets.data(), packets.size());
    const unsigned char crcBytes[3] = {static_cast<unsigned char>(crc >> 16),
                                       static_cast<unsigned char>(crc >> 8), static_cast<unsigned char>(crc)};
    soapWrap::Binary crcBinary{const_cast<unsigned char*>(crcBytes), 3};
    armor += "=" + Base64::Encode(&crcBinary) + "\n-----END PGP PUBLIC KEY BLOCK-----\n";
    return armor;
}

// The packets inside an armored key file (its Base64 body, decoded).
std::string Dearmor(const std::string& armor) {
    const size_t blank = armor.find("\n\n");
    const size_t checksum = armor.find("\n=", blank);
    if (blank == std::string::npos || checksum == std::string::npos) {
        throw std::runtime_error("not an armored key");
    }
    std::unique_ptr<soapWrap::Binary> decoded(Base64::Decode(armor.substr(blank + 2, checksum - blank - 2)));
    std::string packets(reinterpret_cast<char*>(decoded->data), decoded->size);
    delete[] decoded->data;
    return packets;
}

// Verdict and message of RpmSigner::Process for a package and key, the way
// rpm_verify drives it, but with the message that rpm_verify drops.
struct ProcessOutcome {
    int verdict;
    std::string message;
    double seconds;
};

ProcessOutcome ProcessPackage(const std::string& package, const std::string& key) {
    const auto start = std::chrono::steady_clock::now();
    CertificateManager::Acquire()->SetPgpPublicKeyFilePath(key);
    std::unique_ptr<FileHelper> file(new FileHelper(package));
    RpmSignerCreator creator;
    if (!creator.IsMe(file.get())) {
        throw std::runtime_error(package + " is not recognised as a package");
    }
    std::unique_ptr<Signer> signer(creator.GetSigner(0));
    signer->_File = file.release(); // the signer owns and destroys it
    ProcessOutcome outcome{0, std::string(), 0.0};
    outcome.verdict = signer->Process(true, false, false, outcome.message);
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return outcome;
}

size_t ReadFileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
}

// Resident memory of this process, in kB, from /proc/self/status.
size_t StatusKb(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t length = std::strlen(field);
    while (std::getline(in, line)) {
        if (line.compare(0, length, field) == 0 && line.size() > length && line[length] == ':') {
            return std::strtoul(line.c_str() + length + 1, nullptr, 10);
        }
    }
    return 0;
}

// Sets the peak resident size back to the present one.
bool ResetPeak() {
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return static_cast<bool>(out);
}

// Peak resident growth (kB) and time of one operation. Without a reset
// peak the growth cannot be told, so the measure fails rather than report 0.
template <class Operation> std::pair<size_t, double> Measure(Operation operation) {
    const bool reset = ResetPeak();
    if (!reset) {
        ADD_FAILURE() << "cannot write /proc/self/clear_refs: the peak resident size cannot be reset";
    }
    const size_t before = StatusKb("VmRSS");
    const auto start = std::chrono::steady_clock::now();
    operation();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const size_t peak = StatusKb("VmHWM");
    return {reset && peak > before ? peak - before : 0, seconds};
}

class HostileInput : public ::testing::Test {
protected:
    void SetUp() override {
        REQUIRE_FIXTURE(Fixture("rpm/signed-rsa2048-sha256.rpm"));
        REQUIRE_FIXTURE(Fixture("keys/rsa2048.asc"));
        m_Package = ReadFile(Fixture("rpm/signed-rsa2048-sha256.rpm"));
        m_Key = ReadFile(Fixture("keys/rsa2048.asc"));
        m_KeyPath = Fixture("keys/rsa2048.asc");
    }

    // Each bit count written at `at` of the bytes (the package, or the key's
    // packets, armored) makes an MPI longer than its buffer: refused.
    void ExpectBitCountsRefused(const std::string& bytes, size_t at, std::initializer_list<uint16_t> counts,
                                bool key) {
        const std::string path = m_Dir.File(key ? "key.asc" : "package.rpm");
        for (uint16_t bits : counts) {
            std::string mutated = bytes;
            mutated[at] = static_cast<char>(bits >> 8);
            mutated[at + 1] = static_cast<char>(bits & 0xFF);
            WriteFile(path, key ? Armor(mutated) : mutated);
            const ProcessOutcome outcome =
                key ? ProcessPackage(Fixture("rpm/signed-rsa2048-sha256.rpm"), path)
                    : ProcessPackage(path, m_KeyPath);
            SCOPED_TRACE("bits " + std::to_string(bits));
            EXPECT_EQ(5, outcome.verdict);
            EXPECT_EQ("Invalid format of data: Size of the multi-precision integers is greater than the "
                      "buffer length",
                      outcome.message);
        }
    }

    std::string m_Package;
    std::string m_Key;
    std::string m_KeyPath;
    TempDir m_Dir;
};

// ---------------------------------------------------------------------------
// Sweeps over the real package

TEST_F(HostileInput, EveryTruncationOfThePackage) {
    const PackageLayout layout(m_Package);
    ASSERT_LT(layout.mainHeaderEnd, m_Package.size());
    MutableFile file(m_Dir.File("package.rpm"), m_Package);
    Tally tally("package truncations");

    RPM_RESULT whole = rpm_verify(file.Path().c_str(), m_KeyPath.c_str());
    ASSERT_EQ(RPM_SIGNED, tally.Add(whole, "whole package"));

    // A spread of lengths into the payload, longest first, then every length
    // from the end of the main header down to nothing.
    std::vector<size_t> lengths;
    const size_t payload = m_Package.size() - layout.mainHeaderEnd;
    for (size_t step = 64; step >= 1; --step) {
        lengths.push_back(layout.mainHeaderEnd + payload * step / 65);
    }
    lengths.push_back(m_Package.size() - 1);
    lengths.push_back(layout.mainHeaderEnd + 1);
    std::sort(lengths.rbegin(), lengths.rend());
    for (size_t length = layout.mainHeaderEnd + 1; length-- > 0;) {
        lengths.push_back(length);
    }
    for (size_t length : lengths) {
        file.Truncate(length);
        const int status =
            tally.Add(rpm_verify(file.Path().c_str(), m_KeyPath.c_str()), "length " + std::to_string(length));
        if (status == RPM_SIGNED) {
            tally.Fail("length " + std::to_string(length) + " passes as signed");
        }
    }
    tally.Report();
    EXPECT_GT(tally.Cases(), layout.mainHeaderEnd);
}

TEST_F(HostileInput, EveryByteOfLeadAndHeadersChanged) {
    const PackageLayout layout(m_Package);
    MutableFile file(m_Dir.File("package.rpm"), m_Package);
    Tally tally("package byte changes");
    // Every byte in the normal build; under the sanitizers, which make each
    // call several times slower, every third byte.
    const size_t stride = kSanitized ? 3 : 1;
    // The checked data of the signature header: the SHA-1 text (tag 269, 40
    // digits and the NUL), the MD5 (tag 1004) and both signature blobs.
    const std::vector<std::pair<size_t, size_t>> checked = {
        layout.DataOf(m_Package, 269, 41), layout.DataOf(m_Package, 1004, 16), layout.DataOf(m_Package, 268),
        layout.DataOf(m_Package, 1002)};
    // The one change inside them that may pass: the low byte of a signature
    // value's bit count, when the count still gives the same number of bytes
    // (the value itself is unchanged; rpmkeys --checksig accepts it too).
    std::vector<std::pair<size_t, unsigned int>> bitCounts; // offset of the low byte, the bit count
    for (const auto& blob : {checked[2], checked[3]}) {
        // A 2048-bit key's signature value (256 bytes) ends the blob.
        const size_t low = blob.second - 256 - 1;
        const unsigned int bits = static_cast<unsigned int>(static_cast<unsigned char>(m_Package[low - 1]))
                                      << 8 |
                                  static_cast<unsigned char>(m_Package[low]);
        ASSERT_EQ(256u, (bits + 7) / 8) << "bit count at " << low - 1;
        bitCounts.push_back({low, bits});
    }
    const auto sameValueLength = [&bitCounts](size_t at, unsigned char changed) {
        for (const auto& bitCount : bitCounts) {
            if (at == bitCount.first) {
                return ((bitCount.second & 0xFF00) + changed + 7) / 8 == (bitCount.second + 7) / 8;
            }
        }
        return false;
    };
    size_t checkedCases = 0;
    for (size_t at = 0; at < layout.mainHeaderEnd; at += stride) {
        for (const ChangedByte& change : ChangesAt("byte", at, m_Package[at])) {
            file.SetByte(at, change.value);
            const std::string& description = change.description;
            const int status = tally.Add(rpm_verify(file.Path().c_str(), m_KeyPath.c_str()), description);
            // The main header is covered by its SHA-1 and by both signatures.
            if (at >= layout.mainHeader && status == RPM_SIGNED) {
                tally.Fail(description + " (main header) passes as signed");
            }
            if (InAnyRange(checked, at)) {
                ++checkedCases;
                if (status == RPM_SIGNED && !sameValueLength(at, change.value)) {
                    tally.Fail(description + " (digest or signature data) passes as signed");
                }
            }
        }
        file.RestoreByte(at);
    }
    tally.Report();
    EXPECT_GE(tally.Cases(), 3 * layout.mainHeaderEnd / stride);
    EXPECT_GE(checkedCases, 3 * (41 + 16 + 2 * 200) / stride);
}

// ---------------------------------------------------------------------------
// Sweeps over the real key

TEST_F(HostileInput, EveryTruncationOfTheKey) {
    const std::string package = Fixture("rpm/signed-rsa2048-sha256.rpm");
    MutableFile key(m_Dir.File("key.asc"), m_Key);
    Tally tally("key truncations");
    ASSERT_EQ(RPM_SIGNED, tally.Add(rpm_verify(package.c_str(), key.Path().c_str()), "whole key"));
    // The armor must end after its END line, so no shorter file is a key.
    for (size_t length = m_Key.size(); length-- > 0;) {
        key.Truncate(length);
        const int status = tally.Add(rpm_verify(package.c_str(), key.Path().c_str()),
                                     "key length " + std::to_string(length));
        if (status == RPM_SIGNED) {
            tally.Fail("key length " + std::to_string(length) + " passes as signed");
        }
    }
    tally.Report();
    EXPECT_EQ(m_Key.size() + 1, tally.Cases());
}

TEST_F(HostileInput, EveryByteOfTheArmorTextChanged) {
    const std::string package = Fixture("rpm/signed-rsa2048-sha256.rpm");
    MutableFile key(m_Dir.File("key.asc"), m_Key);
    Tally tally("key armor byte changes");
    // The armor characters whose six bits all fall inside the modulus: body
    // character n holds bits 6n to 6n+5 of the packets.
    const std::pair<size_t, size_t> modulus = ModulusOf(Dearmor(m_Key));
    std::vector<bool> inModulus(m_Key.size(), false);
    const size_t body = m_Key.find("\n\n") + 2;
    const size_t checksum = m_Key.find("\n=", body);
    size_t modulusCharacters = 0;
    for (size_t at = body, character = 0; at < checksum; ++at) {
        if (m_Key[at] == '\n') {
            continue;
        }
        inModulus[at] = character * 6 / 8 >= modulus.first && (character * 6 + 5) / 8 < modulus.second;
        modulusCharacters += inModulus[at] ? 1 : 0;
        ++character;
    }
    ASSERT_GE(modulusCharacters, 340u);
    for (size_t at = 0; at < m_Key.size(); ++at) {
        for (const ChangedByte& change : ChangesAt("key byte", at, m_Key[at])) {
            key.SetByte(at, change.value);
            const std::string& description = change.description;
            const int status = tally.Add(rpm_verify(package.c_str(), key.Path().c_str()), description);
            if (inModulus[at] && status == RPM_SIGNED) {
                tally.Fail(description + " (modulus) passes as signed");
            }
        }
        key.RestoreByte(at);
    }
    tally.Report();
    EXPECT_GE(tally.Cases(), 3 * m_Key.size());
}

TEST_F(HostileInput, EveryByteOfTheKeyPacketsChanged) {
    const std::string package = Fixture("rpm/signed-rsa2048-sha256.rpm");
    const std::string packets = Dearmor(m_Key);
    ASSERT_GT(packets.size(), 300u);
    const std::pair<size_t, size_t> modulus = ModulusOf(packets);

    const std::string path = m_Dir.File("key.asc");
    Tally tally("key packet byte changes");
    WriteFile(path, Armor(packets));
    ASSERT_EQ(RPM_SIGNED, tally.Add(rpm_verify(package.c_str(), path.c_str()), "re-armored key"));
    for (size_t at = 0; at < packets.size(); ++at) {
        for (const ChangedByte& change : ChangesAt("packet byte", at, packets[at])) {
            std::string mutated = packets;
            mutated[at] = static_cast<char>(change.value);
            WriteFile(path, Armor(mutated));
            const std::string& description = change.description;
            const int status = tally.Add(rpm_verify(package.c_str(), path.c_str()), description);
            if (at >= modulus.first && at < modulus.second && status == RPM_SIGNED) {
                tally.Fail(description + " (modulus) passes as signed");
            }
        }
    }
    tally.Report();
    EXPECT_GE(tally.Cases(), 3 * packets.size());
}

// ---------------------------------------------------------------------------
// Lengths that lie, in the package

TEST_F(HostileInput, SignatureHeaderCountsAndSizesUpToTheLimit) {
    const PackageLayout layout(m_Package);
    const std::string path = m_Dir.File("package.rpm");
    const uint32_t size = layout.signatureDataSize;
    struct Case {
        uint32_t count;
        uint32_t dataSize;
    };
    const Case cases[] = {{0xFFFFFFFF, size},
                          {0x7FFFFFFF, size},
                          {0x10000000, size},
                          {0x10000, size},
                          {layout.signatureCount, 0xFFFFFFFF},
                          {layout.signatureCount, 0x80000000},
                          {0xFFFFFFFF, 0xFFFFFFFF},
                          {0x10000, 0xFFFFFFF0}};
    for (const Case& c : cases) {
        std::string mutated = m_Package;
        PutBe32(mutated, 104, c.count);
        PutBe32(mutated, 108, c.dataSize);
        WriteFile(path, mutated);
        ProcessOutcome outcome{};
        const auto cost = Measure([&] { outcome = ProcessPackage(path, m_KeyPath); });
        SCOPED_TRACE("count " + std::to_string(c.count) + ", data size " + std::to_string(c.dataSize));
        EXPECT_EQ(5, outcome.verdict);
        EXPECT_EQ(
            "File operation error: Invalid structure of the file: Signature section: the signature header "
            "claims " +
                std::to_string(c.count) + " index entries and " + std::to_string(c.dataSize) +
                " bytes of data, more than the file holds.",
            outcome.message);
        EXPECT_LT(cost.second, 2.0);
        EXPECT_LT(cost.first, 16u * 1024) << "kB of peak growth";
    }
}

TEST_F(HostileInput, SignatureHeaderOfMoreEntriesThanTheWalkCounts) {
    // 256 entries and a data size that together still fit the file.
    const std::string path = m_Dir.File("package.rpm");
    std::string mutated = m_Package;
    PutBe32(mutated, 104, 256);
    PutBe32(mutated, 108, 16);
    WriteFile(path, mutated);
    const ProcessOutcome outcome = ProcessPackage(path, m_KeyPath);
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ("File operation error: Invalid structure of the file: Signature section: the signature header "
              "has 256 "
              "index entries; at most 255 are supported.",
              outcome.message);
}

TEST_F(HostileInput, MainHeaderCountsAndSizesUpToTheLimit) {
    const PackageLayout layout(m_Package);
    const std::string path = m_Dir.File("package.rpm");
    const uint32_t counts[] = {0xFFFFFFFF, 0x10000000, 0x100000};
    const uint32_t sizes[] = {0xFFFFFFFF, 0x7FFFFFFF, 0x1000000};
    for (uint32_t count : counts) {
        for (uint32_t dataSize : sizes) {
            std::string mutated = m_Package;
            PutBe32(mutated, layout.mainHeader + 8, count);
            PutBe32(mutated, layout.mainHeader + 12, dataSize);
            WriteFile(path, mutated);
            ProcessOutcome outcome{};
            const auto cost = Measure([&] { outcome = ProcessPackage(path, m_KeyPath); });
            SCOPED_TRACE("count " + std::to_string(count) + ", data size " + std::to_string(dataSize));
            EXPECT_EQ(5, outcome.verdict);
            EXPECT_EQ("File operation error: Invalid structure of the file: Header section: the main header "
                      "claims " +
                          std::to_string(count) + " index entries and " + std::to_string(dataSize) +
                          " bytes of data, more than the file holds.",
                      outcome.message);
            EXPECT_LT(cost.second, 2.0);
            EXPECT_LT(cost.first, 16u * 1024) << "kB of peak growth";
        }
    }
}

TEST_F(HostileInput, EntryOffsetsAndCountsOutsideTheDataStore) {
    const PackageLayout layout(m_Package);
    const std::string path = m_Dir.File("package.rpm");
    struct Case {
        uint32_t tag;
        size_t field; // 8 offset, 12 count
        uint32_t value;
        const char* detail;
    };
    const Case cases[] = {
        {268, 8, 0xFFFFFFFF,
         "Signature section: the OpenPGP signature of tag 268 lies outside the data store."},
        {268, 8, layout.signatureDataSize,
         "Signature section: the OpenPGP signature of tag 268 lies outside the data store."},
        {268, 12, 0xFFFFFFFF,
         "Signature section: the OpenPGP signature of tag 268 lies outside the data store."},
        {268, 12, layout.signatureDataSize + 1,
         "Signature section: the OpenPGP signature of tag 268 lies outside the data store."},
        {1002, 8, 0xFFFFFFF0,
         "Signature section: the OpenPGP signature of tag 1002 lies outside the data store."},
        {1002, 12, 0x80000000,
         "Signature section: the OpenPGP signature of tag 1002 lies outside the data store."},
        {269, 8, 0xFFFFFFFF,
         "Signature section: the SHA1 header hash (tag 269) is not a NUL-terminated text inside the data "
         "store."},
        {269, 8, layout.signatureDataSize,
         "Signature section: the SHA1 header hash (tag 269) is not a NUL-terminated text inside the data "
         "store."},
        {1004, 8, 0xFFFFFFFF, "Signature section: the MD5 hash (tag 1004) lies outside the data store."},
        {1004, 8, layout.signatureDataSize - 15,
         "Signature section: the MD5 hash (tag 1004) lies outside the data store."},
    };
    for (const Case& c : cases) {
        std::string mutated = m_Package;
        const size_t entry = layout.EntryOf(mutated, c.tag);
        ASSERT_NE(0u, entry) << "tag " << c.tag;
        PutBe32(mutated, entry + c.field, c.value);
        WriteFile(path, mutated);
        const ProcessOutcome outcome = ProcessPackage(path, m_KeyPath);
        SCOPED_TRACE("tag " + std::to_string(c.tag) + (c.field == 8 ? " offset " : " count ") +
                     std::to_string(c.value));
        EXPECT_EQ(5, outcome.verdict);
        EXPECT_EQ(std::string("File operation error: Invalid structure of the file: ") + c.detail,
                  outcome.message);
        EXPECT_LT(outcome.seconds, 2.0);
    }
}

TEST_F(HostileInput, SignaturePacketLengthBeyondItsBlob) {
    const PackageLayout layout(m_Package);
    const size_t entry = layout.EntryOf(m_Package, 268);
    ASSERT_NE(0u, entry);
    const size_t blob = layout.signatureStore + Be32(m_Package, entry + 8);
    const uint32_t blobLength = Be32(m_Package, entry + 12);
    // gpg writes the signature packet with a 2-byte length.
    ASSERT_EQ(0x89, static_cast<unsigned char>(m_Package[blob]));
    const std::string path = m_Dir.File("package.rpm");
    std::string mutated = m_Package;
    mutated[blob + 1] = '\xFF';
    mutated[blob + 2] = '\xFF';
    WriteFile(path, mutated);
    const ProcessOutcome outcome = ProcessPackage(path, m_KeyPath);
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ(
        "Invalid format of data: OpenPGP message: packet length runs past the end of the data (65538 bytes "
        "claimed, " +
            std::to_string(blobLength) + " left)",
        outcome.message);
}

TEST_F(HostileInput, SignatureMpiBitCountUpToTheLimit) {
    // The signature value is the last MPI of the blob; its bit count sits
    // right before its bytes.
    const PackageLayout layout(m_Package);
    const size_t entry = layout.EntryOf(m_Package, 268);
    const size_t blob = layout.signatureStore + Be32(m_Package, entry + 8);
    const uint32_t blobLength = Be32(m_Package, entry + 12);
    size_t bitCount = 0;
    for (size_t bytes = 256; bytes > 240 && bitCount == 0; --bytes) {
        const size_t at = blob + blobLength - 2 - bytes;
        const size_t bits = LoadBigEndian16(reinterpret_cast<const unsigned char*>(m_Package.data()) + at);
        if ((bits + 7) / 8 == bytes) {
            bitCount = at;
        }
    }
    ASSERT_NE(0u, bitCount);
    ExpectBitCountsRefused(m_Package, bitCount, {0xFFFF, 0x8000, 2049}, false);
}

// ---------------------------------------------------------------------------
// Lengths that lie, in the key

TEST_F(HostileInput, KeyModulusBitCountUpToTheLimit) {
    ExpectBitCountsRefused(Dearmor(m_Key), 9, {0xFFFF, 0x8000, 2048 + 8 * 2000}, true);
}

TEST_F(HostileInput, KeyPacketLengthBeyondTheKey) {
    const std::string package = Fixture("rpm/signed-rsa2048-sha256.rpm");
    const std::string packets = Dearmor(m_Key);
    const std::string path = m_Dir.File("key.asc");
    // The user ID packet (skipped by length) claims far more than is left.
    const size_t keyLength = 3 + LoadBigEndian16(reinterpret_cast<const unsigned char*>(packets.data()) + 1);
    ASSERT_EQ(13, (static_cast<unsigned char>(packets[keyLength]) & 0x3C) >> 2);
    std::string mutated = packets;
    mutated[keyLength] = static_cast<char>(0x80 | (13 << 2) | 2); // 4-byte length ("6-byte header")
    mutated.replace(keyLength + 1, 1, std::string("\xFF\xFF\xFF\xF0", 4));
    WriteFile(path, Armor(mutated));
    const ProcessOutcome outcome = ProcessPackage(package, path);
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ(
        "Invalid format of data: OpenPGP message: packet length runs past the end of the data (4294967286 "
        "bytes claimed, " +
            std::to_string(mutated.size() - keyLength) + " left)",
        outcome.message);
}

// ---------------------------------------------------------------------------
// The packet readers with lengths that lie

TEST(HostilePackets, LengthTagBeyondTheInput) {
    unsigned int header = 0;
    char huge[6] = {'\x8A', '\xFF', '\xFF', '\xFF', '\xFF', 0};
    ExpectThrowWithText<DataFormatException>(
        [&] { PgpPacket::ParseLengthTag(huge, sizeof(huge), header); },
        "Invalid format of data: OpenPGP packet header: packet length 4294967295 is too large");
    // A length type whose octets are not there.
    char cut[2] = {'\x8A', '\x01'};
    ExpectThrowWithText<DataFormatException>(
        [&] { PgpPacket::ParseLengthTag(cut, sizeof(cut), header); },
        "Invalid format of data: OpenPGP packet header: packet length runs past the end of the data (4 "
        "bytes needed, 1 left)");
    // The largest length that still adds up is accepted as a number; the
    // message then refuses it against what is there.
    char largest[6] = {'\xB6', '\xFF', '\xFF', '\xFF', '\xF9', 0};
    EXPECT_EQ(0xFFFFFFFFu, PgpPacket::ParseLengthTag(largest, sizeof(largest), header));
    EXPECT_EQ(6u, header);
    ExpectThrowWithText<DataFormatException>(
        [&] { PgpMessage message(largest, sizeof(largest)); },
        "Invalid format of data: OpenPGP message: packet length runs past the end of the data "
        "(4294967295 bytes claimed, 6 left)");
}

TEST(HostilePackets, MpiBitCountsUpToTheLimit) {
    std::vector<char> data(2 + 300, '\x5A');
    for (unsigned int bits : {0xFFFFu, 0x8001u, 2401u}) {
        data[0] = static_cast<char>(bits >> 8);
        data[1] = static_cast<char>(bits & 0xFF);
        try {
            MPI mpi(data.data(), 300);
            ADD_FAILURE() << "no exception for " << bits;
        } catch (const DataFormatException& error) {
            EXPECT_STREQ("Invalid format of data: Size of the multi-precision integers is greater than the "
                         "buffer length",
                         error.what());
        }
        // A bound that claims everything is still held to the buffer.
        try {
            MPI mpi(data.data(), ULONG_MAX, data.size());
            ADD_FAILURE() << "no exception for " << bits;
        } catch (const DataFormatException& error) {
            EXPECT_EQ(
                "Invalid format of data: Multi-precision integer: value runs past the end of the data (" +
                    std::to_string((bits + 7) / 8) + " bytes needed, 300 left)",
                error.what());
        }
    }
    // 2400 bits are exactly 300 bytes.
    data[0] = static_cast<char>(2400 >> 8);
    data[1] = static_cast<char>(2400 & 0xFF);
    MPI fits(data.data(), 300);
    EXPECT_EQ(300u, fits.GetLengthInBytes());
}

TEST(HostilePackets, SignatureWithHugeHashedLength) {
    // Version 4 signature whose hashed area claims 65535 bytes.
    std::string packet = std::string("\x88\x0A\x04\x00\x01\x08\xFF\xFF", 8) + std::string(4, '\0');
    ExpectThrowWithText<DataFormatException>(
        [&] { PgpSignatureData signature(&packet[0], static_cast<unsigned int>(packet.size())); },
        "Invalid format of data: OpenPGP signature packet: hashed subpackets runs past the end of the "
        "data (65535 bytes needed, 4 left)");
    // Version 3 whose signed hashed length octet becomes 0xFF80.
    std::string v3 = std::string("\x88\x10\x03\x80", 4) + std::string(14, '\0');
    ExpectThrowWithText<DataFormatException>(
        [&] { PgpSignatureData signature(&v3[0], static_cast<unsigned int>(v3.size())); },
        "Invalid format of data: OpenPGP signature packet: hashed data runs past the end of the data "
        "(65408 bytes needed, 14 left)");
}

// ---------------------------------------------------------------------------
// A huge Base64 body

// Size of the huge body: a few hundred megabytes in the normal build; less
// under the sanitizers, whose shadow memory and slower loops would multiply
// both.
constexpr size_t kHugeBody = kSanitized ? (64u << 20) : (300u << 20);

TEST(HostileBase64, HugeValidBodyDecodesInBoundedMemory) {
    // Lines of 64 characters, each ending with a line feed.
    std::string text(kHugeBody / 65 * 65, 'A');
    for (size_t at = 64; at < text.size(); at += 65) {
        text[at] = '\n';
    }
    unsigned int decodedLength = 0;
    std::unique_ptr<char[]> decoded;
    const auto cost = Measure([&] {
        decoded.reset(Base64::Decode(text.data(), static_cast<unsigned int>(text.size()), decodedLength));
    });
    const size_t sextets = text.size() / 65 * 64;
    ASSERT_EQ(0u, sextets % 4);
    EXPECT_EQ(sextets / 4 * 3, decodedLength);
    EXPECT_EQ(0, decoded[0]);
    EXPECT_EQ(0, decoded[decodedLength - 1]);
    decoded.reset();
    std::printf("Base64 body of %zu MB: %.2f s, peak growth %zu MB\n", text.size() >> 20, cost.second,
                cost.first >> 10);
    // Decoding allocates one array of the input's size.
    EXPECT_LT(cost.first, 3 * (text.size() >> 10));
    EXPECT_LT(cost.second, kSanitized ? 60.0 : 20.0);
}

TEST(HostileBase64, HugeBodyWithOneBadCharacterAtTheEnd) {
    std::string text(kHugeBody, 'A');
    text[text.size() - 1] = ' ';
    unsigned int decodedLength = 0;
    const auto cost = Measure([&] {
        try {
            std::unique_ptr<char[]> decoded(
                Base64::Decode(text.data(), static_cast<unsigned int>(text.size()), decodedLength));
            ADD_FAILURE() << "no exception";
        } catch (const Base64OperationException& error) {
            EXPECT_STREQ("Base64 data decoding error: bad character in input", error.what());
        }
    });
    EXPECT_LT(cost.first, 3 * (text.size() >> 10));
    EXPECT_LT(cost.second, kSanitized ? 60.0 : 20.0);
}

TEST(HostileBase64, HugeArmoredKeyFileIsRefusedInBoundedMemory) {
    REQUIRE_FIXTURE(Fixture("rpm/signed-rsa2048-sha256.rpm"));
    TempDir dir;
    const std::string keyPath = dir.File("huge.asc");
    size_t fileSize = 0;
    {
        // Lines of 64 characters, each ending with a line feed, written a
        // megabyte at a time.
        std::ofstream out(keyPath, std::ios::binary | std::ios::trunc);
        out << "-----BEGIN PGP PUBLIC KEY BLOCK-----\n\n";
        std::string lines(65 * 16384, 'A');
        for (size_t at = 64; at < lines.size(); at += 65) {
            lines[at] = '\n';
        }
        for (size_t written = 0; written + lines.size() <= kHugeBody; written += lines.size()) {
            out << lines;
        }
        out << "=AAAA\n-----END PGP PUBLIC KEY BLOCK-----\n";
        out.close();
        ASSERT_TRUE(out.good());
        fileSize = ReadFileSize(keyPath);
    }
    ProcessOutcome outcome{};
    const auto cost =
        Measure([&] { outcome = ProcessPackage(Fixture("rpm/signed-rsa2048-sha256.rpm"), keyPath); });
    std::printf("armored key file of %zu MB: %.2f s, peak growth %zu MB\n", fileSize >> 20, cost.second,
                cost.first >> 10);
    // A key file beyond the key-file bound (4 MiB) is refused before it is
    // read: nothing of it reaches memory.
    EXPECT_EQ(5, outcome.verdict);
    EXPECT_EQ("File operation error: Key file " + keyPath + " is larger than 4194304 bytes", outcome.message);
    EXPECT_LT(cost.first, 4u << 10);
    EXPECT_LT(cost.second, kSanitized ? 90.0 : 30.0);
}

} // namespace
