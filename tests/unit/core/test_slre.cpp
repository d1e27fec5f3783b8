// The small regular-expression matcher: results, captures, every error code,
// and that no input makes it read outside the expression or the subject.
#include "Base.h"
#include "slre.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

int Match(const std::string& regexp, const std::string& subject, int flags = 0) {
    return slre_match(regexp.c_str(), subject.data(), static_cast<int>(subject.size()), nullptr, 0, flags);
}

std::string Captured(const slre_cap& cap) {
    return cap.ptr == nullptr ? std::string("<null>") : std::string(cap.ptr, static_cast<size_t>(cap.len));
}

// The result of matching regexp against subject with count captures,
// followed by the text of each capture.
using Captures = std::vector<std::string>;
Captures MatchCaptures(const std::string& regexp, const std::string& subject, int count) {
    std::vector<slre_cap> caps(static_cast<size_t>(count));
    const int result =
        slre_match(regexp.c_str(), subject.data(), static_cast<int>(subject.size()), caps.data(), count, 0);
    Captures out{std::to_string(result)};
    for (const slre_cap& cap : caps) {
        out.push_back(Captured(cap));
    }
    return out;
}

// One expression matched against one subject, and the expected result: the
// offset after the match or an error code.
struct MatchCase {
    std::string regexp;
    std::string subject;
    int expected;
    int flags = 0;
};

void ExpectMatches(std::initializer_list<MatchCase> cases) {
    for (const MatchCase& item : cases) {
        EXPECT_EQ(Match(item.regexp, item.subject, item.flags), item.expected)
            << "\"" << item.regexp << "\" on \"" << item.subject << "\" with flags " << item.flags;
    }
}

// The file-name character set into which the wildcard "?" is translated.
const char kNameChar[] = "[A-Za-z0-9-^&'@{}\\]\\[,\\$=!#\\(\\)%\\.\\+~_]";

} // namespace

TEST(Slre, AnchoredAtBothEnds) {
    ExpectMatches({
        {"^a.c$", "abc", 3},
        {"^a.c$", "abcd", SLRE_NO_MATCH},
        {"^a.c", "abcd", 3},
    });
}

TEST(Slre, CaseInsensitiveFlag) {
    ExpectMatches({
        {"^[a-z]*$", "ABC", 3, 1},
        {"^[a-z]*$", "ABC", SLRE_NO_MATCH, 0},
        {"^abc$", "AbC", 3, SLRE_IGNORE_CASE},
        {"^abc$", "AbC", SLRE_NO_MATCH},
        {"^[A-C]+$", "abc", 3, SLRE_IGNORE_CASE},
        {"^\\x41$", "a", 1, SLRE_IGNORE_CASE},
    });
}

TEST(Slre, ResultIsOffsetAfterTheMatch) {
    ExpectMatches({
        {"b", "abc", 2},
        {"cd", "abcdef", 4},
        {"x*", "abc", 0}, // an empty match at offset 0
        {"$", "abc", 3},
        {"", "abc", 0},
        {"z", "abc", SLRE_NO_MATCH},
        {"a", "", SLRE_NO_MATCH},
        {"^$", "", 0},
    });
}

TEST(Slre, OnlyTheGivenSubjectLengthIsRead) {
    const char subject[] = "abcdef";
    EXPECT_EQ(slre_match("d", subject, 3, nullptr, 0, 0), SLRE_NO_MATCH);
    EXPECT_EQ(slre_match("c$", subject, 3, nullptr, 0, 0), 3);
    EXPECT_EQ(slre_match("^.*$", subject, 0, nullptr, 0, 0), 0);
    // Zero bytes inside the subject are ordinary characters.
    const char withZero[] = {'a', '\0', 'b'};
    EXPECT_EQ(slre_match("^a\\x00b$", withZero, 3, nullptr, 0, 0), 3);
    EXPECT_EQ(slre_match("^a.b$", withZero, 3, nullptr, 0, 0), 3);
}

