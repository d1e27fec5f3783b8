#include "slre.h"

#include "ContractTexts.h"

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>

namespace {

constexpr int kMaxBrackets = 100;
constexpr int kMaxBranches = 100;

// The matcher gives up (SLRE_INTERNAL_ERROR) rather than exhaust the call
// stack or backtrack for ever: at most kMaxDepth nested match steps, and at
// most kBaseSteps byte comparisons and match steps in one call, plus four
// per pair of subject offset and expression byte (up to kMaxExtraSteps), so
// that a search without backtracking is never cut short.
constexpr int kMaxDepth = 500;
constexpr int64_t kBaseSteps = 5000000;
constexpr int64_t kMaxExtraSteps = 100000000;

struct bracket_pair {
    const char* ptr; // the bracket's contents (after its opening round bracket)
    int len;         // length of the contents
    int branches;    // index of its first branch point
    int num_branches;
};

struct branch {
    int bracket_index;    // the bracket the "|" belongs to
    const char* position; // the position of the "|"
};

struct regex_info {
    bracket_pair brackets[kMaxBrackets];
    int num_brackets;
    branch branches[kMaxBranches];
    int num_branches;
    slre_cap* caps;
    int num_caps;
    int flags;
};

// What follows when a group's alternative has been matched to its end.
struct Continuation {
    int bracket;                // the group
    const Continuation* parent; // what follows the group
    int start;                  // subject offset where this iteration began
    int count;                  // iterations completed before this one
    int max;                    // most iterations allowed
    bool lazy;                  // try leaving before repeating
    const char* after;          // the expression after the group and its quantifier
    const char* afterEnd;       // end of the alternative the group stands in
};

bool IsMetacharacter(unsigned char c) {
    return c != '\0' && std::strchr(contract::kRegexMetacharacters, c) != nullptr;
}

bool IsQuantifier(char c) {
    return c == '*' || c == '+' || c == '?';
}

int HexValue(unsigned char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return std::tolower(c) - 'a' + 10;
}

// The length of the escape at p (p[0] is the backslash), or
// SLRE_INVALID_METACHARACTER. The expression ends at end; nothing at or
// beyond it is read. Inside a set a backslash makes any character literal
// (so that "[\/\-]" is a slash or a minus); outside, only metacharacters.
int EscapeLength(const char* p, const char* end, bool inSet) {
    if (end - p < 2) {
        return SLRE_INVALID_METACHARACTER;
    }
    if (p[1] == 'x') {
        if (end - p < 4 || !std::isxdigit(static_cast<unsigned char>(p[2])) ||
            !std::isxdigit(static_cast<unsigned char>(p[3]))) {
            return SLRE_INVALID_METACHARACTER;
        }
        return 4;
    }
    return inSet || IsMetacharacter(static_cast<unsigned char>(p[1])) ? 2 : SLRE_INVALID_METACHARACTER;
}

// The length of the set at p (p[0] is the opening square bracket) with both
// brackets, or a negative code.
int SetLength(const char* p, const char* end) {
    const char* q = p + 1;
    while (q < end && *q != ']') {
        if (*q == '\\') {
            const int length = EscapeLength(q, end, true);
            if (length < 0) {
                return length;
            }
            q += length;
        } else {
            ++q;
        }
    }
    if (q >= end) {
        return SLRE_INVALID_CHARACTER_SET;
    }
    if (q + 1 - p > INT_MAX) {
        return SLRE_INTERNAL_ERROR;
    }
    return static_cast<int>(q + 1 - p);
}

class Matcher {
public:
    Matcher(regex_info& info, const char* expression, const char* expressionEnd, const char* subject,
            int subjectLength)
        : m_Info(info), m_Expression(expression), m_ExpressionEnd(expressionEnd), m_Subject(subject),
          m_SubjectLength(subjectLength), m_Depth(0), m_Steps(0), m_Error(0) {
        const int64_t size = (static_cast<int64_t>(subjectLength) + 1) * ((expressionEnd - expression) + 1);
        m_MaxSteps = kBaseSteps + (size > kMaxExtraSteps / 4 ? kMaxExtraSteps : size * 4);
    }

