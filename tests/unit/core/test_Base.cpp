#include "Base.h"
#include "Exceptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>

TEST(Base, AlignUp) {
    EXPECT_EQ(Base::AlignUp(5, 4), 8u);
    EXPECT_EQ(Base::AlignUp(8, 4), 8u);
    EXPECT_EQ(Base::AlignUp(0, 8), 0u);
}

TEST(Base, RoundUpSupportedPowers) {
    EXPECT_EQ(Base::RoundUp(5, 2), 8u);
    EXPECT_EQ(Base::RoundUp(8, 3), 8u);
    EXPECT_EQ(Base::RoundUp(1, 12), 4096u);
    EXPECT_EQ(Base::RoundUp(1458, 3), 1464u);
    EXPECT_EQ(Base::RoundUp(3, 1), 4u);
    EXPECT_EQ(Base::RoundUp(17, 4), 32u);
    EXPECT_EQ(Base::RoundUp(8193, 13), 16384u);
    EXPECT_EQ(Base::RoundUp(1, 14), 16384u);
    EXPECT_EQ(Base::RoundUp(32768, 15), 32768u);
}

TEST(Base, RoundUpRefusesTheGapAndOtherPowers) {
    for (unsigned char power : {0, 5, 6, 7, 8, 9, 10, 11, 16, 31, 64}) {
        try {
            Base::RoundUp(5, power);
            FAIL() << "power " << int(power) << " accepted";
        } catch (const NotImplementedException& e) {
            EXPECT_STREQ(e.what(), "Not implemented: Not supported value to round up to a power of 2.");
        }
    }
}

TEST(Base, RFindSearchesBackwardsAndNeverTestsOffsetZero) {
    char abxab[] = "abxab";
    char abxy[] = "abxy";
    char ab[] = "ab";
    EXPECT_EQ(Base::RFind(abxab, 5, ab, 2), 3u);
    EXPECT_EQ(Base::RFind(abxy, 4, ab, 2), static_cast<unsigned long>(-1));
    EXPECT_EQ(Base::RFind(ab, 2, ab, 2), static_cast<unsigned long>(-1));
    char empty[] = "";
    EXPECT_EQ(Base::RFind(abxab, 5, empty, 0), static_cast<unsigned long>(-1));
    char longer[] = "abxabx";
    EXPECT_EQ(Base::RFind(ab, 2, longer, 6), static_cast<unsigned long>(-1));
}

TEST(Base, SwapEndian) {
    unsigned char bytes[] = {0, 1, 2, 3, 4};
    Base::SwapEndian(bytes, 5);
    const unsigned char expected[] = {4, 3, 2, 1, 0};
    EXPECT_EQ(0, memcmp(bytes, expected, 5));
    unsigned char one[] = {7};
    Base::SwapEndian(one, 1);
    EXPECT_EQ(one[0], 7);
    Base::SwapEndian(one, 0);
    EXPECT_EQ(one[0], 7);
}

TEST(Base, StrTrim) {
    EXPECT_EQ(Base::StrTrim("  a b \t\n"), "a b");
    EXPECT_EQ(Base::StrTrim("   \t "), "");
    EXPECT_EQ(Base::StrTrim(""), "");
}

TEST(Base, ReplaceIgnoresStartAndResumesInsideTheInsertion) {
    std::string text = "aXbXc";
    EXPECT_EQ(Base::Replace(text, 3, 10, "X", "YY"), "aYYbYYc");
    EXPECT_EQ(text, "aYYbYYc");
    // An occurrence at or beyond end stops the replacing.
    std::string limited = "aXbXc";
    EXPECT_EQ(Base::Replace(limited, 0, 2, "X", "Z"), "aZbXc");
    // A replacement that ends with a prefix of the pattern is matched again:
    // "ab" -> "xa" leaves "xa" + "b", found one byte before the insertion's end.
    std::string again = "abb";
    EXPECT_EQ(Base::Replace(again, 0, 100, "ab", "xa"), "xxa");
}

TEST(Base, DumpBufferToString) {
    unsigned char bytes[] = {0x0A, 0xFF};
    EXPECT_EQ(Base::DumpBufferToString(bytes, 2, false), "0aff");
    EXPECT_EQ(Base::DumpBufferToString(bytes, 2, true), "0AFF");
    EXPECT_EQ(Base::DumpBufferToString(bytes, 0, true), "");
}

TEST(Base, DumpBufferPrintsSixteenGroupsPerLine) {
    unsigned char bytes[17];
    for (int i = 0; i < 17; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 15);
    }
    testing::internal::CaptureStdout();
    Base::DumpBuffer(bytes, 17);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "00 0F 1E 2D 3C 4B 5A 69 78 87 96 A5 B4 C3 D2 E1 \nF0 \n");
    testing::internal::CaptureStdout();
    Base::DumpBuffer(bytes, 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n");
    testing::internal::CaptureStdout();
    Base::DumpBuffer(bytes, 16);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "00 0F 1E 2D 3C 4B 5A 69 78 87 96 A5 B4 C3 D2 E1 \n\n");
    std::cout << std::dec << std::nouppercase;
}

TEST(Base, LeapYears) {
    EXPECT_TRUE(is_leap_year(2000));
    EXPECT_FALSE(is_leap_year(1900));
    EXPECT_TRUE(is_leap_year(2024));
    EXPECT_FALSE(is_leap_year(2023));
    EXPECT_EQ(leap_seconds(2016), 0);
}

static tm MakeTm(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    return t;
}

TEST(Base, MktimeUtc) {
    tm epoch = MakeTm(1970, 1, 1);
    EXPECT_EQ(mktime_utc(&epoch), 0);
    tm y2k = MakeTm(2000, 3, 1);
    EXPECT_EQ(mktime_utc(&y2k), 951868800);
    tm before = MakeTm(1969, 12, 31);
    tm after = MakeTm(1970, 12, 31);
    EXPECT_EQ(mktime_utc(&before), 31449600);
    EXPECT_EQ(mktime_utc(&after), 31449600);
    tm withTime = MakeTm(2021, 6, 15, 12, 34, 56);
    EXPECT_EQ(mktime_utc(&withTime), static_cast<int32_t>(timegm(&withTime)));
    // The structure is neither normalised nor changed.
    EXPECT_EQ(withTime.tm_hour, 12);
}

TEST(Base, UtcTime) {
    std::string year = utc_time("%Y");
    ASSERT_EQ(year.size(), 4u);
    EXPECT_TRUE(std::regex_match(utc_time("%Y-%m-%dT%H:%M:%SZ"),
                                 std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ")));
    // A result that does not fit the 128-byte buffer gives an empty text.
    EXPECT_EQ(utc_time(std::string(200, 'x')), "");
    EXPECT_EQ(utc_time(""), "");
}

TEST(Base, FilePattern) {
    EXPECT_STREQ(FILE_PATTERN, "^[a-zA-Z0-9()+._ \\/\\-\\[\\]\\\\]*$");
}