TEST(Slre, CaretAtTheStartTriesOnlyOffsetZero) {
    EXPECT_EQ(Match("^b", "ab"), SLRE_NO_MATCH);
    // The whole expression is anchored, the second alternative included.
    EXPECT_EQ(Match("^a|b", "xb"), SLRE_NO_MATCH);
    EXPECT_EQ(Match("a|b", "xb"), 2);
    // A caret elsewhere holds only at the start of the subject.
    EXPECT_EQ(Match("x|^b", "bx"), 1);
    EXPECT_EQ(Match("a^b", "ab"), SLRE_NO_MATCH);
}

TEST(Slre, DollarRequiresTheEndOfTheSubject) {
    ExpectMatches({
        {"b$", "abab", 4},
        {"a$", "abab", SLRE_NO_MATCH},
        {"(a$|b)", "ab", 2},
        {"^(a$|ab)", "ab", 2},
    });
}

TEST(Slre, UnbalancedRoundBrackets) {
    EXPECT_EQ(Match("(a", "a"), SLRE_UNBALANCED_BRACKETS);
    EXPECT_EQ(SLRE_UNBALANCED_BRACKETS, -3);
    ExpectMatches({
        {"a)", "a", -3},
        {"((a)", "a", -3},
        {"(a))(", "a", -3},
    });
}

TEST(Slre, CaptureArrayTooSmall) {
    slre_cap caps[1];
    EXPECT_EQ(slre_match("(a)(b)", "ab", 2, caps, 1, 0), SLRE_CAPS_ARRAY_TOO_SMALL);
    EXPECT_EQ(SLRE_CAPS_ARRAY_TOO_SMALL, -7);
    EXPECT_EQ(slre_match("(a)", "a", 1, caps, 0, 0), -7);
    EXPECT_EQ(slre_match("(a)", "a", 1, caps, -3, 0), -7);
    // Nested brackets count as well.
    EXPECT_EQ(slre_match("((a))", "a", 1, caps, 1, 0), -7);
    // Without a capture array nothing is captured and nothing is checked.
    EXPECT_EQ(slre_match("(a)(b)", "ab", 2, nullptr, 0, 0), 2);
    EXPECT_EQ(slre_match("(a)", "a", 1, caps, 1, 0), 1);
}

TEST(Slre, ConvenienceForm) {
    EXPECT_EQ(slre_match(0, "^a.c$", "abc", 3), nullptr);
    EXPECT_STREQ(slre_match(0, "^a.c$", "abcd", 4), "Not matched");
    EXPECT_STREQ(slre_match(0, "(a", "a", 1), "Not matched");
    EXPECT_STREQ(slre_match(0, "\\q", "q", 1), "Not matched");
    EXPECT_EQ(slre_match(1, "^ABC$", "abc", 3), nullptr);
    // Four capture entries: a fifth bracket pair is an error, reported the same way.
    EXPECT_EQ(slre_match(0, "(a)(b)(c)(d)", "abcd", 4), nullptr);
    EXPECT_STREQ(slre_match(0, "(a)(b)(c)(d)(e)", "abcde", 5), "Not matched");
}

TEST(Slre, QuantifierWhereNoneMayStand) {
    EXPECT_EQ(SLRE_UNEXPECTED_QUANTIFIER, -2);
    ExpectMatches({
        {"*a", "a", -2},
        {"+", "a", -2},
        {"?", "a", -2},
        {"a**", "a", -2},
        {"a+*", "a", -2},
        {"a??", "a", -2},
        {"a*?*", "a", -2},
        {"(*a)", "a", -2},
        {"a|*b", "a", -2},
        {"^*a", "a", -2},
    });
    // Found even when the subject would match before the bad part is reached.
    EXPECT_EQ(Match("a|b**", "a"), -2);
}

TEST(Slre, InvalidCharacterSet) {
    EXPECT_EQ(SLRE_INVALID_CHARACTER_SET, -5);
    ExpectMatches({
        {"[abc", "a", -5},
        {"a[", "a", -5},
        {"[\\]", "]", -5},
        {"[^", "a", -5},
    });
}