    int Setup();
    int Search();

private:
    int Match(const char* p, const char* end, int j, const Continuation* cont);
    int MatchGroup(const char* p, const char* end, int j, const Continuation* cont);
    int Enter(const Continuation& cont, int j);
    int Exit(int j, const Continuation* cont);
    bool AtomMatches(const char* atom, unsigned char c) const;
    bool SetMatches(const char* set, const char* close, unsigned char c) const;
    bool EscapeMatches(const char* escape, unsigned char c) const;
    bool SameCharacter(unsigned char a, unsigned char b) const;
    int AtomLength(const char* p) const;
    int BracketAt(const char* open) const;
    bool Spend(int64_t steps);

    regex_info& m_Info;
    const char* m_Expression;
    const char* m_ExpressionEnd;
    const char* m_Subject;
    int m_SubjectLength;
    int m_Depth;
    int64_t m_Steps;
    int64_t m_MaxSteps;
    int m_Error; // set when the matcher gave up; every caller then unwinds
};

// One pass over the expression: records bracket pairs and branch points and
// checks quantifiers, escapes and sets.
int Matcher::Setup() {
    regex_info& info = m_Info;
    info.brackets[0] = {m_Expression, static_cast<int>(m_ExpressionEnd - m_Expression), 0, 0};
    info.num_brackets = 1;
    info.num_branches = 0;

    int open[kMaxBrackets]; // indices of the brackets not yet closed
    int depth = 0;
    bool canQuantify = false;
    const char* p = m_Expression;
    while (p < m_ExpressionEnd) {
        const char c = *p;
        if (c == '(') {
            if (info.num_brackets >= kMaxBrackets) {
                return SLRE_TOO_MANY_BRACKETS;
            }
            open[depth++] = info.num_brackets;
            info.brackets[info.num_brackets] = {p + 1, -1, 0, 0};
            info.num_brackets++;
            if (info.caps != nullptr && info.num_brackets - 1 > info.num_caps) {
                return SLRE_CAPS_ARRAY_TOO_SMALL;
            }
            canQuantify = false;
            ++p;
        } else if (c == ')') {
            if (depth == 0) {
                return SLRE_UNBALANCED_BRACKETS;
            }
            bracket_pair& bracket = info.brackets[open[--depth]];
            bracket.len = static_cast<int>(p - bracket.ptr);
            canQuantify = true;
            ++p;
        } else if (c == '|') {
            if (info.num_branches >= kMaxBranches) {
                return SLRE_TOO_MANY_BRANCHES;
            }
            info.branches[info.num_branches] = {depth > 0 ? open[depth - 1] : 0, p};
            info.num_branches++;
            canQuantify = false;
            ++p;
        } else if (IsQuantifier(c)) {
            if (!canQuantify) {
                return SLRE_UNEXPECTED_QUANTIFIER;
            }
            ++p;
            // A question mark right after * or + makes it lazy.
            if (c != '?' && p < m_ExpressionEnd && *p == '?') {
                ++p;
            }
            canQuantify = false;
        } else if (c == '^' || c == '$') {
            canQuantify = false;
            ++p;
        } else if (c == '[' || c == '\\') {
            const int length =
                c == '[' ? SetLength(p, m_ExpressionEnd) : EscapeLength(p, m_ExpressionEnd, false);
            if (length < 0) {
                return length;
            }
            canQuantify = true;
            p += length;
        } else {
            canQuantify = true;
            ++p;
        }
    }
    if (depth != 0) {
        return SLRE_UNBALANCED_BRACKETS;
    }

    // Sort the branch points by bracket (stable, so each bracket keeps its
    // alternatives in order) and tell each bracket where its own begin.
    for (int i = 1; i < info.num_branches; ++i) {
        const branch moving = info.branches[i];
        int k = i;
        while (k > 0 && info.branches[k - 1].bracket_index > moving.bracket_index) {
            info.branches[k] = info.branches[k - 1];
            --k;
        }
        info.branches[k] = moving;
    }
    for (int i = 0; i < info.num_brackets; ++i) {
        info.brackets[i].branches = 0;
        info.brackets[i].num_branches = 0;
    }
    for (int i = info.num_branches - 1; i >= 0; --i) {
        bracket_pair& bracket = info.brackets[info.branches[i].bracket_index];
        bracket.branches = i;
        bracket.num_branches++;
    }
    if (info.caps != nullptr) {
        for (int i = 0; i + 1 < info.num_brackets; ++i) {
            info.caps[i].ptr = nullptr;
            info.caps[i].len = 0;
        }
    }
    return 0;
}

bool Matcher::Spend(int64_t steps) {
    m_Steps += steps;
    if (m_Steps > m_MaxSteps) {
        m_Error = SLRE_INTERNAL_ERROR;
        return false;
    }
    return true;
}

int Matcher::Search() {
    // An expression that begins with a caret is only tried at offset 0.
    const bool anchored = m_Expression < m_ExpressionEnd && *m_Expression == '^';
    for (int start = 0; start <= m_SubjectLength; ++start) {
        Continuation top{0, nullptr, start, 0, 1, false, m_ExpressionEnd, m_ExpressionEnd};
        const int result = Enter(top, start);
        if (m_Error != 0) {
            return m_Error;
        }
        if (result >= 0) {
            return result;
        }
        if (anchored) {
            break;
        }
    }
    return SLRE_NO_MATCH;
}

// Tries the alternatives of the continuation's bracket in order from
// subject offset j.
int Matcher::Enter(const Continuation& cont, int j) {
    const bracket_pair& bracket = m_Info.brackets[cont.bracket];
    const char* start = bracket.ptr;
    const char* stop = bracket.ptr + bracket.len;
    for (int k = 0; k <= bracket.num_branches; ++k) {
        const char* end = k < bracket.num_branches ? m_Info.branches[bracket.branches + k].position : stop;
        const int result = Match(start, end, j, &cont);
        if (result >= 0 || m_Error != 0) {
            return result;
        }
        start = end + 1;
    }
    return SLRE_NO_MATCH;
}

// An alternative was matched up to subject offset j: record the capture,
// then repeat the group or go on after it, as its quantifier allows.
int Matcher::Exit(int j, const Continuation* cont) {
    if (cont->parent == nullptr && cont->bracket == 0) {
        return j;
    }
    slre_cap* cap = nullptr;
    slre_cap saved{nullptr, 0};
    if (m_Info.caps != nullptr && cont->bracket > 0 && cont->bracket <= m_Info.num_caps) {
        cap = &m_Info.caps[cont->bracket - 1];
        saved = *cap;
        cap->ptr = m_Subject + cont->start;
        cap->len = j - cont->start;
    }
    const int iterations = cont->count + 1;
    // An iteration that consumed nothing is not repeated: it could not end.
    const bool canRepeat = iterations < cont->max && j > cont->start;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const bool repeat = (attempt == 0) != cont->lazy;
        int result = SLRE_NO_MATCH;
        if (repeat) {
            if (canRepeat) {
                Continuation next = *cont;
                next.start = j;
                next.count = iterations;
                result = Enter(next, j);
            }
        } else {
            result = Match(cont->after, cont->afterEnd, j, cont->parent);
        }
        if (result >= 0 || m_Error != 0) {
            return result;
        }
    }
    if (cap != nullptr) {
        *cap = saved;
    }
    return SLRE_NO_MATCH;
}

