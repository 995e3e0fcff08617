// The one way in which tests look at a failed assertion.
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace support {

/// The pattern of "<file>:<line>: failed assertion `<text>'", both taken literally; `file` may be any part of the path.
/// Also asks for death tests that start afresh: a plain fork of a process with threads may hang.
std::string assertion_pattern(std::string_view file, std::string_view text);

} // namespace support

/// The statement must abort the process with that failed assertion.
#define EXPECT_ASSERTION(statement, file, text)                                                                        \
    EXPECT_EXIT(statement, ::testing::KilledBySignal(SIGABRT), ::support::assertion_pattern(file, text))
