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

} // namespace testsupport

#endif
