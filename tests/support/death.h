// The one way in which tests look at a failed assertion.
#pragma once

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace support {

/// What stands in "<file>:<line>: failed assertion `<text>'"; `file` may be any part of the path. Also asks for death
/// tests that start afresh: a plain fork of a process with threads may hang.
inline ::testing::Matcher<const std::string&> failed_assertion(const std::string& file, const std::string& text)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return ::testing::AllOf(::testing::HasSubstr(file), ::testing::HasSubstr(": failed assertion `" + text + "'"));
}

} // namespace support

/// The statement must abort the process with that failed assertion.
#define EXPECT_ASSERTION(statement, file, text)                                                                        \
    EXPECT_EXIT(statement, ::testing::KilledBySignal(SIGABRT), ::support::failed_assertion(file, text))