int Matcher::BracketAt(const char* open) const {
    for (int i = 1; i < m_Info.num_brackets; ++i) {
        if (m_Info.brackets[i].ptr == open + 1) {
            return i;
        }
    }
    return -1;
}

// The group at p (p[0] is its opening round bracket) and its quantifier.
int Matcher::MatchGroup(const char* p, const char* end, int j, const Continuation* cont) {
    const int index = BracketAt(p);
    if (index < 0) {
        m_Error = SLRE_INTERNAL_ERROR;
        return SLRE_NO_MATCH;
    }
    const bracket_pair& bracket = m_Info.brackets[index];
    const char* q = bracket.ptr + bracket.len + 1; // after the closing bracket
    const char quantifier = q < end && IsQuantifier(*q) ? *q : '\0';
    const bool lazy = quantifier != '\0' && quantifier != '?' && q + 1 < end && q[1] == '?';
    const char* after = q + (quantifier != '\0' ? 1 : 0) + (lazy ? 1 : 0);
    const int max = quantifier == '*' || quantifier == '+' ? INT_MAX : 1;
    const bool optional = quantifier == '*' || quantifier == '?';

    const Continuation child{index, cont, j, 0, max, lazy, after, end};
    for (int attempt = 0; attempt < 2; ++attempt) {
        const bool skip = (attempt == 0) == lazy;
        int result = SLRE_NO_MATCH;
        if (skip) {
            if (optional) {
                result = Match(after, end, j, cont);
            }
        } else {
            result = Enter(child, j);
        }
        if (result >= 0 || m_Error != 0) {
            return result;
        }
    }
    return SLRE_NO_MATCH;
}