TEST(Slre, InvalidMetacharacter) {
    EXPECT_EQ(SLRE_INVALID_METACHARACTER, -6);
    ExpectMatches({
        {"\\q", "q", -6},
        {"\\w", "w", -6},
        {"abc\\", "abc", -6},
        {"\\x", "x", -6},
        {"\\x4", "x", -6},
        {"\\x4g", "x", -6},
        {"\\xZZ", "x", -6},
        {"[\\", "a", -6},
        {"[a\\x1]", "a", -6},
    });
}

TEST(Slre, InsideASetABackslashMakesAnyCharacterLiteral) {
    ExpectMatches({
        {"^[\\q]$", "q", 1},
        {"^[\\/\\-]+$", "/-/", 3},
        {"^[a\\-z]+$", "a-z", 3},
        {"^[a\\-z]+$", "b", SLRE_NO_MATCH}, // not a range
        {"^[\\d]$", "7", 1},                // the named escapes keep their meaning
        {"^[\\d]$", "d", SLRE_NO_MATCH},
    });
    // Outside a set the same escapes are errors.
    EXPECT_EQ(Match("\\/", "/"), -6);
    EXPECT_EQ(Match("\\-", "-"), -6);
}

TEST(Slre, FilePatternAcceptsPlainPathNames) {
    ExpectMatches({
        {FILE_PATTERN, "/tmp/pkg-1.0_(x86) [a]+b.rpm", 28},
        {FILE_PATTERN, "Temp\\pkg.rpm", 12},
        {FILE_PATTERN, "C:\\Temp\\pkg.rpm", SLRE_NO_MATCH}, // no colon
        {FILE_PATTERN, "", 0},
        {FILE_PATTERN, "a*b", SLRE_NO_MATCH},
        {FILE_PATTERN, "a;rm -rf", SLRE_NO_MATCH},
        {FILE_PATTERN, "a$b", SLRE_NO_MATCH},
    });
    EXPECT_EQ(slre_match(0, FILE_PATTERN, "ok.rpm", 6), nullptr);
}

TEST(Slre, TooManyBranches) {
    EXPECT_EQ(SLRE_TOO_MANY_BRANCHES, -8);
    std::string hundred = "a";
    for (int i = 0; i < 100; ++i) {
        hundred += "|a";
    }
    EXPECT_EQ(Match(hundred, "a"), 1);
    EXPECT_EQ(Match(hundred + "|b", "b"), -8);
}

TEST(Slre, TooManyBrackets) {
    EXPECT_EQ(SLRE_TOO_MANY_BRACKETS, -9);
    std::string ninetyNine;
    for (int i = 0; i < 99; ++i) {
        ninetyNine += "(a)";
    }
    const std::string subject(99, 'a');
    EXPECT_EQ(Match(ninetyNine, subject), 99);
    EXPECT_EQ(Match(ninetyNine + "(a)", subject + "a"), -9);
    slre_cap caps[100];
    EXPECT_EQ(slre_match(ninetyNine.c_str(), subject.data(), 99, caps, 100, 0), 99);
    EXPECT_EQ(Captured(caps[98]), "a");
    EXPECT_EQ(caps[98].ptr, subject.data() + 98);
}

TEST(Slre, BadArgumentsAreAnInternalError) {
    EXPECT_EQ(SLRE_INTERNAL_ERROR, -4);
    EXPECT_EQ(slre_match(nullptr, "a", 1, nullptr, 0, 0), -4);
    EXPECT_EQ(slre_match("a", "a", -1, nullptr, 0, 0), -4);
    EXPECT_EQ(slre_match("a", nullptr, 1, nullptr, 0, 0), -4);
    EXPECT_EQ(slre_match("^$", nullptr, 0, nullptr, 0, 0), 0);
}

