// Replays every fuzz target over its seed inputs (made from the fixture keys
// and packages) and over every input the fuzzers found and that is kept
// under tests/fuzz-regressions/<target>/. A target aborts on a broken
// invariant; the sanitizer build also catches reads and writes outside a
// buffer, undefined behaviour and leaks.
#include "TestSupport.h"
#include "targets/FuzzTargets.h"

#include <algorithm>
#include <chrono>
#include <dirent.h>
#include <set>

namespace {

using testsupport::Fixture;
using testsupport::FixturesDir;
using testsupport::ReadFile;

const std::string kRegressionsDir = SIGNING_FUZZ_REGRESSIONS_DIR;

std::vector<std::string> FolderEntries(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(name);
            }
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// One input through a target, timed; the target returns 0 for every input.
void Replay(const FuzzTarget& target, const std::string& name, const std::string& bytes) {
    SCOPED_TRACE(std::string(target.name) + " input " + name + " (" + std::to_string(bytes.size()) +
                 " bytes)");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, target.run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // libFuzzer runs with a 10 s limit per input; the test allows more for
    // the unoptimised sanitizer build.
    EXPECT_LT(seconds, 30.0);
}

class FuzzReplay : public ::testing::TestWithParam<FuzzTarget> {};

TEST_P(FuzzReplay, SeedInputs) {
    const FuzzTarget& target = GetParam();
    REQUIRE_FIXTURE(Fixture("keys/rsa2048.asc"));
    std::vector<FuzzSeed> seeds = MakeFuzzSeeds(target.name, FixturesDir(), testsupport::RpmUpstreamDir());
    ASSERT_FALSE(seeds.empty());
    for (const FuzzSeed& seed : seeds) {
        Replay(target, seed.name, seed.bytes);
    }
    std::printf("%s: %zu seed inputs replayed\n", target.name, seeds.size());
}

// Small inputs every target must take: nothing, one byte of each value, and
// a few bytes that cut structures short.
TEST_P(FuzzReplay, TinyInputs) {
    const FuzzTarget& target = GetParam();
    REQUIRE_FIXTURE(Fixture("keys/rsa2048.asc"));
    Replay(target, "empty", std::string());
    for (int value = 0; value < 256; value += 17) {
        Replay(target, "byte " + std::to_string(value), std::string(1, static_cast<char>(value)));
        Replay(target, "bytes " + std::to_string(value), std::string(7, static_cast<char>(value)));
    }
}

std::string TargetName(const ::testing::TestParamInfo<FuzzTarget>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzReplay,
                         ::testing::ValuesIn(kFuzzTargets, kFuzzTargets + kFuzzTargetCount), TargetName);

// The kept findings, one test per folder under tests/fuzz-regressions/ (each
// names a target, see below); a folder that holds no input fails.
std::vector<std::string> KeptFindingFolders() {
    std::vector<std::string> folders;
    for (const std::string& name : FolderEntries(kRegressionsDir)) {
        if (name != "README.md") {
            folders.push_back(name);
        }
    }
    return folders;
}

class FuzzKeptFindings : public ::testing::TestWithParam<std::string> {};

TEST_P(FuzzKeptFindings, Replay) {
    const FuzzTarget* target = FindFuzzTarget(GetParam());
    ASSERT_NE(nullptr, target) << GetParam();
    REQUIRE_FIXTURE(Fixture("keys/rsa2048.asc"));
    const std::string folder = kRegressionsDir + "/" + GetParam();
    size_t count = 0;
    for (const std::string& name : FolderEntries(folder)) {
        Replay(*target, name, ReadFile(folder + "/" + name));
        ++count;
    }
    EXPECT_GT(count, 0u) << folder << " holds no input";
    std::printf("%s: %zu kept findings replayed\n", target->name, count);
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzKeptFindings, ::testing::ValuesIn(KeptFindingFolders()),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

// Every folder of kept findings belongs to a target, so that no finding is
// silently skipped.
TEST(FuzzRegressionsFolder, NamesOnlyKnownTargets) {
    const std::vector<std::string> entries = FolderEntries(kRegressionsDir);
    // An unreadable folder would list nothing and check nothing.
    ASSERT_NE(std::find(entries.begin(), entries.end(), "README.md"), entries.end()) << kRegressionsDir;
    for (const std::string& name : entries) {
        if (name == "README.md") {
            continue;
        }
        EXPECT_NE(nullptr, FindFuzzTarget(name))
            << "tests/fuzz-regressions/" << name << " names no fuzz target";
    }
}

TEST(FuzzTargetTable, NamesAreUniqueAndResolvable) {
    std::set<std::string> names;
    for (size_t i = 0; i < kFuzzTargetCount; ++i) {
        EXPECT_TRUE(names.insert(kFuzzTargets[i].name).second) << kFuzzTargets[i].name;
        EXPECT_EQ(&kFuzzTargets[i], FindFuzzTarget(kFuzzTargets[i].name));
    }
    EXPECT_EQ(6u, names.size());
    EXPECT_EQ(nullptr, FindFuzzTarget("no_such_target"));
}

} // namespace