bool Matcher::SameCharacter(unsigned char a, unsigned char b) const {
    if (m_Info.flags & SLRE_IGNORE_CASE) {
        return std::tolower(a) == std::tolower(b);
    }
    return a == b;
}

bool Matcher::EscapeMatches(const char* escape, unsigned char c) const {
    switch (escape[1]) {
    case 'S':
        return !std::isspace(c);
    case 's':
        return std::isspace(c) != 0;
    case 'd':
        return std::isdigit(c) != 0;
    case 'b':
        return c == 8;
    case 'f':
        return c == 12;
    case 'n':
        return c == 10;
    case 'r':
        return c == 13;
    case 't':
        return c == 9;
    case 'v':
        return c == 11;
    case 'x':
        return SameCharacter(static_cast<unsigned char>(HexValue(static_cast<unsigned char>(escape[2])) * 16 +
                                                        HexValue(static_cast<unsigned char>(escape[3]))),
                             c);
    default:
        return SameCharacter(static_cast<unsigned char>(escape[1]), c);
    }
}

// set points after the opening square bracket, close at the closing one.
bool Matcher::SetMatches(const char* set, const char* close, unsigned char c) const {
    const bool invert = set < close && *set == '^';
    if (invert) {
        ++set;
    }
    bool found = false;
    const char* q = set;
    while (q < close && !found) {
        if (*q == '\\') {
            found = EscapeMatches(q, c);
            q += EscapeLength(q, close, true);
        } else if (*q != '-' && q + 2 < close && q[1] == '-' && q[2] != '\\') {
            unsigned char low = static_cast<unsigned char>(q[0]);
            unsigned char high = static_cast<unsigned char>(q[2]);
            unsigned char value = c;
            if (m_Info.flags & SLRE_IGNORE_CASE) {
                low = static_cast<unsigned char>(std::tolower(low));
                high = static_cast<unsigned char>(std::tolower(high));
                value = static_cast<unsigned char>(std::tolower(value));
            }
            found = value >= low && value <= high;
            q += 3;
        } else {
            found = SameCharacter(static_cast<unsigned char>(*q), c);
            ++q;
        }
    }
    return found != invert;
}

int Matcher::AtomLength(const char* p) const {
    if (*p == '[') {
        return SetLength(p, m_ExpressionEnd);
    }
    if (*p == '\\') {
        return EscapeLength(p, m_ExpressionEnd, false);
    }
    return 1;
}

bool Matcher::AtomMatches(const char* atom, unsigned char c) const {
    switch (*atom) {
    case '.':
        return true;
    case '[':
        return SetMatches(atom + 1, atom + AtomLength(atom) - 1, c);
    case '\\':
        return EscapeMatches(atom, c);
    default:
        return SameCharacter(static_cast<unsigned char>(*atom), c);
    }
}