TEST(Slre, Captures) {
    slre_cap caps[2];
    const std::string subject = "tel 12-345;";
    EXPECT_EQ(slre_match("(\\d+)-(\\d+)", subject.data(), static_cast<int>(subject.size()), caps, 2, 0), 10);
    EXPECT_EQ(Captured(caps[0]), "12");
    EXPECT_EQ(caps[0].ptr, subject.data() + 4);
    EXPECT_EQ(Captured(caps[1]), "345");
    EXPECT_EQ(caps[1].len, 3);
}

TEST(Slre, NestedCapturesGoInOrderOfTheirOpeningBracket) {
    EXPECT_EQ(MatchCaptures("(a(b)(c))d", "xabcd", 3), (Captures{"5", "abc", "b", "c"}));
}

TEST(Slre, GroupThatDoesNotTakePartCapturesNothing) {
    slre_cap caps[2];
    EXPECT_EQ(slre_match("^(a)|(b)$", "xb", 2, caps, 2, 0), SLRE_NO_MATCH); // anchored at offset 0 only
    EXPECT_EQ(slre_match("^(a)|(b)$", "b", 1, caps, 2, 0), 1);
    EXPECT_EQ(slre_match("(a)|(b)", "b", 1, caps, 2, 0), 1);
    EXPECT_EQ(caps[0].ptr, nullptr);
    EXPECT_EQ(caps[0].len, 0);
    EXPECT_EQ(Captured(caps[1]), "b");
}

TEST(Slre, AlternativesBacktrackIntoTheGroup) {
    ExpectMatches({
        {"(a|ab)c", "abc", 3},
        {"^(a|ab)(c|bcd)$", "abcd", 4},
        {"cat|dog", "hotdog", 6},
        {"a|ab", "ab", 1}, // the first alternative that matches wins
    });
    EXPECT_EQ(MatchCaptures("^(a|ab)(c|bcd)$", "abcd", 2), (Captures{"4", "a", "bcd"}));
}

TEST(Slre, GreedyAndLazyQuantifiers) {
    ExpectMatches({
        {"a+", "aaa", 3},
        {"a+?", "aaa", 1},
        {"a*?", "aaa", 0},
        {"a*?b", "aaab", 4},
        {"^a?b$", "b", 1},
        {"^a?b$", "ab", 2},
        {"^a?b$", "aab", SLRE_NO_MATCH},
        {"^a+$", "", SLRE_NO_MATCH},
    });
    EXPECT_EQ(MatchCaptures("^(a*)(a*)$", "aaa", 2), (Captures{"3", "aaa", ""}));
    EXPECT_EQ(MatchCaptures("^(a+?)(a*)$", "aaa", 2), (Captures{"3", "a", "aa"}));
    EXPECT_EQ(MatchCaptures("<(.+?)>", "<a><b>", 1), (Captures{"3", "a"}));
    EXPECT_EQ(MatchCaptures("<(.+)>", "<a><b>", 1), (Captures{"6", "a><b"}));
}

TEST(Slre, QuantifiedGroups) {
    slre_cap caps[1];
    const std::string subject = "ababx";
    EXPECT_EQ(slre_match("(ab)+", subject.data(), 5, caps, 1, 0), 4);
    EXPECT_EQ(Captured(caps[0]), "ab");
    EXPECT_EQ(caps[0].ptr, subject.data() + 2); // the last iteration
    ExpectMatches({
        {"^(ab)*$", "", 0},
        {"^(ab)*$", "abab", 4},
        {"^(ab)*$", "aba", SLRE_NO_MATCH},
        {"^(ab)?c", "abc", 3},
        {"^(ab)?c", "c", 1},
        {"^(a|b)+?b", "aabab", 3},
        {"^(a|b)+b", "aabab", 5},
        {"()", "x", 0},
        {"()*x", "x", 1},
    });
    // A group that can match empty does not loop for ever.
    EXPECT_EQ(Match("^(a*)*$", "aaa"), 3);
    EXPECT_EQ(Match("^(a*)*b", "aaac"), SLRE_NO_MATCH);
}

