// A small backtracking regular-expression matcher. The expression is
// compiled anew on every call, nothing is allocated on the heap, and the
// result is an integer: the subject offset where the match ended, or a
// negative error code.
//
// Syntax: ^ (start), $ (end), . (any byte), [set] and [^set] with ranges,
// (group) capturing, a|b alternatives, * + ? quantifiers (greedy, or lazy
// with a trailing ?), and the escapes \S \s \d \b \f \n \r \t \v \xHH and a
// backslash before any other metacharacter of ^$().[]*+?|\ for the literal;
// inside a set, a backslash before any other character makes it literal.
#ifndef SIGNING_SLRE_H
#define SIGNING_SLRE_H

// One capture: the first captured byte inside the subject and the length.
struct slre_cap {
    const char* ptr;
    int len;
};

// Flags.
enum { SLRE_IGNORE_CASE = 1 };

// Results below zero.
enum {
    SLRE_NO_MATCH = -1,
    SLRE_UNEXPECTED_QUANTIFIER = -2,
    SLRE_UNBALANCED_BRACKETS = -3,
    SLRE_INTERNAL_ERROR = -4,
    SLRE_INVALID_CHARACTER_SET = -5,
    SLRE_INVALID_METACHARACTER = -6,
    SLRE_CAPS_ARRAY_TOO_SMALL = -7,
    SLRE_TOO_MANY_BRANCHES = -8,
    SLRE_TOO_MANY_BRACKETS = -9,
};

// Reached by no entry point: only FileHelper::ParseWildcards calls the matcher, and nothing
// above the core layer calls that.
// Matches regexp (NUL-terminated) against the first subjectLength bytes of
// subject. Answers the number of subject bytes up to the end of the match,
// or a negative code. The i-th bracket pair's capture goes to
// captures[i - 1]; captures may be null, and then nothing is captured.
int slre_match(const char* regexp, const char* subject, int subjectLength, slre_cap* captures,
               int captureCount, int flags);

// Convenience form: a null pointer for a match, "Not matched" for anything
// else (a failed match or a malformed expression).
const char* slre_match(int flags, const char* regexp, const char* subject, int subjectLength);

#endif
