// signing-host verify prints paths and messages with control characters
// and bytes that are not UTF-8 escaped, so that no file name can add a line
// of its own; -0 ends each record with a NUL byte instead.
#include "Fixtures.h"
#include "HostRun.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <string>

using hosttest::Key;
using hosttest::RunHost;

namespace {

class HostSafeTextTest : public hosttest::HostFolderTest<> {
protected:
    void SetUp() override { RequireKeyAndPackages({"signed-rsa2048-sha256.rpm", "tampered-payload.rpm"}); }
};

TEST_F(HostSafeTextTest, AFileNameCannotForgeAResultLine) {
    const std::string forged = "x.rpm: RPM_SIGNED (0) ok\nfake.rpm";
    Place("tampered-payload.rpm", forged);
    hosttest::HostOutput result = RunHost(m_Work.Path(), {"verify", "--key", Key(), forged});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "x.rpm: RPM_SIGNED (0) ok\\nfake.rpm: RPM_INVALID_HASH (3) x.rpm: RPM_SIGNED (0) "
                          "ok\\nfake.rpm has invalid hash.\n");
}

TEST_F(HostSafeTextTest, ControlCharactersAndOddBytesAreEscaped) {
    const std::string escapeSequence = "e\x1b[31m\xff\r\t.rpm";
    const std::string backslash = "back\\slash.rpm";
    const std::string utf8 = "gr\xC3\xBC\xC3\x9F"
                             "e.rpm";
    const std::string c1Control = "c1\xC2\x85.rpm";
    for (const std::string& name : {escapeSequence, backslash, utf8, c1Control}) {
        Place("signed-rsa2048-sha256.rpm", name);
    }
    hosttest::HostOutput result = RunHost(
        m_Work.Path(), {"verify", "--jobs", "2", "--key", Key(), escapeSequence, backslash, utf8, c1Control});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "e\\x1b[31m\\xff\\r\\t.rpm: RPM_SIGNED (0) e\\x1b[31m\\xff\\r\\t.rpm is signed.\n"
                          "back\\\\slash.rpm: RPM_SIGNED (0) back\\\\slash.rpm is signed.\n"
                          "gr\xC3\xBC\xC3\x9F"
                          "e.rpm: RPM_SIGNED (0) gr\xC3\xBC\xC3\x9F"
                          "e.rpm is signed.\n"
                          "c1\\xc2\\x85.rpm: RPM_SIGNED (0) c1\\xc2\\x85.rpm is signed.\n");
}

TEST_F(HostSafeTextTest, NulSeparatedRecordsCarryTheExactPath) {
    const std::string withLineFeed = "two\nlines.rpm";
    Place("tampered-payload.rpm", withLineFeed);
    Place("signed-rsa2048-sha256.rpm", "plain.rpm");
    hosttest::HostOutput result =
        RunHost(m_Work.Path(), {"verify", "-0", "--key", Key(), withLineFeed, "plain.rpm"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out,
              std::string("two\nlines.rpm: RPM_INVALID_HASH (3) two\\nlines.rpm has invalid hash.") + '\0' +
                  "plain.rpm: RPM_SIGNED (0) plain.rpm is signed." + '\0');
}

} // namespace