TEST(Slre, Escapes) {
    ExpectMatches({
        {"^\\d\\d$", "42", 2},
        {"^\\d$", "x", SLRE_NO_MATCH},
        {"^\\s\\S$", "\tx", 2},
        {"^\\S$", " ", SLRE_NO_MATCH},
        {"^\\b\\f\\n\\r\\t\\v$", "\b\f\n\r\t\v", 6},
        {"^\\x41\\x7a$", "Az", 2},
        {"^\\xff$", "\xff", 1},
        {"^\\^\\$\\(\\)\\.\\[\\]\\*\\+\\?\\|\\\\$", "^$().[]*+?|\\", 12},
        {"^a\\.b$", "axb", SLRE_NO_MATCH},
        {"^a\\.b$", "a.b", 3},
        {"^a]$", "a]", 2}, // a lone closing square bracket is literal
    });
}

TEST(Slre, CharacterSets) {
    ExpectMatches({
        {"^[abc]+$", "cab", 3},
        {"^[^abc]$", "d", 1},
        {"^[^abc]$", "a", SLRE_NO_MATCH},
        {"^[a-]$", "-", 1},
        {"^[-a]$", "-", 1},
        {"^[0-9-x]+$", "1-x", 3},
        {"^[\\]x]+$", "]x", 2},
        {"^[\\d.]+$", "1.5", 3},
        {"^[\\x41-]$", "A", 1},
        {"^[]$", "a", SLRE_NO_MATCH}, // an empty set matches nothing
        {"^[^]$", "a", 1},            // and its complement anything
    });
    // The wildcard's file-name set: a minus after a range is literal, and so
    // is the caret that follows it.
    const std::string oneName = std::string("^") + kNameChar + "$";
    EXPECT_EQ(std::strlen(kNameChar), 39u);
    for (const char* c : {"a", "Z", "5", "-", "^", "&", "'", "@", "{", "}", "]", "[",
                          ",", "$", "=", "!", "#", "(", ")", "%", ".", "+", "~", "_"}) {
        EXPECT_EQ(Match(oneName, c), 1) << c;
    }
    for (const char* c : {" ", "/", "\\", "*", "?", "|", "<", ">", ":", ";", "\"", "`"}) {
        EXPECT_EQ(Match(oneName, c), SLRE_NO_MATCH) << c;
    }
}

TEST(Slre, GivesUpOnRunawayBacktracking) {
    // Exponential in the number of a's; the matcher stops with an internal
    // error instead of running for ever.
    const std::string subject(40, 'a');
    EXPECT_EQ(Match("^(a|a)*b", subject), SLRE_INTERNAL_ERROR);
}

TEST(Slre, GivesUpBeforeTheCallStackRunsOut) {
    std::string shortRun;
    for (int i = 0; i < 300; ++i) {
        shortRun += "ab";
    }
    EXPECT_EQ(Match("^(ab)*$", shortRun), 600);
    std::string manyOptional = "^";
    for (int i = 0; i < 200; ++i) {
        manyOptional += "a?";
    }
    EXPECT_EQ(Match(manyOptional + "$", std::string(200, 'a')), 200);
    std::string longRun;
    for (int i = 0; i < 100000; ++i) {
        longRun += "ab";
    }
    EXPECT_EQ(Match("^(ab)*$", longRun), SLRE_INTERNAL_ERROR);
    // Single-character repetitions do not nest, whatever their length.
    EXPECT_EQ(Match("^a*b$", std::string(1000000, 'a') + "b"), 1000001);
}

TEST(Slre, LongUnanchoredSearchIsNotCutShort) {
    std::string subject(2000000, 'x');
    subject += "needle";
    EXPECT_EQ(Match("needle", subject), static_cast<int>(subject.size()));
}

namespace {

// Random expressions of groups, alternatives, sets, classes and greedy or
// lazy quantifiers, for comparison with the standard library's engine.
class ExpressionMaker {
public:
    explicit ExpressionMaker(unsigned seed) : m_Random(seed) {}

