// Checks of the exact exception type and what() text that a call throws.
#ifndef SIGNING_TEST_EXCEPTION_TEXT_H
#define SIGNING_TEST_EXCEPTION_TEXT_H

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace testsupport {

// Expects fn to throw exactly the exception type E with the given what().
template <typename E, typename Fn> void ExpectThrowWithText(Fn fn, const std::string& text) {
    try {
        fn();
        ADD_FAILURE() << "no exception, expected: " << text;
    } catch (const E& error) {
        EXPECT_EQ(std::string(error.what()), text);
    }
}

// The what() text of the exception of type Exception that call throws; a
// text that says so when it throws another type or nothing.
template <typename Exception, typename Call> std::string ThrownText(Call call) {
    try {
        call();
    } catch (const Exception& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("unexpected exception type: ") + e.what();
    }
    return "nothing thrown";
}

// As ThrownText, for an Exception whose subclass Excluded must not be the
// one thrown (a file error that must not be reported as a missing file).
template <typename Exception, typename Excluded, typename Call> std::string ThrownTextNotOf(Call call) {
    try {
        call();
    } catch (const Excluded& e) {
        return std::string("excluded exception type: ") + e.what();
    } catch (const Exception& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("unexpected exception type: ") + e.what();
    }
    return "nothing thrown";
}

} // namespace testsupport

#endif
