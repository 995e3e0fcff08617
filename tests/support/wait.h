// Waiting for what another thread or process does: never a fixed sleep, always a condition with a limit.
#pragma once

#include <chrono>
#include <thread>

namespace support {

using std::chrono::milliseconds;

/// How long a test waits before it calls something hung. Generous: it is reached only by a failing test.
#ifndef TEST_PATIENCE_MS // a build in which most tests are to fail sets a shorter one
#define TEST_PATIENCE_MS 30'000
#endif
inline constexpr milliseconds patience{TEST_PATIENCE_MS};

/// Looks again and again until the condition holds (true) or the limit is over (the condition's last answer).
template <typename Condition>
bool wait_until(Condition condition, milliseconds limit = patience)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return condition();
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

} // namespace support