    std::string Alternatives(int depth) {
        std::string text = Sequence(depth);
        while (m_Random() % 3 == 0) {
            text += "|" + Sequence(depth);
        }
        return text;
    }
    std::string Subject() {
        std::string text;
        const int length = static_cast<int>(m_Random() % 7);
        for (int i = 0; i < length; ++i) {
            text += "abcA1"[m_Random() % 5];
        }
        return text;
    }

private:
    std::string Sequence(int depth) {
        std::string text;
        const int atoms = static_cast<int>(m_Random() % 4) + 1;
        for (int i = 0; i < atoms; ++i) {
            text += Atom(depth);
            static const char* const quantifiers[] = {"*", "+", "?", "*?", "+?", "", "", ""};
            text += quantifiers[m_Random() % 8];
        }
        return text;
    }
    std::string Atom(int depth) {
        switch (m_Random() % 8) {
        case 0:
            return depth < 3 ? "(" + Alternatives(depth + 1) + ")" : "a";
        case 1:
            return ".";
        case 2:
            return "[ab]";
        case 3:
            return "[^a]";
        case 4:
            return "\\d";
        case 5:
            return "[b-c]";
        default:
            return std::string(1, "abcA"[m_Random() % 4]);
        }
    }

    std::mt19937 m_Random;
};

} // namespace

// Whether a whole subject matches does not depend on which alternative an
// engine prefers, so the standard engine is an oracle for it.
TEST(Slre, AgreesWithTheStandardEngineOnWholeMatches) {
    ExpressionMaker maker(4242);
    for (int round = 0; round < 1000; ++round) {
        const std::string expression = "^(" + maker.Alternatives(0) + ")$";
        const std::string subject = maker.Subject();
        const int flags = round % 2;
        const int result = Match(expression, subject, flags);
        ASSERT_GE(result, -1) << expression;
        const auto syntax = flags != 0 ? std::regex::ECMAScript | std::regex::icase : std::regex::ECMAScript;
        const bool expected = std::regex_search(subject, std::regex(expression, syntax));
        EXPECT_EQ(result >= 0, expected) << expression << " on " << subject << " flags " << flags;
        if (result >= 0) {
            EXPECT_EQ(result, static_cast<int>(subject.size())) << expression << " on " << subject;
        }
    }
}

// Random expressions over the metacharacters, each in a buffer of exactly
// its own size, against subjects in buffers without a terminator: the
// sanitizer build reports any read outside them.
TEST(Slre, RandomInputStaysInsideItsBuffers) {
    std::mt19937 random(20240611);
    const std::string alphabet = "^$().[]*+?|\\Ssdbfnrtvx0aA-9 ";
    for (int round = 0; round < 200000; ++round) {
        const size_t expressionLength = random() % 16;
        std::unique_ptr<char[]> expression(new char[expressionLength + 1]);
        for (size_t i = 0; i < expressionLength; ++i) {
            expression[i] = alphabet[random() % alphabet.size()];
        }
        expression[expressionLength] = '\0';
        const int subjectLength = static_cast<int>(random() % 8);
        std::unique_ptr<char[]> subject(new char[subjectLength > 0 ? subjectLength : 1]);
        for (int i = 0; i < subjectLength; ++i) {
            subject[i] = "aA0 \n-x"[random() % 7];
        }
        slre_cap caps[12] = {};
        const int flags = static_cast<int>(random() % 2);
        const int result = slre_match(expression.get(), subject.get(), subjectLength, caps, 12, flags);
        ASSERT_GE(result, -9) << expression.get();
        ASSERT_LE(result, subjectLength) << expression.get();
        if (result >= 0) {
            for (const slre_cap& cap : caps) {
                if (cap.ptr != nullptr) {
                    ASSERT_GE(cap.ptr, subject.get());
                    ASSERT_GE(cap.len, 0);
                    ASSERT_LE(cap.ptr + cap.len, subject.get() + subjectLength);
                }
            }
        }
    }
}