// Matches the expression [p, end) of one alternative from subject offset j,
// then whatever cont says follows. Answers the offset where the whole match
// ended, or SLRE_NO_MATCH.
int Matcher::Match(const char* p, const char* end, int j, const Continuation* cont) {
    if (m_Depth >= kMaxDepth || !Spend(1)) {
        m_Error = SLRE_INTERNAL_ERROR;
        return SLRE_NO_MATCH;
    }
    struct DepthGuard {
        int& depth;
        explicit DepthGuard(int& d) : depth(d) { ++depth; }
        ~DepthGuard() { --depth; }
    } guard(m_Depth);

    while (p < end) {
        const char c = *p;
        if (c == '(') {
            return MatchGroup(p, end, j, cont);
        }
        if (c == '^') {
            if (j != 0) {
                return SLRE_NO_MATCH;
            }
            ++p;
            continue;
        }
        if (c == '$') {
            if (j != m_SubjectLength) {
                return SLRE_NO_MATCH;
            }
            ++p;
            continue;
        }
        const int length = AtomLength(p);
        if (length <= 0) {
            m_Error = SLRE_INTERNAL_ERROR;
            return SLRE_NO_MATCH;
        }
        const char* next = p + length;
        if (next < end && IsQuantifier(*next)) {
            const char quantifier = *next;
            const bool lazy = quantifier != '?' && next + 1 < end && next[1] == '?';
            const char* rest = next + 1 + (lazy ? 1 : 0);
            const int min = quantifier == '+' ? 1 : 0;
            const int max = quantifier == '?' ? 1 : INT_MAX;
            if (!lazy) {
                int count = 0;
                while (count < max && j + count < m_SubjectLength &&
                       AtomMatches(p, static_cast<unsigned char>(m_Subject[j + count]))) {
                    ++count;
                }
                if (!Spend(count)) {
                    return SLRE_NO_MATCH;
                }
                for (; count >= min; --count) {
                    const int result = Match(rest, end, j + count, cont);
                    if (result >= 0 || m_Error != 0) {
                        return result;
                    }
                }
                return SLRE_NO_MATCH;
            }
            int count = 0;
            if (min == 1) {
                if (j >= m_SubjectLength || !AtomMatches(p, static_cast<unsigned char>(m_Subject[j]))) {
                    return SLRE_NO_MATCH;
                }
                count = 1;
            }
            for (;;) {
                const int result = Match(rest, end, j + count, cont);
                if (result >= 0 || m_Error != 0) {
                    return result;
                }
                if (count >= max || j + count >= m_SubjectLength ||
                    !AtomMatches(p, static_cast<unsigned char>(m_Subject[j + count]))) {
                    return SLRE_NO_MATCH;
                }
                ++count;
            }
        }
        if (j >= m_SubjectLength || !AtomMatches(p, static_cast<unsigned char>(m_Subject[j]))) {
            return SLRE_NO_MATCH;
        }
        if (!Spend(1)) {
            return SLRE_NO_MATCH;
        }
        ++j;
        p = next;
    }
    return Exit(j, cont);
}

} // namespace

int slre_match(const char* regexp, const char* subject, int subjectLength, slre_cap* captures,
               int captureCount, int flags) {
    if (regexp == nullptr || subjectLength < 0 || (subject == nullptr && subjectLength > 0)) {
        return SLRE_INTERNAL_ERROR;
    }
    const size_t expressionLength = std::strlen(regexp);
    if (expressionLength > static_cast<size_t>(INT_MAX) - 2) {
        return SLRE_INTERNAL_ERROR;
    }
    regex_info info;
    info.caps = captures;
    info.num_caps = captureCount < 0 ? 0 : captureCount;
    info.flags = flags;
    Matcher matcher(info, regexp, regexp + expressionLength, subject, subjectLength);
    const int setup = matcher.Setup();
    if (setup < 0) {
        return setup;
    }
    return matcher.Search();
}

const char* slre_match(int flags, const char* regexp, const char* subject, int subjectLength) {
    slre_cap captures[4];
    const int result = slre_match(regexp, subject, subjectLength, captures, 4, flags);
    return result >= 0 ? nullptr : contract::kRegexNotMatched;
}
